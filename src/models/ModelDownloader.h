// The whisper.cpp speech models Quillmoss can use: their catalogue, their files in
// Documents/WhisperModels, and fetching one from the model host with progress.
#pragma once

#include "core/HttpClient.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

// How one download request ended; `error` is a sentence for the user, empty on success.
struct ModelDownloadResult
{
    bool ok = false;
    QString error;
};

// Lives on the GUI thread, where its properties change and its futures finish.
//
// One download runs at a time: a request for the model that is already
// downloading joins that download (same future, one transfer); a request for
// another model while one runs is refused with an error saying so, since the
// published progress and status describe a single transfer.
//
// A download streams into a temporary file beside the model's file and
// replaces it with one rename only when a complete 200 response arrived, so an
// error, a cut connection or a cancel leaves the previous model file as it was.
class ModelDownloader : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isDownloading READ isDownloading NOTIFY isDownloadingChanged)
    Q_PROPERTY(double downloadProgress READ downloadProgress NOTIFY downloadProgressChanged)
    Q_PROPERTY(QString downloadStatus READ downloadStatus NOTIFY downloadStatusChanged)
    Q_PROPERTY(QString downloadingModel READ downloadingModel NOTIFY downloadingModelChanged)
    Q_PROPERTY(QStringList modelNames READ modelNames CONSTANT)
    Q_PROPERTY(QString defaultModel READ defaultModel CONSTANT)

public:
    struct CatalogueEntry
    {
        QString name;              // what the user picks, and the local file's name
        QString fileName;          // the file on the model host
        qint64 approximateMiB = 0; // what the model host serves, for the screens
    };

    // `modelBaseUrl` is the folder of the model host the catalogue's files are in.
    explicit ModelDownloader(QUrl modelBaseUrl, QObject* parent = nullptr);
    // Aborts a running download (its temporary file goes) and fails its future.
    ~ModelDownloader() override;
    ModelDownloader(const ModelDownloader&) = delete;
    ModelDownloader& operator=(const ModelDownloader&) = delete;

    static const QList<CatalogueEntry>& catalogue();
    static QStringList modelNames();
    static bool isKnownModel(const QString& name);
    static QString defaultModel();
    // What a request for a name outside the catalogue is told.
    static QString unknownModelError(const QString& name);
    // The address the model is fetched from; empty for a name not in the catalogue.
    QUrl downloadUrl(const QString& name) const;

    bool isDownloading() const { return m_downloading; }
    double downloadProgress() const { return m_progress; }
    QString downloadStatus() const { return m_status; }
    QString downloadingModel() const { return m_downloadingModel; }

    // Documents/WhisperModels, created when missing; nothing (and a log line)
    // when it cannot be used.
    std::optional<QString> modelsDirectory() const;
    // The model's local file ("ggml-" + name + ".bin") whether or not it exists;
    // empty for a name not in the catalogue.
    Q_INVOKABLE QString modelPath(const QString& name) const;
    Q_INVOKABLE bool isDownloaded(const QString& name) const;
    // A model named on a command line: a model file as given, or a catalogue
    // name already downloaded. Absent otherwise, with `error` saying what to do.
    std::optional<QString> localModelFile(const QString& nameOrPath, QString* error) const;

    // Fetches the model, replacing its file. The future finishes on the GUI
    // thread. Each transfer, and each refused request, ends with one
    // downloadFinished, never emitted from inside the call; a request that
    // joined a running transfer shares that transfer's.
    QFuture<ModelDownloadResult> download(const QString& name);
    // Downloads defaultModel() unless its file is there.
    QFuture<ModelDownloadResult> ensureDefaultModel();
    // Downloads the model unless its file is there (then the future is already finished).
    QFuture<ModelDownloadResult> ensureModel(const QString& name);
    // Removes the model's file; true when no file is left.
    Q_INVOKABLE bool deleteModel(const QString& name);
    // Stops the running download, which then fails; nothing when none runs.
    Q_INVOKABLE void cancelDownload();

Q_SIGNALS:
    void isDownloadingChanged();
    void downloadProgressChanged();
    void downloadStatusChanged();
    void downloadingModelChanged();
    void downloadFinished(const QString& name, bool ok, const QString& error);
    // A model file appeared, was replaced or was removed.
    void downloadedModelsChanged();

private:
    struct Transfer;
    using Completion = std::function<void(const ModelDownloadResult&)>;

    QFuture<ModelDownloadResult> startDownload(const QString& name, const Completion& completion);
    QFuture<ModelDownloadResult> refuse(const QString& name, const QString& error,
                                        const Completion& completion);
    bool receive(const QByteArray& data);
    void transferFinished(const HttpResponse& response);
    void complete(const ModelDownloadResult& result);
    void setDownloading(bool downloading);
    void setProgress(double progress);
    void setStatus(const QString& status);
    void setDownloadingModel(const QString& name);

    QUrl m_baseUrl;
    HttpClient* m_http; // child
    std::unique_ptr<Transfer> m_transfer;
    bool m_downloading = false;
    double m_progress = 0.0;
    QString m_status;
    QString m_downloadingModel;
};

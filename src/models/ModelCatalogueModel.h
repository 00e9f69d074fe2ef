// The speech-model catalogue as the model-management screen lists it: one row
// per model with its size, whether it is on disk, and the progress of its download.
#pragma once

#include <QAbstractListModel>
#include <QList>
#include <QString>

#include <optional>

class ModelDownloader;

// Lives on the GUI thread, beside the downloader it presents (which must
// outlive it). Rows follow the downloader's signals; file sizes are read when
// the set of model files changes, not on every repaint.
class ModelCatalogueModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ count CONSTANT)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)

public:
    enum Role
    {
        NameRole = Qt::UserRole + 1,
        FileNameRole,
        SizeTextRole,
        DownloadedRole,
        DownloadingRole,
        ProgressRole,
    };
    Q_ENUM(Role)

    explicit ModelCatalogueModel(ModelDownloader& downloader, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return rowCount(); }
    // Why the last download or deletion the user asked for failed; empty otherwise.
    QString lastError() const { return m_lastError; }

    // Roughly how much the host sends for the model, in bytes (the published
    // whisper.cpp file sizes); nothing for a name outside the catalogue.
    static std::optional<qint64> approximateDownloadSize(const QString& name);
    // "840 KB", "75 MB", "1.5 GB" (binary units, as file managers write them).
    static QString sizeText(qint64 bytes);

    Q_INVOKABLE void download(const QString& name);
    // Stops the running download; a cancel is the user's choice, not an error.
    Q_INVOKABLE void cancel();
    // Deletes the model's file; false (and lastError) when it could not be removed.
    Q_INVOKABLE bool remove(const QString& name);
    Q_INVOKABLE void clearError();

Q_SIGNALS:
    void lastErrorChanged();

private:
    struct Row
    {
        QString name;
        QString fileName;
        std::optional<qint64> fileSize; // the local file's, when downloaded
    };

    int rowOf(const QString& name) const;
    void refreshFiles();
    void downloadingModelChanged();
    void progressChanged();
    void downloadFinished(const QString& name, bool ok, const QString& error);
    void setLastError(const QString& error);

    ModelDownloader& m_downloader;
    QList<Row> m_rows;
    QString m_downloadingRowName; // the row shown as downloading, to clear it when that ends
    QString m_cancelledName;      // the download the user stopped
    QString m_lastError;
};

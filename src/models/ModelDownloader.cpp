#include "models/ModelDownloader.h"

#include "core/Logging.h"
#include "store/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QPromise>
#include <QSaveFile>

#include <algorithm>
#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;

namespace {

const auto modelsFolder = u"WhisperModels"_s;

// Progress is published in steps of at least this much, so a fast local
// transfer does not flood the screens with a notification per network packet.
constexpr double progressStep = 0.01;

// A transfer that receives nothing for this long is given up; there is no
// limit on a slow one that keeps moving.
constexpr std::chrono::milliseconds stallTimeout{60'000};

QFuture<ModelDownloadResult> finishedFuture(const ModelDownloadResult& result)
{
    QPromise<ModelDownloadResult> promise;
    promise.start();
    promise.addResult(result);
    promise.finish();
    return promise.future();
}

} // namespace

struct ModelDownloader::Transfer
{
    QString name;
    QPointer<HttpCall> call;
    QSaveFile file;
    qint64 expected = -1; // Content-Length of the 200 response; -1 when it sent none
    qint64 received = 0;
    bool cancelled = false;
    QString error; // a failure found while receiving, reported when the reply ends
    QPromise<ModelDownloadResult> promise;
    QFuture<ModelDownloadResult> future;
    QList<Completion> completions;

    explicit Transfer(const QString& path) : file(path) {}
};

ModelDownloader::ModelDownloader(QUrl modelBaseUrl, QObject* parent)
    : QObject(parent), m_baseUrl(std::move(modelBaseUrl)), m_http(new HttpClient({}, {}, this)),
      m_status(u"Ready"_s)
{}

ModelDownloader::~ModelDownloader()
{
    if (!m_transfer) {
        return;
    }
    if (m_transfer->call) {
        m_transfer->call->cancel();
    }
    m_transfer->promise.addResult(ModelDownloadResult{
        false,
        u"The download of %1 was stopped because Quillmoss is closing"_s.arg(m_transfer->name)});
    m_transfer->promise.finish();
    // Destroying the uncommitted QSaveFile removes its temporary file.
    m_transfer.reset();
}

const QList<ModelDownloader::CatalogueEntry>& ModelDownloader::catalogue()
{
    // Sizes in MiB; the quantized files are the smaller ones.
    static const QList<CatalogueEntry> entries = {
        {u"tiny.en"_s, u"ggml-tiny.en.bin"_s, 75},
        {u"tiny.en-q8"_s, u"ggml-tiny.en-q8_0.bin"_s, 42},
        {u"small.en"_s, u"ggml-small.en.bin"_s, 466},
        {u"small.en-q8"_s, u"ggml-small.en-q8_0.bin"_s, 252},
        {u"base.en"_s, u"ggml-base.en.bin"_s, 142},
        {u"base.en-q8"_s, u"ggml-base.en-q8_0.bin"_s, 78},
        {u"medium.en"_s, u"ggml-medium.en.bin"_s, 1533},
        {u"medium.en-q8"_s, u"ggml-medium.en-q8_0.bin"_s, 785},
        {u"large-v3"_s, u"ggml-large-v3.bin"_s, 2952},
        {u"large-v3-q5"_s, u"ggml-large-v3-q5_0.bin"_s, 1031},
        {u"large-v3-turbo"_s, u"ggml-large-v3-turbo.bin"_s, 1549},
        {u"large-v3-turbo-q5"_s, u"ggml-large-v3-turbo-q5_0.bin"_s, 547},
        {u"large-v3-turbo-q8"_s, u"ggml-large-v3-turbo-q8_0.bin"_s, 834},
    };
    return entries;
}

QStringList ModelDownloader::modelNames()
{
    QStringList names;
    for (const CatalogueEntry& entry : catalogue()) {
        names.append(entry.name);
    }
    return names;
}

bool ModelDownloader::isKnownModel(const QString& name)
{
    return modelNames().contains(name);
}

QString ModelDownloader::defaultModel()
{
    return u"base.en-q8"_s;
}

QString ModelDownloader::unknownModelError(const QString& name)
{
    return u"Unknown model \"%1\"; the models are: %2"_s.arg(name, modelNames().join(u", "_s));
}

QUrl ModelDownloader::downloadUrl(const QString& name) const
{
    for (const CatalogueEntry& entry : catalogue()) {
        if (entry.name == name) {
            QUrl url = m_baseUrl.adjusted(QUrl::StripTrailingSlash);
            url.setPath(url.path() + u'/' + entry.fileName);
            return url;
        }
    }
    return {};
}

std::optional<QString> ModelDownloader::modelsDirectory() const
{
    const QString documents = AppPaths::documentsDirectory();
    if (documents.isEmpty() || !QFileInfo(documents).isDir()) {
        qCWarning(lcCapture).noquote() << u"❌ Could not access documents directory"_s;
        return std::nullopt;
    }
    const QString path = QDir(documents).filePath(modelsFolder);
    if (QFileInfo(path).isDir()) {
        qCInfo(lcCapture).noquote() << u"📁 Using existing WhisperModels directory at: "_s + path;
        return path;
    }
    std::error_code error;
    std::filesystem::create_directories(QFile::encodeName(path).toStdString(), error);
    if (error) {
        qCWarning(lcCapture).noquote() << u"❌ Failed to create WhisperModels directory: "_s + path +
                                              u": "_s + QString::fromStdString(error.message());
        return std::nullopt;
    }
    qCInfo(lcCapture).noquote() << u"📁 Created WhisperModels directory at: "_s + path;
    return path;
}

QString ModelDownloader::modelPath(const QString& name) const
{
    if (!isKnownModel(name)) {
        return {};
    }
    // Named after the model, not the host's file: "large-v3-turbo-q8" is kept
    // as ggml-large-v3-turbo-q8.bin although it comes from ...-q8_0.bin.
    return QDir(AppPaths::documentsDirectory())
        .filePath(modelsFolder + u"/ggml-"_s + name + u".bin"_s);
}

bool ModelDownloader::isDownloaded(const QString& name) const
{
    const QString path = modelPath(name);
    return !path.isEmpty() && QFileInfo(path).isFile();
}

std::optional<QString> ModelDownloader::localModelFile(const QString& nameOrPath,
                                                       QString* error) const
{
    if (QFileInfo(nameOrPath).isFile()) {
        return nameOrPath;
    }
    QString problem;
    if (!isKnownModel(nameOrPath)) {
        problem =
            u"\"%1\" is neither a model file nor a model name (see quillmoss models list)"_s.arg(
                nameOrPath);
    } else if (!isDownloaded(nameOrPath)) {
        problem = u"the model %1 is not downloaded yet: run quillmoss models download %1"_s.arg(
            nameOrPath);
    } else {
        return modelPath(nameOrPath);
    }
    if (error != nullptr) {
        *error = problem;
    }
    return std::nullopt;
}

QFuture<ModelDownloadResult> ModelDownloader::download(const QString& name)
{
    return startDownload(name, {});
}

QFuture<ModelDownloadResult> ModelDownloader::ensureDefaultModel()
{
    const QString name = defaultModel();
    qCInfo(lcCapture).noquote() << u"🔍 Checking for default model: "_s + name;
    setStatus(u"Checking for existing model..."_s);
    if (isDownloaded(name)) {
        return finishedFuture({true, {}});
    }
    return startDownload(name, [](const ModelDownloadResult& result) {
        if (result.ok) {
            qCInfo(lcCapture).noquote() << u"✅ Default model download completed successfully"_s;
        } else {
            qCWarning(lcCapture).noquote()
                << u"❌ Failed to download default model: "_s + result.error;
        }
    });
}

QFuture<ModelDownloadResult> ModelDownloader::ensureModel(const QString& name)
{
    qCInfo(lcCapture).noquote() << u"🔍 Checking for model: "_s + name;
    setStatus(u"Checking "_s + name + u" model..."_s);
    if (isDownloaded(name)) {
        return finishedFuture({true, {}});
    }
    return startDownload(name, [name](const ModelDownloadResult& result) {
        if (result.ok) {
            qCInfo(lcCapture).noquote() << u"✅ '"_s + name + u"' download completed successfully"_s;
        } else {
            qCWarning(lcCapture).noquote()
                << u"❌ Failed to download '"_s + name + u"' model: "_s + result.error;
        }
    });
}

bool ModelDownloader::deleteModel(const QString& name)
{
    const QString path = modelPath(name);
    if (path.isEmpty()) {
        qCWarning(lcCapture).noquote() << u"❌ Cannot delete unknown model: "_s + name;
        return false;
    }
    QFile file(path);
    if (!file.exists()) {
        return true;
    }
    if (!file.remove()) {
        qCWarning(lcCapture).noquote()
            << u"❌ Failed to delete model %1: %2"_s.arg(name, file.errorString());
        return false;
    }
    qCInfo(lcCapture).noquote() << u"🗑️ Deleted Whisper model: "_s + name;
    Q_EMIT downloadedModelsChanged();
    return true;
}

void ModelDownloader::cancelDownload()
{
    if (!m_transfer || !m_transfer->call) {
        return;
    }
    m_transfer->cancelled = true;
    m_transfer->call->abort(); // finishes the request, which completes the transfer
}

QFuture<ModelDownloadResult> ModelDownloader::startDownload(const QString& name,
                                                            const Completion& completion)
{
    if (!isKnownModel(name)) {
        return refuse(name, unknownModelError(name), completion);
    }
    if (m_transfer) {
        if (m_transfer->name != name) {
            return refuse(name,
                          u"Another model (%1) is downloading; one download runs at a time"_s.arg(
                              m_transfer->name),
                          completion);
        }
        if (completion) {
            m_transfer->completions.append(completion);
        }
        return m_transfer->future;
    }
    const std::optional<QString> directory = modelsDirectory();
    if (!directory) {
        return refuse(name, u"The WhisperModels folder in your Documents folder cannot be used"_s,
                      completion);
    }

    auto transfer = std::make_unique<Transfer>(modelPath(name));
    // Unbuffered, so that a full disk shows as a failed write here rather than
    // as a short final flush that commit() might not notice.
    if (!transfer->file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return refuse(name,
                      u"Cannot write the model file in %1: %2"_s.arg(*directory,
                                                                     transfer->file.errorString()),
                      completion);
    }
    transfer->name = name;
    transfer->promise.start();
    transfer->future = transfer->promise.future();
    if (completion) {
        transfer->completions.append(completion);
    }
    m_transfer = std::move(transfer);

    setDownloading(true);
    setProgress(0.0);
    setStatus(u"Now downloading model: "_s + name);
    setDownloadingModel(name);
    qCInfo(lcCapture).noquote() << u"📥 Downloading Whisper model: "_s + name;

    HttpRequest request = HttpRequest::get(downloadUrl(name)).withTimeout(stallTimeout);
    // The host answers with redirects to a content server.
    request.followRedirects = true;
    // The bytes on the wire are the file, so Content-Length measures progress
    // and completeness.
    request.headers.append(std::pair<QByteArray, QByteArray>("Accept-Encoding", "identity"));
    HttpClient::Stream stream;
    // Bodies of error pages are not the model; their status fails the download
    // when the request ends.
    stream.onHead = [this](const HttpResponse& head) {
        if (head.status != 200) {
            return false;
        }
        m_transfer->expected = head.contentLength.value_or(-1);
        return true;
    };
    stream.onData = [this](const QByteArray& chunk) { return receive(chunk); };
    stream.onFinished = [this](const HttpResponse& response) { transferFinished(response); };
    m_transfer->call = m_http->stream(request, std::move(stream));
    return m_transfer->future;
}

QFuture<ModelDownloadResult> ModelDownloader::refuse(const QString& name, const QString& error,
                                                     const Completion& completion)
{
    qCWarning(lcCapture).noquote() << u"❌ Download failed: "_s + error;
    const ModelDownloadResult result{false, error};
    if (completion) {
        completion(result);
    }
    QMetaObject::invokeMethod(
        this, [this, name, error] { Q_EMIT downloadFinished(name, false, error); },
        Qt::QueuedConnection);
    return finishedFuture(result);
}

bool ModelDownloader::receive(const QByteArray& data)
{
    Transfer& transfer = *m_transfer;
    for (qsizetype offset = 0; offset < data.size();) {
        const qint64 written = transfer.file.write(data.constData() + offset, data.size() - offset);
        if (written <= 0) {
            transfer.error =
                u"Cannot write %1: %2"_s.arg(transfer.file.fileName(), transfer.file.errorString());
            return false; // ends the transfer at once
        }
        offset += written;
    }
    transfer.received += data.size();
    if (transfer.expected > 0) {
        const double progress = std::min(1.0, static_cast<double>(transfer.received) /
                                                  static_cast<double>(transfer.expected));
        if (progress - m_progress >= progressStep || transfer.received >= transfer.expected) {
            setProgress(progress);
        }
    }
    return true;
}

void ModelDownloader::transferFinished(const HttpResponse& response)
{
    Transfer& transfer = *m_transfer;
    const int status = response.status;
    const bool transportError = response.networkError != QNetworkReply::NoError;
    QString error = transfer.error;
    if (!error.isEmpty()) {
        // already known
    } else if (transfer.cancelled) {
        error = u"The download of %1 was cancelled"_s.arg(transfer.name);
    } else if (status != 0 && status != 200) {
        error = u"The model host answered %1 %2 for %3"_s.arg(
            QString::number(status), response.reasonPhrase, response.url.toString());
    } else if (status == 200 && transfer.expected >= 0 && transfer.received != transfer.expected) {
        // Qt reports a connection closed before the announced length either as
        // an error or, at times, as a normal end: the count is what tells.
        error = u"The download ended after %1 of %2 bytes"_s.arg(transfer.received)
                    .arg(transfer.expected);
        if (transportError) {
            error += u" ("_s + response.errorString + u')';
        }
    } else if (transportError) {
        error = u"The connection to the model host failed: "_s + response.errorString;
    } else if (status == 0) {
        error = u"The model host sent no HTTP response"_s;
    } else if (!transfer.file.commit()) {
        error = u"Cannot save %1: %2"_s.arg(transfer.file.fileName(), transfer.file.errorString());
    }
    complete({error.isEmpty(), error});
}

void ModelDownloader::complete(const ModelDownloadResult& result)
{
    const std::unique_ptr<Transfer> transfer = std::move(m_transfer);
    const QString name = transfer->name;
    if (result.ok) {
        setProgress(1.0);
        setDownloading(false);
        setStatus(u"Downloaded "_s + name);
        qCInfo(lcCapture).noquote() << u"✅ Model downloaded successfully: "_s + name;
    } else if (transfer->cancelled) {
        // The user's own choice, not a fault worth a warning.
        setDownloading(false);
        setStatus(u"Download cancelled"_s);
        qCInfo(lcCapture).noquote() << u"⏹️ Model download cancelled: "_s + name;
    } else {
        setDownloading(false);
        setStatus(u"Download failed: "_s + result.error);
        qCWarning(lcCapture).noquote() << u"❌ Model download failed: "_s + result.error;
    }
    setDownloadingModel({});
    for (const Completion& completion : std::as_const(transfer->completions)) {
        completion(result);
    }
    transfer->promise.addResult(result);
    transfer->promise.finish();
    if (result.ok) {
        Q_EMIT downloadedModelsChanged();
    }
    Q_EMIT downloadFinished(name, result.ok, result.error);
    // `transfer` goes here; an uncommitted temporary file goes with it.
}

void ModelDownloader::setDownloading(bool downloading)
{
    if (m_downloading != downloading) {
        m_downloading = downloading;
        Q_EMIT isDownloadingChanged();
    }
}

void ModelDownloader::setProgress(double progress)
{
    if (m_progress != progress) {
        m_progress = progress;
        Q_EMIT downloadProgressChanged();
    }
}

void ModelDownloader::setStatus(const QString& status)
{
    if (m_status != status) {
        m_status = status;
        Q_EMIT downloadStatusChanged();
    }
}

void ModelDownloader::setDownloadingModel(const QString& name)
{
    if (m_downloadingModel != name) {
        m_downloadingModel = name;
        Q_EMIT downloadingModelChanged();
    }
}

#include "recognition/WhisperContext.h"

#include "core/Logging.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QPromise>
#include <QThread>

#include <algorithm>
#include <mutex>
#include <utility>
#include <whisper_bridge.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcWhisper, "com.quillmoss.whisper")

namespace {

constexpr int reservedProcessors = 2;
constexpr int maximumThreads = 8;

// The engine writes a line in pieces now and then (a message without its
// newline, then LOG_CONT pieces); each thread's unfinished line waits here.
struct PendingLine
{
    int level = WHISPER_BRIDGE_LOG_INFO;
    QString text;
};

void writeEngineLine(int level, const QString& line)
{
    if (line.isEmpty()) {
        return;
    }
    switch (level) {
    case WHISPER_BRIDGE_LOG_ERROR:
        qCCritical(lcWhisper).noquote() << line;
        break;
    case WHISPER_BRIDGE_LOG_WARN:
        qCWarning(lcWhisper).noquote() << line;
        break;
    default:
        // Model loading alone is some forty lines of details: debug, opt-in.
        qCDebug(lcWhisper).noquote() << line;
        break;
    }
}

void engineLog(int level, const char* text, void* /*userData*/)
{
    thread_local PendingLine pending;
    if (level != WHISPER_BRIDGE_LOG_CONT) {
        writeEngineLine(pending.level, pending.text);
        pending.text.clear();
        pending.level = level;
    }
    pending.text += QString::fromUtf8(text);
    if (pending.text.endsWith(u'\n') || level == WHISPER_BRIDGE_LOG_SEGMENT) {
        writeEngineLine(pending.level, pending.text.trimmed());
        pending.text.clear();
    }
}

void routeEngineLog()
{
    static std::once_flag once;
    std::call_once(once, [] { whisper_bridge_set_log_callback(engineLog, nullptr); });
}

WhisperTranscription cancelledTranscription(qsizetype samples)
{
    WhisperTranscription result;
    result.error = WhisperError::couldNotTranscribe;
    result.cancelled = true;
    result.samples = samples;
    return result;
}

} // namespace

// One queued transcription. It answers its caller exactly once: with the
// outcome, or as cancelled when it is dropped unrun. A worker thread told to
// quit may discard what is still queued for it, and a caller must never wait
// for an answer that does not come.
class WhisperContext::Job
{
public:
    Job(Samples samples, std::function<void(WhisperTranscription)> done)
        : m_samples(std::move(samples)), m_done(std::move(done))
    {}
    ~Job()
    {
        if (m_done) {
            m_done(cancelledTranscription(qsizetype(m_samples.size())));
        }
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    const Samples& samples() const { return m_samples; }
    void answer(WhisperTranscription result) { std::exchange(m_done, nullptr)(std::move(result)); }

private:
    const Samples m_samples;
    std::function<void(WhisperTranscription)> m_done;
};

std::unique_ptr<WhisperContext> WhisperContext::create(const QString& path, WhisperError* error)
{
    routeEngineLog();
    const auto fail = [error] {
        if (error) {
            *error = WhisperError::couldNotInitializeContext;
        }
        return nullptr;
    };
    if (!QFileInfo(path).isFile()) {
        qCWarning(lcCapture).noquote() << u"❌ Whisper: Model file not found at "_s + path;
        return fail();
    }
    WhisperBridgeContext* context = whisper_bridge_init(QFile::encodeName(path).constData());
    if (!context) {
        qCWarning(lcCapture).noquote() << u"❌ Whisper: Couldn't load model at "_s + path;
        return fail();
    }
    return std::unique_ptr<WhisperContext>(new WhisperContext(context, path));
}

WhisperContext::WhisperContext(WhisperBridgeContext* context, QString modelPath)
    : m_context(context), m_modelPath(std::move(modelPath)),
      m_computeBackend(QString::fromUtf8(whisper_bridge_compute_backend(context))),
      m_threads(defaultThreadCount()), m_worker(std::in_place, u"WhisperContext"_s)
{}

WhisperContext::~WhisperContext()
{
    m_stopping = true;
    m_worker.reset();
    whisper_bridge_free(m_context);
}

int WhisperContext::defaultThreadCount()
{
    return std::clamp(QThread::idealThreadCount() - reservedProcessors, 1, maximumThreads);
}

void WhisperContext::setThreadCount(int threads)
{
    m_threads = threads > 0 ? threads : defaultThreadCount();
}

QString WhisperContext::systemInfo()
{
    routeEngineLog();
    return QString::fromUtf8(whisper_bridge_system_info()).trimmed();
}

void WhisperContext::transcribe(Samples samples, std::function<void(WhisperTranscription)> done)
{
    auto job = std::make_shared<Job>(std::move(samples), std::move(done));
    m_worker->post([this, job] { job->answer(run(job->samples())); });
}

QFuture<WhisperTranscription> WhisperContext::transcribe(Samples samples)
{
    auto promise = std::make_shared<QPromise<WhisperTranscription>>();
    QFuture<WhisperTranscription> future = promise->future();
    promise->start();
    transcribe(std::move(samples), [promise](WhisperTranscription result) {
        promise->addResult(std::move(result));
        promise->finish();
    });
    return future;
}

bool WhisperContext::shouldAbort(void* self)
{
    return static_cast<WhisperContext*>(self)->m_stopping.load(std::memory_order_relaxed);
}

WhisperTranscription WhisperContext::run(const Samples& samples)
{
    WhisperTranscription result;
    result.samples = qsizetype(samples.size());
    result.threads = m_threads.load();
    if (m_stopping) {
        return cancelledTranscription(result.samples);
    }

    QElapsedTimer timer;
    timer.start();
    const int status = whisper_bridge_full(m_context, samples.data(), samples.size(),
                                           result.threads, &WhisperContext::shouldAbort, this);
    result.processingSeconds = double(timer.nsecsElapsed()) / 1e9;
    if (status != 0) {
        result.error = WhisperError::couldNotTranscribe;
        result.cancelled = m_stopping;
        // A run stopped for shutdown is no failure of the model.
        if (!result.cancelled) {
            qCWarning(lcCapture).noquote() << u"❌ Whisper: Failed to run the model"_s;
        }
        return result;
    }

    const int segments = whisper_bridge_n_segments(m_context);
    for (int segment = 0; segment < segments; ++segment) {
        result.text += QString::fromUtf8(whisper_bridge_segment_text(m_context, segment));
    }
    return result;
}

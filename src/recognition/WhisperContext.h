// The loaded speech model: one whisper.cpp context that recognizes 16 kHz mono
// audio on a thread of its own, one request at a time.
#pragma once

#include "audio/AudioBuffer.h"
#include "core/SerialWorker.h"

#include <QFuture>
#include <QLoggingCategory>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

// whisper.cpp's and ggml's own log output: "com.quillmoss.whisper".
Q_DECLARE_LOGGING_CATEGORY(lcWhisper)

struct WhisperBridgeContext;

enum class WhisperError
{
    couldNotInitializeContext,
    couldNotTranscribe,
};

// The outcome of one full transcription.
struct WhisperTranscription
{
    // Set when the model did not run to the end; `text` is then empty.
    std::optional<WhisperError> error;
    // The run was stopped because the context is going away (not a model failure).
    bool cancelled = false;
    // The texts of all segments, in order, with no separator.
    QString text;
    qsizetype samples = 0;
    int threads = 0;
    // Wall time of the model run alone, on the context's thread.
    double processingSeconds = 0.0;

    double audioSeconds() const { return double(samples) / targetSampleRate; }
};

class WhisperContext
{
public:
    // Loads the model at `path` with whisper.cpp's default context parameters.
    // Blocks while the file is read (up to seconds for the larger models), so
    // it is called off the GUI thread. Absent on failure, with `error` set when
    // given and the reason logged.
    static std::unique_ptr<WhisperContext> create(const QString& path,
                                                  WhisperError* error = nullptr);

    // Stops a run in progress at its next check, skips queued runs (their
    // callbacks see `cancelled`), joins the thread, then frees the model.
    ~WhisperContext();
    WhisperContext(const WhisperContext&) = delete;
    WhisperContext& operator=(const WhisperContext&) = delete;

    // Processors − 2, clamped to 1..8: two are left for capture and the interface.
    static int defaultThreadCount();

    // Queues a full transcription of `samples`; `done` runs on the context's
    // thread when it ends, in posting order. Callable from any thread. At
    // shutdown a job that never started is answered as cancelled, possibly on
    // the thread destroying the context.
    void transcribe(Samples samples, std::function<void(WhisperTranscription)> done);
    // The same, with the outcome handed over through a future.
    QFuture<WhisperTranscription> transcribe(Samples samples);

    QString modelPath() const { return m_modelPath; }
    // The device whisper.cpp computes on: "CPU" or a GPU's name.
    QString computeBackend() const { return m_computeBackend; }
    // whisper.cpp's line of compiled-in features ("AVX2 = 1 | ...").
    static QString systemInfo();

    // Threads of the runs queued from now on; 0 restores the default.
    void setThreadCount(int threads);
    int threadCount() const { return m_threads.load(); }

private:
    class Job;

    WhisperContext(WhisperBridgeContext* context, QString modelPath);

    // Runs on m_worker's thread.
    WhisperTranscription run(const Samples& samples);
    static bool shouldAbort(void* self);

    WhisperBridgeContext* const m_context; // used only on m_worker's thread
    const QString m_modelPath;
    const QString m_computeBackend;
    std::atomic<int> m_threads;
    // Set by the destructor; read by the worker between and during runs.
    std::atomic<bool> m_stopping = false;
    std::optional<SerialWorker> m_worker;
};

#include "recognition/LocalSpeechRecognizer.h"

#include "core/Logging.h"
#include "recognition/TranscriptCleaner.h"
#include "recognition/WhisperContext.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

// What the model's thread hands back for one job.
struct LocalSpeechRecognizer::Outcome
{
    WhisperTranscription transcription;
    // The cleaner's verdict; absent when it rejected the text or the run failed.
    std::optional<QString> text;
    int chunks = 0;
    qint64 firstArrival = 0;
};

LocalSpeechRecognizer::LocalSpeechRecognizer(std::unique_ptr<WhisperContext> context,
                                             QObject* parent)
    : SpeechRecognizer(parent), m_context(std::move(context))
{
    m_clock.start();
    if (m_context) {
        m_status.model = QFileInfo(m_context->modelPath()).fileName();
        m_status.computeBackend = m_context->computeBackend();
        m_status.threads = m_context->threadCount();
    }
}

LocalSpeechRecognizer::~LocalSpeechRecognizer()
{
    // Joins the model's thread: no callback of a job touches this object
    // afterwards, and what it already queued here is discarded with it.
    m_context.reset();
}

void LocalSpeechRecognizer::recognize(Samples chunk)
{
    if (!m_context) {
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, chunk = std::move(chunk)]() mutable { enqueue(std::move(chunk)); },
        Qt::QueuedConnection);
}

void LocalSpeechRecognizer::enqueue(Samples chunk)
{
    const RecognitionQueue::Admission admission = m_queue.add(std::move(chunk), m_clock.elapsed());
    if (!admission.accepted) {
        return;
    }
    if (admission.droppedSamples > 0) {
        const double seconds = double(admission.droppedSamples) / targetSampleRate;
        qCWarning(lcCapture).noquote()
            << u"⚠️ Whisper: recognition is falling behind; skipped %1 s of the oldest "
               u"waiting audio"_s.arg(seconds, 0, 'f', 1);
        m_status.secondsSkipped = double(m_queue.droppedSamples()) / targetSampleRate;
    }
    startNext();
    publishQueue();
}

void LocalSpeechRecognizer::startNext()
{
    std::optional<RecognitionQueue::Job> job = m_queue.start();
    if (!job) {
        return;
    }
    const int chunks = job->chunks;
    const qint64 firstArrival = job->firstArrival;
    m_context->transcribe(
        std::move(job->samples), [this, chunks, firstArrival](WhisperTranscription result) {
            if (result.cancelled) {
                return; // this object is being destroyed
            }
            Outcome outcome{std::move(result), std::nullopt, chunks, firstArrival};
            if (!outcome.transcription.error) {
                // Here, on the model's thread: cleaning stays off the GUI thread.
                outcome.text = TranscriptCleaner::clean(outcome.transcription.text);
            }
            QMetaObject::invokeMethod(
                this, [this, outcome = std::move(outcome)] { finishJob(outcome); },
                Qt::QueuedConnection);
        });
}

void LocalSpeechRecognizer::finishJob(const Outcome& outcome)
{
    m_queue.finish();
    const WhisperTranscription& transcription = outcome.transcription;
    const double audioSeconds = transcription.audioSeconds();
    m_status.threads = transcription.threads;
    m_status.lastJobAudioSeconds = audioSeconds;
    m_status.lastJobProcessingSeconds = transcription.processingSeconds;
    m_status.lastJobRealTimeFactor =
        audioSeconds > 0.0 ? transcription.processingSeconds / audioSeconds : 0.0;
    m_status.lastJobLatencySeconds = double(m_clock.elapsed() - outcome.firstArrival) / 1000.0;
    m_status.jobsCompleted += 1;
    m_status.recognizedSeconds += audioSeconds;
    qCDebug(lcCapture).noquote() << u"🎙️ Whisper: %1 s of audio (%2 chunk(s)) in %3 s on %4 "
                                    u"thread(s), real-time factor "
                                    u"%5, text %6 s after the first chunk"_s
                                        .arg(audioSeconds, 0, 'f', 1)
                                        .arg(outcome.chunks)
                                        .arg(transcription.processingSeconds, 0, 'f', 2)
                                        .arg(transcription.threads)
                                        .arg(m_status.lastJobRealTimeFactor, 0, 'f', 2)
                                        .arg(m_status.lastJobLatencySeconds, 0, 'f', 1);

    if (outcome.text && !outcome.text->isEmpty()) {
        Q_EMIT textRecognized(*outcome.text);
    }
    startNext();
    publishQueue();
}

void LocalSpeechRecognizer::publishQueue()
{
    m_status.queueDepth = m_queue.depth();
    Q_EMIT statusChanged();
}

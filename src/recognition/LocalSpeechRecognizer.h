// Recognition of a call's chunks with the local whisper.cpp model: keeps up
// with the call by merging chunks that wait (RecognitionQueue), cleans the
// text off the GUI thread and publishes how recognition is doing.
#pragma once

#include "recognition/RecognitionQueue.h"
#include "recognition/SpeechRecognizer.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <memory>

class WhisperContext;

// How recognition is doing, for the screens and the log.
struct RecognitionStatus
{
    Q_GADGET
    Q_PROPERTY(QString model MEMBER model)
    Q_PROPERTY(QString computeBackend MEMBER computeBackend)
    Q_PROPERTY(int threads MEMBER threads)
    Q_PROPERTY(double lastJobAudioSeconds MEMBER lastJobAudioSeconds)
    Q_PROPERTY(double lastJobProcessingSeconds MEMBER lastJobProcessingSeconds)
    Q_PROPERTY(double lastJobRealTimeFactor MEMBER lastJobRealTimeFactor)
    Q_PROPERTY(double lastJobLatencySeconds MEMBER lastJobLatencySeconds)
    Q_PROPERTY(int queueDepth MEMBER queueDepth)
    Q_PROPERTY(double secondsSkipped MEMBER secondsSkipped)
    Q_PROPERTY(int jobsCompleted MEMBER jobsCompleted)
    Q_PROPERTY(double recognizedSeconds MEMBER recognizedSeconds)

public:
    QString model; // file name of the model; empty without one
    QString computeBackend;
    int threads = 0;
    double lastJobAudioSeconds = 0.0;
    double lastJobProcessingSeconds = 0.0;
    // Processing time over audio time: below 1 the model keeps up unaided.
    double lastJobRealTimeFactor = 0.0;
    // From the arrival of the job's oldest chunk to its text.
    double lastJobLatencySeconds = 0.0;
    // Jobs running and waiting: 0, 1 or 2.
    int queueDepth = 0;
    // Audio dropped, oldest first, because even merged jobs could not keep up.
    double secondsSkipped = 0.0;
    // Runs of the model that ended (with text or without), and their audio.
    int jobsCompleted = 0;
    double recognizedSeconds = 0.0;

    bool operator==(const RecognitionStatus&) const = default;
};

class LocalSpeechRecognizer : public SpeechRecognizer
{
    Q_OBJECT
    Q_PROPERTY(RecognitionStatus status READ status NOTIFY statusChanged)

public:
    // Without a context (the model did not load) every chunk is dropped.
    explicit LocalSpeechRecognizer(std::unique_ptr<WhisperContext> context,
                                   QObject* parent = nullptr);
    // Stops the run in progress and drops waiting audio; returns once the
    // model's thread has ended.
    ~LocalSpeechRecognizer() override;

    void recognize(Samples chunk) override;

    RecognitionStatus status() const { return m_status; }
    bool hasContext() const { return m_context != nullptr; }

Q_SIGNALS:
    void statusChanged();

private:
    struct Outcome;

    void enqueue(Samples chunk);
    void startNext();
    void finishJob(const Outcome& outcome);
    void publishQueue();

    // Everything below is used on this object's thread only; the model's
    // thread reaches it through queued calls.
    std::unique_ptr<WhisperContext> m_context;
    RecognitionQueue m_queue;
    RecognitionStatus m_status;
    // Time base of the queue's arrival stamps.
    QElapsedTimer m_clock;
};

Q_DECLARE_METATYPE(RecognitionStatus)

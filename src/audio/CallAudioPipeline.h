// The capture side of a call: converts the blocks of both streams to 16 kHz
// mono, buffers them, takes chunks, mixes and normalizes them, and measures
// the microphone level. Runs on capture threads; hands its results on through
// callbacks.
#pragma once

#include "audio/AudioConverter.h"
#include "audio/AudioLevelMeter.h"
#include "audio/CaptureBuffers.h"
#include "audio/CaptureStreamOutput.h"
#include "core/SerialWorker.h"

#include <QMetaType>
#include <QMutex>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

// One chunk as it goes to recognition.
struct CallChunk
{
    Samples microphone; // as taken from the buffers
    Samples system;
    Samples samples;   // mixed and normalized: what recognition gets
    float peak = 0.0F; // of the mix, before normalization
    float gain = 1.0F;
};

Q_DECLARE_METATYPE(CallChunk)

class CallAudioPipeline : public std::enable_shared_from_this<CallAudioPipeline>
{
public:
    struct Callbacks
    {
        // On a capture thread, when the debounced level is due.
        std::function<void(LevelReading)> onLevel;
        // On the pipeline's worker thread, for every chunk, in order.
        std::function<void(const CallChunk&)> onChunk;
    };

    // `whisperInputPath`: where the last chunk is kept as a WAV file.
    CallAudioPipeline(Callbacks callbacks, QString whisperInputPath,
                      const CaptureBuffers::Clock& clock = std::chrono::steady_clock::now);
    ~CallAudioPipeline();
    CallAudioPipeline(const CallAudioPipeline&) = delete;
    CallAudioPipeline& operator=(const CallAudioPipeline&) = delete;

    // The stream output a capture backend delivers to. Its handlers hold the
    // pipeline weakly and do nothing once it is gone.
    std::shared_ptr<CaptureStreamOutput> makeStreamOutput();

    void handleSystemAudio(const AudioBuffer& buffer);
    void handleMicrophoneAudio(const AudioBuffer& buffer);

    // While paused every block is dropped and the level reads 0.
    void setPaused(bool paused) { m_paused = paused; }
    bool isPaused() const { return m_paused; }
    // Empties both buffers and restarts the chunk clock.
    void reset();

    // Mixes, normalizes and stores one chunk (what the worker runs).
    static CallChunk processChunk(Samples microphone, Samples system);

private:
    std::optional<Samples> convert(const AudioBuffer& buffer, AudioConverter& converter);
    void append(const Samples& samples, bool isSystem);

    const Callbacks m_callbacks;
    const QString m_whisperInputPath;
    std::atomic<bool> m_paused = false;

    // Guards both converters. Each stream keeps its own: a resampler carries
    // state from one block to the next, and the two streams' formats differ.
    QMutex m_conversionLock;
    AudioConverter m_systemConverter;
    AudioConverter m_microphoneConverter;

    CaptureBuffers m_buffers; // has its own lock; never taken with m_conversionLock
    AudioLevelMeter m_levelMeter;
    // Mixing, the WAV file and the hand-off to recognition never run on a capture thread.
    SerialWorker m_worker{QStringLiteral("CallAudio")};
};

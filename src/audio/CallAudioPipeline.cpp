#include "audio/CallAudioPipeline.h"

#include "audio/ChunkMixer.h"
#include "audio/WaveFile.h"

#include <QMutexLocker>

CallAudioPipeline::CallAudioPipeline(Callbacks callbacks, QString whisperInputPath,
                                     const CaptureBuffers::Clock& clock)
    : m_callbacks(std::move(callbacks)), m_whisperInputPath(std::move(whisperInputPath)),
      m_buffers(clock), m_levelMeter(clock)
{}

CallAudioPipeline::~CallAudioPipeline() = default;

std::shared_ptr<CaptureStreamOutput> CallAudioPipeline::makeStreamOutput()
{
    auto output = std::make_shared<CaptureStreamOutput>();
    const std::weak_ptr<CallAudioPipeline> weakSelf = weak_from_this();
    output->audioBufferHandler = [weakSelf](const AudioBuffer& buffer) {
        if (const auto self = weakSelf.lock()) {
            self->handleSystemAudio(buffer);
        }
    };
    output->microphoneBufferHandler = [weakSelf](const AudioBuffer& buffer) {
        if (const auto self = weakSelf.lock()) {
            self->handleMicrophoneAudio(buffer);
        }
    };
    // Screen frames: none are asked for; any that come are dropped.
    return output;
}

std::optional<Samples> CallAudioPipeline::convert(const AudioBuffer& buffer,
                                                  AudioConverter& converter)
{
    const QMutexLocker lock(&m_conversionLock);
    return converter.convert(buffer);
}

void CallAudioPipeline::handleSystemAudio(const AudioBuffer& buffer)
{
    if (m_paused) {
        return;
    }
    const std::optional<Samples> samples = convert(buffer, m_systemConverter);
    if (!samples) {
        return;
    }
    append(*samples, true);
}

void CallAudioPipeline::handleMicrophoneAudio(const AudioBuffer& buffer)
{
    if (m_paused) {
        if (const auto reading = m_levelMeter.update(0.0F); reading && m_callbacks.onLevel) {
            m_callbacks.onLevel(*reading);
        }
        return;
    }
    const std::optional<Samples> samples = convert(buffer, m_microphoneConverter);
    // Empty while the resampler fills its delay line at the start of a stream:
    // nothing to measure yet.
    if (!samples || samples->empty()) {
        return;
    }
    const float level = ChunkMixer::rmsLevel(*samples);
    if (const auto reading = m_levelMeter.update(level); reading && m_callbacks.onLevel) {
        m_callbacks.onLevel(*reading);
    }
    append(*samples, false);
}

void CallAudioPipeline::append(const Samples& samples, bool isSystem)
{
    std::optional<ChunkSamples> chunk = m_buffers.append(samples, isSystem);
    if (!chunk) {
        return;
    }
    m_worker.post([this, chunk = std::move(*chunk)]() mutable {
        const CallChunk processed =
            processChunk(std::move(chunk.microphone), std::move(chunk.system));
        if (processed.samples.empty()) {
            return;
        }
        // A failed write is not worth stopping for: the file is a diagnostic copy.
        (void)WaveFile::writeWhisperInput(m_whisperInputPath, processed.samples);
        if (m_callbacks.onChunk) {
            m_callbacks.onChunk(processed);
        }
    });
}

CallChunk CallAudioPipeline::processChunk(Samples microphone, Samples system)
{
    CallChunk chunk;
    chunk.samples = ChunkMixer::mix(microphone, system);
    chunk.microphone = std::move(microphone);
    chunk.system = std::move(system);
    const auto normalization = ChunkMixer::normalize(chunk.samples);
    chunk.peak = normalization.peak;
    chunk.gain = normalization.gain;
    return chunk;
}

void CallAudioPipeline::reset()
{
    m_buffers.reset();
}

#include "audio/CaptureBuffers.h"

#include "core/Logging.h"

void CaptureBuffers::Track::append(const Samples& samples)
{
    if (samples.size() >= maxBufferSamples) {
        m_storage.assign(samples.end() - qsizetype(maxBufferSamples), samples.end());
        m_head = 0;
        return;
    }
    m_storage.insert(m_storage.end(), samples.begin(), samples.end());
    if (size() > maxBufferSamples) {
        m_head = m_storage.size() - maxBufferSamples;
    }
    if (m_head >= maxBufferSamples) {
        m_storage.erase(m_storage.begin(), m_storage.begin() + qsizetype(m_head));
        m_head = 0;
    }
}

Samples CaptureBuffers::Track::take()
{
    Samples live(m_storage.begin() + qsizetype(m_head), m_storage.end());
    clear();
    return live;
}

void CaptureBuffers::Track::clear()
{
    m_storage.clear(); // keeps the capacity for the next seconds of audio
    m_head = 0;
}

CaptureBuffers::CaptureBuffers(Clock clock)
    : m_clock(std::move(clock)), m_lastProcessTime(m_clock())
{}

std::optional<ChunkSamples> CaptureBuffers::append(const Samples& samples, bool isSystem)
{
    if (samples.empty()) {
        return std::nullopt;
    }
    std::optional<ChunkSamples> chunk;
    size_t total = 0;
    {
        const std::lock_guard lock(m_mutex);
        (isSystem ? m_system : m_microphone).append(samples);
        total = m_microphone.size() + m_system.size();
        const auto now = m_clock();
        if (total >= minSamples && now - m_lastProcessTime >= processInterval) {
            chunk = ChunkSamples{m_microphone.take(), m_system.take()};
            m_lastProcessTime = now;
        }
    }
    // Outside the lock: the log handler writes to a file.
    const auto second = size_t(targetSampleRate);
    if (total % second == 0) {
        qCInfo(lcCapture).noquote()
            << QString::asprintf("Buffers: Total=%.1fs", double(total) / targetSampleRate);
    }
    return chunk;
}

void CaptureBuffers::reset()
{
    const std::lock_guard lock(m_mutex);
    m_microphone.clear();
    m_system.clear();
    m_lastProcessTime = m_clock();
}

ChunkSamples CaptureBuffers::takeAll()
{
    const std::lock_guard lock(m_mutex);
    m_lastProcessTime = m_clock();
    return {m_microphone.take(), m_system.take()};
}

size_t CaptureBuffers::microphoneCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_microphone.size();
}

size_t CaptureBuffers::systemCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_system.size();
}

#include "audio/AudioLevelMeter.h"

AudioLevelMeter::AudioLevelMeter(Clock clock) : m_clock(std::move(clock)), m_lastReading(m_clock())
{}

std::optional<LevelReading> AudioLevelMeter::update(float rms)
{
    const auto now = m_clock();
    const std::lock_guard lock(m_mutex);
    m_smoothed = (1.0f - smoothing) * rms + smoothing * m_smoothed;
    if (now - m_lastReading < debounceInterval) {
        return std::nullopt;
    }
    m_lastReading = now;
    return LevelReading{m_smoothed, m_smoothed > captureThreshold};
}

float AudioLevelMeter::smoothedLevel() const
{
    const std::lock_guard lock(m_mutex);
    return m_smoothed;
}

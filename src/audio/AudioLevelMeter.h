// The microphone level meter of a call: smooths the RMS level of each block
// and says when a new reading is due for the screen, at most ten times a second.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

struct LevelReading
{
    float level = 0.0f;     // the smoothed level
    bool capturing = false; // level above AudioLevelMeter::captureThreshold
};

class AudioLevelMeter
{
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // Weight of the previous smoothed level; a new reading weighs 1 − this.
    static constexpr float smoothing = 0.3f;
    // Above this the call counts as capturing audio.
    static constexpr float captureThreshold = 0.01f;
    // Least time between two readings handed to the screen.
    static constexpr std::chrono::milliseconds debounceInterval{100};

    explicit AudioLevelMeter(Clock clock = [] { return std::chrono::steady_clock::now(); });

    // Takes the RMS level of one block (0 while paused). Returns a reading when
    // debounceInterval has passed since the last one, else nothing.
    std::optional<LevelReading> update(float rms);

    float smoothedLevel() const;

private:
    const Clock m_clock;
    mutable std::mutex m_mutex; // guards the fields below; both capture threads may call
    float m_smoothed = 0.0f;
    std::chrono::steady_clock::time_point m_lastReading;
};

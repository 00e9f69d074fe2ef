// The two 16 kHz sample buffers of a call (microphone and system audio) and
// the rule that decides when they are taken together as a chunk for
// recognition. Fed from the capture threads.
#pragma once

#include "audio/AudioBuffer.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

// Both sides of one chunk, as they were buffered.
struct ChunkSamples
{
    Samples microphone;
    Samples system;
};

class CaptureBuffers
{
public:
    // Injectable so that tests can step time; never goes backwards.
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // Least time between two chunks.
    static constexpr std::chrono::milliseconds processInterval{3000};
    // Least samples (both buffers together) for a chunk: 3 seconds.
    static constexpr size_t minSamples = 48000;
    // Cap of each buffer, 10 seconds: a stalled recognizer cannot grow memory
    // without bound; the oldest audio goes first.
    static constexpr size_t maxBufferSamples = 160000;

    explicit CaptureBuffers(Clock clock = [] { return std::chrono::steady_clock::now(); });

    // Appends `samples` to the system buffer (isSystem) or the microphone
    // buffer. When both together hold at least minSamples and processInterval
    // has passed since the last chunk, both are emptied and returned: the
    // caller processes them off this thread. An empty block changes nothing.
    std::optional<ChunkSamples> append(const Samples& samples, bool isSystem);

    // Empties both buffers (keeping their storage) and restarts the interval.
    void reset();
    // Takes whatever both buffers hold, whatever the rules say: the last,
    // shorter chunk at the end of a recording.
    ChunkSamples takeAll();

    size_t microphoneCount() const;
    size_t systemCount() const;

private:
    // One capped buffer. Samples dropped at the front stay in storage until
    // they add up to a whole buffer's worth and are then removed in one move,
    // so dropping costs O(1) per sample instead of a shift per append.
    class Track
    {
    public:
        void append(const Samples& samples);
        Samples take();
        void clear();
        size_t size() const { return m_storage.size() - m_head; }

    private:
        Samples m_storage;
        size_t m_head = 0; // first live sample in m_storage
    };

    const Clock m_clock;
    mutable std::mutex m_mutex; // guards the fields below
    Track m_microphone;
    Track m_system;
    std::chrono::steady_clock::time_point m_lastProcessTime;
};

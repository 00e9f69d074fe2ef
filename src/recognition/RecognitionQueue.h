// The keep-up rule between the chunks of a call and a recognizer that may be
// slower than real time: what runs next, what waits, what is merged and, when
// nothing else helps, what is dropped. Pure bookkeeping, no threads or clocks.
#pragma once

#include "audio/AudioBuffer.h"

#include <QtGlobal>

#include <deque>
#include <optional>

class RecognitionQueue
{
public:
    // Shorter chunks are never recognized: one second.
    static constexpr qsizetype minimumChunkSamples = 16000;
    // A waiting job takes in later chunks up to this much audio. whisper.cpp
    // computes a whole 30-second window whatever the audio's length, so one
    // 30-second job costs about what a 3-second one does: merging is how a
    // slow machine keeps up.
    static constexpr qsizetype maximumJobSamples = 30 * 16000;

    // A run of the recognizer: waiting chunks joined in order.
    struct Job
    {
        Samples samples;
        int chunks = 0;
        // The caller's time stamp of the oldest chunk: how long its text took.
        qint64 firstArrival = 0;
    };

    struct Admission
    {
        // False: the chunk was too short and is gone.
        bool accepted = false;
        // The oldest waiting audio dropped to make room (whole chunks).
        qsizetype droppedSamples = 0;
    };

    // Adds a chunk behind the running job. With no job waiting it becomes the
    // waiting job; otherwise it is appended to the waiting one. When that would
    // exceed maximumJobSamples, the oldest waiting chunks go first, so waiting
    // audio (memory, and latency to the text) stays bounded.
    // `arrival` is any time stamp of the caller's, handed back with the job.
    Admission add(Samples chunk, qint64 arrival = 0);

    // When no job runs and one waits: hands it over and marks it running.
    std::optional<Job> start();
    // The running job ended (recognized or failed).
    void finish();

    bool isRunning() const { return m_running; }
    bool hasWaiting() const { return !m_waiting.empty(); }
    int waitingChunks() const { return int(m_waiting.size()); }
    qsizetype waitingSamples() const { return m_waitingSamples; }
    // Running and waiting jobs: 0, 1 or 2.
    int depth() const { return (m_running ? 1 : 0) + (hasWaiting() ? 1 : 0); }
    // Everything dropped so far to keep up.
    qsizetype droppedSamples() const { return m_droppedSamples; }

private:
    struct Chunk
    {
        Samples samples;
        qint64 arrival = 0;
    };

    bool m_running = false;
    std::deque<Chunk> m_waiting;
    qsizetype m_waitingSamples = 0;
    qsizetype m_droppedSamples = 0;
};

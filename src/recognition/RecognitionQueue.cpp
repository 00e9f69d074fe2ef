#include "recognition/RecognitionQueue.h"

RecognitionQueue::Admission RecognitionQueue::add(Samples chunk, qint64 arrival)
{
    Admission admission;
    const auto size = qsizetype(chunk.size());
    if (size < minimumChunkSamples) {
        return admission;
    }
    admission.accepted = true;
    // Whole chunks go, so what is recognized still starts and ends where the
    // capture cut it. A single chunk longer than a job is kept whole: it only
    // costs whisper.cpp a second window.
    while (!m_waiting.empty() && m_waitingSamples + size > maximumJobSamples) {
        const auto dropped = qsizetype(m_waiting.front().samples.size());
        m_waiting.pop_front();
        m_waitingSamples -= dropped;
        admission.droppedSamples += dropped;
    }
    m_droppedSamples += admission.droppedSamples;
    m_waitingSamples += size;
    m_waiting.push_back({std::move(chunk), arrival});
    return admission;
}

std::optional<RecognitionQueue::Job> RecognitionQueue::start()
{
    if (m_running || m_waiting.empty()) {
        return std::nullopt;
    }
    // Every chunk passed the one-second rule on the way in, so the merged job does too.
    Job job;
    job.chunks = int(m_waiting.size());
    job.firstArrival = m_waiting.front().arrival;
    job.samples = std::move(m_waiting.front().samples);
    job.samples.reserve(size_t(m_waitingSamples));
    for (auto chunk = m_waiting.begin() + 1; chunk != m_waiting.end(); ++chunk) {
        job.samples.insert(job.samples.end(), chunk->samples.begin(), chunk->samples.end());
    }
    m_waiting.clear();
    m_waitingSamples = 0;
    m_running = true;
    return job;
}

void RecognitionQueue::finish()
{
    m_running = false;
}

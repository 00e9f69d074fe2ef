// Reads a recording (WAV, FLAC, OGG, MP3 where libsndfile supports it) block
// by block, as float frames at the file's own rate and channel count: what a
// capture stream would deliver, for replaying recordings through a call's path.
#pragma once

#include "audio/AudioBuffer.h"

#include <QString>

#include <memory>
#include <optional>

class AudioFileReader
{
public:
    // Absent when the file cannot be opened or read as audio; `error` says why.
    static std::unique_ptr<AudioFileReader> open(const QString& path, QString* error);
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    int sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    qint64 frameCount() const { return m_frames; }

    // The next `frames` frames (fewer at the end); absent at the end of the file.
    std::optional<AudioBuffer> read(qint64 frames);

private:
    struct File;
    AudioFileReader(std::unique_ptr<File> file, int sampleRate, int channels, qint64 frames);

    std::unique_ptr<File> m_file;
    int m_sampleRate;
    int m_channels;
    qint64 m_frames;
};

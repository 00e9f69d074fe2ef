#include "audio/AudioFileReader.h"

#include <QFile>

#include <sndfile.h>

using namespace Qt::StringLiterals;

struct AudioFileReader::File
{
    SNDFILE* handle = nullptr;
    ~File()
    {
        if (handle != nullptr) {
            sf_close(handle);
        }
    }
};

std::unique_ptr<AudioFileReader> AudioFileReader::open(const QString& path, QString* error)
{
    SF_INFO info{};
    auto file = std::make_unique<File>();
    file->handle = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (file->handle == nullptr) {
        if (error != nullptr) {
            *error = u"%1 cannot be read as audio: %2"_s.arg(
                path, QString::fromUtf8(sf_strerror(nullptr)));
        }
        return nullptr;
    }
    if (info.samplerate <= 0 || info.channels <= 0) {
        if (error != nullptr) {
            *error = u"%1 has no usable audio"_s.arg(path);
        }
        return nullptr;
    }
    return std::unique_ptr<AudioFileReader>(
        new AudioFileReader(std::move(file), info.samplerate, info.channels, info.frames));
}

AudioFileReader::AudioFileReader(std::unique_ptr<File> file, int sampleRate, int channels,
                                 qint64 frames)
    : m_file(std::move(file)), m_sampleRate(sampleRate), m_channels(channels), m_frames(frames)
{}

AudioFileReader::~AudioFileReader() = default;

std::optional<AudioBuffer> AudioFileReader::read(qint64 frames)
{
    if (frames <= 0) {
        return std::nullopt;
    }
    AudioBuffer buffer;
    buffer.format = SampleFormat::Float32;
    buffer.sampleRate = m_sampleRate;
    buffer.channels = m_channels;
    buffer.data.resize(frames * m_channels * qsizetype(sizeof(float)));
    // libsndfile converts every sample format to float in [-1, 1].
    const sf_count_t got =
        sf_readf_float(m_file->handle, reinterpret_cast<float*>(buffer.data.data()), frames);
    if (got <= 0) {
        return std::nullopt;
    }
    buffer.data.resize(got * m_channels * qsizetype(sizeof(float)));
    return buffer;
}

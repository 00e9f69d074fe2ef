#include "audio/AudioConverter.h"

#include "core/Logging.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <soxr.h>

namespace {

// Outside this range no sound server delivers audio; the bounds also keep the
// output length of one block within a small multiple of its input.
constexpr double lowestSampleRate = 1000.0;
constexpr double highestSampleRate = 768000.0;

// Spare output room per resampler call, so that a call is rarely cut short
// by rounding and needs a second round.
constexpr size_t outputSlack = 64;

// Capture data is raw bytes with no alignment promise.
float loadSample(const char* bytes)
{
    float value = 0.0f;
    std::memcpy(&value, bytes, sizeof value);
    // One NaN or infinity would stay in the resampler's filter state and
    // poison every later sample of the stream: treat it as silence.
    return std::isfinite(value) ? value : 0.0f;
}

} // namespace

void AudioConverter::SoxrDeleter::operator()(soxr* resampler) const
{
    soxr_delete(resampler);
}

AudioConverter::AudioConverter() = default;
AudioConverter::~AudioConverter() = default;
AudioConverter::AudioConverter(AudioConverter&&) noexcept = default;
AudioConverter& AudioConverter::operator=(AudioConverter&&) noexcept = default;

std::optional<Samples> AudioConverter::convert(const AudioBuffer& buffer)
{
    if (buffer.format != SampleFormat::Float32 || buffer.channels <= 0 ||
        !(buffer.sampleRate >= lowestSampleRate && buffer.sampleRate <= highestSampleRate)) {
        return std::nullopt;
    }
    const qsizetype channels = buffer.channels;
    const qsizetype frameBytes = channels * qsizetype(sizeof(float));
    if (buffer.data.isEmpty() || buffer.data.size() % frameBytes != 0) {
        return std::nullopt;
    }
    const Format format{buffer.sampleRate, buffer.channels, buffer.interleaved || channels == 1};
    if (!prepare(format)) {
        return std::nullopt;
    }

    // Downmix before resampling: averaging is linear, so the result is the
    // same as resampling every channel, at a fraction of the work.
    const qsizetype frames = buffer.data.size() / frameBytes;
    const char* bytes = buffer.data.constData();
    m_mono.resize(size_t(frames));
    const float scale = 1.0f / float(channels);
    // Planar data holds each channel's plane after the other; interleaved
    // data one frame after the other. Either way: the mean of the channels.
    const qsizetype frameStride = format.interleaved ? frameBytes : qsizetype(sizeof(float));
    const qsizetype channelStride =
        format.interleaved ? qsizetype(sizeof(float)) : frames * qsizetype(sizeof(float));
    for (qsizetype frame = 0; frame < frames; ++frame) {
        const char* first = bytes + frame * frameStride;
        float sum = 0.0f;
        for (qsizetype channel = 0; channel < channels; ++channel) {
            sum += loadSample(first + channel * channelStride);
        }
        m_mono[size_t(frame)] = channels == 1 ? sum : sum * scale;
    }

    Samples output;
    if (!resample(m_mono.data(), m_mono.size(), output)) {
        return std::nullopt;
    }
    return output;
}

Samples AudioConverter::flush()
{
    Samples output;
    if (m_resampler) {
        resample(nullptr, 0, output);
        // soxr ends a stream for good once told its input is over.
        m_resampler.reset();
    }
    m_format = {};
    return output;
}

void AudioConverter::reset()
{
    m_resampler.reset();
    m_format = {};
}

bool AudioConverter::prepare(const Format& format)
{
    if (m_resampler && format == m_format) {
        return true;
    }
    const bool rebuilt = m_resampler != nullptr;
    m_resampler.reset();
    m_format = {};

    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    // One thread: this runs on a capture thread, block by block.
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    m_resampler.reset(
        soxr_create(format.sampleRate, targetSampleRate, 1, &error, &io, &quality, &runtime));
    if (error != nullptr || !m_resampler) {
        qCWarning(lcCapture).noquote()
            << QStringLiteral("❌ Audio converter for %1 Hz could not be created: %2")
                   .arg(format.sampleRate)
                   .arg(QString::fromUtf8(error != nullptr ? error : "unknown error"));
        m_resampler.reset();
        return false;
    }
    m_format = format;
    qCDebug(lcCapture).noquote()
        << QStringLiteral("🎚️ Audio converter %1 for %2 Hz, %3 channel(s), %4")
               .arg(rebuilt ? QStringLiteral("rebuilt") : QStringLiteral("created"))
               .arg(format.sampleRate)
               .arg(format.channels)
               .arg(format.interleaved ? QStringLiteral("interleaved") : QStringLiteral("planar"));
    return true;
}

bool AudioConverter::resample(const float* input, size_t frames, Samples& output)
{
    const double ratio = targetSampleRate / m_format.sampleRate;
    size_t consumed = 0;
    for (;;) {
        const size_t remaining = frames - consumed;
        const double pending = input != nullptr ? double(remaining) * ratio
                                                : std::max(soxr_delay(m_resampler.get()), 0.0);
        const size_t room = size_t(std::ceil(pending)) + outputSlack;
        const size_t start = output.size();
        output.resize(start + room);
        size_t used = 0;
        size_t produced = 0;
        const soxr_error_t error =
            soxr_process(m_resampler.get(), input != nullptr ? input + consumed : nullptr,
                         remaining, &used, output.data() + start, room, &produced);
        output.resize(start + produced);
        if (error != nullptr) {
            qCWarning(lcCapture).noquote()
                << QStringLiteral("❌ Audio conversion failed: %1").arg(QString::fromUtf8(error));
            reset();
            return false;
        }
        consumed += used;
        // A full output buffer may mean more is waiting inside the resampler.
        if (produced < room && consumed >= frames) {
            return true;
        }
        if (used == 0 && produced == 0) {
            return true; // nothing moves any more
        }
    }
}

// Turns captured blocks of any float rate and channel layout into the call
// pipeline's 16 kHz mono float samples, as one continuous stream per source.
#pragma once

#include "audio/AudioBuffer.h"

#include <memory>
#include <optional>

struct soxr;

class AudioConverter
{
public:
    AudioConverter();
    ~AudioConverter();
    AudioConverter(const AudioConverter&) = delete;
    AudioConverter& operator=(const AudioConverter&) = delete;
    AudioConverter(AudioConverter&&) noexcept;
    AudioConverter& operator=(AudioConverter&&) noexcept;

    // The block as 16 kHz mono samples. Empty (not absent) while the resampler
    // is still filling its delay line at the start of a stream. Absent for a
    // block the pipeline cannot use: a format other than Float32, a rate that
    // is not a positive finite number, no channels, data that is not a whole
    // number of frames, no data at all, or a resampler failure.
    //
    // Successive blocks of one format are one continuous signal; a block of
    // another rate, channel count or layout starts a new one (what was still
    // inside the resampler is dropped: call flush() first to keep it).
    std::optional<Samples> convert(const AudioBuffer& buffer);

    // What the resampler still holds at the end of a stream (its filter delay),
    // so that the stream's output has its full length. The next convert()
    // starts a fresh signal.
    Samples flush();

    // Drops the stream state without output.
    void reset();

private:
    struct Format
    {
        double sampleRate = 0.0;
        int channels = 0;
        bool interleaved = true;
        bool operator==(const Format&) const = default;
    };
    struct SoxrDeleter
    {
        void operator()(soxr* resampler) const;
    };

    bool prepare(const Format& format);
    // Runs the resampler over `input` (nullptr: end of input) and appends its
    // whole output to `output`.
    bool resample(const float* input, size_t frames, Samples& output);

    std::unique_ptr<soxr, SoxrDeleter> m_resampler;
    Format m_format;
    // Mono input of the block being converted; kept to spare an allocation per block.
    Samples m_mono;
};

// One block of captured audio as the sound server delivers it, and the sample
// format the rest of the call pipeline works in (16 kHz mono float).
#pragma once

#include <QByteArray>

#include <vector>

// Samples of the call pipeline: 32-bit float, mono, 16000 Hz.
using Samples = std::vector<float>;

inline constexpr double targetSampleRate = 16000.0;

enum class SampleFormat
{
    Float32, // IEEE float, native endianness: the only format the converter accepts
    Int16,
    Int32,
    Other,
};

// A block of audio frames straight from a capture backend.
struct AudioBuffer
{
    QByteArray data;
    SampleFormat format = SampleFormat::Float32;
    double sampleRate = 0.0;
    int channels = 0;
    // Frames interleaved (L R L R …); false: one plane per channel, one after
    // the other in `data`.
    bool interleaved = true;

    int bytesPerFrame() const;
    qsizetype frameCount() const;
};

// The two sides of a call made into one chunk for recognition: the mix, its
// normalization, and the RMS level the meter shows.
#pragma once

#include "audio/AudioBuffer.h"

struct Normalization
{
    float peak = 0.0f; // largest absolute sample before the gain
    float gain = 1.0f; // what every sample was multiplied by
};

class ChunkMixer
{
public:
    // The user's microphone is weighted above the far side; a side without
    // audio leaves the other unscaled.
    static constexpr float microphoneWeight = 0.7f;
    static constexpr float systemWeight = 0.3f;
    // Normalization aims the peak here, never amplifying more than maxGain,
    // and leaves near-silence (peak at or below silenceThreshold) alone.
    static constexpr float targetPeak = 0.5f;
    static constexpr float maxGain = 2.0f;
    static constexpr float silenceThreshold = 0.001f;

    // microphoneWeight·mic[i] + systemWeight·system[i] over the longer of the
    // two, a missing sample counting as 0; one side alone is returned as it is.
    static Samples mix(const Samples& microphone, const Samples& system);

    // Scales `samples` in place towards targetPeak; returns the peak found and
    // the gain applied (1 when left alone).
    static Normalization normalize(Samples& samples);

    // sqrt(mean of the squares); 0 for no samples.
    static float rmsLevel(const Samples& samples);
};

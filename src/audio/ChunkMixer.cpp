#include "audio/ChunkMixer.h"

#include <algorithm>
#include <cmath>

Samples ChunkMixer::mix(const Samples& microphone, const Samples& system)
{
    if (system.empty()) {
        return microphone;
    }
    if (microphone.empty()) {
        return system;
    }
    const size_t common = std::min(microphone.size(), system.size());
    Samples mixed(std::max(microphone.size(), system.size()));
    for (size_t i = 0; i < common; ++i) {
        mixed[i] = microphoneWeight * microphone[i] + systemWeight * system[i];
    }
    // Past the shorter side only the longer one is heard, still at its weight.
    const Samples& longer = microphone.size() > common ? microphone : system;
    const float weight = &longer == &microphone ? microphoneWeight : systemWeight;
    for (size_t i = common; i < longer.size(); ++i) {
        mixed[i] = weight * longer[i];
    }
    return mixed;
}

Normalization ChunkMixer::normalize(Samples& samples)
{
    Normalization result;
    for (const float sample : samples) {
        result.peak = std::max(result.peak, std::abs(sample));
    }
    if (!(result.peak > silenceThreshold)) {
        return result;
    }
    result.gain = std::min(targetPeak / result.peak, maxGain);
    for (float& sample : samples) {
        sample *= result.gain;
    }
    return result;
}

float ChunkMixer::rmsLevel(const Samples& samples)
{
    if (samples.empty()) {
        return 0.0f;
    }
    // Accumulated in double: a 10-second buffer of float squares loses
    // precision in float.
    double sum = 0.0;
    for (const float sample : samples) {
        sum += double(sample) * double(sample);
    }
    return float(std::sqrt(sum / double(samples.size())));
}

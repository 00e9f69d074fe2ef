// Test support: making and measuring signals (tones, 16-bit WAV files, alignment).
#pragma once

#include <QString>

#include <vector>

namespace SignalAnalysis {

using Signal = std::vector<float>;

// `count` samples of amplitude · sin(2π · frequency · i / rate).
Signal sine(size_t count, double amplitude, double frequency, double rate = 16000.0);

// Least-squares fit of a·sin + b·cos at `frequency`: the tone's amplitude and
// what is left besides it (noise, distortion, DC, other frequencies) in dB
// against the tone (THD+N). Fitting at the nominal frequency also checks the
// frequency: a pure tone 0.001 Hz off over a second already leaves about −57 dB.
struct ToneFit
{
    double amplitude = 0.0;
    double residualDb = 0.0;
};
ToneFit fitTone(const Signal& samples, double frequency, double rate);

// The samples of a 16-bit PCM mono WAV file scaled to [−1, 1); empty when it
// cannot be read or its data chunk does not end exactly where the file does.
Signal readPcm16Wav(const QString& path);

// The best normalized cross-correlation of `reference` anywhere inside `signal`.
double bestCorrelation(const Signal& signal, const Signal& reference);

} // namespace SignalAnalysis

// The last chunk handed to recognition, kept on disk as a 16-bit PCM WAV file
// ("whisper_input.wav" in the user's Documents folder) for checking by ear.
#pragma once

#include "audio/AudioBuffer.h"

#include <QByteArray>
#include <QLatin1String>
#include <QString>

#include <optional>

class WaveFile
{
public:
    static constexpr QLatin1String whisperInputFileName{"whisper_input.wav"};

    // A RIFF/WAVE file of 16 kHz mono 16-bit PCM: each sample times 32767,
    // limited to the 16-bit range (NaN as 0). Absent when the samples do not
    // fit one RIFF file (4 GiB).
    static std::optional<QByteArray> encode(const Samples& samples);

    // Writes encode(samples) to `path`, replacing what is there all at once: a
    // write that cannot finish (a full disk) leaves the previous file as it was.
    static bool writeWhisperInput(const QString& path, const Samples& samples);
};

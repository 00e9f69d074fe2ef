#include "audio/WaveFile.h"

#include "core/Logging.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr quint32 headerBytes = 44;
constexpr quint16 pcmFormat = 1;
constexpr quint16 channelCount = 1;
constexpr quint32 sampleRate = 16000;
constexpr quint16 bitsPerSample = 16;
constexpr quint16 blockAlign = channelCount * bitsPerSample / 8;
constexpr quint32 byteRate = sampleRate * blockAlign;

void putTag(char*& out, const char (&tag)[5])
{
    std::copy_n(tag, 4, out);
    out += 4;
}

// RIFF is little-endian whatever the machine.
template <typename Integer> void putLittleEndian(char*& out, Integer value)
{
    const auto bits = static_cast<std::make_unsigned_t<Integer>>(value);
    for (size_t byte = 0; byte < sizeof(Integer); ++byte) {
        *out++ = char((bits >> (8 * byte)) & 0xffu);
    }
}

qint16 toPcm16(float sample)
{
    const float scaled = sample * 32767.0f;
    if (std::isnan(scaled)) {
        return 0;
    }
    // Clamped first: converting an out-of-range float to an integer is undefined.
    return qint16(std::clamp(scaled, float(std::numeric_limits<qint16>::min()),
                             float(std::numeric_limits<qint16>::max())));
}

} // namespace

std::optional<QByteArray> WaveFile::encode(const Samples& samples)
{
    constexpr size_t maxSamples =
        (std::numeric_limits<quint32>::max() - (headerBytes - 8)) / blockAlign;
    if (samples.size() > maxSamples) {
        return std::nullopt;
    }
    const auto dataBytes = quint32(samples.size() * blockAlign);
    QByteArray file(qsizetype(headerBytes + dataBytes), Qt::Uninitialized);
    char* out = file.data();
    putTag(out, "RIFF");
    putLittleEndian(out, quint32(headerBytes - 8 + dataBytes));
    putTag(out, "WAVE");
    putTag(out, "fmt ");
    putLittleEndian(out, quint32(16));
    putLittleEndian(out, pcmFormat);
    putLittleEndian(out, channelCount);
    putLittleEndian(out, sampleRate);
    putLittleEndian(out, byteRate);
    putLittleEndian(out, blockAlign);
    putLittleEndian(out, bitsPerSample);
    putTag(out, "data");
    putLittleEndian(out, dataBytes);
    for (const float sample : samples) {
        putLittleEndian(out, toPcm16(sample));
    }
    return file;
}

bool WaveFile::writeWhisperInput(const QString& path, const Samples& samples)
{
    const std::optional<QByteArray> content = encode(samples);
    if (!content || !QDir().mkpath(QFileInfo(path).absolutePath())) {
        return false;
    }
    QSaveFile file(path);
    // Unbuffered: a buffered write on a full disk ends in a short write that
    // flush() does not report, and commit() would rename a truncated file
    // over the good one. Every write is checked instead.
    bool written = file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    for (qint64 offset = 0; written && offset < content->size();) {
        const qint64 count = file.write(content->constData() + offset, content->size() - offset);
        written = count > 0;
        offset += count;
    }
    if (!written || !file.commit()) {
        qCDebug(lcCapture).noquote()
            << QStringLiteral("%1 could not be written: %2")
                   .arg(QDir::toNativeSeparators(path), file.errorString());
        return false;
    }
    return true;
}

#include "SignalAnalysis.h"

#include <QFile>

#include <cmath>
#include <cstring>
#include <numbers>

namespace SignalAnalysis {

namespace {

double dot(const float* a, const float* b, size_t n)
{
    double sum = 0;
    for (size_t i = 0; i < n; ++i) {
        sum += double(a[i]) * double(b[i]);
    }
    return sum;
}

} // namespace

Signal sine(size_t count, double amplitude, double frequency, double rate)
{
    Signal samples(count);
    for (size_t i = 0; i < count; ++i) {
        samples[i] =
            float(amplitude * std::sin(2 * std::numbers::pi * frequency * double(i) / rate));
    }
    return samples;
}

ToneFit fitTone(const Signal& samples, double frequency, double rate)
{
    const double w = 2 * std::numbers::pi * frequency / rate;
    double ss = 0, cc = 0, sc = 0, ys = 0, yc = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double s = std::sin(w * double(i));
        const double c = std::cos(w * double(i));
        ss += s * s;
        cc += c * c;
        sc += s * c;
        ys += samples[i] * s;
        yc += samples[i] * c;
    }
    const double determinant = ss * cc - sc * sc;
    const double a = (ys * cc - yc * sc) / determinant;
    const double b = (yc * ss - ys * sc) / determinant;
    double residual = 0, tone = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double fitted = a * std::sin(w * double(i)) + b * std::cos(w * double(i));
        residual += std::pow(samples[i] - fitted, 2);
        tone += fitted * fitted;
    }
    return {std::hypot(a, b), 10 * std::log10(residual / tone)};
}

Signal readPcm16Wav(const QString& path)
{
    QFile file(path);
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (!bytes.startsWith("RIFF") || bytes.mid(8, 4) != "WAVE") {
        return {};
    }
    for (qsizetype offset = 12; offset + 8 <= bytes.size();) {
        quint32 size = 0;
        std::memcpy(&size, bytes.constData() + offset + 4, 4);
        if (bytes.mid(offset, 4) == "data") {
            if (offset + 8 + qsizetype(size) != bytes.size()) {
                return {}; // cut short, or something after the samples
            }
            Signal samples(size / 2);
            for (size_t i = 0; i < samples.size(); ++i) {
                qint16 value = 0;
                std::memcpy(&value, bytes.constData() + offset + 8 + 2 * i, 2);
                samples[i] = float(value) / 32768.0F;
            }
            return samples;
        }
        offset += 8 + size + (size % 2);
    }
    return {};
}

// Aligned where each first rises above a tenth of its peak, then sample by
// sample around there.
double bestCorrelation(const Signal& signal, const Signal& reference)
{
    const auto onset = [](const Signal& x) {
        float peak = 0;
        for (const float sample : x) {
            peak = std::max(peak, std::abs(sample));
        }
        const auto loud = [peak](float sample) { return std::abs(sample) > peak / 10; };
        return qsizetype(std::find_if(x.begin(), x.end(), loud) - x.begin());
    };
    const qsizetype lag = onset(signal) - onset(reference);
    const auto n = qsizetype(reference.size());
    const double referenceNorm = std::sqrt(dot(reference.data(), reference.data(), size_t(n)));
    double best = 0;
    for (qsizetype at = std::max<qsizetype>(0, lag - 320);
         at <= lag + 320 && at + n <= qsizetype(signal.size()); ++at) {
        const double norm = std::sqrt(dot(&signal[size_t(at)], &signal[size_t(at)], size_t(n)));
        best = std::max(best, dot(&signal[size_t(at)], reference.data(), size_t(n)) /
                                  (norm * referenceNorm + 1e-12));
    }
    return best;
}

} // namespace SignalAnalysis

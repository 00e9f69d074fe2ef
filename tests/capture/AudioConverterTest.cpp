#include "capture/AudioConverter.h"

#include <QTest>

#include <array>
#include <cmath>
#include <numbers>

namespace {

using Channel = std::function<double(double seconds)>;

double sine(double amplitude, double frequency, double seconds)
{
    return amplitude * std::sin(2.0 * std::numbers::pi * frequency * seconds);
}

// `frames` frames at `rate`, one generator per channel.
AudioBuffer makeBuffer(double rate, const std::vector<Channel>& channels, qsizetype firstFrame,
                       qsizetype frames, bool interleaved = true)
{
    AudioBuffer buffer;
    buffer.sampleRate = rate;
    buffer.channels = int(channels.size());
    buffer.interleaved = interleaved;
    std::vector<float> samples(size_t(frames) * channels.size());
    for (qsizetype frame = 0; frame < frames; ++frame) {
        const double seconds = double(firstFrame + frame) / rate;
        for (size_t channel = 0; channel < channels.size(); ++channel) {
            const size_t index = interleaved ? size_t(frame) * channels.size() + channel
                                             : channel * size_t(frames) + size_t(frame);
            samples[index] = float(channels[channel](seconds));
        }
    }
    buffer.data = QByteArray(reinterpret_cast<const char*>(samples.data()),
                             qsizetype(samples.size() * sizeof(float)));
    return buffer;
}

// The whole stream converted in blocks of `blockFrames` (0: one block), flushed.
Samples convertStream(AudioConverter& converter, double rate, const std::vector<Channel>& channels,
                      qsizetype frames, qsizetype blockFrames, bool interleaved = true)
{
    Samples output;
    const qsizetype step = blockFrames > 0 ? blockFrames : frames;
    for (qsizetype first = 0; first < frames; first += step) {
        const auto block = converter.convert(
            makeBuffer(rate, channels, first, std::min(step, frames - first), interleaved));
        if (!block) {
            return {};
        }
        output.insert(output.end(), block->begin(), block->end());
    }
    const Samples tail = converter.flush();
    output.insert(output.end(), tail.begin(), tail.end());
    return output;
}

// THD+N of a converted tone: a least-squares fit of a·sin + b·cos + c at the
// nominal frequency, and what is left against the tone, in dB. Fitting at the
// nominal frequency also checks the frequency: 0.001 Hz off leaves about −57 dB.
// The tone starts and stops abruptly, so the edges ring and are left out.
struct ToneFit
{
    double amplitude = 0.0;
    double residualDb = 0.0;
};

ToneFit fitTone(const Samples& output, double frequency)
{
    constexpr size_t edge = 1600;
    if (output.size() <= 2 * edge) {
        return {0.0, 0.0};
    }
    const Samples samples(output.begin() + edge, output.end() - edge);
    const double w = 2.0 * std::numbers::pi * frequency / targetSampleRate;
    const auto basis = [w](size_t i) {
        return std::array<double, 3>{std::sin(w * double(i)), std::cos(w * double(i)), 1.0};
    };
    std::array<std::array<double, 4>, 3> system{}; // normal equations, solved by Gauss-Jordan
    for (size_t i = 0; i < samples.size(); ++i) {
        const auto at = basis(i);
        for (size_t row = 0; row < 3; ++row) {
            for (size_t column = 0; column < 3; ++column) {
                system[row][column] += at[row] * at[column];
            }
            system[row][3] += at[row] * double(samples[i]);
        }
    }
    for (size_t pivot = 0; pivot < 3; ++pivot) {
        for (size_t row = 0; row < 3; ++row) {
            const double factor = row == pivot ? 0.0 : system[row][pivot] / system[pivot][pivot];
            for (size_t column = pivot; column < 4; ++column) {
                system[row][column] -= factor * system[pivot][column];
            }
        }
    }
    std::array<double, 3> fit{};
    for (size_t row = 0; row < 3; ++row) {
        fit[row] = system[row][3] / system[row][row];
    }
    double residual = 0.0;
    double signal = 0.0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const auto at = basis(i);
        const double tone = fit[0] * at[0] + fit[1] * at[1];
        residual += std::pow(double(samples[i]) - tone - fit[2], 2);
        signal += tone * tone;
    }
    return {std::hypot(fit[0], fit[1]), 10.0 * std::log10(residual / signal)};
}

// Measured over the rows below: −151 to −158 dB, the precision floor of float
// samples. The bound leaves 20 dB for other soxr builds and CPUs.
constexpr double thdNoiseBoundDb = -130.0;
// What is left of a tone above 8 kHz, against the tone: measured −157 to
// −199 dB; folding back (no anti-aliasing filter) would leave about 0 dB.
constexpr double aliasBoundDb = -130.0;

} // namespace

class AudioConverterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void convertsTones_data()
    {
        QTest::addColumn<double>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<double>("frequency");
        QTest::addColumn<int>("blockFrames");
        QTest::newRow("48 kHz stereo, 10 ms blocks") << 48000.0 << 2 << 1000.0 << 480;
        QTest::newRow("48 kHz stereo, 7-frame blocks") << 48000.0 << 2 << 1000.0 << 7;
        QTest::newRow("48 kHz stereo, one block") << 48000.0 << 2 << 3000.0 << 0;
        QTest::newRow("44.1 kHz mono, 10 ms blocks") << 44100.0 << 1 << 440.0 << 441;
        QTest::newRow("44.1 kHz mono, single frames") << 44100.0 << 1 << 440.0 << 1;
        QTest::newRow("44.1 kHz mono, 4096-frame blocks") << 44100.0 << 1 << 440.0 << 4096;
        QTest::newRow("22.05 kHz mono, 1000-frame blocks") << 22050.0 << 1 << 1000.0 << 1000;
        QTest::newRow("96 kHz 6 channels, 20 ms blocks") << 96000.0 << 6 << 5000.0 << 1920;
        QTest::newRow("16 kHz mono passes through") << 16000.0 << 1 << 1000.0 << 160;
        QTest::newRow("8 kHz mono is upsampled") << 8000.0 << 1 << 440.0 << 80;
    }

    void convertsTones()
    {
        QFETCH(double, rate);
        QFETCH(int, channels);
        QFETCH(double, frequency);
        QFETCH(int, blockFrames);
        const auto frames = qsizetype(rate); // one second
        const std::vector<Channel> tone(size_t(channels),
                                        [=](double t) { return sine(0.5, frequency, t); });

        AudioConverter converter;
        const Samples output = convertStream(converter, rate, tone, frames, blockFrames);

        const double expectedLength = std::round(double(frames) * targetSampleRate / rate);
        QVERIFY2(std::abs(double(output.size()) - expectedLength) <= 1.0,
                 qPrintable(QStringLiteral("%1 samples").arg(output.size())));
        const ToneFit fit = fitTone(output, frequency);
        QVERIFY2(qAbs(fit.amplitude - 0.5) < 0.0005, qPrintable(QString::number(fit.amplitude)));
        QVERIFY2(fit.residualDb < thdNoiseBoundDb, qPrintable(QString::number(fit.residualDb)));
    }

    // A tone above the new Nyquist frequency must vanish, not fold back as a
    // lower one (aliasing).
    void removesWhatCannotBeRepresented_data()
    {
        QTest::addColumn<double>("rate");
        QTest::addColumn<double>("frequency");
        QTest::newRow("48 kHz, 12 kHz tone") << 48000.0 << 12000.0;
        QTest::newRow("44.1 kHz, just above 8 kHz") << 44100.0 << 8500.0;
        QTest::newRow("96 kHz, 30 kHz tone") << 96000.0 << 30000.0;
    }

    void removesWhatCannotBeRepresented()
    {
        QFETCH(double, rate);
        QFETCH(double, frequency);
        AudioConverter converter;
        const Samples output =
            convertStream(converter, rate, {[=](double t) { return sine(0.5, frequency, t); }},
                          qsizetype(rate), 480);
        double energy = 0.0;
        for (size_t i = 1600; i + 1600 < output.size(); ++i) {
            energy += double(output[i]) * double(output[i]);
        }
        const double levelDb = 10.0 * std::log10(energy / double(output.size() - 3200) / 0.125);
        QVERIFY2(levelDb < aliasBoundDb, qPrintable(QString::number(levelDb)));
    }

    // Every channel counts the same, in either layout.
    void downmixesToTheAverage_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("interleaved");
        QTest::newRow("stereo interleaved") << 2 << true;
        QTest::newRow("stereo planar") << 2 << false;
        QTest::newRow("three channels planar") << 3 << false;
    }

    void downmixesToTheAverage()
    {
        QFETCH(int, channels);
        QFETCH(bool, interleaved);
        std::vector<Channel> content{[](double t) { return sine(0.4, 1000.0, t); },
                                     [](double t) { return sine(0.2, 440.0, t) + 0.1; },
                                     [](double t) { return sine(0.3, 2500.0, t) - 0.2; }};
        content.resize(size_t(channels));
        const Channel average = [&content](double t) {
            double sum = 0.0;
            for (const Channel& channel : content) {
                sum += channel(t);
            }
            return sum / double(content.size());
        };

        AudioConverter multi;
        AudioConverter mono;
        const Samples converted = convertStream(multi, 48000.0, content, 24000, 480, interleaved);
        const Samples expected = convertStream(mono, 48000.0, {average}, 24000, 480);
        QCOMPARE(converted.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            QVERIFY2(std::abs(converted[i] - expected[i]) < 1e-6f, qPrintable(QString::number(i)));
        }
    }

    // A new format starts a new stream at the new rate.
    void followsAFormatChange()
    {
        AudioConverter converter;
        const std::vector<Channel> stereo(2, [](double t) { return sine(0.5, 1000.0, t); });
        for (qsizetype first = 0; first < 24000; first += 480) {
            QVERIFY(converter.convert(makeBuffer(48000.0, stereo, first, 480)));
        }
        const Samples output = convertStream(
            converter, 44100.0, {[](double t) { return sine(0.5, 440.0, t); }}, 22050, 441);
        QVERIFY(std::abs(double(output.size()) - 8000.0) <= 1.0);
        QVERIFY(fitTone(output, 440.0).residualDb < thdNoiseBoundDb);
    }

    void dropsWhatItCannotUse_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<double>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("bytes");
        const auto float32 = int(SampleFormat::Float32);
        QTest::newRow("16-bit integer") << int(SampleFormat::Int16) << 48000.0 << 2 << 1920;
        QTest::newRow("32-bit integer") << int(SampleFormat::Int32) << 48000.0 << 2 << 1920;
        QTest::newRow("unknown format") << int(SampleFormat::Other) << 48000.0 << 2 << 1920;
        QTest::newRow("no channels") << float32 << 48000.0 << 0 << 1920;
        QTest::newRow("negative channels") << float32 << 48000.0 << -2 << 1920;
        QTest::newRow("zero rate") << float32 << 0.0 << 2 << 1920;
        QTest::newRow("negative rate") << float32 << -48000.0 << 2 << 1920;
        QTest::newRow("NaN rate") << float32 << qQNaN() << 2 << 1920;
        QTest::newRow("infinite rate") << float32 << qInf() << 2 << 1920;
        QTest::newRow("absurdly low rate") << float32 << 1e-9 << 2 << 1920;
        QTest::newRow("absurdly high rate") << float32 << 1e12 << 2 << 1920;
        QTest::newRow("half a stereo frame") << float32 << 48000.0 << 2 << 1924;
        QTest::newRow("odd byte count") << float32 << 48000.0 << 1 << 1923;
        QTest::newRow("no data") << float32 << 48000.0 << 2 << 0;
    }

    void dropsWhatItCannotUse()
    {
        QFETCH(int, format);
        QFETCH(double, rate);
        QFETCH(int, channels);
        QFETCH(int, bytes);
        AudioConverter converter;
        AudioBuffer buffer;
        buffer.format = SampleFormat(format);
        buffer.sampleRate = rate;
        buffer.channels = channels;
        buffer.data = QByteArray(bytes, '\0');
        QVERIFY(!converter.convert(buffer));
        // A dropped block leaves the converter usable.
        buffer.format = SampleFormat::Float32;
        buffer.sampleRate = 48000.0;
        buffer.channels = 2;
        buffer.data = QByteArray(1920, '\0');
        QVERIFY(converter.convert(buffer));
    }

    // One bad sample from a device must not silence the rest of the stream.
    void survivesNonFiniteSamples()
    {
        AudioConverter converter;
        const Channel tone = [](double t) { return sine(0.5, 1000.0, t); };
        AudioBuffer poisoned = makeBuffer(48000.0, {tone}, 0, 480);
        const float nan = qQNaN();
        std::memcpy(poisoned.data.data() + 400, &nan, sizeof nan);
        QVERIFY(converter.convert(poisoned));
        Samples later;
        for (qsizetype first = 480; first < 9600; first += 480) {
            const auto block = converter.convert(makeBuffer(48000.0, {tone}, first, 480));
            QVERIFY(block);
            later.insert(later.end(), block->begin(), block->end());
        }
        QVERIFY(std::all_of(later.begin(), later.end(), [](float x) { return std::isfinite(x); }));
    }
};

QTEST_GUILESS_MAIN(AudioConverterTest)
#include "AudioConverterTest.moc"

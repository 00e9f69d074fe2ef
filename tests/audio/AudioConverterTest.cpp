#include "audio/AudioConverter.h"

#include "SignalAnalysis.h"
#include "audio/ChunkMixer.h"

#include <QTest>

#include <cmath>
#include <numbers>

Q_DECLARE_METATYPE(AudioBuffer)

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
    std::vector<float> samples(size_t(frames) * channels.size());
    for (qsizetype frame = 0; frame < frames; ++frame) {
        for (size_t channel = 0; channel < channels.size(); ++channel) {
            samples[interleaved ? size_t(frame) * channels.size() + channel
                                : channel * size_t(frames) + size_t(frame)] =
                float(channels[channel](double(firstFrame + frame) / rate));
        }
    }
    return {QByteArray(reinterpret_cast<const char*>(samples.data()),
                       qsizetype(samples.size() * sizeof(float))),
            SampleFormat::Float32, rate, int(channels.size()), interleaved};
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

// The tone starts and stops abruptly, so the edges ring and are left out.
Samples middle(const Samples& output)
{
    constexpr qsizetype edge = 1600;
    return output.size() > 2 * edge ? Samples(output.begin() + edge, output.end() - edge)
                                    : Samples();
}

SignalAnalysis::ToneFit fitTone(const Samples& output, double frequency)
{
    return SignalAnalysis::fitTone(middle(output), frequency, targetSampleRate);
}

// THD+N measured over the tone rows: −151 to −158 dB, the precision floor of
// float samples; what is left of a tone above 8 kHz: −157 to −199 dB (folding
// back without an anti-aliasing filter would leave about 0 dB). The bound
// leaves 20 dB for other soxr builds and CPUs.
constexpr double floorDb = -130.0;

} // namespace

class AudioConverterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // One second of a tone: its length within one sample, its amplitude and
    // frequency, THD+N below the floor; a tone above the new Nyquist frequency
    // vanishes instead of folding back as a lower one (aliasing).
    void convertsTones_data()
    {
        QTest::addColumn<double>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<double>("frequency");
        QTest::addColumn<int>("blockFrames"); // 0: one block
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
        QTest::newRow("48 kHz, 12 kHz tone removed") << 48000.0 << 1 << 12000.0 << 480;
        QTest::newRow("44.1 kHz, 8.5 kHz tone removed") << 44100.0 << 1 << 8500.0 << 480;
        QTest::newRow("96 kHz, 30 kHz tone removed") << 96000.0 << 1 << 30000.0 << 480;
    }

    void convertsTones()
    {
        QFETCH(double, rate);
        QFETCH(int, channels);
        QFETCH(double, frequency);
        QFETCH(int, blockFrames);
        const std::vector<Channel> tone(size_t(channels),
                                        [=](double t) { return sine(0.5, frequency, t); });
        AudioConverter converter;
        const Samples output = convertStream(converter, rate, tone, qsizetype(rate), blockFrames);
        QVERIFY2(std::abs(double(output.size()) - targetSampleRate) <= 1.0,
                 qPrintable(QString::number(output.size())));
        if (frequency > targetSampleRate / 2) {
            const double levelDb =
                20 * std::log10(ChunkMixer::rmsLevel(middle(output)) / 0.5 * std::numbers::sqrt2);
            QVERIFY2(levelDb < floorDb, qPrintable(QString::number(levelDb)));
            return;
        }
        const auto fit = fitTone(output, frequency);
        QVERIFY2(qAbs(fit.amplitude - 0.5) < 0.0005, qPrintable(QString::number(fit.amplitude)));
        QVERIFY2(fit.residualDb < floorDb, qPrintable(QString::number(fit.residualDb)));
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
                sum += channel(t) / double(content.size());
            }
            return sum;
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
        QVERIFY(fitTone(output, 440.0).residualDb < floorDb);
    }

    // A dropped block leaves the converter usable.
    void dropsWhatItCannotUse_data()
    {
        QTest::addColumn<AudioBuffer>("block");
        const auto block = [](SampleFormat format, double rate, int channels, int bytes) {
            return AudioBuffer{QByteArray(bytes, '\0'), format, rate, channels};
        };
        const auto f32 = SampleFormat::Float32;
        QTest::newRow("16-bit integer") << block(SampleFormat::Int16, 48000.0, 2, 1920);
        QTest::newRow("32-bit integer") << block(SampleFormat::Int32, 48000.0, 2, 1920);
        QTest::newRow("unknown format") << block(SampleFormat::Other, 48000.0, 2, 1920);
        QTest::newRow("no channels") << block(f32, 48000.0, 0, 1920);
        QTest::newRow("negative channels") << block(f32, 48000.0, -2, 1920);
        QTest::newRow("zero rate") << block(f32, 0.0, 2, 1920);
        QTest::newRow("negative rate") << block(f32, -48000.0, 2, 1920);
        QTest::newRow("NaN rate") << block(f32, qQNaN(), 2, 1920);
        QTest::newRow("infinite rate") << block(f32, qInf(), 2, 1920);
        QTest::newRow("absurdly low rate") << block(f32, 1e-9, 2, 1920);
        QTest::newRow("absurdly high rate") << block(f32, 1e12, 2, 1920);
        QTest::newRow("half a stereo frame") << block(f32, 48000.0, 2, 1924);
        QTest::newRow("odd byte count") << block(f32, 48000.0, 1, 1923);
        QTest::newRow("no data") << block(f32, 48000.0, 2, 0);
    }

    void dropsWhatItCannotUse()
    {
        QFETCH(AudioBuffer, block);
        AudioConverter converter;
        QVERIFY(!converter.convert(block));
        QVERIFY(converter.convert({QByteArray(1920, '\0'), SampleFormat::Float32, 48000.0, 2}));
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
        QVERIFY(!later.empty());
        QVERIFY(std::all_of(later.begin(), later.end(), [](float x) { return std::isfinite(x); }));
    }
};

QTEST_GUILESS_MAIN(AudioConverterTest)
#include "AudioConverterTest.moc"

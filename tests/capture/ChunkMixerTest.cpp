#include "capture/ChunkMixer.h"

#include "capture/AudioLevelMeter.h"

#include <QTest>

#include <cmath>
#include <numbers>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

Q_DECLARE_METATYPE(Samples)

// The chunk as recognition gets it (mix and normalization) and the level meter.
class ChunkMixerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mixes_data()
    {
        QTest::addColumn<Samples>("microphone");
        QTest::addColumn<Samples>("system");
        QTest::addColumn<Samples>("mixed");
        QTest::newRow("microphone alone is not scaled")
            << Samples{0.5f, -1.0f} << Samples{} << Samples{0.5f, -1.0f};
        QTest::newRow("system alone is not scaled")
            << Samples{} << Samples{0.25f, 1.0f} << Samples{0.25f, 1.0f};
        QTest::newRow("neither") << Samples{} << Samples{} << Samples{};
        QTest::newRow("both weighted") << Samples{1.0f, 0.0f, -1.0f} << Samples{0.0f, 1.0f, 1.0f}
                                       << Samples{0.7f, 0.3f, -0.4f};
        QTest::newRow("microphone longer")
            << Samples{1.0f, 1.0f, 1.0f} << Samples{1.0f} << Samples{1.0f, 0.7f, 0.7f};
        QTest::newRow("system longer")
            << Samples{1.0f} << Samples{1.0f, 1.0f, -1.0f} << Samples{1.0f, 0.3f, -0.3f};
    }

    void mixes()
    {
        QFETCH(Samples, microphone);
        QFETCH(Samples, system);
        QFETCH(Samples, mixed);
        const Samples result = ChunkMixer::mix(microphone, system);
        QCOMPARE(result.size(), mixed.size());
        for (size_t i = 0; i < mixed.size(); ++i) {
            QCOMPARE(result[i], mixed[i]);
        }
    }

    void normalizes_data()
    {
        QTest::addColumn<float>("peak"); // signed: the loudest sample may be negative
        QTest::addColumn<float>("gain");
        QTest::newRow("silence") << 0.0f << 1.0f;
        QTest::newRow("below the threshold") << 0.0005f << 1.0f;
        QTest::newRow("at the threshold") << 0.001f << 1.0f;
        QTest::newRow("quiet: gain capped") << 0.1f << 2.0f;
        QTest::newRow("where the cap meets the target") << 0.25f << 2.0f;
        QTest::newRow("slightly louder") << -0.3f << 0.5f / 0.3f;
        QTest::newRow("loud: brought down") << 0.8f << 0.625f;
        QTest::newRow("clipping") << -4.0f << 0.125f;
    }

    void normalizes()
    {
        QFETCH(float, peak);
        QFETCH(float, gain);
        Samples chunk{peak * 0.5f, peak, -peak * 0.25f, 0.0f};
        const Samples original = chunk;
        const Normalization result = ChunkMixer::normalize(chunk);
        QCOMPARE(result.peak, std::abs(peak));
        QCOMPARE(result.gain, gain);
        for (size_t i = 0; i < chunk.size(); ++i) {
            QCOMPARE(chunk[i], original[i] * gain);
        }
    }

    void measuresRms_data()
    {
        QTest::addColumn<Samples>("samples");
        QTest::addColumn<float>("rms");
        QTest::newRow("nothing") << Samples{} << 0.0f;
        QTest::newRow("constant") << Samples(160, -0.5f) << 0.5f;
        QTest::newRow("square wave") << Samples{0.2f, -0.2f, 0.2f, -0.2f} << 0.2f;
        Samples sine(1600);
        for (size_t i = 0; i < sine.size(); ++i) {
            sine[i] = 0.8f * float(std::sin(2.0 * std::numbers::pi * 100.0 * double(i) / 16000.0));
        }
        QTest::newRow("sine, whole periods") << sine << float(0.8 / std::sqrt(2.0));
    }

    void measuresRms()
    {
        QFETCH(Samples, samples);
        QFETCH(float, rms);
        QVERIFY(qAbs(ChunkMixer::rmsLevel(samples) - rms) < 1e-6f);
    }

    // Readings at most every 100 ms, carrying the smoothed level of that moment.
    void levelIsSmoothedAndDebounced()
    {
        Clock::time_point now = Clock::now();
        AudioLevelMeter meter([&now] { return now; });
        struct Step
        {
            std::chrono::milliseconds at;
            float rms;
            std::optional<LevelReading> reading;
        };
        const Step steps[] = {
            {0ms, 1.0f, std::nullopt},  // 0.7
            {50ms, 0.0f, std::nullopt}, // 0.21
            {99ms, 0.0f, std::nullopt}, // 0.063
            {100ms, 0.0f, LevelReading{0.0189f, true}},
            {150ms, 0.0f, std::nullopt}, // 0.00567
            {199ms, 0.0f, std::nullopt}, // 0.001701
            {200ms, 0.02f, LevelReading{0.0145103f, true}},
            {400ms, 0.0f, LevelReading{0.00435309f, false}},
        };
        const Clock::time_point start = now;
        for (const Step& step : steps) {
            now = start + step.at;
            const std::optional<LevelReading> reading = meter.update(step.rms);
            QCOMPARE(reading.has_value(), step.reading.has_value());
            if (reading) {
                QVERIFY(qAbs(reading->level - step.reading->level) < 1e-6f);
                QCOMPARE(reading->capturing, step.reading->capturing);
            }
        }
    }
};

QTEST_GUILESS_MAIN(ChunkMixerTest)
#include "ChunkMixerTest.moc"

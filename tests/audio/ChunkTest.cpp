#include "FileSizeLimit.h"
#include "TestPaths.h"
#include "audio/AudioLevelMeter.h"
#include "audio/CaptureBuffers.h"
#include "audio/ChunkMixer.h"
#include "audio/WaveFile.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <cmath>
#include <limits>
#include <numeric>
#include <thread>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

Q_DECLARE_METATYPE(Samples)
Q_DECLARE_METATYPE(std::vector<int>)

namespace {

// Counts on from `first`, so that where each sample came from stays visible.
Samples ramp(size_t count, float first)
{
    Samples samples(count);
    std::iota(samples.begin(), samples.end(), first);
    return samples;
}

// The lines of the capture log category while it lives.
struct CaptureLog
{
    CaptureLog() { lines.clear(); }
    ~CaptureLog() { qInstallMessageHandler(previous); }
    CaptureLog(const CaptureLog&) = delete;
    CaptureLog& operator=(const CaptureLog&) = delete;

    static inline QStringList lines;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext& context, const QString& message) {
            if (qstrcmp(context.category, "com.quillmoss.capture") == 0) {
                lines.append(message);
            }
        });
};

} // namespace

// A chunk from buffering to what recognition gets and what is kept on disk,
// and the level meter.
class ChunkTest : public QObject
{
    Q_OBJECT

private:
    Clock::time_point m_now = Clock::now();
    CaptureBuffers::Clock clock()
    {
        return [this] { return m_now; };
    }

private Q_SLOTS:
    void takesAChunkAtItsBoundary_data()
    {
        QTest::addColumn<int>("microphone");
        QTest::addColumn<int>("system");
        QTest::addColumn<int>("elapsedMs");
        QTest::addColumn<bool>("taken");
        QTest::newRow("10 s buffered, 2.9 s later") << 80000 << 80000 << 2900 << false;
        QTest::newRow("10 s buffered, 3.0 s later") << 80000 << 80000 << 3000 << true;
        QTest::newRow("one sample short, long after") << 40000 << 7999 << 1000000 << false;
        QTest::newRow("exactly the minimum") << 40000 << 8000 << 3000 << true;
        QTest::newRow("microphone alone") << 48000 << 0 << 3000 << true;
        QTest::newRow("system alone") << 0 << 48000 << 3000 << true;
    }

    void takesAChunkAtItsBoundary()
    {
        QFETCH(int, microphone);
        QFETCH(int, system);
        QFETCH(int, elapsedMs);
        QFETCH(bool, taken);
        CaptureBuffers buffers(clock());
        // All but the last sample at once, then the last one when the time has come.
        const bool lastIsSystem = system > 0;
        QVERIFY(!buffers.append(ramp(size_t(microphone - (lastIsSystem ? 0 : 1)), 0.0f), false));
        QVERIFY(!buffers.append(ramp(size_t(system - (lastIsSystem ? 1 : 0)), 0.0f), true));
        m_now += std::chrono::milliseconds(elapsedMs);
        const float last = float((lastIsSystem ? system : microphone) - 1);
        const std::optional<ChunkSamples> chunk = buffers.append({last}, lastIsSystem);
        QCOMPARE(chunk.has_value(), taken);
        QCOMPARE(buffers.microphoneCount() + buffers.systemCount(),
                 taken ? 0 : size_t(microphone + system));
        if (!taken) {
            return;
        }
        QCOMPARE(chunk->microphone, ramp(size_t(microphone), 0.0f));
        QCOMPARE(chunk->system, ramp(size_t(system), 0.0f));
        // The interval restarts at the take.
        m_now += 2999ms;
        QVERIFY(!buffers.append(ramp(48000, 0.0f), false));
        m_now += 1ms;
        QVERIFY(buffers.append({0.0f}, true));
    }

    // Each buffer is capped at 160000 samples by dropping exactly the oldest;
    // the total is logged at whole seconds of both buffers together.
    void capAndLog_data()
    {
        QTest::addColumn<std::vector<int>>("blocks"); // positive: microphone, negative: system
        QTest::addColumn<int>("elapsedMs");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<int>("first"); // the oldest microphone sample kept; -1: no check
        const QString ten = u"Buffers: Total=10.0s"_s;
        QTest::newRow("reaching 160001")
            << std::vector<int>{160000, 1} << 0 << QStringList{ten, ten} << 1;
        QTest::newRow("one block over")
            << std::vector<int>{159990, 20} << 0 << QStringList{ten} << 10;
        QTest::newRow("one block larger than the cap")
            << std::vector<int>{200000} << 0 << QStringList{ten} << 40000;
        std::vector<int> stream(2000, 160); // 20 s of 10 ms blocks
        stream.insert(stream.begin(), 160000);
        QTest::newRow("20 s of blocks past the cap")
            << stream << 0 << QStringList(2001, ten) << 320000;
        QTest::newRow("system past the cap")
            << std::vector<int>{-200000, -50} << 0 << QStringList{ten, ten} << -1;
        QTest::newRow("whole seconds of both together")
            << std::vector<int>{8000, -8000, 100, -15900, 1} << 0
            << QStringList{u"Buffers: Total=1.0s"_s, u"Buffers: Total=2.0s"_s} << -1;
        QTest::newRow("the total before the chunk is taken")
            << std::vector<int>{47999, 1, 16000} << 3000
            << QStringList{u"Buffers: Total=3.0s"_s, u"Buffers: Total=1.0s"_s} << -1;
    }

    void capAndLog()
    {
        QFETCH(std::vector<int>, blocks);
        QFETCH(int, elapsedMs);
        QFETCH(QStringList, lines);
        QFETCH(int, first);
        CaptureBuffers buffers(clock());
        m_now += std::chrono::milliseconds(elapsedMs);
        const CaptureLog log;
        size_t appended = 0;
        for (const int block : blocks) {
            buffers.append(block > 0 ? ramp(size_t(block), float(appended))
                                     : Samples(size_t(-block)),
                           block < 0);
            appended += size_t(std::max(block, 0));
        }
        QCOMPARE(CaptureLog::lines, lines);
        if (first >= 0) {
            m_now += 3s;
            const std::optional<ChunkSamples> chunk = buffers.append({0.0f}, true);
            QVERIFY(chunk);
            QCOMPARE(chunk->microphone, ramp(CaptureBuffers::maxBufferSamples, float(first)));
        }
    }

    // Both capture threads at once: every sample ends up in exactly one place.
    void keepsEverySampleUnderContention()
    {
        std::atomic<Clock::rep> ticks = 0;
        CaptureBuffers buffers(
            [&ticks] { return Clock::time_point(Clock::duration(ticks.fetch_add(10'000'000))); });
        std::atomic<size_t> chunked = 0;
        const auto feed = [&](bool isSystem) {
            for (int block = 0; block < 1000; ++block) {
                if (auto chunk = buffers.append(Samples(160, 0.5f), isSystem)) {
                    chunked += chunk->microphone.size() + chunk->system.size();
                }
            }
        };
        std::thread microphone(feed, false);
        std::thread system(feed, true);
        microphone.join();
        system.join();
        QVERIFY(chunked > 0);
        QCOMPARE(chunked + buffers.microphoneCount() + buffers.systemCount(), size_t(320000));
    }

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

    // Readings at most every 100 ms, carrying the smoothed level of that moment.
    void levelIsSmoothedAndDebounced()
    {
        const Clock::time_point start = m_now;
        AudioLevelMeter meter(clock());
        const struct
        {
            std::chrono::milliseconds at;
            float rms;
            std::optional<LevelReading> reading;
        } steps[] = {
            {0ms, 1.0f, std::nullopt},  // 0.7
            {50ms, 0.0f, std::nullopt}, // 0.21
            {99ms, 0.0f, std::nullopt}, // 0.063
            {100ms, 0.0f, LevelReading{0.0189f, true}},
            {150ms, 0.0f, std::nullopt}, // 0.00567
            {199ms, 0.0f, std::nullopt}, // 0.001701
            {200ms, 0.02f, LevelReading{0.0145103f, true}},
            {400ms, 0.0f, LevelReading{0.00435309f, false}},
        };
        for (const auto& step : steps) {
            m_now = start + step.at;
            const std::optional<LevelReading> reading = meter.update(step.rms);
            QCOMPARE(reading.has_value(), step.reading.has_value());
            if (reading) {
                QVERIFY(qAbs(reading->level - step.reading->level) < 1e-6f);
                QCOMPARE(reading->capturing, step.reading->capturing);
            }
        }
    }

    void encodesPcm16()
    {
        const std::optional<QByteArray> file = WaveFile::encode(
            {0.0f, 1.0f, -1.0f, 0.5f, 2.0f, -2.0f, std::numeric_limits<float>::quiet_NaN(), 1e-5f});
        QVERIFY(file);
        // fromHex skips the spaces.
        const auto expected = QByteArray::fromHex(
            "52494646 34000000 57415645"  // "RIFF", 36 + 16 data bytes, "WAVE"
            "666d7420 10000000 0100 0100" // "fmt ", 16, PCM, mono
            "803e0000 007d0000 0200 1000" // 16000 Hz, 32000 bytes/s, block align 2, 16 bits
            "64617461 10000000"           // "data", 16 bytes
            "0000 ff7f 0180 ff3f" // 0, 1 → 32767, −1 → −32767, 0.5 → 16383 (towards zero)
            "ff7f 0080 0000 0000"); // 2 and −2 clamped, NaN → 0, below one step → 0
        QCOMPARE(*file, expected);
    }

    // A write that cannot finish (a full disk) leaves the previous file as it was.
    void replacesAtomically()
    {
        QTemporaryDir directory;
        const QString path = directory.filePath(WaveFile::whisperInputFileName);
        QVERIFY(WaveFile::writeWhisperInput(path, Samples(100, 0.25f)));
        const QByteArray before = TestPaths::readFile(path);
        QCOMPARE(before, *WaveFile::encode(Samples(100, 0.25f)));
        {
            // Room for a little more than the old file, not for three seconds of audio.
            const FileSizeLimit full(rlim_t(before.size()) + 16);
            QVERIFY(!WaveFile::writeWhisperInput(path, Samples(48000, -0.5f)));
        }
        QCOMPARE(TestPaths::readFile(path), before);
        QCOMPARE(QDir(directory.path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{WaveFile::whisperInputFileName});
        QVERIFY(WaveFile::writeWhisperInput(path, Samples(48000, -0.5f)));
        QCOMPARE(TestPaths::readFile(path).size(), 44 + 96000);
    }
};

QTEST_GUILESS_MAIN(ChunkTest)
#include "ChunkTest.moc"

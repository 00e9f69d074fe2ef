#include "capture/CaptureBuffers.h"

#include <QTest>

#include <atomic>
#include <numeric>
#include <thread>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;

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
class CaptureLog
{
public:
    CaptureLog() : m_previous(qInstallMessageHandler(&record)) { s_lines.clear(); }
    ~CaptureLog() { qInstallMessageHandler(m_previous); }
    CaptureLog(const CaptureLog&) = delete;
    CaptureLog& operator=(const CaptureLog&) = delete;
    QStringList lines() const { return s_lines; }

private:
    static void record(QtMsgType, const QMessageLogContext& context, const QString& message)
    {
        if (qstrcmp(context.category, "com.quillmoss.capture") == 0) {
            s_lines.append(message);
        }
    }
    static inline QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
};

} // namespace

class CaptureBuffersTest : public QObject
{
    Q_OBJECT

private:
    Clock::time_point m_now{};
    Clock::time_point m_start{};
    CaptureBuffers::Clock clock()
    {
        return [this] { return m_now; };
    }

private Q_SLOTS:
    void init() { m_now = m_start = Clock::now(); }

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
        if (!taken) {
            QCOMPARE(buffers.microphoneCount() + buffers.systemCount(),
                     size_t(microphone + system));
            return;
        }
        QCOMPARE(chunk->microphone, ramp(size_t(microphone), 0.0f));
        QCOMPARE(chunk->system, ramp(size_t(system), 0.0f));
        QCOMPARE(buffers.microphoneCount() + buffers.systemCount(), size_t(0));
        // The interval restarts at the take.
        m_now += 2999ms;
        QVERIFY(!buffers.append(ramp(48000, 0.0f), false));
        m_now += 1ms;
        QVERIFY(buffers.append({0.0f}, true));
    }

    void capDropsTheOldest_data()
    {
        QTest::addColumn<std::vector<int>>("blocks");
        QTest::addColumn<int>("first"); // the oldest sample kept
        QTest::newRow("reaching 160001") << std::vector<int>{160000, 1} << 1;
        QTest::newRow("one block over") << std::vector<int>{159990, 20} << 10;
        QTest::newRow("one block larger than the cap") << std::vector<int>{200000} << 40000;
        std::vector<int> stream(2000, 160); // 20 s of 10 ms blocks
        stream.insert(stream.begin(), 160000);
        QTest::newRow("20 s of blocks past the cap") << stream << 320000;
    }

    void capDropsTheOldest()
    {
        QFETCH(std::vector<int>, blocks);
        QFETCH(int, first);
        CaptureBuffers buffers(clock());
        const CaptureLog quiet; // a full buffer logs its total with every block
        size_t appended = 0;
        for (const int block : blocks) {
            QVERIFY(!buffers.append(ramp(size_t(block), float(appended)), false));
            appended += size_t(block);
        }
        QCOMPARE(buffers.microphoneCount(), CaptureBuffers::maxBufferSamples);
        m_now += 3s;
        const std::optional<ChunkSamples> chunk = buffers.append({0.0f}, true);
        QVERIFY(chunk);
        QCOMPARE(chunk->microphone, ramp(CaptureBuffers::maxBufferSamples, float(first)));
    }

    void logsWholeSeconds_data()
    {
        QTest::addColumn<std::vector<int>>("blocks"); // positive: microphone, negative: system
        QTest::addColumn<int>("elapsedMs");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("whole seconds of both together")
            << std::vector<int>{8000, -8000, 100, -15900, 1} << 0
            << QStringList{u"Buffers: Total=1.0s"_s, u"Buffers: Total=2.0s"_s};
        QTest::newRow("the total before the chunk is taken")
            << std::vector<int>{47999, 1, 16000} << 3000
            << QStringList{u"Buffers: Total=3.0s"_s, u"Buffers: Total=1.0s"_s};
        // A full buffer stays at its cap, so every further block logs.
        QTest::newRow("at the cap")
            << std::vector<int>{-200000, -50} << 0
            << QStringList{u"Buffers: Total=10.0s"_s, u"Buffers: Total=10.0s"_s};
    }

    void logsWholeSeconds()
    {
        QFETCH(std::vector<int>, blocks);
        QFETCH(int, elapsedMs);
        QFETCH(QStringList, lines);
        CaptureBuffers buffers(clock());
        m_now += std::chrono::milliseconds(elapsedMs);
        const CaptureLog log;
        for (const int block : blocks) {
            buffers.append(Samples(size_t(std::abs(block))), block < 0);
        }
        QCOMPARE(log.lines(), lines);
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
};

QTEST_GUILESS_MAIN(CaptureBuffersTest)
#include "CaptureBuffersTest.moc"

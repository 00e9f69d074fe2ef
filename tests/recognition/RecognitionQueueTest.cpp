#include "recognition/RecognitionQueue.h"

#include <QTest>

#include <algorithm>
#include <limits>

Q_DECLARE_METATYPE(QList<qsizetype>)

namespace {

constexpr qsizetype second = RecognitionQueue::minimumChunkSamples;

// Every sample of chunk `index` holds `index`, so a job shows where its audio came from.
Samples chunkOf(qsizetype samples, int index)
{
    return Samples(size_t(samples), float(index));
}

// The chunk indices a job is made of, in order.
QList<int> sourcesOf(const Samples& job)
{
    QList<int> sources;
    for (const float sample : job) {
        if (sources.isEmpty() || sources.last() != int(sample)) {
            sources.append(int(sample));
        }
    }
    return sources;
}

} // namespace

// The keep-up rule, chunk by chunk and over whole simulated calls.
class RecognitionQueueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void waitingChunks_data()
    {
        QTest::addColumn<QList<qsizetype>>("chunks");
        QTest::addColumn<QList<int>>("job");
        QTest::addColumn<qsizetype>("dropped");

        QTest::newRow("under one second: never recognized")
            << QList<qsizetype>{second - 1} << QList<int>{} << qsizetype(0);
        QTest::newRow("exactly one second")
            << QList<qsizetype>{second} << QList<int>{0} << qsizetype(0);
        QTest::newRow("merged in arrival order") << QList<qsizetype>{3 * second, second, 5 * second}
                                                 << QList<int>{0, 1, 2} << qsizetype(0);
        QTest::newRow("a short chunk between long ones is left out")
            << QList<qsizetype>{3 * second, second - 1, 3 * second} << QList<int>{0, 2}
            << qsizetype(0);
        QTest::newRow("exactly 30 s merge without loss")
            << QList<qsizetype>(10, 3 * second) << QList<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}
            << qsizetype(0);
        QTest::newRow("past 30 s the oldest chunk goes")
            << QList<qsizetype>(11, 3 * second) << QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}
            << 3 * second;
        QTest::newRow("as many oldest chunks as it takes")
            << QList<qsizetype>{3 * second, 3 * second, 20 * second, 9 * second} << QList<int>{2, 3}
            << 6 * second;
        QTest::newRow("a chunk longer than a job is kept whole")
            << QList<qsizetype>{4 * second, 31 * second} << QList<int>{1} << 4 * second;
    }

    // Chunks that arrive while a job runs: what the next job is made of.
    void waitingChunks()
    {
        QFETCH(QList<qsizetype>, chunks);
        QFETCH(QList<int>, job);
        QFETCH(qsizetype, dropped);

        RecognitionQueue queue;
        QVERIFY(queue.add(chunkOf(second, -1)).accepted);
        QVERIFY(queue.start());
        for (int index = 0; index < chunks.size(); ++index) {
            const RecognitionQueue::Admission admission =
                queue.add(chunkOf(chunks[index], index), index);
            QCOMPARE(admission.accepted, chunks[index] >= second);
            QCOMPARE_LE(queue.depth(), 2);
        }
        QCOMPARE(queue.droppedSamples(), dropped);
        QVERIFY(!queue.start()); // one job at a time

        queue.finish();
        const std::optional<RecognitionQueue::Job> next = queue.start();
        QCOMPARE(next.has_value(), !job.isEmpty());
        if (next) {
            QCOMPARE(sourcesOf(next->samples), job);
            QCOMPARE(next->chunks, int(job.size()));
            QCOMPARE(next->firstArrival, qint64(job.first()));
        }
        QCOMPARE(queue.waitingSamples(), 0);
    }

    void keepUp_data()
    {
        QTest::addColumn<double>("jobSeconds");
        QTest::addColumn<bool>("keepsUp");

        // The cost per job is fixed, whatever its audio up to 30 s, as with
        // whisper.cpp's fixed window.
        QTest::newRow("faster than real time") << 2.0 << true;
        QTest::newRow("5x real time for a 3-s chunk") << 15.0 << true;
        QTest::newRow("a 30-s job in 30 s") << 30.0 << true;
        QTest::newRow("slower than a 30-s job") << 45.0 << false;
        QTest::newRow("far slower") << 120.0 << false;
    }

    // A 10-minute call with a 3-s chunk every 3 s, on simulated time: one job
    // waits at most, waiting audio stays within 30 s, every second of audio is
    // recognized or reported skipped, and the time to text does not grow.
    void keepUp()
    {
        QFETCH(double, jobSeconds);
        QFETCH(bool, keepsUp);

        constexpr qint64 chunkMs = 3000;
        constexpr qint64 callMs = 10 * 60 * 1000;
        const auto jobMs = qint64(jobSeconds * 1000);
        constexpr qsizetype chunkSamples = 3 * second;

        RecognitionQueue queue;
        qsizetype input = 0;
        qsizetype recognized = 0;
        qsizetype maximumWaiting = 0;
        qint64 maximumLatencyMs = 0;
        int maximumChunksPerJob = 0;
        std::optional<RecognitionQueue::Job> running;
        qint64 runningEnds = 0;

        const auto startNext = [&](qint64 now) {
            running = queue.start();
            if (running) {
                runningEnds = now + jobMs;
                maximumChunksPerJob = std::max(maximumChunksPerJob, running->chunks);
            }
        };
        const auto finishUpTo = [&](qint64 now) {
            // A job that ends at the moment a chunk arrives frees its place first.
            while (running && runningEnds <= now) {
                recognized += qsizetype(running->samples.size());
                maximumLatencyMs = std::max(maximumLatencyMs, runningEnds - running->firstArrival);
                queue.finish();
                startNext(runningEnds);
            }
        };

        for (qint64 now = chunkMs; now <= callMs; now += chunkMs) {
            finishUpTo(now);
            queue.add(Samples(size_t(chunkSamples), 0.1f), now);
            input += chunkSamples;
            maximumWaiting = std::max(maximumWaiting, queue.waitingSamples());
            QCOMPARE_LE(queue.depth(), 2);
            if (!running) {
                startNext(now);
            }
        }
        finishUpTo(std::numeric_limits<qint64>::max());

        QCOMPARE(recognized + queue.droppedSamples(), input);
        QCOMPARE(queue.droppedSamples() == 0, keepsUp);
        QCOMPARE_LE(maximumWaiting, RecognitionQueue::maximumJobSamples);
        // Waiting for the job ahead, then its own run.
        QCOMPARE_LE(maximumLatencyMs, 2 * jobMs);
        if (jobMs <= chunkMs) {
            QCOMPARE(maximumChunksPerJob, 1);
        }
    }
};

QTEST_GUILESS_MAIN(RecognitionQueueTest)
#include "RecognitionQueueTest.moc"

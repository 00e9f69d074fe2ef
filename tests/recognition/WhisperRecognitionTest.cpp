#include "TestPaths.h"
#include "recognition/LocalSpeechRecognizer.h"
#include "recognition/WhisperContext.h"

#include <QFile>
#include <QFutureSynchronizer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(QList<qsizetype>)

namespace {

constexpr qsizetype second = 16000;
// Generous: a run of the weightless test model takes seconds under a sanitizer.
constexpr int runTimeoutMs = 120000;

// The test models have no weights: whisper.cpp runs the whole computation on
// empty tensors, so loading and running are real and the text is meaningless.
QString testModel(const QString& size = u"tiny.en"_s)
{
    return TestPaths::sharedTestData() + u"/models/for-tests-ggml-%1.bin"_s.arg(size);
}

// Speech-like enough for the cost (the model's work does not depend on it).
Samples tone(qsizetype samples)
{
    Samples audio(static_cast<size_t>(samples));
    for (size_t i = 0; i < audio.size(); ++i) {
        audio[i] = 0.3f * float(std::sin(double(i) * 0.05) * std::sin(double(i) * 0.0007));
    }
    return audio;
}

} // namespace

// The speech model on its own thread, and the recognizer a call feeds, with
// real whisper.cpp and the weightless test models.
class WhisperRecognitionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(testModel()), qPrintable(testModel()));
        // The engine's details are debug lines; its warnings and errors still show.
        QLoggingCategory::setFilterRules(u"com.quillmoss.whisper.debug=false"_s);
    }

    void loads()
    {
        WhisperError error = WhisperError::couldNotTranscribe;
        const std::unique_ptr<WhisperContext> context = WhisperContext::create(testModel(), &error);
        QVERIFY(context);
        QCOMPARE(error, WhisperError::couldNotTranscribe); // untouched on success
        QCOMPARE(context->modelPath(), testModel());
        QVERIFY(!context->computeBackend().isEmpty());
        QVERIFY(WhisperContext::systemInfo().contains(u"CPU"_s));
        QCOMPARE_GE(context->threadCount(), 1);
        QCOMPARE_LE(context->threadCount(), 8);
    }

    void failsToLoad_data()
    {
        QTest::addColumn<QByteArray>("contents"); // null: nothing at the path
        QTest::addColumn<QString>("line");

        const QByteArray model = TestPaths::readFile(testModel());
        QTest::newRow("no file") << QByteArray() << u"❌ Whisper: Model file not found at "_s;
        QTest::newRow("empty file") << QByteArray("") << u"❌ Whisper: Couldn't load model at "_s;
        QTest::newRow("not a model") << QByteArray("<html>404 Not Found</html>\n")
                                     << u"❌ Whisper: Couldn't load model at "_s;
        // whisper.cpp would throw on these, through code that cannot pass an
        // exception on: the process would end.
        QTest::newRow("cut off in the header")
            << model.left(20) << u"❌ Whisper: Couldn't load model at "_s;
        QTest::newRow("cut off in the vocabulary")
            << model.left(model.size() / 2) << u"❌ Whisper: Couldn't load model at "_s;
        QByteArray damaged = model;
        damaged.replace(4, 4, QByteArray(4, '\xff')); // a vocabulary of -1 words
        QTest::newRow("damaged header") << damaged << u"❌ Whisper: Couldn't load model at "_s;
    }

    void failsToLoad()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, line);

        QTemporaryDir directory;
        const QString path = directory.filePath(u"ggml-small.en.bin"_s);
        if (!contents.isNull()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(contents);
        }
        QTest::ignoreMessage(QtWarningMsg, qPrintable(line + path));
        WhisperError error = WhisperError::couldNotTranscribe;
        QVERIFY(!WhisperContext::create(path, &error));
        QCOMPARE(error, WhisperError::couldNotInitializeContext);
    }

    // Jobs posted together run one after the other, in order, each reporting
    // its own audio and time; the window is whisper.cpp's 30 s, and longer
    // audio takes a second one.
    void transcribes()
    {
        const std::unique_ptr<WhisperContext> context = WhisperContext::create(testModel());
        QVERIFY(context);
        context->setThreadCount(2);
        const QList<qsizetype> lengths{30 * second, second, 35 * second};
        QList<qsizetype> finished;
        QFutureSynchronizer<WhisperTranscription> all;
        for (const qsizetype length : lengths) {
            all.addFuture(
                context->transcribe(tone(length)).then([&finished](WhisperTranscription r) {
                    finished.append(r.samples); // on the model's thread, one at a time
                    return r;
                }));
        }
        all.waitForFinished();
        QCOMPARE(finished, lengths);
        for (const QFuture<WhisperTranscription>& future : all.futures()) {
            const WhisperTranscription result = future.result();
            QVERIFY(!result.error);
            QVERIFY(!result.cancelled);
            QCOMPARE(result.threads, 2);
            QCOMPARE_GT(result.processingSeconds, 0.0);
        }
    }

    // Going away with a run in progress stops it mid-way and never starts the
    // queued ones; every caller still hears back.
    void shutsDownWithWorkInFlight()
    {
        auto context = WhisperContext::create(testModel());
        QVERIFY(context);
        context->setThreadCount(1);
        // Once this one is back, the long job after it is running.
        QFuture<WhisperTranscription> first = context->transcribe(tone(second));
        QFuture<WhisperTranscription> inFlight = context->transcribe(tone(30 * second));
        QFuture<WhisperTranscription> queued = context->transcribe(tone(30 * second));
        QVERIFY(!first.result().error);

        context.reset();

        QVERIFY(inFlight.isFinished());
        QVERIFY(inFlight.result().cancelled);
        QCOMPARE(inFlight.result().error, WhisperError::couldNotTranscribe);
        QVERIFY(queued.result().cancelled);
        QCOMPARE(queued.result().processingSeconds, 0.0);
    }

    void recognizerChunkRules_data()
    {
        QTest::addColumn<QList<qsizetype>>("chunks");
        QTest::addColumn<int>("jobs");
        QTest::addColumn<qsizetype>("recognized");

        QTest::newRow("0.99 s is never recognized, 1.0 s is")
            << QList<qsizetype>{second - 1, second} << 1 << second;
        QTest::newRow("chunks waiting behind a job are merged")
            << QList<qsizetype>{3 * second, 3 * second, 2 * second} << 2 << 8 * second;
        QTest::newRow("a short chunk among them is dropped")
            << QList<qsizetype>{3 * second, second - 1, 3 * second} << 2 << 6 * second;
    }

    // Chunks from a call through the recognizer to the model and back.
    void recognizerChunkRules()
    {
        QFETCH(QList<qsizetype>, chunks);
        QFETCH(int, jobs);
        QFETCH(qsizetype, recognized);

        auto context = WhisperContext::create(testModel());
        QVERIFY(context);
        context->setThreadCount(2);
        LocalSpeechRecognizer recognizer(std::move(context));
        QCOMPARE(recognizer.status().model, u"for-tests-ggml-tiny.en.bin"_s);
        QSignalSpy texts(&recognizer, &SpeechRecognizer::textRecognized);
        int deepestQueue = 0;
        connect(&recognizer, &LocalSpeechRecognizer::statusChanged, this,
                [&] { deepestQueue = std::max(deepestQueue, recognizer.status().queueDepth); });

        for (const qsizetype size : chunks) {
            recognizer.recognize(tone(size));
        }
        QTRY_COMPARE_WITH_TIMEOUT(recognizer.status().jobsCompleted, jobs, runTimeoutMs);
        QTest::qWait(0); // a further job would have been started by now

        const RecognitionStatus status = recognizer.status();
        QCOMPARE(status.jobsCompleted, jobs);
        QCOMPARE(status.recognizedSeconds, double(recognized) / second);
        QCOMPARE(status.queueDepth, 0);
        QCOMPARE_GE(deepestQueue, 1);
        QCOMPARE_LE(deepestQueue, 2);
        QCOMPARE(status.secondsSkipped, 0.0);
        QCOMPARE_GT(status.lastJobProcessingSeconds, 0.0);
        QCOMPARE_GT(status.lastJobRealTimeFactor, 0.0);
        // The weightless model's text never survives the cleaner.
        QCOMPARE(texts.count(), 0);
    }

    void recognizerWithoutModelDropsChunks()
    {
        LocalSpeechRecognizer recognizer(nullptr);
        QSignalSpy statusChanges(&recognizer, &LocalSpeechRecognizer::statusChanged);
        recognizer.recognize(tone(3 * second));
        QTest::qWait(0);
        QCOMPARE(statusChanges.count(), 0);
        QCOMPARE(recognizer.status().jobsCompleted, 0);
        QVERIFY(recognizer.status().model.isEmpty());
    }

    // Deleted mid-call: the run stops, the waiting job never runs, and nothing
    // reaches the deleted recognizer from the model's thread.
    void recognizerShutsDownWithWorkInFlight()
    {
        auto context = WhisperContext::create(testModel());
        QVERIFY(context);
        context->setThreadCount(1);
        auto recognizer = std::make_unique<LocalSpeechRecognizer>(std::move(context));
        recognizer->recognize(tone(30 * second));
        recognizer->recognize(tone(3 * second));
        QTRY_COMPARE(recognizer->status().queueDepth, 2);
        recognizer.reset();
        QTest::qWait(0);
    }
};

QTEST_GUILESS_MAIN(WhisperRecognitionTest)
#include "WhisperRecognitionTest.moc"

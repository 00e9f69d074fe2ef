#include "PulseAudioServer.h"
#include "TestPaths.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

// `quillmoss call --live --no-backend` end to end on a real sound server.
class CallCommandTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PulseAudioServer> m_server;
    std::unique_ptr<TemporaryHome> m_home;

    std::unique_ptr<QProcess> start(const QStringList& arguments, const QString& pulseServer = {})
    {
        QProcessEnvironment environment = m_server->environment();
        m_home->applyTo(environment);
        if (!pulseServer.isEmpty()) {
            environment.insert(u"PULSE_SERVER"_s, pulseServer);
        }
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(environment);
        process->start(TestPaths::binaryDirectory() + u"/quillmoss"_s, arguments);
        return process;
    }

    static QList<QJsonObject> events(const QByteArray& output)
    {
        QList<QJsonObject> result;
        for (const QByteArray& line : output.split('\n')) {
            if (!line.isEmpty()) {
                result.append(QJsonDocument::fromJson(line).object());
            }
        }
        return result;
    }

    QString whisperInput() const { return m_home->path() + u"/Documents/whisper_input.wav"_s; }

    void verifyWhisperInput()
    {
        QFile wav(whisperInput());
        QVERIFY(wav.open(QIODevice::ReadOnly));
        const QByteArray header = wav.read(44);
        QVERIFY(header.startsWith("RIFF") && header.mid(8, 8) == "WAVEfmt ");
        QVERIFY(wav.size() > 44 + 2 * 16000);
        quint32 dataSize = 0;
        std::memcpy(&dataSize, header.constData() + 40, 4);
        QCOMPARE(qint64(dataSize) + 44, wav.size());
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_server = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        m_home = std::make_unique<TemporaryHome>();
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("errHas");
        QTest::newRow("no source") << QStringList{u"call"_s, u"--no-backend"_s} << 2 << u"--live"_s;
        QTest::newRow("bad duration")
            << QStringList{u"call"_s, u"--live"_s, u"--no-backend"_s, u"--duration"_s, u"soon"_s}
            << 2 << u"--duration"_s;
        QTest::newRow("unknown option")
            << QStringList{u"call"_s, u"--live"_s, u"--loud"_s} << 2 << u"loud"_s;
        QTest::newRow("backend session")
            << QStringList{u"call"_s, u"--live"_s} << 1 << u"--no-backend"_s;
    }

    void usage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, errHas);
        auto process = start(arguments);
        QVERIFY(process->waitForFinished(10000));
        QCOMPARE(process->exitCode(), exitCode);
        const QString err = QString::fromUtf8(process->readAllStandardError());
        QVERIFY2(err.contains(errHas), qPrintable(err));
    }

    void timedCall()
    {
        const auto speech =
            m_server->startPlaying(TestPaths::sharedTestData() + u"/speech/jfk.wav"_s,
                                   QString::fromLatin1(PulseAudioServer::callOutputSink));
        auto process = start(
            {u"--json"_s, u"call"_s, u"--live"_s, u"--no-backend"_s, u"--duration"_s, u"8"_s});
        QVERIFY(process->waitForFinished(30000));
        QCOMPARE(process->exitStatus(), QProcess::NormalExit);
        QVERIFY2(process->exitCode() == 0, process->readAllStandardError().constData());
        const QList<QJsonObject> lines = events(process->readAllStandardOutput());
        QVERIFY(!lines.isEmpty());
        QCOMPARE(lines.first().value(u"event"_s).toString(), u"live"_s);
        QCOMPARE(lines.last().value(u"event"_s).toString(), u"ended"_s);
        int chunks = 0;
        for (const QJsonObject& line : lines) {
            if (line.value(u"event"_s) == u"chunk"_s) {
                ++chunks;
                QVERIFY(line.value(u"systemSamples"_s).toDouble() > 0);
                QVERIFY(line.value(u"gain"_s).toDouble() <= 2.0);
            }
        }
        QVERIFY(chunks >= 1);
        verifyWhisperInput();
        speech->kill();
        speech->waitForFinished();
    }

    void interruptEndsTheCallCleanly()
    {
        QFile::remove(whisperInput());
        auto process = start({u"--json"_s, u"call"_s, u"--live"_s, u"--no-backend"_s});
        QVERIFY(process->waitForStarted());
        // Wait for the first chunk, then Ctrl-C.
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT((output += process->readAllStandardOutput()).contains("\"chunk\""),
                                 15000);
        ::kill(static_cast<pid_t>(process->processId()), SIGINT);
        QVERIFY(process->waitForFinished(10000));
        QCOMPARE(process->exitStatus(), QProcess::NormalExit);
        QCOMPARE(process->exitCode(), 0);
        output += process->readAllStandardOutput();
        QCOMPARE(events(output).last().value(u"event"_s).toString(), u"ended"_s);
        verifyWhisperInput();
    }

    void noSoundServer()
    {
        auto process = start({u"call"_s, u"--live"_s, u"--no-backend"_s, u"--duration"_s, u"5"_s},
                             u"unix:/nonexistent/quillmoss-pulse"_s);
        QVERIFY(process->waitForFinished(20000));
        QCOMPARE(process->exitCode(), 1);
        const QString err = QString::fromUtf8(process->readAllStandardError());
        QVERIFY2(err.contains(u"the call cannot record"_s), qPrintable(err));
    }
};

QTEST_GUILESS_MAIN(CallCommandTest)
#include "CallCommandTest.moc"

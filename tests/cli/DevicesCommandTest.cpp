#include "PulseAudioServer.h"
#include "TestPaths.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
};

} // namespace

// `quillmoss devices` end to end, against a private PulseAudio server.
class DevicesCommandTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PulseAudioServer> m_server;
    std::unique_ptr<TemporaryHome> m_home;

    QProcessEnvironment environment(const QString& serverAddress = {}) const
    {
        QProcessEnvironment environment = m_server->environment();
        m_home->applyTo(environment);
        if (!serverAddress.isEmpty()) {
            environment.insert(u"PULSE_SERVER"_s, serverAddress);
        }
        return environment;
    }

    Result run(const QStringList& arguments, const QString& serverAddress = {})
    {
        QProcess process;
        process.setProcessEnvironment(environment(serverAddress));
        process.start(TestPaths::binaryDirectory() + u"/quillmoss"_s, arguments);
        if (!process.waitForFinished(30000)) {
            return {};
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // Reads the process's output into `seen` until it holds `text` `count` times.
    static bool waitForOutput(QProcess& process, QString& seen, const QString& text, int count = 1)
    {
        while (seen.count(text) < count) {
            if (!process.waitForReadyRead(10000)) {
                return false;
            }
            seen += QString::fromUtf8(process.readAllStandardOutput());
        }
        return true;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_server = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        m_home = std::make_unique<TemporaryHome>();
    }

    // Steps run in order and share the settings file.
    void session_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");    // exact standard output
        QTest::addColumn<QString>("errHas"); // standard error contains this ("" = anything)

        const auto row = [](const char* name, QStringList arguments, int exitCode, QString out,
                            QString errHas = {}) {
            QTest::newRow(name) << arguments << exitCode << out << errHas;
        };
        row("list", {u"devices"_s}, 0,
            u"* quillmoss_virtual_mic  Quillmoss virtual microphone\n"_s);
        row("wrong use", {u"devices"_s, u"frob"_s}, 2, {}, u"Usage:"_s);
        row("select without id", {u"devices"_s, u"select"_s}, 2, {}, u"Usage:"_s);
        row("select an unknown input", {u"devices"_s, u"select"_s, u"no_such_mic"_s}, 1, {},
            u"there is no audio input \"no_such_mic\""_s);
        row("select", {u"devices"_s, u"select"_s, u"quillmoss_virtual_mic"_s}, 0, {});
        row("the choice is marked", {u"devices"_s}, 0,
            u"* quillmoss_virtual_mic  Quillmoss virtual microphone  [selected]\n"_s);
        row("and stored", {u"settings"_s, u"get"_s, u"selectedAudioDevice"_s}, 0,
            u"\"quillmoss_virtual_mic\"\n"_s);
    }

    void session()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errHas);
        const Result result = run(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.out, out);
        QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
    }

    void json()
    {
        const Result result = run({u"--json"_s, u"devices"_s});
        QCOMPARE(result.exitCode, 0);
        const QJsonArray devices = QJsonDocument::fromJson(result.out.toUtf8()).array();
        QCOMPARE(devices.size(), 1);
        const QJsonObject device = devices.first().toObject();
        QCOMPARE(device.value(u"id"_s).toString(), u"quillmoss_virtual_mic"_s);
        QCOMPARE(device.value(u"name"_s).toString(), u"Quillmoss virtual microphone"_s);
        QCOMPARE(device.value(u"manufacturer"_s).toString(), u"Unknown"_s);
        QCOMPARE(device.value(u"isDefault"_s), QJsonValue(true));
        QVERIFY(device.value(u"deviceID"_s).isDouble());
    }

    void withoutServer()
    {
        const Result result = run({u"devices"_s}, u"unix:/nonexistent/native"_s);
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, QString());
        QVERIFY2(result.err.contains(u"quillmoss: Cannot reach the sound server"_s),
                 qPrintable(result.err));
    }

    void watchUntilInterrupted_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void watchUntilInterrupted()
    {
        QFETCH(int, signalNumber);
        QProcess watcher;
        watcher.setProcessEnvironment(environment());
        watcher.start(TestPaths::binaryDirectory() + u"/quillmoss"_s, {u"devices"_s, u"--watch"_s});
        QString seen;
        QVERIFY(waitForOutput(watcher, seen, u"quillmoss_virtual_mic"_s));

        const std::optional<int> headset =
            m_server->addVirtualSource(u"headset_mic"_s, u"Headset microphone"_s);
        QVERIFY(headset);
        QVERIFY2(waitForOutput(watcher, seen, u"  headset_mic            Headset microphone\n"_s),
                 qPrintable(seen));
        QVERIFY(m_server->removeModule(*headset));
        // The third listing is the first one again.
        QVERIFY2(waitForOutput(watcher, seen, u"quillmoss_virtual_mic"_s, 3), qPrintable(seen));
        QCOMPARE(seen.count(u"headset_mic"_s), 1);

        QCOMPARE(::kill(static_cast<pid_t>(watcher.processId()), signalNumber), 0);
        QVERIFY(watcher.waitForFinished(10000));
        QCOMPARE(watcher.exitStatus(), QProcess::NormalExit);
        QCOMPARE(watcher.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(DevicesCommandTest)
#include "DevicesCommandTest.moc"

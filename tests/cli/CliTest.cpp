#include "CliRunner.h"
#include "KeyringSession.h"
#include "PulseAudioServer.h"
#include "SignalAnalysis.h"
#include "TestPaths.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

QList<QJsonObject> events(const QString& output)
{
    QList<QJsonObject> result;
    for (const QString& line : output.split(u'\n', Qt::SkipEmptyParts)) {
        result.append(QJsonDocument::fromJson(line.toUtf8()).object());
    }
    return result;
}

} // namespace

// The quillmoss binary end to end, with a private keyring, sound server and home.
class CliTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<PulseAudioServer> m_server;
    std::unique_ptr<TemporaryHome> m_home;

    QString whisperInput() const { return m_home->path() + u"/Documents/whisper_input.wav"_s; }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_server = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        m_home = std::make_unique<TemporaryHome>();
    }

    // Steps run in order and share the keyring and the settings file.
    void session_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");    // exact standard output
        QTest::addColumn<QString>("errHas"); // standard error contains this ("" = is empty)
        // Arguments are split at spaces.
        const auto row = [](const char* name, const QString& arguments, QByteArray input,
                            int exitCode, QString out, QString errHas = {}) {
            QTest::newRow(name) << arguments.split(u' ', Qt::SkipEmptyParts) << input << exitCode
                                << out << errHas;
        };
        row("no command", {}, {}, 2, {}, u"Usage: quillmoss"_s);
        row("unknown command", u"frobnicate"_s, {}, 2, {}, u"unknown command \"frobnicate\""_s);
        row("unknown option", u"--nope keychain"_s, {}, 2, {}, u"nope"_s);
        row("keychain without verb", u"keychain"_s, {}, 2, {}, u"keychain needs a verb"_s);
        row("keychain get without key", u"keychain get"_s, {}, 2, {}, u"Usage:"_s);
        row("empty store lists nothing", u"keychain list"_s, {}, 0, {});
        row("set from stdin", u"keychain set brave-search"_s, "BSA-key-é\n", 0, {});
        row("get prints it", u"keychain get brave-search"_s, {}, 0, u"BSA-key-é\n"_s);
        row("set again updates", u"keychain set brave-search"_s, "second", 0, {});
        row("get the update", u"keychain get brave-search"_s, {}, 0, u"second\n"_s);
        row("one item", u"keychain list"_s, {}, 0, u"brave-search\n"_s);
        row("list as JSON", u"--json keychain list"_s, {}, 0, u"[\"brave-search\"]\n"_s);
        row("get missing: silent", u"keychain get notion"_s, {}, 1, {});
        row("bad key refused", u"keychain set a/b"_s, "x", 1, {}, u"refused"_s);
        row("empty value refused", u"keychain set notion"_s, "\n", 1, {}, u"refused"_s);
        row("delete", u"keychain delete brave-search"_s, {}, 0, {});
        row("delete again", u"keychain delete brave-search"_s, {}, 0, {});
        row("set one more", u"keychain set resend"_s, "re_1", 0, {});
        row("clear", u"keychain clear"_s, {}, 0, {});
        row("cleared", u"keychain list"_s, {}, 0, {});
        row("settings set string", u"settings set lastModel \"base\""_s, {}, 0, {});
        row("settings set list", u"settings set enabledIntegrations [\"notion\"]"_s, {}, 0, {});
        row("settings get", u"settings get lastModel"_s, {}, 0, u"\"base\"\n"_s);
        row("settings get list", u"settings get enabledIntegrations"_s, {}, 0, u"[\"notion\"]\n"_s);
        row("settings get missing", u"settings get nothing"_s, {}, 1, {});
        row("settings set not JSON", u"settings set x mic"_s, {}, 2, {}, u"not a JSON value"_s);
        row("settings list", u"--json settings list"_s, {}, 0,
            u"{\"enabledIntegrations\":[\"notion\"],\"lastModel\":\"base\"}\n"_s);
        row("devices", u"devices"_s, {}, 0,
            u"* quillmoss_virtual_mic  Quillmoss virtual microphone\n"_s);
        row("devices, wrong use", u"devices frob"_s, {}, 2, {}, u"Usage:"_s);
        row("select without id", u"devices select"_s, {}, 2, {}, u"Usage:"_s);
        row("select an unknown input", u"devices select no_such_mic"_s, {}, 1, {},
            u"there is no audio input \"no_such_mic\""_s);
        row("select", u"devices select quillmoss_virtual_mic"_s, {}, 0, {});
        row("the choice is marked", u"devices"_s, {}, 0,
            u"* quillmoss_virtual_mic  Quillmoss virtual microphone  [selected]\n"_s);
        row("and stored", u"settings get selectedAudioDevice"_s, {}, 0,
            u"\"quillmoss_virtual_mic\"\n"_s);
        row("call without source", u"call --no-backend"_s, {}, 2, {}, u"--live"_s);
        row("call, bad duration", u"call --live --no-backend --duration soon"_s, {}, 2, {},
            u"--duration"_s);
        row("call, unknown option", u"call --live --loud"_s, {}, 2, {}, u"loud"_s);
        row("call with two sources", u"call --live --transcript t.txt"_s, {}, 2, {},
            u"one of --live, --audio FILE, --transcript FILE"_s);
        row("call, missing transcript", u"call --transcript /no/such.txt"_s, {}, 1, {},
            u"cannot read /no/such.txt"_s);
        row("call, unreadable recording", u"call --audio /no/such.wav --no-backend"_s, {}, 1, {},
            u"/no/such.wav"_s);
        row("agent mode without a backend", u"call --live --no-backend --agent-mode"_s, {}, 2, {},
            u"--agent-mode needs the backend session"_s);
        const QString jfk = TestPaths::sharedTestData() + u"/speech/jfk.wav "_s;
        row("transcribe without a file", u"transcribe"_s, {}, 2, {}, u"one recording"_s);
        row("transcribe what is not audio", u"transcribe /etc/hostname"_s, {}, 1, {},
            u"cannot be read as audio"_s);
        row("transcribe, unknown model", u"transcribe "_s + jfk + u"--model nosuch"_s, {}, 1, {},
            u"neither a model file nor a model name"_s);
        row("transcribe, model not downloaded", u"transcribe "_s + jfk + u"--model tiny.en"_s, {},
            1, {}, u"not downloaded yet"_s);
        row("transcribe, broken model", u"transcribe "_s + jfk + u"--model /etc/hostname"_s, {}, 1,
            {}, u"cannot be loaded"_s);
    }

    void session()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errHas);
        const CliRunner::Result result = CliRunner::run(arguments, input);
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
        QCOMPARE(result.out, out);
        if (errHas.isEmpty()) {
            QCOMPARE(result.err, QString()); // info lines go to the log file only
        } else {
            QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
        }
    }

    // After the session's select.
    void devicesAsJson()
    {
        const CliRunner::Result result = CliRunner::run({u"--json"_s, u"devices"_s});
        QCOMPARE(result.exitCode, 0);
        const QJsonArray devices = QJsonDocument::fromJson(result.out.toUtf8()).array();
        QCOMPARE(devices.size(), 1);
        QJsonObject device = devices.first().toObject();
        QVERIFY(device.take(u"deviceID"_s).isDouble());
        QCOMPARE(device, (QJsonObject{{u"id"_s, u"quillmoss_virtual_mic"_s},
                                      {u"name"_s, u"Quillmoss virtual microphone"_s},
                                      {u"manufacturer"_s, u"Unknown"_s},
                                      {u"isDefault"_s, true},
                                      {u"selected"_s, true}}));
    }

    // Neither on the terminal (even with --verbose) nor in any file of the home.
    void secretsNeverReachTheLogs()
    {
        for (const QString& verb : {u"set"_s, u"get"_s}) {
            const CliRunner::Result result =
                CliRunner::run({u"--verbose"_s, u"keychain"_s, verb, u"notion"_s}, "ntn_4711");
            QCOMPARE(result.exitCode, 0);
            QVERIFY2(!result.err.contains(u"ntn_4711"_s), qPrintable(result.err));
        }
        QDirIterator files(m_home->path(), QDir::Files | QDir::Hidden,
                           QDirIterator::Subdirectories);
        int logs = 0;
        while (files.hasNext()) {
            const QString path = files.next();
            QVERIFY2(!TestPaths::readFile(path).contains("ntn_4711"), qPrintable(path));
            logs += path.endsWith(u".log"_s) ? 1 : 0;
        }
        QVERIFY(logs > 0);
    }

    void unreachableServices_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<QString>("errHas");
        const auto keychain = [](const char* name, const QString& arguments, const QString& err) {
            QTest::newRow(name) << u"DBUS_SESSION_BUS_ADDRESS"_s << arguments << err;
        };
        keychain("list", u"keychain list"_s, u"cannot be reached"_s);
        keychain("get", u"keychain get notion"_s, u"cannot be reached"_s);
        keychain("set", u"keychain set notion"_s, u"Failed to store API key with status: "_s);
        keychain("delete", u"keychain delete notion"_s,
                 u"Keychain deletion failed with status: "_s);
        keychain("clear", u"keychain clear"_s, u"Keychain bulk deletion failed with status: "_s);
        QTest::newRow("devices") << u"PULSE_SERVER"_s << u"devices"_s
                                 << u"quillmoss: Cannot reach the sound server"_s;
        QTest::newRow("call") << u"PULSE_SERVER"_s << u"call --live --no-backend --duration 5"_s
                              << u"the call cannot record"_s;
    }

    void unreachableServices()
    {
        QFETCH(QString, variable);
        QFETCH(QString, arguments);
        QFETCH(QString, errHas);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(variable, u"unix:path=/nonexistent/socket"_s);
        const auto result = CliRunner::run(arguments.split(u' '), "value", environment);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
    }

    void watchUntilInterrupted_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    // Each change of the inputs prints the list again.
    void watchUntilInterrupted()
    {
        QFETCH(int, signalNumber);
        const auto watcher = CliRunner::start({u"devices"_s, u"--watch"_s});
        QString seen;
        QVERIFY(CliRunner::waitForOutput(*watcher, seen, u"quillmoss_virtual_mic"_s));
        const std::optional<int> headset =
            m_server->addVirtualSource(u"headset_mic"_s, u"Headset microphone"_s);
        QVERIFY(headset);
        QVERIFY2(CliRunner::waitForOutput(*watcher, seen,
                                          u"  headset_mic            Headset microphone\n"_s),
                 qPrintable(seen));
        QVERIFY(m_server->removeModule(*headset));
        // The third listing is the first one again.
        QVERIFY2(CliRunner::waitForOutput(*watcher, seen, u"quillmoss_virtual_mic"_s, 3),
                 qPrintable(seen));
        QCOMPARE(seen.count(u"headset_mic"_s), 1);
        QCOMPARE(::kill(static_cast<pid_t>(watcher->processId()), signalNumber), 0);
        QVERIFY(watcher->waitForFinished(10000));
        QCOMPARE(watcher->exitStatus(), QProcess::NormalExit);
        QCOMPARE(watcher->exitCode(), 0);
    }

    void call_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("interrupt"); // Ctrl-C after the first chunk
        QTest::newRow("timed") << QStringList{u"--duration"_s, u"8"_s} << false;
        QTest::newRow("ended by Ctrl-C") << QStringList() << true;
    }

    // A recording through the call's path with the weightless test model: it
    // runs to the end; whatever text passes the cleaner comes as JSON lines.
    void transcribe()
    {
        const CliRunner::Result result = CliRunner::run(
            {u"--json"_s, u"transcribe"_s, TestPaths::sharedTestData() + u"/speech/jfk.wav"_s,
             u"--model"_s, TestPaths::sharedTestData() + u"/models/for-tests-ggml-tiny.en.bin"_s});
        QVERIFY2(result.exitCode == 0, qPrintable(result.err));
        for (const QJsonObject& line : events(result.out)) {
            QVERIFY(line.value(u"start"_s).toDouble() >= 0.0);
            QVERIFY(line.value(u"seconds"_s).toDouble() >= 1.0);
            QVERIFY(!line.value(u"text"_s).toString().isEmpty());
        }
    }

    // While speech plays into the call output: the model loads, then JSON
    // events from "live" to "ended", chunks with system audio,
    // whisper_input.wav written whole.
    void call()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, interrupt);
        QFile::remove(whisperInput());
        const auto speech =
            m_server->startPlaying(TestPaths::sharedTestData() + u"/speech/jfk.wav"_s,
                                   QString::fromLatin1(PulseAudioServer::callOutputSink));
        const auto call = CliRunner::start(
            QStringList{u"--json"_s, u"call"_s, u"--live"_s, u"--no-backend"_s, u"--model"_s,
                        TestPaths::sharedTestData() + u"/models/for-tests-ggml-tiny.en.bin"_s} +
            arguments);
        QString output;
        if (interrupt) {
            QVERIFY(CliRunner::waitForOutput(*call, output, u"\"chunk\""_s));
            QCOMPARE(::kill(static_cast<pid_t>(call->processId()), SIGINT), 0);
        }
        QVERIFY(call->waitForFinished(30000));
        speech->kill();
        speech->waitForFinished();
        QCOMPARE(call->exitStatus(), QProcess::NormalExit);
        QVERIFY2(call->exitCode() == 0, call->readAllStandardError().constData());
        const QList<QJsonObject> lines =
            events(output + QString::fromUtf8(call->readAllStandardOutput()));
        // The model loads while capture starts: each in its own order.
        QStringList model;
        QStringList sequence;
        for (const QJsonObject& line : lines) {
            const QString event = line.value(u"event"_s).toString();
            if (event == u"model"_s) {
                model += line.value(u"status"_s).toString();
            } else if (event != u"chunk"_s && event != u"level"_s) {
                sequence += event;
            }
        }
        QCOMPARE(model, (QStringList{u"Checking AI models..."_s, u"Initializing Model..."_s,
                                     u"Ready!"_s}));
        QCOMPARE(sequence, (QStringList{u"live"_s, u"ended"_s}));
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
        QVERIFY(SignalAnalysis::readPcm16Wav(whisperInput()).size() > 16000);
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "CliTest.moc"

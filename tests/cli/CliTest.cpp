#include "KeyringSession.h"
#include "TestPaths.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
};

} // namespace

// The quillmoss binary end to end, with a private keyring and home.
class CliTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;

    Result run(const QStringList& arguments, const QByteArray& input = {},
               const QString& busAddress = {})
    {
        QProcessEnvironment environment = m_keyring->environment();
        m_home->applyTo(environment);
        if (!busAddress.isEmpty()) {
            environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, busAddress);
        }
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(TestPaths::binaryDirectory() + u"/quillmoss"_s, arguments);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(30000)) {
            return {};
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QString settingsFile() const { return m_home->path() + u"/.config/quillmoss/settings.json"_s; }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
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

        const auto row = [](const char* name, QStringList arguments, QByteArray input, int exitCode,
                            QString out, QString errHas = {}) {
            QTest::newRow(name) << arguments << input << exitCode << out << errHas;
        };
        row("no command", {}, {}, 2, {}, u"Usage: quillmoss"_s);
        row("unknown command", {u"frobnicate"_s}, {}, 2, {}, u"unknown command \"frobnicate\""_s);
        row("unknown option", {u"--nope"_s, u"keychain"_s}, {}, 2, {}, u"nope"_s);
        row("keychain without verb", {u"keychain"_s}, {}, 2, {}, u"keychain needs a verb"_s);
        row("keychain get without key", {u"keychain"_s, u"get"_s}, {}, 2, {}, u"Usage:"_s);
        row("empty store lists nothing", {u"keychain"_s, u"list"_s}, {}, 0, {});
        row("set from stdin", {u"keychain"_s, u"set"_s, u"brave-search"_s}, "BSA-key-é\n", 0, {});
        row("get prints it", {u"keychain"_s, u"get"_s, u"brave-search"_s}, {}, 0, u"BSA-key-é\n"_s);
        row("set again updates", {u"keychain"_s, u"set"_s, u"brave-search"_s}, "second", 0, {});
        row("get the update", {u"keychain"_s, u"get"_s, u"brave-search"_s}, {}, 0, u"second\n"_s);
        row("list", {u"keychain"_s, u"list"_s}, {}, 0, u"brave-search\n"_s);
        row("list as JSON", {u"--json"_s, u"keychain"_s, u"list"_s}, {}, 0,
            u"[\"brave-search\"]\n"_s);
        row("get missing: silent", {u"keychain"_s, u"get"_s, u"notion"_s}, {}, 1, {}, {});
        row("bad key refused", {u"keychain"_s, u"set"_s, u"a b"_s}, "x", 1, {}, u"refused"_s);
        row("empty value refused", {u"keychain"_s, u"set"_s, u"notion"_s}, "\n", 1, {},
            u"refused"_s);
        row("delete", {u"keychain"_s, u"delete"_s, u"brave-search"_s}, {}, 0, {});
        row("delete again", {u"keychain"_s, u"delete"_s, u"brave-search"_s}, {}, 0, {});
        row("set one more", {u"keychain"_s, u"set"_s, u"resend"_s}, "re_1", 0, {});
        row("clear", {u"keychain"_s, u"clear"_s}, {}, 0, {});
        row("cleared", {u"keychain"_s, u"list"_s}, {}, 0, {});
        row("settings set string",
            {u"settings"_s, u"set"_s, u"selectedAudioDevice"_s, u"\"mic 1\""_s}, {}, 0, {});
        row("settings set list",
            {u"settings"_s, u"set"_s, u"enabledIntegrations"_s, u"[\"notion\"]"_s}, {}, 0, {});
        row("settings get", {u"settings"_s, u"get"_s, u"selectedAudioDevice"_s}, {}, 0,
            u"\"mic 1\"\n"_s);
        row("settings get list", {u"settings"_s, u"get"_s, u"enabledIntegrations"_s}, {}, 0,
            u"[\"notion\"]\n"_s);
        row("settings get missing", {u"settings"_s, u"get"_s, u"nothing"_s}, {}, 1, {});
        row("settings set not JSON", {u"settings"_s, u"set"_s, u"x"_s, u"mic"_s}, {}, 2, {},
            u"not a JSON value"_s);
        row("settings list", {u"--json"_s, u"settings"_s, u"list"_s}, {}, 0,
            u"{\"enabledIntegrations\":[\"notion\"],\"selectedAudioDevice\":\"mic 1\"}\n"_s);
    }

    void session()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errHas);
        const Result result = run(arguments, input);
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
        QCOMPARE(result.out, out);
        if (errHas.isEmpty()) {
            QCOMPARE(result.err, QString()); // info lines go to the log file only
        } else {
            QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
        }
    }

    void secretsNeverReachTheLogs()
    {
        QCOMPARE(
            run({u"--verbose"_s, u"keychain"_s, u"set"_s, u"notion"_s}, "secret_ntn_4711").exitCode,
            0);
        QCOMPARE(run({u"--verbose"_s, u"keychain"_s, u"get"_s, u"notion"_s}).exitCode, 0);
        QDirIterator files(m_home->path(), QDir::Files | QDir::Hidden,
                           QDirIterator::Subdirectories);
        int logs = 0;
        while (files.hasNext()) {
            QFile file(files.next());
            QVERIFY(file.open(QIODevice::ReadOnly));
            QVERIFY2(!file.readAll().contains("secret_ntn_4711"), qPrintable(file.fileName()));
            logs += file.fileName().endsWith(u".log"_s) ? 1 : 0;
        }
        QVERIFY(logs > 0);
    }

    void corruptSettingsAreRecovered()
    {
        QFile file(settingsFile());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("{\"selectedAudioDevice\": ");
        file.close();
        const Result listed = run({u"settings"_s, u"list"_s});
        QCOMPARE(listed.exitCode, 0);
        QCOMPARE(listed.out, u"{\n}\n"_s);
        QVERIFY2(listed.err.contains(u"moved it to"_s), qPrintable(listed.err));
        const QStringList aside =
            QFileInfo(settingsFile()).absoluteDir().entryList({u"settings.json.corrupt-*"_s});
        QCOMPARE(aside.size(), 1);
    }

    void unreachableStore_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("errHas");
        QTest::newRow("list") << QStringList{u"keychain"_s, u"list"_s} << u"cannot be reached"_s;
        QTest::newRow("get") << QStringList{u"keychain"_s, u"get"_s, u"notion"_s}
                             << u"cannot be reached"_s;
        QTest::newRow("set") << QStringList{u"keychain"_s, u"set"_s, u"notion"_s}
                             << u"Failed to store API key with status: "_s;
        QTest::newRow("delete") << QStringList{u"keychain"_s, u"delete"_s, u"notion"_s}
                                << u"Keychain deletion failed with status: "_s;
        QTest::newRow("clear") << QStringList{u"keychain"_s, u"clear"_s}
                               << u"Keychain bulk deletion failed with status: "_s;
    }

    void unreachableStore()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, errHas);
        const Result result = run(arguments, "value", u"unix:path=/nonexistent/quillmoss-bus"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
        QVERIFY(result.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "CliTest.moc"

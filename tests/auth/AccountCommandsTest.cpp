// quillmoss login → whoami → history → feedback → logout, end to end: the
// built binary against the real local backend (seeded with the demo account)
// and a real Secret Service.
#include "CliRunner.h"
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "TestPaths.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

class AccountCommandsTest : public QObject
{
    Q_OBJECT

private:
    CliRunner::Result run(const QStringList& arguments, const QByteArray& input = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QUILLMOSS_BACKEND_URL"_s, m_backend->url().toString());
        environment.insert(u"QUILLMOSS_WEB_URL"_s, m_backend->url().toString());
        environment.remove(u"DISPLAY"_s); // never open a browser from a test
        environment.remove(u"WAYLAND_DISPLAY"_s);
        return CliRunner::run(arguments, input, environment);
    }

    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<LocalBackend> m_backend;

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
        m_backend = std::make_unique<LocalBackend>(LocalBackend::Options{.seedDemo = true});
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    void signedOutCommandsFail_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("err");

        QTest::newRow("whoami") << QStringList{u"whoami"_s} << 1
                                << u"not signed in: run quillmoss login"_s;
        QTest::newRow("history") << QStringList{u"history"_s} << 1 << u"Failed to fetch calls"_s;
        QTest::newRow("feedback") << QStringList{u"feedback"_s, u"--type"_s, u"question"_s, u"Hi"_s}
                                  << 1 << u"Please log in to submit feedback."_s;
        QTest::newRow("feedback of an unknown type")
            << QStringList{u"feedback"_s, u"--type"_s, u"rant"_s, u"Hi"_s} << 2
            << u"unknown feedback type \"rant\""_s;
        QTest::newRow("history with an unknown order")
            << QStringList{u"history"_s, u"--sort"_s, u"size"_s} << 2
            << u"unknown sort order \"size\""_s;
        QTest::newRow("login from a fragment")
            << QStringList{u"login"_s, u"--redirect"_s,
                           u"quillmoss://oauth/callback#access_token=abc"_s}
            << 1 << u"that address holds no sign-in"_s;
        QTest::newRow("login with a token the server never issued")
            << QStringList{u"login"_s, u"--redirect"_s,
                           u"quillmoss://oauth/callback?access_token=forged"_s}
            << 1 << u"Server error. Please try again later."_s;
    }

    void signedOutCommandsFail()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, err);
        const auto result = run(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(err), qPrintable(result.err));
    }

    void wholeSession()
    {
        // The browser's part: the login form sends it to the redirect address,
        // which the user pastes at the prompt.
        const auto tokens = m_backend->signIn(LocalBackend::demoEmail());
        QVERIFY(tokens);
        auto result = run({u"login"_s}, tokens->redirect.toEncoded() + '\n');
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, u"Signed in as Demo Seller <demo@quillmoss.local>\n"_s);
        QVERIFY(result.err.contains(u"/login?provider=google"_s));

        result = run({u"--json"_s, u"whoami"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(QJsonDocument::fromJson(result.out.toUtf8())[u"email"_s].toString(),
                 LocalBackend::demoEmail());

        // Newest first by default; the cache answers the second listing.
        result = run({u"--json"_s, u"history"_s});
        QCOMPARE(result.exitCode, 0);
        const QJsonArray calls = QJsonDocument::fromJson(result.out.toUtf8()).array();
        QCOMPARE(calls.size(), 5);
        for (qsizetype i = 1; i < calls.size(); ++i)
            QVERIFY(calls[i - 1][u"created_at"_s].toString() >=
                    calls[i][u"created_at"_s].toString());
        result = run({u"history"_s, u"--sort"_s, u"duration"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.endsWith(u"5 calls. All calls are AES-256 encrypted at rest.\n"_s));
        QCOMPARE(m_backend->requestCount(u"GET"_s, u"/calls"_s), 1);
        QVERIFY(run({u"history"_s, u"--refresh"_s}).exitCode == 0);
        QCOMPARE(m_backend->requestCount(u"GET"_s, u"/calls"_s), 2);

        const QString id = calls.first()[u"id"_s].toString();
        result = run({u"history"_s, u"export-actions"_s, id});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.startsWith(u"# Action Items from Call\n\n- [ ] "_s));
        result = run({u"history"_s, u"show"_s, id});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains(u"Transcript"_s));
        QCOMPARE(run({u"history"_s, u"show"_s, u"no-such-call"_s}).exitCode, 1);

        result = run({u"feedback"_s, u"--type"_s, u"compliment"_s, u"The"_s, u"summary"_s, u"is"_s,
                      u"spot"_s, u"on"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out,
                 u"Feedback Submitted: Thank you for your feedback! We appreciate your input.\n"_s);

        result = run({u"logout"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(run({u"whoami"_s}).exitCode, 1);
        QCOMPARE(run({u"keychain"_s, u"list"_s}).out, QString());
        QVERIFY(!run({u"settings"_s, u"list"_s}).out.contains(u"CallHistoryCache"_s));

        // Nothing the backend issued reached a log of the client or the server.
        const QString clientLogs = [this] {
            QString all;
            const QString folder = m_home->path() + u"/.local/state/quillmoss/logs"_s;
            for (const QString& name : QDir(folder).entryList(QDir::Files))
                all += QString::fromUtf8(TestPaths::readFile(folder + u'/' + name));
            return all;
        }();
        QVERIFY(clientLogs.contains(u"SIGN IN PROCESS"_s));
        QVERIFY(!clientLogs.contains(tokens->accessToken));
        QVERIFY(!clientLogs.contains(tokens->refreshToken));
        QVERIFY(!m_backend->log().contains(tokens->accessToken));
    }
};

QTEST_GUILESS_MAIN(AccountCommandsTest)
#include "AccountCommandsTest.moc"

// quillmoss mcp end to end, with a private keyring and home and the MCP
// reference server: each invocation is a fresh process, so a server added by
// one step is read back from the settings by the next.
#include "CliRunner.h"
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "McpReferenceServer.h"
#include "OAuthTestBrowser.h"
#include "TestPaths.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

class McpCommandTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<McpReferenceServer> m_server;
    // Its demo MCP server asks for a sign-in.
    std::unique_ptr<LocalBackend> m_backend;

    QString demoUrl() const { return m_backend->url().toString() + u"/mcp/sse"_s; }

    // The authorization URL `mcp login` prints on a line of its own.
    static QUrl printedUrl(QProcess& process, QString& seen)
    {
        if (!CliRunner::waitForOutput(process, seen, u"\n"_s))
            return {};
        return QUrl(seen.section(u'\n', 0, 0), QUrl::StrictMode);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
        m_server = std::make_unique<McpReferenceServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        LocalBackend::Options options;
        options.seedDemo = true;
        m_backend = std::make_unique<LocalBackend>(options);
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    // mcp login as a person does it: the printed address opened in a browser,
    // signed in and allowed there, and the link the browser ends on pasted
    // back; or the sign-in's failures, each with its text.
    void login_data()
    {
        QTest::addColumn<QString>("browser"); // allow, deny, tamper, garbage, eof, loopback
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("errHas");
        QTest::newRow("allowed") << u"allow"_s << 0 << QString();
        QTest::newRow("allowed, back through the loopback") << u"loopback"_s << 0 << QString();
        QTest::newRow("denied") << u"deny"_s << 1
                                << u"quillmoss: OAuth authorization error for Quillmoss-Demo: "_s;
        QTest::newRow("another state")
            << u"tamper"_s << 1 << u"quillmoss: OAuth state mismatch - possible security issue"_s;
        QTest::newRow("not a link")
            << u"garbage"_s << 1 << u"quillmoss: Invalid OAuth callback URL"_s;
        QTest::newRow("input ends")
            << u"eof"_s << 1 << u"quillmoss: OAuth authentication was canceled"_s;
    }

    void login()
    {
        QFETCH(QString, browser);
        QFETCH(int, exitCode);
        QFETCH(QString, errHas);
        CliRunner::run({u"mcp"_s, u"add"_s, u"Quillmoss-Demo"_s, demoUrl(), u"--requires-auth"_s});
        QStringList arguments{u"mcp"_s, u"login"_s, u"Quillmoss-Demo"_s};
        if (browser == u"loopback"_s)
            arguments.append(u"--loopback"_s);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // No desktop: nothing opens a real browser.
        environment.remove(u"DISPLAY"_s);
        environment.remove(u"WAYLAND_DISPLAY"_s);
        const auto process = CliRunner::start(arguments, environment);
        QString seen;
        const QUrl authorization = printedUrl(*process, seen);
        QVERIFY2(authorization.isValid(),
                 qPrintable(seen + QString::fromUtf8(process->readAllStandardError())));

        if (browser == u"eof"_s) {
            process->closeWriteChannel();
        } else if (browser == u"garbage"_s) {
            process->write("not a link at all\n");
        } else {
            OAuthTestBrowser::Choice choice;
            choice.allow = browser != u"deny"_s;
            const OAuthTestBrowser::Result result = OAuthTestBrowser::run(authorization, choice);
            QVERIFY2(result.error.isEmpty(), qPrintable(result.error + result.lastPage));
            QUrl link = result.finalUrl;
            if (browser == u"tamper"_s) {
                QUrlQuery query(link);
                query.removeAllQueryItems(u"state"_s);
                query.addQueryItem(u"state"_s, u"forged"_s);
                link.setQuery(query);
            }
            if (browser == u"loopback"_s) {
                // The browser's last step: it loads the loopback page itself.
                QCOMPARE(link.host(), u"127.0.0.1"_s);
                QNetworkAccessManager network;
                QNetworkReply* page = network.get(QNetworkRequest(link));
                QTRY_VERIFY_WITH_TIMEOUT(page->isFinished(), 15000);
                QCOMPARE(page->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
                QVERIFY(page->readAll().contains("go back to the terminal"));
                delete page;
            } else {
                QCOMPARE(link.scheme(), u"quillmoss"_s);
                process->write(link.toString(QUrl::FullyEncoded).toUtf8() + '\n');
            }
        }
        // (It may have ended already, while the test's own event loop ran.)
        if (process->state() != QProcess::NotRunning && !process->waitForFinished(30000)) {
            process->kill();
            process->waitForFinished();
            QFAIL(qPrintable(u"mcp login did not end: "_s +
                             QString::fromUtf8(process->readAllStandardError())));
        }
        const QString out = seen + QString::fromUtf8(process->readAllStandardOutput());
        const QString err = QString::fromUtf8(process->readAllStandardError());
        QVERIFY2(process->exitCode() == exitCode, qPrintable(out + err));
        if (exitCode == 0) {
            QVERIFY2(out.endsWith(u"Signed in to Quillmoss-Demo\n"_s), qPrintable(out));
            // The token is used from then on, by every command.
            const CliRunner::Result tools =
                CliRunner::run({u"mcp"_s, u"tools"_s, u"Quillmoss-Demo"_s});
            QVERIFY2(tools.exitCode == 0, qPrintable(tools.err));
            QVERIFY(tools.out.contains(u"search_calls"_s));
        } else {
            QVERIFY2(err.contains(errHas), qPrintable(err));
        }
        // Signed out (or never signed in), a command asks for the sign-in first.
        const CliRunner::Result logout =
            CliRunner::run({u"mcp"_s, u"logout"_s, u"Quillmoss-Demo"_s});
        QCOMPARE(logout.exitCode, 0);
        QCOMPARE(logout.out, u"Signed out of Quillmoss-Demo\n"_s);
        const CliRunner::Result after = CliRunner::run({u"mcp"_s, u"tools"_s, u"Quillmoss-Demo"_s});
        QCOMPARE(after.exitCode, 1);
        QVERIFY2(after.err.contains(u"Quillmoss-Demo needs a sign-in first: quillmoss mcp login "
                                    u"Quillmoss-Demo"_s),
                 qPrintable(after.err));
        // Nothing of the flow is ever printed but the authorization address.
        QVERIFY(!err.contains(u"code="_s));
        QVERIFY(!CliRunner::run({u"mcp"_s, u"remove"_s, u"Quillmoss-Demo"_s}).exitCode);
    }

    void loginRefusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("errHas");
        QTest::newRow("unknown") << QStringList{u"login"_s, u"Nope"_s} << 1
                                 << u"quillmoss: Unknown MCP integration: Nope"_s;
        QTest::newRow("a server without sign-in")
            << QStringList{u"login"_s, u"Open"_s} << 1
            << u"quillmoss: Open does not sign in (it was added without --requires-auth)"_s;
        QTest::newRow("no name") << QStringList{u"login"_s} << 2 << u"wrong use of mcp login"_s;
        QTest::newRow("logout of an unknown one") << QStringList{u"logout"_s, u"Nope"_s} << 1
                                                  << u"quillmoss: Unknown MCP integration: Nope"_s;
    }

    void loginRefusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, errHas);
        CliRunner::run({u"mcp"_s, u"add"_s, u"Open"_s, m_server->sseUrl().toString()});
        const CliRunner::Result result = CliRunner::run(QStringList{u"mcp"_s} + arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
        CliRunner::run({u"mcp"_s, u"remove"_s, u"Open"_s});
    }

    // Steps run in order and share the settings file; "URL" in an argument
    // stands for the reference server's event-stream URL.
    void session_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("outHas"); // standard output contains this
        QTest::addColumn<QString>("errHas"); // standard error contains this ("" = no "quillmoss:")
        const auto row = [](const char* name, const QStringList& arguments, int exitCode,
                            QString outHas, QString errHas = {}) {
            QTest::newRow(name) << (QStringList{u"mcp"_s} + arguments) << exitCode << outHas
                                << errHas;
        };
        row("without a verb", {}, 2, {}, u"mcp needs a verb"_s);
        row("add without a URL", {u"add"_s, u"Everything"_s}, 2, {}, u"Usage:"_s);
        row("the pre-built list", {u"list"_s}, 0,
            u"Linear    pre-built  yes   not connected  0      https://mcp.linear.app/sse\n"_s);
        row("add", {u"add"_s, u"Everything"_s, u"URL"_s, u"--description"_s, u"Reference"_s}, 0,
            u"Added Everything\n"_s,
            u"Warning: Using non-secure connection. Consider HTTPS/WSS for production."_s);
        row("add under a taken name", {u"add"_s, u"Everything"_s, u"https://x.example/sse"_s}, 1,
            {}, u"quillmoss: An integration with the name 'Everything' already exists"_s);
        row("add a pre-built name", {u"add"_s, u"Sentry"_s, u"https://x.example/sse"_s}, 1, {},
            u"already exists"_s);
        row("add an ftp URL", {u"add"_s, u"Files"_s, u"ftp://x.example/sse"_s}, 1, {},
            u"quillmoss: URL scheme must be one of: https, http, wss, ws"_s);
        row("listed as custom", {u"list"_s}, 0, u"Everything  custom     no    not connected"_s);
        row("its tools", {u"tools"_s, u"Everything"_s}, 0, u"mcp_everything_echo"_s);
        row("its tools as JSON", {u"tools"_s, u"Everything"_s, u"--json"_s}, 0,
            u"\"identifier\":\"mcp_everything_get-sum\""_s);
        row("tools of an unknown server", {u"tools"_s, u"Nope"_s}, 1, {},
            u"quillmoss: Unknown MCP integration: Nope"_s);
        row("a pre-built server without a token", {u"tools"_s, u"Linear"_s}, 1, {},
            u"quillmoss: Linear needs a sign-in first: quillmoss mcp login Linear"_s);
        row("call", {u"call"_s, u"Everything"_s, u"echo"_s, u"{\"message\":\"hi there\"}"_s}, 0,
            u"Echo: hi there\n"_s);
        row("call by identifier",
            {u"call"_s, u"Everything"_s, u"mcp_everything_get-sum"_s, u"{\"a\":2,\"b\":3}"_s}, 0,
            u"The sum of 2 and 3 is 5."_s);
        row("call, arguments not JSON", {u"call"_s, u"Everything"_s, u"echo"_s, u"{"_s}, 1, {},
            u"quillmoss: JSON-ARGS must be a JSON object"_s);
        row("call, unknown tool", {u"call"_s, u"Everything"_s, u"nope"_s}, 1, {},
            u"quillmoss: Unknown tool 'nope' on Everything"_s);
        row("call, missing argument", {u"call"_s, u"Everything"_s, u"echo"_s}, 1, {},
            u"Missing required parameter: 'message'"_s);
        row("call, the tool's own error",
            {u"call"_s, u"Everything"_s, u"gzip-file-as-resource"_s,
             u"{\"name\":\"x.gz\",\"data\":\"http://127.0.0.1:1/nothing\"}"_s},
            1, {}, u"MCP tool error: "_s);
        row("remove a pre-built one", {u"remove"_s, u"Linear"_s}, 1, {},
            u"quillmoss: Linear is pre-built and cannot be removed"_s);
        row("remove", {u"remove"_s, u"Everything"_s}, 0, u"Removed Everything\n"_s);
        row("removed for good", {u"remove"_s, u"Everything"_s}, 1, {},
            u"quillmoss: Unknown MCP integration: Everything"_s);
    }

    void session()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, outHas);
        QFETCH(QString, errHas);
        arguments.replaceInStrings(QRegularExpression(u"^URL$"_s), m_server->sseUrl().toString());
        const CliRunner::Result result = CliRunner::run(arguments);
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
        QVERIFY2(result.out.contains(outHas), qPrintable(result.out));
        if (errHas.isEmpty())
            QVERIFY2(!result.err.contains(u"quillmoss:"_s), qPrintable(result.err));
        else
            QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
    }

    // The registry's listing and its document carry a server's tools only
    // when it is connected for the run.
    void toolsListWithServer()
    {
        const QString url = m_server->sseUrl().toString();
        QCOMPARE(CliRunner::run({u"mcp"_s, u"add"_s, u"Demo Server"_s, url}).exitCode, 0);
        const CliRunner::Result without = CliRunner::run({u"tools"_s, u"list"_s});
        QVERIFY2(without.exitCode == 0, qPrintable(without.err));
        QVERIFY(!without.out.contains(u"mcp_"_s));
        const CliRunner::Result with =
            CliRunner::run({u"tools"_s, u"list"_s, u"--json"_s, u"--mcp"_s, u"Demo Server"_s});
        QVERIFY2(with.exitCode == 0, qPrintable(with.err));
        const QJsonObject document = QJsonDocument::fromJson(with.out.toUtf8()).object();
        QVERIFY(document[u"enabledTools"_s].toArray().contains(u"mcp_demo_server_echo"_s));
        QCOMPARE(document[u"localTools"_s].toArray().size(),
                 McpReferenceServer::toolNames().size());
        const CliRunner::Result unknown =
            CliRunner::run({u"tools"_s, u"list"_s, u"--mcp"_s, u"Nope"_s});
        QCOMPARE(unknown.exitCode, 1);
        QVERIFY(unknown.err.contains(u"Unknown MCP integration: Nope"_s));
        const CliRunner::Result ran =
            CliRunner::run({u"tools"_s, u"run"_s, u"mcp_demo_server_echo"_s,
                            u"{\"message\":\"via tools\"}"_s, u"--mcp"_s, u"Demo Server"_s});
        QVERIFY2(ran.exitCode == 0, qPrintable(ran.err));
        QCOMPARE(ran.out, u"Echo: via tools\n"_s);
    }
};

QTEST_GUILESS_MAIN(McpCommandTest)
#include "McpCommandTest.moc"

// quillmoss mcp end to end, with a private keyring and home and the MCP
// reference server: each invocation is a fresh process, so a server added by
// one step is read back from the settings by the next.
#include "CliRunner.h"
#include "KeyringSession.h"
#include "McpReferenceServer.h"
#include "TestPaths.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

class McpCommandTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<McpReferenceServer> m_server;

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
        m_server = std::make_unique<McpReferenceServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
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
            u"quillmoss: Authentication failed. Please try connecting again to re-authenticate."_s);
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

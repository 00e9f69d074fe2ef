// quillmoss call with questions for the assistant, and bench chat, end to end
// against the real local backend with a signed-in user and a private keyring.
#include "CliRunner.h"
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "TestPaths.h"
#include "ToolServiceFakes.h"
#include "WhileServing.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Where `wanted` appear in `lines`, each after the one before; false (with
// what was missing in `missing`) when one does not.
bool inOrder(const QStringList& lines, const QStringList& wanted, QString* missing)
{
    qsizetype from = 0;
    for (const QString& line : wanted) {
        const auto found = std::find_if(lines.cbegin() + from, lines.cend(),
                                        [&](const QString& each) { return each.startsWith(line); });
        if (found == lines.cend()) {
            *missing = line;
            return false;
        }
        from = (found - lines.cbegin()) + 1;
    }
    return true;
}

qsizetype countStarting(const QStringList& lines, const QString& start)
{
    return std::count_if(lines.cbegin(), lines.cend(),
                         [&](const QString& line) { return line.startsWith(start); });
}

} // namespace

class ChatCliTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<LocalBackend> m_backend;
    std::unique_ptr<ToolServiceFake> m_brave;
    QProcessEnvironment m_environment;

    CliRunner::Result run(const QStringList& arguments, const QByteArray& input = {}) const
    {
        // The search service's stand-in answers from this thread meanwhile.
        return whileServing([&] { return CliRunner::run(arguments, input, m_environment); });
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
        // The demo account's calls are what the backend's own MCP server searches,
        // here without its sign-in.
        m_backend = std::make_unique<LocalBackend>(
            LocalBackend::Options{.seedDemo = true, .mcpOpen = true});
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
        const auto tokens = m_backend->signIn(u"robin@example.com"_s, u"Robin Park"_s);
        QVERIFY(tokens);
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(u"QUILLMOSS_BACKEND_URL"_s, m_backend->url().toString());
        // The web search runs against a local stand-in of the service.
        m_brave = std::make_unique<ToolServiceFake>(ToolServiceFake::Service::BraveSearch);
        m_environment.insert(u"QUILLMOSS_BRAVE_BASE_URL"_s, m_brave->url().toString());
        const QList<std::pair<QStringList, QByteArray>> steps = {
            {{u"keychain"_s, u"set"_s, u"com.quillmoss.accesstoken"_s},
             tokens->accessToken.toUtf8()},
            // The assistant asks for the web search only when it is offered.
            {{u"integrations"_s, u"enable"_s, u"Brave Search"_s}, {}},
            {{u"integrations"_s, u"set-key"_s, u"Brave Search"_s}, "BSA-test-key"},
            {{u"mcp"_s, u"add"_s, u"Quillmoss-Demo"_s, m_backend->url().toString() + u"/mcp/sse"_s},
             {}},
        };
        for (const auto& [arguments, input] : steps) {
            const CliRunner::Result result = run(arguments, input);
            QVERIFY2(result.exitCode == 0, qPrintable(result.err));
        }
    }

    void cleanupTestCase()
    {
        m_backend.reset();
        m_brave.reset();
        m_home.reset();
        m_keyring.reset();
    }

    void call_data()
    {
        QTest::addColumn<QStringList>("options"); // after "call --transcript FILE --pace 0.05"
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("inOrder"); // line beginnings, in this order
        QTest::addColumn<QStringList>("absent");  // no line begins so
        QTest::addColumn<int>("answers");         // "Assistant:" lines; -1: not checked
        QTest::addColumn<QString>("errHas");

        const QString nextSteps = u"What are the next steps?"_s;
        const QString summary = u"Summarize the key points from this call"_s;
        const QString search = u"Search the web for Acme pricing"_s;
        QTest::newRow("two questions, the second after the first's answer")
            << QStringList{u"--ask"_s, nextSteps, u"--ask"_s, summary} << 0
            << QStringList{u"You: "_s + nextSteps, u"Assistant: "_s, u"You: "_s + summary,
                           u"Assistant: "_s, u"Call ended"_s}
            << QStringList{u"Tool call:"_s, u"Chat error:"_s} << 2 << QString();
        QTest::newRow("a tool request denied: nothing runs")
            << QStringList{u"--ask"_s, search, u"--approve"_s, u"none"_s} << 0
            << QStringList{u"You: "_s + search,
                           u"Assistant: I can search the web for **Acme pricing**"_s,
                           u"Tool call: brave_web_search"_s,
                           u"  query: Acme pricing"_s,
                           u"Denied"_s,
                           u"Call ended"_s}
            << QStringList{u"Approved"_s, u"Tool result:"_s, u"Tool error:"_s} << 1 << QString();
        QTest::newRow("denied by default")
            << QStringList{u"--ask"_s, search} << 0
            << QStringList{u"Tool call: brave_web_search"_s, u"Denied"_s}
            << QStringList{u"Approved"_s, u"Tool error:"_s} << 1 << QString();
        QTest::newRow("a tool request approved: its result and the follow-up")
            << QStringList{u"--ask"_s, search, u"--approve"_s, u"all"_s, u"--ask"_s, nextSteps} << 0
            << QStringList{u"You: "_s + search,
                           u"Assistant: I can search the web for **Acme pricing**"_s,
                           u"Tool call: brave_web_search"_s,
                           u"  query: Acme pricing"_s,
                           u"Approved"_s,
                           u"Tool result: Title: Coffee - Wikipedia"_s,
                           u"Assistant: "_s,
                           u"You: "_s + nextSteps,
                           u"Assistant: "_s,
                           u"Call ended"_s}
            << QStringList{u"Denied"_s, u"Chat error:"_s, u"Tool error:"_s} << 3 << QString();
        const QString pastCalls = u"Search calls for pricing"_s;
        QTest::newRow("a remote server's tool, connected for the call")
            << QStringList{u"--mcp"_s, u"Quillmoss-Demo"_s, u"--ask"_s,
                           pastCalls,  u"--approve"_s,      u"all"_s}
            << 0 << QStringList{u"You: "_s + pastCalls,
                                u"Assistant: "_s,
                                u"Tool call: mcp_quillmoss_demo_search_calls"_s,
                                u"  query: pricing"_s,
                                u"Approved"_s,
                                u"Tool result: "_s,
                                u"Assistant: "_s,
                                u"Call ended"_s}
            << QStringList{u"Denied"_s, u"Chat error:"_s, u"Tool error:"_s} << 2 << QString();
        QTest::newRow("--mcp, a server that is not there")
            << QStringList{u"--mcp"_s, u"Nowhere"_s, u"--ask"_s, pastCalls} << 1 << QStringList()
            << QStringList{u"You: "_s} << -1 << u"Unknown MCP integration: Nowhere"_s;
        QTest::newRow("export that cannot be written")
            << QStringList{u"--ask"_s, nextSteps, u"--export-chat"_s, u"/no/such/dir/chat.md"_s}
            << 1 << QStringList{u"You: "_s + nextSteps, u"Assistant: "_s, u"Call ended"_s}
            << QStringList() << 1 << u"quillmoss: Could not write /no/such/dir/chat.md"_s;
        QTest::newRow("--approve, neither all nor none")
            << QStringList{u"--approve"_s, u"some"_s} << 2 << QStringList() << QStringList() << -1
            << u"--approve takes all or none"_s;
        QTest::newRow("--ask without the backend")
            << QStringList{u"--ask"_s, nextSteps, u"--no-backend"_s} << 2 << QStringList()
            << QStringList() << -1 << u"--ask needs the backend session"_s;
        QTest::newRow("--ask, blank") << QStringList{u"--ask"_s, u"  "_s} << 2 << QStringList()
                                      << QStringList() << -1 << u"--ask takes a question"_s;
    }

    void call()
    {
        QFETCH(QStringList, options);
        QFETCH(int, exitCode);
        QFETCH(QStringList, inOrder);
        QFETCH(QStringList, absent);
        QFETCH(int, answers);
        QFETCH(QString, errHas);
        const QString transcript = TestPaths::sourceDirectory() + u"/examples/discovery-call.txt"_s;
        const CliRunner::Result result =
            run(QStringList{u"call"_s, u"--transcript"_s, transcript, u"--pace"_s, u"0.05"_s} +
                options);
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err + result.out));
        const QStringList lines = result.out.split(u'\n');
        QString missing;
        QVERIFY2(::inOrder(lines, inOrder, &missing),
                 qPrintable(u"no \""_s + missing + u"\" in:\n"_s + result.out));
        for (const QString& start : absent)
            QVERIFY2(countStarting(lines, start) == 0,
                     qPrintable(start + u" in:\n"_s + result.out));
        if (answers >= 0)
            QCOMPARE(countStarting(lines, u"Assistant: "_s), answers);
        if (!errHas.isEmpty())
            QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
    }

    // The conversation as Markdown, written before the call ends clears it.
    void exportChat()
    {
        const QString file = m_home->path() + u"/chat.md"_s;
        const CliRunner::Result result =
            run({u"call"_s, u"--transcript"_s,
                 TestPaths::sourceDirectory() + u"/examples/discovery-call.txt"_s, u"--pace"_s,
                 u"0.05"_s, u"--ask"_s, u"What are the next steps?"_s, u"--export-chat"_s, file});
        QVERIFY2(result.exitCode == 0, qPrintable(result.err));
        const QString markdown = QString::fromUtf8(TestPaths::readFile(file));
        QVERIFY2(markdown.startsWith(u"# Chat Conversation\n\n**You** ("_s), qPrintable(markdown));
        QVERIFY2(markdown.contains(u"What are the next steps?\n\n**Assistant** ("_s),
                 qPrintable(markdown));
    }

    // A short load test prints its figures (which are not judged here).
    void benchChat()
    {
        const CliRunner::Result result = run({u"bench"_s, u"chat"_s, u"--count"_s, u"5"_s});
        QVERIFY2(result.exitCode == 0, qPrintable(result.err + result.out));
        for (const QString& figure :
             {u"sent 5 chat messages in one call"_s, u"(5 answered, 0 failed"_s,
              u"round trip to the answer: p50 "_s, u"resident memory: "_s, u"export of the "_s}) {
            QVERIFY2(result.out.contains(figure), qPrintable(result.out));
        }
    }

    // Tool calls to the backend's own MCP server, timed; and the ways it is
    // refused before any figure.
    void benchMcp_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<bool>("signInWanted"); // against a backend whose MCP server wants it
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("outputHas");
        QTest::newRow("the demo server's search")
            << QStringList{u"--count"_s, u"3"_s} << false << 0
            << u"3 calls of search_calls, one after the other"_s;
        QTest::newRow("a configured integration, by name")
            << QStringList{u"--mcp"_s, u"Quillmoss-Demo"_s, u"--count"_s, u"2"_s} << false << 0
            << u"2 calls of search_calls, one after the other"_s;
        QTest::newRow("a tool the server lacks")
            << QStringList{u"--tool"_s, u"nothing_here"_s} << false << 1
            << u"the server has no tool \"nothing_here\""_s;
        QTest::newRow("a tool's error") << QStringList{u"--tool"_s, u"get_call_summary"_s,
                                                       u"--args"_s, uR"({"call_id": "nope"})"_s}
                                        << false << 1 << u"call 1: MCP tool error: "_s;
        QTest::newRow("arguments not an object")
            << QStringList{u"--args"_s, u"[1]"_s} << false << 2 << u"--args takes a JSON object"_s;
        QTest::newRow("nothing listening") << QStringList{u"--url"_s, u"http://127.0.0.1:9/sse"_s}
                                           << false << 1 << u"cannot connect to"_s;
        QTest::newRow("an integration that is not configured")
            << QStringList{u"--mcp"_s, u"Nowhere"_s} << false << 1
            << u"Unknown MCP integration: Nowhere"_s;
        QTest::newRow("both --url and --mcp")
            << QStringList{u"--url"_s, u"http://127.0.0.1:9/sse"_s, u"--mcp"_s, u"Quillmoss-Demo"_s}
            << false << 2 << u"--url and --mcp name the server twice"_s;
        QTest::newRow("a server that wants a sign-in: how to sign in")
            << QStringList{u"--count"_s, u"1"_s} << true << 1
            << u"sign in with `quillmoss mcp login NAME` and run `quillmoss bench mcp --mcp "
               u"NAME`"_s;
    }

    void benchMcp()
    {
        QFETCH(QStringList, options);
        QFETCH(bool, signInWanted);
        QFETCH(int, exitCode);
        QFETCH(QString, outputHas);
        QProcessEnvironment environment = m_environment;
        std::unique_ptr<LocalBackend> guarded;
        if (signInWanted) {
            guarded = std::make_unique<LocalBackend>();
            QVERIFY2(guarded->isRunning(), qPrintable(guarded->error()));
            environment.insert(u"QUILLMOSS_BACKEND_URL"_s, guarded->url().toString());
        }
        const CliRunner::Result result = whileServing([&] {
            return CliRunner::run(QStringList{u"bench"_s, u"mcp"_s} + options, {}, environment);
        });
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err + result.out));
        QVERIFY2((result.out + result.err).contains(outputHas),
                 qPrintable(result.err + result.out));
        if (exitCode == 0)
            QVERIFY2(result.out.contains(u"round trip of a tool call: mean "_s),
                     qPrintable(result.out));
        if (signInWanted)
            QVERIFY2(result.err.contains(u"(HTTP 401)"_s), qPrintable(result.err));
    }

    void benchChatWithoutSession()
    {
        QProcessEnvironment environment = m_environment;
        environment.insert(u"QUILLMOSS_BACKEND_URL"_s, u"http://127.0.0.1:9"_s);
        const CliRunner::Result result =
            CliRunner::run({u"bench"_s, u"chat"_s, u"--count"_s, u"1"_s}, {}, environment);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(u"no session with the backend"_s), qPrintable(result.err));
    }
};

QTEST_GUILESS_MAIN(ChatCliTest)
#include "ChatCliTest.moc"

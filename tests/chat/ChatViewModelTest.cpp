// The chat's state machine with a stand-in session and a hand-fired clock:
// per-message time-outs, the backend's answers, approval running the tools in
// order and sending their results in one exact message, denial running
// nothing, suggestions, reconnection and export.
#include "chat/ChatViewModel.h"

#include "chat/ChatSession.h"
#include "store/KeychainManager.h"
#include "tools/LocalToolManager.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QJsonObject parse(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

class StandInSession : public ChatSession
{
public:
    bool isConnected() const override { return connected; }
    bool sendChatMessage(const QString& text) override
    {
        sent.append(text);
        return connected;
    }
    bool getChatHistory(int limit) override
    {
        historyLimits.append(limit);
        return connected;
    }

    bool connected = true;
    QStringList sent;
    QList<int> historyLimits;
};

// Answers with its parameters, or fails when asked to.
class EchoTool : public LocalTool
{
public:
    explicit EchoTool(QString identifier) : m_identifier(std::move(identifier)) {}
    QString identifier() const override { return m_identifier; }
    QString name() const override { return m_identifier; }
    QString description() const override { return {}; }
    QJsonObject parameterSchema() const override { return {{u"type"_s, u"object"_s}}; }
    void execute(const ToolInvocation& call, Done done) override
    {
        ++runs;
        if (call.parameters.value(u"fail"_s).toBool()) {
            done(ToolOutcome::failure(LocalToolError::executionFailed(u"it broke"_s)));
            return;
        }
        done(ToolOutcome::success(
            m_identifier + u" got "_s +
            QString::fromUtf8(QJsonDocument(call.parameters).toJson(QJsonDocument::Compact))));
    }
    std::atomic<int> runs = 0;

private:
    QString m_identifier;
};

} // namespace

class ChatViewModelTest : public QObject
{
    Q_OBJECT

private:
    KeychainManager m_keychain; // never reached: the tools here have no credential
    QList<std::function<void()>> m_scheduled;

    std::unique_ptr<ChatViewModel> makeModel(LocalToolManager& tools, StandInSession& session)
    {
        m_scheduled.clear();
        auto model = std::make_unique<ChatViewModel>(
            tools, [this](std::chrono::milliseconds delay, QObject*, std::function<void()> work) {
                QCOMPARE(delay, ChatViewModel::answerTimeout);
                m_scheduled.append(std::move(work));
            });
        model->setSession(&session);
        return model;
    }

private Q_SLOTS:
    void timeouts_data()
    {
        QTest::addColumn<int>("answered"); // 0: none, 1: before the second send, 2: after it
        QTest::addColumn<bool>("firstTimesOut");
        QTest::newRow("no answer") << 0 << true;
        QTest::newRow("first answered before the second send") << 1 << true;
        QTest::newRow("answered after the second send") << 2 << false;
    }

    // Two quick sends each schedule their own time-out over the one loading
    // flag: the first ends the wait unless an answer came after the second
    // send, and the second then finds nothing left to end.
    void timeouts()
    {
        QFETCH(int, answered);
        QFETCH(bool, firstTimesOut);
        LocalToolManager tools(m_keychain);
        StandInSession session;
        auto model = makeModel(tools, session);
        const QJsonObject answer = parse(R"({"success": true, "content": "ok"})");
        model->sendMessage(u"  first  "_s);
        if (answered == 1)
            model->handleChatResponse(answer);
        model->sendMessage(u"second"_s);
        if (answered == 2)
            model->handleChatResponse(answer);
        QCOMPARE(session.sent, (QStringList{u"first"_s, u"second"_s}));
        QCOMPARE(m_scheduled.size(), 2);
        m_scheduled.first()();
        const QString expected =
            firstTimesOut ? u"Message timeout - please try again"_s : QString();
        QCOMPARE(model->errorMessage(), expected);
        m_scheduled.last()();
        QCOMPARE(model->errorMessage(), expected);
        QVERIFY(!model->isLoading());
        QVERIFY(!model->messages().last().isLoading);
    }

    void responses_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("pending");
        QTest::newRow("failure with its text")
            << QByteArray(R"({"success": false, "error": "Model overloaded"})")
            << u"Model overloaded"_s << 0;
        QTest::newRow("failure without text")
            << QByteArray(R"({"success": false})") << u"Failed to get response from AI"_s << 0;
        QTest::newRow("undecodable") << QByteArray(R"({"success": true, "content": 3})")
                                     << u"Failed to parse AI response"_s << 0;
        QTest::newRow("tool calls to approve")
            << QByteArray(R"({"success": true, "message": {"content": "May I?",
                 "isPendingToolApproval": true, "toolCalls": [{"id": "c1", "name": "echo"}]}})")
            << QString() << 1;
        QTest::newRow("tool calls not marked for approval")
            << QByteArray(R"({"success": true, "content": "x", "toolCalls": [{"name": "echo"}]})")
            << QString() << 0;
    }

    void responses()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QString, error);
        QFETCH(int, pending);
        LocalToolManager tools(m_keychain);
        StandInSession session;
        auto model = makeModel(tools, session);
        model->sendMessage(u"hello"_s);
        model->handleChatResponse(parse(payload));
        QCOMPARE(model->errorMessage(), error);
        QCOMPARE(model->pendingApprovalCount(), pending);
        QVERIFY(!model->isLoading());
        for (const ChatMessage& message : model->messages())
            QVERIFY(!message.isLoading);
    }

    // Approved: the tools run once each, in order, a failure does not stop the
    // next, and the results go back as one exact message.
    void approval()
    {
        LocalToolManager tools(m_keychain);
        auto echo = std::make_shared<EchoTool>(u"echo"_s);
        tools.registerTool(echo);
        StandInSession session;
        auto model = makeModel(tools, session);
        model->handleChatResponse(parse(R"({"success": true, "content": "Three tools",
            "requiresApproval": true, "toolCalls": [
              {"id": "a", "name": "echo", "parameters": {"q": "one"}},
              {"id": "b", "name": "echo", "parameters": {"fail": true}},
              {"id": "c", "name": "not_registered", "parameters": {}}]})"));
        QCOMPARE(model->pendingApprovalCount(), 1);
        model->approve(model->pendingToolApprovals().first().id);
        QCOMPARE(model->pendingApprovalCount(), 0);
        QTRY_COMPARE(session.sent.size(), 1);
        QCOMPARE(echo->runs.load(), 2);
        QCOMPARE(session.sent.first(),
                 u"Here are the tool execution results:\n\n"
                 u"Tool Result:\necho got {\"q\":\"one\"}\n\n"
                 u"Tool Error:\nTool execution failed: it broke\n\n"
                 u"Tool Error:\nTool 'not_registered' not found\n\n"
                 u"Please provide a comprehensive response based on these results."_s);
        QVERIFY(model->isLoading());
        QCOMPARE(model->messages().last().content, u"Processing tool results..."_s);
        // The results stay with the message that asked, for the view and the export.
        QCOMPARE(model->messages().at(model->messages().size() - 2).toolResults->size(), 3);
        QVERIFY(model->exportMarkdown().contains(u"*Tool Results:*\n"_s));
        // Their answer may not come either.
        QCOMPARE(m_scheduled.size(), 1);
        m_scheduled.last()();
        QCOMPARE(model->errorMessage(), u"Message timeout - please try again"_s);
        QVERIFY(!model->messages().last().isLoading);
    }

    void denial()
    {
        LocalToolManager tools(m_keychain);
        auto echo = std::make_shared<EchoTool>(u"echo"_s);
        tools.registerTool(echo);
        StandInSession session;
        auto model = makeModel(tools, session);
        model->handleChatResponse(parse(R"({"success": true, "content": "x",
            "requiresApproval": true, "toolCalls": [{"name": "echo"}]})"));
        model->deny(model->pendingToolApprovals().first().id);
        model->approve(u"no-such-message"_s);
        QTest::qWait(50);
        QCOMPARE(echo->runs.load(), 0);
        QVERIFY(session.sent.isEmpty());
        QCOMPARE(model->pendingApprovalCount(), 0);
    }

    void resultsWithoutConnection()
    {
        LocalToolManager tools(m_keychain);
        StandInSession session;
        session.connected = false;
        auto model = makeModel(tools, session);
        model->sendToolResults({});
        QCOMPARE(model->errorMessage(), u"Cannot send tool results - not connected"_s);
        QVERIFY(session.sent.isEmpty());
    }

    void connection()
    {
        LocalToolManager tools(m_keychain);
        StandInSession session;
        auto model = makeModel(tools, session);
        model->handleConnectStatus(true);
        QCOMPARE(session.historyLimits, QList<int>{50});
        model->sendMessage(u"anyone?"_s);
        model->handleConnectStatus(false);
        QCOMPARE(model->errorMessage(), u"Connection lost. Trying to reconnect..."_s);
        QVERIFY(!model->isLoading());
        QVERIFY(!model->messages().last().isLoading);
    }

    void suggestions()
    {
        LocalToolManager tools(m_keychain);
        auto echo = std::make_shared<EchoTool>(u"brave_web_search"_s);
        tools.registerTool(echo);
        StandInSession session;
        auto model = makeModel(tools, session);
        model->handleAgentSuggestions(parse(R"({"suggestions": [
            {"name": "brave_web_search", "parameters": {"query": "Acme"}, "confidence": 0.7},
            {"reason": "no name"}, 5,
            {"toolName": "notion_create_page", "text": "Save the notes to Notion"}]})"));
        QCOMPARE(model->messages().size(), 2);
        QCOMPARE(model->messages().at(0).content,
                 u"💡 **Agent Suggestion**: Use tool: Brave Web Search"_s);
        QCOMPARE(model->messages().at(1).content,
                 u"💡 **Agent Suggestion**: Save the notes to Notion"_s);
        QVERIFY(model->messages().at(0).id.startsWith(u"agent_suggestion_"_s));
        model->approve(model->messages().at(0).id);
        QTRY_COMPARE(session.sent.size(), 1);
        QCOMPARE(echo->runs.load(), 1);
        QVERIFY(session.sent.first().contains(u"brave_web_search got {\"query\":\"Acme\"}"_s));
    }

    void historyAndExport()
    {
        LocalToolManager tools(m_keychain);
        StandInSession session;
        auto model = makeModel(tools, session);
        model->handleChatHistory(QJsonDocument::fromJson(R"([
            {"content": "Hi", "isFromUser": true, "timestamp": "2026-03-01T10:00:00Z"},
            {"message": "Hello there", "timestamp": "2026-03-01T10:00:01Z"},
            {"no": "content"}])")
                                     .array());
        QCOMPARE(model->messages().size(), 2);
        QCOMPARE(model->messages().at(1).content, u"Hello there"_s);
        const QString markdown = model->exportMarkdown();
        QVERIFY(markdown.startsWith(u"# Chat Conversation\n\n"_s));
        QVERIFY(markdown.contains(u"Hello there"_s));
        model->handleChatCleared();
        QVERIFY(model->messages().isEmpty());
    }
};

QTEST_GUILESS_MAIN(ChatViewModelTest)
#include "ChatViewModelTest.moc"

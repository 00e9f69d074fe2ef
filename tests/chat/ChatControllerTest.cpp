// What the chat panels see: agent mode refused while no tool is enabled, the
// permission prompt for the oldest waiting request, the conversation's rows
// kept in step with the model, and the written export.
#include "chat/ChatController.h"

#include "KeyringSession.h"
#include "RecordingSearchTool.h"
#include "TestPaths.h"
#include "audio/ReplayCaptureBackend.h"
#include "call/CallController.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/ConfigurationManager.h"
#include "tools/LocalToolManager.h"

#include <QAbstractItemModelTester>
#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QJsonObject parse(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

// Everything a ChatController needs, with a call controller that runs calls
// locally and a search tool whose runs can be seen.
struct Fixture
{
    explicit Fixture(const QString& directory)
        : settings(directory + u"/settings.json"_s), configuration(settings, keychain, tools),
          call(capture, settings, CallController::Options{}),
          chat(tools, call, configuration,
               [](std::chrono::milliseconds, QObject*, const std::function<void()>&) {})
    {
        tools.registerTool(search);
    }

    KeychainManager keychain;
    SettingsStore settings;
    LocalToolManager tools{keychain};
    ConfigurationManager configuration;
    ReplayCaptureBackend capture;
    CallController call;
    std::shared_ptr<RecordingSearchTool> search =
        std::make_shared<RecordingSearchTool>(u"found it"_s);
    ChatController chat;
};

} // namespace

class ChatControllerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
    }

    void init() { m_home = std::make_unique<TemporaryHome>(); }

    void agentMode_data()
    {
        QTest::addColumn<QString>("integration"); // switched on first; empty for none
        QTest::addColumn<bool>("starts");
        QTest::newRow("no tool enabled") << QString() << false;
        QTest::newRow("web search enabled") << u"Brave Search"_s << true;
        QTest::newRow("e-mail enabled") << u"Resend"_s << true;
    }

    void agentMode()
    {
        QFETCH(QString, integration);
        QFETCH(bool, starts);
        Fixture f(m_home->path());
        if (!integration.isEmpty())
            QVERIFY(f.configuration.toggleIntegration(integration, true));

        QCOMPARE(f.chat.setAgentModeEnabled(true), starts);
        QCOMPARE(f.chat.isAgentModeEnabled(), starts);
        QCOMPARE(f.call.callModel().isAgentModeEnabled, starts);
        QCOMPARE(f.chat.showingNoToolsNotification(), !starts);
        QCOMPARE(f.chat.agentModeNotice(), starts ? u"Agent Mode Started"_s : QString());

        // Switching off is always allowed and says nothing.
        QVERIFY(f.chat.setAgentModeEnabled(false));
        QVERIFY(!f.call.callModel().isAgentModeEnabled);
        QCOMPARE(f.chat.agentModeNotice(), QString());
        QVERIFY(!f.chat.showingNoToolsNotification());
    }

    // The notice asked for an integration; switching one on answers it.
    void enablingAnIntegrationAnswersTheNotice()
    {
        Fixture f(m_home->path());
        QVERIFY(!f.chat.setAgentModeEnabled(true));
        QVERIFY(f.chat.showingNoToolsNotification());
        QVERIFY(f.configuration.toggleIntegration(u"Brave Search"_s, true));
        QVERIFY(!f.chat.showingNoToolsNotification());
        QVERIFY(f.chat.setAgentModeEnabled(true));
    }

    void approvalPrompt_data()
    {
        QTest::addColumn<QByteArray>("payload"); // empty: an agent suggestion instead
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("intro");
        QTest::addColumn<QStringList>("tools");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("assistant asks for two tools")
            << QByteArray(R"({"success": true, "content": "Shall I?", "isPendingToolApproval": true,
                 "toolCalls": [{"id": "c1", "name": "brave_web_search", "parameters": {"query": "Acme", "count": 3}},
                               {"id": "c2", "name": "mcp_crm_lookup", "parameters": {}}]})")
            << u"Permission Required"_s << u"The AI wants to use the following tools:"_s
            << QStringList{u"Brave Web Search"_s, u"mcp_crm_lookup"_s}
            << QStringList{u"count: 3\nquery: Acme"_s, QString()};
        QTest::newRow("agent suggestion")
            << QByteArray() << u"Agent Suggestion"_s << u"The AI agent suggests using this tool:"_s
            << QStringList{u"Brave Web Search"_s} << QStringList{u"query: Acme pricing"_s};
    }

    void approvalPrompt()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QString, title);
        QFETCH(QString, intro);
        QFETCH(QStringList, tools);
        QFETCH(QStringList, arguments);
        Fixture f(m_home->path());
        QVERIFY(f.chat.approvalPrompt().isEmpty());
        ChatViewModel& model = *f.chat.chatModel();
        if (payload.isEmpty())
            model.handleAgentSuggestions(parse(
                R"({"suggestions": [{"id": "s1", "toolName": "brave_web_search", "confidence": 0.9,
                    "parameters": {"query": "Acme pricing"}, "timestamp": "2026-11-24T10:00:00Z"}]})"));
        else
            model.handleChatResponse(parse(payload));

        const QVariantMap prompt = f.chat.approvalPrompt();
        QCOMPARE(prompt.value(u"title"_s).toString(), title);
        QCOMPARE(prompt.value(u"intro"_s).toString(), intro);
        QCOMPARE(prompt.value(u"waiting"_s).toInt(), 1);
        const QVariantList shown = prompt.value(u"tools"_s).toList();
        QCOMPARE(shown.size(), tools.size());
        for (int i = 0; i < shown.size(); ++i) {
            QCOMPARE(shown.at(i).toMap().value(u"title"_s).toString(), tools.at(i));
            QCOMPARE(shown.at(i).toMap().value(u"arguments"_s).toString(), arguments.at(i));
        }
        // Nothing has run; denying leaves no prompt and still runs nothing.
        model.deny(prompt.value(u"messageId"_s).toString());
        QVERIFY(f.chat.approvalPrompt().isEmpty());
        QTest::qWait(50);
        QVERIFY(f.search->seen().isEmpty());
    }

    // The rows follow every kind of change, as views require, and a message's
    // tool state moves with the approval.
    void rowsFollowTheConversation()
    {
        Fixture f(m_home->path());
        ChatMessageListModel& rows = *f.chat.messages();
        QAbstractItemModelTester tester(&rows,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        ChatViewModel& model = *f.chat.chatModel();
        model.handleChatResponse(parse(R"({"success": true, "content": "hello"})"));
        QCOMPARE(rows.rowCount(), 1);
        model.handleChatResponse(parse(
            R"({"success": true, "content": "Search?", "requiresApproval": true,
                "toolCalls": [{"id": "c1", "name": "brave_web_search", "parameters": {"query": "x"}}]})"));
        QCOMPARE(rows.rowCount(), 2);
        const QModelIndex asking = rows.index(1);
        QCOMPARE(rows.data(asking, ChatMessageListModel::ApprovalStateRole).toInt(),
                 static_cast<int>(ChatViewModel::ApprovalState::Pending));
        QSignalSpy changed(&rows, &QAbstractItemModel::dataChanged);
        model.deny(rows.data(asking, ChatMessageListModel::MessageIdRole).toString());
        QCOMPARE(changed.size(), 1);
        QCOMPARE(rows.data(asking, ChatMessageListModel::ApprovalStateRole).toInt(),
                 static_cast<int>(ChatViewModel::ApprovalState::Denied));
        model.handleChatHistory(QJsonDocument::fromJson(R"([{"content": "a"}, {"content": "b"},
                                                            {"content": "c"}])")
                                    .array());
        QCOMPARE(rows.rowCount(), 3);
        QCOMPARE(rows.data(rows.index(2), ChatMessageListModel::ContentRole).toString(), u"c"_s);
        model.clear();
        QCOMPARE(rows.rowCount(), 0);
    }

    void exportConversation()
    {
        Fixture f(m_home->path());
        f.chat.chatModel()->handleChatResponse(parse(R"({"success": true, "content": "hi"})"));
        const QString path = m_home->path() + u"/chat.md"_s;
        QCOMPARE(f.chat.exportConversation(QUrl::fromLocalFile(path)), QString());
        QFile written(path);
        QVERIFY(written.open(QIODevice::ReadOnly));
        QVERIFY(written.readAll().startsWith("# Chat Conversation\n\n"));
        const QString refused =
            f.chat.exportConversation(QUrl::fromLocalFile(m_home->path() + u"/missing/chat.md"_s));
        QVERIFY2(refused.startsWith(u"Could not write "_s), qPrintable(refused));
    }
};

QTEST_GUILESS_MAIN(ChatControllerTest)
#include "ChatControllerTest.moc"

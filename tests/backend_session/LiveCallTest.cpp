// A call with the backend session, end to end against the real local backend:
// the headless demo from the command line, and a backend that dies mid-call.
#include "CliRunner.h"
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "NotionFake.h"
#include "RecordingSearchTool.h"
#include "TestPaths.h"
#include "ToolServiceFakes.h"
#include "account/AuthenticationService.h"
#include "audio/ReplayCaptureBackend.h"
#include "call/CallController.h"
#include "chat/ChatController.h"
#include "chat/ChatViewModel.h"
#include "mcp/MCPRemoteService.h"
#include "services/Services.h"
#include "session/SessionFactory.h"
#include "session/SocketController.h"
#include "session/SummaryModel.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/ConfigurationManager.h"
#include "tools/LocalToolManager.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QPromise>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString accessKey = QString::fromLatin1(AuthenticationService::accessTokenKeychainKey);

// The services of a signed-in desktop session against `backend`, the sign-in
// already stored (no start-up check) and a recording in place of the sound server.
Services::Options servicesAgainst(const LocalBackend& backend)
{
    Services::Options options;
    options.backendUrl = backend.url();
    options.checkStoredToken = false;
    options.makeCapture = [] { return std::make_unique<ReplayCaptureBackend>(); };
    return options;
}

QList<QJsonObject> jsonLines(const QString& output)
{
    QList<QJsonObject> lines;
    for (const QString& line : output.split(u'\n', Qt::SkipEmptyParts))
        lines << QJsonDocument::fromJson(line.toUtf8()).object();
    return lines;
}

// A web search whose calls the test can see.
} // namespace

class LiveCallTest : public QObject
{
    Q_OBJECT

private:
    // The calls of the signed-in user, newest first.
    QJsonArray calls(LocalBackend& backend, const QString& token)
    {
        const auto reply = backend.request("GET", u"/calls"_s, {}, token);
        return reply.json()[u"data"_s].toArray();
    }

    // What the backend keeps of the tool configuration of the user's one connection.
    QJsonObject storedTools(LocalBackend& backend, const QString& token)
    {
        const auto reply = backend.request("GET", u"/live/tools"_s, {}, token);
        return reply.json()[u"sessions"_s].toArray().first().toObject();
    }

    static QStringList names(const QJsonValue& list)
    {
        QStringList result;
        for (const QJsonValue name : list.toArray())
            result << name.toString();
        return result;
    }

    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
    }

    // quillmoss call --transcript: the session, every line sent once it is
    // ready, the backend's answers, and the call kept by the backend.
    void headlessDemo()
    {
        LocalBackend backend;
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"jordan@example.com"_s, u"Jordan Lee"_s);
        QVERIFY(tokens);
        QVERIFY(KeychainManager::shared().storeKey(tokens->accessToken, accessKey));

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QUILLMOSS_BACKEND_URL"_s, backend.url().toString());
        const QString transcript = TestPaths::sourceDirectory() + u"/examples/discovery-call.txt"_s;
        const auto result = CliRunner::run({u"--json"_s, u"call"_s, u"--transcript"_s, transcript,
                                            u"--pace"_s, u"0.1"_s, u"--agent-mode"_s},
                                           {}, environment);
        QVERIFY2(result.exitCode == 0, qPrintable(result.err));

        QStringList received;
        int sent = 0;
        QStringList states;
        for (const QJsonObject& line : jsonLines(result.out)) {
            const QString event = line[u"event"_s].toString();
            if (event == u"received"_s)
                received << line[u"name"_s].toString();
            else if (event == u"sent"_s)
                ++sent;
            else if (event == u"session"_s)
                states << line[u"state"_s].toString();
        }
        QCOMPARE(states.mid(0, 2), (QStringList{u"connected"_s, u"ready"_s}));
        QCOMPARE(sent, 15);
        QCOMPARE(received.count(u"clientTranscriptionProcessed"_s), 15);
        QCOMPARE(received.count(u"transcriptionReceived"_s), 15);
        QVERIFY(received.count(u"accumulated_summary"_s) >= 4);
        QVERIFY(received.contains(u"connected"_s));
        QVERIFY(received.contains(u"sessionInitialized"_s));
        QVERIFY(received.contains(u"agentModeUpdated"_s));
        QVERIFY(received.contains(u"agentModeStatus"_s));

        // The client closed the session: the call is complete, with what was said.
        const QJsonArray list = calls(backend, tokens->accessToken);
        QCOMPARE(list.size(), 1);
        const QJsonObject call = list.first().toObject();
        QCOMPARE(call[u"status"_s].toString(), u"completed"_s);
        const QJsonArray segments = call[u"transcription"_s][u"segments"_s].toArray();
        QCOMPARE(segments.size(), 15);
        QCOMPARE(segments.first()[u"speaker"_s].toString(), u"Jordan Lee"_s);
        QVERIFY(!call[u"summary"_s][u"content"_s].toString().isEmpty());
        QVERIFY(!call[u"summary"_s][u"action_items"_s].toArray().isEmpty());
        QVERIFY(!backend.log().contains(tokens->accessToken));
    }

    // The backend is killed mid-call and comes back: the session reconnects,
    // initializes again and continues the same call; nothing said is lost.
    void backendKilledMidCall()
    {
        LocalBackend backend;
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"sam@example.com"_s);
        QVERIFY(tokens);
        const QString token = tokens->accessToken;

        SettingsStore settings(m_home->path() + u"/settings.json"_s);
        ReplayCaptureBackend capture;
        SummaryModel summary;
        SessionSettings sessionSettings;
        sessionSettings.backendUrl = backend.url();
        sessionSettings.accessToken = [token] {
            QPromise<std::optional<QString>> promise;
            promise.start();
            promise.addResult(std::optional(token));
            promise.finish();
            return promise.future();
        };
        sessionSettings.timing.socket.reconnectionDelay = 100ms;
        sessionSettings.timing.socket.reconnectionDelayMax = 500ms;
        CallController::Options options;
        options.whisperInputPath = m_home->path() + u"/whisper_input.wav"_s;
        options.makeSession = makeSessionFactory(sessionSettings, &summary);
        CallController controller(capture, settings, options);
        auto* session = dynamic_cast<SocketController*>(controller.session());
        QVERIFY(session);

        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);
        const QString callId = controller.callModel().wsConnectionId;
        QVERIFY(!callId.isEmpty());
        controller.handleRecognizedText(u"We need the proposal before the board meets."_s);
        QTest::qWait(300); // stored before it is answered; give it the time to arrive

        backend.kill();
        QTRY_VERIFY_WITH_TIMEOUT(!session->isConnected(), 15'000);
        QElapsedTimer sinceRestart;
        QVERIFY(backend.restart());
        sinceRestart.start();
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 20'000);
        qInfo("session ready again %lld ms after the backend restarted", sinceRestart.elapsed());
        QCOMPARE(controller.callModel().wsConnectionId, callId);

        controller.handleRecognizedText(u"I'll send the revised pricing by Friday."_s);
        QTest::qWait(300);
        controller.endCall();
        QTRY_VERIFY_WITH_TIMEOUT(
            calls(backend, token).first()[u"status"_s].toString() == u"completed"_s, 15'000);
        const QJsonObject call = calls(backend, token).first().toObject();
        QCOMPARE(call[u"id"_s].toString(), callId);
        const QString text = call[u"transcription"_s][u"text"_s].toString();
        QVERIFY2(text.contains(u"proposal before the board"_s), qPrintable(text));
        QVERIFY2(text.contains(u"revised pricing by Friday"_s), qPrintable(text));
    }

    // Switching an integration on during a call sends the backend the new
    // tool configuration at once; the next call starts with it.
    void integrationChangesReachTheBackend()
    {
        LocalBackend backend;
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"riley@example.com"_s);
        QVERIFY(tokens);
        const QString token = tokens->accessToken;
        QVERIFY(KeychainManager::shared().storeKey(token, accessKey));

        SettingsStore settings(m_home->path() + u"/integrations-settings.json"_s);
        Services services(settings, KeychainManager::shared(), servicesAgainst(backend));
        ConfigurationManager& configuration = services.configurationManager();
        CallController& controller = services.callController();
        auto* session = dynamic_cast<SocketController*>(controller.session());
        QVERIFY(session);

        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);
        QJsonObject stored = storedTools(backend, token);
        QCOMPARE(stored[u"updatedBy"_s].toString(), u"initializeSession"_s);
        QCOMPARE(names(stored[u"document"_s][u"enabledTools"_s]), QStringList());

        QVERIFY(configuration.toggleIntegration(u"Brave Search"_s, true));
        const QStringList brave{u"brave_web_search"_s, u"brave_local_search"_s};
        QTRY_COMPARE_WITH_TIMEOUT(
            names(storedTools(backend, token)[u"document"_s][u"enabledTools"_s]), brave, 10'000);
        stored = storedTools(backend, token);
        QCOMPARE(stored[u"updatedBy"_s].toString(), u"update_local_tools"_s);
        const QJsonArray definitions = stored[u"document"_s][u"localTools"_s].toArray();
        QCOMPARE(definitions.size(), 2);
        QCOMPARE(definitions.first()[u"parameters"_s][u"required"_s].toArray(),
                 QJsonArray{u"query"_s});
        QCOMPARE(session->enabledTools(), QStringList()); // as the session reported it at start
        controller.endCall();
        QTRY_VERIFY_WITH_TIMEOUT(!session->isConnected(), 10'000);

        // Changed between calls: nothing to send, but the next session starts with it.
        QVERIFY(configuration.toggleIntegration(u"Brave Search"_s, false));
        QVERIFY(configuration.toggleIntegration(u"Firecrawl"_s, true));
        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);
        stored = storedTools(backend, token);
        QCOMPARE(stored[u"updatedBy"_s].toString(), u"initializeSession"_s);
        const QStringList firecrawl{u"firecrawl_scrape"_s, u"firecrawl_map"_s,
                                    u"firecrawl_search"_s};
        QCOMPARE(names(stored[u"document"_s][u"enabledTools"_s]), firecrawl);
        QCOMPARE(session->enabledTools(), firecrawl);
        controller.endCall();
    }

    // Ask, approve, the tool runs once with the assistant's arguments, its
    // result goes back in the exact results message, and an answer follows.
    void chatRunsAnApprovedTool()
    {
        LocalBackend backend;
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"casey@example.com"_s);
        QVERIFY(tokens);
        QVERIFY(KeychainManager::shared().storeKey(tokens->accessToken, accessKey));

        SettingsStore settings(m_home->path() + u"/chat-settings.json"_s);
        Services services(settings, KeychainManager::shared(), servicesAgainst(backend));
        auto search =
            std::make_shared<RecordingSearchTool>(u"Acme lists its pricing at $49 per seat."_s);
        services.localToolManager().registerTool(search);
        QVERIFY(services.configurationManager().toggleIntegration(u"Brave Search"_s, true));
        CallController& controller = services.callController();
        ChatViewModel& chat = *services.chat().chatModel();
        auto* session = dynamic_cast<SocketController*>(controller.session());
        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);

        chat.sendMessage(u"Search the web for Acme pricing"_s);
        QVERIFY(controller.callModel().hasActiveChat);
        QVERIFY(controller.callModel().lastChatActivity.isValid());
        QTRY_COMPARE_WITH_TIMEOUT(chat.pendingApprovalCount(), 1, 10'000);
        const ChatMessage asking = chat.pendingToolApprovals().first();
        QCOMPARE(asking.toolCalls->first().name, u"brave_web_search"_s);
        QVERIFY(search->seen().isEmpty());

        chat.approve(asking.id);
        QTRY_COMPARE_WITH_TIMEOUT(search->seen().size(), 1, 10'000);
        QVERIFY2(search->seen().first().contains(u"Acme"_s), qPrintable(search->seen().first()));
        // The follow-up answer replaces the results' placeholder.
        QTRY_VERIFY_WITH_TIMEOUT(chat.messages().last().id != asking.id && !chat.isLoading() &&
                                     !chat.messages().last().isLoading,
                                 10'000);
        QCOMPARE(search->seen().size(), 1);
        QCOMPARE(chat.errorMessage(), QString());

        // What the backend keeps of the conversation holds the results message as sent.
        chat.handleConnectStatus(true);
        const QString expected = ChatViewModel::resultsMessage(
            {ToolResult{{}, {}, u"Acme lists its pricing at $49 per seat."_s, true}});
        QTRY_VERIFY_WITH_TIMEOUT(std::any_of(chat.messages().cbegin(), chat.messages().cend(),
                                             [&](const ChatMessage& m) {
                                                 return m.isFromUser && m.content == expected;
                                             }),
                                 10'000);
        controller.endCall();
        QVERIFY(chat.messages().isEmpty());
        QVERIFY(!controller.callModel().hasActiveChat);
    }

    // The built-in web search, end to end: the assistant asks for it, the user
    // approves, the search service (a local stand-in) is asked with the
    // user's key, and the answer to the results quotes what it found.
    void chatRunsTheWebSearchAgainstTheService()
    {
        LocalBackend backend;
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"casey@example.com"_s);
        QVERIFY(tokens);
        QVERIFY(KeychainManager::shared().storeKey(tokens->accessToken, accessKey));
        ToolServiceFake brave(ToolServiceFake::Service::BraveSearch);

        SettingsStore settings(m_home->path() + u"/search-settings.json"_s);
        Services::Options options = servicesAgainst(backend);
        options.toolServices.braveSearch.baseUrl = brave.url();
        Services services(settings, KeychainManager::shared(), options);
        const QString key = u"BSA-live-test-5be1"_s;
        QVERIFY(services.configurationManager().setAPIKey(u"Brave Search"_s, key));
        QVERIFY(services.configurationManager().toggleIntegration(u"Brave Search"_s, true));
        CallController& controller = services.callController();
        ChatViewModel& chat = *services.chat().chatModel();
        auto* session = dynamic_cast<SocketController*>(controller.session());
        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);

        chat.sendMessage(u"Search the web for coffee"_s);
        QTRY_COMPARE_WITH_TIMEOUT(chat.pendingApprovalCount(), 1, 10'000);
        QVERIFY(brave.requests().isEmpty());
        chat.approve(chat.pendingToolApprovals().first().id);
        QTRY_VERIFY_WITH_TIMEOUT(
            !chat.isLoading() && !chat.messages().last().isLoading &&
                !chat.messages().last().isFromUser &&
                chat.messages().last().content.contains(u"Coffee - Wikipedia"_s),
            15'000);
        QCOMPARE(brave.requests().size(), 1);
        const HttpStub::Request request = brave.requests().first();
        QCOMPARE(request.method, QByteArray("GET"));
        QVERIFY2(request.path.startsWith("/res/v1/web/search?") &&
                     request.path.contains("q=coffee"),
                 request.path.constData());
        QCOMPARE(request.headers.value("x-subscription-token"), key.toUtf8());
        QCOMPARE(chat.errorMessage(), QString());
        controller.endCall();
    }

    // A remote MCP server's tool, end to end: the backend's own demo server is
    // connected during the call, its tools reach the assistant in an updated
    // tool document, and on the user's yes the call goes to that server and what it
    // found comes back into the conversation.
    void chatRunsARemoteServersTool()
    {
        // The MCP server's own sign-in is not what this is about.
        LocalBackend backend(LocalBackend::Options{.seedDemo = true, .mcpOpen = true});
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(LocalBackend::demoEmail());
        QVERIFY(tokens);
        QVERIFY(KeychainManager::shared().storeKey(tokens->accessToken, accessKey));

        SettingsStore settings(m_home->path() + u"/mcp-settings.json"_s);
        Services services(settings, KeychainManager::shared(), servicesAgainst(backend));
        MCPRemoteService& mcp = services.mcpService();
        const QString demo = u"Quillmoss Demo"_s;
        QCOMPARE(mcp.addCustomIntegration(demo, backend.url().toString() + u"/mcp/sse"_s, false,
                                          u"The demo account's calls"_s),
                 std::nullopt);
        CallController& controller = services.callController();
        ChatViewModel& chat = *services.chat().chatModel();
        auto* session = dynamic_cast<SocketController*>(controller.session());
        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);

        // Connected during the call: its tools reach the backend as an updated
        // tool document, without which the assistant would not offer them.
        const QString search = u"mcp_quillmoss_demo_search_calls"_s;
        mcp.connectToIntegration(*mcp.integration(demo));
        QTRY_VERIFY_WITH_TIMEOUT(services.localToolManager().tool(search) != nullptr, 15'000);
        QTRY_VERIFY_WITH_TIMEOUT(
            session->localToolsConfigJson().value_or(QString()).contains(search), 10'000);

        chat.sendMessage(u"Search calls for pricing"_s);
        QTRY_COMPARE_WITH_TIMEOUT(chat.pendingApprovalCount(), 1, 10'000);
        const ChatMessage asking = chat.pendingToolApprovals().first();
        QCOMPARE(asking.toolCalls->first().name, search);
        const int postsBefore = backend.requestCount(u"POST"_s, u"/mcp/messages"_s);

        chat.approve(asking.id);
        QTRY_VERIFY_WITH_TIMEOUT(chat.messages().last().id != asking.id && !chat.isLoading() &&
                                     !chat.messages().last().isLoading,
                                 15'000);
        QCOMPARE(chat.errorMessage(), QString());
        QVERIFY(backend.requestCount(u"POST"_s, u"/mcp/messages"_s) > postsBefore);
        // The server's answer went back as the tool's result, and the
        // assistant's reply shows it.
        const ChatMessage& answered =
            *std::find_if(chat.messages().cbegin(), chat.messages().cend(),
                          [&](const ChatMessage& m) { return m.id == asking.id; });
        QVERIFY(answered.toolResults && answered.toolResults->size() == 1);
        QVERIFY2(answered.toolResults->first().success,
                 qPrintable(answered.toolResults->first().result));
        QVERIFY2(answered.toolResults->first().result.contains(u"match"_s),
                 qPrintable(answered.toolResults->first().result));
        QVERIFY2(chat.messages().last().content.contains(search),
                 qPrintable(chat.messages().last().content));
        controller.endCall();
    }

    // After a call's words have been heard, the assistant asks to save the
    // notes to Notion; approved, the page is in the default database with the
    // call's action items as to-dos.
    void actionItemsGoToNotion()
    {
        LocalBackend backend;
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"jordan@example.com"_s, u"Jordan Lee"_s);
        QVERIFY(tokens);
        QVERIFY(KeychainManager::shared().storeKey(tokens->accessToken, accessKey));
        NotionFake notion;

        SettingsStore settings(m_home->path() + u"/notion-settings.json"_s);
        Services::Options options = servicesAgainst(backend);
        options.toolServices.notion.baseUrl = notion.url();
        Services services(settings, KeychainManager::shared(), options);
        ConfigurationManager& configuration = services.configurationManager();
        QVERIFY(configuration.setAPIKey(u"Notion"_s, QString::fromLatin1(NotionFake::token)));
        QVERIFY(configuration.setFieldValue(u"Notion"_s, u"database_id"_s,
                                            QString::fromLatin1(NotionFake::databaseId)));
        QVERIFY(configuration.toggleIntegration(u"Notion"_s, true));
        CallController& controller = services.callController();
        ChatViewModel& chat = *services.chat().chatModel();
        auto* session = dynamic_cast<SocketController*>(controller.session());
        QVERIFY(controller.startCall());
        QTRY_VERIFY_WITH_TIMEOUT(session->sessionReady(), 15'000);

        // The call: every line of a sales call, until the summary holds its commitments.
        const QString transcript = QString::fromUtf8(
            TestPaths::readFile(TestPaths::sourceDirectory() + u"/examples/discovery-call.txt"_s));
        for (const QString& line : transcript.split(u'\n', Qt::SkipEmptyParts)) {
            const qsizetype colon = line.indexOf(u": "_s);
            QVERIFY(session->sendClientTranscription(
                line.mid(colon + 2), false, line.left(colon).trimmed(), 0.95, std::nullopt));
        }
        QTRY_VERIFY_WITH_TIMEOUT(!services.summaryModel().actionItems().isEmpty(), 30'000);

        chat.sendMessage(u"Save the action items to Notion"_s);
        QTRY_COMPARE_WITH_TIMEOUT(chat.pendingApprovalCount(), 1, 10'000);
        QCOMPARE(chat.pendingToolApprovals().first().toolCalls->first().name,
                 u"notion_create_page"_s);
        const qsizetype before = notion.pagesIn(QString::fromLatin1(NotionFake::databaseId)).size();
        const QString asking = chat.pendingToolApprovals().first().id;
        chat.approve(asking);
        // The answer to the results follows the message that asked.
        QTRY_VERIFY_WITH_TIMEOUT(!chat.isLoading() && !chat.messages().last().isLoading &&
                                     chat.messages().last().id != asking,
                                 15'000);
        QCOMPARE(chat.errorMessage(), QString());

        const QList<QJsonObject> pages =
            notion.pagesIn(QString::fromLatin1(NotionFake::databaseId));
        QCOMPARE(pages.size(), before + 1);
        QStringList todos;
        for (const QJsonValue block : notion.children(pages.last().value(u"id"_s).toString())) {
            if (block[u"type"_s].toString() == u"to_do"_s)
                todos << block[u"to_do"_s][u"rich_text"_s][0][u"text"_s][u"content"_s].toString();
        }
        QCOMPARE(todos.size(), services.summaryModel().actionItems().size());
        controller.endCall();
    }
};

QTEST_GUILESS_MAIN(LiveCallTest)
#include "LiveCallTest.moc"

// The remote MCP service: the add-integration form's checks, the custom
// integrations kept in the settings, connecting (tokens, refusals, errors told
// apart), tool discovery with its fallback, health checks, dropped streams,
// and remote tools run through the tool registry against the reference server.
#include "mcp/MCPRemoteService.h"

#include "LogCapture.h"
#include "McpReferenceServer.h"
#include "McpServiceFixture.h"
#include "SseTestServer.h"
#include "mcp/MCPRemoteTool.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/LocalToolManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString scriptedName = u"Scripted"_s;

// An MCP server of the test's own over SseTestServer: answers each request
// method as scripted (a result, an error, or nothing at all).
class ScriptedMcpServer
{
public:
    struct Reply
    {
        QJsonValue result;
        std::optional<QString> error; // answered as a JSON-RPC error with this message
        bool silent = false;          // never answered
    };

    ScriptedMcpServer()
    {
        replies[u"initialize"_s] = {
            QJsonObject{
                {u"protocolVersion"_s, u"2024-11-05"_s},
                {u"capabilities"_s, QJsonObject{}},
                {u"serverInfo"_s, QJsonObject{{u"name"_s, u"scripted"_s}, {u"version"_s, u"1"_s}}}},
            std::nullopt, false};
        replies[u"tools/list"_s] = {QJsonObject{{u"tools"_s, toolList({u"search_calls"_s})}},
                                    std::nullopt, false};
        replies[u"ping"_s] = {QJsonObject{}, std::nullopt, false};
        server.onPost = [this](const SseTestServer::Request& request) { answer(request); };
    }

    static QJsonArray toolList(const QStringList& names)
    {
        QJsonArray tools;
        for (const QString& name : names)
            tools.append(
                QJsonObject{{u"name"_s, name},
                            {u"description"_s, u"The "_s + name + u" tool"_s},
                            {u"inputSchema"_s, QJsonObject{{u"type"_s, u"object"_s},
                                                           {u"properties"_s, QJsonObject{}}}}});
        return tools;
    }

    int count(const QString& method) const { return static_cast<int>(methods.count(method)); }

    SseTestServer server;
    QHash<QString, Reply> replies;
    // Called after the client said it is initialized.
    std::function<void()> onInitialized;
    QStringList methods;

private:
    void answer(const SseTestServer::Request& request)
    {
        const QJsonObject message = QJsonDocument::fromJson(request.body).object();
        const QString method = message.value(u"method"_s).toString();
        methods.append(method);
        if (method == u"notifications/initialized"_s && onInitialized) {
            QTimer::singleShot(0, &server, [this] { onInitialized(); });
            return;
        }
        if (!message.contains(u"id"_s) || !replies.contains(method))
            return;
        const Reply reply = replies.value(method);
        if (reply.silent)
            return;
        QJsonObject answer{{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, message.value(u"id"_s)}};
        if (reply.error)
            answer.insert(u"error"_s,
                          QJsonObject{{u"code"_s, -32001}, {u"message"_s, *reply.error}});
        else
            answer.insert(u"result"_s, reply.result);
        const QByteArray json = QJsonDocument(answer).toJson(QJsonDocument::Compact);
        QTimer::singleShot(0, &server, [this, json] { server.pushMessage(json); });
    }
};

std::optional<QString> connectAndWait(MCPRemoteService& service, const MCPRemoteConfig& config)
{
    return McpServiceFixture::outcomeOf(
        [&](const MCPRemoteService::Done& done) { service.connectToIntegration(config, done); },
        15000);
}

bool waitForDiscovery(MCPRemoteService& service, const QString& name, int timeoutMs = 15000)
{
    QSignalSpy discovered(&service, &MCPRemoteService::toolsDiscovered);
    return QTest::qWaitFor(
        [&] {
            return std::any_of(discovered.cbegin(), discovered.cend(),
                               [&](const QList<QVariant>& args) { return args.at(0) == name; });
        },
        timeoutMs);
}

MCPRemoteConfig customConfig(const QString& name, const QUrl& url, bool requiresAuth = false)
{
    MCPRemoteConfig config;
    config.id = QUuid::createUuid();
    config.name = name;
    config.url = url.toString();
    config.requiresAuth = requiresAuth;
    config.isCustom = true;
    config.dateAdded = QDateTime::currentDateTimeUtc();
    return config;
}

} // namespace

class MCPRemoteServiceTest : public QObject
{
    Q_OBJECT

private:
    McpServiceFixture m_fixture{u"QuillmossMcpTest"_s};
    MCPRemoteService::Timing m_fast{300ms, 100ms, 30'000ms};

    std::unique_ptr<MCPRemoteService> makeService(MCPRemoteService::Timing timing = {})
    {
        return m_fixture.makeService(timing);
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString unavailable = m_fixture.unavailable();
        QVERIFY2(unavailable.isEmpty(), qPrintable(unavailable));
    }

    void init() { m_fixture.begin(); }
    void cleanup() { m_fixture.end(); }

    // --- The add-integration form.

    void urlValidation_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("warning");
        const QString insecure =
            u"Warning: Using non-secure connection. Consider HTTPS/WSS for production."_s;
        QTest::newRow("empty") << u""_s << u"URL cannot be empty"_s << u""_s;
        QTest::newRow("blank") << u"   "_s << u"URL cannot be empty"_s << u""_s;
        QTest::newRow("not a URL")
            << u"http://exa mple.com/sse"_s << u"Invalid URL format"_s << u""_s;
        QTest::newRow("no scheme")
            << u"mcp.example.com/sse"_s << u"URL must include a scheme (https, http, wss, ws)"_s
            << u""_s;
        QTest::newRow("ftp") << u"ftp://example.com/sse"_s
                             << u"URL scheme must be one of: https, http, wss, ws"_s << u""_s;
        QTest::newRow("https") << u"https://example.com/sse"_s << u""_s << u""_s;
        QTest::newRow("wss") << u"wss://example.com/sse"_s << u""_s << u""_s;
        QTest::newRow("http") << u"http://example.com/sse"_s << u""_s << insecure;
        QTest::newRow("ws") << u"ws://example.com/sse"_s << u""_s << insecure;
    }

    void urlValidation()
    {
        QFETCH(QString, url);
        QFETCH(QString, error);
        QFETCH(QString, warning);
        const MCPUrlCheck check = MCPUrlCheck::of(url);
        QCOMPARE(check.error.value_or(QString()), error);
        QCOMPARE(check.warning.value_or(QString()), warning);
        // The form refuses exactly what the check refuses.
        const auto service = makeService();
        const std::optional<QString> added =
            service->addCustomIntegration(u"Form"_s, url, false, {});
        QCOMPARE(added.value_or(QString()), error);
        QCOMPARE(service->customIntegrations().size(), error.isEmpty() ? 1 : 0);
    }

    void toolIdentifiers_data()
    {
        QTest::addColumn<QString>("integration");
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QString>("identifier");
        QTest::newRow("spaces") << u"Quillmoss Demo"_s << u"search_calls"_s
                                << u"mcp_quillmoss_demo_search_calls"_s;
        QTest::newRow("hyphen kept in the tool")
            << u"Linear"_s << u"create-issue"_s << u"mcp_linear_create-issue"_s;
        QTest::newRow("runs become one")
            << u"My -- Server!"_s << u"get.thing v2"_s << u"mcp_my_server__get_thing_v2"_s;
        QTest::newRow("letters outside a-z") << u"Café 2"_s << u"naïve"_s << u"mcp_caf_2_na_ve"_s;
    }

    void toolIdentifiers()
    {
        QFETCH(QString, integration);
        QFETCH(QString, tool);
        QFETCH(QString, identifier);
        QCOMPARE(MCPRemoteTool::identifierFor(integration, tool), identifier);
    }

    // --- Custom integrations in the settings.

    void customIntegrationsPersist()
    {
        LogCapture log;
        {
            const auto service = makeService();
            QCOMPARE(service->allIntegrations().size(), 6);
            QCOMPARE(service->addCustomIntegration(u"Demo"_s, u"https://demo.example/sse"_s, true,
                                                   u"A demo"_s),
                     std::nullopt);
            QCOMPARE(
                service->addCustomIntegration(u"Other"_s, u"http://other.example/sse"_s, false, {}),
                std::nullopt);
            // Names are unique across pre-built and custom integrations.
            for (const QString& taken : {u"Demo"_s, u"Linear"_s})
                QCOMPARE(
                    service->addCustomIntegration(taken, u"https://x.example/sse"_s, false, {}),
                    u"An integration with the name '"_s + taken + u"' already exists"_s);
        }
        QVERIFY(log.lines().contains(u"Added custom MCP integration: Demo"_s));

        m_fixture.begin();
        auto reloaded = makeService();
        QVERIFY(log.lines().contains(u"Loaded 2 custom MCP integrations"_s));
        const QList<MCPRemoteConfig> custom = reloaded->customIntegrations();
        QCOMPARE(custom.size(), 2);
        QCOMPARE(custom.at(0).name, u"Demo"_s);
        QCOMPARE(custom.at(0).description, u"A demo"_s);
        QVERIFY(custom.at(0).requiresAuth && custom.at(0).isCustom);
        QVERIFY(!custom.at(0).id.isNull() && custom.at(0).dateAdded.isValid());
        QCOMPARE(reloaded->allIntegrations().at(6).name, u"Demo"_s);

        QVERIFY(reloaded->removeCustomIntegration(u"Demo"_s));
        QVERIFY(!reloaded->removeCustomIntegration(u"Linear"_s));
        QVERIFY(log.lines().contains(u"Removed custom MCP integration: Demo"_s));
        reloaded.reset();
        m_fixture.begin();
        QCOMPARE(makeService()->customIntegrations().size(), 1);
    }

    void corruptSettings_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::newRow("not a list") << QJsonValue(u"oops"_s);
        QTest::newRow("an entry without a name")
            << QJsonValue(QJsonArray{QJsonObject{{u"url"_s, u"https://x/sse"_s}}});
    }

    void corruptSettings()
    {
        QFETCH(QJsonValue, stored);
        QVERIFY(m_fixture.settings().setValue(QString::fromLatin1(MCPRemoteService::settingsKey),
                                              stored));
        LogCapture log;
        const auto service = makeService();
        QVERIFY(service->customIntegrations().isEmpty());
        QCOMPARE(log.lines({u"Failed to load custom integrations: "_s}).size(), 1);
        // What the user adds next replaces what could not be read.
        QCOMPARE(service->addCustomIntegration(u"Fresh"_s, u"https://f.example/sse"_s, false, {}),
                 std::nullopt);
        QVERIFY(m_fixture.settings()
                    .value(QString::fromLatin1(MCPRemoteService::settingsKey))
                    .isArray());
    }

    // --- Connecting.

    void refusedBeforeAnyRequest_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("requiresAuth");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("logLine");
        QTest::newRow("no /sse in the URL")
            << u"/events"_s << false << QString() // the error names the URL
            << u"Connection failed: Unsupported MCP server URL format: "_s;
        QTest::newRow("auth without a token nor a browser to sign in with")
            << u"/sse"_s << true << u"OAuth presentation context error"_s
            << u"Critical: Auth required for Scripted but no token available after "
               u"checks and OAuth attempt."_s;
    }

    void refusedBeforeAnyRequest()
    {
        QFETCH(QString, path);
        QFETCH(bool, requiresAuth);
        QFETCH(QString, error);
        QFETCH(QString, logLine);
        ScriptedMcpServer scripted;
        const QUrl url = scripted.server.url(path);
        LogCapture log;
        const auto service = makeService();
        const std::optional<QString> outcome =
            connectAndWait(*service, customConfig(scriptedName, url, requiresAuth));
        QVERIFY(outcome.has_value());
        QCOMPARE(*outcome, error.isEmpty() ? u"Unsupported MCP server URL format: "_s +
                                                 url.toString() + u". Must contain '/sse'."_s
                                           : error);
        QVERIFY(scripted.server.requests().isEmpty());
        QVERIFY2(!log.lines({logLine}).isEmpty(), qPrintable(log.lines().join(u'\n')));
        QVERIFY(service->connectedIntegrations().isEmpty());
        QVERIFY(service->isConnecting().isEmpty());
        QCOMPARE(service->lastError(scriptedName), *outcome);
    }

    // The server's error texts, told apart as the user reads them; an
    // authentication failure also deletes the stored token.
    void errorClassification_data()
    {
        QTest::addColumn<QString>("serverError");
        QTest::addColumn<QString>("reported");
        QTest::addColumn<bool>("tokenDeleted");
        const QString auth =
            u"Authentication failed. Please try connecting again to re-authenticate."_s;
        const QString unreachable = u"Cannot reach the MCP server. Check if the URL is correct "
                                    u"and the server is running."_s;
        QTest::newRow("Unauthorized") << u"Unauthorized"_s << auth << true;
        QTest::newRow("UNAUTHORIZED") << u"UNAUTHORIZED request"_s << auth << true;
        QTest::newRow("unAuthorized") << u"token unAuthorized"_s << auth << true;
        QTest::newRow("forbidden") << u"Forbidden"_s << auth << true;
        QTest::newRow("invalid_client") << u"invalid_client"_s << auth << true;
        QTest::newRow("oauth") << u"OAuth token expired"_s << auth << true;
        QTest::newRow("authentication") << u"Authentication required"_s << auth << true;
        QTest::newRow("connection") << u"Connection reset by peer"_s << unreachable << false;
        QTest::newRow("network") << u"Network is down"_s << unreachable << false;
        QTest::newRow("anything else")
            << u"Server overloaded"_s << u"MCP error -32001: Server overloaded"_s << false;
    }

    void errorClassification()
    {
        QFETCH(QString, serverError);
        QFETCH(QString, reported);
        QFETCH(bool, tokenDeleted);
        ScriptedMcpServer scripted;
        scripted.replies[u"initialize"_s] = {{}, serverError, false};
        const MCPRemoteConfig config = customConfig(scriptedName, scripted.server.url(), true);
        QVERIFY(m_fixture.keychain().storeKey(u"stored-token"_s, u"mcp_token_"_s + scriptedName));
        LogCapture log;
        const auto service = makeService();
        QCOMPARE(connectAndWait(*service, config), std::optional(reported));
        QCOMPARE(!m_fixture.keychain().readKey(u"mcp_token_"_s + scriptedName).has_value(),
                 tokenDeleted);
        QCOMPARE(log.lines({u"Authentication failed for Scripted. Token cleared."_s}).size(),
                 tokenDeleted ? 1 : 0);
        QVERIFY(log.lines().contains(u"Using existing stored OAuth token for Scripted"_s));
        QVERIFY(service->connectedIntegrations().isEmpty());
        // The token went to the server, never into the log.
        QVERIFY(!log.lines().join(u'\n').contains(u"stored-token"_s));
    }

    void connectingTwiceStartsOneAttempt()
    {
        ScriptedMcpServer scripted;
        LogCapture log;
        const auto service = makeService(m_fast);
        const MCPRemoteConfig config = customConfig(scriptedName, scripted.server.url());
        QList<std::optional<QString>> outcomes;
        const auto record = [&](const std::optional<QString>& error) { outcomes.append(error); };
        service->connectToIntegration(config, record);
        service->connectToIntegration(config, record);
        QCOMPARE(service->connectingNames(), QStringList{scriptedName});
        QVERIFY(QTest::qWaitFor([&] { return outcomes.size() == 2; }, 10000));
        QCOMPARE(outcomes, (QList<std::optional<QString>>{std::nullopt, std::nullopt}));
        QVERIFY(log.lines().contains(u"Scripted already in progress, skipping"_s));
        QCOMPARE(scripted.server.requests("GET").size(), 1);
        QCOMPARE(scripted.count(u"initialize"_s), 1);
        // Once connected, a third request connects nothing new either.
        QVERIFY(!connectAndWait(*service, config).has_value());
        QVERIFY(log.lines().contains(u"Scripted is already connected"_s));
        QCOMPARE(scripted.count(u"initialize"_s), 1);
    }

    // tools/list slower than the limit: the transport's pushed list is polled,
    // three times at most, 500 ms (here 100 ms) apart.
    void slowToolListFallsBackToTransport_data()
    {
        QTest::addColumn<QStringList>("pushed");
        QTest::addColumn<int>("polls");
        QTest::newRow("the server pushed its tools") << QStringList{u"a"_s, u"b"_s} << 1;
        QTest::newRow("nothing pushed") << QStringList() << 3;
    }

    void slowToolListFallsBackToTransport()
    {
        QFETCH(QStringList, pushed);
        QFETCH(int, polls);
        ScriptedMcpServer scripted;
        scripted.replies[u"tools/list"_s].silent = true;
        scripted.onInitialized = [&] {
            if (!pushed.isEmpty())
                scripted.server.pushMessage(
                    QJsonDocument(
                        QJsonObject{
                            {u"jsonrpc"_s, u"2.0"_s},
                            {u"method"_s, u"tools/list"_s},
                            {u"params"_s,
                             QJsonObject{{u"tools"_s, ScriptedMcpServer::toolList(pushed)}}},
                        })
                        .toJson(QJsonDocument::Compact));
        };
        LogCapture log;
        const auto service = makeService(m_fast);
        QVERIFY(!connectAndWait(*service, customConfig(scriptedName, scripted.server.url()))
                     .has_value());
        QVERIFY(waitForDiscovery(*service, scriptedName));
        QCOMPARE(service->connectedIntegrations().value(scriptedName).toolNames, pushed);
        QVERIFY(log.lines().contains(
            u"client.listTools() for Scripted failed or timed out: client.listTools() "
            u"timed out. Will attempt fallback to transport discovery."_s));
        QCOMPARE(log.lines({u"Polling transport attempt "_s}).size(), polls);
        if (pushed.isEmpty())
            QVERIFY(log.lines().contains(u"No tools discovered for Scripted by any method. "
                                         u"UI will show 'No tools found'."_s));
        else
            QVERIFY(log.lines().contains(u"Polling transport attempt 1: Transport has 2"_s));
    }

    void toolListChangedDiscoversAgain()
    {
        ScriptedMcpServer scripted;
        const auto service = makeService(m_fast);
        int notified = 0;
        service->onToolsChanged = [&] { ++notified; };
        QVERIFY(!connectAndWait(*service, customConfig(scriptedName, scripted.server.url()))
                     .has_value());
        QVERIFY(waitForDiscovery(*service, scriptedName));
        QCOMPARE(notified, 1);
        scripted.replies[u"tools/list"_s].result =
            QJsonObject{{u"tools"_s, ScriptedMcpServer::toolList({u"one"_s, u"two"_s})}};
        scripted.server.pushMessage(
            R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})");
        QVERIFY(QTest::qWaitFor([&] { return notified == 2; }, 5000));
        QCOMPARE(service->connectedIntegrations().value(scriptedName).toolNames,
                 (QStringList{u"one"_s, u"two"_s}));
    }

    // A connection ends when its stream does, or when it fails a health check.
    void connectionEnds_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<bool>("ends");
        QTest::newRow("stream dropped") << u"drop"_s << true;
        QTest::newRow("stream ended") << u"end"_s << true;
        QTest::newRow("health check answered") << u"ping ok"_s << false;
        QTest::newRow("health check failed") << u"ping error"_s << true;
    }

    void connectionEnds()
    {
        QFETCH(QString, how);
        QFETCH(bool, ends);
        ScriptedMcpServer scripted;
        if (how == u"ping error"_s)
            scripted.replies[u"ping"_s] = {{}, u"gone away"_s, false};
        MCPRemoteService::Timing timing = m_fast;
        timing.healthCheckInterval = how.startsWith(u"ping"_s) ? 200ms : 60'000ms;
        LogCapture log;
        const auto service = makeService(timing);
        int notified = 0;
        service->onToolsChanged = [&] { ++notified; };
        QVERIFY(!connectAndWait(*service, customConfig(scriptedName, scripted.server.url()))
                     .has_value());
        QVERIFY(waitForDiscovery(*service, scriptedName));
        if (how == u"drop"_s)
            scripted.server.dropStreams();
        if (how == u"end"_s)
            scripted.server.endStreams();
        const auto gone = [&] { return service->connectedIntegrations().isEmpty(); };
        if (ends) {
            QVERIFY(QTest::qWaitFor(gone, 5000));
            QCOMPARE(notified, 2); // its tools went too
            QCOMPARE(service->integrationList().last().toMap().value(u"state"_s),
                     u"not connected"_s);
        } else {
            QVERIFY(QTest::qWaitFor(
                [&] { return !log.lines({u"Health check passed for Scripted"_s}).isEmpty(); },
                5000));
            QVERIFY(!gone());
        }
        if (how == u"ping error"_s)
            QVERIFY(!log.lines({u"Health check failed for Scripted"_s}).isEmpty());
    }

    // --- The reference server, through the tool registry.

    void remoteToolsThroughTheRegistry()
    {
        McpReferenceServer reference;
        QVERIFY2(reference.isRunning(), qPrintable(reference.error()));
        LocalToolManager tools(m_fixture.keychain());
        const auto service = makeService();
        service->onToolsChanged = [&] { tools.replaceRemoteTools(service->remoteTools()); };
        QVERIFY(!service->addCustomIntegration(u"Everything"_s, reference.sseUrl().toString(),
                                               false, {}));
        QVERIFY(!connectAndWait(*service, *service->integration(u"Everything"_s)).has_value());
        QVERIFY(waitForDiscovery(*service, u"Everything"_s));
        QCOMPARE(service->connectedIntegrations().value(u"Everything"_s).toolNames,
                 McpReferenceServer::toolNames());

        // In the registry, and so in the document the backend is sent.
        QVERIFY(tools.toolIdentifiers().contains(u"mcp_everything_echo"_s));
        const QJsonObject document =
            QJsonDocument::fromJson(tools.toolConfiguration({}).value_or(QString()).toUtf8())
                .object();
        QVERIFY(document[u"enabledTools"_s].toArray().contains(u"mcp_everything_echo"_s));
        const QJsonArray definitions = document[u"localTools"_s].toArray();
        const auto echo = std::find_if(definitions.begin(), definitions.end(), [](const auto& d) {
            return d.toObject()[u"name"_s] == u"mcp_everything_echo"_s;
        });
        QVERIFY(echo != definitions.end());
        QVERIFY(echo->toObject()[u"parameters"_s].toObject()[u"properties"_s].toObject().contains(
            u"message"_s));

        // A call runs on the tool worker, goes to the server on the client's
        // thread, and comes back on the GUI thread.
        std::optional<ToolExecution> execution;
        QThread* answeredOn = nullptr;
        tools.executeTool(u"mcp_everything_echo"_s, {{u"message"_s, u"hello"_s}},
                          [&](const ToolExecution& result) {
                              execution = result;
                              answeredOn = QThread::currentThread();
                          });
        QVERIFY(QTest::qWaitFor([&] { return execution.has_value(); }, 10000));
        QVERIFY2(execution->success, qPrintable(execution->text));
        QCOMPARE(execution->text, u"Echo: hello"_s);
        QCOMPARE(answeredOn, QThread::currentThread());

        // A call the server refuses (a missing argument) is a failed call.
        execution.reset();
        tools.executeTool(u"mcp_everything_get-sum"_s, {{u"a"_s, 1}},
                          [&](const ToolExecution& result) { execution = result; });
        QVERIFY(QTest::qWaitFor([&] { return execution.has_value(); }, 10000));
        QVERIFY(!execution->success);

        service->disconnectFromIntegration(u"Everything"_s);
        QVERIFY(tools.remoteTools().isEmpty());
        QVERIFY(service->connectedIntegrations().isEmpty());

        // A tool still held after its connection went fails with the tool's text.
        execution.reset();
        auto stale = std::make_shared<MCPRemoteTool>(QPointer<McpClient>(), u"Everything"_s,
                                                     McpTool{u"echo"_s, {}, {}, std::nullopt});
        tools.registerTool(stale);
        tools.executeTool(stale->identifier(), {},
                          [&](const ToolExecution& result) { execution = result; });
        QVERIFY(QTest::qWaitFor([&] { return execution.has_value(); }, 10000));
        QVERIFY(!execution->success);
        QVERIFY2(execution->text.contains(u"Failed to execute MCP tool 'echo' "_s),
                 qPrintable(execution->text));
    }
};

QTEST_GUILESS_MAIN(MCPRemoteServiceTest)
#include "MCPRemoteServiceTest.moc"

// The backend session against the reference Socket.IO server: what reaches the
// server, what the session makes of what the server sends, the session-ready
// gate, reconnection and its timeout, and the call controller's side of it.
#include "session/SocketController.h"

#include "LogCapture.h"
#include "SocketIoTestServer.h"
#include "TestPaths.h"
#include "audio/ReplayCaptureBackend.h"
#include "call/CallController.h"
#include "call/TranscriptionViewModel.h"
#include "session/SessionFactory.h"
#include "session/SummaryModel.h"
#include "store/SettingsStore.h"

#include <QJsonDocument>
#include <QPromise>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QFuture<std::optional<QString>> answer(std::optional<QString> token)
{
    QPromise<std::optional<QString>> promise;
    promise.start();
    promise.addResult(std::move(token));
    promise.finish();
    return promise.future();
}

const QString configJson = SessionSettings::defaultLocalToolsConfig();

} // namespace

class SocketControllerTest : public QObject
{
    Q_OBJECT

private:
    // The events of one name the server has received so far.
    QList<SocketIoTestServer::Event> received(const QString& name)
    {
        QList<SocketIoTestServer::Event> events;
        for (const auto& event : m_server->state().events) {
            if (event.name == name)
                events << event;
        }
        return events;
    }

    bool waitForReceived(const QString& name, qsizetype count = 1)
    {
        return QTest::qWaitFor([&] { return received(name).size() >= count; }, 10'000);
    }

    void makeSession(std::optional<QString> token = u"token-1"_s, bool withSummary = true)
    {
        m_token = std::move(token);
        SessionSettings settings;
        settings.backendUrl = m_server->url();
        settings.accessToken = [this] { return answer(m_token); };
        settings.signOut = [this] { ++m_signOuts; };
        settings.timing.connectionTimeout = 400ms;
        settings.timing.agentStatusDelay = 100ms;
        settings.timing.socket.reconnectionDelay = 50ms;
        settings.timing.socket.reconnectionDelayMax = 200ms;
        CallController::Options options;
        options.whisperInputPath = m_home->path() + u"/whisper_input.wav"_s;
        options.makeSession = makeSessionFactory(settings, withSummary ? m_summary.get() : nullptr);
        m_controller = std::make_unique<CallController>(m_capture, *m_settings, options);
        m_session = dynamic_cast<SocketController*>(m_controller->session());
        QVERIFY(m_session);
        m_session->onConnectStatusChange = [this](bool ready) { m_statusChanges << ready; };
    }

    // Starts a call and answers its session as the backend would.
    void startReadySession(const QJsonObject& sessionData = {{u"callId"_s, u"srv-1"_s}})
    {
        QVERIFY(m_controller->startCall());
        QVERIFY(waitForReceived(u"initializeSession"_s));
        m_server->emitEvent(u"sessionInitialized"_s, {sessionData});
        QTRY_VERIFY_WITH_TIMEOUT(m_session->sessionReady(), 10'000);
    }

    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<SocketIoTestServer> m_server;
    ReplayCaptureBackend m_capture;
    std::unique_ptr<SummaryModel> m_summary;
    std::unique_ptr<CallController> m_controller;
    SocketController* m_session = nullptr;
    std::optional<QString> m_token;
    int m_signOuts = 0;
    QList<bool> m_statusChanges;

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TemporaryHome>();
        m_settings = std::make_unique<SettingsStore>(m_home->path() + u"/settings.json"_s);
        m_server = std::make_unique<SocketIoTestServer>(
            SocketIoTestServer::Options{.pingInterval = 1000ms, .pingTimeout = 1000ms});
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        m_summary = std::make_unique<SummaryModel>();
        m_signOuts = 0;
        m_statusChanges.clear();
    }

    void cleanup()
    {
        m_controller.reset();
        m_session = nullptr;
        m_summary.reset();
        m_server.reset();
    }

    void withoutATokenNothingConnects()
    {
        makeSession(std::nullopt);
        LogCapture log;
        QVERIFY(m_controller->startCall());
        QTest::qWait(300);
        QCOMPARE(m_server->state().upgrades, 0);
        QVERIFY(!m_session->isConnected() && !m_session->sessionReady());
        QVERIFY(log.lines().contains(u"❌ No valid access token available - connection aborted"_s));
    }

    // The handshake carries the token alone; the session payload is as documented.
    void connectsWithTheTokenAndInitializes()
    {
        makeSession();
        QVERIFY(m_controller->startCall());
        QVERIFY(waitForReceived(u"initializeSession"_s));
        const auto state = m_server->state();
        QCOMPARE(state.connections.size(), 1);
        QCOMPARE(state.connections.first().nameSpace, u"/calls"_s);
        QCOMPARE(state.connections.first().query.value(u"token"_s), u"token-1"_s);
        QVERIFY(!state.connections.first().query.contains(u"callId"_s));
        const QJsonObject payload =
            received(u"initializeSession"_s).first().items.first().toObject();
        QCOMPARE(payload.keys(), (QStringList{u"direction"_s, u"localTools"_s, u"timestamp"_s}));
        QCOMPARE(payload[u"direction"_s].toString(), u"outbound"_s);
        QCOMPARE(payload[u"localTools"_s].toString(), configJson);
        QVERIFY(QRegularExpression(u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$"_s)
                    .match(payload[u"timestamp"_s].toString())
                    .hasMatch());
        QVERIFY(m_session->isConnected());
        QVERIFY(m_controller->callModel().wsIsConnected);
        QVERIFY(!m_controller->isSessionReady());

        // A second connect drops the first socket and opens one with the new token.
        m_token = u"token-2"_s;
        m_session->connect();
        QVERIFY(waitForReceived(u"initializeSession"_s, 2));
        const auto after = m_server->state();
        QCOMPARE(after.connections.size(), 2);
        QVERIFY(!after.connections.first().connected);
        QCOMPARE(after.connections.last().query.value(u"token"_s), u"token-2"_s);
    }

    // Nothing leaves before the session is ready; then everything does, with
    // optional keys left out.
    void sendsWaitForTheSession()
    {
        makeSession();
        LogCapture log;
        QVERIFY(m_controller->startCall());
        QVERIFY(waitForReceived(u"initializeSession"_s));
        QVERIFY(!m_session->sendChatMessage(u"too early"_s));
        QVERIFY(log.lines().contains(u"⚠️ Cannot send chat message - session not ready"_s));
        m_controller->handleRecognizedText(u"shown only"_s);
        QVERIFY(log.lines().contains(u"⚠️ Cannot send transcription - session not ready"_s));

        m_server->emitEvent(
            u"sessionInitialized"_s,
            {QJsonObject{{u"callId"_s, u"srv-1"_s},
                         {u"enabledTools"_s, QJsonArray{u"web_search"_s}},
                         {u"availableTools"_s, QJsonArray{u"web_search"_s, u"send_email"_s}}}});
        QTRY_VERIFY_WITH_TIMEOUT(m_session->sessionReady(), 10'000);
        QCOMPARE(m_statusChanges, QList<bool>{true});
        QCOMPARE(m_controller->callModel().wsConnectionId, u"srv-1"_s);
        QCOMPARE(m_session->enabledTools(), QStringList{u"web_search"_s});
        QCOMPARE(m_session->availableTools().size(), 2);
        // The agent-mode status is asked for shortly after the session is ready.
        QVERIFY(waitForReceived(u"getAgentModeStatus"_s));

        m_controller->handleRecognizedText(u"we need the pilot by March"_s);
        QVERIFY(m_session->sendChatMessage(u"what did they ask?"_s));
        QVERIFY(m_session->getChatHistory());
        QVERIFY(m_session->getChatHistory(20, 40));
        QVERIFY(waitForReceived(u"getChatHistory"_s, 2));
        QCOMPARE(received(u"chatMessage"_s).size(), 1);
        const QJsonObject chat = received(u"chatMessage"_s).first().items.first().toObject();
        QCOMPARE(chat.keys(), (QStringList{u"message"_s, u"timestamp"_s, u"type"_s}));
        QCOMPARE(chat[u"type"_s].toString(), u"user"_s);
        const QJsonObject text =
            received(u"clientTranscription"_s).first().items.first().toObject();
        QCOMPARE(text.keys(),
                 (QStringList{u"confidence"_s, u"isPartial"_s, u"text"_s, u"timestamp"_s}));
        QCOMPARE(text[u"text"_s].toString(), u"we need the pilot by March"_s);
        QCOMPARE(received(u"clientTranscription"_s).size(), 1);
        const auto history = received(u"getChatHistory"_s);
        QCOMPARE(history.first().items.first().toObject().keys(), QStringList{u"timestamp"_s});
        QCOMPARE(history.last().items.first().toObject()[u"offset"_s].toInt(), 40);
    }

    // What the session makes of the "sessionInitialized" it gets.
    void sessionInitializedPayloads_data()
    {
        QTest::addColumn<QJsonValue>("payload");
        QTest::addColumn<bool>("ready");
        QTest::addColumn<QString>("callId");
        QTest::newRow("object with a call id")
            << QJsonValue(QJsonObject{{u"callId"_s, u"srv-2"_s}}) << true << u"srv-2"_s;
        QTest::newRow("object without a call id")
            << QJsonValue(QJsonObject{{u"enabledTools"_s, QJsonArray()}}) << true << u"before"_s;
        QTest::newRow("a string") << QJsonValue(u"ready"_s) << false << u"before"_s;
        QTest::newRow("null") << QJsonValue() << false << u"before"_s;
    }

    void sessionInitializedPayloads()
    {
        QFETCH(QJsonValue, payload);
        QFETCH(bool, ready);
        QFETCH(QString, callId);
        makeSession();
        LogCapture log;
        // The backend named the call "before"; now it initializes the session again.
        startReadySession({{u"callId"_s, u"before"_s}});
        m_statusChanges.clear();
        m_server->emitEvent(u"sessionInitialized"_s, {payload});
        QTRY_COMPARE_WITH_TIMEOUT(m_statusChanges, QList<bool>{ready}, 10'000);
        QCOMPARE(m_session->sessionReady(), ready);
        QCOMPARE(m_controller->callModel().wsConnectionId, callId);
        if (!ready) {
            QVERIFY(log.lines().contains(u"❌ Session error: Invalid session data format"_s));
            QVERIFY(!m_session->isConnected());
        }
    }

    void sessionErrorEndsTheSession()
    {
        makeSession();
        startReadySession();
        m_server->emitEvent(u"sessionError"_s, {QJsonObject{{u"message"_s, u"quota exceeded"_s}}});
        QTRY_COMPARE_WITH_TIMEOUT(m_statusChanges, (QList<bool>{true, false}), 10'000);
        QVERIFY(!m_controller->isSessionReady());
    }

    // Incoming transcription and summaries reach the models only once the
    // session is ready; both summary events update the model alike.
    void incomingEventsReachTheModels()
    {
        makeSession();
        LogCapture log;
        QVERIFY(m_controller->startCall());
        QVERIFY(waitForReceived(u"initializeSession"_s));
        const QJsonObject processed{
            {u"segments"_s, QJsonArray{QJsonObject{{u"speaker"_s, u"Priya"_s},
                                                   {u"text"_s, u"We missed the commit."_s},
                                                   {u"isPartial"_s, false}}}}};
        m_server->emitEvent(u"transcription"_s, {processed});
        QTRY_VERIFY_WITH_TIMEOUT(
            log.lines().contains(
                u"⚠️ Received transcription before session ready - ignoring"_s),
            10'000);
        QVERIFY(m_controller->transcriptionViewModel()->speakerSegments().isEmpty());

        m_server->emitEvent(u"sessionInitialized"_s, {QJsonObject{{u"callId"_s, u"srv-1"_s}}});
        QTRY_VERIFY_WITH_TIMEOUT(m_session->sessionReady(), 10'000);
        m_server->emitEvent(u"clientTranscriptionProcessed"_s, {processed});
        QTRY_COMPARE_WITH_TIMEOUT(m_controller->transcriptionViewModel()->speakerSegments().size(),
                                  1, 10'000);

        const QJsonObject summary{
            {u"callId"_s, u"srv-1"_s},
            {u"processedSegments"_s, 3},
            {u"summary"_s, QJsonObject{{u"overview"_s, u"Pricing call."_s},
                                       {u"keyPoints"_s, QJsonArray{u"Budget approved"_s}},
                                       {u"sentiment"_s, QJsonObject{{u"overall"_s, u"positive"_s},
                                                                    {u"score"_s, 0.4}}}}}};
        m_server->emitEvent(u"accumulated_summary"_s, {summary});
        QTRY_COMPARE_WITH_TIMEOUT(m_summary->overview(), u"Pricing call."_s, 10'000);
        const QStringList keyPoints = m_summary->keyPoints();
        m_summary->clear();
        m_server->emitEvent(u"transcriptionSummary"_s, {summary});
        QTRY_COMPARE_WITH_TIMEOUT(m_summary->overview(), u"Pricing call."_s, 10'000);
        QCOMPARE(m_summary->keyPoints(), keyPoints);
        QCOMPARE(m_summary->sentimentOverall(), u"positive"_s);
    }

    // The agent-mode answers, good and bad, as the call controller sees them.
    void agentModeResponses_data()
    {
        QTest::addColumn<QString>("event");
        QTest::addColumn<QJsonValue>("payload");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<int>("interval");
        QTest::addColumn<QString>("logged");
        const int fallback = CallModel{}.agentSuggestionIntervalMs;

        QTest::newRow("enabled") << u"agentModeUpdated"_s
                                 << QJsonValue(QJsonObject{{u"success"_s, true},
                                                           {u"enabled"_s, true},
                                                           {u"suggestionIntervalMs"_s, 15000},
                                                           {u"message"_s, u"on"_s}})
                                 << true << 15000 << u"📝 Agent mode message: on"_s;
        QTest::newRow("status, disabled")
            << u"agentModeStatus"_s
            << QJsonValue(QJsonObject{
                   {u"success"_s, true}, {u"enabled"_s, false}, {u"suggestionIntervalMs"_s, 5000}})
            << false << 5000 << u"✅ Agent mode response: enabled=false, interval=5000"_s;
        QTest::newRow("failed with a message")
            << u"agentModeUpdated"_s
            << QJsonValue(QJsonObject{{u"success"_s, false}, {u"message"_s, u"not allowed"_s}})
            << false << fallback << u"❌ Agent mode operation failed: not allowed"_s;
        QTest::newRow("failed without one")
            << u"agentModeStatus"_s << QJsonValue(QJsonObject{{u"success"_s, false}}) << false
            << fallback << u"❌ Agent mode operation failed: Unknown error"_s;
        QTest::newRow("success as a string")
            << u"agentModeStatus"_s << QJsonValue(QJsonObject{{u"success"_s, u"true"_s}}) << false
            << fallback << u"Invalid agent mode response format"_s;
        QTest::newRow("not an object") << u"agentModeUpdated"_s << QJsonValue(42) << false
                                       << fallback << u"Invalid agent mode response format"_s;
    }

    void agentModeResponses()
    {
        QFETCH(QString, event);
        QFETCH(QJsonValue, payload);
        QFETCH(bool, enabled);
        QFETCH(int, interval);
        QFETCH(QString, logged);
        makeSession();
        LogCapture log;
        startReadySession();
        m_server->emitEvent(event, {payload});
        QTRY_VERIFY_WITH_TIMEOUT(log.lines().contains(logged), 10'000);
        QCOMPARE(m_controller->callModel().isAgentModeEnabled, enabled);
        QCOMPARE(m_controller->callModel().agentSuggestionIntervalMs, interval);
    }

    // A dropped transport reconnects and initializes again; without an answer
    // within the timeout the session ends through the error path.
    void reconnectionReinitializesUnderATimeout()
    {
        makeSession();
        LogCapture log;
        startReadySession();
        QVERIFY(m_server->dropTransports() >= 1);
        QTRY_VERIFY_WITH_TIMEOUT(!m_session->sessionReady(), 10'000);
        QVERIFY(waitForReceived(u"initializeSession"_s, 2));
        QTRY_VERIFY_WITH_TIMEOUT(
            log.lines().contains(u"❌ Session error: Connection/Session timeout"_s), 10'000);
        QCOMPARE(m_statusChanges, (QList<bool>{true, false}));

        // A later answer makes it a session again.
        m_server->emitEvent(u"sessionInitialized"_s, {QJsonObject{{u"callId"_s, u"srv-1"_s}}});
        QTRY_VERIFY_WITH_TIMEOUT(m_session->sessionReady(), 10'000);
        QVERIFY(log.lines().contains(u"⏰ Starting connection timeout timer (0.4 seconds)"_s));
    }

    // A refusal whose text names the token (case-sensitively) signs the user out.
    void refusalsThatSignOut_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("signOuts");
        QTest::newRow("unauthorized") << u"unauthorized: invalid or expired token"_s << 1;
        QTest::newRow("JWT") << u"JWT expired"_s << 1;
        QTest::newRow("token in lower case") << u"invalid token"_s << 1;
        QTest::newRow("Token with a capital") << u"Token expired"_s << 0;
        QTest::newRow("jwt in lower case") << u"jwt malformed"_s << 0;
        QTest::newRow("anything else") << u"server is full"_s << 0;
    }

    void refusalsThatSignOut()
    {
        QFETCH(QString, text);
        QFETCH(int, signOuts);
        makeSession(u"refuse:"_s + text);
        LogCapture log;
        QVERIFY(m_controller->startCall());
        QTRY_VERIFY_WITH_TIMEOUT(log.lines().contains(u"❌ Socket error: "_s + text), 10'000);
        QCOMPARE(m_signOuts, signOuts);
        QVERIFY(!m_session->isConnected());
        QCOMPARE(m_server->state().refused, 1); // no retry loop against a refusal
    }

    // Whatever arrives, under any event name, in either state: handled or
    // dropped, never a crash (the ASan build runs this too).
    void hostilePayloadsAreHarmless()
    {
        makeSession();
        startReadySession();
        QRandomGenerator random(20261122);
        const QStringList events = {u"connected"_s,
                                    u"sessionInitialized"_s,
                                    u"sessionError"_s,
                                    u"transcription"_s,
                                    u"transcriptionReceived"_s,
                                    u"transcriptionSummary"_s,
                                    u"accumulated_summary"_s,
                                    u"chatResponse"_s,
                                    u"chatHistory"_s,
                                    u"chatCleared"_s,
                                    u"chatError"_s,
                                    u"agentSuggestions"_s,
                                    u"agentModeUpdated"_s,
                                    u"agentModeStatus"_s,
                                    u"analysis"_s,
                                    u"status"_s,
                                    u"error"_s,
                                    u"ack"_s,
                                    u"clientTranscriptionProcessed"_s,
                                    u"unknown"_s};
        const QStringList keys = {u"callId"_s,
                                  u"enabledTools"_s,
                                  u"availableTools"_s,
                                  u"message"_s,
                                  u"segments"_s,
                                  u"speaker"_s,
                                  u"text"_s,
                                  u"isPartial"_s,
                                  u"summary"_s,
                                  u"overview"_s,
                                  u"keyPoints"_s,
                                  u"speakers"_s,
                                  u"actionItems"_s,
                                  u"topics"_s,
                                  u"sentiment"_s,
                                  u"processedSegments"_s,
                                  u"messages"_s,
                                  u"suggestions"_s,
                                  u"success"_s,
                                  u"enabled"_s,
                                  u"suggestionIntervalMs"_s,
                                  u"status"_s};
        const QString huge(200'000, u'x');
        std::function<QJsonValue(int)> anyValue = [&](int depth) -> QJsonValue {
            switch (random.bounded(depth > 6 ? 7 : 9)) {
            case 0:
                return QJsonValue();
            case 1:
                return random.bounded(2) == 1;
            case 2:
                return double(random.bounded(-1000, 1000)) * 1e6;
            case 3:
                return random.bounded(50) == 0 ? huge : keys.at(random.bounded(keys.size()));
            case 4:
                return u"2026-11-22T01:02:03Z"_s;
            case 5:
                return 1e308;
            case 6:
                return -1;
            case 7: {
                QJsonArray array;
                for (int i = random.bounded(4); i > 0; --i)
                    array << anyValue(depth + 1);
                return array;
            }
            default: {
                QJsonObject object;
                for (int i = random.bounded(6); i > 0; --i)
                    object.insert(keys.at(random.bounded(keys.size())), anyValue(depth + 1));
                return object;
            }
            }
        };
        QJsonValue deep = QJsonObject{{u"overview"_s, u"bottom"_s}};
        for (int i = 0; i < 500; ++i)
            deep = i % 2 == 0 ? QJsonValue(QJsonObject{{u"summary"_s, deep}})
                              : QJsonValue(QJsonArray{deep});

        for (int round = 0; round < 3000; ++round) {
            QJsonArray items;
            for (int i = random.bounded(3); i >= 0; --i)
                items << (random.bounded(100) == 0 ? deep : anyValue(0));
            m_session->handleEvent(events.at(random.bounded(events.size())), items);
        }
        for (const QString& event : events)
            m_session->handleEvent(event, {});
        // Still a working session when the backend says so again.
        m_session->handleEvent(u"sessionInitialized"_s, {QJsonObject{{u"callId"_s, u"srv-9"_s}}});
        QVERIFY(m_session->sessionReady());
        QCOMPARE(m_controller->callModel().wsConnectionId, u"srv-9"_s);
    }

    // Ending the call while a reconnection waits for its session stops the
    // time-out, and says so; with none pending there is nothing to say.
    void disconnectClearsAPendingTimeout_data()
    {
        QTest::addColumn<bool>("reconnecting");
        QTest::newRow("waiting for a reconnected session") << true;
        QTest::newRow("ready session") << false;
    }

    void disconnectClearsAPendingTimeout()
    {
        QFETCH(bool, reconnecting);
        makeSession();
        startReadySession();
        if (reconnecting) {
            QVERIFY(m_server->dropTransports() >= 1);
            QVERIFY(waitForReceived(u"initializeSession"_s, 2));
        }
        LogCapture log;
        m_controller->endCall();
        QCOMPARE(log.lines({u"⏰"_s}), reconnecting
                                          ? QStringList{u"⏰ Clearing connection timeout timer"_s}
                                          : QStringList());
        QTest::qWait(600); // past the time-out
        QVERIFY(!log.lines().contains(u"❌ Session error: Connection/Session timeout"_s));
        QCOMPARE(m_statusChanges, QList<bool>{true});
    }

    // The summary model is attached to the session when there is one.
    void attachesTheSummaryModel_data()
    {
        QTest::addColumn<bool>("withSummary");
        QTest::newRow("with a summary model") << true;
        QTest::newRow("without") << false;
    }

    void attachesTheSummaryModel()
    {
        QFETCH(bool, withSummary);
        LogCapture log;
        makeSession(u"token-1"_s, withSummary);
        QCOMPARE(log.lines({u"🔧 Setting up summary model"_s}),
                 withSummary ? QStringList{u"🔧 Setting up summary model socket listeners"_s}
                             : QStringList());
    }

    // Ending the call disconnects for good: nothing comes back on its own.
    void endingTheCallStopsTheSession()
    {
        makeSession();
        startReadySession();
        m_controller->endCall();
        QVERIFY(!m_session->isConnected() && !m_session->sessionReady());
        QTRY_VERIFY_WITH_TIMEOUT(!m_server->state().connections.first().connected, 10'000);
        QTest::qWait(500);
        QCOMPARE(m_server->state().connections.size(), 1);
        QVERIFY(m_controller->serverStatusText().isEmpty());
    }

    // While the backend cannot be reached the call runs on and says so.
    void unreachableBackendIsReported()
    {
        makeSession();
        m_server->stop();
        QVERIFY(m_controller->startCall());
        QTRY_COMPARE_WITH_TIMEOUT(m_controller->serverStatusText(),
                                  QString::fromLatin1(CallController::serverOfflineText), 10'000);
        m_controller->handleRecognizedText(u"still transcribed"_s);
        QTRY_VERIFY_WITH_TIMEOUT(
            m_controller->transcriptionViewModel()->transcriptionText().contains(
                u"still transcribed"_s),
            10'000);
        // Back again, the socket asks for a session anew; once the backend
        // grants it the call is online, however long the way there took.
        QVERIFY(m_server->restart());
        QVERIFY(waitForReceived(u"initializeSession"_s));
        m_server->emitEvent(u"sessionInitialized"_s, {QJsonObject{{u"callId"_s, u"srv-2"_s}}});
        QTRY_VERIFY_WITH_TIMEOUT(m_session->isConnected() && m_session->sessionReady(), 15'000);
        QVERIFY(m_controller->serverStatusText().isEmpty());
    }
};

QTEST_GUILESS_MAIN(SocketControllerTest)
#include "SocketControllerTest.moc"

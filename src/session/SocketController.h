// The one event-socket connection between the client and the backend for the
// length of a call: connects to the "/calls" namespace with a fresh access
// token, initializes the backend session, carries live transcription up and
// chat, agent-mode and summary events both ways, and publishes the connection
// and session-ready flags everything else gates on.
#pragma once

#include "core/AccessTokenProvider.h"
#include "call/CallSession.h"
#include "protocol/SocketIoClient.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class CallController;
class SummaryModel;
class TranscriptionViewModel;

// Lives on the GUI thread; every flag, the call controller and the callbacks
// are touched there only. Nothing is sent before the backend has acknowledged
// the session (sessionReady): a send made earlier is dropped with a warning.
class SocketController : public QObject, public CallSession
{
    Q_OBJECT
    Q_PROPERTY(bool isConnected READ isConnected NOTIFY isConnectedChanged)
    Q_PROPERTY(bool sessionReady READ sessionReady NOTIFY sessionReadyChanged)
    Q_PROPERTY(QStringList enabledTools READ enabledTools NOTIFY toolsChanged)
    Q_PROPERTY(QStringList availableTools READ availableTools NOTIFY toolsChanged)

public:
    struct Dependencies
    {
        // Asked anew on every connect; no token is kept here.
        AccessTokenProvider accessToken;
        // Deletes the stored tokens: the backend refused them.
        std::function<void()> signOut;
    };

    struct Timing
    {
        // How long a reconnection may take to become a session again.
        std::chrono::milliseconds connectionTimeout{10'000};
        // When the agent-mode status is asked for after the session is ready.
        std::chrono::milliseconds agentStatusDelay{500};
        // The socket's own settings (reconnection backoff and the like).
        SocketIoClient::Options socket;
    };

    static constexpr auto nameSpace = "/calls";

    SocketController(QUrl backendUrl, const QString& callId, TranscriptionViewModel* transcription,
                     std::optional<QString> initialConfigJson, Dependencies dependencies,
                     Timing timing, QObject* parent = nullptr);
    SocketController(QUrl backendUrl, const QString& callId, TranscriptionViewModel* transcription,
                     std::optional<QString> initialConfigJson, Dependencies dependencies,
                     QObject* parent = nullptr);
    ~SocketController() override;

    bool isConnected() const override { return m_isConnected; }
    bool sessionReady() const { return m_sessionReady; }
    QStringList enabledTools() const { return m_enabledTools; }
    QStringList availableTools() const { return m_availableTools; }

    void setSummaryModel(SummaryModel* model);
    void setCallController(CallController* controller);
    void setCallDirection(const QString& direction) { m_callDirection = direction; }
    QString callDirection() const { return m_callDirection; }

    // Called with true when the session becomes ready and with false from the
    // session-error path (not on a plain disconnect).
    std::function<void(bool)> onConnectStatusChange;
    std::function<void(const QJsonObject&)> onChatMessage;
    std::function<void(const QJsonArray&)> onChatHistory;
    std::function<void()> onChatCleared;
    std::function<void(const QJsonObject&)> onAgentSuggestions;

    // Fetches a token, then opens a new socket whose handshake carries only it.
    void connect() override;
    void disconnect() override;

    // Sending operations; each is refused (false, with its warning) until the
    // session is ready. Optional values are left out of the payload when absent.
    bool sendClientTranscription(const QString& text, bool isPartial,
                                 const std::optional<QString>& speaker,
                                 std::optional<double> confidence,
                                 const std::optional<QJsonArray>& segments);
    void sendClientTranscription(const QString& text, const std::optional<QString>& speaker,
                                 double confidence,
                                 const std::optional<QJsonArray>& segments) override;
    bool sendTranscriptionSummary(const QJsonObject& payload);
    bool updateLocalToolsConfiguration(const QJsonObject& payload);
    bool sendChatMessage(const QString& message, const std::optional<QString>& userId = {},
                         const std::optional<QJsonObject>& metadata = {});
    bool getChatHistory(std::optional<int> limit = {}, std::optional<int> offset = {});
    bool clearChatHistory();
    bool updateAgentMode(bool enabled, int suggestionIntervalMs);
    bool getAgentModeStatus();
    void sendAgentSettings(bool enabled, int suggestionIntervalMs) override;

    // The session payload for "initializeSession"; emitted by the connect and
    // reconnect handlers.
    void initializeSession();

    // For observers (the command line prints every event it gets).
    SocketIoClient* socket() const { return m_socket.get(); }

    // Handles one event from the backend: everything the socket delivers goes
    // through here, and so can a test's hostile payloads.
    void handleEvent(const QString& event, const QJsonArray& items);

Q_SIGNALS:
    void isConnectedChanged();
    void sessionReadyChanged();
    void toolsChanged();
    // Every event from the backend, as it arrived (before it is handled).
    void eventReceived(const QString& event, const QJsonArray& items);
    // The backend could not be reached, or answered again.
    void reachabilityChanged(bool reachable);

private:
    using Handler = void (SocketController::*)(const QJsonArray& items);

    std::unique_ptr<SocketIoClient> makeSocket(const QMap<QString, QString>& connectParams);
    void registerHandlers(SocketIoClient* socket);

    void handleSocketConnected();
    void handleSocketDisconnected(const QString& reason);
    void handleSocketReconnecting();
    void handleSocketError(const QString& message);

    void handleConnected(const QJsonArray& items);
    void handleSessionInitialized(const QJsonArray& items);
    void handleSessionError(const QJsonArray& items);
    void handleTranscription(const QJsonArray& items);
    void handleTranscriptionReceived(const QJsonArray& items);
    void handleSummary(const QJsonArray& items);
    void handleChatResponse(const QJsonArray& items);
    void handleChatHistory(const QJsonArray& items);
    void handleChatCleared(const QJsonArray& items);
    void handleChatError(const QJsonArray& items);
    void handleAgentSuggestions(const QJsonArray& items);
    void handleAgentModeUpdated(const QJsonArray& items);
    void handleAgentModeStatus(const QJsonArray& items);
    void handleAnalysis(const QJsonArray& items);
    void handleStatus(const QJsonArray& items);
    void handleError(const QJsonArray& items);
    void handleAck(const QJsonArray& items);

    // The first item of a transcription or summary event, once the session is ready.
    std::optional<QJsonObject> transcriptionPayload(const QJsonArray& items) const;
    bool emitPayload(const QString& event, const QJsonObject& payload);
    void runSessionErrorPath(const QString& message);
    void parseAgentModeResponse(const QJsonObject& payload);
    void armConnectionTimeout();
    bool clearConnectionTimeout();

    void setConnected(bool connected);
    void setSessionReady(bool ready);
    void pushStateToCallController();

    const QUrl m_backendUrl;
    QPointer<TranscriptionViewModel> m_transcription;
    QPointer<SummaryModel> m_summaryModel;
    QPointer<CallController> m_callController;
    const std::optional<QString> m_initialConfigJson;
    const Dependencies m_dependencies;
    const Timing m_timing;
    QString m_callDirection = QStringLiteral("outbound");

    std::unique_ptr<SocketIoClient> m_socket;
    QHash<QString, Handler> m_handlers;

    bool m_isConnected = false;
    bool m_sessionReady = false;
    QStringList m_enabledTools;
    QStringList m_availableTools;
    QTimer m_connectionTimeoutTimer;
    QTimer m_agentStatusTimer;
    // Token fetches made by connect(); only the latest one may open a socket.
    quint64 m_connectAttempt = 0;
};

// The one event-socket connection between the client and the backend for the
// length of a call: connects to the "/calls" namespace with a fresh access
// token, initializes the backend session, carries live transcription up and
// chat, agent-mode and summary events both ways, and publishes the connection
// and session-ready flags everything else gates on. A facade over the parts
// that each own one concern: the connection, the transcript relay, the chat
// channel, agent mode and the tool-document channel.
#pragma once

#include "call/CallSession.h"
#include "session/AgentMode.h"
#include "session/ChatChannel.h"
#include "session/SessionConnection.h"
#include "session/ToolDocumentChannel.h"
#include "session/TranscriptRelay.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

class SummaryModel;
class TranscriptionViewModel;

// Lives on the GUI thread; every flag and the callbacks are touched there
// only. Nothing is sent before the backend has acknowledged the session
// (sessionReady): a send made earlier is dropped with a warning.
class SocketController : public CallSession
{
    Q_OBJECT
    Q_PROPERTY(QStringList enabledTools READ enabledTools NOTIFY toolsChanged)
    Q_PROPERTY(QStringList availableTools READ availableTools NOTIFY toolsChanged)

    // The parts come first: the callbacks below are theirs.
    SessionConnection m_connection;
    TranscriptRelay m_transcript;
    ChatChannel m_chat;
    AgentMode m_agentMode;
    ToolDocumentChannel m_tools;

public:
    using Dependencies = SessionConnection::Dependencies;
    using Timing = SessionConnection::Timing;

    static constexpr auto nameSpace = SessionConnection::nameSpace;

    SocketController(QUrl backendUrl, const QString& callId, TranscriptionViewModel* transcription,
                     std::optional<QString> initialConfigJson, Dependencies dependencies,
                     Timing timing, QObject* parent = nullptr);
    SocketController(QUrl backendUrl, const QString& callId, TranscriptionViewModel* transcription,
                     std::optional<QString> initialConfigJson, Dependencies dependencies,
                     QObject* parent = nullptr);

    bool isConnected() const override { return m_connection.isConnected(); }
    bool sessionReady() const override { return m_connection.sessionReady(); }
    QString sessionCallId() const { return m_connection.sessionCallId(); }
    QStringList enabledTools() const { return m_tools.enabledTools(); }
    QStringList availableTools() const { return m_tools.availableTools(); }
    // The tool-configuration document the next "initializeSession" carries.
    std::optional<QString> localToolsConfigJson() const { return m_tools.configJson(); }
    void setLocalToolsConfigJson(const QString& json) { m_tools.setConfigJson(json); }
    bool agentModeEnabled() const { return m_agentMode.isEnabled(); }
    int agentSuggestionIntervalMs() const { return m_agentMode.suggestionIntervalMs(); }

    void setSummaryModel(SummaryModel* model) { m_transcript.setSummaryModel(model); }
    void setCallDirection(const QString& direction) { m_connection.setCallDirection(direction); }
    QString callDirection() const { return m_connection.callDirection(); }

    // Called with true when the session becomes ready and with false from the
    // session-error path (not on a plain disconnect).
    std::function<void(bool)>& onConnectStatusChange = m_connection.onConnectStatusChange;
    // The chat side's callbacks (the chat channel's).
    std::function<void(const QJsonObject&)>& onChatMessage = m_chat.onChatMessage;
    std::function<void(const QJsonArray&)>& onChatHistory = m_chat.onChatHistory;
    std::function<void()>& onChatCleared = m_chat.onChatCleared;
    std::function<void(const QJsonObject&)>& onAgentSuggestions = m_chat.onAgentSuggestions;

    // Fetches a token, then opens a new socket whose handshake carries only it.
    void connect() override { m_connection.connect(); }
    void disconnect() override { m_connection.disconnect(); }

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
    void initializeSession() { m_connection.initializeSession(); }

    // For observers (the command line prints every event it gets).
    SocketIoClient* socket() const { return m_connection.socket(); }

    // Handles one event from the backend: everything the socket delivers goes
    // through here, and so can a test's hostile payloads.
    void handleEvent(const QString& event, const QJsonArray& items);

Q_SIGNALS:
    void toolsChanged();
    // Every event from the backend, as it arrived (before it is handled).
    void eventReceived(const QString& event, const QJsonArray& items);
};

#include "session/SocketController.h"

SocketController::SocketController(QUrl backendUrl, const QString& callId,
                                   TranscriptionViewModel* transcription,
                                   std::optional<QString> initialConfigJson,
                                   Dependencies dependencies, Timing timing, QObject* parent)
    : CallSession(parent),
      m_connection(std::move(backendUrl), callId, std::move(dependencies), std::move(timing)),
      m_transcript(m_connection, transcription), m_chat(m_connection),
      m_agentMode(m_connection, m_connection.timing().agentStatusDelay),
      m_tools(m_connection, std::move(initialConfigJson))
{
    // The parts report; the facade speaks for them.
    QObject::connect(&m_connection, &SessionConnection::isConnectedChanged, this,
                     &CallSession::isConnectedChanged);
    QObject::connect(&m_connection, &SessionConnection::sessionReadyChanged, this,
                     &CallSession::sessionReadyChanged);
    QObject::connect(&m_connection, &SessionConnection::sessionCallIdChanged, this,
                     &CallSession::sessionCallIdChanged);
    QObject::connect(&m_connection, &SessionConnection::reachabilityChanged, this,
                     &CallSession::reachabilityChanged);
    QObject::connect(&m_connection, &SessionConnection::eventReceived, this,
                     &SocketController::eventReceived);
    QObject::connect(&m_agentMode, &AgentMode::agentModeReported, this,
                     &CallSession::agentModeReported);
    QObject::connect(&m_tools, &ToolDocumentChannel::toolsChanged, this,
                     &SocketController::toolsChanged);
}

SocketController::SocketController(QUrl backendUrl, const QString& callId,
                                   TranscriptionViewModel* transcription,
                                   std::optional<QString> initialConfigJson,
                                   Dependencies dependencies, QObject* parent)
    : SocketController(std::move(backendUrl), callId, transcription, std::move(initialConfigJson),
                       std::move(dependencies), Timing{}, parent)
{}

bool SocketController::sendClientTranscription(const QString& text, bool isPartial,
                                               const std::optional<QString>& speaker,
                                               std::optional<double> confidence,
                                               const std::optional<QJsonArray>& segments)
{
    return m_transcript.sendClientTranscription(text, isPartial, speaker, confidence, segments);
}

void SocketController::sendClientTranscription(const QString& text,
                                               const std::optional<QString>& speaker,
                                               double confidence,
                                               const std::optional<QJsonArray>& segments)
{
    m_transcript.sendClientTranscription(text, false, speaker, confidence, segments);
}

bool SocketController::sendTranscriptionSummary(const QJsonObject& payload)
{
    return m_transcript.sendTranscriptionSummary(payload);
}

bool SocketController::updateLocalToolsConfiguration(const QJsonObject& payload)
{
    return m_tools.updateLocalToolsConfiguration(payload);
}

bool SocketController::sendChatMessage(const QString& message, const std::optional<QString>& userId,
                                       const std::optional<QJsonObject>& metadata)
{
    return m_chat.sendChatMessage(message, userId, metadata);
}

bool SocketController::getChatHistory(std::optional<int> limit, std::optional<int> offset)
{
    return m_chat.getChatHistory(limit, offset);
}

bool SocketController::clearChatHistory()
{
    return m_chat.clearChatHistory();
}

bool SocketController::updateAgentMode(bool enabled, int suggestionIntervalMs)
{
    return m_agentMode.updateAgentMode(enabled, suggestionIntervalMs);
}

bool SocketController::getAgentModeStatus()
{
    return m_agentMode.getAgentModeStatus();
}

void SocketController::sendAgentSettings(bool enabled, int suggestionIntervalMs)
{
    m_agentMode.updateAgentMode(enabled, suggestionIntervalMs);
}

void SocketController::handleEvent(const QString& event, const QJsonArray& items)
{
    m_connection.handleEvent(event, items);
}

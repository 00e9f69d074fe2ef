// Agent mode as the backend session carries it: switching it on and off,
// asking for its status shortly after every session becomes ready, and the
// backend's answers, which are the agent-mode state of the session.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QTimer>

#include <chrono>

class SessionConnection;

// Lives on the GUI thread with its connection, which must outlive it.
class AgentMode : public QObject
{
    Q_OBJECT

public:
    AgentMode(SessionConnection& connection, std::chrono::milliseconds statusDelay,
              QObject* parent = nullptr);
    ~AgentMode() override;

    // What the backend last reported; the defaults until it has.
    bool isEnabled() const { return m_enabled; }
    int suggestionIntervalMs() const { return m_suggestionIntervalMs; }

    // Each is refused (false, with its warning) until the session is ready.
    bool updateAgentMode(bool enabled, int suggestionIntervalMs);
    bool getAgentModeStatus();

Q_SIGNALS:
    // The backend reported agent mode (after an update or a status request).
    void agentModeReported(bool enabled, int suggestionIntervalMs);

private:
    void handleResponse(const QString& label, const QJsonArray& items);
    void parseResponse(const QJsonObject& payload);

    SessionConnection& m_connection;
    bool m_enabled = false;
    int m_suggestionIntervalMs = 10000;
    // Asks for the status once per session, a moment after it became ready.
    QTimer m_statusTimer;
};

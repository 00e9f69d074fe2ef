// The backend session as the call sees it: connect when a call starts,
// disconnect when it ends, send recognized text while connected, and observe
// the session's state through its signals. The session owns that state; the
// call only mirrors what its screens need.
#pragma once

#include <QJsonArray>
#include <QObject>
#include <QString>

#include <optional>

// Lives on the GUI thread; its signals are emitted there.
class CallSession : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isConnected READ isConnected NOTIFY isConnectedChanged)
    Q_PROPERTY(bool sessionReady READ sessionReady NOTIFY sessionReadyChanged)

public:
    using QObject::QObject;

    virtual void connect() = 0;
    virtual void disconnect() = 0;
    // The socket is up.
    virtual bool isConnected() const = 0;
    // The backend has acknowledged the session: sends go through.
    virtual bool sessionReady() const = 0;

    virtual void sendClientTranscription(const QString& text, const std::optional<QString>& speaker,
                                         double confidence,
                                         const std::optional<QJsonArray>& segments) = 0;
    // The user's own agent-mode choice, for the backend.
    virtual void sendAgentSettings(bool enabled, int suggestionIntervalMs) = 0;

Q_SIGNALS:
    void isConnectedChanged();
    void sessionReadyChanged();
    // The backend named the call this session belongs to.
    void sessionCallIdChanged(const QString& callId);
    // The backend could not be reached, or answered again.
    void reachabilityChanged(bool reachable);
    // The backend's word on agent mode, after an update or a status request.
    void agentModeReported(bool enabled, int suggestionIntervalMs);
};

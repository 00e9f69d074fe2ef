// The backend session as the call sees it: connect when a call starts,
// disconnect when it ends, send recognized text while connected.
#pragma once

#include <QJsonArray>
#include <QString>

#include <optional>

class CallSession
{
public:
    virtual ~CallSession() = default;

    virtual void connect() = 0;
    virtual void disconnect() = 0;
    virtual bool isConnected() const = 0;

    virtual void sendClientTranscription(const QString& text, const std::optional<QString>& speaker,
                                         double confidence,
                                         const std::optional<QJsonArray>& segments) = 0;
    virtual void sendAgentSettings(bool enabled, int suggestionIntervalMs) = 0;
};

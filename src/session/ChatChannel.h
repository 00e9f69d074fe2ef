// The assistant chat's way through the backend session: the user's messages
// and history requests go up; answers, history, clearing and agent suggestions
// come back through the callbacks the chat side installs.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <functional>
#include <optional>

class SessionConnection;

// Used on the GUI thread; the callbacks are called there. The connection must
// outlive the channel.
class ChatChannel
{
public:
    explicit ChatChannel(SessionConnection& connection);

    // Each is refused (false, with its warning) until the session is ready.
    bool sendChatMessage(const QString& message, const std::optional<QString>& userId = {},
                         const std::optional<QJsonObject>& metadata = {});
    bool getChatHistory(std::optional<int> limit = {}, std::optional<int> offset = {});
    bool clearChatHistory();

    // A "chatResponse" payload.
    std::function<void(const QJsonObject&)> onChatMessage;
    // The "messages" of a "chatHistory" payload.
    std::function<void(const QJsonArray&)> onChatHistory;
    // A "chatCleared" arrived.
    std::function<void()> onChatCleared;
    // An "agentSuggestions" payload.
    std::function<void(const QJsonObject&)> onAgentSuggestions;

private:
    void handleChatResponse(const QJsonArray& items) const;
    void handleChatHistory(const QJsonArray& items) const;
    void handleChatCleared() const;
    static void handleChatError(const QJsonArray& items);
    void handleAgentSuggestions(const QJsonArray& items) const;

    SessionConnection& m_connection;
};

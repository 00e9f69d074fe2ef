#include "session/ChatChannel.h"

#include "session/SessionConnection.h"
#include "session/SessionPayload.h"

using namespace Qt::StringLiterals;
using SessionPayload::compact;
using SessionPayload::firstObject;
using SessionPayload::say;
using SessionPayload::timestampNow;

ChatChannel::ChatChannel(SessionConnection& connection) : m_connection(connection)
{
    m_connection.addHandler(u"chatResponse"_s,
                            [this](const QJsonArray& items) { handleChatResponse(items); });
    m_connection.addHandler(u"chatHistory"_s,
                            [this](const QJsonArray& items) { handleChatHistory(items); });
    m_connection.addHandler(u"chatCleared"_s,
                            [this](const QJsonArray& /*items*/) { handleChatCleared(); });
    m_connection.addHandler(u"chatError"_s,
                            [](const QJsonArray& items) { handleChatError(items); });
    m_connection.addHandler(u"agentSuggestions"_s,
                            [this](const QJsonArray& items) { handleAgentSuggestions(items); });
}

bool ChatChannel::sendChatMessage(const QString& message, const std::optional<QString>& userId,
                                  const std::optional<QJsonObject>& metadata)
{
    QJsonObject payload{
        {u"message"_s, message},
        {u"timestamp"_s, timestampNow()},
        {u"type"_s, u"user"_s},
    };
    if (userId)
        payload.insert(u"userId"_s, *userId);
    if (metadata)
        payload.insert(u"metadata"_s, *metadata);
    return m_connection.emitWhenReady(u"chatMessage"_s, payload,
                                      u"💬 Sending chat message: "_s + message,
                                      u"⚠️ Cannot send chat message - session not ready"_s);
}

bool ChatChannel::getChatHistory(std::optional<int> limit, std::optional<int> offset)
{
    QJsonObject payload{{u"timestamp"_s, timestampNow()}};
    if (limit)
        payload.insert(u"limit"_s, *limit);
    if (offset)
        payload.insert(u"offset"_s, *offset);
    return m_connection.emitWhenReady(u"getChatHistory"_s, payload,
                                      u"📚 Requesting chat history..."_s,
                                      u"⚠️ Cannot get chat history - session not ready"_s);
}

bool ChatChannel::clearChatHistory()
{
    return m_connection.emitWhenReady(u"clearChatHistory"_s,
                                      QJsonObject{{u"timestamp"_s, timestampNow()}},
                                      u"🧹 Clearing chat history..."_s,
                                      u"⚠️ Cannot clear chat history - session not ready"_s);
}

void ChatChannel::handleChatResponse(const QJsonArray& items) const
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    say(u"📬 Received chat response: "_s + compact(*data));
    if (onChatMessage)
        onChatMessage(*data);
}

void ChatChannel::handleChatHistory(const QJsonArray& items) const
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    say(u"📚 Received chat history: "_s + compact(*data));
    if (onChatHistory)
        onChatHistory(data->value(u"messages"_s).toArray());
}

void ChatChannel::handleChatCleared() const
{
    say(u"🧹 Chat history cleared"_s);
    if (onChatCleared)
        onChatCleared();
}

void ChatChannel::handleChatError(const QJsonArray& items)
{
    // Only logged: the chat's own wait for an answer ends it.
    if (const std::optional<QJsonObject> data = firstObject(items))
        SessionPayload::warn(u"💬❌ Chat error: "_s + data->value(u"message"_s).toString());
}

void ChatChannel::handleAgentSuggestions(const QJsonArray& items) const
{
    const std::optional<QJsonObject> data = firstObject(items);
    if (!data)
        return;
    say(u"🤖 Received agent suggestions: "_s + compact(*data));
    if (onAgentSuggestions)
        onAgentSuggestions(*data);
}

// The backend session as the chat sees it: whether it is connected, and the
// two sends the chat makes. The session's answers reach the chat through its
// handlers (ChatViewModel::handle…), wired by whoever owns both.
#pragma once

#include <QString>

class ChatSession
{
public:
    virtual ~ChatSession() = default;

    virtual bool isConnected() const = 0;
    // False when the session refused it (not ready), with its own warning.
    virtual bool sendChatMessage(const QString& text) = 0;
    virtual bool getChatHistory(int limit) = 0;
};

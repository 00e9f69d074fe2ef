// The chat's view of the call's backend session: sends through the
// SocketController, and hands its chat callbacks to a ChatViewModel.
#pragma once

#include "chat/ChatSession.h"

#include <QPointer>

class ChatViewModel;
class SocketController;

class SocketChatSession : public ChatSession
{
public:
    // Installs the chat's handlers on the session's callbacks; `session` and
    // `chat` are watched, not owned.
    SocketChatSession(SocketController& session, ChatViewModel& chat);
    ~SocketChatSession() override;
    SocketChatSession(const SocketChatSession&) = delete;
    SocketChatSession& operator=(const SocketChatSession&) = delete;

    bool isConnected() const override;
    bool sendChatMessage(const QString& text) override;
    bool getChatHistory(int limit) override;

private:
    QPointer<SocketController> m_session;
};

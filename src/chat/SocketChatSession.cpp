#include "chat/SocketChatSession.h"

#include "chat/ChatViewModel.h"
#include "session/SocketController.h"

SocketChatSession::SocketChatSession(SocketController& session, ChatViewModel& chat)
    : m_session(&session)
{
    const QPointer<ChatViewModel> model(&chat);
    session.onChatMessage = [model](const QJsonObject& payload) {
        if (model)
            model->handleChatResponse(payload);
    };
    session.onChatHistory = [model](const QJsonArray& entries) {
        if (model)
            model->handleChatHistory(entries);
    };
    session.onChatCleared = [model] {
        if (model)
            model->handleChatCleared();
    };
    session.onAgentSuggestions = [model](const QJsonObject& payload) {
        if (model)
            model->handleAgentSuggestions(payload);
    };
    session.onConnectStatusChange = [model](bool connected) {
        if (model)
            model->handleConnectStatus(connected);
    };
    chat.setSession(this);
}

SocketChatSession::~SocketChatSession()
{
    if (!m_session)
        return;
    m_session->onChatMessage = nullptr;
    m_session->onChatHistory = nullptr;
    m_session->onChatCleared = nullptr;
    m_session->onAgentSuggestions = nullptr;
    m_session->onConnectStatusChange = nullptr;
}

bool SocketChatSession::isConnected() const
{
    return m_session && m_session->isConnected();
}

bool SocketChatSession::sendChatMessage(const QString& text)
{
    return m_session && m_session->sendChatMessage(text);
}

bool SocketChatSession::getChatHistory(int limit)
{
    return m_session && m_session->getChatHistory(limit);
}

#include "app/UtilityMiniWindow.h"

#include "account/Analytics.h"
#include "app/UtilityWindowManager.h"
#include "call/CallController.h"
#include "chat/ChatController.h"
#include "core/Logging.h"

#include <algorithm>

using namespace Qt::StringLiterals;

UtilityMiniWindow::UtilityMiniWindow(UtilityWindowManager& manager, CallController& call,
                                     ChatController& chat, Analytics& analytics, QObject* parent)
    : QObject(parent), m_manager(&manager), m_call(&call), m_chat(&chat), m_analytics(analytics),
      m_selectedTab(tabs().first())
{
    connect(&call, &CallController::isLiveChanged, this, &UtilityMiniWindow::canChatChanged);
    ChatViewModel* model = chat.chatModel();
    for (auto changed : {&ChatViewModel::messageInserted, &ChatViewModel::messageRemoved,
                         &ChatViewModel::messageUpdated})
        connect(model, changed, this, &UtilityMiniWindow::latestAnswerChanged);
    connect(model, &ChatViewModel::messagesReset, this, &UtilityMiniWindow::latestAnswerChanged);
}

QString UtilityMiniWindow::latestAnswer() const
{
    if (!m_chat)
        return {};
    const QList<ChatMessage>& messages = m_chat->chatModel()->messages();
    const auto answer =
        std::find_if(messages.crbegin(), messages.crend(),
                     [](const ChatMessage& message) { return !message.isFromUser; });
    return answer == messages.crend() ? QString() : answer->content;
}

QStringList UtilityMiniWindow::tabs()
{
    return {u"Summary"_s, u"Actions"_s, u"Insights"_s};
}

bool UtilityMiniWindow::canChat() const
{
    return m_call && m_call->isLive();
}

QString UtilityMiniWindow::chatPlaceholder() const
{
    return canChat() ? u"Ask me anything..."_s : u"Start a call to chat with the AI assistant"_s;
}

void UtilityMiniWindow::selectTab(const QString& tab)
{
    if (!tabs().contains(tab) || tab == m_selectedTab)
        return;
    m_selectedTab = tab;
    m_analytics.track(u"Mini Window Tab Selected"_s, {{u"tab"_s, tab}});
    Q_EMIT selectedTabChanged();
}

void UtilityMiniWindow::toggleExpanded()
{
    m_isExpanded = !m_isExpanded;
    qCInfo(lcApp).noquote() << u"🔄 [UtilityWindow] Expand button tapped - isExpanded: "_s +
                                   (m_isExpanded ? u"true"_s : u"false"_s);
    Q_EMIT isExpandedChanged();
}

void UtilityMiniWindow::close()
{
    qCInfo(lcApp) << "❌ [UtilityWindow] Close button tapped";
    if (m_manager)
        m_manager->hide();
}

bool UtilityMiniWindow::sendMessage(const QString& text)
{
    if (!canChat()) {
        qCInfo(lcApp) << "🚫 [UtilityWindow] Cannot send message - call not live";
        return false;
    }
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty() || !m_chat)
        return false;
    qCInfo(lcApp).noquote() << u"📤 [UtilityWindow] Sending message during live call: '"_s +
                                   trimmed + u"'"_s;
    m_chat->chatModel()->sendMessage(trimmed);
    return true;
}

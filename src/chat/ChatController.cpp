#include "chat/ChatController.h"

#include "call/CallController.h"
#include "tools/ConfigurationManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

using namespace Qt::StringLiterals;

ChatController::ChatController(LocalToolManager& tools, CallController& call,
                               ConfigurationManager& configuration,
                               ChatViewModel::Scheduler schedule, QObject* parent)
    : QObject(parent), m_chat(tools, std::move(schedule)), m_call(&call),
      m_configuration(&configuration)
{
    connect(&call, &CallController::isLiveChanged, this, &ChatController::isActiveChanged);
    // The conversation belongs to the call it was held in.
    connect(&call, &CallController::callEnded, &m_chat, &ChatViewModel::clear);
    connect(&m_chat, &ChatViewModel::messageInserted, this, [this](int row) {
        if (m_call && m_chat.messages().at(row).isFromUser)
            m_call->noteChatActivity();
    });
    connect(&call, &CallController::callModelChanged, this, &ChatController::agentModeChanged);
    connect(&m_chat, &ChatViewModel::pendingToolApprovalsChanged, this,
            &ChatController::approvalPromptChanged);
    // Switching an integration on answers the notice that asked for it.
    connect(&configuration, &ConfigurationManager::integrationsConfigChanged, this, [this] {
        if (m_showingNoToolsNotification && hasEnabledTools())
            setShowingNoToolsNotification(false);
    });
}

bool ChatController::isActive() const
{
    return m_call && m_call->isLive();
}

bool ChatController::isAgentModeEnabled() const
{
    return m_call && m_call->callModel().isAgentModeEnabled;
}

bool ChatController::hasEnabledTools() const
{
    if (!m_configuration)
        return false;
    const std::optional<QString> document = m_configuration->toolConfiguration();
    if (!document)
        return false;
    return !QJsonDocument::fromJson(document->toUtf8())
                .object()
                .value(u"enabledTools"_s)
                .toArray()
                .isEmpty();
}

bool ChatController::setAgentModeEnabled(bool enabled)
{
    if (!m_call)
        return false;
    if (enabled && !hasEnabledTools()) {
        setShowingNoToolsNotification(true);
        return false;
    }
    setShowingNoToolsNotification(false);
    m_agentModeNotice = enabled ? u"Agent Mode Started"_s : QString();
    m_call->setAgentMode(enabled, m_call->callModel().agentSuggestionIntervalMs);
    m_call->sendAgentSettings();
    Q_EMIT agentModeChanged();
    return true;
}

void ChatController::dismissNoToolsNotification()
{
    setShowingNoToolsNotification(false);
}

void ChatController::dismissAgentModeNotice()
{
    if (m_agentModeNotice.isEmpty())
        return;
    m_agentModeNotice.clear();
    Q_EMIT agentModeChanged();
}

void ChatController::setShowingNoToolsNotification(bool showing)
{
    if (m_showingNoToolsNotification == showing)
        return;
    m_showingNoToolsNotification = showing;
    Q_EMIT showingNoToolsNotificationChanged();
}

QVariantMap ChatController::approvalPrompt() const
{
    if (m_chat.pendingToolApprovals().isEmpty())
        return {};
    // One prompt at a time, oldest first: each request is answered on its own.
    const ChatMessage& message = m_chat.pendingToolApprovals().first();
    const bool suggestion = ChatViewModel::isSuggestion(message.id);
    QVariantList tools;
    for (const ToolCall& call : message.toolCalls.value_or(QList<ToolCall>()))
        tools.append(
            QVariantMap{{u"name"_s, call.name},
                        {u"title"_s, m_chat.toolTitle(call.name)},
                        {u"arguments"_s, ChatRecords::readableArguments(call.parameters)}});
    return {{u"messageId"_s, message.id},
            {u"isSuggestion"_s, suggestion},
            {u"title"_s, suggestion ? u"Agent Suggestion"_s : u"Permission Required"_s},
            {u"intro"_s, suggestion ? u"The AI agent suggests using this tool:"_s
                                    : u"The AI wants to use the following tools:"_s},
            {u"content"_s, message.content},
            {u"tools"_s, tools},
            {u"waiting"_s, static_cast<int>(m_chat.pendingToolApprovals().size())}};
}

QString ChatController::exportConversation(const QUrl& file) const
{
    const QString path = file.isLocalFile() ? file.toLocalFile() : file.toString();
    QSaveFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return u"Could not write "_s + path + u": "_s + out.errorString();
    out.write(m_chat.exportMarkdown().toUtf8());
    if (!out.commit())
        return u"Could not write "_s + path + u": "_s + out.errorString();
    return {};
}

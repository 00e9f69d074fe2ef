// What the chat panels hold: the conversation's model and its rows, whether
// the chat is usable (a call is live), the prompt for the tools waiting for
// the user's permission, and the agent-mode switch with its notices.
#pragma once

#include "chat/ChatMessageListModel.h"
#include "chat/ChatViewModel.h"

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QVariantMap>

class CallController;
class ConfigurationManager;

// Lives on the GUI thread.
class ChatController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ChatViewModel* chatModel READ chatModel CONSTANT)
    Q_PROPERTY(ChatMessageListModel* messages READ messages CONSTANT)
    Q_PROPERTY(bool isActive READ isActive NOTIFY isActiveChanged)
    Q_PROPERTY(bool showingNoToolsNotification READ showingNoToolsNotification NOTIFY
                   showingNoToolsNotificationChanged)
    Q_PROPERTY(bool isAgentModeEnabled READ isAgentModeEnabled NOTIFY agentModeChanged)
    // "Agent Mode Started" after a successful start, until dismissed.
    Q_PROPERTY(QString agentModeNotice READ agentModeNotice NOTIFY agentModeChanged)
    // The first pending request, empty when none waits: "messageId",
    // "isSuggestion", "title", "intro", the asking message's "content",
    // "tools" ([{"name", "title", "arguments"}]) and how many are "waiting".
    Q_PROPERTY(QVariantMap approvalPrompt READ approvalPrompt NOTIFY approvalPromptChanged)

public:
    // `tools`, `call` and `configuration` outlive the controller.
    ChatController(LocalToolManager& tools, CallController& call,
                   ConfigurationManager& configuration, ChatViewModel::Scheduler schedule = {},
                   QObject* parent = nullptr);

    ChatViewModel* chatModel() { return &m_chat; }
    ChatMessageListModel* messages() { return &m_rows; }
    bool isActive() const;
    bool showingNoToolsNotification() const { return m_showingNoToolsNotification; }
    bool isAgentModeEnabled() const;
    QString agentModeNotice() const { return m_agentModeNotice; }
    QVariantMap approvalPrompt() const;

    // Switches agent mode; starting it is refused (false, with the
    // notification shown) while no integration offers a tool.
    Q_INVOKABLE bool setAgentModeEnabled(bool enabled);
    Q_INVOKABLE void dismissNoToolsNotification();
    Q_INVOKABLE void dismissAgentModeNotice();
    // Whether any integration's tool would be offered to the assistant.
    bool hasEnabledTools() const;

    // Writes the conversation's Markdown to `file`; empty on success, else
    // why not.
    Q_INVOKABLE QString exportConversation(const QUrl& file) const;

Q_SIGNALS:
    void isActiveChanged();
    void showingNoToolsNotificationChanged();
    void agentModeChanged();
    void approvalPromptChanged();

private:
    void setShowingNoToolsNotification(bool showing);

    ChatViewModel m_chat;
    ChatMessageListModel m_rows{m_chat};
    QPointer<CallController> m_call;
    QPointer<ConfigurationManager> m_configuration;
    bool m_showingNoToolsNotification = false;
    QString m_agentModeNotice;
};

// The state behind the in-call chat: the conversation, its one error line,
// the suggested questions, and the assistant messages whose tool calls wait
// for the user's permission. Sends go through the backend session; approved
// tool calls run through the tool manager and their results go back to the
// assistant as one message.
#pragma once

#include "chat/ChatRecords.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <chrono>
#include <functional>

class ChatSession;
class LocalToolManager;

// Lives on the GUI thread; every change is made there.
class ChatViewModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(QStringList suggestedQuestions READ suggestedQuestions CONSTANT)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(
        int pendingApprovalCount READ pendingApprovalCount NOTIFY pendingToolApprovalsChanged)

public:
    // Where the tool calls of an assistant message stand.
    enum class ApprovalState
    {
        None,     // it asked for nothing
        Pending,  // waiting for the user's yes or no
        Running,  // approved: its tools run, then their results go back
        Answered, // its results went back to the assistant
        Denied,
    };
    Q_ENUM(ApprovalState)

    // Runs `work` once after `delay`, unless `context` has gone.
    using Scheduler = std::function<void(std::chrono::milliseconds delay, QObject* context,
                                         std::function<void()> work)>;

    static constexpr std::chrono::milliseconds answerTimeout{30'000};

    // `tools` outlives the model; the session may come and go (setSession).
    explicit ChatViewModel(LocalToolManager& tools, Scheduler schedule = {},
                           QObject* parent = nullptr);

    void setSession(ChatSession* session) { m_session = session; }

    const QList<ChatMessage>& messages() const { return m_messages; }
    QString errorMessage() const { return m_errorMessage; }
    QStringList suggestedQuestions() const { return m_suggestedQuestions; }
    bool isLoading() const { return m_isLoading; }
    const QList<ChatMessage>& pendingToolApprovals() const { return m_pending; }
    int pendingApprovalCount() const { return static_cast<int>(m_pending.size()); }
    ApprovalState approvalState(const QString& messageId) const;
    // Whether the message is one of the agent's suggestions rather than an answer.
    static bool isSuggestion(const QString& messageId);
    // How a tool is named to people: its registered name, else its identifier.
    QString toolTitle(const QString& identifier) const;

    Q_INVOKABLE void sendMessage(const QString& text);
    // Runs the tool calls of the pending message `messageId` (a local id), in
    // order, then sends their results. Nothing runs for an unknown id.
    Q_INVOKABLE void approve(const QString& messageId);
    // Drops the pending message's calls; nothing is sent.
    Q_INVOKABLE void deny(const QString& messageId);
    void sendToolResults(const QList<ToolResult>& results);
    Q_INVOKABLE QString exportMarkdown() const;
    // Forgets the conversation and everything pending (a call ended).
    Q_INVOKABLE void clear();

    // The session's callbacks.
    void handleChatResponse(const QJsonObject& payload);
    void handleChatHistory(const QJsonArray& entries);
    void handleChatCleared();
    void handleAgentSuggestions(const QJsonObject& payload);
    void handleConnectStatus(bool connected);

    // The text a suggestion is shown with.
    static QString suggestionText(const AgentSuggestion& suggestion);
    // The message the results of approved tools go back to the assistant in.
    static QString resultsMessage(const QList<ToolResult>& results);

Q_SIGNALS:
    // The conversation's changes, one row at a time so that a long
    // conversation is never laid out again for one more message.
    void messageInserted(int row);
    void messageRemoved(int row);
    void messageUpdated(int row);
    void messagesReset();
    void errorMessageChanged();
    void isLoadingChanged();
    void pendingToolApprovalsChanged();

private:
    void append(const ChatMessage& message);
    void setError(const QString& error);
    void setLoading(bool loading);
    void dropTrailingPlaceholder();
    void appendPlaceholder(const QString& text);
    void runCalls(const QString& messageId, QList<ToolCall> calls, QList<ToolResult> results);
    void setApprovalState(const QString& messageId, ApprovalState state);
    void scheduleAnswerTimeout();
    void resetMessages(QList<ChatMessage> messages);

    LocalToolManager& m_tools;
    Scheduler m_schedule;
    ChatSession* m_session = nullptr;
    QList<ChatMessage> m_messages;
    QString m_errorMessage;
    QStringList m_suggestedQuestions;
    QList<ChatMessage> m_pending;
    QHash<QString, ApprovalState> m_approvals; // by message id; None is not kept
    bool m_isLoading = false;
    // Bumped by clear(), so that work begun before it reports into nothing.
    int m_generation = 0;
};

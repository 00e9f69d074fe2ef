#include "chat/ChatViewModel.h"

#include "chat/ChatSession.h"
#include "core/Logging.h"
#include "tools/LocalTool.h"
#include "tools/LocalToolManager.h"

#include <QJsonDocument>
#include <QTimer>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView suggestionPrefix = u"agent_suggestion_";

QString freshId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

ChatMessage placeholder(const QString& text)
{
    ChatMessage message;
    message.id = freshId();
    message.content = text;
    message.timestamp = QDateTime::currentDateTimeUtc();
    message.isLoading = true;
    return message;
}

// "brave_web_search" → "Brave Web Search"
QString capitalisedWords(const QString& identifier)
{
    QStringList words = QString(identifier).replace(u'_', u' ').split(u' ', Qt::SkipEmptyParts);
    for (QString& word : words)
        word[0] = word.at(0).toUpper();
    return words.join(u' ');
}

} // namespace

ChatViewModel::ChatViewModel(LocalToolManager& tools, Scheduler schedule, QObject* parent)
    : QObject(parent), m_tools(tools),
      m_schedule(std::move(schedule)), m_suggestedQuestions{
                                           u"Summarize the key points from this call"_s,
                                           u"What are the next steps?"_s,
                                           u"What follow-up actions should I take?"_s}
{
    if (!m_schedule) {
        m_schedule = [](std::chrono::milliseconds delay, QObject* context,
                        std::function<void()> work) {
            QTimer::singleShot(delay, context, std::move(work));
        };
    }
}

void ChatViewModel::sendMessage(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty() || !m_session)
        return;
    setError(QString()); // the line spoke of the previous message
    ChatMessage mine;
    mine.id = freshId();
    mine.content = trimmed;
    mine.isFromUser = true;
    mine.timestamp = QDateTime::currentDateTimeUtc();
    append(mine);
    setLoading(true);
    appendPlaceholder(u"Thinking..."_s);
    scheduleAnswerTimeout();
    // A refused send (session not ready) is ended by the timeout alone.
    m_session->sendChatMessage(trimmed);
}

void ChatViewModel::handleChatResponse(const QJsonObject& payload)
{
    setLoading(false);
    dropTrailingPlaceholder();
    if (!payload.value(u"success"_s).toBool(false)) {
        setError(payload.value(u"error"_s).isString() ? payload.value(u"error"_s).toString()
                                                      : u"Failed to get response from AI"_s);
        return;
    }
    QString why;
    const std::optional<ChatMessage> message = ChatRecords::decodeChatResponse(payload, &why);
    if (!message) {
        qCWarning(lcSession).noquote() << u"❌ "_s + why;
        setError(u"Failed to parse AI response"_s);
        return;
    }
    append(*message);
    if (message->isPendingToolApproval && message->toolCalls && !message->toolCalls->isEmpty()) {
        qCInfo(lcSession).noquote()
            << u"🔧 AI message requires tool approval: "_s + message->content;
        m_pending.append(*message);
        setApprovalState(message->id, ApprovalState::Pending);
        Q_EMIT pendingToolApprovalsChanged();
    }
}

bool ChatViewModel::isSuggestion(const QString& messageId)
{
    return messageId.startsWith(suggestionPrefix);
}

QString ChatViewModel::toolTitle(const QString& identifier) const
{
    const std::shared_ptr<LocalTool> tool = m_tools.tool(identifier);
    return tool ? tool->name() : identifier;
}

void ChatViewModel::scheduleAnswerTimeout()
{
    // Each message has its own time-out, and all of them watch the one loading
    // flag: whichever fires while an answer is still awaited ends the wait.
    const int generation = m_generation;
    m_schedule(answerTimeout, this, [this, generation] {
        if (generation != m_generation || !m_isLoading)
            return;
        setLoading(false);
        dropTrailingPlaceholder();
        setError(u"Message timeout - please try again"_s);
    });
}

ChatViewModel::ApprovalState ChatViewModel::approvalState(const QString& messageId) const
{
    return m_approvals.value(messageId, ApprovalState::None);
}

void ChatViewModel::setApprovalState(const QString& messageId, ApprovalState state)
{
    m_approvals.insert(messageId, state);
    for (int row = 0; row < m_messages.size(); ++row) {
        if (m_messages.at(row).id == messageId) {
            Q_EMIT messageUpdated(row);
            return;
        }
    }
}

void ChatViewModel::approve(const QString& messageId)
{
    const auto found = std::find_if(m_pending.cbegin(), m_pending.cend(),
                                    [&](const ChatMessage& each) { return each.id == messageId; });
    if (found == m_pending.cend())
        return;
    const QList<ToolCall> calls = found->toolCalls.value_or(QList<ToolCall>());
    m_pending.erase(found);
    setApprovalState(messageId, ApprovalState::Running);
    Q_EMIT pendingToolApprovalsChanged();
    runCalls(messageId, calls, {});
}

void ChatViewModel::deny(const QString& messageId)
{
    const qsizetype removed =
        m_pending.removeIf([&](const ChatMessage& each) { return each.id == messageId; });
    if (removed > 0) {
        setApprovalState(messageId, ApprovalState::Denied);
        Q_EMIT pendingToolApprovalsChanged();
    }
}

// One at a time, in the order asked: a later call may depend on an earlier
// one's effect, and the results go back in the same order.
void ChatViewModel::runCalls(const QString& messageId, QList<ToolCall> calls,
                             QList<ToolResult> results)
{
    if (calls.isEmpty()) {
        // The results stay with the message that asked for them, for the view
        // and the export.
        for (int row = 0; row < m_messages.size(); ++row) {
            if (m_messages.at(row).id == messageId) {
                m_messages[row].toolResults = results;
                Q_EMIT messageUpdated(row);
            }
        }
        setApprovalState(messageId, ApprovalState::Answered);
        sendToolResults(results);
        return;
    }
    const ToolCall call = calls.takeFirst();
    const int generation = m_generation;
    m_tools.executeTool(call.name, call.parameters,
                        [this, self = QPointer<ChatViewModel>(this), messageId, call, calls,
                         results, generation](const ToolExecution& execution) mutable {
                            if (!self || generation != m_generation)
                                return;
                            ToolResult result;
                            result.id = freshId();
                            result.toolCallId = call.id;
                            result.result = execution.text;
                            result.success = execution.success;
                            results.append(result);
                            runCalls(messageId, calls, results);
                        });
}

QString ChatViewModel::resultsMessage(const QList<ToolResult>& results)
{
    QStringList blocks;
    for (const ToolResult& result : results)
        blocks.append((result.success ? u"Tool Result:\n"_s : u"Tool Error:\n"_s) + result.result);
    return u"Here are the tool execution results:\n\n"_s + blocks.join(u"\n\n"_s) +
           u"\n\nPlease provide a comprehensive response based on these results."_s;
}

void ChatViewModel::sendToolResults(const QList<ToolResult>& results)
{
    if (!m_session || !m_session->isConnected()) {
        setError(u"Cannot send tool results - not connected"_s);
        return;
    }
    appendPlaceholder(u"Processing tool results..."_s);
    setLoading(true);
    // The results are a message like any other: their answer may not come.
    scheduleAnswerTimeout();
    m_session->sendChatMessage(resultsMessage(results));
}

QString ChatViewModel::suggestionText(const AgentSuggestion& suggestion)
{
    const QString body = suggestion.text && !suggestion.text->trimmed().isEmpty()
                             ? *suggestion.text
                             : u"Use tool: "_s + capitalisedWords(suggestion.toolName);
    return u"💡 **Agent Suggestion**: "_s + body;
}

void ChatViewModel::handleAgentSuggestions(const QJsonObject& payload)
{
    for (const QJsonValue entry : payload.value(u"suggestions"_s).toArray()) {
        const std::optional<AgentSuggestion> suggestion = ChatRecords::decodeAgentSuggestion(entry);
        if (!suggestion)
            continue;
        ChatMessage message;
        message.id = suggestionPrefix.toString() + freshId();
        message.content = suggestionText(*suggestion);
        message.timestamp = QDateTime::currentDateTimeUtc();
        ToolCall call;
        call.id = suggestion->id;
        call.name = suggestion->toolName;
        call.parameters = suggestion->parameters.value_or(QJsonObject());
        message.toolCalls = QList<ToolCall>{call};
        message.isPendingToolApproval = true;
        append(message);
        m_pending.append(message);
        setApprovalState(message.id, ApprovalState::Pending);
        Q_EMIT pendingToolApprovalsChanged();
    }
}

void ChatViewModel::handleConnectStatus(bool connected)
{
    if (connected) {
        if (m_session)
            m_session->getChatHistory(50);
        return;
    }
    setLoading(false);
    dropTrailingPlaceholder();
    setError(u"Connection lost. Trying to reconnect..."_s);
}

void ChatViewModel::handleChatHistory(const QJsonArray& entries)
{
    QList<ChatMessage> history;
    for (const QJsonValue entry : entries) {
        // An entry is a message, or holds one under "message" (an object, or
        // its text) with the entry's own "timestamp".
        QJsonObject record = entry.toObject();
        const QJsonValue inner = record.value(u"message"_s);
        if (inner.isObject()) {
            const QJsonValue timestamp = record.value(u"timestamp"_s);
            record = inner.toObject();
            if (!record.contains(u"timestamp"_s) && !timestamp.isUndefined())
                record.insert(u"timestamp"_s, timestamp);
        } else if (inner.isString() && !record.contains(u"content"_s)) {
            record.insert(u"content"_s, inner);
        }
        if (std::optional<ChatMessage> message = ChatRecords::decodeChatMessage(record)) {
            message->isPendingToolApproval = false; // a past request is not asked again
            history.append(std::move(*message));
        }
    }
    resetMessages(std::move(history));
}

void ChatViewModel::handleChatCleared()
{
    resetMessages({});
}

void ChatViewModel::resetMessages(QList<ChatMessage> messages)
{
    m_messages = std::move(messages);
    // Requests still waiting keep their prompt; a message gone from view
    // needs no state.
    for (auto it = m_approvals.begin(); it != m_approvals.end();) {
        if (it.value() == ApprovalState::Pending || it.value() == ApprovalState::Running)
            ++it;
        else
            it = m_approvals.erase(it);
    }
    Q_EMIT messagesReset();
}

void ChatViewModel::clear()
{
    ++m_generation;
    m_messages.clear();
    m_pending.clear();
    m_approvals.clear();
    setLoading(false);
    setError(QString());
    Q_EMIT messagesReset();
    Q_EMIT pendingToolApprovalsChanged();
}

QString ChatViewModel::exportMarkdown() const
{
    QString text = u"# Chat Conversation\n\n"_s;
    for (const ChatMessage& message : m_messages) {
        if (message.isLoading)
            continue;
        text += u"**"_s + (message.isFromUser ? u"You"_s : u"Assistant"_s) + u"** ("_s +
                message.timestamp.toString(Qt::ISODate) + u"):\n\n"_s + message.content + u"\n\n"_s;
        if (message.toolResults && !message.toolResults->isEmpty()) {
            text += u"*Tool Results:*\n"_s;
            for (const ToolResult& result : *message.toolResults)
                text += u"- "_s + (result.success ? u""_s : u"(failed) "_s) + result.result + u'\n';
            text += u'\n';
        }
    }
    return text;
}

void ChatViewModel::append(const ChatMessage& message)
{
    m_messages.append(message);
    Q_EMIT messageInserted(static_cast<int>(m_messages.size()) - 1);
}

void ChatViewModel::appendPlaceholder(const QString& text)
{
    append(placeholder(text));
}

void ChatViewModel::dropTrailingPlaceholder()
{
    if (!m_messages.isEmpty() && m_messages.last().isLoading) {
        m_messages.removeLast();
        Q_EMIT messageRemoved(static_cast<int>(m_messages.size()));
    }
}

void ChatViewModel::setError(const QString& error)
{
    if (m_errorMessage == error)
        return;
    m_errorMessage = error;
    Q_EMIT errorMessageChanged();
}

void ChatViewModel::setLoading(bool loading)
{
    if (m_isLoading == loading)
        return;
    m_isLoading = loading;
    Q_EMIT isLoadingChanged();
}

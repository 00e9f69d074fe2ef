#include "cli/CallChat.h"

#include "chat/ChatRecords.h"
#include "chat/ChatViewModel.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

// How long the history the session asks for at start may take before the
// first question goes out anyway.
constexpr int historyWaitMs = 2000;

} // namespace

CallChat::CallChat(ChatViewModel& chat, QStringList questions, Approval approval, Printer print,
                   QObject* parent)
    : QObject(parent), m_chat(chat), m_questions(std::move(questions)), m_approval(approval),
      m_print(std::move(print)), m_finished(m_questions.isEmpty())
{
    m_historyWait.setSingleShot(true);
    m_historyWait.setInterval(historyWaitMs);
    connect(&m_historyWait, &QTimer::timeout, this, [this] {
        m_readyToAsk = true;
        scheduleSettle();
    });

    connect(&m_chat, &ChatViewModel::messageInserted, this, &CallChat::printInserted);
    connect(&m_chat, &ChatViewModel::messageUpdated, this, &CallChat::printResults);
    connect(&m_chat, &ChatViewModel::errorMessageChanged, this, &CallChat::printError);
    connect(&m_chat, &ChatViewModel::messagesReset, this, [this] {
        if (m_started && !m_readyToAsk) {
            m_historyWait.stop();
            m_readyToAsk = true;
        }
        scheduleSettle();
    });
    connect(&m_chat, &ChatViewModel::isLoadingChanged, this, &CallChat::scheduleSettle);
    connect(&m_chat, &ChatViewModel::pendingToolApprovalsChanged, this, &CallChat::scheduleSettle);
}

void CallChat::start()
{
    if (m_started || m_stopped)
        return;
    m_started = true;
    m_historyWait.start();
}

void CallChat::stop()
{
    m_stopped = true;
    m_historyWait.stop();
}

QString CallChat::indented(const QString& prefix, const QString& text)
{
    QStringList lines = text.split(u'\n');
    for (qsizetype i = 1; i < lines.size(); ++i) {
        if (!lines.at(i).isEmpty())
            lines[i] = u"  "_s + lines.at(i);
    }
    return prefix + lines.join(u'\n');
}

void CallChat::printInserted(int row)
{
    if (m_stopped || row < 0 || row >= m_chat.messages().size())
        return;
    const ChatMessage& message = m_chat.messages().at(row);
    // The user's questions are printed as they are asked; placeholders stand
    // for answers still to come.
    if (message.isFromUser || message.isLoading)
        return;
    m_print(u"answer"_s, {{u"text"_s, message.content}},
            indented(u"Assistant: "_s, message.content));
    for (const ToolCall& call : message.toolCalls.value_or(QList<ToolCall>())) {
        const QString arguments = ChatRecords::readableArguments(call.parameters);
        m_print(u"toolCall"_s, {{u"name"_s, call.name}, {u"arguments"_s, call.parameters}},
                u"Tool call: "_s + call.name +
                    (arguments.isEmpty() ? QString() : indented(u"\n  "_s, arguments)));
    }
}

void CallChat::printResults(int row)
{
    if (m_stopped || row < 0 || row >= m_chat.messages().size())
        return;
    const ChatMessage& message = m_chat.messages().at(row);
    if (!message.toolResults || m_resultsPrinted.contains(message.id))
        return;
    m_resultsPrinted.insert(message.id);
    for (const ToolResult& result : *message.toolResults) {
        m_print(u"toolResult"_s, {{u"success"_s, result.success}, {u"text"_s, result.result}},
                indented(result.success ? u"Tool result: "_s : u"Tool error: "_s, result.result));
    }
}

void CallChat::printError()
{
    const QString error = m_chat.errorMessage();
    if (m_stopped || error.isEmpty())
        return;
    m_print(u"chatError"_s, {{u"text"_s, error}}, u"Chat error: "_s + error);
}

// The chat's signals arrive in the middle of its own changes (an answer's
// loading flag drops before the answer is appended): decide once they are done.
void CallChat::scheduleSettle()
{
    if (m_settleQueued || m_stopped)
        return;
    m_settleQueued = true;
    QMetaObject::invokeMethod(this, &CallChat::settle, Qt::QueuedConnection);
}

bool CallChat::isBusy() const
{
    if (m_chat.isLoading())
        return true;
    if (!m_chat.pendingToolApprovals().isEmpty())
        return true;
    return std::any_of(m_approved.cbegin(), m_approved.cend(), [this](const QString& id) {
        return m_chat.approvalState(id) == ChatViewModel::ApprovalState::Running;
    });
}

void CallChat::settle()
{
    m_settleQueued = false;
    if (m_stopped)
        return;
    // Every request waiting for permission is answered as told, oldest first.
    const QList<ChatMessage> pending = m_chat.pendingToolApprovals();
    for (const ChatMessage& message : pending) {
        if (m_approval == Approval::All) {
            m_print(u"approval"_s, {{u"approved"_s, true}}, u"Approved"_s);
            m_approved.insert(message.id);
            m_chat.approve(message.id);
        } else {
            m_print(u"approval"_s, {{u"approved"_s, false}}, u"Denied"_s);
            m_chat.deny(message.id);
        }
    }
    // Once its results went back, the answer to them is awaited like any
    // other, time-out included.
    m_approved.removeIf([this](const QString& id) {
        return m_chat.approvalState(id) != ChatViewModel::ApprovalState::Running;
    });
    if (!m_started || !m_readyToAsk || isBusy())
        return;
    askNext();
}

void CallChat::askNext()
{
    if (m_nextQuestion < m_questions.size()) {
        const QString question = m_questions.at(m_nextQuestion++);
        m_print(u"ask"_s, {{u"text"_s, question}}, indented(u"You: "_s, question));
        m_chat.sendMessage(question);
        return;
    }
    if (!m_finished) {
        m_finished = true;
        Q_EMIT finished();
    }
}

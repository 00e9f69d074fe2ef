// The assistant chat of a headless call: asks the questions given on the
// command line one at a time, answers every tool request the way it was told
// (approve all or none), and prints the conversation as it happens.
#pragma once

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <functional>

class ChatViewModel;

// Lives on the GUI thread, with the chat it drives.
class CallChat : public QObject
{
    Q_OBJECT

public:
    enum class Approval
    {
        None, // print the calls and deny them
        All,  // run them; their results go back to the assistant
    };

    // One output line (or a few, indented): its JSON event name and fields,
    // and its text for people.
    using Printer =
        std::function<void(const QString& event, const QJsonObject& fields, const QString& text)>;

    // `chat` outlives this object.
    CallChat(ChatViewModel& chat, QStringList questions, Approval approval, Printer print,
             QObject* parent = nullptr);

    // The session is ready (or will not be): the questions may go out once
    // the conversation's history has come, or after a short wait without it.
    void start();
    // The call is ending: nothing more is asked or printed.
    void stop();
    // Every question has been answered (or failed, or timed out), follow-ups
    // included; true from the start when there are none.
    bool isFinished() const { return m_finished; }

    // "Assistant: " and the text, later lines indented by two spaces.
    static QString indented(const QString& prefix, const QString& text);

Q_SIGNALS:
    void finished();

private:
    void printInserted(int row);
    void printResults(int row);
    void printError();
    void scheduleSettle();
    void settle();
    bool isBusy() const;
    void askNext();

    ChatViewModel& m_chat;
    QStringList m_questions;
    const Approval m_approval;
    Printer m_print;
    // Waits for the history the session asks for when it becomes ready, so
    // that it cannot replace a conversation that has already begun.
    QTimer m_historyWait;
    QSet<QString> m_approved;       // message ids approved here, still running or awaited
    QSet<QString> m_resultsPrinted; // message ids whose tool results are out
    qsizetype m_nextQuestion = 0;
    bool m_started = false;
    bool m_readyToAsk = false;
    bool m_settleQueued = false;
    bool m_stopped = false;
    bool m_finished = false;
};

// What the mini window's view does: its tabs, the expanded state, the close
// button, and the chat field that hands messages to the shared assistant
// chat during a live call only.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class Analytics;
class CallController;
class ChatController;
class UtilityWindowManager;

// Lives on the GUI thread; the services it is given outlive it.
class UtilityMiniWindow : public QObject
{
    Q_OBJECT
    // The tabs, in order: "Summary", "Actions", "Insights".
    Q_PROPERTY(QStringList tabs READ tabs CONSTANT)
    Q_PROPERTY(QString selectedTab READ selectedTab NOTIFY selectedTabChanged)
    Q_PROPERTY(bool isExpanded READ isExpanded NOTIFY isExpandedChanged)
    // A call is live: the chat field takes messages.
    Q_PROPERTY(bool canChat READ canChat NOTIFY canChatChanged)
    Q_PROPERTY(QString chatPlaceholder READ chatPlaceholder NOTIFY canChatChanged)
    // The assistant's last message (its placeholder while an answer is
    // awaited), as Markdown; empty before the first.
    Q_PROPERTY(QString latestAnswer READ latestAnswer NOTIFY latestAnswerChanged)

public:
    UtilityMiniWindow(UtilityWindowManager& manager, CallController& call, ChatController& chat,
                      Analytics& analytics, QObject* parent = nullptr);

    static QStringList tabs();
    QString selectedTab() const { return m_selectedTab; }
    bool isExpanded() const { return m_isExpanded; }
    bool canChat() const;
    QString chatPlaceholder() const;
    QString latestAnswer() const;

    // Unknown tabs are ignored.
    Q_INVOKABLE void selectTab(const QString& tab);
    Q_INVOKABLE void toggleExpanded();
    // "Close Utility Window": the same as hiding it.
    Q_INVOKABLE void close();
    // False (nothing sent) outside a live call or for an empty text.
    Q_INVOKABLE bool sendMessage(const QString& text);

Q_SIGNALS:
    void selectedTabChanged();
    void isExpandedChanged();
    void canChatChanged();
    void latestAnswerChanged();

private:
    QPointer<UtilityWindowManager> m_manager;
    QPointer<CallController> m_call;
    QPointer<ChatController> m_chat;
    Analytics& m_analytics;
    QString m_selectedTab;
    bool m_isExpanded = false;
};

// The assistant's Markdown as the chat panel shows it: formatting kept, raw
// HTML shown as the text it is, images never fetched, and links opened only
// when the user clicks one that leads to the web or to mail.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

// Lives on the GUI thread.
class ChatMarkdown : public QObject
{
    Q_OBJECT

public:
    // `openUrl` hands a link to the desktop (the browser, the mail program).
    explicit ChatMarkdown(std::function<bool(const QUrl&)> openUrl, QObject* parent = nullptr);

    // Rich text for a Text item. Markdown's own HTML (tags, entities written
    // as markup) is not interpreted, and an image becomes its description in
    // brackets: a picture from the assistant could be a beacon telling some
    // host that the answer was read.
    Q_INVOKABLE static QString toHtml(const QString& markdown);

    // Whether a clicked link may leave the app: http, https and mailto only.
    static bool isOpenable(const QUrl& url);
    // Opens a clicked link when it is openable; false otherwise.
    Q_INVOKABLE bool openLink(const QString& link) const;

private:
    std::function<bool(const QUrl&)> m_openUrl;
};

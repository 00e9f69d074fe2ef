#include "app/ChatMarkdown.h"

#include <QList>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFragment>
#include <QTextImageFormat>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

ChatMarkdown::ChatMarkdown(std::function<bool(const QUrl&)> openUrl, QObject* parent)
    : QObject(parent), m_openUrl(std::move(openUrl))
{}

QString ChatMarkdown::toHtml(const QString& markdown)
{
    QTextDocument document;
    document.setMarkdown(markdown,
                         QTextDocument::MarkdownFeatures(QTextDocument::MarkdownDialectGitHub |
                                                         QTextDocument::MarkdownNoHTML));
    // Images out, last first so that earlier positions stay valid.
    QList<std::pair<int, QString>> images;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            if (fragment.isValid() && fragment.charFormat().isImageFormat()) {
                const QString name = fragment.charFormat().toImageFormat().name();
                for (int i = 0; i < fragment.length(); ++i)
                    images.append({fragment.position() + i, name});
            }
        }
    }
    std::reverse(images.begin(), images.end());
    for (const auto& [position, name] : images) {
        QTextCursor cursor(&document);
        cursor.setPosition(position);
        cursor.setPosition(position + 1, QTextCursor::KeepAnchor);
        cursor.insertText(u"[image: "_s + name + u']', QTextCharFormat());
    }
    return document.toHtml();
}

bool ChatMarkdown::isOpenable(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    if (!url.isValid())
        return false;
    if (scheme == u"mailto"_s)
        return !url.path().isEmpty();
    return (scheme == u"http"_s || scheme == u"https"_s) && !url.host().isEmpty();
}

bool ChatMarkdown::openLink(const QString& link) const
{
    const QUrl url(link, QUrl::StrictMode);
    if (!isOpenable(url) || !m_openUrl)
        return false;
    return m_openUrl(url);
}

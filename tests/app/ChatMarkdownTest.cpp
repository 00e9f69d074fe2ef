// The assistant's Markdown as the chat shows it: formatting kept, markup in
// the text shown as text, images never loaded, and only web and mail links
// handed to the desktop.
#include "app/ChatMarkdown.h"

#include <QTest>

using namespace Qt::StringLiterals;

class ChatMarkdownTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rendering_data()
    {
        QTest::addColumn<QString>("markdown");
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QStringList>("absent");
        QTest::newRow("bold and a list")
            << u"**Key points**\n\n- one\n- two"_s
            << QStringList{u"font-weight:700"_s, u"<li"_s, u"one"_s} << QStringList{};
        QTest::newRow("a script stays text")
            << u"<script>alert(1)</script> hi"_s << QStringList{u"&lt;script&gt;"_s}
            << QStringList{u"<script"_s};
        QTest::newRow("inline markup stays text")
            << u"a <b onclick=\"x()\">bold</b> word"_s << QStringList{u"&lt;b"_s}
            << QStringList{u"<b "_s, u"<b>"_s};
        QTest::newRow("an html block stays text")
            << u"<div>\n<iframe src=\"https://evil.example\"></iframe>\n</div>"_s
            << QStringList{u"&lt;iframe"_s} << QStringList{u"<iframe"_s};
        QTest::newRow("an image is never fetched")
            << u"look ![pixel](https://tracker.example/p.png) here"_s
            << QStringList{u"[image: https://tracker.example/p.png]"_s} << QStringList{u"<img"_s};
        QTest::newRow("a link stays a link")
            << u"see [the site](https://example.com/a?b=1)"_s
            << QStringList{u"href=\"https://example.com/a?b=1\""_s} << QStringList{};
    }

    void rendering()
    {
        QFETCH(QString, markdown);
        QFETCH(QStringList, present);
        QFETCH(QStringList, absent);
        const QString html = ChatMarkdown::toHtml(markdown);
        for (const QString& part : present)
            QVERIFY2(html.contains(part), qPrintable(part + u" not in "_s + html));
        for (const QString& part : absent)
            QVERIFY2(!html.contains(part), qPrintable(part + u" in "_s + html));
    }

    void links_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<bool>("opened");
        QTest::newRow("https") << u"https://example.com/x"_s << true;
        QTest::newRow("http") << u"http://example.com"_s << true;
        QTest::newRow("mail") << u"mailto:ken@example.com"_s << true;
        QTest::newRow("local file") << u"file:///etc/passwd"_s << false;
        QTest::newRow("the app's own links") << u"quillmoss://oauth/callback?code=x"_s << false;
        QTest::newRow("script") << u"javascript:alert(1)"_s << false;
        QTest::newRow("relative") << u"notes/today"_s << false;
        QTest::newRow("no host") << u"https://"_s << false;
        QTest::newRow("empty mail") << u"mailto:"_s << false;
    }

    void links()
    {
        QFETCH(QString, link);
        QFETCH(bool, opened);
        QList<QUrl> handed;
        const ChatMarkdown markdown([&](const QUrl& url) {
            handed.append(url);
            return true;
        });
        QCOMPARE(markdown.openLink(link), opened);
        QCOMPARE(handed.size(), opened ? 1 : 0);
    }
};

QTEST_GUILESS_MAIN(ChatMarkdownTest)
#include "ChatMarkdownTest.moc"

// Where the links handed to the app go: the web login's callback to the
// sign-in, an MCP server's OAuth callback to the flow that waits for it, and
// everything else refused with one log line that never shows the query.
#include "app/LinkRouter.h"

#include "LogCapture.h"

#include <QObject>
#include <QTest>
#include <QUrlQuery>

#include <memory>

using namespace Qt::StringLiterals;

class LinkRouterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void routesByPurpose_data()
    {
        QTest::addColumn<QString>("link");
        // "none", a flow waiting for state "s1", or one whose owner has gone.
        QTest::addColumn<QString>("flow");
        // Where the link went: "sign-in", "mcp" or "" for refused.
        QTest::addColumn<QString>("to");

        const QString callback = u"quillmoss://oauth/callback"_s;
        QTest::newRow("other scheme")
            << u"https://oauth/callback?access_token=secret"_s << u"waiting"_s << QString();
        QTest::newRow("other path")
            << u"quillmoss://oauth/elsewhere?access_token=secret"_s << u"waiting"_s << QString();
        QTest::newRow("other host")
            << u"quillmoss://settings/callback?code=secret&state=s1"_s << u"waiting"_s << QString();
        QTest::newRow("sign-in callback")
            << callback + u"?access_token=secret&refresh_token=secret2&expires_in=3600"_s
            << u"waiting"_s << u"sign-in"_s;
        QTest::newRow("sign-in callback, scheme in capitals")
            << u"QUILLMOSS://oauth/callback?access_token=secret"_s << u"none"_s << u"sign-in"_s;
        // The sign-in says itself what is missing from a bare callback.
        QTest::newRow("bare callback") << callback << u"waiting"_s << u"sign-in"_s;
        QTest::newRow("tokens only in the fragment")
            << callback + u"#access_token=secret"_s << u"none"_s << u"sign-in"_s;
        QTest::newRow("MCP callback, no flow registered")
            << callback + u"?code=secret&state=s1"_s << u"none"_s << QString();
        QTest::newRow("MCP callback routed")
            << callback + u"?code=secret&state=s1"_s << u"waiting"_s << u"mcp"_s;
        QTest::newRow("MCP error routed")
            << callback + u"?error=access_denied&state=s1"_s << u"waiting"_s << u"mcp"_s;
        QTest::newRow("MCP callback of a flow not started here")
            << callback + u"?code=secret&state=forged"_s << u"waiting"_s << QString();
        QTest::newRow("MCP callback, its flow gone")
            << callback + u"?code=secret&state=s1"_s << u"gone"_s << QString();
    }

    void routesByPurpose()
    {
        QFETCH(QString, link);
        QFETCH(QString, flow);
        QFETCH(QString, to);

        QList<QUrl> signedIn;
        QList<QUrl> toMcp;
        LinkRouter router([&signedIn](const QUrl& url) { signedIn << url; });
        auto owner = std::make_unique<QObject>();
        if (flow != u"none"_s) {
            router.addOAuthCallbackHandler(owner.get(), [&toMcp](const QUrl& url) {
                if (QUrlQuery(url).queryItemValue(u"state"_s) != u"s1"_s)
                    return false;
                toMcp << url;
                return true;
            });
        }
        if (flow == u"gone"_s)
            owner.reset();

        const LogCapture log;
        const QUrl url(link);
        QCOMPARE(router.route(url), !to.isEmpty());
        QCOMPARE(signedIn, to == u"sign-in"_s ? QList<QUrl>{url} : QList<QUrl>());
        QCOMPARE(toMcp, to == u"mcp"_s ? QList<QUrl>{url} : QList<QUrl>());

        const QStringList refusals = log.lines({u"⚠️ Ignoring a URL"_s});
        QCOMPARE(refusals.size(), to.isEmpty() ? 1 : 0);
        for (const QString& line : log.lines()) {
            QVERIFY2(!line.contains(u"secret"_s), qPrintable(line));
            QVERIFY2(!line.contains(u"access_denied"_s), qPrintable(line));
        }
        if (to.isEmpty()) {
            QVERIFY2(refusals.first().contains(u"scheme \"%1\""_s.arg(url.scheme())),
                     qPrintable(refusals.first()));
            QVERIFY2(refusals.first().contains(u"path \"%1\""_s.arg(url.path())),
                     qPrintable(refusals.first()));
        }
    }
};

QTEST_GUILESS_MAIN(LinkRouterTest)
#include "LinkRouterTest.moc"

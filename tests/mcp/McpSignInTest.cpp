// Signing in to the local backend's demo MCP server, driven as a person would:
// Connect runs discovery and registration, the authorization page opens in a
// browser that signs in and answers the consent page, and the link it ends on
// is handed back; the token then opens the server and lists its tools. Also
// consent denied, a forged state, and a revoked token asking for the sign-in
// again. No token or code ever reaches the log.
#include "LocalBackend.h"
#include "LogCapture.h"
#include "McpServiceFixture.h"
#include "OAuthTestBrowser.h"
#include "mcp/MCPRemoteService.h"

#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

const QString demoName = u"Quillmoss-Demo"_s;

} // namespace

class McpSignInTest : public QObject
{
    Q_OBJECT

private:
    McpServiceFixture m_fixture{u"QuillmossSignInTest"_s};
    std::unique_ptr<LocalBackend> m_backend;
    std::unique_ptr<MCPRemoteService> m_service;
    OAuthTestBrowser m_browser;
    // What the browser was asked to open, and the links it handed back.
    QList<QUrl> m_opened;
    QList<QUrl> m_returned;
    OAuthTestBrowser::Choice m_choice;
    // Changes the link before it goes back to the app.
    std::function<QUrl(QUrl)> m_tamper;

    std::optional<QString> connectDemo()
    {
        return McpServiceFixture::outcomeOf([this](const MCPRemoteService::Done& done) {
            m_service->connectToIntegration(*m_service->integration(demoName), done);
        });
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString unavailable = m_fixture.unavailable();
        QVERIFY2(unavailable.isEmpty(), qPrintable(unavailable));
        LocalBackend::Options options;
        options.seedDemo = true;
        m_backend = std::make_unique<LocalBackend>(options);
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    void init()
    {
        m_fixture.begin();
        m_service = m_fixture.makeService();
        QCOMPARE(m_service->addCustomIntegration(demoName,
                                                 m_backend->url().toString() + u"/mcp/sse"_s, true,
                                                 u"The backend's demo calls"_s),
                 std::nullopt);
        m_opened.clear();
        m_returned.clear();
        m_choice = {};
        m_tamper = nullptr;
        OAuthBrowser browser;
        browser.open = [this](const QUrl& url) {
            m_opened.append(url);
            m_browser.open(url, m_choice, [this](const QUrl& link, const QString& error) {
                QVERIFY2(error.isEmpty(), qPrintable(error + m_browser.lastPage()));
                const QUrl back = m_tamper ? m_tamper(link) : link;
                m_returned.append(back);
                m_service->handleOAuthCallback(back);
            });
            return true;
        };
        m_service->setOAuthBrowser(browser);
    }

    void cleanup()
    {
        m_service.reset();
        m_fixture.end();
    }

    void signInConnectsWithTheDemoTools()
    {
        LogCapture log;
        QSignalSpy discovered(m_service.get(), &MCPRemoteService::toolsDiscovered);
        QCOMPARE(connectDemo(), std::nullopt);
        QTRY_VERIFY_WITH_TIMEOUT(!discovered.isEmpty(), 15000);
        QCOMPARE(m_service->connectedIntegrations().value(demoName).toolNames,
                 (QStringList{u"search_calls"_s, u"get_call_summary"_s, u"list_action_items"_s}));
        QCOMPARE(m_opened.size(), 1);
        QCOMPARE(m_returned.size(), 1);
        const std::optional<QString> token =
            m_fixture.keychain().readKey(u"mcp_token_"_s + demoName);
        QVERIFY(token && !token->isEmpty());
        QVERIFY(m_service->isSignedIn(demoName));
        QCOMPARE(m_backend->requestCount(u"POST"_s, u"/register"_s), 1);

        // The log, as a user might send it along: not one secret of the flow.
        const QString written = log.lines().join(u'\n');
        const QString code = QUrlQuery(m_returned.first()).queryItemValue(u"code"_s);
        QVERIFY(!code.isEmpty());
        for (const QString& secret : {*token, code})
            QVERIFY2(!written.contains(secret), qPrintable(written));
        for (const QString& line :
             {u"Starting OAuth authentication for Quillmoss-Demo"_s,
              u"Successfully registered OAuth client with ID: "_s,
              u"Received OAuth authorization code for Quillmoss-Demo"_s,
              u"OAuth access token stored successfully for Quillmoss-Demo"_s,
              u"OAuth flow completed and token acquired for Quillmoss-Demo"_s})
            QVERIFY2(!log.lines({line}).isEmpty(), qPrintable(line));

        // A second connection uses the token as it is.
        m_service->disconnectFromIntegration(demoName);
        QCOMPARE(connectDemo(), std::nullopt);
        QCOMPARE(m_opened.size(), 1);

        // Signing out forgets it.
        QVERIFY(m_service->signOut(demoName));
        QVERIFY(m_service->connectedIntegrations().isEmpty());
        QVERIFY(!m_fixture.keychain().readKey(u"mcp_token_"_s + demoName));
        QVERIFY(!m_service->isSignedIn(demoName));
    }

    void refusedSignIns_data()
    {
        QTest::addColumn<bool>("allow");
        QTest::addColumn<bool>("forgeState");
        QTest::addColumn<QString>("error");
        QTest::newRow("consent denied")
            << false << false << u"OAuth authorization error for Quillmoss-Demo: "_s;
        QTest::newRow("state forged")
            << true << true << u"OAuth state mismatch - possible security issue"_s;
    }

    void refusedSignIns()
    {
        QFETCH(bool, allow);
        QFETCH(bool, forgeState);
        QFETCH(QString, error);
        m_choice.allow = allow;
        if (forgeState) {
            m_tamper = [](QUrl link) {
                QUrlQuery query(link);
                query.removeAllQueryItems(u"state"_s);
                query.addQueryItem(u"state"_s, u"forged"_s);
                link.setQuery(query);
                return link;
            };
        }
        const int exchanges = m_backend->requestCount(u"POST"_s, u"/token"_s);
        const std::optional<QString> outcome = connectDemo();
        QVERIFY(outcome.has_value());
        QVERIFY2(outcome->startsWith(error), qPrintable(*outcome));
        QCOMPARE(m_service->lastError(demoName), *outcome);
        QVERIFY(!m_fixture.keychain().readKey(u"mcp_token_"_s + demoName));
        QVERIFY(m_service->connectedIntegrations().isEmpty());
        // A refused link never reaches the token endpoint.
        QCOMPARE(m_backend->requestCount(u"POST"_s, u"/token"_s), exchanges);
    }

    // A token the server no longer takes is cleared on its 401; the next
    // Connect asks the user to sign in again, and that works.
    void revokedTokenAsksForTheSignInAgain()
    {
        QCOMPARE(connectDemo(), std::nullopt);
        const QString token = *m_fixture.keychain().readKey(u"mcp_token_"_s + demoName);
        const QString clientId = QUrlQuery(m_opened.first()).queryItemValue(u"client_id"_s);
        m_service->disconnectFromIntegration(demoName);
        const LocalBackend::Reply revoked =
            m_backend->request("POST", u"/revoke"_s,
                               "token=" + QUrl::toPercentEncoding(token) +
                                   "&client_id=" + QUrl::toPercentEncoding(clientId),
                               {}, "application/x-www-form-urlencoded");
        QCOMPARE(revoked.status, 200);

        QCOMPARE(connectDemo(),
                 std::optional(
                     u"Authentication failed. Please try connecting again to re-authenticate."_s));
        QVERIFY(!m_fixture.keychain().readKey(u"mcp_token_"_s + demoName));
        QCOMPARE(m_opened.size(), 1);
        QCOMPARE(connectDemo(), std::nullopt);
        QCOMPARE(m_opened.size(), 2);
        QVERIFY(*m_fixture.keychain().readKey(u"mcp_token_"_s + demoName) != token);
    }
};

QTEST_GUILESS_MAIN(McpSignInTest)
#include "McpSignInTest.moc"

// Sign-in, the start-up check, refresh and sign-out against the real local
// backend and a real Secret Service.
#include "account/AuthenticationService.h"

#include "HttpStub.h"
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "LogCapture.h"
#include "TestPaths.h"
#include "account/LoginRedirect.h"
#include "store/KeychainManager.h"

#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString accessKey = QString::fromLatin1(AuthenticationService::accessTokenKeychainKey);
const QString refreshKey = QString::fromLatin1(AuthenticationService::refreshTokenKeychainKey);
const QString expiresAtKey = QString::fromLatin1(AuthenticationService::expiresAtKeychainKey);
const QString expiresInKey = QString::fromLatin1(AuthenticationService::expiresInKeychainKey);

template <typename T> bool waitFor(const QFuture<T>& future)
{
    return QTest::qWaitFor([&] { return future.isFinished(); }, 30'000);
}

} // namespace

class AuthenticationServiceTest : public QObject
{
    Q_OBJECT

private:
    KeychainManager& keychain() { return KeychainManager::shared(); }

    std::unique_ptr<AuthenticationService> makeService(const QUrl& backend, bool checkStoredToken,
                                                       int timeoutMs = 60'000)
    {
        AuthenticationService::Options options;
        options.backendUrl = backend;
        options.webUrl = backend;
        options.checkStoredToken = checkStoredToken;
        options.requestTimeout = std::chrono::milliseconds(timeoutMs);
        options.clock = [this] { return QDateTime::currentDateTimeUtc().addSecs(m_clockOffset); };
        options.openUrl = [this](const QUrl& url) {
            m_opened << url;
            return true;
        };
        return std::make_unique<AuthenticationService>(keychain(), options);
    }

    void storeTokens(const LocalBackend::Tokens& tokens)
    {
        QVERIFY(keychain().storeKey(tokens.accessToken, accessKey));
        QVERIFY(keychain().storeKey(tokens.refreshToken, refreshKey));
    }

    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<LocalBackend> m_backend;
    qint64 m_clockOffset = 0;
    QList<QUrl> m_opened;

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_backend = std::make_unique<LocalBackend>();
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
    }

    void init()
    {
        QVERIFY(keychain().deleteAllKeys());
        m_clockOffset = 0;
        m_opened.clear();
    }

    void redirectParsing_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("accessToken");
        QTest::addColumn<QString>("refreshToken");
        QTest::addColumn<QString>("expiresIn");

        QTest::newRow("all four")
            << u"quillmoss://oauth/callback?access_token=A&refresh_token=R&expires_at=2026-01-01T00:00:00Z&expires_in=3600"_s
            << true << u"A"_s << u"R"_s << u"3600"_s;
        QTest::newRow("access token alone") << u"quillmoss://oauth/callback?access_token=A"_s
                                            << true << u"A"_s << QString() << QString();
        QTest::newRow("tokens in the fragment only")
            << u"quillmoss://oauth/callback#access_token=A&refresh_token=R"_s << true << QString()
            << QString() << QString();
        QTest::newRow("percent-encoded values")
            << u"quillmoss://oauth/callback?access_token=a%2Bb%3D%26c&refresh_token=x%20y"_s << true
            << u"a+b=&c"_s << u"x y"_s << QString();
        QTest::newRow("empty access token")
            << u"quillmoss://oauth/callback?access_token=&refresh_token=R"_s << true << QString()
            << u"R"_s << QString();
        QTest::newRow("first of repeated items")
            << u"quillmoss://oauth/callback?access_token=A1&access_token=A2"_s << true << u"A1"_s
            << QString() << QString();
        QTest::newRow("scheme in capitals") << u"QUILLMOSS://oauth/callback?access_token=A"_s
                                            << true << u"A"_s << QString() << QString();
        QTest::newRow("another scheme") << u"https://oauth/callback?access_token=A"_s << false
                                        << QString() << QString() << QString();
        QTest::newRow("another route") << u"quillmoss://mcp/callback?access_token=A"_s << false
                                       << QString() << QString() << QString();
        QTest::newRow("another path") << u"quillmoss://oauth/callback/x?access_token=A"_s << false
                                      << QString() << QString() << QString();
        QTest::newRow("user info") << u"quillmoss://evil@oauth/callback?access_token=A"_s << false
                                   << QString() << QString() << QString();
        QTest::newRow("not a URL") << u"::::"_s << false << QString() << QString() << QString();
    }

    void redirectParsing()
    {
        QFETCH(QString, url);
        QFETCH(bool, valid);
        QFETCH(QString, accessToken);
        QFETCH(QString, refreshToken);
        QFETCH(QString, expiresIn);

        const QUrl parsed(url);
        const LoginRedirect redirect = LoginRedirect::parse(parsed);
        QCOMPARE(redirect.validComponents, valid);
        QCOMPARE(redirect.accessToken.value_or(QString()), accessToken);
        QCOMPARE(redirect.refreshToken.value_or(QString()), refreshToken);
        QCOMPARE(redirect.expiresIn.value_or(QString()), expiresIn);

        // What may be logged never holds a value.
        const QString redacted = LoginRedirect::redacted(parsed);
        for (const QString& secret : {u"a%2Bb"_s, u"=A&"_s, u"=A1"_s, u"=R"_s, u"=A#"_s}) {
            QVERIFY2(!redacted.contains(secret), qPrintable(redacted));
        }
        QVERIFY(!redacted.endsWith(u"=A"_s));
    }

    // The whole sign-in: web login, redirect, tokens stored, profile fetched;
    // then sign-out removes every key. No token reaches the log.
    void signInThroughRedirectAndSignOut_data()
    {
        QTest::addColumn<bool>("accessTokenOnly");
        QTest::newRow("all tokens") << false;
        QTest::newRow("access token alone") << true;
    }

    void signInThroughRedirectAndSignOut()
    {
        QFETCH(bool, accessTokenOnly);
        LogCapture log;
        const auto tokens = m_backend->signIn(u"dana@example.com"_s, u"Dana Reyes"_s);
        QVERIFY(tokens);
        QUrl redirect = tokens->redirect;
        if (accessTokenOnly)
            redirect.setQuery(u"access_token="_s +
                              QString::fromLatin1(QUrl::toPercentEncoding(tokens->accessToken)));

        auto service = makeService(m_backend->url(), true);
        QVERIFY(waitFor(service->startupCheck()));
        QVERIFY(!service->isAuthenticated());
        QVERIFY(service->authenticationError().isEmpty());
        QVERIFY(log.lines().contains(
            u"🔐 [AUTH DEBUG] No stored access token - user needs to authenticate"_s));

        QVERIFY(service->startLogin());
        QCOMPARE(m_opened.value(0).path(), u"/login"_s);
        QCOMPARE(QUrlQuery(m_opened.value(0)).queryItemValue(u"provider"_s), u"google"_s);

        QSignalSpy authenticated(service.get(), &AuthenticationService::isAuthenticatedChanged);
        service->handleRedirect(redirect);
        QVERIFY(service->isAuthenticating());
        QTRY_VERIFY_WITH_TIMEOUT(service->isAuthenticated(), 20'000);
        QVERIFY(!service->isAuthenticating());
        QCOMPARE(service->currentUser()->email, u"dana@example.com"_s);
        QCOMPARE(service->currentUser()->fullName, u"Dana Reyes"_s);
        QCOMPARE(keychain().readKey(accessKey), tokens->accessToken);
        if (accessTokenOnly) {
            QCOMPARE(keychain().readKey(refreshKey), std::nullopt);
            QCOMPARE(keychain().readKey(expiresAtKey), std::nullopt);
            QCOMPARE(keychain().readKey(expiresInKey), std::nullopt);
        } else {
            QCOMPARE(keychain().readKey(refreshKey), tokens->refreshToken);
            QCOMPARE(keychain().readKey(expiresAtKey), tokens->expiresAt);
            QCOMPARE(keychain().readKey(expiresInKey), tokens->expiresIn);
        }
        const auto valid = service->getValidAccessToken();
        QVERIFY(waitFor(valid));
        QCOMPARE(valid.result(), tokens->accessToken);

        QVERIFY(waitFor(service->signOut()));
        QVERIFY(!service->isAuthenticated());
        QVERIFY(!service->currentUser());
        QVERIFY(keychain().allKeys().isEmpty());
        const auto none = service->getValidAccessToken();
        QVERIFY(waitFor(none));
        QCOMPARE(none.result(), std::nullopt);

        for (const QString& line : log.lines()) {
            QVERIFY2(!line.contains(tokens->accessToken) && !line.contains(tokens->refreshToken),
                     qPrintable(line));
        }
        QVERIFY(!m_backend->log().contains(tokens->accessToken));
    }

    void redirectWithoutAccessTokenStoresNothing()
    {
        LogCapture log;
        auto service = makeService(m_backend->url(), false);
        service->handleRedirect(
            QUrl(u"quillmoss://oauth/callback#access_token=A&refresh_token=R"_s));
        QVERIFY(log.lines().contains(u"🔐 [AUTH DEBUG] ❌ Access token not found in redirect URL"_s));
        service->handleRedirect(QUrl(u"quillmoss://elsewhere?access_token=A"_s));
        QVERIFY(log.lines().contains(u"🔐 [AUTH DEBUG] ❌ Invalid redirect URL components"_s));
        QTest::qWait(100);
        QVERIFY(!service->isAuthenticating());
        QVERIFY(keychain().allKeys().isEmpty());
    }

    // What the start-up check makes of the stored tokens.
    void startupCheck_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<bool>("authenticated");
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("refreshRequests");

        QTest::newRow("nothing stored") << u"none"_s << false << QString() << 0;
        QTest::newRow("valid token") << u"valid"_s << true << QString() << 0;
        QTest::newRow("expired token, good refresh token")
            << u"expired"_s << true << QString() << 1;
        QTest::newRow("unknown token, no refresh token")
            << u"unknown-no-refresh"_s << false << QString() << 0;
        QTest::newRow("unknown token, refresh token already used")
            << u"unknown-used-refresh"_s << false
            << u"Your session has expired. Please sign in again."_s << 1;
        QTest::newRow("server unreachable")
            << u"unreachable"_s << false
            << u"Cannot connect to server. Please check your internet connection and try again."_s
            << 0;
    }

    void startupCheck()
    {
        QFETCH(QString, stored);
        QFETCH(bool, authenticated);
        QFETCH(QString, error);
        QFETCH(int, refreshRequests);

        LocalBackend backend(LocalBackend::Options{.tokenTtlSeconds = 1});
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"sam@example.com"_s);
        QVERIFY(tokens);
        QUrl url = backend.url();

        if (stored == u"valid"_s || stored == u"expired"_s) {
            storeTokens(*tokens);
        } else if (stored == u"unknown-no-refresh"_s) {
            QVERIFY(keychain().storeKey(u"not-a-token"_s, accessKey));
        } else if (stored == u"unknown-used-refresh"_s) {
            storeTokens(*tokens);
            QVERIFY(keychain().storeKey(u"not-a-token"_s, accessKey));
            // Rotating it once makes the stored refresh token worthless.
            const auto used =
                backend.request("POST", u"/auth/refresh"_s,
                                R"({"refresh_token":")" + tokens->refreshToken.toUtf8() + R"("})");
            QCOMPARE(used.status, 200);
            refreshRequests += 1;
        } else if (stored == u"unreachable"_s) {
            storeTokens(*tokens);
            url = HttpStub::unreachableUrl();
        }
        if (stored == u"expired"_s)
            QTest::qWait(1'500);

        auto service = makeService(url, true);
        QVERIFY(waitFor(service->startupCheck()));
        QCOMPARE(service->isAuthenticated(), authenticated);
        QCOMPARE(service->authenticationError(), error);
        QVERIFY(!service->isAuthenticating());
        QCOMPARE(backend.requestCount(u"POST"_s, u"/auth/refresh"_s), refreshRequests);
        if (stored == u"expired"_s) {
            // Rotated: both tokens are new, and the new ones are what the store holds.
            QVERIFY(keychain().readKey(accessKey) != tokens->accessToken);
            QVERIFY(keychain().readKey(refreshKey) != tokens->refreshToken);
            QVERIFY(keychain().readKey(expiresInKey).has_value());
        }
        if (stored == u"unreachable"_s) // kept for the next start
            QCOMPARE(keychain().readKey(refreshKey), tokens->refreshToken);
    }

    // Refresh runs once for concurrent callers and at most once per 300 seconds
    // of the service's clock, counted at the server.
    void refreshIsSingleFlightWithAFloor()
    {
        LocalBackend backend(LocalBackend::Options{.tokenTtlSeconds = 1});
        QVERIFY2(backend.isRunning(), qPrintable(backend.error()));
        const auto tokens = backend.signIn(u"lee@example.com"_s);
        QVERIFY(tokens);
        storeTokens(*tokens);
        QTest::qWait(1'500);

        LogCapture log;
        auto service = makeService(backend.url(), false);
        const auto first = service->getValidAccessToken();
        const auto second = service->getValidAccessToken();
        QVERIFY(waitFor(first) && waitFor(second));
        QCOMPARE(backend.requestCount(u"POST"_s, u"/auth/refresh"_s), 1);
        QVERIFY(first.result().has_value());
        QVERIFY(first.result() != tokens->accessToken);
        QCOMPARE(second.result(), first.result());
        QVERIFY(service->isAuthenticated());
        QVERIFY(log.lines().contains(u"Token refresh already in progress"_s));

        // The new token expires too; within the floor no request is made.
        QTest::qWait(1'500);
        m_clockOffset = 290; // plus the wait above: still inside the floor
        const auto third = service->getValidAccessToken();
        QVERIFY(waitFor(third));
        QCOMPARE(backend.requestCount(u"POST"_s, u"/auth/refresh"_s), 1);
        QVERIFY(log.lines().contains(u"Token was recently refreshed, not attempting again"_s));
        QCOMPARE(third.result(), first.result()); // what the store holds, stale as it is

        m_clockOffset = 301;
        const auto fourth = service->getValidAccessToken();
        QVERIFY(waitFor(fourth));
        QCOMPARE(backend.requestCount(u"POST"_s, u"/auth/refresh"_s), 2);
        QVERIFY(fourth.result() != first.result());
    }

    // The profile request's failures, each with its own text.
    void profileFailures_data()
    {
        QTest::addColumn<int>("status"); // 0: no answer at all
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("reachable");
        QTest::addColumn<QString>("error");

        QTest::newRow("timed out")
            << 0 << QByteArray() << true << u"Connection timed out. Please try again."_s;
        QTest::newRow("server error")
            << 503 << QByteArray() << true << u"Server error. Please try again later."_s;
        QTest::newRow("not a profile")
            << 200 << QByteArray(R"({"fullName":"No Mail"})") << true
            << u"Unable to load your profile. Please try again or contact support."_s;
        QTest::newRow("not JSON")
            << 200 << QByteArray("<html>") << true
            << u"Unable to load your profile. Please try again or contact support."_s;
        QTest::newRow("nobody listening")
            << 0 << QByteArray() << false
            << u"Cannot connect to server. Check your internet connection and try again."_s;
    }

    void profileFailures()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, reachable);
        QFETCH(QString, error);

        HttpStub stub;
        stub.setAnswer("/auth/user",
                       {.status = status, .body = body, .raw = {}, .hold = status == 0});
        QVERIFY(keychain().storeKey(u"some-token"_s, accessKey));

        auto service = makeService(reachable ? stub.url() : HttpStub::unreachableUrl(), false, 500);
        QVERIFY(waitFor(service->fetchAndSetUser()));
        QCOMPARE(service->authenticationError(), error);
        QVERIFY(!service->isAuthenticated());
        QVERIFY(!service->currentUser());
    }

    void signOutWithNothingStored()
    {
        auto service = makeService(HttpStub::unreachableUrl(), false);
        QVERIFY(waitFor(service->signOut()));
        QVERIFY(!service->isAuthenticated());
        QVERIFY(service->authenticationError().isEmpty());
    }

    void unreachableStoreFailsSignIn()
    {
        auto service = makeService(m_backend->url(), false);
        m_keyring->stop();
        QVERIFY(waitFor(service->signIn(u"token"_s)));
        QCOMPARE(service->authenticationError(),
                 u"Failed to store authentication data. Please contact support."_s);
        QVERIFY(!service->isAuthenticating());
        QVERIFY(!service->isAuthenticated());
    }
};

QTEST_GUILESS_MAIN(AuthenticationServiceTest)
#include "AuthenticationServiceTest.moc"

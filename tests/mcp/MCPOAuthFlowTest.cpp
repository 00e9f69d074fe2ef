// The OAuth sign-in of a remote MCP server against an authorization server of
// the test's own: where the endpoints come from (metadata, the resource
// metadata a refused stream points to, the known fallbacks), registration and
// its fallback client IDs, the checks of the link the browser ends on, the
// code exchange and its failures, and the browser side (none, refused,
// cancelled, superseded, too slow). The token lands in a real keyring and
// nothing of the flow reaches the log.
#include "mcp/MCPOAuthFlow.h"

#include "HttpStub.h"
#include "LogCapture.h"
#include "McpServiceFixture.h"
#include "mcp/MCPRemoteService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QByteArray metadataPath = "/.well-known/oauth-authorization-server";
const QString issuedToken = u"tok-Zq81-issued-by-the-stub"_s;
const QString issuedCode = u"code-4471-from-the-stub"_s;

QByteArray json(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

HttpStub::Answer reply(int status, const QByteArray& body)
{
    HttpStub::Answer answer;
    answer.status = status;
    answer.body = body;
    return answer;
}

QUrlQuery formOf(const QByteArray& body)
{
    // Form bodies encode a space as '+'.
    return QUrlQuery(QString::fromLatin1(QByteArray(body).replace('+', "%20")));
}

QString valueOf(const QUrlQuery& query, const QString& key)
{
    return query.queryItemValue(key, QUrl::FullyDecoded);
}

// How the browser comes back from the authorization page.
enum class Return
{
    Code,       // with the code and the state sent
    WrongState, // with a code and another state
    Denied,     // with error=access_denied
    NoCode,     // with the state only
    Nothing,    // never
};

MCPRemoteConfig configFor(const QString& name, const QUrl& url)
{
    MCPRemoteConfig config;
    config.id = QUuid::createUuid();
    config.name = name;
    config.url = url.toString();
    config.requiresAuth = true;
    config.isCustom = true;
    return config;
}

} // namespace

class MCPOAuthFlowTest : public QObject
{
    Q_OBJECT

private:
    McpServiceFixture m_fixture{u"QuillmossOAuthTest"_s};

    std::unique_ptr<MCPRemoteService> makeService(MCPRemoteService::Timing timing = {})
    {
        return m_fixture.makeService(timing);
    }

    // A browser that goes nowhere: it comes back at once, as told.
    static OAuthBrowser browserReturning(MCPRemoteService& service, Return how, QList<QUrl>* opened)
    {
        OAuthBrowser browser;
        browser.open = [&service, how, opened](const QUrl& url) {
            opened->append(url);
            const QUrlQuery query(url);
            QUrl back(valueOf(query, u"redirect_uri"_s));
            QUrlQuery answer;
            const QString state = valueOf(query, u"state"_s);
            switch (how) {
            case Return::Code:
                answer.addQueryItem(u"code"_s, issuedCode);
                answer.addQueryItem(u"state"_s, state);
                break;
            case Return::WrongState:
                answer.addQueryItem(u"code"_s, issuedCode);
                answer.addQueryItem(u"state"_s, state + u"x"_s);
                break;
            case Return::Denied:
                answer.addQueryItem(u"error"_s, u"access_denied"_s);
                answer.addQueryItem(u"error_description"_s, u"The user said no"_s);
                answer.addQueryItem(u"state"_s, state);
                break;
            case Return::NoCode:
                answer.addQueryItem(u"state"_s, state);
                break;
            case Return::Nothing:
                return true;
            }
            back.setQuery(answer);
            QTimer::singleShot(0, &service,
                               [&service, back] { service.handleOAuthCallback(back); });
            return true;
        };
        return browser;
    }

    static std::optional<QString> signIn(MCPRemoteService& service, const MCPRemoteConfig& config)
    {
        return McpServiceFixture::outcomeOf([&](const MCPRemoteService::Done& done) {
            service.handleOAuthAuthentication(config, done);
        });
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString unavailable = m_fixture.unavailable();
        QVERIFY2(unavailable.isEmpty(), qPrintable(unavailable));
    }

    void init() { m_fixture.begin(); }
    void cleanup() { m_fixture.end(); }

    // --- The pieces on their own.

    void callbackCheck_data()
    {
        QTest::addColumn<QString>("callback");
        QTest::addColumn<QString>("redirectUri");
        QTest::addColumn<QString>("code"); // empty: refused
        QTest::addColumn<QString>("error");
        const QString app = u"quillmoss://oauth/callback"_s;
        const QString loopback = u"http://127.0.0.1:4711/oauth/callback"_s;
        const QString mismatch = u"OAuth state mismatch - possible security issue"_s;
        const QString invalid = u"Invalid OAuth callback URL"_s;
        QTest::newRow("code and state") << app + u"?code=c1&state=s1"_s << app << u"c1"_s << u""_s;
        QTest::newRow("encoded code")
            << app + u"?code=a%2Bb%26c&state=s1"_s << app << u"a+b&c"_s << u""_s;
        QTest::newRow("loopback") << loopback + u"?code=c1&state=s1"_s << loopback << u"c1"_s
                                  << u""_s;
        QTest::newRow("wrong state, with a code")
            << app + u"?code=c1&state=s2"_s << app << u""_s << mismatch;
        QTest::newRow("no state") << app + u"?code=c1"_s << app << u""_s << mismatch;
        QTest::newRow("two states")
            << app + u"?code=c1&state=s1&state=s1"_s << app << u""_s << mismatch;
        QTest::newRow("error with its description")
            << app + u"?error=access_denied&error_description=Not%20today&state=s1"_s << app
            << u""_s << u"OAuth authorization error for Demo: Not today"_s;
        QTest::newRow("error alone, whatever the state")
            << app + u"?error=access_denied&state=zz"_s << app << u""_s
            << u"OAuth authorization error for Demo: access_denied"_s;
        QTest::newRow("error description with line breaks")
            << app + u"?error=x&error_description=a%0D%0Ab&state=s1"_s << app << u""_s
            << u"OAuth authorization error for Demo: a b"_s;
        QTest::newRow("no code") << app + u"?state=s1"_s << app << u""_s
                                 << u"No authorization code received"_s;
        QTest::newRow("empty code")
            << app + u"?code=&state=s1"_s << app << u""_s << u"No authorization code received"_s;
        QTest::newRow("another scheme")
            << u"https://oauth/callback?code=c1&state=s1"_s << app << u""_s << invalid;
        QTest::newRow("another place")
            << u"quillmoss://oauth/elsewhere?code=c1&state=s1"_s << app << u""_s << invalid;
        QTest::newRow("loopback on another port")
            << u"http://127.0.0.1:4712/oauth/callback?code=c1&state=s1"_s << loopback << u""_s
            << invalid;
        QTest::newRow("not a URL") << u"::::"_s << app << u""_s << invalid;
        QTest::newRow("empty") << u""_s << app << u""_s << invalid;
    }

    void callbackCheck()
    {
        QFETCH(QString, callback);
        QFETCH(QString, redirectUri);
        QFETCH(QString, code);
        QFETCH(QString, error);
        const OAuthCallbackCheck check = OAuthCallbackCheck::of(QUrl(callback, QUrl::StrictMode),
                                                                redirectUri, u"s1"_s, u"Demo"_s);
        QCOMPARE(check.code.value_or(QString()), code);
        QCOMPARE(check.error, error);
    }

    void challengeParameter_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QString>("url");
        QTest::newRow("quoted") << QByteArray("Bearer error=\"invalid_token\", "
                                              "resource_metadata=\"https://a.example/.well-known/"
                                              "oauth-protected-resource/sse\"")
                                << u"https://a.example/.well-known/oauth-protected-resource/sse"_s;
        QTest::newRow("first parameter, unquoted")
            << QByteArray("Bearer resource_metadata=https://a.example/prm, realm=\"x\"")
            << u"https://a.example/prm"_s;
        QTest::newRow("name in capitals")
            << QByteArray("Bearer RESOURCE_METADATA=\"https://a.example/prm\"")
            << u"https://a.example/prm"_s;
        QTest::newRow("a parameter merely ending in the name")
            << QByteArray("Bearer x_resource_metadata=\"https://evil.example/prm\"") << u""_s;
        QTest::newRow("escaped quote")
            << QByteArray("Bearer resource_metadata=\"https://a.example/p\\\"q\"") << u""_s;
        QTest::newRow("not a web address")
            << QByteArray("Bearer resource_metadata=\"file:///etc/passwd\"") << u""_s;
        QTest::newRow("none") << QByteArray("Bearer error=\"invalid_token\"") << u""_s;
        QTest::newRow("empty") << QByteArray() << u""_s;
    }

    void challengeParameter()
    {
        QFETCH(QByteArray, header);
        QFETCH(QString, url);
        const std::optional<QUrl> found = MCPOAuthFlow::resourceMetadataUrl(header);
        QCOMPARE(found.value_or(QUrl()).toString(), url);
    }

    void knownValues_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("scope");
        QTest::addColumn<QString>("clientId");
        QTest::addColumn<QString>("authorization"); // empty: no fallback endpoints
        QTest::addColumn<QString>("token");
        QTest::newRow("Linear") << u"Linear"_s << u"read write issues projects comments"_s
                                << u"linear-mcp-client"_s << u"/authorize"_s << u"/token"_s;
        QTest::newRow("Asana") << u"Asana"_s << u"default"_s << u"asana-mcp-client"_s
                               << u"/authorize"_s << u"/token"_s;
        QTest::newRow("Sentry") << u"Sentry"_s << u"mcp"_s << u"sentry-mcp-client"_s
                                << u"/oauth/authorize"_s << u"/oauth/token"_s;
        QTest::newRow("PayPal") << u"PayPal"_s << u"mcp"_s << u"paypal-mcp-client"_s
                                << u"/authorize"_s << u"/token"_s;
        QTest::newRow("Square") << u"Square"_s << u"mcp"_s << u"square-mcp-client"_s << u""_s
                                << u""_s;
        QTest::newRow("Intercom") << u"Intercom"_s << u"mcp"_s << u"intercom-mcp-client"_s << u""_s
                                  << u""_s;
        QTest::newRow("atlassian, any case")
            << u"ATLASSIAN"_s << u"read:jira-work write:jira-work"_s << u"atlassian-mcp-client"_s
            << u""_s << u""_s;
        QTest::newRow("a custom server")
            << u"Demo"_s << u"mcp"_s << u"mcp-client"_s << u""_s << u""_s;
    }

    void knownValues()
    {
        QFETCH(QString, name);
        QFETCH(QString, scope);
        QFETCH(QString, clientId);
        QFETCH(QString, authorization);
        QFETCH(QString, token);
        QCOMPARE(MCPOAuthFlow::scopeFor(name), scope);
        LogCapture log;
        QCOMPARE(MCPOAuthFlow::fallbackClientId(name), clientId);
        QCOMPARE(log.lines().size(), 1);
        const std::optional<OAuthEndpoints> endpoints =
            MCPOAuthFlow::fallbackEndpoints(name, QUrl(u"https://mcp.example.com:8443/sse"_s));
        QCOMPARE(endpoints.has_value(), !authorization.isEmpty());
        if (endpoints) {
            QCOMPARE(endpoints->authorization.toString(),
                     u"https://mcp.example.com:8443"_s + authorization);
            QCOMPARE(endpoints->token.toString(), u"https://mcp.example.com:8443"_s + token);
        }
    }

    void metadataAddresses_data()
    {
        QTest::addColumn<QString>("issuer");
        QTest::addColumn<QString>("metadata");
        QTest::newRow("root") << u"https://as.example"_s
                              << u"https://as.example/.well-known/oauth-authorization-server"_s;
        QTest::newRow("root with slash")
            << u"https://as.example/"_s
            << u"https://as.example/.well-known/oauth-authorization-server"_s;
        QTest::newRow("tenant")
            << u"https://as.example:9000/tenant/a/"_s
            << u"https://as.example:9000/.well-known/oauth-authorization-server/tenant/a"_s;
    }

    void metadataAddresses()
    {
        QFETCH(QString, issuer);
        QFETCH(QString, metadata);
        QCOMPARE(MCPOAuthFlow::authorizationServerMetadataUrl(QUrl(issuer)).toString(), metadata);
    }

    void pkce()
    {
        // The example pair of RFC 7636, appendix B.
        QCOMPARE(MCPOAuthFlow::codeChallenge(u"dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"_s),
                 u"E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"_s);
        const QString first = MCPOAuthFlow::randomToken();
        QCOMPARE(first.size(), 43);
        QVERIFY(first != MCPOAuthFlow::randomToken());
    }

    // --- The whole flow against a server of the test's own.

    void flow_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("endpoints"); // "metadata", "resource", "none"
        QTest::addColumn<int>("registration");  // status; 0: not HTTP at all
        QTest::addColumn<QByteArray>("registered");
        QTest::addColumn<int>("comeback");
        QTest::addColumn<int>("tokenStatus");
        QTest::addColumn<QByteArray>("tokenBody");
        QTest::addColumn<QString>("error"); // empty: signed in
        QTest::addColumn<QString>("clientId");
        QTest::addColumn<QString>("authorizationPath"); // "": the browser never opened

        const auto registered = json({{u"client_id"_s, u"c-77"_s}});
        const auto token = json({{u"access_token"_s, issuedToken}, {u"token_type"_s, u"Bearer"_s}});
        const int code = static_cast<int>(Return::Code);
        QTest::newRow("from the metadata")
            << u"Custom"_s << u"metadata"_s << 201 << registered << code << 200 << token << u""_s
            << u"c-77"_s << u"/oauth2/auth"_s;
        QTest::newRow("from the resource metadata of a refused stream")
            << u"Custom"_s << u"resource"_s << 201 << registered << code << 200 << token << u""_s
            << u"c-77"_s << u"/tenant/authorize"_s;
        QTest::newRow("no metadata: Linear's fallback endpoints")
            << u"Linear"_s << u"none"_s << 201 << registered << code << 200 << token << u""_s
            << u"c-77"_s << u"/authorize"_s;
        QTest::newRow("no metadata and no fallback: no browser")
            << u"Custom"_s << u"none"_s << 201 << registered << code << 200 << token
            << u"Failed to discover OAuth endpoints for Custom"_s << u""_s << u""_s;
        QTest::newRow("registration 404: Square's client ID")
            << u"Square"_s << u"metadata"_s << 404 << QByteArray() << code << 200 << token << u""_s
            << u"square-mcp-client"_s << u"/oauth2/auth"_s;
        QTest::newRow("registration refused: the generic client ID")
            << u"Custom"_s << u"metadata"_s << 400
            << json({{u"error"_s, u"invalid_client_metadata"_s}}) << code << 200 << token << u""_s
            << u"mcp-client"_s << u"/oauth2/auth"_s;
        QTest::newRow("registration without a client ID")
            << u"Custom"_s << u"metadata"_s << 201 << json({{u"client_name"_s, u"x"_s}}) << code
            << 200 << token << u""_s << u"mcp-client"_s << u"/oauth2/auth"_s;
        QTest::newRow("registration answered without HTTP")
            << u"Sentry"_s << u"metadata"_s << 0 << QByteArray() << code << 200 << token << u""_s
            << u"sentry-mcp-client"_s << u"/oauth2/auth"_s;
        QTest::newRow("wrong state") << u"Custom"_s << u"metadata"_s << 201 << registered
                                     << static_cast<int>(Return::WrongState) << 200 << token
                                     << u"OAuth state mismatch - possible security issue"_s
                                     << u"c-77"_s << u"/oauth2/auth"_s;
        QTest::newRow("access denied")
            << u"Custom"_s << u"metadata"_s << 201 << registered << static_cast<int>(Return::Denied)
            << 200 << token << u"OAuth authorization error for Custom: The user said no"_s
            << u"c-77"_s << u"/oauth2/auth"_s;
        QTest::newRow("no code") << u"Custom"_s << u"metadata"_s << 201 << registered
                                 << static_cast<int>(Return::NoCode) << 200 << token
                                 << u"No authorization code received"_s << u"c-77"_s
                                 << u"/oauth2/auth"_s;
        QTest::newRow("token 400")
            << u"Custom"_s << u"metadata"_s << 201 << registered << code << 400
            << json({{u"error"_s, u"invalid_grant"_s}, {u"error_description"_s, u"Code expired"_s}})
            << u"Token exchange failed (HTTP 400): invalid_grant: Code expired"_s << u"c-77"_s
            << u"/oauth2/auth"_s;
        QTest::newRow("token 500 without a body")
            << u"Custom"_s << u"metadata"_s << 201 << registered << code << 500 << QByteArray()
            << u"Token exchange failed (HTTP 500)"_s << u"c-77"_s << u"/oauth2/auth"_s;
        QTest::newRow("token 200 without an access token")
            << u"Custom"_s << u"metadata"_s << 201 << registered << code << 200
            << json({{u"token_type"_s, u"Bearer"_s}})
            << u"Invalid token response: no access_token"_s << u"c-77"_s << u"/oauth2/auth"_s;
        QTest::newRow("token 200 that is not JSON")
            << u"Custom"_s << u"metadata"_s << 201 << registered << code << 200
            << QByteArray("access_token=" + issuedToken.toLatin1())
            << u"Invalid token response format: illegal value"_s << u"c-77"_s << u"/oauth2/auth"_s;
    }

    void flow()
    {
        QFETCH(QString, name);
        QFETCH(QString, endpoints);
        QFETCH(int, registration);
        QFETCH(QByteArray, registered);
        QFETCH(int, comeback);
        QFETCH(int, tokenStatus);
        QFETCH(QByteArray, tokenBody);
        QFETCH(QString, error);
        QFETCH(QString, clientId);
        QFETCH(QString, authorizationPath);

        HttpStub server;
        QVERIFY(server.isListening());
        const QString base = server.url().toString();
        const QJsonObject metadata{{u"issuer"_s, base},
                                   {u"authorization_endpoint"_s, base + u"/oauth2/auth"_s},
                                   {u"token_endpoint"_s, base + u"/oauth2/token"_s},
                                   {u"registration_endpoint"_s, base + u"/oauth2/register"_s}};
        QByteArray registrationPath = "/oauth2/register";
        QByteArray tokenPath = "/oauth2/token";
        if (endpoints == u"metadata"_s) {
            server.setAnswer(metadataPath, reply(200, json(metadata)));
        } else if (endpoints == u"resource"_s) {
            // Nothing at the server's own origin root; the stream's challenge
            // names where the server describes itself.
            server.setAnswer("/mcp/sse", reply(401, "{}"));
            server.setAnswerHeaders(
                "/mcp/sse",
                {{"WWW-Authenticate", "Bearer error=\"invalid_token\", resource_metadata=\"" +
                                          base.toLatin1() + "/prm\""}});
            server.setAnswer(
                "/prm",
                reply(200, json({{u"resource"_s, base + u"/mcp/sse"_s},
                                 {u"authorization_servers"_s, QJsonArray{base + u"/tenant"_s}}})));
            server.setAnswer(
                metadataPath + "/tenant",
                reply(200, json({{u"issuer"_s, base + u"/tenant"_s},
                                 {u"authorization_endpoint"_s, base + u"/tenant/authorize"_s},
                                 {u"token_endpoint"_s, base + u"/tenant/token"_s}})));
            registrationPath = "/register";
            tokenPath = "/tenant/token";
        } else {
            registrationPath = "/register";
            tokenPath = "/token";
        }
        if (registration == 0)
            server.setAnswer(registrationPath,
                             HttpStub::Answer{0, {}, "NOT HTTP AT ALL\r\n\r\n", false});
        else
            server.setAnswer(registrationPath, reply(registration, registered));
        server.setAnswer(tokenPath, reply(tokenStatus, tokenBody));

        const auto service = makeService();
        QList<QUrl> opened;
        service->setOAuthBrowser(browserReturning(*service, Return(comeback), &opened));
        const MCPRemoteConfig config = configFor(name, QUrl(base + u"/mcp/sse"_s));
        LogCapture log;
        const std::optional<QString> outcome = signIn(*service, config);
        QCOMPARE(outcome.value_or(QString()), error);
        QCOMPARE(m_fixture.keychain().readKey(config.tokenKey()).value_or(QString()),
                 error.isEmpty() ? issuedToken : QString());
        QCOMPARE(service->isSignedIn(name), error.isEmpty());
        QVERIFY(service->signingIn().isEmpty());

        QCOMPARE(opened.size(), authorizationPath.isEmpty() ? 0 : 1);
        if (opened.isEmpty())
            return;
        const QUrl authorization = opened.first();
        QCOMPARE(authorization.path(), authorizationPath);
        const QUrlQuery query(authorization);
        QCOMPARE(valueOf(query, u"response_type"_s), u"code"_s);
        QCOMPARE(valueOf(query, u"client_id"_s), clientId);
        QCOMPARE(valueOf(query, u"redirect_uri"_s), u"quillmoss://oauth/callback"_s);
        QCOMPARE(valueOf(query, u"scope"_s), MCPOAuthFlow::scopeFor(name));
        QCOMPARE(valueOf(query, u"code_challenge_method"_s), u"S256"_s);
        QCOMPARE(valueOf(query, u"state"_s).size(), 43);

        // Registration as a public native client.
        QList<HttpStub::Request> registrations;
        QList<HttpStub::Request> exchanges;
        for (const HttpStub::Request& request : server.requests()) {
            if (request.path == registrationPath)
                registrations.append(request);
            if (request.path == tokenPath)
                exchanges.append(request);
        }
        // (An answer that is not HTTP may be asked again.)
        QVERIFY(!registrations.isEmpty());
        QCOMPARE(registrations.first().headers.value("content-type"), "application/json");
        const QJsonObject sent = QJsonDocument::fromJson(registrations.first().body).object();
        QCOMPARE(sent.value(u"client_name"_s).toString(), u"Quillmoss"_s);
        QCOMPARE(sent.value(u"redirect_uris"_s).toArray(),
                 QJsonArray{u"quillmoss://oauth/callback"_s});
        QCOMPARE(sent.value(u"token_endpoint_auth_method"_s).toString(), u"none"_s);
        QCOMPARE(sent.value(u"application_type"_s).toString(), u"native"_s);
        QCOMPARE(sent.value(u"software_id"_s).toString(), u"quillmoss-mcp"_s);
        QCOMPARE(sent.value(u"scope"_s).toString(), MCPOAuthFlow::scopeFor(name));

        // The code goes back with the verifier of the challenge sent.
        const bool exchanged = Return(comeback) == Return::Code;
        QCOMPARE(exchanges.size(), exchanged ? 1 : 0);
        QString verifier;
        if (exchanged) {
            QCOMPARE(exchanges.first().headers.value("content-type"),
                     "application/x-www-form-urlencoded");
            const QUrlQuery form = formOf(exchanges.first().body);
            QCOMPARE(valueOf(form, u"grant_type"_s), u"authorization_code"_s);
            QCOMPARE(valueOf(form, u"code"_s), issuedCode);
            QCOMPARE(valueOf(form, u"client_id"_s), clientId);
            QCOMPARE(valueOf(form, u"redirect_uri"_s), u"quillmoss://oauth/callback"_s);
            verifier = valueOf(form, u"code_verifier"_s);
            QCOMPARE(MCPOAuthFlow::codeChallenge(verifier), valueOf(query, u"code_challenge"_s));
        }
        const QString written = log.lines().join(u'\n');
        for (const QString& secret : {issuedToken, issuedCode, verifier}) {
            if (!secret.isEmpty())
                QVERIFY2(!written.contains(secret), qPrintable(written));
        }
        if (error.isEmpty())
            QVERIFY(
                log.lines().contains(u"OAuth authentication completed successfully for "_s + name));
    }

    // --- The browser's side.

    void browserSide_data()
    {
        QTest::addColumn<QString>(
            "browser"); // "none", "refuses", "cancelled", "too slow", "superseded"
        QTest::addColumn<QString>("error");
        QTest::newRow("no way to open it") << u"none"_s << u"OAuth presentation context error"_s;
        QTest::newRow("it cannot be opened")
            << u"refuses"_s << u"Failed to start OAuth authentication session"_s;
        QTest::newRow("cancelled while waiting")
            << u"cancelled"_s << u"OAuth authentication was canceled"_s;
        QTest::newRow("a second sign-in replaces it")
            << u"superseded"_s << u"OAuth authentication was canceled"_s;
        QTest::newRow("never comes back")
            << u"too slow"_s
            << u"OAuth authentication failed: the browser did not come back within 300 ms"_s;
    }

    void browserSide()
    {
        QFETCH(QString, browser);
        QFETCH(QString, error);
        HttpStub server;
        const QString base = server.url().toString();
        server.setAnswer(metadataPath,
                         reply(200, json({{u"authorization_endpoint"_s, base + u"/authorize"_s},
                                          {u"token_endpoint"_s, base + u"/token"_s}})));
        server.setAnswer("/register", reply(201, json({{u"client_id"_s, u"c-1"_s}})));
        MCPRemoteService::Timing timing;
        timing.browserLimit = 300ms;
        const auto service = makeService(timing);
        QList<QUrl> opened;
        OAuthBrowser waiting = browserReturning(*service, Return::Nothing, &opened);
        if (browser == u"none"_s)
            waiting.open = nullptr;
        if (browser == u"refuses"_s)
            waiting.open = [](const QUrl&) { return false; };
        service->setOAuthBrowser(waiting);
        QCOMPARE(service->addCustomIntegration(u"Custom"_s, base + u"/sse"_s, true, {}),
                 std::nullopt);
        const MCPRemoteConfig config = *service->integration(u"Custom"_s);

        std::optional<std::optional<QString>> outcome;
        service->handleOAuthAuthentication(config,
                                           [&](const std::optional<QString>& e) { outcome = e; });
        if (browser == u"cancelled"_s || browser == u"superseded"_s) {
            QTRY_COMPARE(service->signingIn(), u"Custom"_s);
            QTRY_COMPARE(opened.size(), 1);
            QVariantMap card = service->integrationList().constLast().toMap();
            QCOMPARE(card.value(u"state"_s).toString(), u"waiting for browser"_s);
            if (browser == u"cancelled"_s) {
                service->cancelSignIn();
            } else {
                service->handleOAuthAuthentication(configFor(u"Other"_s, QUrl(base + u"/sse"_s)),
                                                   [](const std::optional<QString>&) {});
            }
        }
        QTRY_VERIFY_WITH_TIMEOUT(outcome.has_value(), 10000);
        QCOMPARE(outcome->value_or(QString()), error);
        QVERIFY(!m_fixture.keychain().readKey(config.tokenKey()));
        // Without a browser nothing is asked of the server either.
        QCOMPARE(server.requests().isEmpty(), browser == u"none"_s);
        // A link arriving after the end is nobody's.
        QVERIFY(
            !service->handleOAuthCallback(QUrl(u"quillmoss://oauth/callback?code=late&state=x"_s)));
    }

    // A name that cannot key a token in the store fails before the user is
    // sent through the browser for nothing.
    void unstorableNameFailsFirst()
    {
        HttpStub server;
        const auto service = makeService();
        QList<QUrl> opened;
        service->setOAuthBrowser(browserReturning(*service, Return::Code, &opened));
        QCOMPARE(signIn(*service, configFor(u"Demo calls"_s, server.url())),
                 std::optional(u"Failed to store OAuth access token securely"_s));
        QVERIFY(server.requests().isEmpty());
        QVERIFY(opened.isEmpty());
        QCOMPARE(
            service->addCustomIntegration(u"Demo calls"_s, u"https://a.example/sse"_s, true, {}),
            std::optional(u"The name of an integration that signs in may use only letters, "
                          u"digits, '-', '.' and '_', at most 90 of them"_s));
        QCOMPARE(
            service->addCustomIntegration(u"Demo calls"_s, u"https://a.example/sse"_s, false, {}),
            std::nullopt);
    }
};

QTEST_GUILESS_MAIN(MCPOAuthFlowTest)
#include "MCPOAuthFlowTest.moc"

#include "mcp/MCPOAuthFlow.h"

#include "core/Logging.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QUrlQuery>

#include <array>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Texts an outside server or the browser wrote, as they may appear in an error
// or a log line: one line, of a readable length.
QString printable(const QString& text, qsizetype longest = 300)
{
    QString line = text;
    for (QChar& c : line) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            c = u' ';
    }
    line = line.simplified();
    if (line.size() > longest)
        line = line.left(longest) + u'…';
    return line;
}

bool isWebUrl(const QUrl& url)
{
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == "https"_L1 || url.scheme() == "http"_L1);
}

QUrl originOf(const QUrl& url)
{
    QUrl origin;
    origin.setScheme(url.scheme());
    origin.setHost(url.host());
    origin.setPort(url.port());
    return origin;
}

QUrl onOrigin(const QUrl& url, const QString& path)
{
    QUrl resolved = originOf(url);
    resolved.setPath(path);
    return resolved;
}

// What an HTTP exchange ended with.
struct HttpAnswer
{
    int status = 0; // 0: no HTTP answer
    QByteArray body;
    QString networkError;
    // The answer was not HTTP at all (as opposed to no answer).
    bool notHttp = false;
};

HttpAnswer answerOf(QNetworkReply* reply)
{
    HttpAnswer answer;
    answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    answer.body = reply->readAll();
    if (answer.status == 0 && reply->error() != QNetworkReply::NoError) {
        answer.networkError = reply->errorString();
        answer.notHttp = reply->error() == QNetworkReply::ProtocolFailure ||
                         reply->error() == QNetworkReply::ProtocolUnknownError;
    }
    return answer;
}

std::optional<OAuthEndpoints> endpointsFrom(const QJsonObject& metadata)
{
    const QJsonValue authorization = metadata.value("authorization_endpoint"_L1);
    const QJsonValue token = metadata.value("token_endpoint"_L1);
    if (!authorization.isString() || !token.isString())
        return std::nullopt;
    OAuthEndpoints endpoints{QUrl(authorization.toString(), QUrl::StrictMode),
                             QUrl(token.toString(), QUrl::StrictMode), QUrl()};
    if (!isWebUrl(endpoints.authorization) || !isWebUrl(endpoints.token))
        return std::nullopt;
    const QUrl registration(metadata.value("registration_endpoint"_L1).toString(),
                            QUrl::StrictMode);
    if (isWebUrl(registration))
        endpoints.registration = registration;
    return endpoints;
}

QString base64Url(const QByteArray& bytes)
{
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

// The pre-built services whose fixed client IDs and endpoints are known, by
// integration key.
struct KnownService
{
    const char* key;
    const char* displayName;
    const char* clientId;
    const char* authorizationPath; // nullptr: none known
    const char* tokenPath;
};

constexpr std::array knownServices{
    KnownService{"linear", "Linear", "linear-mcp-client", "/authorize", "/token"},
    KnownService{"asana", "Asana", "asana-mcp-client", "/authorize", "/token"},
    KnownService{"atlassian", "Atlassian", "atlassian-mcp-client", nullptr, nullptr},
    KnownService{"intercom", "Intercom", "intercom-mcp-client", nullptr, nullptr},
    KnownService{"paypal", "PayPal", "paypal-mcp-client", "/authorize", "/token"},
    KnownService{"sentry", "Sentry", "sentry-mcp-client", "/oauth/authorize", "/oauth/token"},
    KnownService{"square", "Square", "square-mcp-client", nullptr, nullptr},
};

const KnownService* knownService(const QString& name)
{
    const QString key = name.toLower();
    for (const KnownService& service : knownServices) {
        if (key == QLatin1StringView(service.key))
            return &service;
    }
    return nullptr;
}

} // namespace

OAuthCallbackCheck OAuthCallbackCheck::of(const QUrl& callback, const QString& redirectUri,
                                          const QString& expectedState, const QString& name)
{
    const QUrl redirect(redirectUri);
    // Only a link to where the flow said the browser should come back.
    if (!callback.isValid() || callback.scheme().isEmpty() ||
        callback.scheme() != redirect.scheme() ||
        callback.host().compare(redirect.host(), Qt::CaseInsensitive) != 0 ||
        callback.port() != redirect.port() || callback.path() != redirect.path())
        return {std::nullopt, u"Invalid OAuth callback URL"_s};
    const QUrlQuery query(callback);
    const auto value = [&](const QString& item) {
        return query.queryItemValue(item, QUrl::FullyDecoded);
    };
    if (query.hasQueryItem(u"error"_s)) {
        const QString description = value(u"error_description"_s);
        const QString detail = printable(description.isEmpty() ? value(u"error"_s) : description);
        const QString error = u"OAuth authorization error for "_s + name + u": "_s + detail;
        qCWarning(lcMcp).noquote() << error;
        return {std::nullopt, error};
    }
    const QStringList states = query.allQueryItemValues(u"state"_s, QUrl::FullyDecoded);
    if (states.size() != 1 || expectedState.isEmpty() || states.first() != expectedState) {
        qCWarning(lcMcp).noquote()
            << u"OAuth state mismatch for "_s + name + u" - possible security issue"_s;
        return {std::nullopt, u"OAuth state mismatch - possible security issue"_s};
    }
    const QStringList codes = query.allQueryItemValues(u"code"_s, QUrl::FullyDecoded);
    if (codes.size() != 1 || codes.first().isEmpty())
        return {std::nullopt, u"No authorization code received"_s};
    return {codes.first(), {}};
}

MCPOAuthFlow::MCPOAuthFlow(MCPRemoteConfig config, OAuthBrowser browser,
                           std::chrono::milliseconds browserLimit, QObject* parent)
    : QObject(parent), m_config(std::move(config)), m_browser(std::move(browser)),
      m_network(new QNetworkAccessManager(this))
{
    m_browserLimit.setSingleShot(true);
    m_browserLimit.setInterval(browserLimit);
    connect(&m_browserLimit, &QTimer::timeout, this, [this] {
        const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(
            std::chrono::milliseconds(m_browserLimit.interval()));
        fail(u"OAuth authentication failed: the browser did not come back within %1"_s.arg(
            minutes.count() > 0 ? u"%1 minutes"_s.arg(minutes.count())
                                : u"%1 ms"_s.arg(m_browserLimit.interval())));
    });
}

MCPOAuthFlow::~MCPOAuthFlow()
{
    m_result = nullptr;
    for (const QPointer<QNetworkReply>& reply : std::as_const(m_replies)) {
        if (reply) {
            reply->disconnect(this);
            reply->abort();
        }
    }
}

void MCPOAuthFlow::start(Result result)
{
    m_result = std::move(result);
    // Every outcome reaches the caller later, as a network outcome would.
    QMetaObject::invokeMethod(
        this,
        [this] {
            // Without a way to show the page, nothing is asked of the server.
            if (!m_browser.open) {
                qCWarning(lcMcp).noquote()
                    << u"OAuth presentation context not provided for "_s + m_config.name;
                fail(u"OAuth presentation context error"_s);
                return;
            }
            discoverOAuthEndpoints([this](const std::optional<OAuthEndpoints>& endpoints) {
                if (!endpoints) {
                    fail(u"Failed to discover OAuth endpoints for "_s + m_config.name);
                    return;
                }
                performOAuthFlow(*endpoints);
            });
        },
        Qt::QueuedConnection);
}

void MCPOAuthFlow::setStage(Stage stage)
{
    if (m_stage == stage)
        return;
    m_stage = stage;
    Q_EMIT stageChanged(stage);
}

void MCPOAuthFlow::finish(const std::optional<QString>& token, const QString& error)
{
    if (m_stage == Stage::Finished)
        return;
    m_browserLimit.stop();
    m_state.clear();
    m_verifier.clear();
    setStage(Stage::Finished);
    // Last: the caller may let the flow go from inside its result.
    if (Result result = std::exchange(m_result, nullptr))
        result(token, error);
}

void MCPOAuthFlow::cancel()
{
    if (m_stage == Stage::Finished)
        return;
    qCInfo(lcMcp).noquote() << u"OAuth authentication was canceled by user for "_s + m_config.name;
    fail(u"OAuth authentication was canceled"_s);
}

QNetworkReply* MCPOAuthFlow::track(QNetworkReply* reply)
{
    m_replies.removeIf([](const QPointer<QNetworkReply>& r) { return r.isNull(); });
    m_replies.append(reply);
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    return reply;
}

namespace {

QNetworkRequest requestFor(const QUrl& url, QNetworkRequest::RedirectPolicy redirects)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, redirects);
    request.setTransferTimeout(30'000);
    request.setRawHeader("Accept", "application/json");
    request.setHeader(QNetworkRequest::UserAgentHeader, u"Quillmoss/1.0.22"_s);
    return request;
}

} // namespace

void MCPOAuthFlow::getJson(const QUrl& url, JsonDone done)
{
    QNetworkReply* reply =
        track(m_network->get(requestFor(url, QNetworkRequest::NoLessSafeRedirectPolicy)));
    connect(reply, &QNetworkReply::finished, this, [reply, done = std::move(done)] {
        const HttpAnswer answer = answerOf(reply);
        if (answer.status != 200) {
            done(std::nullopt,
                 answer.status == 0 ? answer.networkError : u"HTTP %1"_s.arg(answer.status));
            return;
        }
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(answer.body, &error);
        if (!document.isObject()) {
            done(QJsonObject(), error.error != QJsonParseError::NoError ? error.errorString()
                                                                        : u"not an object"_s);
            return;
        }
        done(document.object(), {});
    });
}

void MCPOAuthFlow::discoverOAuthEndpoints(
    const std::function<void(std::optional<OAuthEndpoints>)>& done)
{
    setStage(Stage::Discovering);
    const QUrl ownMetadata =
        onOrigin(QUrl(m_config.url), u"/.well-known/oauth-authorization-server"_s);
    discoverFromMetadata(ownMetadata, [this, done](const std::optional<OAuthEndpoints>& endpoints) {
        if (endpoints) {
            done(endpoints);
            return;
        }
        discoverFromResourceMetadata([this, done](const std::optional<OAuthEndpoints>& found) {
            if (found) {
                done(found);
                return;
            }
            const QString& name = m_config.name;
            qCWarning(lcMcp).noquote() << u"Failed to discover OAuth metadata for "_s + name +
                                              u", using fallback endpoints"_s;
            std::optional<OAuthEndpoints> fallback = fallbackEndpoints(name, QUrl(m_config.url));
            if (!fallback)
                qCWarning(lcMcp).noquote()
                    << u"No fallback OAuth endpoints are known for "_s + name;
            done(fallback);
        });
    });
}

void MCPOAuthFlow::discoverFromMetadata(
    const QUrl& url, const std::function<void(std::optional<OAuthEndpoints>)>& done)
{
    getJson(url, [this, url, done](const std::optional<QJsonObject>& json, const QString& why) {
        const QString where = url.toString(QUrl::RemoveUserInfo);
        const std::optional<OAuthEndpoints> endpoints = json ? endpointsFrom(*json) : std::nullopt;
        if (!endpoints) {
            qCWarning(lcMcp).noquote() << (json ? u"Invalid OAuth metadata format from "_s + where
                                                : u"Failed to retrieve OAuth metadata from "_s +
                                                      where + u": "_s + printable(why));
            done(std::nullopt);
            return;
        }
        qCInfo(lcMcp).noquote() << u"Discovered OAuth endpoints for %1: auth=%2, token=%3"_s.arg(
            m_config.name, endpoints->authorization.toString(), endpoints->token.toString());
        done(endpoints);
    });
}

void MCPOAuthFlow::probeStreamForChallenge(const std::function<void(std::optional<QUrl>)>& done)
{
    // The stream refused without a token names, in its challenge, where the
    // server describes itself. Only the headers are read.
    QNetworkRequest request = requestFor(QUrl(m_config.url), QNetworkRequest::ManualRedirectPolicy);
    request.setRawHeader("Accept", "text/event-stream");
    QNetworkReply* reply = track(m_network->get(request));
    auto settled = std::make_shared<bool>(false);
    const auto decide = [reply, settled, done] {
        if (std::exchange(*settled, true))
            return;
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        std::optional<QUrl> metadata;
        if (status == 401)
            metadata = resourceMetadataUrl(reply->rawHeader("WWW-Authenticate"));
        reply->abort();
        done(metadata);
    };
    connect(reply, &QNetworkReply::metaDataChanged, this, decide);
    connect(reply, &QNetworkReply::finished, this, decide);
}

void MCPOAuthFlow::discoverFromResourceMetadata(
    const std::function<void(std::optional<OAuthEndpoints>)>& done)
{
    probeStreamForChallenge([this, done](const std::optional<QUrl>& metadataUrl) {
        if (!metadataUrl) {
            done(std::nullopt);
            return;
        }
        const QString& name = m_config.name;
        qCInfo(lcMcp).noquote() << u"Found protected resource metadata for "_s + name + u" at "_s +
                                       metadataUrl->toString(QUrl::RemoveUserInfo);
        getJson(*metadataUrl,
                [this, done, name](const std::optional<QJsonObject>& json, const QString& why) {
                    const QJsonArray servers =
                        json ? json->value("authorization_servers"_L1).toArray() : QJsonArray();
                    const QUrl issuer(servers.isEmpty() ? QString() : servers.first().toString(),
                                      QUrl::StrictMode);
                    if (!isWebUrl(issuer)) {
                        qCWarning(lcMcp).noquote()
                            << u"Protected resource metadata of "_s + name +
                                   u" names no authorization server"_s +
                                   (why.isEmpty() ? QString() : u": "_s + printable(why));
                        done(std::nullopt);
                        return;
                    }
                    qCInfo(lcMcp).noquote() << u"Authorization server of "_s + name + u": "_s +
                                                   issuer.toString(QUrl::RemoveUserInfo);
                    discoverFromMetadata(authorizationServerMetadataUrl(issuer), done);
                });
    });
}

void MCPOAuthFlow::performOAuthFlow(const OAuthEndpoints& endpoints)
{
    registerOAuthClient(endpoints, [this, endpoints](const QString& clientId) {
        performAuthorizationFlow(endpoints, clientId);
    });
}

void MCPOAuthFlow::registerOAuthClient(const OAuthEndpoints& endpoints,
                                       const std::function<void(const QString& clientId)>& done)
{
    setStage(Stage::Registering);
    const QString& name = m_config.name;
    const QString scope = scopeFor(name);
    const QUrl url = endpoints.registration.isValid() ? endpoints.registration
                                                      : onOrigin(endpoints.token, u"/register"_s);
    qCInfo(lcMcp).noquote() << u"Registering OAuth client with "_s +
                                   url.toString(QUrl::RemoveUserInfo) + u" (scope: "_s + scope +
                                   u")"_s;
    const QJsonObject registration{
        {u"client_name"_s, u"Quillmoss"_s},
        {u"redirect_uris"_s, QJsonArray{m_browser.redirectUri}},
        {u"grant_types"_s, QJsonArray{u"authorization_code"_s}},
        {u"response_types"_s, QJsonArray{u"code"_s}},
        {u"scope"_s, scope},
        {u"client_uri"_s, u"https://quillmoss.app"_s},
        {u"application_type"_s, u"native"_s},
        {u"token_endpoint_auth_method"_s, u"none"_s},
        {u"software_id"_s, u"quillmoss-mcp"_s},
        {u"software_version"_s, u"1.0.22"_s},
    };
    QNetworkRequest request = requestFor(url, QNetworkRequest::ManualRedirectPolicy);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    QNetworkReply* reply =
        track(m_network->post(request, QJsonDocument(registration).toJson(QJsonDocument::Compact)));
    connect(reply, &QNetworkReply::finished, this, [reply, name, done] {
        const HttpAnswer answer = answerOf(reply);
        const auto fallBack = [&](const QString& why) {
            qCWarning(lcMcp).noquote() << why;
            qCWarning(lcMcp).noquote() << u"Dynamic client registration failed for "_s + name;
            done(fallbackClientId(name));
        };
        if (answer.status == 0) {
            fallBack(u"Invalid response from client registration endpoint"_s +
                     (answer.networkError.isEmpty() ? QString()
                                                    : u": "_s + printable(answer.networkError)));
            return;
        }
        if (answer.status == 404) {
            qCWarning(lcMcp).noquote() << u"Registration endpoint not found"_s;
            fallBack(u"Dynamic client registration not supported by "_s + name +
                     u", using fallback"_s);
            return;
        }
        if (answer.status < 200 || answer.status > 299) {
            fallBack(u"Client registration failed (HTTP %1)"_s.arg(answer.status));
            return;
        }
        const QJsonObject json = QJsonDocument::fromJson(answer.body).object();
        const QString clientId = json.value("client_id"_L1).toString();
        if (clientId.isEmpty()) {
            // Names only: a registration answer may carry a secret of its own.
            fallBack(u"Invalid client registration response: fields "_s +
                     (json.isEmpty() ? u"(none)"_s : printable(json.keys().join(u", "_s))));
            return;
        }
        qCInfo(lcMcp).noquote() << u"Successfully registered OAuth client with ID: "_s +
                                       printable(clientId);
        done(clientId);
    });
}

void MCPOAuthFlow::performAuthorizationFlow(const OAuthEndpoints& endpoints,
                                            const QString& clientId)
{
    const QString& name = m_config.name;
    const QString scope = scopeFor(name);
    m_tokenEndpoint = endpoints.token;
    m_clientId = clientId;
    m_state = randomToken();
    m_verifier = randomToken();

    // Built by hand, every value percent-encoded: a '+' or '&' in one must not
    // change what the server reads.
    QUrl url = endpoints.authorization;
    QString query = url.query(QUrl::FullyEncoded);
    const auto add = [&query](const char* key, const QString& value) {
        if (!query.isEmpty())
            query += u'&';
        query +=
            QLatin1StringView(key) + u'=' + QString::fromLatin1(QUrl::toPercentEncoding(value));
    };
    add("response_type", u"code"_s);
    add("client_id", clientId);
    add("redirect_uri", m_browser.redirectUri);
    add("scope", scope);
    add("state", m_state);
    add("code_challenge", codeChallenge(m_verifier));
    add("code_challenge_method", u"S256"_s);
    url.setQuery(query, QUrl::StrictMode);
    qCInfo(lcMcp).noquote() << u"Starting OAuth authorization with client_id: "_s +
                                   printable(clientId) + u", scope: "_s + scope;

    setStage(Stage::WaitingForBrowser);
    m_browserLimit.start();
    // The browser may come back before `open` returns.
    const QPointer<MCPOAuthFlow> self(this);
    if (!m_browser.open(url) && self && m_stage == Stage::WaitingForBrowser) {
        qCWarning(lcMcp).noquote() << u"Failed to start OAuth authentication session"_s;
        fail(u"Failed to start OAuth authentication session"_s);
    }
}

bool MCPOAuthFlow::handleCallback(const QUrl& callback)
{
    if (m_stage != Stage::WaitingForBrowser)
        return false;
    m_browserLimit.stop();
    const QString& name = m_config.name;
    const OAuthCallbackCheck check =
        OAuthCallbackCheck::of(callback, m_browser.redirectUri, m_state, name);
    if (!check.code) {
        fail(check.error);
        return true;
    }
    qCInfo(lcMcp).noquote() << u"Received OAuth authorization code for "_s + name;
    exchangeCodeForToken(*check.code, m_tokenEndpoint, m_clientId, m_browser.redirectUri);
    return true;
}

void MCPOAuthFlow::exchangeCodeForToken(const QString& code, const QUrl& tokenEndpoint,
                                        const QString& clientId, const QString& redirectUri)
{
    setStage(Stage::Exchanging);
    const QString where = tokenEndpoint.toString(QUrl::RemoveUserInfo);
    qCInfo(lcMcp).noquote() << u"Exchanging authorization code for access token at "_s + where;
    qCInfo(lcMcp).noquote()
        << u"Token exchange parameters: grant_type=authorization_code, client_id="_s +
               printable(clientId) + u", redirect_uri="_s + redirectUri;
    QByteArray form;
    const auto add = [&form](const char* key, const QString& value) {
        if (!form.isEmpty())
            form += '&';
        form += QByteArray(key) + '=' + QUrl::toPercentEncoding(value);
    };
    add("grant_type", u"authorization_code"_s);
    add("code", code);
    add("redirect_uri", redirectUri);
    add("client_id", clientId);
    add("code_verifier", m_verifier);
    QNetworkRequest request = requestFor(tokenEndpoint, QNetworkRequest::ManualRedirectPolicy);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/x-www-form-urlencoded"_s);
    QNetworkReply* reply = track(m_network->post(request, form));
    // What the flow sent stays out of what it logs, even when a server echoes it.
    const QStringList secrets = {code, m_verifier};
    connect(reply, &QNetworkReply::finished, this, [this, reply, secrets] {
        const HttpAnswer answer = answerOf(reply);
        const auto failWith = [this](const QString& error) {
            qCWarning(lcMcp).noquote() << u"Failed to exchange code for token: "_s + error;
            fail(error);
        };
        const auto redacted = [&secrets](QString text) {
            for (const QString& secret : secrets) {
                if (!secret.isEmpty())
                    text.replace(secret, u"…"_s);
            }
            return printable(text, 500);
        };
        if (answer.status == 0) {
            failWith(answer.notHttp
                         ? u"Invalid response from token endpoint"_s
                         : u"Token exchange network error: "_s + printable(answer.networkError));
            return;
        }
        if (answer.status < 200 || answer.status > 299) {
            const QString body = redacted(QString::fromUtf8(answer.body));
            if (body.isEmpty())
                qCWarning(lcMcp).noquote() << u"No response body"_s;
            else
                qCWarning(lcMcp).noquote() << u"Token exchange response body: "_s + body;
            const QJsonObject json = QJsonDocument::fromJson(answer.body).object();
            const QString oauthError = json.value("error"_L1).toString();
            const QString description = json.value("error_description"_L1).toString();
            QString detail =
                oauthError.isEmpty()
                    ? body
                    : redacted(description.isEmpty() ? oauthError
                                                     : oauthError + u": "_s + description);
            failWith(u"Token exchange failed (HTTP %1)"_s.arg(answer.status) +
                     (detail.isEmpty() ? QString() : u": "_s + printable(detail, 200)));
            return;
        }
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(answer.body, &parseError);
        if (!document.isObject()) {
            // Never the body itself: it may hold a token of a shape not understood.
            failWith(u"Invalid token response format: "_s +
                     (parseError.error != QJsonParseError::NoError ? parseError.errorString()
                                                                   : u"not a JSON object"_s));
            return;
        }
        const QJsonValue token = document.object().value("access_token"_L1);
        if (!token.isString() || token.toString().isEmpty()) {
            failWith(u"Invalid token response: no access_token"_s);
            return;
        }
        qCInfo(lcMcp).noquote() << u"Successfully obtained access token: (%1 characters)"_s.arg(
            token.toString().size());
        finish(token.toString(), {});
    });
}

QString MCPOAuthFlow::scopeFor(const QString& name)
{
    const QString key = name.toLower();
    if (key == "linear"_L1)
        return u"read write issues projects comments"_s;
    if (key == "asana"_L1)
        return u"default"_s;
    if (key == "atlassian"_L1)
        return u"read:jira-work write:jira-work"_s;
    return u"mcp"_s;
}

std::optional<OAuthEndpoints> MCPOAuthFlow::fallbackEndpoints(const QString& name,
                                                              const QUrl& serverUrl)
{
    const KnownService* service = knownService(name);
    if (service == nullptr || service->authorizationPath == nullptr || !isWebUrl(serverUrl))
        return std::nullopt;
    return OAuthEndpoints{onOrigin(serverUrl, QString::fromLatin1(service->authorizationPath)),
                          onOrigin(serverUrl, QString::fromLatin1(service->tokenPath)), QUrl()};
}

QString MCPOAuthFlow::fallbackClientId(const QString& name)
{
    if (const KnownService* service = knownService(name)) {
        qCInfo(lcMcp).noquote() << u"Using fallback client ID for "_s +
                                       QLatin1StringView(service->displayName);
        return QString::fromLatin1(service->clientId);
    }
    qCInfo(lcMcp).noquote() << u"Using generic MCP client ID as fallback"_s;
    return u"mcp-client"_s;
}

QUrl MCPOAuthFlow::authorizationServerMetadataUrl(const QUrl& issuer)
{
    QString path = issuer.path();
    if (path.endsWith(u'/'))
        path.chop(1);
    return onOrigin(issuer, u"/.well-known/oauth-authorization-server"_s + path);
}

std::optional<QUrl> MCPOAuthFlow::resourceMetadataUrl(const QByteArray& wwwAuthenticate)
{
    // auth-param = token BWS "=" BWS ( token / quoted-string ), case-insensitive name.
    static const QRegularExpression parameter(
        uR"re((?:^|[\s,])resource_metadata\s*=\s*(?:"((?:[^"\\]|\\.)*)"|([^\s,"]+)))re"_s,
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = parameter.match(QString::fromLatin1(wwwAuthenticate));
    if (!match.hasMatch())
        return std::nullopt;
    QString value = match.captured(1).isNull() ? match.captured(2) : match.captured(1);
    static const QRegularExpression escaped(uR"(\\(.))"_s);
    value.replace(escaped, u"\\1"_s);
    const QUrl url(value, QUrl::StrictMode);
    if (!isWebUrl(url))
        return std::nullopt;
    return url;
}

QString MCPOAuthFlow::randomToken()
{
    std::array<quint32, 8> words{};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return base64Url(QByteArray(reinterpret_cast<const char*>(words.data()), sizeof(words)));
}

QString MCPOAuthFlow::codeChallenge(const QString& verifier)
{
    return base64Url(QCryptographicHash::hash(verifier.toLatin1(), QCryptographicHash::Sha256));
}

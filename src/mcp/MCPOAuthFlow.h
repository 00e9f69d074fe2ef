// The OAuth sign-in of one remote MCP integration: the server's endpoints
// discovered, the application registered as a public client, the user's
// authorization in the browser with a state and a PKCE challenge, and the code
// the browser brings back exchanged for an access token.
#pragma once

#include "mcp/MCPRemoteConfig.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

// Where the authorization page is shown and where the browser comes back to.
struct OAuthBrowser
{
    static constexpr auto appRedirectUri = "quillmoss://oauth/callback";

    // Registered with the server and sent with the authorization request; the
    // link the browser ends on starts with it.
    QString redirectUri = QString::fromLatin1(appRedirectUri);
    // Shows the page; false when it cannot be shown. Unset, no sign-in can
    // start.
    std::function<bool(const QUrl& authorizationUrl)> open;
};

struct OAuthEndpoints
{
    QUrl authorization;
    QUrl token;
    // Where the server takes client registrations, when its metadata says so.
    QUrl registration;
};

// What the link the browser ended on says: the authorization code, or why the
// sign-in fails. Checks made in the order the errors are told.
struct OAuthCallbackCheck
{
    std::optional<QString> code;
    QString error;

    static OAuthCallbackCheck of(const QUrl& callback, const QString& redirectUri,
                                 const QString& expectedState, const QString& name);
};

class MCPOAuthFlow : public QObject
{
    Q_OBJECT

public:
    enum class Stage
    {
        Discovering,
        Registering,
        WaitingForBrowser,
        Exchanging,
        Finished,
    };
    Q_ENUM(Stage)

    // The access token, or the text of the failure.
    using Result = std::function<void(const std::optional<QString>& token, const QString& error)>;

    // How long the browser may take before the sign-in is given up.
    MCPOAuthFlow(MCPRemoteConfig config, OAuthBrowser browser,
                 std::chrono::milliseconds browserLimit, QObject* parent = nullptr);
    // Aborts what is under way; the result never runs after this.
    ~MCPOAuthFlow() override;
    MCPOAuthFlow(const MCPOAuthFlow&) = delete;
    MCPOAuthFlow& operator=(const MCPOAuthFlow&) = delete;

    // Runs the flow; `result` runs once, later, on this thread.
    void start(Result result);
    // The link the browser ended on; true when the flow was waiting for one
    // (it then ends with the code exchanged or with the link's failure).
    bool handleCallback(const QUrl& callback);
    // Ends a flow still under way as the user cancelling it would.
    void cancel();

    Stage stage() const { return m_stage; }
    const MCPRemoteConfig& config() const { return m_config; }

    // The steps, in the order the flow runs them.
    void discoverOAuthEndpoints(const std::function<void(std::optional<OAuthEndpoints>)>& done);
    void performOAuthFlow(const OAuthEndpoints& endpoints);
    void registerOAuthClient(const OAuthEndpoints& endpoints,
                             const std::function<void(const QString& clientId)>& done);
    void performAuthorizationFlow(const OAuthEndpoints& endpoints, const QString& clientId);
    void exchangeCodeForToken(const QString& code, const QUrl& tokenEndpoint,
                              const QString& clientId, const QString& redirectUri);

    // The scope asked for, by integration.
    static QString scopeFor(const QString& name);
    // The endpoints used when the server publishes none, on the server's own
    // origin; nothing for an integration without known ones.
    static std::optional<OAuthEndpoints> fallbackEndpoints(const QString& name,
                                                           const QUrl& serverUrl);
    // The client ID used when registration fails (logs which one).
    static QString fallbackClientId(const QString& name);
    // RFC 8414: the well-known path goes between the issuer's host and its path.
    static QUrl authorizationServerMetadataUrl(const QUrl& issuer);
    // The "resource_metadata" parameter of a WWW-Authenticate challenge.
    static std::optional<QUrl> resourceMetadataUrl(const QByteArray& wwwAuthenticate);
    // A fresh random value for "state" and the PKCE verifier (base64url, 43 characters).
    static QString randomToken();
    // The S256 challenge of a PKCE verifier.
    static QString codeChallenge(const QString& verifier);

Q_SIGNALS:
    void stageChanged(MCPOAuthFlow::Stage stage);

private:
    using JsonDone = std::function<void(std::optional<QJsonObject> json, const QString& failure)>;

    void setStage(Stage stage);
    void finish(const std::optional<QString>& token, const QString& error);
    void fail(const QString& error) { finish(std::nullopt, error); }
    QNetworkReply* track(QNetworkReply* reply);
    void getJson(const QUrl& url, JsonDone done);
    // The endpoints an authorization server's metadata document names.
    void discoverFromMetadata(const QUrl& url,
                              const std::function<void(std::optional<OAuthEndpoints>)>& done);
    void
    discoverFromResourceMetadata(const std::function<void(std::optional<OAuthEndpoints>)>& done);
    void probeStreamForChallenge(const std::function<void(std::optional<QUrl>)>& done);

    const MCPRemoteConfig m_config;
    const OAuthBrowser m_browser;
    QNetworkAccessManager* m_network;
    Result m_result;
    Stage m_stage = Stage::Discovering;
    QList<QPointer<QNetworkReply>> m_replies;

    // Of the authorization request that waits for the browser.
    QUrl m_tokenEndpoint;
    QString m_clientId;
    QString m_state;
    QString m_verifier;
    QTimer m_browserLimit;
};

// The remote MCP servers the assistant can use: the pre-built integrations and
// the user's own, their connections with the tools each server offers, the
// OAuth token each one is opened with, and the watch on their health.
#pragma once

#include "mcp/MCPOAuthFlow.h"
#include "mcp/MCPRemoteConfig.h"
#include "protocol/McpClient.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantList>
#include <QVariantMap>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class KeychainManager;
class LocalTool;
class SettingsStore;

// One connected integration.
struct MCPConnection
{
    MCPRemoteConfig config;
    bool isConnected = false;
    QStringList toolNames;
    // As the server described them, input schemas included; names only when
    // they came from the transport's own discovery.
    QList<McpTool> tools;
    // Owned by the service; goes with the connection.
    QPointer<McpClient> client;
    // Discovery results of an older round are dropped.
    int discoveryRound = 0;
};

// Lives on the GUI thread, one for the whole application; every published
// property changes there. Connections, discovery and health checks run on that
// thread's event loop.
class MCPRemoteService : public QObject
{
    Q_OBJECT
    // Every integration, pre-built then custom, as the screens list them: name,
    // url, description, requiresAuth, isCustom, state ("connected",
    // "connecting", "signing in", "waiting for browser", "not connected"),
    // signedIn, lastError, toolNames, toolCount.
    Q_PROPERTY(QVariantList integrations READ integrationList NOTIFY integrationsChanged)
    // Names of the connected integrations.
    Q_PROPERTY(QStringList connectedIntegrations READ connectedNames NOTIFY integrationsChanged)
    Q_PROPERTY(
        QVariantList customIntegrations READ customIntegrationList NOTIFY integrationsChanged)
    // Names of the connections in progress.
    Q_PROPERTY(QStringList isConnecting READ connectingNames NOTIFY integrationsChanged)

public:
    // Nothing on success, the user-facing error otherwise.
    using Done = std::function<void(const std::optional<QString>& error)>;

    struct Timing
    {
        // How long tools/list may take before the transport's list is polled.
        std::chrono::milliseconds listToolsLimit{7000};
        // The wait between polls of the transport.
        std::chrono::milliseconds pollInterval{500};
        std::chrono::milliseconds healthCheckInterval{30'000};
        // How long a sign-in waits for the browser to come back.
        std::chrono::milliseconds browserLimit{std::chrono::minutes(10)};
    };

    // `settings` and `keychain` outlive the service. Loads the custom
    // integrations and starts the health checks.
    MCPRemoteService(SettingsStore& settings, KeychainManager& keychain, Timing timing,
                     QObject* parent = nullptr);
    MCPRemoteService(SettingsStore& settings, KeychainManager& keychain, QObject* parent = nullptr);
    // Closes every connection; callbacks still waiting never run.
    ~MCPRemoteService() override;
    MCPRemoteService(const MCPRemoteService&) = delete;
    MCPRemoteService& operator=(const MCPRemoteService&) = delete;

    static constexpr auto settingsKey = "customMCPIntegrations";

    // Pre-built then custom.
    QList<MCPRemoteConfig> allIntegrations() const;
    // By name, exactly as listed.
    std::optional<MCPRemoteConfig> integration(const QString& name) const;
    const QList<MCPRemoteConfig>& customIntegrations() const { return m_customIntegrations; }
    const QMap<QString, MCPConnection>& connectedIntegrations() const { return m_connections; }
    const QSet<QString>& isConnecting() const { return m_connecting; }
    // The last failure of the integration's connection; empty after a success.
    QString lastError(const QString& name) const { return m_lastErrors.value(name); }

    // Opens the connection; `done` runs later, on this thread, once it is open
    // (its tools are discovered afterwards) or has failed. A second request
    // while one is running waits for that one.
    void connectToIntegration(const MCPRemoteConfig& config, Done done = {});
    void disconnectFromIntegration(const QString& name);

    // Nothing on success, the form's error otherwise.
    std::optional<QString> addCustomIntegration(const QString& name, const QString& url,
                                                bool requiresAuth, const QString& description);
    bool removeCustomIntegration(const QString& name);

    // Probes every connection; one that does not answer is closed.
    void checkConnectionHealth();

    // A tool per discovered tool of every connected integration, for the
    // tool manager.
    QList<std::shared_ptr<LocalTool>> remoteTools() const;

    // For the screens.
    Q_INVOKABLE void connectIntegration(const QString& name);
    Q_INVOKABLE void disconnectIntegration(const QString& name) { disconnectFromIntegration(name); }
    // "" when added, else the error shown under the form.
    Q_INVOKABLE QString addIntegration(const QString& name, const QString& url, bool requiresAuth,
                                       const QString& description);
    Q_INVOKABLE bool removeIntegration(const QString& name)
    {
        return removeCustomIntegration(name);
    }
    // {"error": text or "", "warning": text or ""} for the URL as typed.
    Q_INVOKABLE QVariantMap checkUrl(const QString& url) const;

    QVariantList integrationList() const;
    QStringList connectedNames() const { return m_connections.keys(); }
    QVariantList customIntegrationList() const;
    QStringList connectingNames() const;

    // Called after each change of a connection's tool list, and when a
    // connection with tools goes.
    std::function<void()> onToolsChanged;

    // Where sign-ins show the authorization page and where the browser comes
    // back to; without a way to open it no sign-in can start.
    void setOAuthBrowser(OAuthBrowser browser) { m_browser = std::move(browser); }
    const OAuthBrowser& oauthBrowser() const { return m_browser; }
    // The OAuth sign-in of the integration, ending with its token stored; a
    // sign-in still waiting for the browser is cancelled first. `done` runs
    // later, on this thread.
    void handleOAuthAuthentication(const MCPRemoteConfig& config, const Done& done);
    // The link the browser ended on; true when a sign-in was waiting for it.
    bool handleOAuthCallback(const QUrl& callback);
    // The integration whose sign-in runs, if any.
    QString signingIn() const;
    // Whether a token is kept for the integration.
    bool isSignedIn(const QString& name) const { return m_signedIn.contains(name); }

    // Ends the sign-in in progress as cancelled by the user.
    Q_INVOKABLE void cancelSignIn();
    // Deletes the integration's token, closing its connection first; false
    // when the store could not delete it.
    Q_INVOKABLE bool signOut(const QString& name);

Q_SIGNALS:
    void integrationsChanged();
    // A round of tool discovery of a connected integration has ended, with
    // tools or without.
    void toolsDiscovered(const QString& name);

private:
    struct Attempt;

    void loadCustomIntegrations();
    void saveCustomIntegrations();
    void connectWithToken(const std::shared_ptr<Attempt>& attempt,
                          const std::optional<QString>& token);
    void connected(const std::shared_ptr<Attempt>& attempt);
    void fail(const std::shared_ptr<Attempt>& attempt, const QString& error);
    void afterSignIn(const std::shared_ptr<Attempt>& attempt, const std::optional<QString>& error);
    void finish(const std::shared_ptr<Attempt>& attempt, const std::optional<QString>& error);
    void connectionClosed(const QString& name, const QString& reason);
    void removeConnection(const QString& name);
    void discoverTools(const QString& name);
    void pollTransport(const QString& name, int round, int attempt);
    void publishTools(const QString& name, int round, const QList<McpTool>& tools);
    void performHealthCheck(const QString& name);
    void notifyToolsChanged();

    SettingsStore& m_settings;
    KeychainManager& m_keychain;
    const Timing m_timing;
    QList<MCPRemoteConfig> m_customIntegrations;
    QMap<QString, MCPConnection> m_connections;
    QSet<QString> m_connecting;
    // Callers of a connection in progress, the first one included.
    QHash<QString, QList<Done>> m_waiting;
    QHash<QString, std::shared_ptr<Attempt>> m_attempts;
    QHash<QString, QString> m_lastErrors;
    QTimer m_healthTimer;
    OAuthBrowser m_browser;
    QPointer<MCPOAuthFlow> m_signInFlow;
    // Integrations with a token kept, as far as this service has seen.
    QSet<QString> m_signedIn;
};

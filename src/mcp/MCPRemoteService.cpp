#include "mcp/MCPRemoteService.h"

#include "core/Logging.h"
#include "mcp/AuthenticatedMCPTransport.h"
#include "mcp/MCPRemoteTool.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QFutureWatcher>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString connectedState = u"connected"_s;
const QString connectingState = u"connecting"_s;
const QString notConnectedState = u"not connected"_s;
const QString signingInState = u"signing in"_s;
const QString waitingForBrowserState = u"waiting for browser"_s;

const QString authenticationFailedText =
    u"Authentication failed. Please try connecting again to re-authenticate."_s;
const QString unreachableText =
    u"Cannot reach the MCP server. Check if the URL is correct and the server is running."_s;

bool isAuthenticationFailure(const QString& lowered)
{
    static const QStringList words = {u"authentication"_s, u"oauth"_s, u"unauthorized"_s,
                                      u"forbidden"_s, u"invalid_client"_s};
    return std::any_of(words.cbegin(), words.cend(),
                       [&](const QString& word) { return lowered.contains(word); });
}

} // namespace

// One connection being opened, from the first check to its outcome.
struct MCPRemoteService::Attempt
{
    MCPRemoteConfig config;
    // Made once the token question is settled; handed to the connection on success.
    std::unique_ptr<McpClient> client;
};

MCPRemoteService::MCPRemoteService(SettingsStore& settings, KeychainManager& keychain,
                                   QObject* parent)
    : MCPRemoteService(settings, keychain, Timing{}, parent)
{}

MCPRemoteService::MCPRemoteService(SettingsStore& settings, KeychainManager& keychain,
                                   Timing timing, QObject* parent)
    : QObject(parent), m_settings(settings), m_keychain(keychain), m_timing(timing)
{
    loadCustomIntegrations();
    // The timer is the service's own and its connection names the service as
    // context, so it never keeps the service alive nor calls into a dead one.
    m_healthTimer.setInterval(m_timing.healthCheckInterval);
    connect(&m_healthTimer, &QTimer::timeout, this, &MCPRemoteService::checkConnectionHealth);
    m_healthTimer.start();
    // Which integrations have a token, for the screens; one look at the store's
    // keys, off this thread.
    // (A watcher the service owns: it goes with the service, answer or not.)
    auto* keys = new QFutureWatcher<QStringList>(this);
    connect(keys, &QFutureWatcher<QStringList>::finished, this, [this, keys] {
        const QString prefix = MCPRemoteConfig::tokenKeyFor({});
        bool found = false;
        for (const QString& key : keys->result()) {
            if (key.startsWith(prefix)) {
                m_signedIn.insert(key.mid(prefix.size()));
                found = true;
            }
        }
        keys->deleteLater();
        if (found)
            Q_EMIT integrationsChanged();
    });
    keys->setFuture(m_keychain.allKeysAsync());
}

MCPRemoteService::~MCPRemoteService()
{
    m_healthTimer.stop();
    // A client that goes calls none of its callbacks: neither an attempt's
    // nor a connection's reaches a half-destroyed service. Each closes its
    // transport as it goes.
    for (const std::shared_ptr<Attempt>& attempt : std::as_const(m_attempts))
        attempt->client.reset();
    const QMap<QString, MCPConnection> connections = std::exchange(m_connections, {});
    for (const MCPConnection& connection : connections)
        delete connection.client.data();
}

QList<MCPRemoteConfig> MCPRemoteService::allIntegrations() const
{
    return MCPRemoteConfig::preBuilt() + m_customIntegrations;
}

std::optional<MCPRemoteConfig> MCPRemoteService::integration(const QString& name) const
{
    for (const MCPRemoteConfig& config : allIntegrations()) {
        if (config.name == name)
            return config;
    }
    return std::nullopt;
}

void MCPRemoteService::loadCustomIntegrations()
{
    const QJsonValue stored = m_settings.value(QString::fromLatin1(settingsKey));
    if (stored.isUndefined())
        return;
    QString error;
    const std::optional<QList<MCPRemoteConfig>> configs =
        MCPRemoteConfig::decodeList(stored, &error);
    if (!configs) {
        qCWarning(lcMcp).noquote() << u"Failed to load custom integrations: "_s + error;
        return;
    }
    m_customIntegrations = *configs;
    qCInfo(lcMcp).noquote() << u"Loaded %1 custom MCP integrations"_s.arg(configs->size());
}

void MCPRemoteService::saveCustomIntegrations()
{
    if (!m_settings.setValue(QString::fromLatin1(settingsKey),
                             MCPRemoteConfig::encodeList(m_customIntegrations)))
        qCWarning(lcMcp).noquote()
            << u"Failed to save custom integrations: "_s + m_settings.lastError();
}

std::optional<QString> MCPRemoteService::addCustomIntegration(const QString& name,
                                                              const QString& url, bool requiresAuth,
                                                              const QString& description)
{
    if (integration(name))
        return u"An integration with the name '"_s + name + u"' already exists"_s;
    const MCPUrlCheck check = MCPUrlCheck::of(url);
    if (check.error)
        return check.error;
    // Its token is kept under a key made of the name.
    if (requiresAuth && !KeychainManager::isValidKey(MCPRemoteConfig::tokenKeyFor(name)))
        return u"The name of an integration that signs in may use only letters, digits, "
               u"'-', '.' and '_', at most %1 of them"_s.arg(
                   KeychainManager::maxKeyLength - MCPRemoteConfig::tokenKeyFor({}).size());
    if (check.warning)
        qCInfo(lcMcp).noquote() << *check.warning;
    MCPRemoteConfig config;
    config.id = QUuid::createUuid();
    config.name = name;
    config.url = url;
    config.description = description;
    config.requiresAuth = requiresAuth;
    config.isCustom = true;
    config.dateAdded = QDateTime::currentDateTimeUtc();
    m_customIntegrations.append(config);
    saveCustomIntegrations();
    qCInfo(lcMcp).noquote() << u"Added custom MCP integration: "_s + name;
    Q_EMIT integrationsChanged();
    return std::nullopt;
}

bool MCPRemoteService::removeCustomIntegration(const QString& name)
{
    const qsizetype removed = m_customIntegrations.removeIf(
        [&](const MCPRemoteConfig& config) { return config.name == name; });
    if (removed == 0)
        return false;
    // A server the user no longer lists is not kept open either.
    if (m_connections.contains(name))
        disconnectFromIntegration(name);
    m_lastErrors.remove(name);
    saveCustomIntegrations();
    qCInfo(lcMcp).noquote() << u"Removed custom MCP integration: "_s + name;
    Q_EMIT integrationsChanged();
    return true;
}

void MCPRemoteService::connectToIntegration(const MCPRemoteConfig& config, Done done)
{
    const QString& name = config.name;
    qCInfo(lcMcp).noquote() << u"Attempting to connect to MCP integration: "_s + name;
    if (m_connections.contains(name)) {
        qCInfo(lcMcp).noquote() << name + u" is already connected"_s;
        if (done)
            QMetaObject::invokeMethod(
                this, [done] { done(std::nullopt); }, Qt::QueuedConnection);
        return;
    }
    if (m_connecting.contains(name)) {
        qCInfo(lcMcp).noquote() << name + u" already in progress, skipping"_s;
        // The caller hears how the running attempt ends.
        if (done)
            m_waiting[name].append(std::move(done));
        return;
    }
    m_connecting.insert(name);
    m_lastErrors.remove(name);
    if (done)
        m_waiting[name].append(std::move(done));
    Q_EMIT integrationsChanged();

    auto attempt = std::make_shared<Attempt>();
    attempt->config = config;
    m_attempts.insert(name, attempt);
    // Every outcome, even an immediate one, reaches the callers later, as a
    // network outcome would.
    QMetaObject::invokeMethod(
        this,
        [this, attempt] {
            const QString& name = attempt->config.name;
            if (!attempt->config.url.contains(u"/sse"_s)) {
                fail(attempt, u"Unsupported MCP server URL format: "_s + attempt->config.url +
                                  u". Must contain '/sse'."_s);
                return;
            }
            if (!attempt->config.requiresAuth) {
                connectWithToken(attempt, std::nullopt);
                return;
            }
            const QString tokenKey = attempt->config.tokenKey();
            if (std::optional<QString> token = m_keychain.readKey(tokenKey)) {
                qCInfo(lcMcp).noquote() << u"Using existing stored OAuth token for "_s + name;
                m_signedIn.insert(name);
                connectWithToken(attempt, token);
                return;
            }
            qCInfo(lcMcp).noquote()
                << u"No stored token found for "_s + name + u", initiating OAuth flow."_s;
            // The flow is the service's own and ends with it, answer or not.
            handleOAuthAuthentication(attempt->config,
                                      [this, attempt](const std::optional<QString>& error) {
                                          afterSignIn(attempt, error);
                                      });
        },
        Qt::QueuedConnection);
}

void MCPRemoteService::afterSignIn(const std::shared_ptr<Attempt>& attempt,
                                   const std::optional<QString>& error)
{
    const QString& name = attempt->config.name;
    std::optional<QString> token;
    if (error) {
        qCWarning(lcMcp).noquote()
            << u"OAuth authentication failed to provide a token for "_s + name;
    } else {
        token = m_keychain.readKey(attempt->config.tokenKey());
        if (token)
            qCInfo(lcMcp).noquote() << u"OAuth flow completed and token acquired for "_s + name;
        else
            qCWarning(lcMcp).noquote() << u"OAuth flow completed for "_s + name +
                                              u" but token still not found in keychain."_s;
    }
    if (token) {
        connectWithToken(attempt, token);
        return;
    }
    qCCritical(lcMcp).noquote() << u"Critical: Auth required for "_s + name +
                                       u" but no token available after checks and OAuth attempt."_s;
    const QString missing = u"Authentication token is required but was not available for "_s + name;
    qCWarning(lcMcp).noquote() << u"Failed to connect to "_s + name;
    qCWarning(lcMcp).noquote() << u"Connection failed: "_s + missing;
    // The sign-in's own text tells the user what went wrong (the browser
    // cancelled, access denied, …); there is no token to clear.
    const QString reported = error.value_or(missing);
    m_lastErrors.insert(name, reported);
    finish(attempt, reported);
}

void MCPRemoteService::handleOAuthAuthentication(const MCPRemoteConfig& config, const Done& done)
{
    const QString name = config.name;
    qCInfo(lcMcp).noquote() << u"Starting OAuth authentication for "_s + name;
    // One browser sign-in at a time: the newer one is what the user is doing.
    if (m_signInFlow)
        m_signInFlow->cancel();
    // Found out before the user goes through the browser for nothing.
    if (!KeychainManager::isValidKey(config.tokenKey())) {
        qCWarning(lcMcp).noquote() << u"Failed to store OAuth access token for "_s + name;
        QMetaObject::invokeMethod(
            this, [done] { done(u"Failed to store OAuth access token securely"_s); },
            Qt::QueuedConnection);
        return;
    }
    auto* flow = new MCPOAuthFlow(config, m_browser, m_timing.browserLimit, this);
    m_signInFlow = flow;
    connect(flow, &MCPOAuthFlow::stageChanged, this, &MCPRemoteService::integrationsChanged);
    flow->start(
        [this, flow, config, done](const std::optional<QString>& token, const QString& error) {
            // Not from inside its own callback.
            flow->deleteLater();
            if (m_signInFlow == flow)
                m_signInFlow = nullptr;
            Q_EMIT integrationsChanged();
            const QString& name = config.name;
            if (!token) {
                done(error);
                return;
            }
            if (!m_keychain.storeKey(*token, config.tokenKey())) {
                qCWarning(lcMcp).noquote() << u"Failed to store OAuth access token for "_s + name;
                done(u"Failed to store OAuth access token securely"_s);
                return;
            }
            m_signedIn.insert(name);
            qCInfo(lcMcp).noquote() << u"OAuth access token stored successfully for "_s + name;
            qCInfo(lcMcp).noquote() << u"OAuth authentication completed successfully for "_s + name;
            Q_EMIT integrationsChanged();
            done(std::nullopt);
        });
    Q_EMIT integrationsChanged();
}

bool MCPRemoteService::handleOAuthCallback(const QUrl& callback)
{
    return m_signInFlow && m_signInFlow->handleCallback(callback);
}

QString MCPRemoteService::signingIn() const
{
    return m_signInFlow ? m_signInFlow->config().name : QString();
}

void MCPRemoteService::cancelSignIn()
{
    if (m_signInFlow)
        m_signInFlow->cancel();
}

bool MCPRemoteService::signOut(const QString& name)
{
    const std::optional<MCPRemoteConfig> config = integration(name);
    if (!config)
        return false;
    if (m_connections.contains(name))
        disconnectFromIntegration(name);
    if (!m_keychain.deleteKey(config->tokenKey()))
        return false;
    m_signedIn.remove(name);
    m_lastErrors.remove(name);
    qCInfo(lcMcp).noquote() << u"Signed out of "_s + name;
    Q_EMIT integrationsChanged();
    return true;
}

void MCPRemoteService::connectWithToken(const std::shared_ptr<Attempt>& attempt,
                                        const std::optional<QString>& token)
{
    const QString& name = attempt->config.name;
    if (token)
        qCInfo(lcMcp).noquote() << u"Using AuthenticatedMCPTransport with Bearer token for "_s +
                                       name;
    else
        qCInfo(lcMcp).noquote()
            << u"Using custom AuthenticatedMCPTransport in unauthenticated mode for "_s + name;
    auto transport = std::make_unique<AuthenticatedMCPTransport>(QUrl(attempt->config.url), token);
    attempt->client = std::make_unique<McpClient>(std::move(transport));
    qCInfo(lcMcp).noquote() << u"Connecting to MCP server at: "_s + attempt->config.url;
    attempt->client->connectToServer([this, attempt](const std::optional<QString>& error) {
        if (error) {
            fail(attempt, *error);
            return;
        }
        connected(attempt);
    });
}

void MCPRemoteService::connected(const std::shared_ptr<Attempt>& attempt)
{
    const QString name = attempt->config.name;
    qCInfo(lcMcp).noquote() << u"MCP client connected successfully to "_s + name;
    qCInfo(lcMcp).noquote() << u"Connection established to "_s + name +
                                   u", attempting to list tools..."_s;
    McpClient* client = attempt->client.release();
    client->setParent(this);
    connect(client, &McpClient::toolListChanged, this, [this, name] {
        qCInfo(lcMcp).noquote() << u"Tool list of "_s + name + u" changed, discovering again"_s;
        discoverTools(name);
    });
    connect(client, &McpClient::disconnected, this,
            [this, name](const QString& reason) { connectionClosed(name, reason); });

    MCPConnection connection;
    connection.config = attempt->config;
    connection.isConnected = true;
    connection.client = client;
    m_connections.insert(name, connection);
    qCInfo(lcMcp).noquote() << u"Successfully connected to "_s + name +
                                   u" - tool discovery (hybrid approach) running in background"_s;
    finish(attempt, std::nullopt);
    // After the callers heard of the connection: the screens show it first
    // without tools.
    QMetaObject::invokeMethod(
        this, [this, name] { discoverTools(name); }, Qt::QueuedConnection);
}

void MCPRemoteService::fail(const std::shared_ptr<Attempt>& attempt, const QString& error)
{
    const QString& name = attempt->config.name;
    qCWarning(lcMcp).noquote() << u"Failed to connect to "_s + name;
    qCWarning(lcMcp).noquote() << u"Connection failed: "_s + error;
    if (attempt->client) {
        attempt->client->disconnectFromServer();
        // Not from inside the client's own callback.
        attempt->client.release()->deleteLater();
    }
    const QString lowered = error.toLower();
    QString reported = error;
    if (isAuthenticationFailure(lowered)) {
        m_keychain.deleteKey(attempt->config.tokenKey());
        m_signedIn.remove(name);
        qCWarning(lcMcp).noquote() << u"Authentication failed for "_s + name +
                                          u". Token cleared. User will need to reconnect."_s;
        reported = authenticationFailedText;
    } else if (lowered.contains(u"connection"_s) || lowered.contains(u"network"_s)) {
        reported = unreachableText;
    }
    m_lastErrors.insert(name, reported);
    finish(attempt, reported);
}

void MCPRemoteService::finish(const std::shared_ptr<Attempt>& attempt,
                              const std::optional<QString>& error)
{
    const QString name = attempt->config.name;
    m_attempts.remove(name);
    m_connecting.remove(name);
    const QList<Done> waiting = m_waiting.take(name);
    Q_EMIT integrationsChanged();
    for (const Done& done : waiting)
        done(error);
}

void MCPRemoteService::disconnectFromIntegration(const QString& name)
{
    qCInfo(lcMcp).noquote() << u"Disconnecting from MCP integration: "_s + name;
    if (!m_connections.contains(name))
        return;
    removeConnection(name);
    qCInfo(lcMcp).noquote() << u"Disconnected from "_s + name;
}

void MCPRemoteService::connectionClosed(const QString& name, const QString& reason)
{
    if (!m_connections.contains(name))
        return;
    qCWarning(lcMcp).noquote() << u"Connection to "_s + name + u" closed: "_s +
                                      (reason.isEmpty() ? u"the server ended it"_s : reason);
    if (!reason.isEmpty())
        m_lastErrors.insert(name, reason);
    removeConnection(name);
}

void MCPRemoteService::removeConnection(const QString& name)
{
    const MCPConnection connection = m_connections.take(name);
    if (McpClient* client = connection.client.data()) {
        client->disconnect(this);
        client->disconnectFromServer();
        // The request may come from inside one of the client's own signals.
        client->deleteLater();
    }
    Q_EMIT integrationsChanged();
    if (!connection.tools.isEmpty())
        notifyToolsChanged();
}

void MCPRemoteService::discoverTools(const QString& name)
{
    auto found = m_connections.find(name);
    if (found == m_connections.end() || !found->client)
        return;
    const int round = ++found->discoveryRound;
    McpClient* client = found->client.data();
    qCInfo(lcMcp).noquote() << u"Starting background tool discovery for "_s + name;
    qCInfo(lcMcp).noquote() << u"Attempting client.listTools() for "_s + name;

    // The race: the list or the time limit, whichever comes first; the other
    // is ignored. Both belong to the client and go with it.
    auto settled = std::make_shared<bool>(false);
    auto limit = new QTimer(client);
    limit->setSingleShot(true);
    const auto fallBack = [this, name, round](const QString& why) {
        qCWarning(lcMcp).noquote() << u"client.listTools() for "_s + name +
                                          u" failed or timed out: "_s + why +
                                          u". Will attempt fallback to transport discovery."_s;
        pollTransport(name, round, 1);
    };
    connect(limit, &QTimer::timeout, this, [settled, limit, fallBack] {
        limit->deleteLater();
        if (std::exchange(*settled, true))
            return;
        fallBack(u"client.listTools() timed out"_s);
    });
    limit->start(m_timing.listToolsLimit);
    client->listTools(
        [this, name, round, settled, limit, fallBack](const McpResult<QList<McpTool>>& result) {
            if (std::exchange(*settled, true))
                return;
            limit->stop();
            limit->deleteLater();
            if (const auto* error = std::get_if<QString>(&result)) {
                fallBack(*error);
                return;
            }
            const QList<McpTool>& tools = std::get<QList<McpTool>>(result);
            if (tools.isEmpty()) {
                qCInfo(lcMcp).noquote() << u"client.listTools() for "_s + name +
                                               u" returned successfully but with 0 tools."_s;
                pollTransport(name, round, 1);
                return;
            }
            qCInfo(lcMcp).noquote()
                << u"Successfully fetched %1 tools via client.listTools() for "_s.arg(
                       tools.size()) +
                       name;
            qCInfo(lcMcp).noquote() << u"full tool objects including schemas"_s;
            publishTools(name, round, tools);
        });
}

void MCPRemoteService::pollTransport(const QString& name, int round, int attempt)
{
    constexpr int attempts = 3;
    const auto found = m_connections.constFind(name);
    if (found == m_connections.cend() || found->discoveryRound != round || !found->client)
        return;
    if (attempt == 1)
        qCInfo(lcMcp).noquote()
            << u"Falling back to polling AuthenticatedMCPTransport for discovered tools for "_s +
                   name;
    const auto* transport =
        qobject_cast<const AuthenticatedMCPTransport*>(&found->client->transport());
    if (!transport) {
        qCWarning(lcMcp).noquote()
            << name +
                   u" is not AuthenticatedMCPTransport. Cannot use fallback custom tool discovery."_s;
        publishTools(name, round, {});
        return;
    }
    const QStringList names = transport->discoveredTools();
    qCInfo(lcMcp).noquote() << u"Polling transport attempt %1: Transport has %2"_s.arg(attempt).arg(
        names.size());
    if (!names.isEmpty()) {
        qCInfo(lcMcp).noquote() << u"Successfully populated tools from transport for "_s + name;
        QList<McpTool> tools;
        for (const QString& toolName : names)
            tools.append(McpTool{toolName, {}, {}, std::nullopt});
        publishTools(name, round, tools);
        return;
    }
    if (attempt >= attempts) {
        publishTools(name, round, {});
        return;
    }
    QTimer::singleShot(m_timing.pollInterval, found->client.data(),
                       [this, name, round, attempt] { pollTransport(name, round, attempt + 1); });
}

void MCPRemoteService::publishTools(const QString& name, int round, const QList<McpTool>& tools)
{
    auto found = m_connections.find(name);
    if (found == m_connections.end()) {
        qCWarning(lcMcp).noquote() << u"Connection object for "_s + name +
                                          u" was unexpectedly nil when attempting to update UI "
                                          u"with final tool list."_s;
        return;
    }
    if (found->discoveryRound != round)
        return; // a newer round is running
    QStringList names;
    for (const McpTool& tool : tools)
        names.append(tool.name);
    found->tools = tools;
    found->toolNames = names;
    qCInfo(lcMcp).noquote() << u"Final tool list for "_s + name + u": "_s + names.join(u", "_s);
    Q_EMIT integrationsChanged();
    notifyToolsChanged();
    qCInfo(lcMcp).noquote() << u"Notified onToolsChanged callback for "_s + name;
    if (tools.isEmpty())
        qCWarning(lcMcp).noquote() << u"No tools discovered for "_s + name +
                                          u" by any method. UI will show 'No tools found'."_s;
    Q_EMIT toolsDiscovered(name);
}

void MCPRemoteService::notifyToolsChanged()
{
    if (onToolsChanged)
        onToolsChanged();
}

void MCPRemoteService::checkConnectionHealth()
{
    for (const QString& name : m_connections.keys())
        performHealthCheck(name);
}

void MCPRemoteService::performHealthCheck(const QString& name)
{
    const auto found = m_connections.constFind(name);
    if (found == m_connections.cend() || !found->client)
        return;
    // A ping is the lightest request every server answers. A connection that
    // does not answer it is of no use to the assistant: it is closed, so that
    // the screens show it as not connected and its tools leave the registry;
    // the user connects again when the server is back.
    const QPointer<McpClient> probed = found->client;
    probed->ping([this, name, probed](const std::optional<QString>& error) {
        if (!error) {
            qCInfo(lcMcp).noquote() << u"Health check passed for "_s + name;
            return;
        }
        qCWarning(lcMcp).noquote() << u"Health check failed for "_s + name + u": "_s + *error;
        // Only the connection that was probed, not a newer one of the same name.
        if (m_connections.value(name).client != probed)
            return;
        m_lastErrors.insert(name, *error);
        disconnectFromIntegration(name);
    });
}

QList<std::shared_ptr<LocalTool>> MCPRemoteService::remoteTools() const
{
    QList<std::shared_ptr<LocalTool>> tools;
    for (const MCPConnection& connection : m_connections) {
        for (const McpTool& tool : connection.tools)
            tools.append(
                std::make_shared<MCPRemoteTool>(connection.client, connection.config.name, tool));
    }
    return tools;
}

void MCPRemoteService::connectIntegration(const QString& name)
{
    const std::optional<MCPRemoteConfig> config = integration(name);
    if (!config) {
        qCWarning(lcMcp).noquote() << u"No MCP integration named "_s + name;
        return;
    }
    connectToIntegration(*config);
}

QString MCPRemoteService::addIntegration(const QString& name, const QString& url, bool requiresAuth,
                                         const QString& description)
{
    return addCustomIntegration(name.trimmed(), url.trimmed(), requiresAuth, description.trimmed())
        .value_or(QString());
}

QVariantMap MCPRemoteService::checkUrl(const QString& url) const
{
    const MCPUrlCheck check = MCPUrlCheck::of(url.trimmed());
    return {{u"error"_s, check.error.value_or(QString())},
            {u"warning"_s, check.warning.value_or(QString())}};
}

QVariantList MCPRemoteService::integrationList() const
{
    QVariantList list;
    for (const MCPRemoteConfig& config : allIntegrations()) {
        const auto connection = m_connections.constFind(config.name);
        const bool isConnected = connection != m_connections.cend();
        QString state = isConnected                          ? connectedState
                        : m_connecting.contains(config.name) ? connectingState
                                                             : notConnectedState;
        if (!isConnected && m_signInFlow && m_signInFlow->config().name == config.name)
            state = m_signInFlow->stage() == MCPOAuthFlow::Stage::WaitingForBrowser
                        ? waitingForBrowserState
                        : signingInState;
        const QStringList toolNames = isConnected ? connection->toolNames : QStringList();
        list.append(QVariantMap{
            {u"name"_s, config.name},
            {u"url"_s, config.url},
            {u"description"_s, config.description},
            {u"requiresAuth"_s, config.requiresAuth},
            {u"isCustom"_s, config.isCustom},
            {u"state"_s, state},
            {u"signedIn"_s, m_signedIn.contains(config.name)},
            {u"lastError"_s, m_lastErrors.value(config.name)},
            {u"toolNames"_s, toolNames},
            {u"toolCount"_s, toolNames.size()},
        });
    }
    return list;
}

QVariantList MCPRemoteService::customIntegrationList() const
{
    QVariantList list;
    for (const MCPRemoteConfig& config : m_customIntegrations)
        list.append(config.toJson().toVariantMap());
    return list;
}

QStringList MCPRemoteService::connectingNames() const
{
    QStringList names = m_connecting.values();
    names.sort();
    return names;
}

#include "services/Services.h"

#include "account/AuthenticationService.h"
#include "account/CallHistoryService.h"
#include "account/FeedbackService.h"
#include "audio/AudioDeviceManager.h"
#include "audio/PulseCaptureBackend.h"
#include "call/CallController.h"
#include "chat/ChatController.h"
#include "chat/SocketChatSession.h"
#include "mcp/MCPRemoteService.h"
#include "models/ModelDownloader.h"
#include "session/SessionFactory.h"
#include "session/SocketController.h"
#include "session/SummaryModel.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/ConfigurationManager.h"
#include "tools/LocalToolManager.h"

#include <QJsonDocument>

Services::Services(SettingsStore& settings, KeychainManager& keychain, Options options,
                   QObject* parent)
    : QObject(parent), m_settings(settings), m_keychain(keychain), m_options(std::move(options))
{}

Services::~Services()
{
    // A call still live ends as the user would end it: the session says goodbye
    // and capture stops before the services it reports to go.
    if (m_callController && m_callController->isLive())
        m_callController->endCall();
}

AuthenticationService& Services::authService()
{
    if (!m_authService) {
        AuthenticationService::Options options;
        options.backendUrl = m_options.backendUrl;
        options.webUrl = m_options.webUrl;
        options.openUrl = m_options.openUrl;
        options.checkStoredToken = m_options.checkStoredToken;
        m_authService = std::make_unique<AuthenticationService>(m_keychain, options);
        connect(m_authService.get(), &AuthenticationService::isAuthenticatedChanged, this,
                &Services::signedInStateChanged);
    }
    return *m_authService;
}

ModelDownloader& Services::modelDownloader()
{
    if (!m_modelDownloader)
        m_modelDownloader = std::make_unique<ModelDownloader>(m_options.modelBaseUrl);
    return *m_modelDownloader;
}

SummaryModel& Services::summaryModel()
{
    if (!m_summaryModel)
        m_summaryModel = std::make_unique<SummaryModel>();
    return *m_summaryModel;
}

CallController& Services::callController()
{
    if (m_callController)
        return *m_callController;
    m_capture =
        m_options.makeCapture ? m_options.makeCapture() : std::make_unique<PulseCaptureBackend>();
    CallController::Options callOptions;
    if (m_options.callsUseBackend) {
        SessionSettings session;
        session.backendUrl = m_options.backendUrl;
        session.accessToken = [auth = &authService()] { return auth->getValidAccessToken(); };
        session.signOut = [auth = &authService()] { auth->signOut(); };
        session.initialConfigJson = configurationManager().toolConfiguration();
        callOptions.makeSession = makeSessionFactory(session, &summaryModel());
    }
    m_callController = std::make_unique<CallController>(*m_capture, m_settings, callOptions);
    if (m_options.callsUseBackend) {
        // Every change of the enabled tools reaches the session: sent at once
        // during a call, and carried by the next "initializeSession" in any case.
        ConfigurationManager& configuration = configurationManager();
        configuration.onIntegrationsChange = [this](const QStringList&) {
            if (const std::optional<QString> document = configurationManager().toolConfiguration())
                sendToolConfiguration(*document);
        };
        configuration.onToolConfigChange = [this](const QString& document) {
            sendToolConfiguration(document);
        };
        if (auto* session = qobject_cast<SocketController*>(m_callController->session()))
            m_chatSession = std::make_unique<SocketChatSession>(*session, *chat().chatModel());
    }
    return *m_callController;
}

void Services::sendToolConfiguration(const QString& document)
{
    auto* session =
        m_callController ? qobject_cast<SocketController*>(m_callController->session()) : nullptr;
    if (!session)
        return;
    // Outside a call there is no one to tell; the next session starts with it.
    if (!session->isConnected()) {
        session->setLocalToolsConfigJson(document);
        return;
    }
    const QJsonDocument parsed = QJsonDocument::fromJson(document.toUtf8());
    if (parsed.isObject())
        session->updateLocalToolsConfiguration(parsed.object());
}

ChatController& Services::chat()
{
    // Building the call controller builds the chat too when calls talk to a
    // backend, so it comes first.
    CallController& call = callController();
    if (!m_chat)
        m_chat = std::make_unique<ChatController>(localToolManager(), call, configurationManager());
    return *m_chat;
}

LocalToolManager& Services::localToolManager()
{
    if (!m_localToolManager) {
        m_localToolManager = std::make_unique<LocalToolManager>(m_keychain);
        registerBuiltInTools(*m_localToolManager, m_options.toolServices);
    }
    return *m_localToolManager;
}

ConfigurationManager& Services::configurationManager()
{
    if (!m_configurationManager) {
        m_configurationManager =
            std::make_unique<ConfigurationManager>(m_settings, m_keychain, localToolManager());
    }
    return *m_configurationManager;
}

MCPRemoteService& Services::mcpService()
{
    if (!m_mcpService) {
        m_mcpService = std::make_unique<MCPRemoteService>(m_settings, m_keychain);
        // Sign-ins open the authorization page where the user's other logins
        // open; the browser comes back through the app's link hand-over.
        m_mcpService->setOAuthBrowser(
            {QString::fromLatin1(OAuthBrowser::appRedirectUri), m_options.openUrl});
        m_mcpService->onToolsChanged = [this] {
            // The configuration manager watches the registry: with it in place,
            // the fresh document reaches the call's session ("update_local_tools")
            // or waits for the next one's start.
            configurationManager();
            localToolManager().replaceRemoteTools(m_mcpService->remoteTools());
        };
    }
    return *m_mcpService;
}

AudioDeviceManager& Services::audioDevices()
{
    if (!m_audioDevices)
        m_audioDevices = std::make_unique<AudioDeviceManager>(m_settings);
    return *m_audioDevices;
}

CallHistoryService& Services::callHistory()
{
    if (!m_callHistory) {
        m_callHistory = std::make_unique<CallHistoryService>(
            m_settings, m_keychain, m_options.backendUrl,
            m_options.analytics ? *m_options.analytics : Analytics::none());
    }
    return *m_callHistory;
}

FeedbackService& Services::feedback()
{
    if (!m_feedback) {
        m_feedback = std::make_unique<FeedbackService>(
            [auth = &authService()] { return auth->getValidAccessToken(); }, m_options.backendUrl);
    }
    return *m_feedback;
}

void Services::signedInStateChanged()
{
    const bool authenticated = m_authService->isAuthenticated();
    if (authenticated == m_wasAuthenticated)
        return;
    m_wasAuthenticated = authenticated;
    // The cached history belongs to whoever was signed in.
    callHistory().clearCache();
    if (authenticated)
        return;
    callHistory().forgetCalls();
    if (m_callController && m_callController->isLive())
        m_callController->endCall();
    if (m_summaryModel)
        m_summaryModel->clear();
}

#include "app/QuillmossApp.h"

#include "account/AuthenticationService.h"
#include "account/CallHistoryListModel.h"
#include "account/CallHistoryService.h"
#include "account/FeedbackForm.h"
#include "account/FeedbackService.h"
#include "app/ChatMarkdown.h"
#include "app/Clipboard.h"
#include "app/ContentView.h"
#include "app/LinkRouter.h"
#include "app/PostHogService.h"
#include "app/ScreenServices.h"
#include "app/SingleInstance.h"
#include "app/ThemeManager.h"
#include "app/UpdateManager.h"
#include "app/UtilityMiniWindow.h"
#include "app/UtilityWindowManager.h"
#include "app/WindowState.h"
#include "audio/AudioDeviceManager.h"
#include "audio/PulseCaptureBackend.h"
#include "call/CallController.h"
#include "chat/ChatController.h"
#include "core/Logging.h"
#include "mcp/MCPRemoteService.h"
#include "models/ModelCatalogueModel.h"
#include "models/ModelDownloader.h"
#include "recognition/LocalSpeechRecognizer.h"
#include "services/Services.h"
#include "session/SummaryModel.h"
#include "store/AppPaths.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/APIKeyConfigurationForm.h"
#include "tools/ConfigurationManager.h"
#include "tools/IntegrationListModel.h"

#include <QDesktopServices>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQuickWindow>

using namespace Qt::StringLiterals;

namespace {

QUrl configuredUrl(const char* variable, const char* fallback)
{
    const QString value = qEnvironmentVariable(variable);
    return QUrl(value.isEmpty() ? QString::fromUtf8(fallback) : value);
}

} // namespace

AppOptions AppOptions::fromEnvironment()
{
    AppOptions options;
    options.backendUrl = configuredUrl("QUILLMOSS_BACKEND_URL", QUILLMOSS_DEFAULT_BACKEND_URL);
    options.webUrl = configuredUrl("QUILLMOSS_WEB_URL", QUILLMOSS_DEFAULT_WEB_URL);
    options.modelBaseUrl =
        configuredUrl("QUILLMOSS_MODEL_BASE_URL", QUILLMOSS_DEFAULT_MODEL_BASE_URL);
    options.updateFeedUrl = configuredUrl("QUILLMOSS_UPDATE_FEED_URL", QUILLMOSS_UPDATE_FEED_URL);
    options.analyticsKey = qEnvironmentVariable("QUILLMOSS_ANALYTICS_KEY");
    options.analyticsHost = QUrl(qEnvironmentVariable("QUILLMOSS_ANALYTICS_HOST"));
    options.instanceName = SingleInstance::defaultName();
    return options;
}

QuillmossApp::QuillmossApp(AppOptions options, QObject* parent)
    : QObject(parent), m_options(std::move(options)), m_keychain(KeychainManager::shared())
{
    if (!m_options.openUrl)
        m_options.openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
    if (m_options.instanceName.isEmpty())
        m_options.instanceName = SingleInstance::defaultName();

    m_settings = std::make_unique<SettingsStore>(AppPaths::settingsFilePath());
    m_postHogService = std::make_unique<PostHogService>(*m_settings, m_options.analyticsKey,
                                                        m_options.analyticsHost);

    Services::Options services;
    services.backendUrl = m_options.backendUrl;
    services.webUrl = m_options.webUrl;
    services.modelBaseUrl = m_options.modelBaseUrl;
    services.openUrl = m_options.openUrl;
    services.makeCapture = m_options.makeCapture;
    services.analytics = m_postHogService.get();
    m_services = std::make_unique<Services>(*m_settings, m_keychain, services);
    // The stored sign-in is checked first: the screens open on its outcome.
    AuthenticationService& authService = m_services->authService();
    m_linkRouter = std::make_unique<LinkRouter>(
        [auth = &authService](const QUrl& url) { auth->handleRedirect(url); });
    MCPRemoteService& mcpService = m_services->mcpService();
    m_linkRouter->addOAuthCallbackHandler(&mcpService, [mcp = &mcpService](const QUrl& callback) {
        return mcp->handleOAuthCallback(callback);
    });
    m_themeManager = std::make_unique<ThemeManager>(*m_settings);
    m_updateManager = std::make_unique<UpdateManager>(m_options.updateFeedUrl, version());

    wireServices();

    m_engine = std::make_unique<QQmlApplicationEngine>();
    ScreenServices& screens = ScreenServices::exposeTo(*m_engine);
    m_screens = &screens;
    screens.app = this;
    screens.authService = &m_services->authService();
    screens.themeManager = m_themeManager.get();
    screens.modelDownloader = &m_services->modelDownloader();
    screens.updateManager = m_updateManager.get();
    screens.postHogService = m_postHogService.get();
    screens.callController = &m_services->callController();
    screens.transcriptionViewModel = m_services->callController().transcriptionViewModel();
    screens.summaryModel = &m_services->summaryModel();
    screens.audioDevices = &m_services->audioDevices();
    screens.callHistory = &m_services->callHistory();
    screens.callHistoryModel = m_callHistoryModel.get();
    screens.feedbackForm = m_feedbackForm.get();
    screens.modelCatalogue = m_modelCatalogue.get();
    screens.configurationManager = &m_services->configurationManager();
    screens.integrationListModel = m_integrationListModel.get();
    screens.apiKeyConfigurationForm = m_apiKeyConfigurationForm.get();
    screens.contentView = m_contentView.get();
    screens.windowState = m_windowState.get();
    screens.clipboard = m_clipboard.get();
    screens.chatController = &m_services->chat();
    screens.chatMarkdown = m_chatMarkdown.get();
    screens.mcpService = &m_services->mcpService();
    screens.utilityWindowManager = m_utilityWindowManager.get();
    screens.utilityMiniWindow = m_utilityMiniWindow.get();
}

QuillmossApp::~QuillmossApp()
{
    // The screens go first: nothing may bind to a service being torn down.
    // The mini window is one of them, made by the engine.
    m_utilityWindowManager->releaseWindow();
    m_engine.reset();
}

void QuillmossApp::wireServices()
{
    CallController& callController = m_services->callController();
    if (m_options.recognizer) {
        callController.initializeWith(m_options.recognizer);
    } else if (m_options.initializeModels) {
        callController.initializeModels(m_services->modelDownloader());
    }
    connect(&callController, &CallController::initializationChanged, this, [this] {
        if (LocalSpeechRecognizer* recognizer = m_services->callController().localRecognizer()) {
            connect(recognizer, &LocalSpeechRecognizer::statusChanged, this,
                    &QuillmossApp::recognitionStatusChanged, Qt::UniqueConnection);
        }
        Q_EMIT recognitionStatusChanged();
    });
    callController.checkPermissions(false);
    m_services->audioDevices().discoverInputDevices();

    m_callHistoryModel = std::make_unique<CallHistoryListModel>(m_services->callHistory());
    m_feedbackForm = std::make_unique<FeedbackForm>(m_services->feedback());
    m_modelCatalogue = std::make_unique<ModelCatalogueModel>(m_services->modelDownloader());
    ConfigurationManager& configuration = m_services->configurationManager();
    m_integrationListModel = std::make_unique<IntegrationListModel>(configuration);
    m_apiKeyConfigurationForm =
        std::make_unique<APIKeyConfigurationForm>(m_keychain, configuration);
    m_contentView = std::make_unique<ContentView>(m_services->authService(), *m_settings);
    m_windowState = std::make_unique<WindowState>(*m_settings);
    m_clipboard = std::make_unique<Clipboard>();
    m_chatMarkdown = std::make_unique<ChatMarkdown>(m_options.openUrl);

    m_utilityWindowManager = std::make_unique<UtilityWindowManager>(
        *m_settings, *m_postHogService, [this] { return makeUtilityWindow(); });
    m_utilityMiniWindow = std::make_unique<UtilityMiniWindow>(
        *m_utilityWindowManager, callController, m_services->chat(), *m_postHogService);
    m_contentView->attachUtilityWindow(*m_utilityWindowManager, callController, *m_postHogService);
}

QWindow* QuillmossApp::makeUtilityWindow()
{
    QQmlComponent component(m_engine.get(), QUrl(u"qrc:/qml/UtilityWindow.qml"_s));
    // The same services as the main window, under the same root property.
    QObject* made =
        component.createWithInitialProperties({{QString::fromLatin1(ScreenServices::rootProperty),
                                                QVariant::fromValue<QObject*>(m_screens)}});
    auto* window = qobject_cast<QWindow*>(made);
    if (!window) {
        qCCritical(lcApp).noquote()
            << u"❌ The mini window could not be loaded: %1"_s.arg(component.errorString());
        delete made;
        return nullptr;
    }
    return window;
}

bool QuillmossApp::handleCommand(const QString& command)
{
    if (command == QLatin1StringView(toggleMiniWindowCommand)) {
        m_contentView->toggleUtilityWindow(u"command_line"_s);
        return true;
    }
    qCWarning(lcApp).noquote() << u"⚠️ Unknown command from another launch: %1"_s.arg(command);
    return false;
}

bool QuillmossApp::show()
{
    m_engine->load(QUrl(u"qrc:/qml/Main.qml"_s));
    if (m_engine->rootObjects().isEmpty()) {
        qCCritical(lcApp) << "❌ The main window could not be loaded";
        return false;
    }
    return true;
}

bool QuillmossApp::listenForOtherLaunches()
{
    m_singleInstance = std::make_unique<SingleInstance>(m_options.instanceName);
    connect(m_singleInstance.get(), &SingleInstance::urlReceived, this, &QuillmossApp::handleUrl);
    connect(m_singleInstance.get(), &SingleInstance::commandReceived, this,
            &QuillmossApp::handleCommand);
    connect(m_singleInstance.get(), &SingleInstance::activated, this, [this] {
        if (QQuickWindow* window = mainWindow()) {
            window->show();
            window->raise();
            window->requestActivate();
        }
    });
    return m_singleInstance->listen();
}

void QuillmossApp::handleUrl(const QUrl& url)
{
    m_linkRouter->route(url);
}

void QuillmossApp::openTermsOfService()
{
    m_options.openUrl(m_options.webUrl.resolved(QUrl(u"/terms"_s)));
}

QVariant QuillmossApp::recognitionStatus() const
{
    if (const LocalSpeechRecognizer* recognizer = m_services->callController().localRecognizer())
        return QVariant::fromValue(recognizer->status());
    return {};
}

QString QuillmossApp::version()
{
    return QStringLiteral(QUILLMOSS_VERSION);
}

QQuickWindow* QuillmossApp::mainWindow() const
{
    const auto roots = m_engine->rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

#include "app/QuillmossApp.h"

#include "account/AuthenticationService.h"
#include "account/CallHistoryListModel.h"
#include "account/CallHistoryService.h"
#include "account/FeedbackForm.h"
#include "account/FeedbackService.h"
#include "app/Clipboard.h"
#include "app/ContentView.h"
#include "app/PostHogService.h"
#include "app/SingleInstance.h"
#include "app/ThemeManager.h"
#include "app/UpdateManager.h"
#include "app/WindowState.h"
#include "audio/AudioDeviceManager.h"
#include "call/CallController.h"
#include "core/Logging.h"
#include "models/ModelCatalogueModel.h"
#include "models/ModelDownloader.h"
#include "recognition/LocalSpeechRecognizer.h"
#include "services/Services.h"
#include "session/SummaryModel.h"
#include "store/AppPaths.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QDesktopServices>
#include <QQmlApplicationEngine>
#include <QQmlContext>
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
    m_services->authService();
    m_themeManager = std::make_unique<ThemeManager>(*m_settings);
    m_updateManager = std::make_unique<UpdateManager>(m_options.updateFeedUrl, version());

    wireServices();

    m_engine = std::make_unique<QQmlApplicationEngine>();
    QQmlContext* context = m_engine->rootContext();
    context->setContextProperty(u"app"_s, this);
    context->setContextProperty(u"authService"_s, &m_services->authService());
    context->setContextProperty(u"themeManager"_s, m_themeManager.get());
    context->setContextProperty(u"modelDownloader"_s, &m_services->modelDownloader());
    context->setContextProperty(u"updateManager"_s, m_updateManager.get());
    context->setContextProperty(u"postHogService"_s, m_postHogService.get());
    context->setContextProperty(u"callController"_s, &m_services->callController());
    context->setContextProperty(u"transcriptionViewModel"_s,
                                m_services->callController().transcriptionViewModel());
    context->setContextProperty(u"summaryModel"_s, &m_services->summaryModel());
    context->setContextProperty(u"audioDevices"_s, &m_services->audioDevices());
    context->setContextProperty(u"callHistory"_s, &m_services->callHistory());
    context->setContextProperty(u"callHistoryModel"_s, m_callHistoryModel.get());
    context->setContextProperty(u"feedbackForm"_s, m_feedbackForm.get());
    context->setContextProperty(u"modelCatalogue"_s, m_modelCatalogue.get());
    context->setContextProperty(u"contentView"_s, m_contentView.get());
    context->setContextProperty(u"windowState"_s, m_windowState.get());
    context->setContextProperty(u"clipboard"_s, m_clipboard.get());
}

QuillmossApp::~QuillmossApp()
{
    // The screens go first: nothing may bind to a service being torn down.
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
    m_contentView = std::make_unique<ContentView>(m_services->authService(), *m_settings);
    m_windowState = std::make_unique<WindowState>(*m_settings);
    m_clipboard = std::make_unique<Clipboard>();
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
    if (url.scheme().compare(QLatin1String(appURLScheme), Qt::CaseInsensitive) != 0) {
        qCWarning(lcApp).noquote() << u"⚠️ Ignoring a URL of scheme \"%1\""_s.arg(url.scheme());
        return;
    }
    m_services->authService().handleRedirect(url);
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

AuthenticationService& QuillmossApp::authService() const
{
    return m_services->authService();
}

CallController& QuillmossApp::callController() const
{
    return m_services->callController();
}

CallHistoryService& QuillmossApp::callHistory() const
{
    return m_services->callHistory();
}

ModelDownloader& QuillmossApp::modelDownloader() const
{
    return m_services->modelDownloader();
}

SummaryModel& QuillmossApp::summaryModel() const
{
    return m_services->summaryModel();
}

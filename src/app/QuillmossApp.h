// The desktop application: creates the long-lived services once, wires them
// together, and shows the screens that bind to them.
#pragma once

#include "app/AppOptions.h"

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QVariant>

#include <memory>

class APIKeyConfigurationForm;
class CallHistoryListModel;
class ChatMarkdown;
class Clipboard;
class ContentView;
class FeedbackForm;
class IntegrationListModel;
class KeychainManager;
class LinkRouter;
class ModelCatalogueModel;
class PostHogService;
class QQmlApplicationEngine;
class QQuickWindow;
class QWindow;
class ScreenServices;
class Services;
class SettingsStore;
class SingleInstance;
class ThemeManager;
class UpdateManager;
class UtilityMiniWindow;
class UtilityWindowManager;
class WindowState;

// Lives on the GUI thread for the life of the program. The screens see the
// services through ScreenServices, named as the members below; besides them
// they see this object as `app`, for what belongs to no single service.
class QuillmossApp : public QObject
{
    Q_OBJECT
    // The local recognizer's status (a RecognitionStatus), null until a model is loaded.
    Q_PROPERTY(QVariant recognitionStatus READ recognitionStatus NOTIFY recognitionStatusChanged)
    Q_PROPERTY(QString version READ version CONSTANT)

public:
    // The scheme of the sign-in callback "quillmoss://oauth/callback".
    static constexpr auto appURLScheme = "quillmoss";

    explicit QuillmossApp(AppOptions options, QObject* parent = nullptr);
    ~QuillmossApp() override;
    QuillmossApp(const QuillmossApp&) = delete;
    QuillmossApp& operator=(const QuillmossApp&) = delete;

    // Loads the screens and shows the main window; false when they failed to load.
    bool show();
    // Listens for URLs from later launches; false when another instance runs.
    bool listenForOtherLaunches();

    // Every URL the app is given (command line, later launches), to the LinkRouter.
    Q_INVOKABLE void handleUrl(const QUrl& url);
    // A command of the command line or of a later launch; false for one not known.
    static constexpr auto toggleMiniWindowCommand = "--toggle-mini-window";
    bool handleCommand(const QString& command);
    // The login screen's "Terms of Service" link, in the browser.
    Q_INVOKABLE void openTermsOfService();

    QVariant recognitionStatus() const;
    static QString version();

    Services& services() const { return *m_services; }
    ContentView& contentView() const { return *m_contentView; }
    FeedbackForm& feedbackForm() const { return *m_feedbackForm; }
    SettingsStore& settings() const { return *m_settings; }
    // Where an MCP sign-in registers for its OAuth callbacks.
    LinkRouter& linkRouter() const { return *m_linkRouter; }
    QQmlApplicationEngine& engine() const { return *m_engine; }
    QQuickWindow* mainWindow() const;
    UtilityWindowManager& utilityWindowManager() const { return *m_utilityWindowManager; }

Q_SIGNALS:
    void recognitionStatusChanged();

private:
    void wireServices();
    // The mini window's window, made from the screens on its first show.
    QWindow* makeUtilityWindow();

    AppOptions m_options;
    std::unique_ptr<SettingsStore> m_settings;
    KeychainManager& m_keychain;
    std::unique_ptr<PostHogService> m_postHogService;
    // The long-lived services the screens show; built by the one composition root.
    std::unique_ptr<Services> m_services;
    std::unique_ptr<LinkRouter> m_linkRouter;
    std::unique_ptr<ThemeManager> m_themeManager;
    std::unique_ptr<UpdateManager> m_updateManager;
    std::unique_ptr<CallHistoryListModel> m_callHistoryModel;
    std::unique_ptr<FeedbackForm> m_feedbackForm;
    std::unique_ptr<ModelCatalogueModel> m_modelCatalogue;
    std::unique_ptr<IntegrationListModel> m_integrationListModel;
    std::unique_ptr<APIKeyConfigurationForm> m_apiKeyConfigurationForm;
    std::unique_ptr<ContentView> m_contentView;
    std::unique_ptr<WindowState> m_windowState;
    std::unique_ptr<Clipboard> m_clipboard;
    std::unique_ptr<ChatMarkdown> m_chatMarkdown;
    std::unique_ptr<SingleInstance> m_singleInstance;
    std::unique_ptr<UtilityWindowManager> m_utilityWindowManager;
    std::unique_ptr<UtilityMiniWindow> m_utilityMiniWindow;
    ScreenServices* m_screens = nullptr; // owned by m_engine
    // Last, so the screens go before the services they bind to.
    std::unique_ptr<QQmlApplicationEngine> m_engine;
};

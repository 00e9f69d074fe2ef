// What the screens bind to: the long-lived services, handed as one object to
// the root of every window the engine loads (its required property "services").
// Below the roots, each screen declares the services it reads as required
// properties and is given them by the screen that holds it, so a component
// test hands a screen stand-ins and a second window reads the same services.
#pragma once

#include <QObject>

class APIKeyConfigurationForm;
class AudioDeviceManager;
class AuthenticationService;
class CallController;
class CallHistoryListModel;
class CallHistoryService;
class ChatController;
class ChatMarkdown;
class Clipboard;
class ConfigurationManager;
class ContentView;
class FeedbackForm;
class IntegrationListModel;
class MCPRemoteService;
class ModelCatalogueModel;
class ModelDownloader;
class PostHogService;
class QQmlApplicationEngine;
class QuillmossApp;
class SummaryModel;
class ThemeManager;
class TranscriptionViewModel;
class UpdateManager;
class UtilityMiniWindow;
class UtilityWindowManager;
class WindowState;

Q_MOC_INCLUDE("account/AuthenticationService.h")
Q_MOC_INCLUDE("account/CallHistoryListModel.h")
Q_MOC_INCLUDE("account/CallHistoryService.h")
Q_MOC_INCLUDE("account/FeedbackForm.h")
Q_MOC_INCLUDE("app/ChatMarkdown.h")
Q_MOC_INCLUDE("app/Clipboard.h")
Q_MOC_INCLUDE("app/ContentView.h")
Q_MOC_INCLUDE("app/PostHogService.h")
Q_MOC_INCLUDE("app/QuillmossApp.h")
Q_MOC_INCLUDE("app/ThemeManager.h")
Q_MOC_INCLUDE("app/UpdateManager.h")
Q_MOC_INCLUDE("app/UtilityMiniWindow.h")
Q_MOC_INCLUDE("app/UtilityWindowManager.h")
Q_MOC_INCLUDE("app/WindowState.h")
Q_MOC_INCLUDE("audio/AudioDeviceManager.h")
Q_MOC_INCLUDE("call/CallController.h")
Q_MOC_INCLUDE("mcp/MCPRemoteService.h")
Q_MOC_INCLUDE("call/TranscriptionViewModel.h")
Q_MOC_INCLUDE("chat/ChatController.h")
Q_MOC_INCLUDE("models/ModelCatalogueModel.h")
Q_MOC_INCLUDE("models/ModelDownloader.h")
Q_MOC_INCLUDE("session/SummaryModel.h")
Q_MOC_INCLUDE("tools/APIKeyConfigurationForm.h")
Q_MOC_INCLUDE("tools/ConfigurationManager.h")
Q_MOC_INCLUDE("tools/IntegrationListModel.h")

// Owned by the engine it is exposed to; the services it names outlive that
// engine (the app tears the screens down first), so plain pointers do.
class ScreenServices : public QObject
{
    Q_OBJECT
    // What belongs to no single service: the version, the recognizer's status,
    // the terms of service.
    Q_PROPERTY(QuillmossApp* app MEMBER app CONSTANT)
    Q_PROPERTY(AuthenticationService* authService MEMBER authService CONSTANT)
    Q_PROPERTY(ThemeManager* themeManager MEMBER themeManager CONSTANT)
    Q_PROPERTY(ModelDownloader* modelDownloader MEMBER modelDownloader CONSTANT)
    Q_PROPERTY(UpdateManager* updateManager MEMBER updateManager CONSTANT)
    Q_PROPERTY(PostHogService* postHogService MEMBER postHogService CONSTANT)
    Q_PROPERTY(CallController* callController MEMBER callController CONSTANT)
    Q_PROPERTY(
        TranscriptionViewModel* transcriptionViewModel MEMBER transcriptionViewModel CONSTANT)
    Q_PROPERTY(SummaryModel* summaryModel MEMBER summaryModel CONSTANT)
    Q_PROPERTY(AudioDeviceManager* audioDevices MEMBER audioDevices CONSTANT)
    Q_PROPERTY(CallHistoryService* callHistory MEMBER callHistory CONSTANT)
    Q_PROPERTY(CallHistoryListModel* callHistoryModel MEMBER callHistoryModel CONSTANT)
    Q_PROPERTY(FeedbackForm* feedbackForm MEMBER feedbackForm CONSTANT)
    Q_PROPERTY(ModelCatalogueModel* modelCatalogue MEMBER modelCatalogue CONSTANT)
    Q_PROPERTY(ConfigurationManager* configurationManager MEMBER configurationManager CONSTANT)
    Q_PROPERTY(IntegrationListModel* integrationListModel MEMBER integrationListModel CONSTANT)
    Q_PROPERTY(
        APIKeyConfigurationForm* apiKeyConfigurationForm MEMBER apiKeyConfigurationForm CONSTANT)
    Q_PROPERTY(ContentView* contentView MEMBER contentView CONSTANT)
    Q_PROPERTY(WindowState* windowState MEMBER windowState CONSTANT)
    Q_PROPERTY(Clipboard* clipboard MEMBER clipboard CONSTANT)
    Q_PROPERTY(ChatController* chatController MEMBER chatController CONSTANT)
    Q_PROPERTY(ChatMarkdown* chatMarkdown MEMBER chatMarkdown CONSTANT)
    Q_PROPERTY(MCPRemoteService* mcpService MEMBER mcpService CONSTANT)
    Q_PROPERTY(UtilityWindowManager* utilityWindowManager MEMBER utilityWindowManager CONSTANT)
    Q_PROPERTY(UtilityMiniWindow* utilityMiniWindow MEMBER utilityMiniWindow CONSTANT)

public:
    // The property of a window's root that receives the services.
    static constexpr auto rootProperty = "services";

    // A set owned by `engine`, given to every root it loads from now on.
    static ScreenServices& exposeTo(QQmlApplicationEngine& engine);

    QuillmossApp* app = nullptr;
    AuthenticationService* authService = nullptr;
    ThemeManager* themeManager = nullptr;
    ModelDownloader* modelDownloader = nullptr;
    UpdateManager* updateManager = nullptr;
    PostHogService* postHogService = nullptr;
    CallController* callController = nullptr;
    TranscriptionViewModel* transcriptionViewModel = nullptr;
    SummaryModel* summaryModel = nullptr;
    AudioDeviceManager* audioDevices = nullptr;
    CallHistoryService* callHistory = nullptr;
    CallHistoryListModel* callHistoryModel = nullptr;
    FeedbackForm* feedbackForm = nullptr;
    ModelCatalogueModel* modelCatalogue = nullptr;
    ConfigurationManager* configurationManager = nullptr;
    IntegrationListModel* integrationListModel = nullptr;
    APIKeyConfigurationForm* apiKeyConfigurationForm = nullptr;
    ContentView* contentView = nullptr;
    WindowState* windowState = nullptr;
    Clipboard* clipboard = nullptr;
    ChatController* chatController = nullptr;
    ChatMarkdown* chatMarkdown = nullptr;
    MCPRemoteService* mcpService = nullptr;
    UtilityWindowManager* utilityWindowManager = nullptr;
    UtilityMiniWindow* utilityMiniWindow = nullptr;

private:
    explicit ScreenServices(QObject* parent) : QObject(parent) {}
};

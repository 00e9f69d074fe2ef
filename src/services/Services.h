// The one composition root: builds the long-lived services once, on first use,
// and wires them to each other, for the desktop app and the command line alike.
// Whatever the next service needs of the others is connected here, once.
#pragma once

#include "tools/BuiltInTools.h"

#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>

class Analytics;
class AudioDeviceManager;
class AuthenticationService;
class CallController;
class CallHistoryService;
class CaptureBackend;
class ChatController;
class ConfigurationManager;
class FeedbackService;
class KeychainManager;
class LocalToolManager;
class MCPRemoteService;
class ModelDownloader;
class SettingsStore;
class SocketChatSession;
class SummaryModel;

// Lives on the GUI thread. A service is made the first time it is asked for,
// so a command that needs only the settings starts no sound-server connection
// and no backend session; the app asks for all of them at start-up.
class Services : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QUrl backendUrl;
        QUrl webUrl;
        QUrl modelBaseUrl;
        // Opens a URL in the user's browser (the web login); false when that failed.
        std::function<bool(const QUrl&)> openUrl;
        // Check the stored sign-in as soon as the authentication service exists.
        bool checkStoredToken = true;
        // Where a call's audio comes from; the sound server when empty.
        std::function<std::unique_ptr<CaptureBackend>()> makeCapture;
        // Calls hold a backend session; without it they run locally.
        bool callsUseBackend = true;
        // Told about call-history decoding; not owned, outlives the services.
        Analytics* analytics = nullptr;
        // Where the built-in tools find Brave Search, Firecrawl and Resend.
        BuiltInToolServices toolServices = BuiltInToolServices::fromEnvironment();
    };

    // `settings` and `keychain` outlive the services.
    Services(SettingsStore& settings, KeychainManager& keychain, Options options,
             QObject* parent = nullptr);
    ~Services() override;
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    const Options& options() const { return m_options; }
    SettingsStore& settings() const { return m_settings; }
    KeychainManager& keychain() const { return m_keychain; }

    AuthenticationService& authService();
    ModelDownloader& modelDownloader();
    // The live summary of the current call, fed by the call's session.
    SummaryModel& summaryModel();
    CallController& callController();
    AudioDeviceManager& audioDevices();
    CallHistoryService& callHistory();
    FeedbackService& feedback();
    // The registry and runner of the assistant's tools.
    LocalToolManager& localToolManager();
    // Which integrations are enabled, with their credentials; its changes reach
    // the call's backend session as fresh tool-configuration documents.
    ConfigurationManager& configurationManager();
    // The in-call chat, talking through the call's session; cleared when a call ends.
    ChatController& chat();
    // The remote MCP servers; the tools of the connected ones are registered
    // with the tool manager and so reach the backend's tool document.
    MCPRemoteService& mcpService();

private:
    void signedInStateChanged();
    void sendToolConfiguration(const QString& document);

    SettingsStore& m_settings;
    KeychainManager& m_keychain;
    const Options m_options;

    // Destroyed from the last to the first: each goes before what it uses.
    std::unique_ptr<LocalToolManager> m_localToolManager;
    std::unique_ptr<ConfigurationManager> m_configurationManager;
    std::unique_ptr<ChatController> m_chat;
    std::unique_ptr<AuthenticationService> m_authService;
    std::unique_ptr<ModelDownloader> m_modelDownloader;
    std::unique_ptr<SummaryModel> m_summaryModel;
    std::unique_ptr<CaptureBackend> m_capture;
    std::unique_ptr<CallController> m_callController;
    std::unique_ptr<SocketChatSession> m_chatSession;
    std::unique_ptr<AudioDeviceManager> m_audioDevices;
    std::unique_ptr<CallHistoryService> m_callHistory;
    std::unique_ptr<FeedbackService> m_feedback;
    // Its tools refer to its connections: it goes before the tool manager.
    std::unique_ptr<MCPRemoteService> m_mcpService;
    bool m_wasAuthenticated = false;
};

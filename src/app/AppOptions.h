// What the desktop app is configured with: where the backend, the web login
// and the model host are, and the seams the in-process tests fill.
#pragma once

#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class CaptureBackend;
class SpeechRecognizer;

struct AppOptions
{
    QUrl backendUrl;
    QUrl webUrl;
    QUrl modelBaseUrl;
    // Release feed of "Check for Updates"; empty switches update checks off.
    QUrl updateFeedUrl;
    // Analytics: off unless both are set.
    QString analyticsKey;
    QUrl analyticsHost;
    // Opens a URL in the user's browser; the desktop's handler when empty.
    std::function<bool(const QUrl&)> openUrl;
    // Where a call's audio comes from; the sound server when empty.
    std::function<std::unique_ptr<CaptureBackend>()> makeCapture;
    // Recognizes every call's chunks instead of the local speech model, whose
    // start-up load is then skipped. Owned by the caller; tests only.
    SpeechRecognizer* recognizer = nullptr;
    // Load the speech model at start-up (downloading it when missing).
    bool initializeModels = true;
    // Name of the local socket a second launch hands its URLs to.
    QString instanceName;

    // The build defaults, overridden by QUILLMOSS_BACKEND_URL, QUILLMOSS_WEB_URL,
    // QUILLMOSS_MODEL_BASE_URL and QUILLMOSS_UPDATE_FEED_URL; analytics only from
    // QUILLMOSS_ANALYTICS_KEY and QUILLMOSS_ANALYTICS_HOST.
    static AppOptions fromEnvironment();
};

// The spine of a call: starts and ends it, owns the call record, the live
// transcript and the capture, checks the capture permissions, and hands every
// recognized piece of text to the transcript and the backend session.
#pragma once

#include "audio/AudioDevice.h"
#include "audio/CallAudioPipeline.h"
#include "audio/CaptureBackend.h"
#include "call/CallModel.h"
#include "call/CallSession.h"
#include "call/TranscriptionViewModel.h"
#include "core/SerialWorker.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>

class LocalSpeechRecognizer;
class ModelDownloader;
class SettingsStore;
class SpeechRecognizer;

class CallController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(CallModel callModel READ callModel NOTIFY callModelChanged)
    Q_PROPERTY(bool isLive READ isLive NOTIFY isLiveChanged)
    Q_PROPERTY(TranscriptionViewModel* transcriptionViewModel READ transcriptionViewModel CONSTANT)
    Q_PROPERTY(bool hasRequiredPermissions READ hasRequiredPermissions NOTIFY
                   hasRequiredPermissionsChanged)
    Q_PROPERTY(
        bool isCheckingPermissions READ isCheckingPermissions NOTIFY isCheckingPermissionsChanged)
    Q_PROPERTY(bool isInitializingModels READ isInitializingModels NOTIFY initializationChanged)
    Q_PROPERTY(QString initializationStatus READ initializationStatus NOTIFY initializationChanged)
    Q_PROPERTY(
        double initializationProgress READ initializationProgress NOTIFY initializationChanged)
    Q_PROPERTY(
        bool hasSelectedAudioDevice READ hasSelectedAudioDevice NOTIFY selectedAudioDeviceChanged)
    Q_PROPERTY(AudioDevice selectedAudioDevice READ selectedAudioDeviceOrEmpty NOTIFY
                   selectedAudioDeviceChanged)
    Q_PROPERTY(QString captureError READ captureError NOTIFY captureErrorChanged)
    Q_PROPERTY(bool isSessionReady READ isSessionReady NOTIFY sessionStateChanged)
    // "Server offline - …" while the backend cannot be reached during a call; empty otherwise.
    Q_PROPERTY(QString serverStatusText READ serverStatusText NOTIFY sessionStateChanged)
    Q_PROPERTY(QString endCallConfirmation READ endCallConfirmationText CONSTANT)

public:
    struct Options
    {
        // Where the last chunk is kept ("whisper_input.wav" in Documents by default).
        QString whisperInputPath;
        // Monotonic time for the chunk and level rules; tests inject their own.
        CaptureBuffers::Clock clock = std::chrono::steady_clock::now;
        // Opens the desktop's sound settings, where recording is allowed or
        // blocked; the default tries the usual ones.
        std::function<void()> openSoundSettings;
        // Makes the backend session of every call, once, at construction;
        // without it calls run locally.
        std::function<std::unique_ptr<CallSession>(CallController&)> makeSession;
    };

    static constexpr auto serverOfflineText =
        "Server offline - calls will not be saved, live transcription only";

    static constexpr int permissionPollIntervalMs = 3000;
    static constexpr double transcriptionConfidence = 0.95;

    CallController(CaptureBackend& capture, SettingsStore& settings, Options options,
                   QObject* parent = nullptr);
    CallController(CaptureBackend& capture, SettingsStore& settings, QObject* parent = nullptr);
    ~CallController() override;

    CallModel callModel() const { return m_callModel; }
    bool isLive() const { return m_isLive; }
    TranscriptionViewModel* transcriptionViewModel() const { return m_transcript; }
    bool hasRequiredPermissions() const { return m_hasRequiredPermissions; }
    bool isCheckingPermissions() const { return m_isCheckingPermissions; }
    bool isInitializingModels() const { return m_isInitializingModels; }
    QString initializationStatus() const { return m_initializationStatus; }
    double initializationProgress() const { return m_initializationProgress; }
    std::optional<AudioDevice> selectedAudioDevice() const { return m_selectedAudioDevice; }
    bool hasSelectedAudioDevice() const { return m_selectedAudioDevice.has_value(); }
    AudioDevice selectedAudioDeviceOrEmpty() const;
    QString captureError() const { return m_captureError; }
    bool isPermissionPolling() const { return m_permissionTimer.isActive(); }

    // Seams filled by the application: recognition and the backend session.
    // Without a recognizer chunks are dropped; without a connected session
    // recognized text is only shown. The session's state (connection, its
    // call id, agent mode as the backend reports it, whether the backend can
    // be reached) is mirrored into the call record from the session's signals.
    void setRecognizer(SpeechRecognizer* recognizer);
    void setSession(CallSession* session);
    CallSession* session() const { return m_session; }

    bool isSessionReady() const { return m_isSessionReady; }
    QString serverStatusText() const;

    // The model every call is recognized with unless another is chosen.
    static constexpr auto callModelName = "small.en";

    // Start-up: makes sure the model is downloaded, loads it and, once loaded,
    // recognizes every call's chunks with it. `modelFile` skips the download
    // and loads that file instead. Publishes its progress as
    // initializationStatus / initializationProgress; when the model cannot be
    // had, calls run without recognition.
    void initializeModels(ModelDownloader& downloader, const QString& modelFile = {});
    // Start-up with a recognizer of the caller's: there is no model to load.
    void initializeWith(SpeechRecognizer* recognizer);
    // The local recognizer, once the model is loaded (its status for the screens).
    LocalSpeechRecognizer* localRecognizer() const { return m_localRecognizer.get(); }

    Q_INVOKABLE void checkPermissions(bool requestIfNecessary);
    Q_INVOKABLE void startPermissionPolling();
    Q_INVOKABLE void stopPermissionPolling();
    Q_INVOKABLE void openPrivacySettings();

    Q_INVOKABLE bool startCall();
    Q_INVOKABLE void pauseCall();
    Q_INVOKABLE void resumeCall();
    // Ends the call (the caller has asked for confirmation).
    Q_INVOKABLE void endCall();

    Q_INVOKABLE void selectAudioDevice(const AudioDevice& device);
    // The user's agent-mode choice: kept in the call record, then sent with
    // sendAgentSettings().
    Q_INVOKABLE void sendAgentSettings();
    void setAgentMode(bool enabled, int suggestionIntervalMs);
    // The user wrote to the assistant: the call has an open chat exchange.
    void noteChatActivity();

    // The per-chunk hand-off: recognized text goes to the transcript and, while
    // the session is connected, to the backend.
    void handleRecognizedText(const QString& text);

    // The text of the end-call confirmation.
    static QString endCallConfirmationText();

public Q_SLOTS:
    void handleAudioDeviceChanged(const AudioDevice& device);

Q_SIGNALS:
    void callModelChanged();
    void isLiveChanged();
    void hasRequiredPermissionsChanged();
    void isCheckingPermissionsChanged();
    void initializationChanged();
    void selectedAudioDeviceChanged();
    void captureErrorChanged();
    void sessionStateChanged();
    // A chunk was taken, mixed and normalized (on the GUI thread).
    void chunkTaken(const CallChunk& chunk);
    // The call ended: the chat side resets its state of the call.
    void callEnded();
    // Capture started (empty error) or failed to start.
    void captureStarted(const QString& error);

private:
    void mirrorSessionState();
    void mirrorSessionCallId(const QString& callId);
    void mirrorBackendReachable(bool reachable);
    void applyPermissionResult(bool systemAudio, bool microphone);
    void publishLevel(LevelReading reading);
    void handleChunk(const CallChunk& chunk);
    void setCaptureError(const QString& error);
    void loadStoredAudioDevice();
    void nameLoadedAudioDevice(const QList<AudioDevice>& devices);
    void setInitializationState(const QString& status, double progress, bool finished);
    void loadModel(const QString& path);

    CaptureBackend& m_capture;
    SettingsStore& m_settings;
    Options m_options;

    CallModel m_callModel;
    bool m_isLive = false;
    TranscriptionViewModel* m_transcript; // child
    bool m_hasRequiredPermissions = false;
    bool m_isCheckingPermissions = false;
    bool m_isInitializingModels = true;
    QString m_initializationStatus = QStringLiteral("Setting up app...");
    double m_initializationProgress = 0.0;
    std::optional<AudioDevice> m_selectedAudioDevice;
    // The stored device is known by its id only until a device list names it.
    bool m_loadedAudioDeviceUnnamed = false;
    QString m_captureError;

    QPointer<SpeechRecognizer> m_recognizer;
    std::unique_ptr<LocalSpeechRecognizer> m_localRecognizer;
    QPointer<CallSession> m_session;
    std::unique_ptr<CallSession> m_ownSession; // made by Options::makeSession
    bool m_isSessionReady = false;
    bool m_backendReachable = true;

    QTimer m_permissionTimer;
    QTimer m_durationTimer;
    std::shared_ptr<CallAudioPipeline> m_pipeline;
    // Permission probes and capture start and stop block on the sound server.
    SerialWorker m_worker{QStringLiteral("CallControl")};
};

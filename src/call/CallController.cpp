#include "call/CallController.h"

#include "audio/AudioDeviceChoice.h"
#include "audio/AudioDeviceManager.h"
#include "call/CallSession.h"
#include "call/TranscriptionViewModel.h"
#include "core/Logging.h"
#include "models/ModelDownloader.h"
#include "recognition/LocalSpeechRecognizer.h"
#include "recognition/SpeechRecognizer.h"
#include "recognition/WhisperContext.h"
#include "store/AppPaths.h"
#include "store/SettingsStore.h"

#include <QDir>
#include <QFutureWatcher>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QString yesNo(bool value)
{
    return value ? u"true"_s : u"false"_s;
}

// The desktop's sound settings, where recording from outputs and inputs is
// allowed or blocked; the first one installed is opened.
bool openDesktopSoundSettings()
{
    const QList<QPair<QString, QStringList>> candidates = {
        {u"gnome-control-center"_s, {u"sound"_s}},
        {u"pavucontrol"_s, {u"--tab=2"_s}},
        {u"systemsettings"_s, {u"kcm_pulseaudio"_s}},
        {u"xfce4-mixer"_s, {}},
    };
    for (const auto& [program, arguments] : candidates) {
        const QString path = QStandardPaths::findExecutable(program);
        if (!path.isEmpty() && QProcess::startDetached(path, arguments)) {
            return true;
        }
    }
    return false;
}

} // namespace

CallController::CallController(CaptureBackend& capture, SettingsStore& settings, QObject* parent)
    : CallController(capture, settings, Options{}, parent)
{}

CallController::CallController(CaptureBackend& capture, SettingsStore& settings, Options options,
                               QObject* parent)
    : QObject(parent), m_capture(capture), m_settings(settings), m_options(std::move(options)),
      m_transcript(new TranscriptionViewModel(this))
{
    if (m_options.whisperInputPath.isEmpty()) {
        m_options.whisperInputPath =
            QDir(AppPaths::documentsDirectory()).filePath(u"whisper_input.wav"_s);
    }
    if (!m_options.openSoundSettings) {
        m_options.openSoundSettings = [] {
            if (!openDesktopSoundSettings()) {
                qCWarning(lcCall) << "⚠️ No sound settings program found: allow recording in "
                                     "your desktop's sound settings";
            }
        };
    }

    CallAudioPipeline::Callbacks callbacks;
    callbacks.onLevel = [this](LevelReading reading) {
        QMetaObject::invokeMethod(
            this, [this, reading] { publishLevel(reading); }, Qt::QueuedConnection);
    };
    callbacks.onChunk = [this](const CallChunk& chunk) {
        QMetaObject::invokeMethod(
            this, [this, chunk] { handleChunk(chunk); }, Qt::QueuedConnection);
    };
    m_pipeline = std::make_shared<CallAudioPipeline>(std::move(callbacks),
                                                     m_options.whisperInputPath, m_options.clock);

    m_permissionTimer.setInterval(permissionPollIntervalMs);
    connect(&m_permissionTimer, &QTimer::timeout, this, [this] { checkPermissions(false); });
    m_durationTimer.setInterval(1000);
    connect(&m_durationTimer, &QTimer::timeout, this, [this] {
        m_callModel.duration =
            static_cast<double>(m_callModel.startTime.msecsTo(QDateTime::currentDateTimeUtc())) /
            1000.0;
        Q_EMIT callModelChanged();
    });

    loadStoredAudioDevice();
    connect(AudioDeviceManager::notifier(), &AudioDeviceNotifier::audioDeviceChanged, this,
            &CallController::handleAudioDeviceChanged);
    connect(AudioDeviceManager::notifier(), &AudioDeviceNotifier::inputDevicesChanged, this,
            &CallController::nameLoadedAudioDevice);

    if (m_options.makeSession) {
        m_ownSession = m_options.makeSession(*this);
        setSession(m_ownSession.get());
    }
}

CallController::~CallController()
{
    // The session goes first: it must not report into a controller being torn down.
    if (m_session) {
        disconnect(m_session, nullptr, this, nullptr);
    }
    m_session = nullptr;
    m_ownSession.reset();
    m_permissionTimer.stop();
    m_durationTimer.stop();
    // No capture handler runs once this returns, so nothing reaches the
    // pipeline or this object from a capture thread afterwards.
    m_worker
        .run<bool>([this] {
            m_capture.stop();
            return true;
        })
        .waitForFinished();
    m_pipeline.reset();
    setRecognizer(nullptr);
}

AudioDevice CallController::selectedAudioDeviceOrEmpty() const
{
    return m_selectedAudioDevice.value_or(AudioDevice{});
}

void CallController::setRecognizer(SpeechRecognizer* recognizer)
{
    if (m_recognizer) {
        disconnect(m_recognizer, nullptr, this, nullptr);
    }
    m_recognizer = recognizer;
    if (m_recognizer) {
        connect(m_recognizer, &SpeechRecognizer::textRecognized, this,
                &CallController::handleRecognizedText, Qt::QueuedConnection);
    }
}

void CallController::setSession(CallSession* session)
{
    if (m_session) {
        disconnect(m_session, nullptr, this, nullptr);
    }
    m_session = session;
    if (!m_session) {
        mirrorSessionState();
        return;
    }
    // The session owns its state; the call record keeps the copy its screens read.
    connect(m_session, &CallSession::isConnectedChanged, this, &CallController::mirrorSessionState);
    connect(m_session, &CallSession::sessionReadyChanged, this,
            &CallController::mirrorSessionState);
    connect(m_session, &CallSession::sessionCallIdChanged, this,
            &CallController::mirrorSessionCallId);
    connect(m_session, &CallSession::reachabilityChanged, this,
            &CallController::mirrorBackendReachable);
    connect(m_session, &CallSession::agentModeReported, this, &CallController::setAgentMode);
    mirrorSessionState();
}

void CallController::mirrorSessionState()
{
    const bool connected = m_session && m_session->isConnected();
    const bool ready = m_session && m_session->sessionReady();
    const bool changed = m_callModel.wsIsConnected != connected || m_isSessionReady != ready;
    m_callModel.wsIsConnected = connected;
    m_isSessionReady = ready;
    if (ready)
        m_backendReachable = true;
    if (changed) {
        Q_EMIT callModelChanged();
        Q_EMIT sessionStateChanged();
    }
}

void CallController::mirrorSessionCallId(const QString& callId)
{
    if (m_callModel.wsConnectionId == callId)
        return;
    m_callModel.wsConnectionId = callId;
    Q_EMIT callModelChanged();
}

void CallController::mirrorBackendReachable(bool reachable)
{
    if (m_backendReachable == reachable)
        return;
    m_backendReachable = reachable;
    if (!reachable)
        qCWarning(lcCall).noquote() << u"⚠️ "_s + QString::fromLatin1(serverOfflineText);
    Q_EMIT sessionStateChanged();
}

QString CallController::serverStatusText() const
{
    return m_isLive && !m_backendReachable ? QString::fromLatin1(serverOfflineText) : QString();
}

void CallController::setInitializationState(const QString& status, double progress, bool finished)
{
    m_initializationStatus = status;
    m_initializationProgress = progress;
    m_isInitializingModels = !finished;
    Q_EMIT initializationChanged();
}

void CallController::initializeModels(ModelDownloader& downloader, const QString& modelFile)
{
    setInitializationState(u"Checking AI models..."_s, 0.1, false);
    if (!modelFile.isEmpty()) {
        loadModel(modelFile);
        return;
    }
    const QString name = QString::fromLatin1(callModelName);
    // A watcher owned by this object: its callback dies with it, which a
    // continuation bound to a context does not do reliably.
    auto* watcher = new QFutureWatcher<ModelDownloadResult>(this);
    connect(watcher, &QFutureWatcherBase::finished, this,
            [this, watcher, path = downloader.modelPath(name)] {
                watcher->deleteLater();
                // A failed download was logged by the downloader; a file from an
                // earlier download may still be there, so loading is tried anyway.
                loadModel(path);
            });
    watcher->setFuture(downloader.ensureModel(name));
}

void CallController::initializeWith(SpeechRecognizer* recognizer)
{
    setRecognizer(recognizer);
    setInitializationState(u"Ready!"_s, 1.0, true);
}

void CallController::loadModel(const QString& path)
{
    setInitializationState(u"Initializing Model..."_s, 0.8, false);
    // Loading reads the whole model file: off the GUI thread.
    m_worker.post([this, path] {
        // A queued call copies its functor, so the context travels in a holder.
        auto holder =
            std::make_shared<std::unique_ptr<WhisperContext>>(WhisperContext::create(path));
        QMetaObject::invokeMethod(
            this,
            [this, holder, path] {
                if (*holder) {
                    m_localRecognizer = std::make_unique<LocalSpeechRecognizer>(std::move(*holder));
                    setRecognizer(m_localRecognizer.get());
                    qCInfo(lcCall).noquote()
                        << u"✅ [CallController] Speech model loaded: "_s + path;
                } else {
                    qCWarning(lcCall)
                        << "⚠️ [CallController] No speech model: calls run without "
                           "recognition";
                }
                setInitializationState(u"Ready!"_s, 1.0, true);
            },
            Qt::QueuedConnection);
    });
}

void CallController::loadStoredAudioDevice()
{
    const std::optional<QString> id = AudioDeviceChoice::storedId(m_settings);
    if (!id) {
        return;
    }
    // Only the id is stored: until a device list names it, the id stands for the name.
    AudioDevice device;
    device.id = *id;
    device.name = *id;
    m_selectedAudioDevice = device;
    m_loadedAudioDeviceUnnamed = true;
    nameLoadedAudioDevice(AudioDeviceManager::notifier()->inputDevices());
}

void CallController::nameLoadedAudioDevice(const QList<AudioDevice>& devices)
{
    if (!m_loadedAudioDeviceUnnamed || !m_selectedAudioDevice) {
        return;
    }
    const auto listed = std::find_if(devices.cbegin(), devices.cend(), [this](const auto& device) {
        return device.id == m_selectedAudioDevice->id;
    });
    if (listed == devices.cend()) {
        return;
    }
    m_loadedAudioDeviceUnnamed = false;
    m_selectedAudioDevice = *listed;
    Q_EMIT selectedAudioDeviceChanged();
    qCInfo(lcCall).noquote() << u"🎤 [CallController] Loaded selected audio device: "_s +
                                    listed->name;
}

void CallController::checkPermissions(bool requestIfNecessary)
{
    if (!m_isCheckingPermissions) {
        m_isCheckingPermissions = true;
        Q_EMIT isCheckingPermissionsChanged();
    }
    qCInfo(lcCall).noquote() << u"🔐 Checking permissions - requestIfNecessary: "_s +
                                    yesNo(requestIfNecessary);
    const QString source = m_selectedAudioDevice ? m_selectedAudioDevice->id : QString();
    m_worker.post([this, requestIfNecessary, source] {
        // What stands for the screen-recording permission: may the system audio be recorded?
        const PermissionResult systemAudio = m_capture.checkSystemAudioAccess();
        if (systemAudio.granted) {
            qCInfo(lcCall) << "🔐 Screen recording permission: GRANTED";
        } else {
            qCInfo(lcCall).noquote()
                << u"🔐 Screen recording permission: DENIED - "_s + systemAudio.error;
        }

        const MicrophoneAuthorization status = m_capture.microphoneAuthorization(source);
        qCInfo(lcCall).noquote() << u"🔐 Microphone permission status: "_s +
                                        QString::number(static_cast<int>(status));
        bool microphone = false;
        switch (status) {
        case MicrophoneAuthorization::Authorized:
            qCInfo(lcCall) << "🔐 Microphone permission: GRANTED";
            microphone = true;
            break;
        case MicrophoneAuthorization::Denied:
        case MicrophoneAuthorization::Restricted:
            qCInfo(lcCall) << "🔐 Microphone permission: DENIED/RESTRICTED";
            break;
        case MicrophoneAuthorization::NotDetermined:
            if (requestIfNecessary) {
                qCInfo(lcCall) << "🔐 Requesting microphone permission...";
                microphone = m_capture.requestMicrophoneAccess(source);
                qCInfo(lcCall).noquote()
                    << u"🔐 Microphone permission request result: "_s + yesNo(microphone);
            } else {
                qCInfo(lcCall) << "🔐 Microphone permission: NOT DETERMINED (not requesting)";
            }
            break;
        default:
            qCInfo(lcCall) << "🔐 Microphone permission: UNKNOWN";
            break;
        }

        QMetaObject::invokeMethod(
            this,
            [this, systemAudio = systemAudio.granted, microphone, requestIfNecessary] {
                if (!systemAudio && requestIfNecessary) {
                    qCInfo(lcCall)
                        << "🔐 Screen recording permission needed - opening privacy settings";
                    openPrivacySettings();
                }
                applyPermissionResult(systemAudio, microphone);
            },
            Qt::QueuedConnection);
    });
}

void CallController::applyPermissionResult(bool systemAudio, bool microphone)
{
    const bool combined = systemAudio && microphone;
    qCInfo(lcCall).noquote() << u"🔐 Final permission status - Screen: "_s + yesNo(systemAudio) +
                                    u", Mic: "_s + yesNo(microphone) + u", Combined: "_s +
                                    yesNo(combined);
    if (m_hasRequiredPermissions != combined) {
        m_hasRequiredPermissions = combined;
        Q_EMIT hasRequiredPermissionsChanged();
    }
    if (m_callModel.hasPermission != combined) {
        m_callModel.hasPermission = combined;
        Q_EMIT callModelChanged();
    }
    m_isCheckingPermissions = false;
    Q_EMIT isCheckingPermissionsChanged();
    qCInfo(lcCall).noquote() << u"🔐 Permission check: hasRequiredPermissions = "_s +
                                    yesNo(combined);
    if (combined && m_permissionTimer.isActive()) {
        qCInfo(lcCall) << "🔐 Permissions granted, stopping timer";
        m_permissionTimer.stop();
    }
}

void CallController::startPermissionPolling()
{
    if (m_hasRequiredPermissions) {
        qCInfo(lcCall) << "🔐 Permissions already granted, not starting timer";
        return;
    }
    if (m_permissionTimer.isActive()) {
        return;
    }
    qCInfo(lcCall) << "🔐 Starting permission check timer";
    m_permissionTimer.start();
}

void CallController::stopPermissionPolling()
{
    m_permissionTimer.stop();
}

void CallController::openPrivacySettings()
{
    m_options.openSoundSettings();
    qCInfo(lcCall) << "🔐 Opened privacy settings";
}

bool CallController::startCall()
{
    if (m_isLive) {
        return false;
    }
    m_pipeline->reset();
    m_pipeline->setPaused(false);

    m_callModel.isLive = true;
    m_callModel.isAudioPaused = false;
    m_callModel.startTime = QDateTime::currentDateTimeUtc();
    m_callModel.duration = 0.0;
    m_isLive = true;
    m_durationTimer.start();
    Q_EMIT callModelChanged();
    Q_EMIT isLiveChanged();
    Q_EMIT sessionStateChanged();
    qCInfo(lcCall) << "🎤 [CallController] Call started";

    if (m_session != nullptr) {
        m_session->connect();
    }

    // Capture starts off the GUI thread: opening streams waits on the sound server.
    const QString source = m_selectedAudioDevice ? m_selectedAudioDevice->id : QString();
    const std::shared_ptr<CaptureStreamOutput> output = m_pipeline->makeStreamOutput();
    m_worker.post([this, output, source] {
        const std::optional<QString> error = m_capture.start(output, source);
        QMetaObject::invokeMethod(
            this,
            [this, error] {
                if (error) {
                    qCWarning(lcCall).noquote()
                        << u"❌ [CallController] Could not start capture: "_s + *error;
                }
                setCaptureError(error.value_or(QString()));
                Q_EMIT captureStarted(error.value_or(QString()));
            },
            Qt::QueuedConnection);
    });
    return true;
}

void CallController::pauseCall()
{
    if (!m_isLive || m_callModel.isAudioPaused) {
        return;
    }
    m_pipeline->setPaused(true);
    m_callModel.isAudioPaused = true;
    Q_EMIT callModelChanged();
}

void CallController::resumeCall()
{
    if (!m_isLive || !m_callModel.isAudioPaused) {
        return;
    }
    m_pipeline->setPaused(false);
    m_callModel.isAudioPaused = false;
    Q_EMIT callModelChanged();
}

void CallController::endCall()
{
    if (!m_isLive) {
        return;
    }
    if (m_session != nullptr) {
        m_session->disconnect();
    }
    m_pipeline->reset();
    m_transcript->clear();
    m_callModel.hasActiveChat = false;
    Q_EMIT callEnded();

    m_isLive = false;
    m_backendReachable = true;
    m_durationTimer.stop();
    m_callModel.isLive = false;
    m_callModel.isAudioPaused = false;
    m_callModel.audioLevel = 0.0F;
    m_callModel.isAudioCapturing = false;
    m_pipeline->setPaused(false);
    Q_EMIT callModelChanged();
    Q_EMIT isLiveChanged();
    Q_EMIT sessionStateChanged();
    qCInfo(lcCall) << "🎤 [CallController] Call ended";

    m_worker.post([this] { m_capture.stop(); });
}

void CallController::publishLevel(LevelReading reading)
{
    if (!m_isLive) {
        return;
    }
    m_callModel.audioLevel = reading.level;
    m_callModel.isAudioCapturing = reading.capturing;
    Q_EMIT callModelChanged();
}

void CallController::handleChunk(const CallChunk& chunk)
{
    // A chunk taken just before the call ended belongs to nobody now.
    if (!m_isLive) {
        return;
    }
    Q_EMIT chunkTaken(chunk);
    if (m_recognizer) {
        m_recognizer->recognize(chunk.samples);
    }
}

void CallController::handleRecognizedText(const QString& text)
{
    if (!m_isLive || text.isEmpty()) {
        return;
    }
    m_transcript->addLocalTranscription(text);
    if (m_session != nullptr && m_session->isConnected()) {
        m_session->sendClientTranscription(text, std::nullopt, transcriptionConfidence,
                                           std::nullopt);
    }
}

void CallController::setCaptureError(const QString& error)
{
    if (m_captureError != error) {
        m_captureError = error;
        Q_EMIT captureErrorChanged();
    }
}

void CallController::selectAudioDevice(const AudioDevice& device)
{
    m_selectedAudioDevice = device;
    m_loadedAudioDeviceUnnamed = false;
    AudioDeviceChoice::store(m_settings, device.id);
    Q_EMIT selectedAudioDeviceChanged();
    qCInfo(lcCall).noquote() << u"🎤 [CallController] Stored selected audio device: "_s +
                                    device.name;
}

void CallController::handleAudioDeviceChanged(const AudioDevice& device)
{
    qCInfo(lcCall).noquote() << u"🎤 [CallController] Audio device changed to: "_s + device.name;
    m_selectedAudioDevice = device;
    m_loadedAudioDeviceUnnamed = false;
    Q_EMIT selectedAudioDeviceChanged();
    if (m_isLive) {
        // The running streams stay as they are.
        qCInfo(lcCall) << "🎤 [CallController] Device changed during active call. New device "
                          "will be used on next call start.";
    }
}

void CallController::sendAgentSettings()
{
    if (m_session == nullptr || !m_session->isConnected()) {
        return;
    }
    m_session->sendAgentSettings(m_callModel.isAgentModeEnabled,
                                 m_callModel.agentSuggestionIntervalMs);
}

void CallController::setAgentMode(bool enabled, int suggestionIntervalMs)
{
    m_callModel.isAgentModeEnabled = enabled;
    m_callModel.agentSuggestionIntervalMs = suggestionIntervalMs;
    Q_EMIT callModelChanged();
}

void CallController::noteChatActivity()
{
    m_callModel.hasActiveChat = true;
    m_callModel.lastChatActivity = QDateTime::currentDateTimeUtc();
    Q_EMIT callModelChanged();
}

QString CallController::endCallConfirmationText()
{
    return u"This will close the AI assistant session. Do you want to pause instead? Warning: "
           u"pausing will keep call minutes running."_s;
}

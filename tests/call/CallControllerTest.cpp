#include "call/CallController.h"

#include "LogCapture.h"
#include "SignalAnalysis.h"
#include "audio/AudioDeviceChoice.h"
#include "audio/AudioDeviceManager.h"
#include "audio/ChunkMixer.h"
#include "call/CallSession.h"
#include "call/TranscriptionViewModel.h"
#include "recognition/SpeechRecognizer.h"
#include "store/SettingsStore.h"

#include <QCoreApplication>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using SignalAnalysis::sine;

// One row of the permission table; requests and privacyOpened count what the
// check did: microphone requests made and sound settings opened.
struct PermissionCase
{
    bool screen = false;
    MicrophoneAuthorization microphone = MicrophoneAuthorization::NotDetermined;
    bool request = false;       // checkPermissions(requestIfNecessary)
    bool requestAnswer = false; // the user's answer when asked
    bool granted = false;
    int requests = 0;
    int privacyOpened = 0;
};
Q_DECLARE_METATYPE(PermissionCase)

namespace {

// The platform seam, driven by the test: blocks are delivered on the test's
// thread, permissions are whatever the test says.
class TestCaptureBackend : public CaptureBackend
{
public:
    std::optional<QString> start(std::shared_ptr<CaptureStreamOutput> stream,
                                 const QString& microphoneSource) override
    {
        startedWith.append(microphoneSource);
        if (!startError.isEmpty()) {
            return startError;
        }
        output = stream;
        return std::nullopt;
    }
    void stop() override { output.store({}); }
    bool isRunning() const override { return output.load() != nullptr; }
    PermissionResult checkSystemAudioAccess() override
    {
        return {screenGranted, screenGranted ? QString() : u"monitor source refused"_s};
    }
    MicrophoneAuthorization microphoneAuthorization(const QString&) override { return microphone; }
    bool requestMicrophoneAccess(const QString&) override
    {
        ++requests;
        return requestAnswer;
    }

    // Delivers one 16 kHz mono block as a capture thread would.
    void deliver(CaptureOutputType type, const Samples& samples) const
    {
        if (const auto target = output.load()) {
            target->stream({QByteArray(reinterpret_cast<const char*>(samples.data()),
                                       qsizetype(samples.size() * sizeof(float))),
                            SampleFormat::Float32, targetSampleRate, 1},
                           type);
        }
    }

    std::atomic<std::shared_ptr<CaptureStreamOutput>> output;
    QString startError;
    QStringList startedWith; // the microphone source of each start
    std::atomic<bool> screenGranted = true;
    std::atomic<MicrophoneAuthorization> microphone = MicrophoneAuthorization::Authorized;
    std::atomic<bool> requestAnswer = true;
    std::atomic<int> requests = 0;
};

// A session the test drives: it says what it is told and reports by its signals.
class TestSession : public CallSession
{
public:
    void connect() override { ++connects; }
    void disconnect() override { ++disconnects; }
    bool isConnected() const override { return connected; }
    bool sessionReady() const override { return ready; }

    void report(bool isConnected, bool isReady)
    {
        connected = isConnected;
        ready = isReady;
        Q_EMIT isConnectedChanged();
        Q_EMIT sessionReadyChanged();
    }
    void sendClientTranscription(const QString& text, const std::optional<QString>& speaker,
                                 double confidence,
                                 const std::optional<QJsonArray>& segments) override
    {
        QVERIFY(!speaker && !segments);
        QCOMPARE(confidence, 0.95);
        sent.append(text);
    }
    void sendAgentSettings(bool enabled, int interval) override
    {
        agentSettings.append({enabled, interval});
    }

    int connects = 0;
    int disconnects = 0;
    bool connected = false;
    bool ready = false;
    QStringList sent;
    QList<QPair<bool, int>> agentSettings;
};

class TestRecognizer : public SpeechRecognizer
{
public:
    void recognize(Samples chunk) override { chunks.append(std::move(chunk)); }
    QList<Samples> chunks;
};

} // namespace

class CallControllerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<TestCaptureBackend> m_backend;
    std::atomic<std::chrono::steady_clock::time_point> m_now; // moved by hand
    int m_privacyOpened = 0;

    QString wavPath() const { return m_directory->filePath(u"whisper_input.wav"_s); }
    void advance(std::chrono::milliseconds by) { m_now = m_now.load() + by; }

    std::unique_ptr<CallController> makeController()
    {
        CallController::Options options;
        options.whisperInputPath = wavPath();
        options.clock = [this] { return m_now.load(); };
        options.openSoundSettings = [this] { ++m_privacyOpened; };
        return std::make_unique<CallController>(*m_backend, *m_settings, options);
    }

    // Starts a call and waits until capture runs.
    static void startLive(CallController& controller)
    {
        QSignalSpy started(&controller, &CallController::captureStarted);
        QVERIFY(controller.startCall());
        QVERIFY(started.wait());
        QCOMPARE(started.first().first().toString(), QString());
    }

private Q_SLOTS:
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        m_settings = std::make_unique<SettingsStore>(m_directory->filePath(u"settings.json"_s));
        m_backend = std::make_unique<TestCaptureBackend>();
        m_now = std::chrono::steady_clock::time_point{} + 1h;
        m_privacyOpened = 0;
        AudioDeviceManager::notifier()->publishInputDevices({});
    }

    void permissions_data()
    {
        QTest::addColumn<PermissionCase>("c");
        using M = MicrophoneAuthorization;
        QTest::newRow("both granted") << PermissionCase{true, M::Authorized, false, false, true};
        QTest::newRow("screen denied, no request")
            << PermissionCase{false, M::Authorized, false, false, false};
        QTest::newRow("screen denied, request opens settings")
            << PermissionCase{false, M::Authorized, true, false, false, 0, 1};
        QTest::newRow("microphone denied") << PermissionCase{true, M::Denied, true, true, false};
        QTest::newRow("restricted") << PermissionCase{true, M::Restricted, true, true, false};
        QTest::newRow("not determined, not asked")
            << PermissionCase{true, M::NotDetermined, false, true, false};
        QTest::newRow("not determined, asked, yes")
            << PermissionCase{true, M::NotDetermined, true, true, true, 1};
        QTest::newRow("not determined, asked, no")
            << PermissionCase{true, M::NotDetermined, true, false, false, 1};
    }

    void permissions()
    {
        QFETCH(PermissionCase, c);
        m_backend->screenGranted = c.screen;
        m_backend->microphone = c.microphone;
        m_backend->requestAnswer = c.requestAnswer;
        auto controller = makeController();
        controller->checkPermissions(c.request);
        QVERIFY(controller->isCheckingPermissions());
        QTRY_VERIFY(!controller->isCheckingPermissions());
        QCOMPARE(controller->hasRequiredPermissions(), c.granted);
        QCOMPARE(controller->callModel().hasPermission, c.granted);
        QCOMPARE(m_backend->requests.load(), c.requests);
        QCOMPARE(m_privacyOpened, c.privacyOpened);
    }

    // Polling stops by itself once the user has allowed access.
    void permissionPolling()
    {
        auto controller = makeController();
        m_backend->microphone = MicrophoneAuthorization::Denied;
        controller->startPermissionPolling();
        QVERIFY(controller->isPermissionPolling());
        m_backend->microphone = MicrophoneAuthorization::Authorized;
        QTRY_VERIFY_WITH_TIMEOUT(controller->hasRequiredPermissions(), 10000);
        QVERIFY(!controller->isPermissionPolling());
        QTest::ignoreMessage(QtInfoMsg, "🔐 Permissions already granted, not starting timer");
        controller->startPermissionPolling();
        QVERIFY(!controller->isPermissionPolling());
    }

    // While paused every block is dropped and the level falls to 0; then a
    // chunk is mixed (microphone first), normalized, kept as whisper_input.wav
    // and handed to the recognizer.
    void audioToTheRecognizer()
    {
        auto controller = makeController();
        TestRecognizer recognizer;
        controller->setRecognizer(&recognizer);
        startLive(*controller);
        advance(200ms); // readings are at most ten a second
        m_backend->deliver(CaptureOutputType::Microphone, sine(1600, 0.5, 440));
        QTRY_VERIFY(controller->callModel().isAudioCapturing);

        controller->pauseCall();
        QVERIFY(controller->callModel().isAudioPaused);
        for (int i = 0; i < 20; ++i) {
            advance(200ms);
            m_backend->deliver(CaptureOutputType::Microphone, sine(16000, 0.5, 440));
            m_backend->deliver(CaptureOutputType::Audio, sine(16000, 0.5, 440));
        }
        QTRY_VERIFY(controller->callModel().audioLevel < 0.001F);
        QVERIFY(!controller->callModel().isAudioCapturing);

        controller->resumeCall();
        const Samples microphone = sine(30400, 0.2, 440); // 1600 more from before the pause
        const Samples system = sine(16000, 0.1, 1000);
        m_backend->deliver(CaptureOutputType::Microphone, microphone);
        m_backend->deliver(CaptureOutputType::Audio, system);
        QTRY_COMPARE(recognizer.chunks.size(), 1);
        Samples buffered = sine(1600, 0.5, 440);
        buffered.insert(buffered.end(), microphone.begin(), microphone.end());
        Samples expected = ChunkMixer::mix(buffered, system);
        ChunkMixer::normalize(expected);
        QCOMPARE(recognizer.chunks.first(), expected);
        QCOMPARE(QFile(wavPath()).size(), 44 + 2 * qint64(expected.size()));
    }

    // Text goes to the transcript always, to the session only while connected;
    // ending the call disconnects, clears the transcript and stops capture.
    void sessionGatingAndEnd()
    {
        auto controller = makeController();
        TestSession session;
        controller->setSession(&session);
        startLive(*controller);
        QCOMPARE(session.connects, 1);
        QVERIFY(m_backend->isRunning());

        controller->handleRecognizedText(u"hello"_s);
        session.connected = true;
        controller->handleRecognizedText(u"world"_s);
        QTRY_COMPARE(controller->transcriptionViewModel()->transcriptionText(), u"hello world"_s);
        QCOMPARE(session.sent, QStringList{u"world"_s});
        controller->setAgentMode(true, 15000);
        controller->sendAgentSettings();
        QCOMPARE(session.agentSettings, (QList<QPair<bool, int>>{{true, 15000}}));

        QSignalSpy ended(controller.get(), &CallController::callEnded);
        controller->endCall();
        QCOMPARE(ended.count(), 1);
        QCOMPARE(session.disconnects, 1);
        QVERIFY(!controller->isLive() && !controller->callModel().isLive);
        QTRY_VERIFY(!m_backend->isRunning());
        QTRY_COMPARE(controller->transcriptionViewModel()->transcriptionText(), QString());

        // Late text of the ended call is neither shown nor sent.
        controller->handleRecognizedText(u"late"_s);
        QCoreApplication::processEvents();
        QCOMPARE(controller->transcriptionViewModel()->transcriptionText(), QString());
        QCOMPARE(session.sent.size(), 1);
        session.connected = false;
        controller->sendAgentSettings();
        QCOMPARE(session.agentSettings.size(), 1);
    }

    // The session owns its state; the call record mirrors it from the
    // session's signals alone, and stops hearing a session it let go of.
    void mirrorsTheSessionState()
    {
        auto controller = makeController();
        TestSession session;
        session.connected = true;
        controller->setSession(&session);
        QVERIFY(controller->callModel().wsIsConnected); // taken over at once
        QVERIFY(!controller->isSessionReady());
        startLive(*controller);

        session.report(true, true);
        QVERIFY(controller->isSessionReady());
        QSignalSpy modelChanges(controller.get(), &CallController::callModelChanged);
        Q_EMIT session.sessionCallIdChanged(u"call-7"_s);
        Q_EMIT session.agentModeReported(true, 20000);
        QCOMPARE(controller->callModel().wsConnectionId, u"call-7"_s);
        QVERIFY(controller->callModel().isAgentModeEnabled);
        QCOMPARE(controller->callModel().agentSuggestionIntervalMs, 20000);
        QCOMPARE(modelChanges.size(), 2);

        // An unreachable backend shows while the call is live, until a session is ready again.
        Q_EMIT session.reachabilityChanged(false);
        QCOMPARE(controller->serverStatusText(),
                 QString::fromLatin1(CallController::serverOfflineText));
        session.report(false, false);
        QVERIFY(!controller->callModel().wsIsConnected && !controller->isSessionReady());
        QVERIFY(!controller->serverStatusText().isEmpty());
        session.report(true, true);
        QVERIFY(controller->serverStatusText().isEmpty());

        controller->setSession(nullptr);
        QVERIFY(!controller->callModel().wsIsConnected && !controller->isSessionReady());
        Q_EMIT session.sessionCallIdChanged(u"call-8"_s);
        Q_EMIT session.agentModeReported(false, 5000);
        session.report(true, true);
        QCOMPARE(controller->callModel().wsConnectionId, u"call-7"_s);
        QVERIFY(controller->callModel().isAgentModeEnabled);
        QVERIFY(!controller->isSessionReady());
    }

    // The stored choice is known by its id until a device list names it; the
    // load is logged with the name, once, as soon as a list has it.
    void loadedDeviceIsNamedFromTheList_data()
    {
        QTest::addColumn<bool>("listedBeforeLoad");
        QTest::newRow("list known at load") << true;
        QTest::newRow("list after load") << false;
    }

    void loadedDeviceIsNamedFromTheList()
    {
        QFETCH(bool, listedBeforeLoad);
        const QString loaded = u"🎤 [CallController] Loaded selected audio device: "_s;
        const AudioDevice headset{u"alsa_input.usb-headset"_s, u"USB Headset"_s};
        const QList<AudioDevice> listed{{u"alsa_input.pci-builtin"_s, u"Built-in"_s}, headset};
        QVERIFY(AudioDeviceChoice::store(*m_settings, headset.id));
        AudioDeviceNotifier* notifier = AudioDeviceManager::notifier();
        LogCapture log;
        if (listedBeforeLoad)
            notifier->publishInputDevices(listed);
        auto controller = makeController();
        if (!listedBeforeLoad) {
            QCOMPARE(controller->selectedAudioDevice()->name, headset.id);
            notifier->publishInputDevices({listed.first()}); // not in this one
            QVERIFY(log.lines({loaded}).isEmpty());
            notifier->publishInputDevices(listed);
        }
        QCOMPARE(controller->selectedAudioDevice(), headset);
        notifier->publishInputDevices(listed);
        QCOMPARE(log.lines({loaded}), QStringList{loaded + headset.name});
    }

    // The stored device is used even when it is gone (the call goes on without
    // audio); a change during a call applies to the next one.
    void deviceChoice()
    {
        makeController()->selectAudioDevice({u"alsa_input.usb-headset"_s, u"USB Headset"_s});
        QCOMPARE(m_settings->stringValue(u"selectedAudioDevice"_s), u"alsa_input.usb-headset"_s);
        m_backend->startError = u"no such source"_s;
        auto controller = makeController();
        QSignalSpy started(controller.get(), &CallController::captureStarted);
        QVERIFY(controller->startCall());
        QVERIFY(started.wait());
        QCOMPARE(started.first().first().toString(), u"no such source"_s);
        QCOMPARE(controller->captureError(), u"no such source"_s);
        QVERIFY(controller->isLive());

        m_backend->startError.clear();
        const AudioDevice other{u"alsa_input.pci-builtin"_s, u"Built-in"_s};
        controller->handleAudioDeviceChanged(other);
        QCOMPARE(controller->selectedAudioDevice(), other);
        controller->endCall();
        startLive(*controller);
        QCOMPARE(controller->captureError(), QString());
        QCOMPARE(m_backend->startedWith,
                 (QStringList{u"alsa_input.usb-headset"_s, u"alsa_input.pci-builtin"_s}));
    }
};

QTEST_GUILESS_MAIN(CallControllerTest)
#include "CallControllerTest.moc"

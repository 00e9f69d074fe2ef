#include "capture/CallController.h"

#include "TestPaths.h"
#include "app/SettingsStore.h"
#include "capture/CallSession.h"
#include "capture/ChunkMixer.h"
#include "capture/SpeechRecognizer.h"
#include "capture/TranscriptionViewModel.h"

#include <QFile>
#include <QMutex>
#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <cmath>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// The platform seam, driven by the test: blocks are delivered on the test's
// thread, permissions are whatever the test says.
class TestCaptureBackend : public CaptureBackend
{
public:
    std::optional<QString> start(std::shared_ptr<CaptureStreamOutput> output,
                                 const QString& microphoneSource) override
    {
        const QMutexLocker lock(&mutex);
        ++starts;
        startedWithSource = microphoneSource;
        if (!startError.isEmpty()) {
            return startError;
        }
        this->output = std::move(output);
        return std::nullopt;
    }
    void stop() override
    {
        const QMutexLocker lock(&mutex);
        output.reset();
    }
    bool isRunning() const override
    {
        const QMutexLocker lock(&mutex);
        return output != nullptr;
    }
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

    // Delivers one block as a capture thread would.
    void deliver(CaptureOutputType type, const Samples& samples)
    {
        std::shared_ptr<CaptureStreamOutput> target;
        {
            const QMutexLocker lock(&mutex);
            target = output;
        }
        if (target) {
            AudioBuffer buffer;
            buffer.sampleRate = targetSampleRate;
            buffer.channels = 1;
            buffer.data = QByteArray(reinterpret_cast<const char*>(samples.data()),
                                     static_cast<qsizetype>(samples.size() * sizeof(float)));
            target->stream(buffer, type);
        }
    }

    mutable QMutex mutex;
    std::shared_ptr<CaptureStreamOutput> output;
    QString startError;
    QString startedWithSource;
    int starts = 0;
    std::atomic<bool> screenGranted = true;
    std::atomic<MicrophoneAuthorization> microphone = MicrophoneAuthorization::Authorized;
    std::atomic<bool> requestAnswer = true;
    std::atomic<int> requests = 0;
};

class TestSession : public CallSession
{
public:
    void connect() override { ++connects; }
    void disconnect() override { ++disconnects; }
    bool isConnected() const override { return connected; }
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
    QStringList sent;
    QList<QPair<bool, int>> agentSettings;
};

class TestRecognizer : public SpeechRecognizer
{
public:
    void recognize(Samples chunk) override { chunks.append(std::move(chunk)); }
    QList<Samples> chunks;
};

Samples tone(qsizetype count, float amplitude, double frequency)
{
    Samples samples(static_cast<size_t>(count));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] =
            amplitude * static_cast<float>(std::sin(2 * M_PI * frequency * double(i) / 16000));
    }
    return samples;
}

// A clock the test moves by hand.
struct ManualClock
{
    std::shared_ptr<std::atomic<std::chrono::steady_clock::time_point>> now =
        std::make_shared<std::atomic<std::chrono::steady_clock::time_point>>(
            std::chrono::steady_clock::time_point{} + 1h);
    CaptureBuffers::Clock function() const
    {
        return [now = now] { return now->load(); };
    }
    void advance(std::chrono::milliseconds by) { *now = now->load() + by; }
};

} // namespace

class CallControllerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<SettingsStore> m_settings;
    TestCaptureBackend m_backend;
    ManualClock m_clock;
    QString m_wavPath;
    int m_privacyOpened = 0;

    std::unique_ptr<CallController> makeController()
    {
        CallController::Options options;
        options.whisperInputPath = m_wavPath;
        options.clock = m_clock.function();
        options.openPrivacySettings = [this] { ++m_privacyOpened; };
        return std::make_unique<CallController>(m_backend, *m_settings, options);
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
        m_home = std::make_unique<TemporaryHome>();
        m_settings = std::make_unique<SettingsStore>(m_home->path() + u"/settings.json"_s);
        m_wavPath = m_home->path() + u"/whisper_input.wav"_s;
        m_backend.startError.clear();
        m_backend.screenGranted = true;
        m_backend.microphone = MicrophoneAuthorization::Authorized;
        m_backend.requests = 0;
        m_backend.starts = 0;
        m_privacyOpened = 0;
    }

    void cleanup()
    {
        m_settings.reset();
        m_home.reset();
    }

    void permissions_data()
    {
        QTest::addColumn<bool>("screen");
        QTest::addColumn<int>("microphone");
        QTest::addColumn<bool>("request");
        QTest::addColumn<bool>("requestAnswer");
        QTest::addColumn<bool>("granted");
        QTest::addColumn<int>("requests");
        QTest::addColumn<int>("privacyOpened");
        using M = MicrophoneAuthorization;
        QTest::newRow("both granted")
            << true << int(M::Authorized) << false << false << true << 0 << 0;
        QTest::newRow("screen denied, no request")
            << false << int(M::Authorized) << false << false << false << 0 << 0;
        QTest::newRow("screen denied, request opens settings")
            << false << int(M::Authorized) << true << false << false << 0 << 1;
        QTest::newRow("microphone denied")
            << true << int(M::Denied) << true << true << false << 0 << 0;
        QTest::newRow("microphone restricted")
            << true << int(M::Restricted) << true << true << false << 0 << 0;
        QTest::newRow("not determined, not asked")
            << true << int(M::NotDetermined) << false << true << false << 0 << 0;
        QTest::newRow("not determined, asked, yes")
            << true << int(M::NotDetermined) << true << true << true << 1 << 0;
        QTest::newRow("not determined, asked, no")
            << true << int(M::NotDetermined) << true << false << false << 1 << 0;
    }

    void permissions()
    {
        QFETCH(bool, screen);
        QFETCH(int, microphone);
        QFETCH(bool, request);
        QFETCH(bool, requestAnswer);
        QFETCH(bool, granted);
        QFETCH(int, requests);
        QFETCH(int, privacyOpened);
        m_backend.screenGranted = screen;
        m_backend.microphone = static_cast<MicrophoneAuthorization>(microphone);
        m_backend.requestAnswer = requestAnswer;
        auto controller = makeController();
        QSignalSpy checking(controller.get(), &CallController::isCheckingPermissionsChanged);
        controller->checkPermissions(request);
        QVERIFY(controller->isCheckingPermissions());
        QTRY_VERIFY(!controller->isCheckingPermissions());
        QCOMPARE(controller->hasRequiredPermissions(), granted);
        QCOMPARE(controller->callModel().hasPermission, granted);
        QCOMPARE(m_backend.requests.load(), requests);
        QCOMPARE(m_privacyOpened, privacyOpened);
    }

    void permissionPolling()
    {
        auto controller = makeController();
        m_backend.microphone = MicrophoneAuthorization::Denied;
        controller->checkPermissions(false);
        QTRY_VERIFY(!controller->isCheckingPermissions());
        controller->startPermissionPolling();
        QVERIFY(controller->isPermissionPolling());

        m_backend.microphone = MicrophoneAuthorization::Authorized; // the user allowed it
        QTRY_VERIFY_WITH_TIMEOUT(controller->hasRequiredPermissions(), 10000);
        QVERIFY(!controller->isPermissionPolling());

        QTest::ignoreMessage(QtInfoMsg, "🔐 Permissions already granted, not starting timer");
        controller->startPermissionPolling();
        QVERIFY(!controller->isPermissionPolling());
    }

    // A chunk is taken at 3.0 s, not at 2.9 s, mixed, normalized, kept as
    // whisper_input.wav and handed to the recognizer.
    void chunkReachesTheRecognizer()
    {
        auto controller = makeController();
        TestRecognizer recognizer;
        controller->setRecognizer(&recognizer);
        startLive(*controller);
        QSignalSpy chunks(controller.get(), &CallController::chunkTaken);

        const Samples microphone = tone(32000, 0.2F, 440);
        const Samples system = tone(48000, 0.1F, 1000);
        const auto half = system.begin() + 16000;
        m_backend.deliver(CaptureOutputType::Microphone, microphone);
        m_clock.advance(2900ms);
        m_backend.deliver(CaptureOutputType::Audio, Samples(system.begin(), half));
        QTest::qWait(50);
        QCOMPARE(chunks.count(), 0); // enough audio, not enough time
        m_clock.advance(100ms);
        m_backend.deliver(CaptureOutputType::Audio, Samples(half, system.end()));
        QTRY_COMPARE(chunks.count(), 1);

        const auto chunk = chunks.first().first().value<CallChunk>();
        QCOMPARE(chunk.microphone, microphone);
        QCOMPARE(chunk.system, system);
        Samples expected = ChunkMixer::mix(microphone, system);
        ChunkMixer::normalize(expected);
        QCOMPARE(chunk.samples, expected);
        QCOMPARE(recognizer.chunks.size(), 1);
        QCOMPARE(recognizer.chunks.first(), expected);
        QFile wav(m_wavPath);
        QVERIFY(wav.open(QIODevice::ReadOnly));
        QCOMPARE(wav.size(), 44 + 2 * qint64(expected.size()));
    }

    void pauseDropsAudioAndZeroesTheLevel()
    {
        auto controller = makeController();
        startLive(*controller);
        m_clock.advance(200ms); // readings are at most ten a second
        m_backend.deliver(CaptureOutputType::Microphone, tone(1600, 0.5F, 440));
        QTRY_VERIFY(controller->callModel().audioLevel > 0.1F);
        QVERIFY(controller->callModel().isAudioCapturing);

        controller->pauseCall();
        QVERIFY(controller->callModel().isAudioPaused);
        QSignalSpy chunks(controller.get(), &CallController::chunkTaken);
        for (int i = 0; i < 20; ++i) {
            m_clock.advance(200ms);
            m_backend.deliver(CaptureOutputType::Microphone, tone(16000, 0.5F, 440));
            m_backend.deliver(CaptureOutputType::Audio, tone(16000, 0.5F, 440));
        }
        QTRY_VERIFY(controller->callModel().audioLevel < 0.001F);
        QVERIFY(!controller->callModel().isAudioCapturing);
        QTest::qWait(50);
        QCOMPARE(chunks.count(), 0);

        controller->resumeCall();
        m_backend.deliver(CaptureOutputType::Microphone, tone(48000, 0.5F, 440));
        QTRY_COMPARE(chunks.count(), 1);
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
        QVERIFY(m_backend.isRunning());

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
        QVERIFY(!controller->isLive());
        QVERIFY(!controller->callModel().isLive);
        QTRY_VERIFY(!m_backend.isRunning());
        QTRY_COMPARE(controller->transcriptionViewModel()->transcriptionText(), QString());

        // Late text of the ended call is not shown or sent.
        controller->handleRecognizedText(u"late"_s);
        QTest::qWait(20);
        QCOMPARE(controller->transcriptionViewModel()->transcriptionText(), QString());
        QCOMPARE(session.sent.size(), 1);

        session.connected = false;
        controller->sendAgentSettings();
        QCOMPARE(session.agentSettings.size(), 1);
    }

    void deviceChoice()
    {
        {
            auto controller = makeController();
            AudioDevice headset;
            headset.id = u"alsa_input.usb-headset"_s;
            headset.name = u"USB Headset"_s;
            controller->selectAudioDevice(headset);
        }
        QCOMPARE(m_settings->stringValue(u"selectedAudioDevice"_s), u"alsa_input.usb-headset"_s);

        auto controller = makeController(); // loads the stored choice
        QCOMPARE(controller->selectedAudioDevice()->id, u"alsa_input.usb-headset"_s);
        startLive(*controller);
        QCOMPARE(m_backend.startedWithSource, u"alsa_input.usb-headset"_s);

        // A change during the call applies to the next one only.
        AudioDevice other;
        other.id = u"alsa_input.pci-builtin"_s;
        other.name = u"Built-in"_s;
        controller->handleAudioDeviceChanged(other);
        QCOMPARE(m_backend.starts, 1);
        QCOMPARE(controller->selectedAudioDevice(), other);
        controller->endCall();
        startLive(*controller);
        QCOMPARE(m_backend.startedWithSource, u"alsa_input.pci-builtin"_s);
        controller->endCall();
    }

    void captureFailureIsReported()
    {
        m_backend.startError = u"no such source"_s;
        auto controller = makeController();
        QSignalSpy started(controller.get(), &CallController::captureStarted);
        QVERIFY(controller->startCall());
        QVERIFY(started.wait());
        QCOMPARE(started.first().first().toString(), u"no such source"_s);
        QCOMPARE(controller->captureError(), u"no such source"_s);
        QVERIFY(controller->isLive()); // the call goes on without audio
        controller->endCall();
    }
};

QTEST_GUILESS_MAIN(CallControllerTest)
#include "CallControllerTest.moc"

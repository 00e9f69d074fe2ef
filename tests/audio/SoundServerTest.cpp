#include "PulseAudioServer.h"
#include "SignalAnalysis.h"
#include "TestPaths.h"
#include "audio/AudioDeviceManager.h"
#include "audio/ChunkMixer.h"
#include "audio/PulseCaptureBackend.h"
#include "call/CallController.h"
#include "store/SettingsStore.h"

#include <QMutex>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <atomic>

using namespace Qt::StringLiterals;
using Error = AudioDeviceManager::AudioDeviceError;

namespace {

const QString virtualMicrophone = QString::fromLatin1(PulseAudioServer::virtualMicrophone);
const QString microphoneFeed = QString::fromLatin1(PulseAudioServer::microphoneFeedSink);
const QString virtualMicrophoneLine = u"* quillmoss_virtual_mic Quillmoss virtual microphone"_s;

float rmsOf(const AudioBuffer& buffer)
{
    const auto* data = reinterpret_cast<const float*>(buffer.data.constData());
    return ChunkMixer::rmsLevel(Samples(data, data + buffer.data.size() / 4));
}

// "id name" per device, the default marked with "*".
QStringList describe(const QList<AudioDevice>& devices)
{
    QStringList lines;
    for (const AudioDevice& device : devices) {
        lines.append((device.isDefault ? u"* "_s : u"  "_s) + device.id + u' ' + device.name);
    }
    return lines;
}

// Counts what a capture delivers and notes the format of loud system blocks.
struct Recorder
{
    // Microphone handlers that take `workPerBlock` each.
    std::shared_ptr<CaptureStreamOutput> output(std::chrono::milliseconds workPerBlock = {})
    {
        auto output = std::make_shared<CaptureStreamOutput>();
        output->audioBufferHandler = [this](const AudioBuffer& buffer) {
            ++system;
            if (rmsOf(buffer) > 0.1F) {
                const QMutexLocker lock(&mutex);
                loudSystemFormats.insert({buffer.sampleRate, buffer.channels});
            }
        };
        output->microphoneBufferHandler = [this, workPerBlock](const AudioBuffer&) {
            inHandler = true;
            ++microphone;
            QThread::msleep(static_cast<unsigned long>(workPerBlock.count()));
            inHandler = false;
        };
        return output;
    }
    int calls() const { return system + microphone; }
    bool hasBothSides() const { return system > 0 && microphone > 0; }
    QSet<QPair<double, int>> loudFormats()
    {
        const QMutexLocker lock(&mutex);
        return loudSystemFormats;
    }

    std::atomic<int> system = 0;
    std::atomic<int> microphone = 0;
    std::atomic<bool> inHandler = false;
    QMutex mutex;
    QSet<QPair<double, int>> loudSystemFormats; // (rate, channels)
};

} // namespace

// Capture, device discovery and a whole call against a real private PulseAudio
// server: the call output at 48000 Hz stereo (its monitor is the system audio),
// the virtual microphone at 44100 Hz mono, the only input.
class SoundServerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PulseAudioServer> m_server;
    QTemporaryDir m_files;
    QString m_blip; // a short loud tone
    std::unique_ptr<SettingsStore> m_settings;

    // A device manager whose first discovery is done.
    std::unique_ptr<AudioDeviceManager> discovered()
    {
        auto manager = std::make_unique<AudioDeviceManager>(*m_settings);
        QSignalSpy finished(manager.get(), &AudioDeviceManager::discoveryFinished);
        return finished.wait(10000) ? std::move(manager) : nullptr;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_server = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        m_blip = m_files.filePath(u"blip.wav"_s);
        QVERIFY(PulseAudioServer::makeTone(m_blip, 440, PulseAudioServer::microphoneRate, 0.5));
        m_settings = std::make_unique<SettingsStore>(m_files.filePath(u"settings.json"_s));
    }

    // No handler runs once stop() has returned, not even one that was running.
    void stopEndsDeliveryAndStartResumesIt()
    {
        PulseCaptureBackend backend;
        Recorder recorder;
        QCOMPARE(backend.start(recorder.output(std::chrono::milliseconds(5)), {}), std::nullopt);
        QTRY_VERIFY(recorder.calls() > 10);
        backend.stop();
        QVERIFY(!recorder.inHandler);
        QVERIFY(!backend.isRunning());
        QCOMPARE(backend.systemAudioSource(), QString());
        const int calls = recorder.calls();
        // A second capture sees audio keep flowing; none of it may reach the first.
        PulseCaptureBackend witness;
        Recorder witnessed;
        QCOMPARE(witness.start(witnessed.output(), {}), std::nullopt);
        QTRY_VERIFY(witnessed.calls() > 20);
        QCOMPARE(recorder.calls(), calls);

        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QTRY_VERIFY(recorder.calls() > calls);
    }

    void startAndPermissions_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("errorHas"); // empty: allowed, and the capture starts
        QTest::newRow("default input") << QString() << QString();
        QTest::newRow("named input") << virtualMicrophone << QString();
        QTest::newRow("unknown input") << u"no_such_source"_s << u"no_such_source"_s;
    }

    void startAndPermissions()
    {
        QFETCH(QString, source);
        QFETCH(QString, errorHas);
        PulseCaptureBackend backend;
        Recorder recorder;
        const PermissionResult systemAudio = backend.checkSystemAudioAccess();
        QVERIFY(systemAudio.granted && systemAudio.error.isEmpty());
        const bool allowed = errorHas.isEmpty();
        QCOMPARE(backend.microphoneAuthorization(source),
                 allowed ? MicrophoneAuthorization::Authorized : MicrophoneAuthorization::Denied);
        QCOMPARE(backend.requestMicrophoneAccess(source), allowed);
        const std::optional<QString> error = backend.start(recorder.output(), source);
        QCOMPARE(backend.isRunning(), allowed);
        if (allowed) {
            QCOMPARE(error, std::nullopt);
            QCOMPARE(backend.microphoneSource(), virtualMicrophone);
        } else {
            QVERIFY2(error && error->contains(errorHas), qPrintable(error.value_or(QString())));
            QCOMPARE(recorder.calls(), 0);
        }
    }

    // A headset plugged in becomes the default output, and is unplugged again.
    void captureFollowsTheDefaultOutput()
    {
        PulseCaptureBackend backend;
        Recorder recorder;
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QCOMPARE(backend.systemAudioSource(), u"quillmoss_call_output.monitor"_s);
        const std::optional<QString> headset =
            m_server->pactl({u"load-module"_s, u"module-null-sink"_s, u"sink_name=headset"_s,
                             u"rate=32000"_s, u"channels=1"_s});
        QVERIFY(headset);
        QVERIFY(m_server->pactl({u"set-default-sink"_s, u"headset"_s}));
        QTRY_COMPARE(backend.systemAudioSource(), u"headset.monitor"_s);
        QVERIFY(m_server->startPlaying(m_blip, u"headset"_s)->waitForFinished(30000));
        QTRY_COMPARE(recorder.loudFormats(), (QSet<QPair<double, int>>{{32000.0, 1}}));
        QVERIFY(m_server->removeModule(headset->trimmed().toInt()));
        QTRY_COMPARE(backend.systemAudioSource(), u"quillmoss_call_output.monitor"_s);
        QVERIFY(backend.isRunning());
    }

    // Inputs only (monitors are not), the default marked, as a headset comes,
    // becomes the default and goes.
    void discoversInputs()
    {
        const auto manager = discovered();
        QVERIFY(manager);
        QCOMPARE(manager->lastErrorCode(), Error::None);
        QCOMPARE(describe(manager->availableInputDevices()), QStringList{virtualMicrophoneLine});
        const std::optional<int> headset =
            m_server->addVirtualSource(u"headset_mic"_s, u"Headset microphone"_s);
        QVERIFY(headset);
        QTRY_COMPARE(describe(manager->availableInputDevices()),
                     (QStringList{virtualMicrophoneLine, u"  headset_mic Headset microphone"_s}));
        QVERIFY(m_server->pactl({u"set-default-source"_s, u"headset_mic"_s}));
        QTRY_COMPARE(describe(manager->availableInputDevices()),
                     (QStringList{u"  quillmoss_virtual_mic Quillmoss virtual microphone"_s,
                                  u"* headset_mic Headset microphone"_s}));
        QVERIFY(m_server->removeModule(*headset));
        QTRY_COMPARE(describe(manager->availableInputDevices()),
                     QStringList{virtualMicrophoneLine});
        QVERIFY(!manager->isLoading());

        // No input left is an error, until one comes back.
        QTest::ignoreMessage(QtWarningMsg, "❌ [AudioDeviceManager] Failed to discover devices: "
                                           "No audio input devices found");
        QVERIFY(m_server->pactl({u"unload-module"_s, u"module-remap-source"_s}));
        QTRY_COMPARE(manager->lastErrorCode(), Error::NoInputDevices);
        QVERIFY(manager->availableInputDevices().isEmpty());
        QCOMPARE(manager->lastError(), u"No audio input devices found"_s);
        QVERIFY(m_server->addVirtualSource(
            virtualMicrophone,
            QString::fromLatin1(PulseAudioServer::virtualMicrophoneDescription)));
        QTRY_COMPARE(describe(manager->availableInputDevices()),
                     QStringList{virtualMicrophoneLine});
        QCOMPARE(manager->lastErrorCode(), Error::None);
        QCOMPARE(manager->lastError(), QString());
    }

    // Speech played into the default output, a tone into the virtual
    // microphone, through capture, conversion, chunking and mixing.
    void speechAndToneThroughAWholeCall()
    {
        const QString tonePath = m_files.filePath(u"tone.wav"_s);
        QVERIFY(PulseAudioServer::makeTone(tonePath, 440, PulseAudioServer::microphoneRate, 20));
        const QString speechPath = TestPaths::sharedTestData() + u"/speech/jfk.wav"_s;
        const Samples reference = SignalAnalysis::readPcm16Wav(speechPath);
        QCOMPARE(reference.size(), size_t(176000));

        PulseCaptureBackend capture;
        CallController::Options options;
        options.whisperInputPath = m_files.filePath(u"whisper_input.wav"_s);
        CallController controller(capture, *m_settings, options);
        QSignalSpy started(&controller, &CallController::captureStarted);
        QList<CallChunk> chunks;
        connect(&controller, &CallController::chunkTaken, this,
                [&chunks](const CallChunk& chunk) { chunks.append(chunk); });
        QVERIFY(controller.startCall());
        QVERIFY(started.wait(10000));
        QCOMPARE(started.first().first().toString(), QString());
        const auto tone = m_server->startPlaying(tonePath, microphoneFeed);
        // The speech starts once audio flows, so all of it is captured.
        QTRY_VERIFY_WITH_TIMEOUT(!chunks.isEmpty(), 10000);
        const auto speech = m_server->startPlaying(
            speechPath, QString::fromLatin1(PulseAudioServer::callOutputSink));
        QTRY_VERIFY_WITH_TIMEOUT(speech->state() == QProcess::NotRunning, 30000);
        // A chunk after the speech ended carries its tail.
        const qsizetype taken = chunks.size();
        QTRY_VERIFY_WITH_TIMEOUT(chunks.size() > taken, 10000);
        controller.endCall();
        tone->kill();
        tone->waitForFinished();
        QCOMPARE(controller.callModel().audioLevel, 0.0F);

        Samples system;
        Samples microphone;
        for (const CallChunk& chunk : chunks) {
            system.insert(system.end(), chunk.system.begin(), chunk.system.end());
            microphone.insert(microphone.end(), chunk.microphone.begin(), chunk.microphone.end());
        }
        const double correlation = SignalAnalysis::bestCorrelation(system, reference);
        QVERIFY2(correlation >= 0.9, qPrintable(u"correlation %1"_s.arg(correlation)));
        // Half a second of the tone, away from where it starts and stops.
        QVERIFY(microphone.size() > 5 * 16000);
        const auto fit = SignalAnalysis::fitTone(
            Samples(microphone.end() - 24000, microphone.end() - 16000), 440, targetSampleRate);
        QVERIFY2(fit.residualDb < -40, qPrintable(u"THD+N %1 dB"_s.arg(fit.residualDb)));
    }

    // Last: the server goes away under a running capture and device list, and
    // a fresh one comes back at the same address.
    void survivesTheServerGoingAway()
    {
        const auto manager = discovered();
        QVERIFY(manager);
        PulseCaptureBackend backend;
        Recorder recorder;
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QTRY_VERIFY(recorder.hasBothSides());
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"❌ \\[PulseCapture\\] (Lost the sound server|"
                                                u".* stream of .* failed)"_s));
        QTest::ignoreMessage(
            QtWarningMsg,
            QRegularExpression(u"^❌ \\[AudioDeviceManager\\] Failed to discover devices: .+"_s));
        m_server->stop();
        QTRY_VERIFY(!backend.isRunning());
        QTRY_COMPARE(manager->lastErrorCode(), Error::CannotGetDevices);
        QVERIFY(manager->availableInputDevices().isEmpty());
        const int calls = recorder.calls();
        const PermissionResult systemAudio = backend.checkSystemAudioAccess();
        QVERIFY(!systemAudio.granted && !systemAudio.error.isEmpty());
        QCOMPARE(backend.microphoneAuthorization({}), MicrophoneAuthorization::Denied);
        QVERIFY(!backend.requestMicrophoneAccess({}));
        QVERIFY(
            backend.start(recorder.output(), {}).value_or(QString()).contains(u"sound server"_s));
        QCOMPARE(recorder.calls(), calls);

        QVERIFY2(m_server->start(), qPrintable(m_server->error()));
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QTRY_VERIFY(recorder.calls() > calls);
        QTRY_COMPARE_WITH_TIMEOUT(describe(manager->availableInputDevices()),
                                  QStringList{virtualMicrophoneLine}, 30000);
        QCOMPARE(manager->lastErrorCode(), Error::None);
        // Listening again: a change after the comeback is seen too.
        QVERIFY(m_server->addVirtualSource(u"headset_mic"_s, u"Headset microphone"_s));
        QTRY_COMPARE(manager->availableInputDevices().size(), 2);
    }
};

QTEST_GUILESS_MAIN(SoundServerTest)
#include "SoundServerTest.moc"

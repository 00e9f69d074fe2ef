#include "capture/PulseCaptureBackend.h"

#include "PulseAudioServer.h"
#include "TestPaths.h"

#include <QMutex>
#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cmath>
#include <numbers>

using namespace Qt::StringLiterals;

namespace {

// Everything a capture delivered, by side.
class Recorder
{
public:
    std::shared_ptr<CaptureStreamOutput> output(std::chrono::milliseconds workPerBlock = {})
    {
        auto output = std::make_shared<CaptureStreamOutput>();
        output->audioBufferHandler = [this](const AudioBuffer& buffer) {
            append(m_system, buffer);
        };
        output->microphoneBufferHandler = [this, workPerBlock](const AudioBuffer& buffer) {
            inHandler = true;
            append(m_microphone, buffer);
            QThread::msleep(static_cast<unsigned long>(workPerBlock.count()));
            inHandler = false;
        };
        return output;
    }

    QList<AudioBuffer> system() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_system;
    }
    QList<AudioBuffer> microphone() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_microphone;
    }
    int calls() const { return m_calls; }
    bool hasBothSides() const { return !system().isEmpty() && !microphone().isEmpty(); }

    std::atomic<bool> inHandler = false;

private:
    void append(QList<AudioBuffer>& list, const AudioBuffer& buffer)
    {
        const QMutexLocker lock(&m_mutex);
        list.append(buffer);
        ++m_calls;
    }

    mutable QMutex m_mutex;
    QList<AudioBuffer> m_system;
    QList<AudioBuffer> m_microphone;
    std::atomic<int> m_calls = 0;
};

std::vector<float> samplesOf(const QList<AudioBuffer>& buffers, qsizetype from = 0)
{
    std::vector<float> samples;
    for (qsizetype i = from; i < buffers.size(); ++i) {
        const auto* data = reinterpret_cast<const float*>(buffers[i].data.constData());
        samples.insert(samples.end(), data, data + buffers[i].data.size() / 4);
    }
    return samples;
}

double rms(const std::vector<float>& samples)
{
    double sum = 0;
    for (const float sample : samples) {
        sum += double(sample) * sample;
    }
    return samples.empty() ? 0.0 : std::sqrt(sum / double(samples.size()));
}

// The share of the signal's energy at `frequency` (Goertzel): near 1 for a
// pure tone of that frequency, near 0 for anything else.
double toneShare(const std::vector<float>& samples, double frequency, double rate)
{
    const double coefficient = 2.0 * std::cos(2.0 * std::numbers::pi * frequency / rate);
    double previous = 0;
    double beforePrevious = 0;
    double energy = 0;
    for (const float sample : samples) {
        const double current = sample + coefficient * previous - beforePrevious;
        beforePrevious = previous;
        previous = current;
        energy += double(sample) * sample;
    }
    const double power = previous * previous + beforePrevious * beforePrevious -
                         coefficient * previous * beforePrevious;
    return energy > 0 ? power / (energy * double(samples.size()) / 2.0) : 0.0;
}

// The stretch from the first to the last sample above `threshold`.
std::vector<float> loudPart(const std::vector<float>& samples, float threshold)
{
    const auto loud = [threshold](float sample) { return std::abs(sample) > threshold; };
    const auto first = std::find_if(samples.begin(), samples.end(), loud);
    const auto last = std::find_if(samples.rbegin(), samples.rend(), loud).base();
    return first < last ? std::vector<float>(first, last) : std::vector<float>();
}

} // namespace

// Against a real private PulseAudio server: the call output at 48000 Hz stereo,
// the virtual microphone at 44100 Hz mono.
class PulseCaptureBackendTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PulseAudioServer> m_server;
    QTemporaryDir m_files;
    QString m_tone;
    QString m_blip; // a short tone where only its passing through matters

private Q_SLOTS:
    void initTestCase()
    {
        m_server = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
        m_tone = m_files.filePath(u"tone.wav"_s);
        QVERIFY(PulseAudioServer::makeTone(m_tone, 440, PulseAudioServer::microphoneRate, 3));
        m_blip = m_files.filePath(u"blip.wav"_s);
        QVERIFY(PulseAudioServer::makeTone(m_blip, 440, PulseAudioServer::microphoneRate, 0.5));
    }

    void capturesEachSideInItsOwnFormat()
    {
        PulseCaptureBackend backend;
        Recorder recorder;
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QVERIFY(backend.isRunning());
        QCOMPARE(backend.systemAudioSource(), u"quillmoss_call_output.monitor"_s);
        QCOMPARE(backend.microphoneSource(), u"quillmoss_virtual_mic"_s);
        QTRY_VERIFY(recorder.hasBothSides());
        const qsizetype silentBlocks = recorder.system().size();

        const auto speech =
            m_server->startPlaying(TestPaths::sharedTestData() + u"/speech/jfk.wav"_s,
                                   QString::fromLatin1(PulseAudioServer::callOutputSink));
        QVERIFY(m_server->play(m_tone, QString::fromLatin1(PulseAudioServer::microphoneFeedSink)));
        QVERIFY(speech->waitForFinished(30000));
        QCOMPARE(speech->exitCode(), 0);
        backend.stop();

        const struct
        {
            QList<AudioBuffer> buffers;
            int rate = 0;
            int channels = 0;
        } sides[] = {
            {recorder.system(), PulseAudioServer::callOutputRate,
             PulseAudioServer::callOutputChannels},
            {recorder.microphone(), PulseAudioServer::microphoneRate,
             PulseAudioServer::microphoneChannels},
        };
        for (const auto& side : sides) {
            for (const AudioBuffer& buffer : side.buffers) {
                QCOMPARE(buffer.format, SampleFormat::Float32);
                QCOMPARE(buffer.sampleRate, side.rate);
                QCOMPARE(buffer.channels, side.channels);
                QVERIFY(buffer.interleaved);
                QVERIFY(buffer.frameCount() > 0);
                QCOMPARE(buffer.data.size() % buffer.bytesPerFrame(), 0);
            }
        }

        // The null output is digitally silent until the speech plays.
        QVERIFY(rms(samplesOf(recorder.system().mid(0, silentBlocks))) < 1e-4);
        const std::vector<float> system = samplesOf(recorder.system(), silentBlocks);
        QVERIFY2(rms(system) > 0.02, qPrintable(QString::number(rms(system))));
        // Mono speech played into a stereo output: both channels of every frame alike.
        for (size_t i = 0; i + 1 < system.size(); i += 2) {
            QVERIFY(std::abs(system[i] - system[i + 1]) < 1e-6);
        }
        const std::vector<float> tone = loudPart(samplesOf(recorder.microphone()), 0.1F);
        QVERIFY(tone.size() > PulseAudioServer::microphoneRate); // most of its 3 seconds
        const double share = toneShare(tone, 440, PulseAudioServer::microphoneRate);
        QVERIFY2(share > 0.9, qPrintable(QString::number(share)));
        // Each side carries its own source, not the other's.
        QVERIFY(toneShare(system, 440, PulseAudioServer::callOutputRate) < 0.05);
    }

    void stopEndsDeliveryAndStartResumesIt()
    {
        PulseCaptureBackend backend;
        Recorder recorder;
        // Handlers that take a while: stop() must wait for one that is running.
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

    void failsToStartCleanly_data()
    {
        QTest::addColumn<QByteArray>("serverAddress"); // empty: the test server
        QTest::addColumn<QString>("microphone");
        QTest::addColumn<QString>("errorHas");
        QTest::newRow("unknown microphone")
            << QByteArray() << u"no_such_source"_s << u"no_such_source"_s;
        QTest::newRow("no sound server")
            << QByteArray("unix:/nonexistent/native") << QString() << u"sound server"_s;
    }

    void failsToStartCleanly()
    {
        QFETCH(QByteArray, serverAddress);
        QFETCH(QString, microphone);
        QFETCH(QString, errorHas);
        if (!serverAddress.isEmpty()) {
            qputenv("PULSE_SERVER", serverAddress);
        }
        PulseCaptureBackend backend;
        Recorder recorder;
        const std::optional<QString> error = backend.start(recorder.output(), microphone);
        qputenv("PULSE_SERVER", m_server->address().toUtf8());
        QVERIFY(error.has_value());
        QVERIFY2(error->contains(errorHas), qPrintable(*error));
        QVERIFY(!backend.isRunning());
        QCOMPARE(recorder.calls(), 0);
    }

    void permissions_data()
    {
        QTest::addColumn<bool>("serverUp");
        QTest::addColumn<QString>("source");
        QTest::addColumn<MicrophoneAuthorization>("microphone");
        const auto authorized = MicrophoneAuthorization::Authorized;
        const auto denied = MicrophoneAuthorization::Denied;
        QTest::newRow("default input") << true << QString() << authorized;
        QTest::newRow("named input") << true << u"quillmoss_virtual_mic"_s << authorized;
        QTest::newRow("unknown input") << true << u"no_such_source"_s << denied;
        QTest::newRow("no server") << false << QString() << denied;
    }

    void permissions()
    {
        QFETCH(bool, serverUp);
        QFETCH(QString, source);
        QFETCH(MicrophoneAuthorization, microphone);
        if (!serverUp) {
            qputenv("PULSE_SERVER", "unix:/nonexistent/native");
        }
        PulseCaptureBackend backend;
        const PermissionResult systemAudio = backend.checkSystemAudioAccess();
        const MicrophoneAuthorization authorization = backend.microphoneAuthorization(source);
        const bool requested = backend.requestMicrophoneAccess(source);
        qputenv("PULSE_SERVER", m_server->address().toUtf8());
        QCOMPARE(systemAudio.granted, serverUp);
        QCOMPARE(systemAudio.error.isEmpty(), serverUp);
        QCOMPARE(authorization, microphone);
        QCOMPARE(requested, microphone == MicrophoneAuthorization::Authorized);
    }

    void followsTheDefaultOutput()
    {
        PulseCaptureBackend backend;
        Recorder recorder;
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        // A headset is plugged in and becomes the default output.
        const std::optional<QString> headset =
            m_server->pactl({u"load-module"_s, u"module-null-sink"_s, u"sink_name=headset"_s,
                             u"rate=32000"_s, u"channels=1"_s});
        QVERIFY(headset);
        QVERIFY(m_server->pactl({u"set-default-sink"_s, u"headset"_s}));
        QTRY_COMPARE(backend.systemAudioSource(), u"headset.monitor"_s);
        QVERIFY(m_server->play(m_blip, u"headset"_s));
        const QList<AudioBuffer> system = recorder.system();
        QVERIFY(std::any_of(system.cbegin(), system.cend(), [](const AudioBuffer& buffer) {
            return buffer.sampleRate == 32000 && buffer.channels == 1 &&
                   rms(samplesOf({buffer})) > 0.1;
        }));
        // It is unplugged again: back to the output that is left, still running.
        QVERIFY(m_server->removeModule(headset->trimmed().toInt()));
        QTRY_COMPARE(backend.systemAudioSource(), u"quillmoss_call_output.monitor"_s);
        QVERIFY(backend.isRunning());
    }

    // Last: it takes the server away.
    void survivesTheServerGoingAway()
    {
        PulseCaptureBackend backend;
        Recorder recorder;
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QTRY_VERIFY(recorder.hasBothSides());
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"❌ \\[PulseCapture\\] (Lost the sound server|"
                                                u".* stream of .* failed)"_s));
        m_server->stop();
        QTRY_VERIFY(!backend.isRunning());
        const int calls = recorder.calls();
        const PermissionResult systemAudio = backend.checkSystemAudioAccess();
        QVERIFY(!systemAudio.granted);
        QVERIFY(!systemAudio.error.isEmpty());
        QCOMPARE(backend.microphoneAuthorization({}), MicrophoneAuthorization::Denied);
        QVERIFY(backend.start(recorder.output(), {}).has_value());
        QCOMPARE(recorder.calls(), calls);

        // Back again: the same backend records again.
        QVERIFY2(m_server->start(), qPrintable(m_server->error()));
        QCOMPARE(backend.start(recorder.output(), {}), std::nullopt);
        QTRY_VERIFY(recorder.calls() > calls);
    }
};

QTEST_GUILESS_MAIN(PulseCaptureBackendTest)
#include "PulseCaptureBackendTest.moc"

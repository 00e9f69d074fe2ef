#include "PulseAudioServer.h"
#include "TestPaths.h"
#include "app/SettingsStore.h"
#include "capture/CallController.h"
#include "capture/PulseCaptureBackend.h"

#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

// 16-bit PCM mono WAV as floats (the test clips and whisper_input.wav).
Samples readPcm16Wav(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray bytes = file.readAll();
    qsizetype offset = 12;
    while (offset + 8 <= bytes.size()) {
        const QByteArray id = bytes.mid(offset, 4);
        quint32 size = 0;
        std::memcpy(&size, bytes.constData() + offset + 4, 4);
        if (id == "data") {
            const qsizetype count = std::min<qsizetype>(size, bytes.size() - offset - 8) / 2;
            Samples samples(static_cast<size_t>(count));
            for (qsizetype i = 0; i < count; ++i) {
                qint16 value = 0;
                std::memcpy(&value, bytes.constData() + offset + 8 + 2 * i, 2);
                samples[static_cast<size_t>(i)] = static_cast<float>(value) / 32768.0F;
            }
            return samples;
        }
        offset += 8 + size + (size % 2);
    }
    return {};
}

double dot(const float* a, const float* b, size_t n)
{
    double sum = 0;
    for (size_t i = 0; i < n; ++i) {
        sum += double(a[i]) * double(b[i]);
    }
    return sum;
}

// The best normalized cross-correlation of `reference` inside `signal`: first
// aligned coarsely on 10-ms energy envelopes, then sample by sample.
double bestCorrelation(const Samples& signal, const Samples& reference)
{
    if (signal.size() < reference.size()) {
        return 0;
    }
    constexpr size_t frame = 160;
    const auto envelope = [](const Samples& x) {
        std::vector<float> e(x.size() / frame);
        for (size_t f = 0; f < e.size(); ++f) {
            e[f] = static_cast<float>(std::sqrt(dot(&x[f * frame], &x[f * frame], frame)));
        }
        return e;
    };
    const std::vector<float> es = envelope(signal);
    const std::vector<float> er = envelope(reference);
    size_t coarse = 0;
    double bestEnvelope = -1;
    for (size_t lag = 0; lag + er.size() <= es.size(); ++lag) {
        const double c = dot(&es[lag], er.data(), er.size()) /
                         std::sqrt(dot(&es[lag], &es[lag], er.size()) + 1e-12);
        if (c > bestEnvelope) {
            bestEnvelope = c;
            coarse = lag * frame;
        }
    }
    const double referenceNorm =
        std::sqrt(dot(reference.data(), reference.data(), reference.size()));
    double best = 0;
    const size_t from = coarse > 2 * frame ? coarse - 2 * frame : 0;
    for (size_t lag = from; lag <= coarse + 2 * frame && lag + reference.size() <= signal.size();
         ++lag) {
        const double norm = std::sqrt(dot(&signal[lag], &signal[lag], reference.size()));
        best = std::max(best, dot(&signal[lag], reference.data(), reference.size()) /
                                  (norm * referenceNorm + 1e-12));
    }
    return best;
}

// Frequency of a steady tone from its zero crossings.
double toneFrequency(const Samples& samples)
{
    size_t crossings = 0;
    for (size_t i = 1; i < samples.size(); ++i) {
        crossings += (samples[i - 1] < 0) != (samples[i] < 0) ? 1 : 0;
    }
    return double(crossings) / 2.0 / (double(samples.size()) / targetSampleRate);
}

} // namespace

// A call on a real PulseAudio server: speech played into the default output,
// a tone into the virtual microphone.
class CallOnSoundServerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void speechAndToneThroughTheWholePipeline()
    {
        PulseAudioServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        TemporaryHome home;
        SettingsStore settings(home.path() + u"/settings.json"_s);
        const QString tonePath = home.path() + u"/tone.wav"_s;
        QVERIFY(PulseAudioServer::makeTone(tonePath, 440, PulseAudioServer::microphoneRate, 20));
        const QString speechPath = TestPaths::sharedTestData() + u"/speech/jfk.wav"_s;
        const Samples reference = readPcm16Wav(speechPath);
        QCOMPARE(reference.size(), size_t(176000));

        PulseCaptureBackend capture;
        CallController::Options options;
        options.whisperInputPath = home.path() + u"/whisper_input.wav"_s;
        CallController controller(capture, settings, options);
        QSignalSpy started(&controller, &CallController::captureStarted);
        QList<CallChunk> chunks;
        connect(&controller, &CallController::chunkTaken, this,
                [&chunks](const CallChunk& chunk) { chunks.append(chunk); });

        QVERIFY(controller.startCall());
        QVERIFY(started.wait(10000));
        QCOMPARE(started.first().first().toString(), QString());
        const auto tone = server.startPlaying(
            tonePath, QString::fromLatin1(PulseAudioServer::microphoneFeedSink));
        // The speech starts once audio flows, so all of it is captured.
        QTRY_VERIFY_WITH_TIMEOUT(!chunks.isEmpty(), 10000);
        const auto speech =
            server.startPlaying(speechPath, QString::fromLatin1(PulseAudioServer::callOutputSink));
        QTRY_VERIFY_WITH_TIMEOUT(speech->state() == QProcess::NotRunning, 30000);
        // A chunk after the speech ended carries its tail.
        const qsizetype taken = chunks.size();
        QTRY_VERIFY_WITH_TIMEOUT(chunks.size() > taken, 10000);
        controller.endCall();
        QVERIFY(controller.callModel().audioLevel == 0.0F);

        Samples system;
        Samples microphone;
        for (const CallChunk& chunk : chunks) {
            system.insert(system.end(), chunk.system.begin(), chunk.system.end());
            microphone.insert(microphone.end(), chunk.microphone.begin(), chunk.microphone.end());
        }
        const double correlation = bestCorrelation(system, reference);
        qInfo("speech correlation after alignment: %.4f", correlation);
        QVERIFY2(correlation >= 0.9, qPrintable(u"correlation %1"_s.arg(correlation)));

        // The tone, away from where it starts and stops.
        QVERIFY(microphone.size() > 5 * 16000);
        const Samples steady(microphone.end() - 3 * 16000, microphone.end() - 16000);
        QVERIFY2(std::abs(toneFrequency(steady) - 440.0) < 5.0,
                 qPrintable(u"tone at %1 Hz"_s.arg(toneFrequency(steady))));

        // Every chunk holding both sides is 0.7 × microphone + 0.3 × system, up
        // to the normalization gain: fit both weights by least squares.
        int checked = 0;
        for (const CallChunk& chunk : chunks) {
            const size_t n = chunk.samples.size();
            Samples m = chunk.microphone;
            Samples s = chunk.system;
            m.resize(n);
            s.resize(n);
            const double mm = dot(m.data(), m.data(), n);
            const double ss = dot(s.data(), s.data(), n);
            const double ms = dot(m.data(), s.data(), n);
            if (mm < 1.0 || ss < 1.0) {
                continue; // one side silent in this chunk
            }
            const double my = dot(m.data(), chunk.samples.data(), n);
            const double sy = dot(s.data(), chunk.samples.data(), n);
            const double determinant = mm * ss - ms * ms;
            const double a = (my * ss - sy * ms) / determinant;
            const double b = (sy * mm - my * ms) / determinant;
            QVERIFY2(std::abs(a / chunk.gain - 0.7) < 1e-3 && std::abs(b / chunk.gain - 0.3) < 1e-3,
                     qPrintable(u"weights %1 and %2"_s.arg(a / chunk.gain).arg(b / chunk.gain)));
            ++checked;
        }
        QVERIFY(checked >= 2);

        // whisper_input.wav holds the last chunk.
        const Samples stored = readPcm16Wav(options.whisperInputPath);
        const Samples& last = chunks.last().samples;
        QCOMPARE(stored.size(), last.size());
        for (size_t i = 0; i < last.size(); ++i) {
            QVERIFY(std::abs(stored[i] - last[i]) < 2.0F / 32767.0F);
        }
        tone->kill();
    }
};

QTEST_GUILESS_MAIN(CallOnSoundServerTest)
#include "CallOnSoundServerTest.moc"

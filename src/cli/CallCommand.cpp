// quillmoss call: a headless call on the real sound server.
#include "app/AppPaths.h"
#include "capture/CallController.h"
#include "capture/ModelDownloader.h"
#include "capture/PulseCaptureBackend.h"
#include "capture/TranscriptionViewModel.h"
#include "cli/Cli.h"
#include "cli/InterruptWatcher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const auto usage = u"call --live --no-backend [--duration S] [--model NAME|PATH]\n"_s;

QString meter(float level)
{
    constexpr int width = 30;
    // A speaking voice sits around 0.05–0.3 RMS: show it on a square-root scale.
    const int filled = std::clamp(static_cast<int>(std::sqrt(level) * width), 0, width);
    return u'[' + QString(filled, u'#') + QString(width - filled, u' ') + u']';
}

class HeadlessCall : public QObject
{
public:
    HeadlessCall(CliContext& context, CallController& controller, double durationSeconds)
        : m_context(context), m_controller(controller), m_terminal(isatty(STDOUT_FILENO) != 0)
    {
        connect(&m_controller, &CallController::chunkTaken, this, &HeadlessCall::printChunk);
        connect(&m_controller, &CallController::captureStarted, this,
                &HeadlessCall::handleCaptureStarted);
        connect(m_controller.transcriptionViewModel(),
                &TranscriptionViewModel::transcriptionTextChanged, this,
                &HeadlessCall::printTranscript);
        connect(&m_controller, &CallController::callModelChanged, this, &HeadlessCall::printLevel);
        connect(&m_controller, &CallController::initializationChanged, this, [this] {
            emitLine(u"model"_s,
                     {{u"status"_s, m_controller.initializationStatus()},
                      {u"progress"_s, m_controller.initializationProgress()}},
                     m_controller.initializationStatus());
        });
        connect(&m_interrupts, &InterruptWatcher::interrupted, this, [this] { finish(ExitDone); });
        if (durationSeconds > 0) {
            QTimer::singleShot(static_cast<int>(durationSeconds * 1000), this,
                               [this] { finish(ExitDone); });
        }
    }

    int exitCode() const { return m_exitCode; }

private:
    void handleCaptureStarted(const QString& error)
    {
        if (!error.isEmpty()) {
            m_context.err << u"quillmoss: the call cannot record: "_s << error << Qt::endl;
            finish(ExitFailed);
            return;
        }
        m_recording = true;
        emitLine(u"live"_s, {},
                 u"● Live: recording the system audio and the microphone "
                 u"(Ctrl-C ends the call)"_s);
    }

    void printChunk(const CallChunk& chunk)
    {
        const double seconds = static_cast<double>(chunk.samples.size()) / targetSampleRate;
        emitLine(u"chunk"_s,
                 {{u"seconds"_s, seconds},
                  {u"microphoneSamples"_s, static_cast<double>(chunk.microphone.size())},
                  {u"systemSamples"_s, static_cast<double>(chunk.system.size())},
                  {u"peak"_s, chunk.peak},
                  {u"gain"_s, chunk.gain}},
                 u"chunk %1 s (microphone %2, system %3 samples) peak %4 gain %5"_s
                     .arg(seconds, 0, 'f', 2)
                     .arg(chunk.microphone.size())
                     .arg(chunk.system.size())
                     .arg(chunk.peak, 0, 'f', 3)
                     .arg(chunk.gain, 0, 'f', 2));
    }

    void printTranscript()
    {
        const QString text = m_controller.transcriptionViewModel()->transcriptionText();
        if (text.size() <= m_printedTranscript) {
            m_printedTranscript = text.size(); // cleared
            return;
        }
        const QString added = text.mid(m_printedTranscript).trimmed();
        m_printedTranscript = text.size();
        emitLine(u"transcript"_s, {{u"text"_s, added}}, u"» "_s + added);
    }

    void printLevel()
    {
        const CallModel model = m_controller.callModel();
        if (!model.isLive || !m_recording) {
            return;
        }
        if (m_terminal && !m_context.json) {
            m_context.out << u"\r\033[K"_s << meter(model.audioLevel)
                          << (model.isAudioCapturing ? u" speaking"_s : u""_s) << Qt::flush;
            m_meterShown = true;
            return;
        }
        // Not a terminal: a level line a second is plenty.
        const qint64 second = static_cast<qint64>(model.duration);
        if (second != m_lastLevelSecond) {
            m_lastLevelSecond = second;
            emitLine(u"level"_s,
                     {{u"level"_s, model.audioLevel}, {u"capturing"_s, model.isAudioCapturing}},
                     u"level %1%2"_s.arg(model.audioLevel, 0, 'f', 3)
                         .arg(model.isAudioCapturing ? u" speaking"_s : u""_s));
        }
    }

    void emitLine(const QString& event, QJsonObject fields, const QString& text)
    {
        if (m_meterShown) {
            m_context.out << u"\r\033[K"_s;
            m_meterShown = false;
        }
        if (m_context.json) {
            fields.insert(u"event"_s, event);
            m_context.out << QJsonDocument(fields).toJson(QJsonDocument::Compact) << Qt::endl;
        } else {
            m_context.out << text << Qt::endl;
        }
    }

    void finish(int exitCode)
    {
        if (m_finished) {
            return;
        }
        m_finished = true;
        m_exitCode = exitCode;
        m_controller.endCall();
        emitLine(u"ended"_s, {}, u"Call ended"_s);
        QCoreApplication::exit(exitCode);
    }

    CliContext& m_context;
    CallController& m_controller;
    InterruptWatcher m_interrupts;
    const bool m_terminal;
    bool m_recording = false;
    bool m_meterShown = false;
    bool m_finished = false;
    int m_exitCode = ExitDone;
    qsizetype m_printedTranscript = 0;
    qint64 m_lastLevelSecond = -1;
};

int run(CliContext& context, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addOptions({
        {u"live"_s, u"Record the system audio and the microphone."_s},
        {u"no-backend"_s, u"Run the call locally, without the backend session."_s},
        {u"duration"_s, u"End the call after S seconds."_s, u"S"_s},
        {u"model"_s, u"Speech model: a catalogue name or a model file."_s, u"NAME|PATH"_s},
    });
    if (!parser.parse(QStringList{u"call"_s} + arguments)) {
        return context.usageError(parser.errorText(), usage);
    }
    bool durationOk = true;
    const double duration =
        parser.isSet(u"duration"_s) ? parser.value(u"duration"_s).toDouble(&durationOk) : 0.0;
    if (!durationOk || duration < 0) {
        return context.usageError(u"--duration takes a number of seconds"_s, usage);
    }
    if (!parser.isSet(u"live"_s)) {
        return context.usageError(u"say where the call's audio comes from: --live"_s, usage);
    }
    if (!parser.isSet(u"no-backend"_s)) {
        return context.fail(u"calls with the backend session are not available in this build "
                            u"yet; run the call locally with --no-backend"_s);
    }

    // The model: a file as given, a catalogue name already downloaded, or by
    // default the call model, downloaded when missing (as the app does at start).
    ModelDownloader downloader(context.modelBaseUrl);
    const QString model = parser.value(u"model"_s);
    QString modelFile;
    if (!model.isEmpty()) {
        QString error;
        const std::optional<QString> file = downloader.localModelFile(model, &error);
        if (!file) {
            return context.fail(error);
        }
        modelFile = *file;
    }

    PulseCaptureBackend capture;
    CallController controller(capture, context.settings());
    HeadlessCall call(context, controller, duration);
    controller.initializeModels(downloader, modelFile);
    controller.startCall();
    const int exitCode = QCoreApplication::exec();
    // The controller stops capture when it goes; the last chunk's file is
    // complete by then.
    return exitCode;
}

} // namespace

Subcommand callSubcommand()
{
    return {u"call"_s, u"Hold a call from the command line."_s, usage, run};
}

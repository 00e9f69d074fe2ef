// quillmoss call: a headless call, recorded from the sound server, played from
// a recording or replayed from a transcript, with the backend session or without.
#include "audio/PulseCaptureBackend.h"
#include "audio/ReplayCaptureBackend.h"
#include "call/CallController.h"
#include "call/TranscriptionViewModel.h"
#include "chat/ChatController.h"
#include "cli/CallChat.h"
#include "cli/Cli.h"
#include "core/InterruptWatcher.h"
#include "models/ModelDownloader.h"
#include "session/SocketController.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <memory>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const auto usage =
    u"call --live | --audio FILE | --transcript FILE [--pace S] [--no-backend] [--duration S]\n"
    u"     [--model NAME|PATH] [--agent-mode] [--ask TEXT]... [--approve all|none]\n"
    u"     [--export-chat FILE] [--mcp NAME]...\n"_s;

// After a transcript's last line or a recording's end: time for the backend's answers.
constexpr int answerGraceMs = 5000;
// A transcript replay (and the questions) start when the session is ready, or
// after this long without one.
constexpr int sessionWaitMs = 15000;

// "Name: text" gives the line a speaker; anything else is the user's own speech.
std::pair<std::optional<QString>, QString> splitSpeaker(const QString& line)
{
    static const QRegularExpression speaker(u"^([^:\\d][^:]{0,39}):\\s+(.+)$"_s);
    const auto match = speaker.match(line);
    if (!match.hasMatch())
        return {std::nullopt, line};
    return {match.captured(1).trimmed(), match.captured(2).trimmed()};
}

QString compact(const QJsonArray& items)
{
    const QJsonValue first = items.isEmpty() ? QJsonValue() : items.first();
    if (first.isObject())
        return QString::fromUtf8(QJsonDocument(first.toObject()).toJson(QJsonDocument::Compact));
    if (first.isString())
        return first.toString();
    return QString::fromUtf8(QJsonDocument(items).toJson(QJsonDocument::Compact));
}

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
    HeadlessCall(CliContext& context, CallController& controller, double durationSeconds,
                 QString source)
        : m_context(context), m_controller(controller), m_terminal(isatty(STDOUT_FILENO) != 0),
          m_source(std::move(source))
    {
        connect(&m_controller, &CallController::chunkTaken, this, &HeadlessCall::printChunk);
        connect(&m_controller, &CallController::captureStarted, this,
                &HeadlessCall::handleCaptureStarted);
        connect(m_controller.transcriptionViewModel(),
                &TranscriptionViewModel::transcriptionTextChanged, this,
                &HeadlessCall::printTranscript);
        connect(m_controller.transcriptionViewModel(), &TranscriptionViewModel::serverSegmentsAdded,
                this, &HeadlessCall::printServerSegments);
        connect(&m_controller, &CallController::callModelChanged, this, &HeadlessCall::printLevel);
        connect(&m_controller, &CallController::initializationChanged, this, [this] {
            emitLine(u"model"_s,
                     {{u"status"_s, m_controller.initializationStatus()},
                      {u"progress"_s, m_controller.initializationProgress()}},
                     m_controller.initializationStatus());
        });
        connect(&m_controller, &CallController::sessionStateChanged, this, [this] {
            const QString status = m_controller.serverStatusText();
            if (status != m_serverStatus && !status.isEmpty())
                emitLine(u"server"_s, {{u"status"_s, status}}, u"⚠ "_s + status);
            m_serverStatus = status;
        });
        connect(&m_interrupts, &InterruptWatcher::interrupted, this, [this] { finish(ExitDone); });
        if (durationSeconds > 0) {
            QTimer::singleShot(static_cast<int>(durationSeconds * 1000), this,
                               [this] { finish(ExitDone); });
        }
    }

    int exitCode() const { return m_exitCode; }

    // Prints the session's state and every event from the backend.
    void watchSession(SocketController& session, bool agentMode)
    {
        m_session = &session;
        auto printState = [this] {
            const QString state = m_session->sessionReady()  ? u"ready"_s
                                  : m_session->isConnected() ? u"connected"_s
                                                             : u"idle"_s;
            if (state == m_sessionState)
                return;
            m_sessionState = state;
            emitLine(u"session"_s, {{u"state"_s, state}}, u"◆ session "_s + state);
        };
        connect(&session, &SocketController::isConnectedChanged, this, printState);
        connect(&session, &SocketController::sessionReadyChanged, this, printState);
        connect(&session, &SocketController::sessionReadyChanged, this, [this, agentMode] {
            if (!m_session->sessionReady())
                return;
            if (agentMode && !m_agentModeSent) {
                m_agentModeSent = true;
                m_controller.setAgentMode(true, m_controller.callModel().agentSuggestionIntervalMs);
                m_controller.sendAgentSettings();
            }
            startReplay();
            if (m_chat)
                m_chat->start();
        });
        connect(&session, &SocketController::eventReceived, this,
                [this](const QString& event, const QJsonArray& items) {
                    emitLine(u"received"_s,
                             {{u"name"_s, event},
                              {u"payload"_s, items.isEmpty() ? QJsonValue() : items.first()}},
                             u"← "_s + event + u": "_s + compact(items));
                });
    }

    // Replays `lines` as live speech, one every `pace` seconds, once the session
    // is ready (or without it); the call ends after the last line and a grace period.
    void replayTranscript(QStringList lines, double paceSeconds, bool waitForSession)
    {
        m_lines = std::move(lines);
        m_paceMs = static_cast<int>(paceSeconds * 1000);
        if (waitForSession)
            QTimer::singleShot(sessionWaitMs, this, [this] { startReplay(); });
        else
            startReplay();
    }

    // Ends the call once the recording has played, after a grace period.
    void endAfter(std::chrono::milliseconds length)
    {
        QTimer::singleShot(static_cast<int>(length.count()) + answerGraceMs, this,
                           [this] { sourceDone(); });
    }

    // Asks `questions` of the assistant once the session is ready, one at a
    // time; a call that would end keeps going until each is answered. The
    // conversation goes to `exportFile` (unless empty) as the call ends.
    void holdChat(ChatController& chat, QStringList questions, CallChat::Approval approval,
                  QString exportFile)
    {
        m_chatController = &chat;
        m_exportFile = std::move(exportFile);
        m_chat = std::make_unique<CallChat>(
            *chat.chatModel(), std::move(questions), approval,
            [this](const QString& event, const QJsonObject& fields, const QString& text) {
                emitLine(event, fields, text);
            });
        connect(m_chat.get(), &CallChat::finished, this, &HeadlessCall::finishWhenDone);
        // Without a session the questions time out, rather than wait forever.
        QTimer::singleShot(sessionWaitMs, this, [this] { m_chat->start(); });
    }

private:
    void startReplay()
    {
        if (m_replayStarted || m_lines.isEmpty())
            return;
        m_replayStarted = true;
        sendNextLine();
    }

    void sendNextLine()
    {
        if (m_finished)
            return;
        if (m_nextLine >= m_lines.size()) {
            QTimer::singleShot(answerGraceMs, this, [this] { sourceDone(); });
            return;
        }
        const auto [speaker, text] = splitSpeaker(m_lines.at(m_nextLine++));
        if (speaker) {
            // Attributed speech: shown here, and sent with its speaker.
            emitLine(u"transcript"_s, {{u"speaker"_s, *speaker}, {u"text"_s, text}},
                     u"» "_s + *speaker + u": "_s + text);
            m_shownSpeech = text;
            if (m_session && m_session->isConnected()) {
                m_session->sendClientTranscription(
                    text, false, speaker, CallController::transcriptionConfidence, std::nullopt);
                noteSent(text);
            }
        } else {
            // The user's own speech takes the path of recognized text.
            m_controller.handleRecognizedText(text);
            if (m_session && m_session->isConnected())
                noteSent(text);
        }
        QTimer::singleShot(m_paceMs, this, [this] { sendNextLine(); });
    }

    void noteSent(const QString& text)
    {
        if (m_session->sessionReady())
            emitLine(u"sent"_s, {{u"name"_s, u"clientTranscription"_s}, {u"text"_s, text}},
                     u"→ clientTranscription: "_s + text);
    }

    void handleCaptureStarted(const QString& error)
    {
        if (!error.isEmpty()) {
            m_context.err << u"quillmoss: the call cannot record: "_s << error << Qt::endl;
            finish(ExitFailed);
            return;
        }
        m_recording = m_source.isEmpty(); // a level worth showing
        emitLine(u"live"_s, {},
                 m_source.isEmpty() ? u"● Live: recording the system audio and the microphone "
                                      u"(Ctrl-C ends the call)"_s
                                    : u"● Live: "_s + m_source + u" (Ctrl-C ends the call)"_s);
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

    // The backend's processed segments, final ones only, with their speakers.
    void printServerSegments(const QList<TranscriptionSegment>& segments)
    {
        for (const TranscriptionSegment& segment : segments) {
            if (segment.isPartial || segment.text == m_shownSpeech)
                continue; // the backend's copy of a line shown with its speaker already
            emitLine(u"transcript"_s, {{u"speaker"_s, segment.speaker}, {u"text"_s, segment.text}},
                     u"» "_s + segment.speaker + u": "_s + segment.text);
        }
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

    // The transcript or the recording has played.
    void sourceDone()
    {
        m_sourceDone = true;
        finishWhenDone();
    }

    void finishWhenDone()
    {
        if (m_sourceDone && (!m_chat || m_chat->isFinished()))
            finish(ExitDone);
    }

    void finish(int exitCode)
    {
        if (m_finished) {
            return;
        }
        m_finished = true;
        m_exitCode = exitCode;
        if (m_chat)
            m_chat->stop();
        // Before the call ends: the conversation goes with it.
        if (m_chatController && !m_exportFile.isEmpty()) {
            const QString error =
                m_chatController->exportConversation(QUrl::fromLocalFile(m_exportFile));
            if (!error.isEmpty()) {
                m_context.err << u"quillmoss: "_s << error << Qt::endl;
                m_exitCode = exitCode = ExitFailed;
            }
        }
        m_controller.endCall();
        emitLine(u"ended"_s, {}, u"Call ended"_s);
        SocketIoClient* socket = m_session ? m_session->socket() : nullptr;
        if (socket == nullptr || socket->status() != SocketIoClient::Status::Disconnected) {
            // Let the socket's goodbye leave before the program does.
            QTimer::singleShot(socket ? 500 : 0, qApp,
                               [exitCode] { QCoreApplication::exit(exitCode); });
            return;
        }
        QCoreApplication::exit(exitCode);
    }

    CliContext& m_context;
    CallController& m_controller;
    InterruptWatcher m_interrupts;
    const bool m_terminal;
    const QString m_source; // what plays instead of the sound server; empty: recording
    QString m_shownSpeech;
    QPointer<SocketController> m_session;
    QPointer<ChatController> m_chatController;
    std::unique_ptr<CallChat> m_chat;
    QString m_exportFile;
    bool m_sourceDone = false;
    QString m_sessionState = u"idle"_s;
    QString m_serverStatus;
    bool m_agentModeSent = false;
    QStringList m_lines;
    qsizetype m_nextLine = 0;
    int m_paceMs = 3000;
    bool m_replayStarted = false;
    bool m_recording = false;
    bool m_meterShown = false;
    bool m_finished = false;
    int m_exitCode = ExitDone;
    qsizetype m_printedTranscript = 0;
    qint64 m_lastLevelSecond = -1;
};

std::optional<QStringList> readTranscript(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *error = u"cannot read %1: %2"_s.arg(path, file.errorString());
        return std::nullopt;
    }
    QStringList lines;
    for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
        if (!line.trimmed().isEmpty())
            lines << line.trimmed();
    }
    if (lines.isEmpty()) {
        *error = u"%1 holds no lines to replay"_s.arg(path);
        return std::nullopt;
    }
    return lines;
}

int run(CliContext& context, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addOptions({
        {u"live"_s, u"Record the system audio and the microphone."_s},
        {u"audio"_s, u"Play a recording through the call, in real time."_s, u"FILE"_s},
        {u"transcript"_s, u"Replay a text file as live speech, a line at a time."_s, u"FILE"_s},
        {u"pace"_s, u"Seconds between transcript lines (default 3)."_s, u"S"_s},
        {u"no-backend"_s, u"Run the call locally, without the backend session."_s},
        {u"duration"_s, u"End the call after S seconds."_s, u"S"_s},
        {u"model"_s, u"Speech model: a catalogue name or a model file."_s, u"NAME|PATH"_s},
        {u"agent-mode"_s, u"Switch agent mode on once the session is ready."_s},
        {u"ask"_s, u"Ask the assistant TEXT once the session is ready (repeatable)."_s, u"TEXT"_s},
        {u"approve"_s, u"Tools the assistant asks for: run all, or none (default)."_s,
         u"all|none"_s, u"none"_s},
        {u"export-chat"_s, u"Write the conversation as Markdown to FILE as the call ends."_s,
         u"FILE"_s},
        {u"mcp"_s,
         u"Connect this remote MCP server before the call, so that the assistant may ask for its "
         u"tools (repeatable)."_s,
         u"NAME"_s},
    });
    if (const auto wrong = context.parseOptionsOnly(parser, u"call"_s, arguments, usage))
        return *wrong;
    bool durationOk = true;
    const double duration =
        parser.isSet(u"duration"_s) ? parser.value(u"duration"_s).toDouble(&durationOk) : 0.0;
    if (!durationOk || duration < 0) {
        return context.usageError(u"--duration takes a number of seconds"_s, usage);
    }
    bool paceOk = true;
    const double pace = parser.isSet(u"pace"_s) ? parser.value(u"pace"_s).toDouble(&paceOk) : 3.0;
    if (!paceOk || pace < 0) {
        return context.usageError(u"--pace takes a number of seconds"_s, usage);
    }
    const int sources = int(parser.isSet(u"live"_s)) + int(parser.isSet(u"audio"_s)) +
                        int(parser.isSet(u"transcript"_s));
    if (sources != 1) {
        return context.usageError(
            u"say where the call comes from: one of --live, --audio FILE, --transcript FILE"_s,
            usage);
    }
    const bool withBackend = !parser.isSet(u"no-backend"_s);
    if (parser.isSet(u"agent-mode"_s) && !withBackend) {
        return context.usageError(u"--agent-mode needs the backend session"_s, usage);
    }
    const QStringList questions = parser.values(u"ask"_s);
    if (!questions.isEmpty() && !withBackend) {
        return context.usageError(u"--ask needs the backend session: the assistant answers there"_s,
                                  usage);
    }
    if (std::any_of(questions.cbegin(), questions.cend(),
                    [](const QString& question) { return question.trimmed().isEmpty(); })) {
        return context.usageError(u"--ask takes a question"_s, usage);
    }
    const QString approve = parser.value(u"approve"_s);
    if (approve != u"all"_s && approve != u"none"_s) {
        return context.usageError(u"--approve takes all or none"_s, usage);
    }
    const bool holdsChat =
        !questions.isEmpty() || parser.isSet(u"approve"_s) || parser.isSet(u"export-chat"_s);

    std::optional<QStringList> lines;
    if (parser.isSet(u"transcript"_s)) {
        QString error;
        lines = readTranscript(parser.value(u"transcript"_s), &error);
        if (!lines)
            return context.fail(error);
    }
    std::unique_ptr<CaptureBackend> capture;
    std::chrono::milliseconds recordingLength{0};
    if (parser.isSet(u"audio"_s)) {
        QString error;
        auto replay = ReplayCaptureBackend::open(parser.value(u"audio"_s), &error);
        if (!replay)
            return context.fail(error);
        recordingLength = replay->duration();
        capture = std::move(replay);
    } else if (lines) {
        capture = std::make_unique<ReplayCaptureBackend>(); // no sound server needed
    } else {
        capture = std::make_unique<PulseCaptureBackend>();
    }

    const auto services = context.makeServices([&](Services::Options& options) {
        options.makeCapture = [&capture] { return std::move(capture); };
        options.callsUseBackend = withBackend;
    });
    // Before the session starts: its first tool document carries their tools.
    if (const std::optional<QString> error =
            connectMcpIntegrations(*services, parser.values(u"mcp"_s)))
        return context.fail(error.value());
    // The model: a file as given, a catalogue name already downloaded, or by
    // default the call model, downloaded when missing (as the app does at start).
    ModelDownloader& downloader = services->modelDownloader();
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

    CallController& controller = services->callController();
    const QString source = parser.isSet(u"audio"_s) ? u"playing "_s + parser.value(u"audio"_s)
                           : lines ? u"replaying "_s + parser.value(u"transcript"_s)
                                   : QString();
    HeadlessCall call(context, controller, duration, source);
    if (holdsChat) {
        call.holdChat(services->chat(), questions,
                      approve == u"all"_s ? CallChat::Approval::All : CallChat::Approval::None,
                      parser.value(u"export-chat"_s));
    }
    if (auto* session = dynamic_cast<SocketController*>(controller.session()))
        call.watchSession(*session, parser.isSet(u"agent-mode"_s));
    if (!lines) {
        controller.initializeModels(downloader, modelFile);
    }
    if (!controller.startCall()) {
        return context.fail(u"the call could not start"_s);
    }
    if (lines) {
        call.replayTranscript(*lines, pace, withBackend);
    } else if (recordingLength.count() > 0) {
        call.endAfter(recordingLength);
    }
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

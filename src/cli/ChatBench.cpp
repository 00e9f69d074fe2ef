#include "cli/ChatBench.h"

#include "audio/ReplayCaptureBackend.h"
#include "call/CallController.h"
#include "chat/ChatController.h"
#include "chat/ChatSession.h"
#include "chat/ChatViewModel.h"
#include "cli/BenchSupport.h"
#include "cli/Cli.h"
#include "session/SocketController.h"
#include "store/KeychainManager.h"
#include "tools/LocalToolManager.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const auto usage = u"bench chat [--count N]\n"_s;

// What a salesperson asks during a call; none of it asks for a tool.
const QStringList questions = {
    u"Summarize the key points from this call"_s,
    u"What are the next steps?"_s,
    u"What follow-up actions should I take?"_s,
    u"What topics have we covered so far?"_s,
    u"How is the call going?"_s,
    u"What did they say about pricing?"_s,
};

// The backend as the chat sees it, answering nothing: the benchmark hands the
// answers in itself, at once.
class StandInSession : public ChatSession
{
public:
    bool isConnected() const override { return true; }
    bool sendChatMessage(const QString&) override { return true; }
    bool getChatHistory(int) override { return true; }
};

// A "chatResponse" as the backend sends it for a plain answer.
QJsonObject answerPayload(int index)
{
    const QString id = u"msg_%1"_s.arg(index);
    return {{u"success"_s, true},
            {u"id"_s, id},
            {u"messageId"_s, id},
            {u"content"_s, u"**Summary so far** (12 min)\n\nThe team forecasts in a spreadsheet "
                           u"and missed last quarter's commit by about eighteen percent.\n\n"
                           u"**Action items**\n- Send the field mapping guide (Friday)"_s},
            {u"role"_s, u"assistant"_s},
            {u"timestamp"_s, u"2025-03-04T10:15:30.000Z"_s},
            {u"isFromUser"_s, false},
            {u"processingTime"_s, 0.004},
            {u"type"_s, u"answer"_s}};
}

// The chat with no time-outs scheduled: nothing here waits for an answer.
struct ChatModelFixture
{
    LocalToolManager tools{KeychainManager::shared()};
    StandInSession session;
    ChatViewModel chat{tools,
                       [](std::chrono::milliseconds, QObject*, const std::function<void()>&) {}};

    ChatModelFixture() { chat.setSession(&session); }

    // Question and answer pairs until the conversation holds `messages`.
    void fill(int messages)
    {
        for (int i = 0; static_cast<int>(chat.messages().size()) < messages; ++i) {
            chat.sendMessage(questions.at(i % questions.size()));
            chat.handleChatResponse(answerPayload(i));
        }
    }
};

constexpr int conversationMessages = 1000;
// The conversation grows by two messages an iteration; it is brought back to
// its size this often, so that every send sees about the same conversation.
constexpr int refillEvery = 100;

// One question and its answer, with the conversation at about 1,000 messages.
void sendAndAnswer(benchmark::State& state)
{
    ChatModelFixture fixture;
    fixture.fill(conversationMessages);
    int sinceRefill = 0;
    int index = 0;
    while (state.KeepRunning()) {
        fixture.chat.sendMessage(questions.at(index % questions.size()));
        fixture.chat.handleChatResponse(answerPayload(index));
        ++index;
        if (++sinceRefill == refillEvery) {
            state.PauseTiming();
            fixture.chat.clear();
            fixture.fill(conversationMessages);
            sinceRefill = 0;
            state.ResumeTiming();
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// The Markdown export of a conversation of `messages`.
void exportMarkdown(benchmark::State& state, int messages)
{
    ChatModelFixture fixture;
    fixture.fill(messages);
    qsizetype bytes = 0;
    while (state.KeepRunning()) {
        const QString text = fixture.chat.exportMarkdown();
        bytes = text.size();
        benchmark::DoNotOptimize(text.constData());
    }
    state.SetItemsProcessed(state.iterations() * messages);
    state.counters["chars"] = double(bytes);
}

} // namespace

using BenchSupport::waitUntil;

void registerChatModelBenchmarks()
{
    benchmark::RegisterBenchmark("chat/send_and_answer/at_1000_messages", sendAndAnswer);
    benchmark::RegisterBenchmark("chat/export_markdown/1000_messages", exportMarkdown,
                                 conversationMessages);
}

int runChatBench(CliContext& context, const QStringList& options)
{
    QCommandLineParser parser;
    parser.addOption({u"count"_s, u"Chat messages to send."_s, u"N"_s, u"1000"_s});
    if (!parser.parse(QStringList{u"bench chat"_s} + options) ||
        !parser.positionalArguments().isEmpty())
        return context.usageError(parser.errorText(), usage);
    const std::optional<int> positive = BenchSupport::positiveCount(parser);
    if (!positive)
        return context.usageError(u"--count takes a positive number"_s, usage);
    const int count = *positive;

    // A call of its own, silent: only the chat is measured.
    const auto services = context.makeServices([](Services::Options& options) {
        options.makeCapture = [] { return std::make_unique<ReplayCaptureBackend>(); };
        options.callsUseBackend = true;
    });
    CallController& controller = services->callController();
    ChatViewModel& chat = *services->chat().chatModel();
    auto* session = dynamic_cast<SocketController*>(controller.session());
    if (!session)
        return context.fail(u"calls have no backend session"_s);

    QElapsedTimer clock;
    clock.start();
    if (!controller.startCall())
        return context.fail(u"the call could not start"_s);
    if (!waitUntil([&] { return session->sessionReady(); }, 20'000)) {
        controller.endCall();
        return context.fail(
            u"no session with the backend at %1 (signed in? run quillmoss login)"_s.arg(
                context.backendUrl.toString()));
    }
    const double readyMs = double(clock.nsecsElapsed()) / 1e6;
    for (const QString& line : BenchSupport::salesCallSentences())
        session->sendClientTranscription(line, false, std::nullopt, 0.95, std::nullopt);
    // The history the session asks for at start, and the lines' answers.
    waitUntil([] { return false; }, 800);

    // Each answer, timed when the chat appends it.
    std::vector<double> roundTrips;
    roundTrips.reserve(size_t(count));
    qint64 sentAt = 0;
    int answers = 0;
    int timeouts = 0;
    QStringList failures;
    QEventLoop* waiting = nullptr;
    QObject::connect(&chat, &ChatViewModel::messageInserted, &chat, [&](int row) {
        const ChatMessage& message = chat.messages().at(row);
        if (message.isFromUser || message.isLoading)
            return;
        ++answers;
        roundTrips.push_back(double(clock.nsecsElapsed() - sentAt) / 1e6);
        if (waiting)
            waiting->quit();
    });
    QObject::connect(&chat, &ChatViewModel::errorMessageChanged, &chat, [&] {
        const QString error = chat.errorMessage();
        if (error.isEmpty())
            return;
        // Every message's time-out watches the one loading flag: an earlier
        // message's may end the wait of a later one, whose answer still comes.
        if (error == u"Message timeout - please try again"_s) {
            ++timeouts;
            return;
        }
        failures.append(error);
        if (waiting)
            waiting->quit();
    });

    const qint64 rssBefore = BenchSupport::residentKilobytes();
    std::vector<double> sendMicroseconds;
    sendMicroseconds.reserve(size_t(count));
    clock.restart();
    for (int i = 0; i < count; ++i) {
        const int failuresBefore = static_cast<int>(failures.size());
        sentAt = clock.nsecsElapsed();
        chat.sendMessage(questions.at(i % questions.size()));
        sendMicroseconds.push_back(double(clock.nsecsElapsed() - sentAt) / 1e3);
        if (answers > i || failures.size() > failuresBefore)
            continue;
        QEventLoop loop;
        QTimer deadline;
        deadline.setSingleShot(true);
        QObject::connect(&deadline, &QTimer::timeout, &loop, &QEventLoop::quit);
        deadline.start(static_cast<int>(ChatViewModel::answerTimeout.count()) + 5000);
        waiting = &loop;
        loop.exec();
        waiting = nullptr;
    }
    const double totalSeconds = double(clock.nsecsElapsed()) / 1e9;
    const qint64 rssAfter = BenchSupport::residentKilobytes();
    const qsizetype messages = chat.messages().size();
    clock.restart();
    const QString exported = chat.exportMarkdown();
    const double exportMs = double(clock.nsecsElapsed()) / 1e6;

    controller.endCall();
    waitUntil([] { return false; }, 500); // the socket's goodbye

    std::sort(roundTrips.begin(), roundTrips.end());
    std::sort(sendMicroseconds.begin(), sendMicroseconds.end());
    double sendTotal = 0.0;
    for (const double each : sendMicroseconds)
        sendTotal += each;
    context.out
        << u"session ready after %1 ms\n"_s.arg(readyMs, 0, 'f', 1)
        << u"sent %1 chat messages in one call in %2 s: %3 messages/s (%4 answered, %5 failed, "
           u"%6 time-outs fired)\n"_s.arg(count)
               .arg(totalSeconds, 0, 'f', 3)
               .arg(double(count) / std::max(totalSeconds, 1e-9), 0, 'f', 1)
               .arg(answers)
               .arg(failures.size())
               .arg(timeouts)
        << u"round trip to the answer: p50 %1 ms, p95 %2 ms, p99 %3 ms, max %4 ms\n"_s
               .arg(BenchSupport::percentile(roundTrips, 0.50), 0, 'f', 2)
               .arg(BenchSupport::percentile(roundTrips, 0.95), 0, 'f', 2)
               .arg(BenchSupport::percentile(roundTrips, 0.99), 0, 'f', 2)
               .arg(roundTrips.empty() ? 0.0 : roundTrips.back(), 0, 'f', 2)
        << u"view model's send (question and placeholder appended): mean %1 µs, p99 %2 µs, "
           u"max %3 µs\n"_s
               .arg(sendTotal / double(std::max<size_t>(sendMicroseconds.size(), 1)), 0, 'f', 1)
               .arg(BenchSupport::percentile(sendMicroseconds, 0.99), 0, 'f', 1)
               .arg(sendMicroseconds.empty() ? 0.0 : sendMicroseconds.back(), 0, 'f', 1)
        << u"resident memory: %1 kB before, %2 kB after: %3 bytes per message sent\n"_s
               .arg(rssBefore)
               .arg(rssAfter)
               .arg(double(rssAfter - rssBefore) * 1024.0 / double(count), 0, 'f', 0)
        << u"export of the %1 messages as Markdown: %2 ms, %3 characters\n"_s.arg(messages)
               .arg(exportMs, 0, 'f', 2)
               .arg(exported.size())
        << Qt::flush;
    if (!failures.isEmpty())
        return context.fail(u"the assistant failed: "_s + failures.first());
    if (answers < count)
        return context.fail(
            u"%1 of %2 messages were not answered"_s.arg(count - answers).arg(count));
    return ExitDone;
}

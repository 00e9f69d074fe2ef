#include "cli/SessionBench.h"

#include "account/AuthenticationService.h"
#include "call/TranscriptionViewModel.h"
#include "cli/BenchSupport.h"
#include "cli/Cli.h"
#include "session/SessionFactory.h"
#include "session/SocketController.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const auto usage = u"bench session [--count N]\n"_s;

double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

using BenchSupport::waitUntil;

int runSessionBench(CliContext& context, const QStringList& options)
{
    QCommandLineParser parser;
    parser.addOption({u"count"_s, u"Transcription events to send."_s, u"N"_s, u"500"_s});
    if (!parser.parse(QStringList{u"bench session"_s} + options) ||
        !parser.positionalArguments().isEmpty())
        return context.usageError(parser.errorText(), usage);
    const std::optional<int> positive = BenchSupport::positiveCount(parser);
    if (!positive)
        return context.usageError(u"--count takes a positive number"_s, usage);
    const int count = *positive;

    const auto services = context.makeServices();
    AuthenticationService* authentication = &services->authService();
    TranscriptionViewModel transcript;
    SocketController session(
        context.backendUrl, QString(), &transcript, SessionSettings::defaultLocalToolsConfig(),
        {[authentication] { return authentication->getValidAccessToken(); }, [] {}});

    std::vector<qint64> sentAt;
    std::vector<double> roundTrips;
    qsizetype received = 0;
    QElapsedTimer clock;
    QObject::connect(&session, &SocketController::eventReceived, &session,
                     [&](const QString& event, const QJsonArray&) {
                         ++received;
                         if (event == u"clientTranscriptionProcessed"_s &&
                             roundTrips.size() < sentAt.size())
                             roundTrips.push_back(
                                 double(clock.nsecsElapsed() - sentAt[roundTrips.size()]) / 1e6);
                     });

    clock.start();
    session.connect();
    if (!waitUntil([&] { return session.sessionReady(); }, 20'000))
        return context.fail(
            u"no session with the backend at %1 (signed in? run quillmoss login)"_s.arg(
                context.backendUrl.toString()));
    const double readyMs = double(clock.nsecsElapsed()) / 1e6;
    waitUntil([] { return false; }, 600); // let the session's own first exchanges settle

    const qsizetype receivedBefore = received;
    const QStringList& sentences = BenchSupport::salesCallSentences();
    clock.restart();
    for (int i = 0; i < count; ++i) {
        sentAt.push_back(clock.nsecsElapsed());
        session.sendClientTranscription(sentences.at(i % sentences.size()), false, std::nullopt,
                                        0.95, std::nullopt);
    }
    const double sendSeconds = double(clock.nsecsElapsed()) / 1e9;
    const bool complete =
        waitUntil([&] { return roundTrips.size() >= static_cast<size_t>(count); }, 120'000);
    const double totalSeconds = double(clock.nsecsElapsed()) / 1e9;
    const qsizetype answers = received - receivedBefore;
    session.disconnect();
    waitUntil([] { return false; }, 300);

    context.out << u"session ready after %1 ms\n"_s.arg(readyMs, 0, 'f', 1)
                << u"sent     %1 clientTranscription events in %2 s: %3 events/s\n"_s.arg(count)
                       .arg(sendSeconds, 0, 'f', 3)
                       .arg(count / std::max(sendSeconds, 1e-9), 0, 'f', 0)
                << u"received %1 events in %2 s: %3 events/s (%4 of %5 answered)\n"_s.arg(answers)
                       .arg(totalSeconds, 0, 'f', 3)
                       .arg(double(answers) / std::max(totalSeconds, 1e-9), 0, 'f', 0)
                       .arg(roundTrips.size())
                       .arg(count)
                << u"round trip to clientTranscriptionProcessed: median %1 ms, last %2 ms\n"_s
                       .arg(median(roundTrips), 0, 'f', 1)
                       .arg(roundTrips.empty() ? 0.0 : roundTrips.back(), 0, 'f', 1)
                << Qt::flush;
    return complete ? ExitDone : context.fail(u"not every event was answered within 2 minutes"_s);
}

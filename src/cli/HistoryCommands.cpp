// quillmoss history | feedback: past calls and feedback from the command line,
// through the same services and texts as the app.
#include "account/CallHistoryService.h"
#include "account/CallPresentation.h"
#include "account/FeedbackService.h"
#include "cli/Cli.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

const auto historyUsage = u"history [--sort newest|oldest|duration|status] [--refresh]\n"
                          u"history show ID\n"
                          u"history export-actions ID\n"_s;

QString firstLine(const QString& text, int width)
{
    QString line = text.section(u'\n', 0, 0).simplified();
    if (line.size() > width)
        line = line.left(width - 1) + u'…';
    return line;
}

QString clock(double seconds)
{
    return CallPresentation::displayDuration(seconds);
}

void printList(CliContext& context, const QList<UserCallData>& calls)
{
    const QDateTime now = QDateTime::currentDateTime();
    for (const UserCallData& call : calls) {
        QString what;
        if (call.decryptionError)
            what = u"⚠ "_s + *call.decryptionError;
        else if (call.summary)
            what = firstLine(call.summary->content, 60);
        context.out << call.id << u"  "_s
                    << CallPresentation::displayDate(call.createdAt.moment.toLocalTime(), now)
                           .leftJustified(22)
                    << CallPresentation::displayDuration(call).rightJustified(8) << u"  "_s
                    << call.status.leftJustified(10) << call.direction.leftJustified(9) << what
                    << u'\n';
    }
    context.out << u"%1 calls. All calls are AES-256 encrypted at rest."_s.arg(calls.size())
                << Qt::endl;
}

void printCall(CliContext& context, const UserCallData& call)
{
    QTextStream& out = context.out;
    out << u"Call "_s << call.id << u'\n' << u"  When:      "_s
        << CallPresentation::displayDate(call.createdAt.moment.toLocalTime(),
                                         QDateTime::currentDateTime())
        << u'\n' << u"  Duration:  "_s << CallPresentation::displayDuration(call) << u'\n'
        << u"  Status:    "_s << call.status << u" ("_s << call.direction << u")\n"_s;
    if (call.decryptionError) {
        out << u"\n⚠ "_s << *call.decryptionError << Qt::endl;
        return;
    }
    if (call.summary) {
        const CallSummaryData& summary = *call.summary;
        out << u"\nSummary\n  "_s << summary.content << u'\n';
        if (!summary.sentiment.isEmpty())
            out << u"  Sentiment: "_s << summary.sentiment << u'\n';
        if (!summary.keyPoints.isEmpty()) {
            out << u"\nKey points\n"_s;
            for (const QString& point : summary.keyPoints)
                out << u"  • "_s << point << u'\n';
        }
        const QList<Topic> topics = summary.topicList();
        if (!topics.isEmpty()) {
            out << u"\nTopics\n"_s;
            for (const Topic& topic : topics)
                out << u"  %1 (importance %2, %3 mentions)\n"_s.arg(topic.topic)
                           .arg(topic.importance, 0, 'f', 2)
                           .arg(topic.mentions);
        }
        out << u'\n' << CallPresentation::actionItemsMarkdown(call) << u'\n';
    }
    if (call.transcription) {
        out << u"\nTranscript\n"_s;
        for (const CallTranscriptionSegment& segment : call.transcription->segments)
            out << u"  ["_s << clock(segment.startTime) << u"] "_s << segment.speaker << u": "_s
                << segment.text << u'\n';
    }
    out.flush();
}

int history(CliContext& context, const QStringList& arguments)
{
    CallPresentation::SortOrder order = CallPresentation::SortOrder::DateNewest;
    bool refresh = false;
    QString verb;
    QString id;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == u"--refresh"_s) {
            refresh = true;
        } else if (argument == u"--sort"_s && i + 1 < arguments.size()) {
            const auto parsed = CallPresentation::sortOrderFromCliName(arguments.at(++i));
            if (!parsed)
                return context.usageError(u"unknown sort order \"%1\""_s.arg(arguments.at(i)),
                                          historyUsage);
            order = *parsed;
        } else if (verb.isEmpty() && (argument == u"show"_s || argument == u"export-actions"_s) &&
                   i + 1 < arguments.size()) {
            verb = argument;
            id = arguments.at(++i);
        } else {
            return context.usageError(u"unexpected argument \"%1\""_s.arg(argument), historyUsage);
        }
    }

    const auto services = context.makeServices();
    CallHistoryService& service = services->callHistory();
    service.setSortOrder(order);
    const bool loaded =
        waitFor(refresh ? service.clearCacheAndRefresh() : service.loadCalls()).result();
    if (!loaded && service.calls().isEmpty())
        return context.fail(service.errorMessage());

    if (verb.isEmpty()) {
        if (context.json) {
            context.out << QJsonDocument(CallRecords::encodeCalls(service.sortedCalls()))
                               .toJson(QJsonDocument::Compact)
                        << Qt::endl;
        } else {
            printList(context, service.sortedCalls());
        }
        return ExitDone;
    }
    const std::optional<UserCallData> call = service.callById(id);
    if (!call)
        return context.fail(u"no call with the id \"%1\""_s.arg(id));
    if (verb == u"export-actions"_s) {
        context.out << service.exportActionItems(id) << Qt::endl;
    } else if (context.json) {
        context.out << QJsonDocument(CallRecords::encodeCalls({*call}).first().toObject())
                           .toJson(QJsonDocument::Compact)
                    << Qt::endl;
    } else {
        printCall(context, *call);
    }
    return ExitDone;
}

int feedback(CliContext& context, const QStringList& arguments)
{
    const QString usage =
        u"feedback --type %1 TEXT\n"_s.arg(FeedbackService::typeValues().join(u'|'));
    if (arguments.size() < 3 || arguments.first() != u"--type"_s)
        return context.usageError(u"feedback needs --type TYPE and the text"_s, usage);
    const QString& type = arguments.at(1);
    if (FeedbackService::displayName(type).isEmpty())
        return context.usageError(u"unknown feedback type \"%1\""_s.arg(type), usage);
    const QString text = arguments.mid(2).join(u' ');

    const auto services = context.makeServices();
    const FeedbackResult result = waitFor(services->feedback().submit(type, text)).result();
    if (!result.success)
        return context.fail(result.message);
    context.out << result.title << u": "_s << result.message << Qt::endl;
    return ExitDone;
}

} // namespace

Subcommand historySubcommand()
{
    return {u"history"_s, u"past calls from the backend"_s, historyUsage, history};
}

Subcommand feedbackSubcommand()
{
    return {
        u"feedback"_s, u"send feedback to the Quillmoss team"_s,
        u"feedback --type feature-request|bug-report|compliment|improvement|question|other TEXT\n"_s,
        feedback};
}

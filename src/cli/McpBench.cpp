#include "cli/McpBench.h"

#include "cli/BenchSupport.h"
#include "cli/Cli.h"
#include "mcp/AuthenticatedMCPTransport.h"
#include "protocol/McpClient.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <memory>
#include <numeric>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

const auto usage =
    u"bench mcp [--url URL] [--tool NAME] [--args JSON] [--count N]\n"
    u"  --url    the server's event stream (default: the backend's demo server, "
    u"<backend>/mcp/sse)\n"
    u"  --tool   the tool to call (default: search_calls)\n"
    u"  --args   its arguments as a JSON object (default: {\"query\": \"pricing\"})\n"
    u"  --count  calls to make (default: 200)\n"_s;

constexpr int answerWaitMs = 30'000;

// Waits on the event loop for one callback's answer.
template <typename T>
std::optional<T> await(const std::function<void(std::function<void(T)>)>& start)
{
    std::optional<T> answer;
    start([&answer](T value) { answer = std::move(value); });
    if (!BenchSupport::waitUntil([&answer] { return answer.has_value(); }, answerWaitMs))
        return std::nullopt;
    return answer;
}

double millisecondsSince(const QElapsedTimer& clock, qint64 start)
{
    return double(clock.nsecsElapsed() - start) / 1e6;
}

} // namespace

int runMcpBench(CliContext& context, const QStringList& options)
{
    QCommandLineParser parser;
    parser.addOption({u"url"_s, u"The server's event stream."_s, u"URL"_s});
    parser.addOption({u"tool"_s, u"The tool to call."_s, u"NAME"_s, u"search_calls"_s});
    parser.addOption({u"args"_s, u"Its arguments."_s, u"JSON"_s, u"{\"query\": \"pricing\"}"_s});
    parser.addOption({u"count"_s, u"Calls to make."_s, u"N"_s, u"200"_s});
    if (!parser.parse(QStringList{u"bench mcp"_s} + options) ||
        !parser.positionalArguments().isEmpty())
        return context.usageError(parser.errorText(), usage);
    bool countOk = false;
    const int count = parser.value(u"count"_s).toInt(&countOk);
    if (!countOk || count < 1)
        return context.usageError(u"--count takes a positive number"_s, usage);
    const QJsonDocument arguments = QJsonDocument::fromJson(parser.value(u"args"_s).toUtf8());
    if (!arguments.isObject())
        return context.usageError(u"--args takes a JSON object"_s, usage);
    QUrl url(parser.value(u"url"_s));
    if (!parser.isSet(u"url"_s)) {
        url = context.backendUrl;
        url.setPath(url.path().chopped(url.path().endsWith(u'/') ? 1 : 0) + u"/mcp/sse"_s);
    }
    if (!url.isValid() || !url.scheme().startsWith(u"http"_s))
        return context.usageError(u"--url takes an http(s) URL"_s, usage);
    const QString tool = parser.value(u"tool"_s);

    // The client and its transport alone: what is measured is the protocol's
    // way there and back, not the tool registry or the chat around it.
    McpClient client(std::make_unique<AuthenticatedMCPTransport>(url));
    QElapsedTimer clock;
    clock.start();
    using Outcome = std::optional<QString>;
    const std::optional<Outcome> connected = await<Outcome>(
        [&client](const std::function<void(Outcome)>& done) { client.connectToServer(done); });
    if (!connected || *connected)
        return context.fail(u"cannot connect to %1: %2"_s.arg(
            url.toString(), connected ? **connected : u"no answer"_s));
    const double connectMs = millisecondsSince(clock, 0);

    qint64 start = clock.nsecsElapsed();
    using Listed = McpResult<QList<McpTool>>;
    const std::optional<Listed> listed = await<Listed>(
        [&client](const std::function<void(Listed)>& done) { client.listTools(done); });
    const double listMs = millisecondsSince(clock, start);
    if (!listed || std::holds_alternative<QString>(*listed))
        return context.fail(u"tools/list failed: "_s +
                            (listed ? std::get<QString>(*listed) : u"no answer"_s));
    const QList<McpTool>& tools = std::get<QList<McpTool>>(*listed);
    if (std::none_of(tools.cbegin(), tools.cend(),
                     [&tool](const McpTool& each) { return each.name == tool; }))
        return context.fail(u"the server has no tool \"%1\""_s.arg(tool));

    using Called = McpResult<McpCallResult>;
    std::vector<double> roundTrips;
    roundTrips.reserve(size_t(count));
    qsizetype answerBytes = 0;
    const qint64 rssBefore = BenchSupport::residentKilobytes();
    const qint64 callsStart = clock.nsecsElapsed();
    for (int i = 0; i < count; ++i) {
        start = clock.nsecsElapsed();
        const std::optional<Called> called =
            await<Called>([&](const std::function<void(Called)>& done) {
                client.callTool(tool, arguments.object(), done);
            });
        if (!called)
            return context.fail(u"call %1 got no answer"_s.arg(i + 1));
        if (const auto* error = std::get_if<QString>(&*called))
            return context.fail(u"call %1 failed: %2"_s.arg(i + 1).arg(*error));
        const McpCallResult& result = std::get<McpCallResult>(*called);
        if (result.isError)
            return context.fail(u"call %1: MCP tool error: %2"_s.arg(i + 1).arg(result.text));
        roundTrips.push_back(millisecondsSince(clock, start));
        answerBytes = result.text.toUtf8().size();
    }
    const double totalSeconds = millisecondsSince(clock, callsStart) / 1000.0;
    const qint64 rssAfter = BenchSupport::residentKilobytes();
    client.disconnectFromServer();

    std::sort(roundTrips.begin(), roundTrips.end());
    const double mean =
        std::accumulate(roundTrips.cbegin(), roundTrips.cend(), 0.0) / double(roundTrips.size());
    context.out
        << u"server %1 at %2\n"_s.arg(client.serverInfo().value(u"name"_s).toString(),
                                      url.toString())
        << u"connected (event stream and initialize) in %1 ms; tools/list (%2 tools) in %3 ms\n"_s
               .arg(connectMs, 0, 'f', 1)
               .arg(tools.size())
               .arg(listMs, 0, 'f', 1)
        << u"%1 calls of %2, one after the other, in %3 s: %4 calls/s, answers of %5 bytes\n"_s
               .arg(count)
               .arg(tool)
               .arg(totalSeconds, 0, 'f', 3)
               .arg(double(count) / std::max(totalSeconds, 1e-9), 0, 'f', 1)
               .arg(answerBytes)
        << u"round trip of a tool call: mean %1 ms, p50 %2 ms, p95 %3 ms, p99 %4 ms, max %5 ms\n"_s
               .arg(mean, 0, 'f', 2)
               .arg(BenchSupport::percentile(roundTrips, 0.50), 0, 'f', 2)
               .arg(BenchSupport::percentile(roundTrips, 0.95), 0, 'f', 2)
               .arg(BenchSupport::percentile(roundTrips, 0.99), 0, 'f', 2)
               .arg(roundTrips.back(), 0, 'f', 2)
        << u"resident memory: %1 kB before the calls, %2 kB after\n"_s.arg(rssBefore).arg(rssAfter)
        << Qt::flush;
    return ExitDone;
}

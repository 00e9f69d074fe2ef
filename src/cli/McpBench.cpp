#include "cli/McpBench.h"

#include "cli/BenchSupport.h"
#include "cli/Cli.h"
#include "mcp/AuthenticatedMCPTransport.h"
#include "mcp/MCPRemoteService.h"
#include "protocol/McpClient.h"
#include "store/KeychainManager.h"

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
    u"bench mcp [--url URL | --mcp NAME] [--tool NAME] [--args JSON] [--count N]\n"
    u"  --url    the server's event stream (default: the backend's demo server, "
    u"<backend>/mcp/sse)\n"
    u"  --mcp    a configured integration, by its name: its URL, with its stored token\n"
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

// The server to measure and what to show it.
struct Target
{
    QUrl url;
    std::optional<QString> token;
    QString integration; // the configured integration's name, when one was named
};

// The integration `name` as the app would connect it: its URL, and the token
// its sign-in stored, if any.
std::optional<Target> integrationTarget(CliContext& context, const QString& name, QString* error)
{
    const std::unique_ptr<Services> services = context.makeServices();
    const std::optional<MCPRemoteConfig> config = services->mcpService().integration(name);
    if (!config) {
        *error = u"Unknown MCP integration: "_s + name;
        return std::nullopt;
    }
    return Target{QUrl(config->url), services->keychain().readKey(config->tokenKey()), name};
}

// A server that wants a sign-in refuses the event stream with 401; what the
// user can do about it is more use to them than the status.
QString connectFailure(const Target& target, const QString& error)
{
    QString text = u"cannot connect to %1: %2"_s.arg(target.url.toString(), error);
    if (target.token || !error.contains(u"(HTTP 401)"_s))
        return text;
    const QString name = target.integration.isEmpty() ? u"NAME"_s : target.integration;
    text += u"\nThe server wants a sign-in. "_s;
    if (target.integration.isEmpty())
        text += u"Add it with `quillmoss mcp add NAME %1 --requires-auth`, then sign"_s.arg(
            target.url.toString());
    else
        text += u"Sign"_s;
    text += u" in with `quillmoss mcp login %1` and run `quillmoss bench mcp --mcp %1`"_s.arg(
        name.contains(u' ') ? u'"' + name + u'"' : name);
    return text;
}

} // namespace

int runMcpBench(CliContext& context, const QStringList& options)
{
    QCommandLineParser parser;
    parser.addOption({u"url"_s, u"The server's event stream."_s, u"URL"_s});
    parser.addOption({u"mcp"_s, u"A configured integration."_s, u"NAME"_s});
    parser.addOption({u"tool"_s, u"The tool to call."_s, u"NAME"_s, u"search_calls"_s});
    parser.addOption({u"args"_s, u"Its arguments."_s, u"JSON"_s, u"{\"query\": \"pricing\"}"_s});
    parser.addOption({u"count"_s, u"Calls to make."_s, u"N"_s, u"200"_s});
    if (!parser.parse(QStringList{u"bench mcp"_s} + options) ||
        !parser.positionalArguments().isEmpty())
        return context.usageError(parser.errorText(), usage);
    const std::optional<int> positive = BenchSupport::positiveCount(parser);
    if (!positive)
        return context.usageError(u"--count takes a positive number"_s, usage);
    const int count = *positive;
    const QJsonDocument arguments = QJsonDocument::fromJson(parser.value(u"args"_s).toUtf8());
    if (!arguments.isObject())
        return context.usageError(u"--args takes a JSON object"_s, usage);
    if (parser.isSet(u"url"_s) && parser.isSet(u"mcp"_s))
        return context.usageError(u"--url and --mcp name the server twice"_s, usage);
    Target target;
    if (parser.isSet(u"mcp"_s)) {
        QString error;
        std::optional<Target> named = integrationTarget(context, parser.value(u"mcp"_s), &error);
        if (!named)
            return context.fail(error);
        target = std::move(*named);
    } else if (parser.isSet(u"url"_s)) {
        target.url = QUrl(parser.value(u"url"_s));
    } else {
        target.url = context.backendUrl;
        target.url.setPath(target.url.path().chopped(target.url.path().endsWith(u'/') ? 1 : 0) +
                           u"/mcp/sse"_s);
    }
    const QUrl& url = target.url;
    if (!url.isValid() || !url.scheme().startsWith(u"http"_s)) {
        if (!target.integration.isEmpty())
            return context.fail(
                u"%1 has no http(s) URL: %2"_s.arg(target.integration, url.toString()));
        return context.usageError(u"--url takes an http(s) URL"_s, usage);
    }
    const QString tool = parser.value(u"tool"_s);

    // The client and its transport alone: what is measured is the protocol's
    // way there and back, not the tool registry or the chat around it.
    McpClient client(std::make_unique<AuthenticatedMCPTransport>(url, target.token));
    QElapsedTimer clock;
    clock.start();
    using Outcome = std::optional<QString>;
    const std::optional<Outcome> connected = await<Outcome>(
        [&client](const std::function<void(Outcome)>& done) { client.connectToServer(done); });
    if (!connected || *connected)
        return context.fail(connectFailure(target, connected ? **connected : u"no answer"_s));
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

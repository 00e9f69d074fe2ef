// quillmoss tools: the tool-configuration document the backend is sent, and
// one tool run the way the chat runs an approved call.
#include "cli/Cli.h"
#include "tools/ConfigurationManager.h"
#include "tools/LocalToolManager.h"

#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// Remote "mcp_" tools exist only while their server is connected: --mcp NAME
// connects one for this run (repeatable), as `call --mcp NAME` does for a call.
const auto usage =
    u"tools list [--json] [--mcp NAME]...         the tools the backend is told of (--json: the "
    u"document as sent); with --mcp, also that MCP server's \"mcp_\" tools\n"
    u"tools run ID [JSON-ARGS] [--mcp NAME]...    one call, as an approved one runs; JSON-ARGS "
    u"is an object, {} if omitted\n"_s;

int list(CliContext& context, const ConfigurationManager& configuration, bool json)
{
    const std::optional<QString> document = configuration.toolConfiguration();
    if (!document)
        return context.fail(u"The tool configuration could not be encoded"_s);
    if (json) {
        context.out << *document;
        if (!document->endsWith(u'\n'))
            context.out << u'\n';
        context.out.flush();
        return ExitDone;
    }
    const QJsonArray definitions =
        QJsonDocument::fromJson(document->toUtf8()).object().value(u"localTools"_s).toArray();
    qsizetype width = 0;
    for (const auto& definition : definitions)
        width = std::max(width, definition[u"name"_s].toString().size());
    for (const auto& definition : definitions) {
        context.out << definition[u"name"_s].toString().leftJustified(width) << u"  "_s
                    << definition[u"description"_s].toString() << u'\n';
    }
    context.out.flush();
    return ExitDone;
}

int runTool(CliContext& context, const QString& identifier, const QString& argumentsText,
            const QStringList& servers)
{
    QJsonParseError error{};
    const QJsonDocument parsed = QJsonDocument::fromJson(argumentsText.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return context.fail(u"JSON-ARGS must be a JSON object: "_s + error.errorString());
    if (!parsed.isObject())
        return context.fail(u"JSON-ARGS must be a JSON object: an array was given"_s);
    const std::unique_ptr<Services> services = context.makeServices();
    if (const std::optional<QString> failure = connectMcpIntegrations(*services, servers))
        return context.fail(failure.value());
    const ToolExecution execution =
        waitFor(services->localToolManager().executeTool(identifier, parsed.object())).result();
    if (!execution.success)
        return context.fail(execution.text);
    context.out << execution.text << Qt::endl;
    return ExitDone;
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    QCommandLineParser parser;
    parser.addOption({u"json"_s, u"Machine-readable output."_s});
    parser.addOption({u"mcp"_s, u"Connect this MCP server first (repeatable)."_s, u"NAME"_s});
    if (!parser.parse(QStringList{u"quillmoss tools"_s} + arguments.mid(1)))
        return context.usageError(parser.errorText(), usage);
    const QStringList positional = parser.positionalArguments();
    const qsizetype count = positional.size();
    const QStringList servers = parser.values(u"mcp"_s);
    if (verb == u"list"_s && count == 0) {
        const std::unique_ptr<Services> services = context.makeServices();
        if (const std::optional<QString> error = connectMcpIntegrations(*services, servers))
            return context.fail(error.value());
        return list(context, services->configurationManager(),
                    context.json || parser.isSet(u"json"_s));
    }
    if (verb == u"run"_s && !parser.isSet(u"json"_s) && (count == 1 || count == 2))
        return runTool(context, positional.at(0), count == 2 ? positional.at(1) : u"{}"_s, servers);
    return context.usageError(
        verb.isEmpty() ? u"tools needs a verb"_s : u"wrong use of tools %1"_s.arg(verb), usage);
}

} // namespace

Subcommand toolsSubcommand()
{
    return {u"tools"_s, u"Show the assistant's tools and run one."_s, usage, run};
}

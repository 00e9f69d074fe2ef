// quillmoss tools: the tool-configuration document the backend is sent, and
// one tool run the way the chat runs an approved call.
#include "cli/Cli.h"
#include "tools/ConfigurationManager.h"
#include "tools/LocalToolManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

const auto usage =
    u"tools list [--json]         the tools the backend is told of (--json: the document as sent)\n"
    u"tools run ID [JSON-ARGS]    one call, as an approved one runs; JSON-ARGS is an object, {} "
    u"if omitted\n"_s;

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

int runTool(CliContext& context, const QString& identifier, const QString& argumentsText)
{
    QJsonParseError error{};
    const QJsonDocument parsed = QJsonDocument::fromJson(argumentsText.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return context.fail(u"JSON-ARGS must be a JSON object: "_s + error.errorString());
    if (!parsed.isObject())
        return context.fail(u"JSON-ARGS must be a JSON object: an array was given"_s);
    const std::unique_ptr<Services> services = context.makeServices();
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
    const qsizetype count = arguments.size();
    if (verb == u"list"_s) {
        const std::variant<bool, int> json =
            context.parseJsonOnly(u"quillmoss tools list"_s, arguments.mid(1), usage);
        if (const int* wrong = std::get_if<int>(&json))
            return *wrong;
        const std::unique_ptr<Services> services = context.makeServices();
        return list(context, services->configurationManager(), std::get<bool>(json));
    }
    if (verb == u"run"_s && (count == 2 || count == 3))
        return runTool(context, arguments.at(1), count == 3 ? arguments.at(2) : u"{}"_s);
    return context.usageError(
        verb.isEmpty() ? u"tools needs a verb"_s : u"wrong use of tools %1"_s.arg(verb), usage);
}

} // namespace

Subcommand toolsSubcommand()
{
    return {u"tools"_s, u"Show the assistant's tools and run one."_s, usage, run};
}

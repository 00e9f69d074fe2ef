// quillmoss mcp: the remote MCP servers, pre-built and the user's own; their
// tools listed and one called, through the same service and tool registry as
// the app.
#include "cli/Cli.h"
#include "cli/OAuthTerminal.h"
#include "mcp/MCPRemoteService.h"
#include "mcp/MCPRemoteTool.h"
#include "store/KeychainManager.h"
#include "tools/LocalToolManager.h"

#include <QCommandLineParser>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// NAME is the integration's name as listed; a name with spaces is one quoted argument.
const auto usage =
    u"mcp list [--json]                       pre-built and custom servers; state and tool "
    u"count are this run's\n"
    u"mcp add NAME URL [--description T] [--requires-auth]\n"
    u"mcp remove NAME                         (custom servers only)\n"
    u"mcp tools NAME [--json]                 connect, list the server's tools\n"
    u"mcp call NAME TOOL [JSON-ARGS]          connect, call TOOL (its name on the server or "
    u"its mcp_ id); JSON-ARGS is an object, {} if omitted\n"
    u"mcp login NAME [--loopback]             sign in (OAuth): prints the authorization URL, "
    u"then reads the link the browser ends on (quillmoss://oauth/callback?...) from standard "
    u"input; with --loopback the browser comes back to this process on 127.0.0.1 instead\n"
    u"mcp logout NAME                         delete the server's token\n"_s;

QString yesNo(bool value)
{
    return value ? u"yes"_s : u"no"_s;
}

int list(CliContext& context, Services& services, bool json)
{
    const QVariantList integrations = services.mcpService().integrationList();
    if (json) {
        QJsonArray array;
        for (const QVariant& entry : integrations) {
            QJsonObject object = QJsonObject::fromVariantMap(entry.toMap());
            // Whether a token is stored, never the token.
            object.insert(u"tokenStored"_s,
                          services.keychain()
                              .readKey(MCPRemoteConfig::tokenKeyFor(object[u"name"_s].toString()))
                              .has_value());
            array.append(object);
        }
        context.out << QJsonDocument(array).toJson(QJsonDocument::Compact) << Qt::endl;
        return ExitDone;
    }
    qsizetype nameWidth = 4;
    for (const QVariant& entry : integrations)
        nameWidth = std::max(nameWidth, entry.toMap().value(u"name"_s).toString().size());
    const auto line = [&](const QString& name, const QString& kind, const QString& auth,
                          const QString& state, const QString& tools, const QString& url) {
        context.out << name.leftJustified(nameWidth) << u"  "_s << kind.leftJustified(9) << u"  "_s
                    << auth.leftJustified(4) << u"  "_s << state.leftJustified(13) << u"  "_s
                    << tools.leftJustified(5) << u"  "_s << url << u'\n';
    };
    line(u"NAME"_s, u"TYPE"_s, u"AUTH"_s, u"STATE"_s, u"TOOLS"_s, u"URL"_s);
    for (const QVariant& entry : integrations) {
        const QVariantMap map = entry.toMap();
        line(map[u"name"_s].toString(), map[u"isCustom"_s].toBool() ? u"custom"_s : u"pre-built"_s,
             yesNo(map[u"requiresAuth"_s].toBool()), map[u"state"_s].toString(),
             QString::number(map[u"toolCount"_s].toInt()), map[u"url"_s].toString());
    }
    context.out.flush();
    return ExitDone;
}

int add(CliContext& context, Services& services, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addOption({u"description"_s, u"One line shown in the list."_s, u"T"_s});
    parser.addOption({u"requires-auth"_s, u"The server needs an OAuth token."_s});
    parser.addPositionalArgument(u"NAME"_s, u"The integration's name."_s);
    parser.addPositionalArgument(u"URL"_s, u"The server's event-stream URL."_s);
    if (!parser.parse(QStringList{u"quillmoss mcp add"_s} + arguments))
        return context.usageError(parser.errorText(), usage);
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 2)
        return context.usageError(u"mcp add takes NAME and URL"_s, usage);
    const QString name = positional.at(0).trimmed();
    const QString url = positional.at(1).trimmed();
    if (name.isEmpty())
        return context.usageError(u"mcp add needs a name"_s, usage);
    const MCPUrlCheck check = MCPUrlCheck::of(url);
    if (const std::optional<QString> error = services.mcpService().addCustomIntegration(
            name, url, parser.isSet(u"requires-auth"_s), parser.value(u"description"_s).trimmed()))
        return context.fail(*error);
    if (check.warning)
        context.err << *check.warning << Qt::endl;
    context.out << u"Added "_s << name << Qt::endl;
    return ExitDone;
}

int remove(CliContext& context, Services& services, const QString& name)
{
    const std::optional<MCPRemoteConfig> config = services.mcpService().integration(name);
    if (!config)
        return context.fail(u"Unknown MCP integration: "_s + name);
    if (!config->isCustom)
        return context.fail(name + u" is pre-built and cannot be removed"_s);
    services.mcpService().removeCustomIntegration(name);
    context.out << u"Removed "_s << name << Qt::endl;
    return ExitDone;
}

// The connected integration's tools, in the server's order.
QList<std::shared_ptr<MCPRemoteTool>> toolsOf(const MCPRemoteService& service, const QString& name)
{
    QList<std::shared_ptr<MCPRemoteTool>> tools;
    for (const std::shared_ptr<LocalTool>& tool : service.remoteTools()) {
        auto remote = std::dynamic_pointer_cast<MCPRemoteTool>(tool);
        if (remote && remote->integrationName() == name)
            tools.append(remote);
    }
    return tools;
}

int listTools(CliContext& context, Services& services, const QString& name, bool json)
{
    if (const std::optional<QString> error = connectMcpIntegrations(services, {name}))
        return context.fail(*error);
    const QList<std::shared_ptr<MCPRemoteTool>> tools = toolsOf(services.mcpService(), name);
    if (json) {
        QJsonArray array;
        for (const auto& tool : tools) {
            QJsonObject object{{u"name"_s, tool->toolName()},
                               {u"identifier"_s, tool->identifier()},
                               {u"description"_s, tool->mcpTool().description}};
            if (tool->mcpTool().inputSchema)
                object.insert(u"inputSchema"_s, *tool->mcpTool().inputSchema);
            array.append(object);
        }
        context.out << QJsonDocument(array).toJson(QJsonDocument::Compact) << Qt::endl;
        return ExitDone;
    }
    if (tools.isEmpty()) {
        context.out << u"No tools found"_s << Qt::endl;
        return ExitDone;
    }
    qsizetype width = 0;
    for (const auto& tool : tools)
        width = std::max(width, tool->toolName().size());
    for (const auto& tool : tools) {
        // The first line of the description is plenty in a listing.
        const QString summary = tool->mcpTool().description.section(u'\n', 0, 0);
        context.out << tool->toolName().leftJustified(width) << u"  "_s << tool->identifier()
                    << u"  "_s << summary << u'\n';
    }
    context.out.flush();
    return ExitDone;
}

int callTool(CliContext& context, Services& services, const QString& name, const QString& toolName,
             const QString& argumentsText)
{
    QJsonParseError error{};
    const QJsonDocument parsed = QJsonDocument::fromJson(argumentsText.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return context.fail(u"JSON-ARGS must be a JSON object: "_s + error.errorString());
    if (!parsed.isObject())
        return context.fail(u"JSON-ARGS must be a JSON object"_s);
    if (const std::optional<QString> failure = connectMcpIntegrations(services, {name}))
        return context.fail(*failure);
    QString identifier;
    for (const auto& tool : toolsOf(services.mcpService(), name)) {
        if (tool->toolName() == toolName || tool->identifier() == toolName)
            identifier = tool->identifier();
    }
    if (identifier.isEmpty())
        return context.fail(u"Unknown tool '%1' on %2"_s.arg(toolName, name));
    // As the assistant's approved calls run: through the registry.
    const ToolExecution execution =
        waitFor(services.localToolManager().executeTool(identifier, parsed.object())).result();
    if (!execution.success)
        return context.fail(execution.text);
    context.out << execution.text << Qt::endl;
    return ExitDone;
}

int login(CliContext& context, Services& services, const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.addOption({u"loopback"_s, u"The browser comes back to 127.0.0.1."_s});
    parser.addPositionalArgument(u"NAME"_s, u"The integration's name."_s);
    if (!parser.parse(QStringList{u"quillmoss mcp login"_s} + arguments))
        return context.usageError(parser.errorText(), usage);
    if (parser.positionalArguments().size() != 1)
        return context.usageError(u"mcp login takes NAME"_s, usage);
    const QString name = parser.positionalArguments().first();
    MCPRemoteService& service = services.mcpService();
    const std::optional<MCPRemoteConfig> config = service.integration(name);
    if (!config)
        return context.fail(u"Unknown MCP integration: "_s + name);
    if (!config->requiresAuth)
        return context.fail(name + u" does not sign in (it was added without --requires-auth)"_s);

    const auto callback = [&service, &context](const QString& line) {
        if (line.isEmpty())
            return;
        if (!service.handleOAuthCallback(QUrl(line, QUrl::StrictMode)))
            context.err << u"(no sign-in is waiting for a link yet)"_s << Qt::endl;
    };
    OAuthBrowser browser = service.oauthBrowser();
    std::unique_ptr<LoopbackRedirectListener> loopback;
    const bool useLoopback = parser.isSet(u"loopback"_s);
    if (useLoopback) {
        loopback = std::make_unique<LoopbackRedirectListener>(
            [callback](const QUrl& link) { callback(link.toString(QUrl::FullyEncoded)); });
        if (!loopback->listen())
            return context.fail(u"cannot listen on 127.0.0.1 for the browser's return"_s);
        browser.redirectUri = loopback->redirectUri();
    }
    const std::function<bool(const QUrl&)> openInBrowser = browser.open;
    browser.open = [&context, openInBrowser, useLoopback](const QUrl& url) {
        // On a line of its own, for the user and for scripts.
        context.out << url.toString(QUrl::FullyEncoded) << Qt::endl;
        context.err << u"Sign in with the address above in a browser"_s;
        if (openInBrowser && openInBrowser(url))
            context.err << u" (opened in your browser)"_s;
        context.err << (useLoopback ? u"; Quillmoss waits for the browser to come back."_s
                                    : u", then paste here the address the browser ends on "
                                      u"(quillmoss://oauth/callback?…):"_s)
                    << Qt::endl;
        return true;
    };
    service.setOAuthBrowser(browser);
    // Without a loopback, the end of input is the user giving up.
    const StdinLineReader input(callback, [&service, useLoopback] {
        if (!useLoopback)
            service.cancelSignIn();
    });

    QEventLoop loop;
    std::optional<QString> failure;
    service.handleOAuthAuthentication(*config, [&](const std::optional<QString>& error) {
        failure = error;
        loop.quit();
    });
    loop.exec();
    if (failure)
        return context.fail(*failure);
    context.out << u"Signed in to "_s << name << Qt::endl;
    return ExitDone;
}

int logout(CliContext& context, Services& services, const QString& name)
{
    if (!services.mcpService().integration(name))
        return context.fail(u"Unknown MCP integration: "_s + name);
    if (!services.mcpService().signOut(name))
        return context.fail(u"the token of "_s + name +
                            u" could not be deleted from the secure "
                            u"credential store"_s);
    context.out << u"Signed out of "_s << name << Qt::endl;
    return ExitDone;
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    const qsizetype count = arguments.size();
    const std::unique_ptr<Services> services = context.makeServices();
    if (verb == u"list"_s) {
        const std::variant<bool, int> json =
            context.parseJsonOnly(u"quillmoss mcp list"_s, arguments.mid(1), usage);
        if (const int* wrong = std::get_if<int>(&json))
            return *wrong;
        return list(context, *services, std::get<bool>(json));
    }
    if (verb == u"add"_s)
        return add(context, *services, arguments.mid(1));
    if (verb == u"remove"_s && count == 2)
        return remove(context, *services, arguments.at(1));
    if (verb == u"tools"_s && count >= 2) {
        const std::variant<bool, int> json =
            context.parseJsonOnly(u"quillmoss mcp tools"_s, arguments.mid(2), usage);
        if (const int* wrong = std::get_if<int>(&json))
            return *wrong;
        return listTools(context, *services, arguments.at(1), std::get<bool>(json));
    }
    if (verb == u"login"_s && count >= 2)
        return login(context, *services, arguments.mid(1));
    if (verb == u"logout"_s && count == 2)
        return logout(context, *services, arguments.at(1));
    if (verb == u"call"_s && (count == 3 || count == 4))
        return callTool(context, *services, arguments.at(1), arguments.at(2),
                        count == 4 ? arguments.at(3) : u"{}"_s);
    return context.usageError(
        verb.isEmpty() ? u"mcp needs a verb"_s : u"wrong use of mcp %1"_s.arg(verb), usage);
}

} // namespace

std::optional<QString> connectMcpIntegrations(Services& services, const QStringList& names)
{
    MCPRemoteService& service = services.mcpService();
    for (const QString& name : names) {
        const std::optional<MCPRemoteConfig> config = service.integration(name);
        if (!config)
            return u"Unknown MCP integration: "_s + name;
        if (service.connectedIntegrations().contains(name))
            continue;
        // A command other than login has no way to bring the browser back.
        if (config->requiresAuth && !services.keychain().readKey(config->tokenKey()))
            return name + u" needs a sign-in first: quillmoss mcp login "_s + name;
        QEventLoop loop;
        std::optional<QString> failure;
        bool discovered = false;
        // Connected is not enough: the tools are what the caller is after.
        const QMetaObject::Connection watch = QObject::connect(
            &service, &MCPRemoteService::toolsDiscovered, &loop, [&](const QString& which) {
                if (which == name) {
                    discovered = true;
                    loop.quit();
                }
            });
        service.connectToIntegration(*config, [&](const std::optional<QString>& error) {
            if (error) {
                failure = *error;
                loop.quit();
            }
        });
        if (!discovered && !failure)
            loop.exec();
        QObject::disconnect(watch);
        if (failure)
            return failure;
    }
    return std::nullopt;
}

Subcommand mcpSubcommand()
{
    return {u"mcp"_s, u"Connect remote MCP servers and use their tools."_s, usage, run};
}

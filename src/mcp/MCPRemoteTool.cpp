#include "mcp/MCPRemoteTool.h"

#include "core/HttpClient.h"
#include "core/JsonValues.h"
#include "core/Logging.h"
#include "tools/ToolConfigurationDocument.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QJsonValue toMcpValue(const QJsonValue& value, const QString& key)
{
    switch (value.type()) {
    case QJsonValue::String:
    case QJsonValue::Double:
    case QJsonValue::Bool:
        return value;
    case QJsonValue::Array: {
        QJsonArray converted;
        for (const QJsonValue item : value.toArray())
            converted.append(toMcpValue(item, key));
        return converted;
    }
    case QJsonValue::Object: {
        QJsonObject converted;
        const QJsonObject object = value.toObject();
        for (auto it = object.constBegin(); it != object.constEnd(); ++it)
            converted.insert(it.key(), toMcpValue(it.value(), it.key()));
        return converted;
    }
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    qCWarning(lcMcp).noquote() << u"🔧 WARNING: Converting unknown type %1 to string for key '%2'"_s
                                      .arg(jsonTypeName(value, JsonTypeWording::Label), key);
    return value.isNull() ? u"null"_s : QString();
}

QString compactJson(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace

MCPRemoteTool::MCPRemoteTool(QPointer<McpClient> mcpClient, QString integrationName,
                             McpTool mcpTool)
    : m_mcpClient(std::move(mcpClient)), m_integrationName(std::move(integrationName)),
      m_mcpTool(std::move(mcpTool)), m_identifier(identifierFor(m_integrationName, m_mcpTool.name))
{}

QString MCPRemoteTool::identifierFor(const QString& integrationName, const QString& toolName)
{
    static const QRegularExpression notAlphanumeric(u"[^a-z0-9]+"_s);
    static const QRegularExpression notToolCharacter(u"[^A-Za-z0-9_-]"_s);
    QString integration = integrationName.toLower();
    integration.replace(notAlphanumeric, u"_"_s);
    QString tool = toolName;
    tool.replace(notToolCharacter, u"_"_s);
    return u"mcp_"_s + integration + u'_' + tool;
}

QJsonObject MCPRemoteTool::toMcpArguments(const QJsonObject& parameters)
{
    QJsonObject arguments;
    for (auto it = parameters.constBegin(); it != parameters.constEnd(); ++it)
        arguments.insert(it.key(), toMcpValue(it.value(), it.key()));
    return arguments;
}

QString MCPRemoteTool::name() const
{
    return m_mcpTool.title.isEmpty() ? m_mcpTool.name : m_mcpTool.title;
}

QString MCPRemoteTool::description() const
{
    return m_mcpTool.description.isEmpty()
               ? u"%1 tool from %2"_s.arg(m_mcpTool.name, m_integrationName)
               : m_mcpTool.description;
}

QJsonObject MCPRemoteTool::parameterSchema() const
{
    if (m_mcpTool.inputSchema && m_mcpTool.inputSchema->isObject())
        return m_mcpTool.inputSchema->toObject();
    return ToolConfigurationDocument::fallbackSchema();
}

void MCPRemoteTool::execute(const ToolInvocation& call, Done done)
{
    const QString toolName = m_mcpTool.name;
    qCInfo(lcMcp).noquote() << u"🔧 [MCP Tool] Executing '"_s + toolName +
                                   u"' with parameters from backend: "_s +
                                   compactJson(call.parameters);
    const QJsonObject arguments = toMcpArguments(call.parameters);
    qCInfo(lcMcp).noquote() << u"🔧 [MCP Tool] Converted to MCP arguments: "_s +
                                   compactJson(arguments);

    // The answer goes back to the thread `execute` runs on, through the HTTP
    // client that lives there; when the tool manager has gone meanwhile, so
    // has the client, and nobody is waiting.
    const QPointer<HttpClient> callerThread(&call.http);
    auto answer = [callerThread, done = std::move(done)](const ToolOutcome& outcome) {
        if (callerThread)
            QMetaObject::invokeMethod(
                callerThread.data(), [done, outcome] { done(outcome); }, Qt::QueuedConnection);
    };
    const auto failed = [toolName](const QString& error) {
        return ToolOutcome::failure(LocalToolError::executionFailed(
            u"Failed to execute MCP tool '"_s + toolName + u"' "_s + error));
    };
    // The client lives on the GUI thread with its connection, which may end at
    // any moment: it is looked at there, never from here.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [client = m_mcpClient, toolName, arguments, answer, failed] {
            if (!client || !client->isConnected()) {
                answer(failed(u"Not connected"_s));
                return;
            }
            client->callTool(
                toolName, arguments, [answer, failed](const McpResult<McpCallResult>& result) {
                    if (const auto* error = std::get_if<QString>(&result)) {
                        answer(failed(*error));
                        return;
                    }
                    const McpCallResult& value = std::get<McpCallResult>(result);
                    if (value.isError) {
                        answer(ToolOutcome::failure(
                            LocalToolError::executionFailed(u"MCP tool error: "_s + value.text)));
                        return;
                    }
                    answer(ToolOutcome::success(value.text));
                });
        },
        Qt::QueuedConnection);
}

// A tool of a connected remote MCP server, registered with the tool manager
// like a built-in one: the assistant knows it as "mcp_<integration>_<tool>",
// and an approved call goes to the server through the connection's client.
#pragma once

#include "protocol/McpClient.h"
#include "tools/LocalTool.h"

#include <QJsonObject>
#include <QPointer>
#include <QString>

class MCPRemoteTool : public LocalTool
{
public:
    // `mcpClient` lives on the GUI thread; the tool only refers to it, and a
    // call after the connection went fails with the connection's error.
    MCPRemoteTool(QPointer<McpClient> mcpClient, QString integrationName, McpTool mcpTool);

    // "mcp_" + the integration's name in lower case, every run of characters
    // other than a–z and 0–9 made one "_", then "_" + the tool's own name with
    // characters outside A–Z, a–z, 0–9, "_" and "-" made "_".
    static QString identifierFor(const QString& integrationName, const QString& toolName);

    // The arguments as the server is sent them: JSON values carried over by
    // type; anything else as its text, with a warning.
    static QJsonObject toMcpArguments(const QJsonObject& parameters);

    QString identifier() const override { return m_identifier; }
    QString name() const override;
    QString description() const override;
    QJsonObject parameterSchema() const override;
    std::optional<QJsonValue> declaredInputSchema() const override { return m_mcpTool.inputSchema; }

    // Hops to the client's thread for the call and answers on the caller's.
    void execute(const ToolInvocation& call, Done done) override;

    const QString& integrationName() const { return m_integrationName; }
    const QString& toolName() const { return m_mcpTool.name; }
    const McpTool& mcpTool() const { return m_mcpTool; }

private:
    const QPointer<McpClient> m_mcpClient;
    const QString m_integrationName;
    const McpTool m_mcpTool;
    const QString m_identifier;
};

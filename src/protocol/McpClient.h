// A client of the Model Context Protocol over any McpTransport: JSON-RPC 2.0
// requests with ids and time-outs, the initialize handshake, the tool list
// (all its pages), tool calls with their content read as text, and ping.
#pragma once

#include "protocol/McpTransport.h"

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

// One tool as a server describes it.
struct McpTool
{
    QString name;
    QString title;
    QString description;
    // As the server sent it; a tool without one has nothing here.
    std::optional<QJsonValue> inputSchema;

    // Nothing when `json` is not an object with a non-empty "name" string.
    static std::optional<McpTool> fromJson(const QJsonValue& json);
};

// What a tool call came to: its content as one text and whether the server
// flagged it as the tool's error.
struct McpCallResult
{
    QString text;
    bool isError = false;

    // The "content" items of a tools/call result joined by newlines: text as it
    // is, an image as "[Image: <mimeType>, <n> bytes]", a resource as its text
    // or "[Resource: <uri>]"; "structuredContent" as JSON text when there is no
    // content. Nothing when `result` is not an object.
    static std::optional<McpCallResult> fromJson(const QJsonValue& result);
};

// Either the value or the failure's text.
template <typename T> using McpResult = std::variant<T, QString>;

// Lives on the thread that made it, like its transport, which it owns.
// Callbacks run on that thread, exactly once each, unless the client is
// destroyed first (then none runs).
class McpClient : public QObject
{
    Q_OBJECT

public:
    static constexpr auto clientName = "Quillmoss";
    static constexpr auto clientVersion = "1.0.22";
    static constexpr auto protocolVersion = "2024-11-05";

    using Done = McpTransport::Done;

    explicit McpClient(std::unique_ptr<McpTransport> transport, QObject* parent = nullptr);
    ~McpClient() override;
    McpClient(const McpClient&) = delete;
    McpClient& operator=(const McpClient&) = delete;

    McpTransport& transport() const { return *m_transport; }

    // A request unanswered this long fails with "Request timed out" (the text
    // names the method and the wait).
    void setRequestTimeout(std::chrono::milliseconds limit) { m_timeout = limit; }

    // Opens the transport, sends "initialize" as "Quillmoss" "1.0.22", checks
    // the answer and sends "notifications/initialized".
    void connectToServer(Done done);
    // Closes the transport; requests still waiting fail.
    void disconnectFromServer();
    bool isConnected() const;

    // From the initialize answer; empty before it.
    QJsonObject serverInfo() const { return m_serverInfo; }
    QJsonObject serverCapabilities() const { return m_serverCapabilities; }

    // Every page of "tools/list", following "nextCursor".
    void listTools(std::function<void(const McpResult<QList<McpTool>>&)> done);
    void callTool(const QString& name, const QJsonObject& arguments,
                  std::function<void(const McpResult<McpCallResult>&)> done);
    void ping(Done done);

    // One request; `done` gets its "result", or the error's text
    // ("MCP error <code>: <message>").
    void request(const QString& method, const QJsonObject& params,
                 std::function<void(const McpResult<QJsonValue>&)> done);
    void notify(const QString& method, const QJsonObject& params = {});

Q_SIGNALS:
    // "notifications/tools/list_changed" arrived.
    void toolListChanged();
    // Any notification from the server, the one above included.
    void notificationReceived(const QString& method, const QJsonObject& params);
    // The transport closed after the client had connected.
    void disconnected(const QString& reason);

private:
    struct Pending;

    void received(const QByteArray& message);
    void finish(qint64 id, const McpResult<QJsonValue>& outcome);
    void failAll(const QString& reason);

    std::unique_ptr<McpTransport> m_transport;
    std::chrono::milliseconds m_timeout{30'000};
    qint64 m_nextId = 1;
    QHash<qint64, std::shared_ptr<Pending>> m_pending;
    QJsonObject m_serverInfo;
    QJsonObject m_serverCapabilities;
    bool m_initialized = false;
};

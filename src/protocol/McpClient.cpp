#include "protocol/McpClient.h"

#include "core/Logging.h"
#include "protocol/JsonRpcMessage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QSet>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// A server that keeps handing out new cursors is broken; this many pages of
// tools is far more than any real one has.
constexpr int maxToolPages = 1000;

QString mcpError(qint64 code, const QString& message)
{
    return u"MCP error %1: %2"_s.arg(code).arg(message);
}

QString contentText(const QJsonObject& item)
{
    const QString type = item.value("type"_L1).toString();
    if (type == "text"_L1)
        return item.value("text"_L1).toString();
    if (type == "image"_L1 || type == "audio"_L1) {
        const QByteArray decoded =
            QByteArray::fromBase64(item.value("data"_L1).toString().toLatin1());
        return u"[%1: %2, %3 bytes]"_s
            .arg(type == "image"_L1 ? u"Image"_s : u"Audio"_s, item.value("mimeType"_L1).toString())
            .arg(decoded.size());
    }
    if (type == "resource"_L1) {
        const QJsonObject resource = item.value("resource"_L1).toObject();
        const QJsonValue text = resource.value("text"_L1);
        if (text.isString())
            return text.toString();
        return u"[Resource: %1]"_s.arg(resource.value("uri"_L1).toString());
    }
    if (type == "resource_link"_L1)
        return u"[Resource: %1]"_s.arg(item.value("uri"_L1).toString());
    return u"[Unsupported content: %1]"_s.arg(type);
}

} // namespace

std::optional<McpTool> McpTool::fromJson(const QJsonValue& json)
{
    const QJsonObject object = json.toObject();
    const QJsonValue name = object.value("name"_L1);
    if (!name.isString() || name.toString().isEmpty())
        return std::nullopt;
    McpTool tool;
    tool.name = name.toString();
    tool.title = object.value("title"_L1).toString();
    tool.description = object.value("description"_L1).toString();
    if (object.contains("inputSchema"_L1))
        tool.inputSchema = object.value("inputSchema"_L1);
    return tool;
}

std::optional<McpCallResult> McpCallResult::fromJson(const QJsonValue& result)
{
    if (!result.isObject())
        return std::nullopt;
    const QJsonObject object = result.toObject();
    McpCallResult call;
    call.isError = object.value("isError"_L1).toBool(false);
    const QJsonArray content = object.value("content"_L1).toArray();
    QStringList parts;
    for (const auto& item : content)
        parts.append(contentText(item.toObject()));
    call.text = parts.join(u'\n');
    if (content.isEmpty() && object.value("structuredContent"_L1).isObject())
        call.text = QString::fromUtf8(QJsonDocument(object.value("structuredContent"_L1).toObject())
                                          .toJson(QJsonDocument::Compact));
    return call;
}

struct McpClient::Pending
{
    QString method;
    std::function<void(const McpResult<QJsonValue>&)> done;
    QTimer timer;
};

McpClient::McpClient(std::unique_ptr<McpTransport> transport, QObject* parent)
    : QObject(parent), m_transport(std::move(transport))
{
    connect(m_transport.get(), &McpTransport::messageReceived, this, &McpClient::received);
    connect(m_transport.get(), &McpTransport::closed, this, [this](const QString& reason) {
        const bool wasConnected = std::exchange(m_initialized, false);
        failAll(reason.isEmpty() ? u"MCP connection closed"_s
                                 : u"MCP connection closed: "_s + reason);
        if (wasConnected)
            Q_EMIT disconnected(reason);
    });
}

McpClient::~McpClient()
{
    // Nobody hears from a request once its client has gone.
    m_pending.clear();
    disconnect(m_transport.get(), nullptr, this, nullptr);
}

bool McpClient::isConnected() const
{
    return m_initialized && m_transport->isOpen();
}

void McpClient::connectToServer(Done done)
{
    if (isConnected()) {
        QTimer::singleShot(0, this, [done = std::move(done)] { done(std::nullopt); });
        return;
    }
    m_transport->open([this, done = std::move(done)](const std::optional<QString>& error) {
        if (error) {
            done(error);
            return;
        }
        const QJsonObject params{
            {"protocolVersion"_L1, QLatin1StringView(protocolVersion)},
            {"capabilities"_L1, QJsonObject()},
            {"clientInfo"_L1, QJsonObject{{"name"_L1, QLatin1StringView(clientName)},
                                          {"version"_L1, QLatin1StringView(clientVersion)}}},
        };
        request(u"initialize"_s, params, [this, done](const McpResult<QJsonValue>& answer) {
            if (const auto* failure = std::get_if<QString>(&answer)) {
                done(*failure);
                return;
            }
            const QJsonObject result = std::get<QJsonValue>(answer).toObject();
            const QString version = result.value("protocolVersion"_L1).toString();
            if (version != QLatin1StringView(protocolVersion)) {
                const QString why =
                    u"The MCP server speaks protocol version \"%1\"; this client speaks \"%2\""_s
                        .arg(version, QLatin1StringView(protocolVersion));
                qCWarning(lcMcp).noquote() << why;
                m_transport->close();
                done(why);
                return;
            }
            m_serverInfo = result.value("serverInfo"_L1).toObject();
            m_serverCapabilities = result.value("capabilities"_L1).toObject();
            m_initialized = true;
            notify(u"notifications/initialized"_s);
            qCInfo(lcMcp).noquote()
                << "MCP client initialized with" << m_serverInfo.value("name"_L1).toString()
                << m_serverInfo.value("version"_L1).toString();
            done(std::nullopt);
        });
    });
}

void McpClient::disconnectFromServer()
{
    m_initialized = false;
    m_transport->close();
    failAll(u"MCP client disconnected"_s);
}

void McpClient::listTools(std::function<void(const McpResult<QList<McpTool>>&)> done)
{
    struct Listing
    {
        QList<McpTool> tools;
        QSet<QString> cursors;
        int pages = 0;
        std::function<void(const McpResult<QList<McpTool>>&)> done;
        std::function<void(const std::optional<QString>&)> next;
    };
    auto listing = std::make_shared<Listing>();
    listing->done = std::move(done);
    // The page handler holds the listing weakly, so the two do not keep each other.
    listing->next = [this,
                     weak = std::weak_ptr<Listing>(listing)](const std::optional<QString>& cursor) {
        QJsonObject params;
        if (cursor)
            params.insert("cursor"_L1, *cursor);
        request(u"tools/list"_s, params, [listing = weak.lock()](const McpResult<QJsonValue>& answer) {
            if (const auto* failure = std::get_if<QString>(&answer)) {
                listing->done(*failure);
                return;
            }
            const QJsonObject page = std::get<QJsonValue>(answer).toObject();
            for (const auto& json : page.value("tools"_L1).toArray()) {
                if (auto tool = McpTool::fromJson(json))
                    listing->tools.append(std::move(*tool));
                else
                    qCWarning(lcMcp) << "Skipping a tool without a name in tools/list";
            }
            ++listing->pages;
            const QJsonValue nextCursor = page.value("nextCursor"_L1);
            if (!nextCursor.isString() || nextCursor.toString().isEmpty()) {
                listing->done(listing->tools);
                return;
            }
            const QString cursor = nextCursor.toString();
            if (listing->cursors.contains(cursor) || listing->pages >= maxToolPages) {
                const QString why =
                    u"tools/list gave the cursor \"%1\" again after %2 pages; the list never ends"_s
                        .arg(cursor)
                        .arg(listing->pages);
                qCWarning(lcMcp).noquote() << why;
                listing->done(why);
                return;
            }
            listing->cursors.insert(cursor);
            listing->next(cursor);
        });
    };
    listing->next(std::nullopt);
}

void McpClient::callTool(const QString& name, const QJsonObject& arguments,
                         std::function<void(const McpResult<McpCallResult>&)> done)
{
    const QJsonObject params{{"name"_L1, name}, {"arguments"_L1, arguments}};
    request(u"tools/call"_s, params, [done = std::move(done)](const McpResult<QJsonValue>& answer) {
        if (const auto* failure = std::get_if<QString>(&answer)) {
            done(*failure);
            return;
        }
        if (auto result = McpCallResult::fromJson(std::get<QJsonValue>(answer)))
            done(std::move(*result));
        else
            done(u"The MCP server's tools/call result is not an object"_s);
    });
}

void McpClient::ping(Done done)
{
    request(u"ping"_s, {}, [done = std::move(done)](const McpResult<QJsonValue>& answer) {
        if (const auto* failure = std::get_if<QString>(&answer))
            done(*failure);
        else
            done(std::nullopt);
    });
}

void McpClient::request(const QString& method, const QJsonObject& params,
                        std::function<void(const McpResult<QJsonValue>&)> done)
{
    if (!m_transport->isOpen()) {
        QTimer::singleShot(0, this, [done = std::move(done), method] {
            done(u"MCP client is not connected (%1 not sent)"_s.arg(method));
        });
        return;
    }
    const qint64 id = m_nextId++;
    auto pending = std::make_shared<Pending>();
    pending->method = method;
    pending->done = std::move(done);
    pending->timer.setSingleShot(true);
    connect(&pending->timer, &QTimer::timeout, this, [this, id, method, limit = m_timeout] {
        finish(id, mcpError(JsonRpcError::requestTimeout,
                            u"Request timed out (%1, no answer within %2 ms)"_s.arg(method).arg(
                                limit.count())));
    });
    pending->timer.start(m_timeout);
    m_pending.insert(id, pending);

    const JsonRpcMessage message = JsonRpcMessage::request(
        id, method, params.isEmpty() ? QJsonValue(QJsonValue::Undefined) : QJsonValue(params));
    QPointer<McpClient> self(this);
    m_transport->send(message.encode(), [self, id](const std::optional<QString>& error) {
        if (self && error)
            self->finish(id, *error);
    });
}

void McpClient::notify(const QString& method, const QJsonObject& params)
{
    if (!m_transport->isOpen()) {
        qCWarning(lcMcp).noquote()
            << "MCP client not connected; notification" << method << "not sent";
        return;
    }
    const JsonRpcMessage message = JsonRpcMessage::notification(
        method, params.isEmpty() ? QJsonValue(QJsonValue::Undefined) : QJsonValue(params));
    m_transport->send(message.encode(), [method](const std::optional<QString>& error) {
        if (error)
            qCWarning(lcMcp).noquote() << "MCP notification" << method << "failed:" << *error;
    });
}

void McpClient::received(const QByteArray& message)
{
    const auto decoded = JsonRpcMessage::decode(message);
    if (!decoded.ok()) {
        qCWarning(lcMcp).noquote()
            << "MCP client ignores a message it cannot read:" << decoded.error << "-"
            << message.left(500);
        return;
    }
    const JsonRpcMessage& rpc = *decoded.value;
    switch (rpc.kind) {
    case JsonRpcMessage::Kind::Result:
    case JsonRpcMessage::Kind::Error: {
        const QJsonValue id = rpc.id;
        const double number = id.toDouble(-1);
        if (!id.isDouble() || number < 1 || number >= static_cast<double>(m_nextId) ||
            !m_pending.contains(static_cast<qint64>(number))) {
            qCWarning(lcMcp).noquote()
                << "MCP client got an answer to no request of its own:" << message.left(500);
            return;
        }
        const auto key = static_cast<qint64>(number);
        if (rpc.kind == JsonRpcMessage::Kind::Result)
            finish(key, rpc.result);
        else
            finish(key, mcpError(rpc.errorCode, rpc.errorMessage));
        return;
    }
    case JsonRpcMessage::Kind::Request: {
        // The server may ask the client too; this client offers nothing but ping.
        const JsonRpcMessage answer =
            rpc.method == "ping"_L1
                ? JsonRpcMessage::response(rpc.id, QJsonObject())
                : JsonRpcMessage::errorResponse(rpc.id, JsonRpcError::methodNotFound,
                                                u"Method not found: "_s + rpc.method);
        if (rpc.method != "ping"_L1)
            qCInfo(lcMcp).noquote() << "MCP client refuses the server's request" << rpc.method;
        m_transport->send(answer.encode(), [](const std::optional<QString>& error) {
            if (error)
                qCWarning(lcMcp).noquote() << "MCP client could not answer the server:" << *error;
        });
        return;
    }
    case JsonRpcMessage::Kind::Notification: {
        const QString method = rpc.method;
        const QJsonObject params = rpc.params.toObject();
        QPointer<McpClient> self(this);
        Q_EMIT notificationReceived(method, params);
        if (self && method == "notifications/tools/list_changed"_L1)
            Q_EMIT toolListChanged();
        return;
    }
    }
}

void McpClient::finish(qint64 id, const McpResult<QJsonValue>& outcome)
{
    const auto pending = m_pending.take(id);
    if (!pending)
        return;
    pending->timer.stop();
    pending->done(outcome);
}

void McpClient::failAll(const QString& reason)
{
    const auto pending = std::exchange(m_pending, {});
    for (const auto& request : pending) {
        request->timer.stop();
        request->done(reason);
    }
}

#include "mcp/AuthenticatedMCPTransport.h"

#include "core/Logging.h"
#include "protocol/McpClient.h"
#include "protocol/SseEventParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>

using namespace Qt::StringLiterals;

namespace {

// An error page is read for its first words only; a server cannot make the
// error text as long as it likes.
constexpr qsizetype maxErrorBodyText = 2000;

QString urlText(const QUrl& url)
{
    return url.toString(QUrl::RemoveUserInfo);
}

bool sameOrigin(const QUrl& a, const QUrl& b)
{
    const auto defaultPort = [](const QUrl& url) { return url.scheme() == "https"_L1 ? 443 : 80; };
    return a.scheme().compare(b.scheme(), Qt::CaseInsensitive) == 0 &&
           a.host().compare(b.host(), Qt::CaseInsensitive) == 0 &&
           a.port(defaultPort(a)) == b.port(defaultPort(b));
}

int statusOf(const QNetworkReply& reply)
{
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

} // namespace

AuthenticatedMCPTransport::AuthenticatedMCPTransport(QUrl sseConnectUrl,
                                                     std::optional<QString> authToken,
                                                     QObject* parent)
    : McpTransport(parent), m_sseConnectUrl(std::move(sseConnectUrl)),
      m_messagePostUrl(m_sseConnectUrl), m_authToken(std::move(authToken)),
      m_network(std::make_unique<QNetworkAccessManager>()),
      m_parser(std::make_unique<SseEventParser>())
{}

AuthenticatedMCPTransport::~AuthenticatedMCPTransport()
{
    // Whatever is in flight stops here, and nothing of it calls back.
    m_openDone = nullptr;
    dropStream();
    for (const auto& post : std::as_const(m_posts)) {
        if (post) {
            post->disconnect(this);
            post->abort();
        }
    }
}

QNetworkRequest AuthenticatedMCPTransport::requestFor(const QUrl& url) const
{
    QNetworkRequest request(url);
    // A redirect could take the token elsewhere; answers are taken as they come.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setRawHeader("MCP-Protocol-Version", McpClient::protocolVersion);
    if (m_authToken)
        request.setRawHeader("Authorization", "Bearer " + m_authToken->toUtf8());
    return request;
}

void AuthenticatedMCPTransport::open(Done done)
{
    const QString url = urlText(m_sseConnectUrl);
    if (m_open) {
        qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Already connected to" << url;
        later(std::move(done), std::nullopt);
        return;
    }
    if (m_openDone) {
        qCWarning(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Connection attempt already in progress.";
        later(std::move(done), u"Connection already in progress"_s);
        return;
    }
    if (m_used) {
        later(std::move(done),
              u"AuthenticatedMCPTransport: The stream of %1 has ended; connect again with a new "
              "transport"_s.arg(url));
        return;
    }
    m_used = true;

    qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Connecting to" << url
                            << "(SSE) with auth:" << (m_authToken ? "true" : "false");
    QNetworkRequest request = requestFor(m_sseConnectUrl);
    request.setRawHeader("Accept", "text/event-stream");
    request.setRawHeader("Cache-Control", "no-cache");
    request.setRawHeader("Connection", "keep-alive");
    if (m_authToken)
        qCDebug(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Added Authorization header to connect request for"
            << url;
    m_openDone = std::move(done);
    m_stream = m_network->get(request);
    connect(m_stream, &QNetworkReply::metaDataChanged, this, &AuthenticatedMCPTransport::readHead);
    connect(m_stream, &QIODevice::readyRead, this, &AuthenticatedMCPTransport::readBody);
    connect(m_stream, &QNetworkReply::finished, this, &AuthenticatedMCPTransport::streamEnded);
}

void AuthenticatedMCPTransport::readHead()
{
    if (!m_stream || !m_openDone)
        return;
    const QString url = urlText(m_sseConnectUrl);
    const QVariant statusAttribute = m_stream->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!statusAttribute.isValid()) {
        qCWarning(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Invalid SSE response type for" << url;
        dropStream();
        finishOpen(u"AuthenticatedMCPTransport: Invalid SSE response type for %1"_s.arg(url));
        return;
    }
    const int status = statusAttribute.toInt();
    if (status == 401 || status == 403) {
        const QString why =
            u"SSE Connection to %1 failed due to authentication (HTTP %2)"_s.arg(url).arg(status);
        qCWarning(lcMcp).noquote() << "AuthenticatedMCPTransport:" << why;
        dropStream();
        finishOpen(why);
        return;
    }
    if (status != 200) {
        const QString why =
            u"AuthenticatedMCPTransport: Failed to establish SSE connection to %1 (HTTP %2)"_s
                .arg(url)
                .arg(status);
        qCWarning(lcMcp).noquote() << why;
        dropStream();
        finishOpen(why);
        return;
    }
    const QString contentType = m_stream->header(QNetworkRequest::ContentTypeHeader).toString();
    const QString mimeType = contentType.section(u';', 0, 0).trimmed();
    if (mimeType.compare("text/event-stream"_L1, Qt::CaseInsensitive) != 0) {
        qCWarning(lcMcp).noquote() << "AuthenticatedMCPTransport: Connected to" << url
                                   << ", but MimeType is not text/event-stream:" << contentType;
        dropStream();
        finishOpen(u"AuthenticatedMCPTransport: Invalid MimeType for %1: %2"_s.arg(
            url, contentType.isEmpty() ? u"none"_s : contentType));
        return;
    }
    qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: SSE connection headers OK for" << url
                            << ". Waiting for first data to confirm full connection.";
}

void AuthenticatedMCPTransport::readBody()
{
    if (!m_stream)
        return;
    const QByteArray chunk = m_stream->readAll();
    if (chunk.isEmpty())
        return;
    const QString url = urlText(m_sseConnectUrl);
    QPointer<AuthenticatedMCPTransport> self(this);

    const QList<SseEvent> events = m_parser->feed(chunk);
    qCDebug(lcMcp).noquote()
        << "AuthenticatedMCPTransport: [appendToSseBufferAndProcessEvents] Received" << chunk.size()
        << "bytes; unfinished event now" << m_parser->bufferedSize()
        << "bytes:" << QString::fromUtf8(chunk.left(500));
    if (m_parser->failed()) {
        qCWarning(lcMcp).noquote()
            << "AuthenticatedMCPTransport:" << url << "-" << m_parser->error();
        const QString why = m_parser->error();
        dropStream();
        if (m_openDone) {
            finishOpen(why);
        } else if (std::exchange(m_open, false)) {
            Q_EMIT closed(why);
        }
        return;
    }
    if (events.isEmpty())
        qCDebug(lcMcp).noquote()
            << "AuthenticatedMCPTransport: [appendToSseBufferAndProcessEvents] "
               "No complete event delimiter found in buffer. Waiting for "
               "more data.";

    // The connection counts from the first byte of the body on; the events of
    // that first read (the endpoint, usually) are taken before the opener may
    // send, so its first POST goes to the right place.
    const bool first = !m_open && m_openDone;
    if (first)
        m_open = true;
    for (const SseEvent& event : events) {
        if (event.type != "message"_L1 || !event.id.isEmpty())
            qCDebug(lcMcp).noquote()
                << "AuthenticatedMCPTransport: Found field event:" << event.type
                << "id:" << event.id;
        handleEvent(event.type, event.data);
        if (!self || !m_stream)
            return;
    }
    if (first) {
        qCInfo(lcMcp).noquote()
            << "AuthenticatedMCPTransport: First data received, SSE connection fully established to"
            << url;
        finishOpen(std::nullopt);
    }
}

void AuthenticatedMCPTransport::handleEvent(const QString& type, const QByteArray& data)
{
    if (type == "endpoint"_L1) {
        takeEndpoint(data);
        return;
    }
    if (type != "message"_L1) {
        qCDebug(lcMcp).noquote() << "AuthenticatedMCPTransport: Ignoring event of type" << type;
        return;
    }
    qCDebug(lcMcp).noquote() << "AuthenticatedMCPTransport: Accumulated data line:"
                             << QString::fromUtf8(data.left(500));
    classify(data);
}

void AuthenticatedMCPTransport::takeEndpoint(const QByteArray& data)
{
    const QString text = QString::fromUtf8(data).trimmed();
    qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Received 'endpoint' event with data:"
                            << text;
    if (!m_sseConnectUrl.isValid() || m_sseConnectUrl.isRelative()) {
        qCWarning(lcMcp).noquote() << "AuthenticatedMCPTransport: Could not parse sseConnectURL:"
                                   << urlText(m_sseConnectUrl);
        return;
    }
    const QUrl endpoint(text, QUrl::StrictMode);
    if (text.isEmpty() || !endpoint.isValid()) {
        qCWarning(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Could not parse new endpoint path string:" << text;
        return;
    }
    // A path (with its query) is taken on the stream's own origin. A full URL
    // is taken only when it names that same origin: the bearer token goes
    // nowhere else.
    const QUrl resolved = m_sseConnectUrl.resolved(endpoint);
    if (!resolved.isValid() || resolved.host().isEmpty()) {
        qCWarning(lcMcp).noquote()
            << u"AuthenticatedMCPTransport: Could not construct new message POST URL from "
               "sseConnectURL ('%1') and received data ('%2')"_s.arg(urlText(m_sseConnectUrl),
                                                                     text);
        return;
    }
    if (!sameOrigin(resolved, m_sseConnectUrl)) {
        qCWarning(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Refusing endpoint" << urlText(resolved)
            << "on another origin than" << urlText(m_sseConnectUrl) << "; POST URL stays"
            << urlText(m_messagePostUrl);
        return;
    }
    qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Updating message POST URL from"
                            << urlText(m_messagePostUrl) << "to" << urlText(resolved);
    m_messagePostUrl = resolved;
}

void AuthenticatedMCPTransport::classify(const QByteArray& data)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        qCWarning(lcMcp).noquote()
            << u"AuthenticatedMCPTransport: Failed to parse JSON from message (JSONSerialization "
               "failed or not a dictionary): <"_s +
                   QString::fromUtf8(data.left(500)) + u'>';
        Q_EMIT messageReceived(data);
        return;
    }
    const QJsonObject message = document.object();
    if (message.contains("id"_L1)) {
        qCDebug(lcMcp).noquote() << "AuthenticatedMCPTransport: Message has an \"id\", treating "
                                    "as a client-handled response. Yielding to client.";
        Q_EMIT messageReceived(data);
        return;
    }
    const QJsonValue tools = message.value("params"_L1).toObject().value("tools"_L1);
    if (message.value("method"_L1) == "tools/list"_L1 && tools.isArray()) {
        QStringList names;
        for (const auto& tool : tools.toArray()) {
            const QJsonValue name = tool.toObject().value("name"_L1);
            if (!name.isString()) {
                qCWarning(lcMcp).noquote()
                    << "AuthenticatedMCPTransport: Found tool dictionary in 'params.tools' "
                       "without a 'name' string:"
                    << QString::fromUtf8(
                           QJsonDocument(tool.toObject()).toJson(QJsonDocument::Compact));
                continue;
            }
            if (!names.contains(name.toString()))
                names.append(name.toString());
        }
        if (!names.isEmpty()) {
            m_discoveredTools = names;
            qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Consumed ASYNCHRONOUS "
                                       "tools/list notification. Not yielding to client."
                                    << names.size() << "tools:" << names.join(u", "_s);
            return;
        }
        qCInfo(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Received tools/list notification"
               ", but parsed tool names list is empty. Yielding to client as it might be a valid "
               "empty response or clear event.";
        Q_EMIT messageReceived(data);
        return;
    }
    qCDebug(lcMcp).noquote() << "AuthenticatedMCPTransport: Message is NOT an ASYNCHRONOUS "
                                "tools/list notification. Yielding to client.";
    Q_EMIT messageReceived(data);
}

void AuthenticatedMCPTransport::streamEnded()
{
    if (!m_stream)
        return;
    const QString url = urlText(m_sseConnectUrl);
    const QNetworkReply::NetworkError networkError = m_stream->error();
    const QString errorText = m_stream->errorString();
    // The last bytes may still wait in the reply.
    QPointer<AuthenticatedMCPTransport> self(this);
    readBody();
    if (!self || !m_stream)
        return;
    dropStream();

    if (m_openDone) {
        if (networkError != QNetworkReply::NoError) {
            qCWarning(lcMcp).noquote()
                << "AuthenticatedMCPTransport: Connection task" << url
                << "failed or was cancelled before first data. Resuming connect continuation "
                   "with error:"
                << errorText;
            finishOpen(
                u"AuthenticatedMCPTransport: Connection to %1 failed before first data: %2"_s.arg(
                    url, errorText));
        } else {
            qCWarning(lcMcp).noquote()
                << url << "completed with unknown error before connection fully established";
            finishOpen(u"AuthenticatedMCPTransport: %1 completed with unknown error before "
                       "connection fully established"_s.arg(url));
        }
        return;
    }
    if (!std::exchange(m_open, false))
        return;
    qCInfo(lcMcp).noquote()
        << "AuthenticatedMCPTransport: Main SSE task" << url
        << "completed/failed. Cleaning up SSE task and marking as disconnected.";
    if (networkError == QNetworkReply::NoError) {
        qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: URLSession task" << url
                                << "completed without error. Finishing message stream.";
        Q_EMIT closed(QString());
    } else {
        Q_EMIT closed(u"The event stream of %1 ended: %2"_s.arg(url, errorText));
    }
}

void AuthenticatedMCPTransport::finishOpen(const std::optional<QString>& error)
{
    Done done = std::exchange(m_openDone, nullptr);
    if (error)
        m_open = false;
    if (done)
        done(error);
}

void AuthenticatedMCPTransport::dropStream()
{
    QNetworkReply* stream = m_stream;
    m_stream = nullptr;
    if (!stream)
        return;
    stream->disconnect(this);
    stream->abort();
    stream->deleteLater();
}

void AuthenticatedMCPTransport::later(Done done, const std::optional<QString>& error)
{
    QMetaObject::invokeMethod(
        this, [done = std::move(done), error] { done(error); }, Qt::QueuedConnection);
}

void AuthenticatedMCPTransport::send(const QByteArray& message, Done done)
{
    if (!m_open) {
        const QString url = urlText(m_sseConnectUrl);
        qCWarning(lcMcp).noquote()
            << "AuthenticatedMCPTransport: Cannot send data to" << url << ", not connected.";
        later(std::move(done), u"AuthenticatedMCPTransport: Not connected to %1"_s.arg(url));
        return;
    }
    const QUrl target = m_messagePostUrl;
    const QString url = urlText(target);
    qCDebug(lcMcp).noquote() << "AuthenticatedMCPTransport: Sending POST data (length:"
                             << message.size() << ") to" << url;
    QNetworkRequest request = requestFor(target);
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json"_ba);
    QPointer<QNetworkReply> reply = m_network->post(request, message);
    m_posts.append(reply);
    connect(reply, &QNetworkReply::finished, this, [this, reply, url, done = std::move(done)] {
        m_posts.removeAll(reply);
        m_posts.removeAll(nullptr);
        if (!reply)
            return;
        reply->deleteLater();
        const QVariant statusAttribute = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!statusAttribute.isValid()) {
            qCWarning(lcMcp).noquote()
                << "AuthenticatedMCPTransport: Invalid response type from server during send to"
                << url << "-" << reply->errorString();
            done(
                u"Send to %1 failed, invalid response type. (%2)"_s.arg(url, reply->errorString()));
            return;
        }
        const int status = statusOf(*reply);
        if (status >= 200 && status <= 299) {
            qCDebug(lcMcp).noquote() << "AuthenticatedMCPTransport: POST to" << url
                                     << "completed with HTTP status" << status;
            done(std::nullopt);
            return;
        }
        if (status == 401 || status == 403) {
            const QString why =
                u"Send POST to %1 failed due to authentication (HTTP %2)"_s.arg(url).arg(status);
            qCWarning(lcMcp).noquote() << "AuthenticatedMCPTransport:" << why;
            done(why);
            return;
        }
        const QString body = QString::fromUtf8(reply->readAll()).left(maxErrorBodyText);
        const QString why =
            u"Send POST to %1 failed with status %2. Body: %3"_s.arg(url).arg(status).arg(
                body.trimmed().isEmpty() ? u"No readable response body"_s : body);
        qCWarning(lcMcp).noquote() << "AuthenticatedMCPTransport:" << why;
        done(why);
    });
}

void AuthenticatedMCPTransport::close()
{
    const QString url = urlText(m_sseConnectUrl);
    qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Disconnecting from" << url;
    m_used = true;
    dropStream();
    QPointer<AuthenticatedMCPTransport> self(this);
    if (m_openDone) {
        m_open = false;
        later(std::exchange(m_openDone, nullptr), u"Connection cancelled during disconnect."_s);
    }
    const bool wasOpen = std::exchange(m_open, false);
    m_parser = std::make_unique<SseEventParser>();
    if (wasOpen)
        Q_EMIT closed(QString());
    if (self)
        qCInfo(lcMcp).noquote() << "AuthenticatedMCPTransport: Disconnected from" << url
                                << "(SSE) and stream finished.";
}

bool AuthenticatedMCPTransport::isOpen() const
{
    return m_open;
}

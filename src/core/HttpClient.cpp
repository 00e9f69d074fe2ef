#include "core/HttpClient.h"

#include "core/JsonValues.h"
#include "core/Logging.h"

#include <QFutureWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QPromise>
#include <QThreadStorage>

using namespace Qt::StringLiterals;

namespace {

HttpFailure failureOf(const QNetworkReply& reply, int status)
{
    switch (reply.error()) {
    case QNetworkReply::NoError:
        return HttpFailure::None;
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyNotFoundError:
        return status != 0 ? HttpFailure::None : HttpFailure::Unreachable;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // what a transfer time-out reports
    case QNetworkReply::ProxyTimeoutError:
        return HttpFailure::TimedOut;
    default:
        // HTTP error statuses come as content or protocol errors with a status set.
        return status != 0 ? HttpFailure::None : HttpFailure::Other;
    }
}

QString failureName(HttpFailure failure)
{
    switch (failure) {
    case HttpFailure::None:
        break;
    case HttpFailure::Unreachable:
        return u"unreachable"_s;
    case HttpFailure::TimedOut:
        return u"timed out"_s;
    case HttpFailure::Other:
        return u"transport error"_s;
    case HttpFailure::NoAccessToken:
        return u"no access token"_s;
    case HttpFailure::Cancelled:
        return u"cancelled"_s;
    }
    return {};
}

HttpRequest requestFor(QByteArray method, QString path, QUrl url)
{
    HttpRequest request;
    request.method = std::move(method);
    request.path = std::move(path);
    request.url = std::move(url);
    return request;
}

HttpRequest withJsonBody(HttpRequest request, const QJsonValue& json)
{
    request.body = json.isArray() ? QJsonDocument(json.toArray()).toJson(QJsonDocument::Compact)
                                  : QJsonDocument(json.toObject()).toJson(QJsonDocument::Compact);
    request.contentType = "application/json";
    return request;
}

} // namespace

// --- requests and responses -----------------------------------------------------------------

HttpRequest HttpRequest::get(const QString& path)
{
    return requestFor("GET", path, {});
}

HttpRequest HttpRequest::get(const QUrl& url)
{
    return requestFor("GET", {}, url);
}

HttpRequest HttpRequest::postJson(const QString& path, const QJsonValue& json)
{
    return withJsonBody(requestFor("POST", path, {}), json);
}

HttpRequest HttpRequest::postJson(const QUrl& url, const QJsonValue& json)
{
    return withJsonBody(requestFor("POST", {}, url), json);
}

std::optional<QJsonValue> HttpResponse::json(QString* error) const
{
    return parseJson(body, error);
}

// --- one call -------------------------------------------------------------------------------

struct HttpCall::Handlers
{
    HttpClient::Completion done;
    HttpClient::Stream stream;
    bool streamed = false;
};

HttpCall::HttpCall(HttpClient& client, HttpRequest request)
    : QObject(&client), m_client(client), m_request(std::move(request))
{}

HttpCall::~HttpCall()
{
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
        delete m_reply;
    }
}

void HttpCall::cancel()
{
    m_handlers.reset();
    delete m_tokenWatcher;
    m_tokenWatcher = nullptr;
    if (QNetworkReply* reply = std::exchange(m_reply, nullptr)) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    deleteLater();
}

void HttpCall::abort()
{
    if (m_reply) {
        m_reply->abort(); // finishes the reply, which reports
        return;
    }
    if (m_handlers) {
        delete m_tokenWatcher;
        m_tokenWatcher = nullptr;
        HttpResponse response;
        response.failure = HttpFailure::Cancelled;
        const std::unique_ptr<Handlers> handlers = std::move(m_handlers);
        deleteLater();
        (handlers->streamed ? handlers->stream.onFinished : handlers->done)(response);
    }
}

void HttpCall::send(const std::optional<QString>& token)
{
    QNetworkRequest request(m_request.url.isEmpty()
                                ? HttpClient::endpoint(m_client.baseUrl(), m_request.path)
                                : m_request.url);
    request.setTransferTimeout(static_cast<int>(m_request.timeout.count()));
    QNetworkRequest::RedirectPolicy redirects = QNetworkRequest::ManualRedirectPolicy;
    if (m_request.followRedirects) {
        // A bearer token must never follow a redirect to another host.
        redirects = token ? QNetworkRequest::SameOriginRedirectPolicy
                          : QNetworkRequest::NoLessSafeRedirectPolicy;
    }
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, redirects);
    if (!m_request.accept.isEmpty()) {
        request.setRawHeader("Accept", m_request.accept);
    }
    if (token) {
        request.setRawHeader("Authorization", "Bearer " + token->toUtf8());
    }
    if (!m_request.contentType.isEmpty()) {
        request.setHeader(QNetworkRequest::ContentTypeHeader, m_request.contentType);
    }
    for (const auto& [name, value] : std::as_const(m_request.headers)) {
        request.setRawHeader(name, value);
    }

    QNetworkAccessManager& network = HttpClient::networkForThisThread();
    const QByteArray& method = m_request.method;
    if (method == "GET") {
        m_reply = network.get(request);
    } else if (method == "POST") {
        m_reply = network.post(request, m_request.body);
    } else if (method == "PUT") {
        m_reply = network.put(request, m_request.body);
    } else if (method == "DELETE" && m_request.body.isEmpty()) {
        m_reply = network.deleteResource(request);
    } else {
        m_reply = network.sendCustomRequest(request, method, m_request.body);
    }
    // The request holds what it was given to send; the body and token are not
    // needed past this point.
    m_request.body.clear();
    m_request.token.clear();
    if (m_handlers->streamed) {
        connect(m_reply, &QNetworkReply::readyRead, this, &HttpCall::readBody);
    } else if (m_request.maxBodySize) {
        connect(m_reply, &QNetworkReply::downloadProgress, this, &HttpCall::checkBodySize);
    }
    connect(m_reply, &QNetworkReply::finished, this, &HttpCall::replyFinished);
}

void HttpCall::readHead()
{
    if (m_headRead || !m_reply) {
        return;
    }
    m_headRead = true;
    HttpResponse head = responseOf(*m_reply);
    head.failure = HttpFailure::None;
    const HttpClient::Stream& stream = m_handlers->stream;
    m_streaming = !stream.onHead || stream.onHead(head);
}

void HttpCall::readBody()
{
    if (!m_reply || !m_handlers) {
        return;
    }
    if (m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 0) {
        return; // nothing of an HTTP answer yet
    }
    readHead();
    if (!m_streaming || !m_handlers) {
        return;
    }
    const QByteArray data = m_reply->readAll();
    if (data.isEmpty() || !m_handlers->stream.onData || m_handlers->stream.onData(data)) {
        return;
    }
    if (m_reply && !m_reply->isFinished()) {
        m_reply->abort(); // finishes the reply, which reports
    }
}

void HttpCall::checkBodySize(qint64 received, qint64 total)
{
    // The announced length is refused before any of it is read; a body
    // without one is cut off once it has grown past the limit.
    const qint64 limit = *m_request.maxBodySize;
    if (m_bodyTooLarge || !m_reply || (received <= limit && total <= limit)) {
        return;
    }
    m_bodyTooLarge = true;
    m_reply->abort(); // finishes the reply, which reports
}

void HttpCall::replyFinished()
{
    QNetworkReply* reply = m_reply;
    if (!reply || !m_handlers) {
        return;
    }
    const QPointer<HttpCall> self(this);
    if (m_handlers->streamed && reply->bytesAvailable() > 0) {
        readBody();
        if (!self || !m_handlers) {
            return;
        }
    }
    HttpResponse response = responseOf(*reply);
    if (m_bodyTooLarge) {
        response.failure = HttpFailure::Other;
        response.bodyTooLarge = true;
        response.errorString =
            u"The response is larger than %1 bytes"_s.arg(*m_request.maxBodySize);
    } else if (!m_streaming && reply->isOpen()) {
        response.body = reply->readAll();
    }
    m_reply = nullptr;
    reply->deleteLater();

    const QUrl shown = response.url.adjusted(QUrl::RemoveQuery | QUrl::RemoveUserInfo);
    if (response.answered()) {
        qCDebug(lcHttp).noquote() << u"%1 %2 → %3"_s
                                         .arg(QString::fromLatin1(m_request.method),
                                              shown.toString())
                                         .arg(response.status);
    } else {
        qCDebug(lcHttp).noquote() << u"%1 %2 → %3: %4"_s.arg(
            QString::fromLatin1(m_request.method), shown.toString(), failureName(response.failure),
            response.errorString);
    }
    const std::unique_ptr<Handlers> handlers = std::move(m_handlers);
    deleteLater();
    (handlers->streamed ? handlers->stream.onFinished : handlers->done)(response);
}

HttpResponse HttpCall::responseOf(const QNetworkReply& reply) const
{
    HttpResponse response;
    response.status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    response.failure = failureOf(reply, response.status);
    response.reasonPhrase = reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
    response.url = reply.url();
    response.networkError = reply.error();
    if (reply.error() != QNetworkReply::NoError) {
        response.errorString = reply.errorString();
    }
    const QVariant length = reply.header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid()) {
        response.contentLength = length.toLongLong();
    }
    return response;
}

// --- the client -----------------------------------------------------------------------------

HttpClient::HttpClient(QUrl baseUrl, AccessTokenProvider accessToken, QObject* parent)
    : QObject(parent), m_baseUrl(std::move(baseUrl)), m_accessToken(std::move(accessToken))
{}

// The calls in flight are children: they go, and abort their replies, with
// the client, before any of them could answer.
HttpClient::~HttpClient() = default;

QUrl HttpClient::endpoint(const QUrl& baseUrl, const QString& path)
{
    QUrl url = baseUrl;
    QString basePath = url.path();
    while (basePath.endsWith(u'/')) {
        basePath.chop(1);
    }
    url.setPath(basePath + path);
    url.setQuery(QString());
    url.setFragment(QString());
    return url;
}

QPointer<HttpCall> HttpClient::send(const HttpRequest& request, Completion done)
{
    auto handlers = std::make_unique<HttpCall::Handlers>();
    handlers->done = std::move(done);
    return start(request, std::move(handlers));
}

QPointer<HttpCall> HttpClient::stream(const HttpRequest& request, Stream stream)
{
    auto handlers = std::make_unique<HttpCall::Handlers>();
    handlers->stream = std::move(stream);
    handlers->streamed = true;
    return start(request, std::move(handlers));
}

QPointer<HttpCall> HttpClient::start(const HttpRequest& request,
                                     std::unique_ptr<HttpCall::Handlers> handlers)
{
    auto* call = new HttpCall(*this, request);
    call->m_handlers = std::move(handlers);
    QPointer<HttpCall> handle(call);
    switch (request.bearer) {
    case HttpRequest::Bearer::None:
        call->send(std::nullopt);
        return handle;
    case HttpRequest::Bearer::Given:
        call->send(request.token);
        return handle;
    case HttpRequest::Bearer::FromProvider:
        break;
    }
    auto* watcher = new QFutureWatcher<std::optional<QString>>(call);
    call->m_tokenWatcher = watcher;
    connect(watcher, &QFutureWatcherBase::finished, call, [call, watcher] {
        call->m_tokenWatcher = nullptr;
        watcher->deleteLater();
        const QFuture<std::optional<QString>> answer = watcher->future();
        if (!answer.isResultReadyAt(0) || !answer.result() || answer.result()->isEmpty()) {
            HttpResponse response;
            response.failure =
                answer.isResultReadyAt(0) ? HttpFailure::NoAccessToken : HttpFailure::Cancelled;
            const std::unique_ptr<HttpCall::Handlers> handlers = std::move(call->m_handlers);
            call->deleteLater();
            (handlers->streamed ? handlers->stream.onFinished : handlers->done)(response);
            return;
        }
        call->send(answer.result());
    });
    if (m_accessToken) {
        watcher->setFuture(m_accessToken());
    } else {
        QPromise<std::optional<QString>> none;
        none.start();
        none.addResult(std::nullopt);
        none.finish();
        watcher->setFuture(none.future());
    }
    return handle;
}

QNetworkAccessManager& HttpClient::networkForThisThread()
{
    // Deleted with its thread; the main thread's with the application object.
    static QThreadStorage<QNetworkAccessManager*> managers;
    if (!managers.hasLocalData()) {
        managers.setLocalData(new QNetworkAccessManager);
    }
    return *managers.localData();
}

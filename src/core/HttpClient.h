// HTTP for the backend's REST endpoints and the outside services: requests
// under a base URL, JSON bodies, time-outs, the bearer token when a request
// asks for it, failures told apart as values, and streamed bodies for
// downloads and event streams.
#pragma once

#include "core/AccessTokenProvider.h"

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

class QNetworkAccessManager;

// What went wrong below the HTTP level; None when an HTTP answer arrived,
// whatever its status.
enum class HttpFailure
{
    None,
    Unreachable,   // refused, host not found, connection lost, no network
    TimedOut,      // no progress within the request's time-out
    Other,         // TLS, protocol and other transport errors
    NoAccessToken, // the request wanted the bearer token and there is none: nothing was sent
    Cancelled,     // the token's source went away before the request could be sent
};

// One request. A path is taken under the client's base URL; an absolute `url`
// is used as it is.
struct HttpRequest
{
    enum class Bearer
    {
        None,
        FromProvider, // asked of the client's AccessTokenProvider just before sending
        Given,        // `token`
    };

    QByteArray method = "GET";
    QString path;
    QUrl url;
    QByteArray body;
    QByteArray contentType;
    QByteArray accept;
    QList<std::pair<QByteArray, QByteArray>> headers;
    Bearer bearer = Bearer::None;
    QString token;
    // No progress for this long ends the request as TimedOut.
    std::chrono::milliseconds timeout{60'000};
    // Redirects are followed only when asked, and never with a bearer token to
    // another origin.
    bool followRedirects = false;
    // A body past this many bytes ends the request: nothing of it is kept,
    // and the response says so (`bodyTooLarge`). For answers from services
    // whose size nobody vouches for.
    std::optional<qint64> maxBodySize;

    static HttpRequest get(const QString& path);
    static HttpRequest get(const QUrl& url);
    // A POST of `json`, compact, as "application/json".
    static HttpRequest postJson(const QString& path, const QJsonValue& json);
    static HttpRequest postJson(const QUrl& url, const QJsonValue& json);

    HttpRequest& acceptingJson()
    {
        accept = "application/json";
        return *this;
    }
    HttpRequest& withBearerFromProvider()
    {
        bearer = Bearer::FromProvider;
        return *this;
    }
    HttpRequest& withBearer(const QString& accessToken)
    {
        bearer = Bearer::Given;
        token = accessToken;
        return *this;
    }
    HttpRequest& withTimeout(std::chrono::milliseconds limit)
    {
        timeout = limit;
        return *this;
    }
    HttpRequest& withMaxBodySize(qint64 bytes)
    {
        maxBodySize = bytes;
        return *this;
    }
};

// How a request ended. For a streamed request whose body went to the
// stream's reader, `body` is empty.
struct HttpResponse
{
    HttpFailure failure = HttpFailure::Other;
    int status = 0; // 0 when no HTTP answer arrived
    QString reasonPhrase;
    QByteArray body;
    QUrl url; // where the answer came from, after redirects
    // The network layer's own error; set also for an HTTP answer cut short or
    // with an error status. Empty text when there was none.
    QNetworkReply::NetworkError networkError = QNetworkReply::NoError;
    QString errorString;
    std::optional<qint64> contentLength;
    // The body went past the request's `maxBodySize`; `failure` is Other.
    bool bodyTooLarge = false;

    bool answered() const { return failure == HttpFailure::None; }
    bool isSuccess() const { return answered() && status >= 200 && status <= 299; }
    // The body as a JSON object or array; nothing, with `error` saying why,
    // when it is not one.
    std::optional<QJsonValue> json(QString* error = nullptr) const;
};

class HttpClient;

// One request in flight. Owned by its client, gone once it has finished.
class HttpCall : public QObject
{
    Q_OBJECT

public:
    ~HttpCall() override;

    // Stops the request; its completion never runs.
    void cancel();
    // Stops the request; its completion runs at once, with what arrived and
    // the network layer's cancellation.
    void abort();

private:
    friend class HttpClient;
    struct Handlers;

    HttpCall(HttpClient& client, HttpRequest request);
    void send(const std::optional<QString>& token);
    void readHead();
    void readBody();
    void checkBodySize(qint64 received, qint64 total);
    void replyFinished();
    HttpResponse responseOf(const QNetworkReply& reply) const;

    HttpClient& m_client;
    HttpRequest m_request;
    std::unique_ptr<Handlers> m_handlers;
    QPointer<QNetworkReply> m_reply;
    QObject* m_tokenWatcher = nullptr; // child, while the token is asked for
    bool m_headRead = false;
    bool m_streaming = false;
    bool m_bodyTooLarge = false;
};

// Lives on the thread that uses it; every completion and stream handler runs
// there. Requests go out through the one network manager of that thread.
// Destroying the client stops its requests in flight without calling back,
// so an owner that holds its client as a member never hears from a request
// after it has gone.
//
// Nothing of a request's headers is logged; a debug line names the method,
// the address without its query, and the outcome.
class HttpClient : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(const HttpResponse&)>;

    // Reading a body as it arrives (a download, an event stream).
    struct Stream
    {
        // The status and headers arrived (`head` has no body yet). True to
        // have the body handed to onData; false to have it collected into the
        // final response instead, as for an error page.
        std::function<bool(const HttpResponse& head)> onHead;
        // A piece of the body; false stops the request, which then finishes.
        std::function<bool(const QByteArray& chunk)> onData;
        Completion onFinished;
    };

    explicit HttpClient(QUrl baseUrl = {}, AccessTokenProvider accessToken = {},
                        QObject* parent = nullptr);
    ~HttpClient() override;
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // `path` ("/auth/user") under `baseUrl`, keeping any path the base already
    // has ("https://host/api" + "/calls" → "https://host/api/calls").
    static QUrl endpoint(const QUrl& baseUrl, const QString& path);
    QUrl baseUrl() const { return m_baseUrl; }

    // Sends `request`; `done` runs once, later, on this client's thread.
    QPointer<HttpCall> send(const HttpRequest& request, Completion done);
    QPointer<HttpCall> stream(const HttpRequest& request, Stream stream);

    // The network manager of the calling thread, made on first use and gone
    // with the thread (the main thread's with the application object).
    static QNetworkAccessManager& networkForThisThread();

private:
    friend class HttpCall;

    QPointer<HttpCall> start(const HttpRequest& request, std::unique_ptr<HttpCall::Handlers>);

    const QUrl m_baseUrl;
    const AccessTokenProvider m_accessToken;
};

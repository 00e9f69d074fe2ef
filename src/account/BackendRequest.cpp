#include "account/BackendRequest.h"

namespace BackendRequest {

QUrl endpoint(const QUrl& baseUrl, const QString& path)
{
    QUrl url = baseUrl;
    QString basePath = url.path();
    while (basePath.endsWith(QLatin1Char('/')))
        basePath.chop(1);
    url.setPath(basePath + path);
    url.setQuery(QString());
    url.setFragment(QString());
    return url;
}

QNetworkRequest make(const QUrl& baseUrl, const QString& path, const QString& accessToken,
                     bool jsonBody, std::chrono::milliseconds timeout)
{
    QNetworkRequest request(endpoint(baseUrl, path));
    request.setTransferTimeout(static_cast<int>(timeout.count()));
    // A bearer token must never follow a redirect to another host.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setRawHeader("Accept", "application/json");
    if (!accessToken.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + accessToken.toUtf8());
    if (jsonBody)
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    return request;
}

Failure failureOf(const QNetworkReply& reply)
{
    switch (reply.error()) {
    case QNetworkReply::NoError:
        return Failure::None;
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyNotFoundError:
        return statusOf(reply) != 0 ? Failure::None : Failure::Unreachable;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // what a transfer timeout reports
    case QNetworkReply::ProxyTimeoutError:
        return Failure::TimedOut;
    default:
        // HTTP error statuses come as content/protocol errors with a status set.
        return statusOf(reply) != 0 ? Failure::None : Failure::Other;
    }
}

int statusOf(const QNetworkReply& reply)
{
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

} // namespace BackendRequest

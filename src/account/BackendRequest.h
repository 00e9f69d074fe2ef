// Requests to the backend's REST endpoints: the URL under the configured base,
// the bearer header, JSON bodies, the timeout, and how a failed reply is told
// apart (no connection, timed out, an HTTP status).
#pragma once

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <chrono>

namespace BackendRequest {

constexpr std::chrono::milliseconds defaultTimeout{60'000};

// `path` ("/auth/user") under `baseUrl`, keeping any path the base already has
// ("https://host/api" + "/calls" → "https://host/api/calls").
QUrl endpoint(const QUrl& baseUrl, const QString& path);

// A request for `path`; the bearer header is set when `accessToken` is not empty,
// "Content-Type: application/json" when `jsonBody` is true.
QNetworkRequest make(const QUrl& baseUrl, const QString& path, const QString& accessToken = {},
                     bool jsonBody = false, std::chrono::milliseconds timeout = defaultTimeout);

enum class Failure
{
    None,        // an HTTP answer arrived (whatever its status)
    Unreachable, // refused, host not found, connection lost, no network
    TimedOut,
    Other, // TLS, protocol and other transport errors
};

// What went wrong with `reply` below the HTTP level.
Failure failureOf(const QNetworkReply& reply);

// The HTTP status of a finished reply; 0 when there was no HTTP answer.
int statusOf(const QNetworkReply& reply);

} // namespace BackendRequest

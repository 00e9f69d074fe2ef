// What the built-in tools share about the outside service each one calls:
// where it is, how long and how much of its answer they wait for, and how an
// exchange that got no HTTP answer reads as the tool's result.
#pragma once

#include "tools/LocalToolError.h"

#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

struct HttpResponse;

struct ToolService
{
    QUrl baseUrl;
    // No progress for this long ends a request as a network error.
    std::chrono::milliseconds timeout{60'000};
    // Answers come from services nobody here vouches for: past this size a
    // body is refused unread rather than held in memory and formatted.
    qint64 maxBodySize = 4 * 1024 * 1024;

    // The URL in the environment variable `variable` when it holds an absolute
    // http(s) URL, else `fallback` (the service's public API host).
    static ToolService fromEnvironment(const char* variable, const QString& fallback);

    // `path` under the base URL; nothing when the base is not an http(s) URL
    // with a host, so that no request goes anywhere unexpected.
    std::optional<QUrl> endpoint(const QString& path) const;
};

// The networkError of a request that got no HTTP answer (refused, timed out,
// cut off for its size).
LocalToolError transportFailure(const HttpResponse& response);

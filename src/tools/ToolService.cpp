#include "tools/ToolService.h"

#include "core/HttpClient.h"

using namespace Qt::StringLiterals;

namespace {

bool isServiceUrl(const QUrl& url)
{
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == u"https"_s || url.scheme() == u"http"_s);
}

} // namespace

ToolService ToolService::fromEnvironment(const char* variable, const QString& fallback)
{
    const QUrl configured(qEnvironmentVariable(variable), QUrl::StrictMode);
    ToolService service;
    service.baseUrl = isServiceUrl(configured) ? configured : QUrl(fallback);
    return service;
}

std::optional<QUrl> ToolService::endpoint(const QString& path) const
{
    if (!isServiceUrl(baseUrl))
        return std::nullopt;
    return HttpClient::endpoint(baseUrl, path);
}

LocalToolError transportFailure(const HttpResponse& response)
{
    switch (response.failure) {
    case HttpFailure::TimedOut:
        return LocalToolError::networkError(u"The request timed out."_s);
    case HttpFailure::Unreachable:
        return LocalToolError::networkError(u"Could not connect to the server. ("_s +
                                            response.errorString + u')');
    case HttpFailure::None:
    case HttpFailure::Other:
    case HttpFailure::NoAccessToken:
    case HttpFailure::Cancelled:
        break;
    }
    return LocalToolError::networkError(response.errorString.isEmpty() ? u"The request failed."_s
                                                                       : response.errorString);
}

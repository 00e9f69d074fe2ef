#include "tools/LocalToolError.h"

using namespace Qt::StringLiterals;

LocalToolError LocalToolError::toolNotFound(const QString& identifier)
{
    return {Kind::toolNotFound, u"Tool '"_s + identifier + u"' not found"_s};
}

LocalToolError LocalToolError::missingAPIKey(const QString& toolName)
{
    return {Kind::missingAPIKey, u"API key required for '"_s + toolName + u"'"_s};
}

LocalToolError LocalToolError::missingParameter(const QString& parameter)
{
    return {Kind::missingParameter, u"Missing required parameter: '"_s + parameter + u"'"_s};
}

LocalToolError LocalToolError::invalidParameter(const QString& parameter, const QString& reason)
{
    return {Kind::invalidParameter, u"Invalid parameter '"_s + parameter + u"': "_s + reason};
}

LocalToolError LocalToolError::executionFailed(const QString& message)
{
    return {Kind::executionFailed, u"Tool execution failed: "_s + message};
}

LocalToolError LocalToolError::networkError(const QString& description)
{
    return {Kind::networkError, u"Network error: "_s + description};
}

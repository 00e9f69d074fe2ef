// The errors of running a tool, each with the text the assistant and the chat
// see as the failed call's result.
#pragma once

#include <QString>

class LocalToolError
{
public:
    // In this order; the payload of each is named by its factory below.
    enum class Kind
    {
        toolNotFound,
        missingAPIKey,
        missingParameter,
        invalidParameter,
        executionFailed,
        networkError,
    };

    static LocalToolError toolNotFound(const QString& identifier);
    static LocalToolError missingAPIKey(const QString& toolName);
    static LocalToolError missingParameter(const QString& parameter);
    static LocalToolError invalidParameter(const QString& parameter, const QString& reason);
    // `message` is the service's own error text ("Resend API error: …").
    static LocalToolError executionFailed(const QString& message);
    // `description` is the transport's own description of what went wrong.
    static LocalToolError networkError(const QString& description);

    Kind kind() const { return m_kind; }
    // The user-visible description: "Tool 'x' not found", "Network error: …".
    const QString& text() const { return m_text; }

private:
    LocalToolError(Kind kind, QString text) : m_kind(kind), m_text(std::move(text)) {}

    Kind m_kind;
    QString m_text;
};

// The contract every tool the assistant may run implements, built-in and
// remote alike: who it is, which parameters it takes, and how one approved
// call of it runs.
#pragma once

#include "tools/LocalToolError.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <variant>

class HttpClient;
class KeychainManager;

// What one call of a tool came to: the text for the assistant, or the error
// whose text takes its place.
class ToolOutcome
{
public:
    static ToolOutcome success(QString text) { return ToolOutcome(std::move(text)); }
    static ToolOutcome failure(LocalToolError error) { return ToolOutcome(std::move(error)); }

    bool succeeded() const { return std::holds_alternative<QString>(m_value); }
    // The result text, or the error's text.
    QString text() const;
    std::optional<LocalToolError> error() const;

private:
    explicit ToolOutcome(std::variant<QString, LocalToolError> value) : m_value(std::move(value)) {}

    std::variant<QString, LocalToolError> m_value;
};

// One call as the tool sees it. Valid for the length of `execute` only; a tool
// that answers later copies what it needs.
struct ToolInvocation
{
    // Checked against the tool's parameter schema; absent optional parameters
    // and nulls are left out.
    QJsonObject parameters;
    // The integration's credential for this one call; a tool never keeps it.
    std::optional<QString> apiKey;
    // Lives on the thread `execute` runs on, for the tool's requests.
    HttpClient& http;
    // For the integration's extra items (a default database, a sender address).
    const KeychainManager& keychain;
};

// A tool holds no state beyond its configuration; the registry shares one
// instance between calls, which may overlap on the tool worker thread.
class LocalTool
{
public:
    using Done = std::function<void(const ToolOutcome&)>;

    LocalTool() = default;
    virtual ~LocalTool() = default;
    LocalTool(const LocalTool&) = delete;
    LocalTool& operator=(const LocalTool&) = delete;

    // Stable machine name ("brave_web_search"; remote tools begin with "mcp_"):
    // the registry's key and the name the backend knows the tool by.
    virtual QString identifier() const = 0;
    // Display name ("Brave Web Search").
    virtual QString name() const = 0;
    // Markdown, with the sections "**Best for:**" and "**Returns:**".
    virtual QString description() const = 0;
    // The parameters as a JSON Schema object: {"type": "object", "properties":
    // {…}, "required": […]} and, where extra keys are refused,
    // "additionalProperties": false.
    virtual QJsonObject parameterSchema() const = 0;
    // Whether a call needs the integration's credential; the manager refuses a
    // call without it before anything else is checked.
    virtual bool requiresAPIKey() const { return false; }
    // The input schema as the tool's provider declared it: a remote server's
    // may be missing or not an object, which the parameter schema replaces
    // with one that takes anything.
    virtual std::optional<QJsonValue> declaredInputSchema() const
    {
        return QJsonValue(parameterSchema());
    }

    // Runs on the tool worker thread; `done` is called exactly once, on that
    // thread, possibly later. Parameters have passed the schema by then.
    virtual void execute(const ToolInvocation& call, Done done) = 0;

    // Derived from the schema, in its order.
    QStringList requiredParameters() const;
    QStringList optionalParameters() const;
};

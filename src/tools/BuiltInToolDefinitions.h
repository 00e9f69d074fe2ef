// How each built-in tool is described to the backend's assistant: the short
// description and the JSON Schema of its parameters, by tool identifier.
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace BuiltInToolDefinitions {

// Every built-in tool identifier, in the order the tools are registered.
const QStringList& identifiers();

// {"name", "description", "parameters"}; nothing for an identifier that is
// not a built-in tool.
std::optional<QJsonObject> definition(const QString& identifier);

// The "parameters" of the definition; an empty object when there is none.
QJsonObject parameterSchema(const QString& identifier);

} // namespace BuiltInToolDefinitions

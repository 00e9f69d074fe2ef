// How each built-in tool is described to the backend's assistant: the short
// description and the JSON Schema of its parameters, by tool identifier.
#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

namespace BuiltInToolDefinitions {

// {"name", "description", "parameters"}; nothing for an identifier that is
// not a built-in tool.
std::optional<QJsonObject> definition(const QString& identifier);

} // namespace BuiltInToolDefinitions

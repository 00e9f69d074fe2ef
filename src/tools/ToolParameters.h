// Checks the parameters of a tool call against the tool's JSON Schema before
// the tool sees them: required ones present, each of its declared type,
// within its bounds and choices, no stray keys where the schema refuses them.
#pragma once

#include "tools/LocalToolError.h"

#include <QJsonObject>

#include <variant>

// The parameters to hand to the tool (nulls of optional parameters left out),
// or the first fault found: required parameters in the schema's order first,
// then the given ones by name.
std::variant<QJsonObject, LocalToolError> checkToolParameters(const QJsonObject& schema,
                                                              const QJsonObject& parameters);

// The tool-configuration document that tells the backend which tools the
// client will run and what parameters they take:
// {"executionMode": "local", "localTools": [definitions], "enabledTools": [names]}.
#pragma once

#include "tools/IntegrationCatalogue.h"

#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

class LocalTool;

namespace ToolConfigurationDocument {

// The definitions of the built-in tools of every enabled, usable integration
// (catalogue order, then each integration's tool order), then one per remote
// tool.
QJsonObject build(const QList<IntegrationItem>& integrations,
                  const QList<std::shared_ptr<const LocalTool>>& remoteTools);

// The document as pretty-printed JSON text, with its log lines; nothing (and
// the reason logged) when it cannot be encoded, so that no half document is sent.
std::optional<QString> encode(const QJsonObject& document);

// A remote tool's definition: its identifier, display name, description and
// input schema (or the schema that takes anything, when it declared none
// usable).
QJsonObject remoteDefinition(const LocalTool& tool);

// What a remote tool without a usable input schema is described with.
QJsonObject fallbackSchema();

} // namespace ToolConfigurationDocument

#include "tools/ToolConfigurationDocument.h"

#include "core/Logging.h"
#include "tools/BuiltInToolDefinitions.h"
#include "tools/LocalTool.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>

using namespace Qt::StringLiterals;

namespace ToolConfigurationDocument {

namespace {

bool isRemoteName(const QString& name)
{
    return name.startsWith(u"mcp_"_s);
}

// JSON has no NaN or infinity; a document holding one cannot be encoded.
std::optional<QString> nonFiniteNumber(const QJsonValue& value, const QString& path)
{
    if (value.isDouble() && !std::isfinite(value.toDouble()))
        return path;
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (qsizetype i = 0; i < array.size(); ++i) {
            if (auto found = nonFiniteNumber(array.at(i), u"%1[%2]"_s.arg(path).arg(i)))
                return found;
        }
    }
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            if (auto found = nonFiniteNumber(it.value(), path + u'.' + it.key()))
                return found;
        }
    }
    return std::nullopt;
}

void logRemoteDetails(const QJsonObject& definition)
{
    qCInfo(lcTools).noquote() << u"🔍     📋 MCP Tool Details:"_s;
    qCInfo(lcTools).noquote() << u"🔍       Name: "_s + definition.value(u"name"_s).toString();
    const QJsonValue parameters = definition.value(u"parameters"_s);
    if (parameters.isUndefined()) {
        qCInfo(lcTools).noquote() << u"🔍       ❌ No parameters field found"_s;
    } else {
        const QJsonObject schema = parameters.toObject();
        qCInfo(lcTools).noquote() << u"🔍       Parameters type: "_s +
                                         (parameters.isObject() ? u"object"_s : u"not an object"_s);
        qCInfo(lcTools).noquote() << u"🔍       Parameters keys: "_s + schema.keys().join(u", "_s);
        qCInfo(lcTools).noquote()
            << u"🔍       Properties: "_s +
                   schema.value(u"properties"_s).toObject().keys().join(u", "_s);
        qCInfo(lcTools).noquote() << u"🔍       Schema type: "_s +
                                         schema.value(u"type"_s).toString(u"(none)"_s);
        QStringList required;
        for (const QJsonValue name : schema.value(u"required"_s).toArray())
            required.append(name.toString());
        qCInfo(lcTools).noquote() << u"🔍       Required: "_s + required.join(u", "_s);
    }
    qCInfo(lcTools).noquote() << u"🔍     📋 End MCP Tool Details"_s;
}

} // namespace

QJsonObject fallbackSchema()
{
    return {
        {u"type"_s, u"object"_s},
        {u"properties"_s, QJsonObject()},
        {u"required"_s, QJsonArray()},
        {u"additionalProperties"_s, true},
    };
}

QJsonObject remoteDefinition(const LocalTool& tool)
{
    const QString name = tool.identifier();
    const std::optional<QJsonValue> declared = tool.declaredInputSchema();
    QJsonObject parameters;
    if (!declared || declared->isUndefined() || declared->isNull()) {
        qCInfo(lcTools).noquote() << u"🔍 [MCP Schema Debug] No inputSchema found for '"_s + name +
                                         u"', using fallback"_s;
        parameters = fallbackSchema();
    } else {
        qCInfo(lcTools).noquote() << u"🔍 [MCP Schema Debug] Original inputSchema for '"_s + name +
                                         u"':"_s;
        qCInfo(lcTools).noquote() << u"🔍   Type: Value"_s;
        if (declared->isObject()) {
            parameters = declared->toObject();
            qCInfo(lcTools).noquote() << u"🔍   ✅ Successfully converted MCP.Value to dictionary"_s;
            qCInfo(lcTools).noquote() << u"🔍   Schema keys: "_s + parameters.keys().join(u", "_s);
        } else {
            qCInfo(lcTools).noquote()
                << u"🔍   ❌ Failed to convert MCP.Value to dictionary - using fallback"_s;
            parameters = fallbackSchema();
        }
    }
    return {
        {u"name"_s, name},
        {u"displayName"_s, tool.name()},
        {u"description"_s, tool.description()},
        {u"parameters"_s, parameters},
    };
}

QJsonObject build(const QList<IntegrationItem>& integrations,
                  const QList<std::shared_ptr<const LocalTool>>& remoteTools)
{
    QJsonArray definitions;
    for (const IntegrationItem& integration : integrations) {
        if (!integration.isEnabled || integration.isComingSoon)
            continue;
        for (const QString& identifier : integration.toolIdentifiers.value_or(QStringList())) {
            if (const std::optional<QJsonObject> definition =
                    BuiltInToolDefinitions::definition(identifier))
                definitions.append(*definition);
        }
    }
    for (const std::shared_ptr<const LocalTool>& tool : remoteTools)
        definitions.append(remoteDefinition(*tool));

    qCInfo(lcTools).noquote()
        << u"🔍 [WebSocket Config Debug] About to serialize %1 tool definitions"_s.arg(
               definitions.size());
    QJsonArray names;
    for (const QJsonValue definition : std::as_const(definitions)) {
        const QString name = definition.toObject().value(u"name"_s).toString();
        if (isRemoteName(name))
            logRemoteDetails(definition.toObject());
        if (!name.isEmpty())
            names.append(name);
    }
    return {
        {u"executionMode"_s, u"local"_s},
        {u"localTools"_s, definitions},
        {u"enabledTools"_s, names},
    };
}

std::optional<QString> encode(const QJsonObject& document)
{
    if (const std::optional<QString> where = nonFiniteNumber(document, u"document"_s)) {
        qCWarning(lcTools).noquote() << u"Error encoding AI SDK tool config to JSON: "_s +
                                            u"invalid number value (not finite) at "_s + *where;
        return std::nullopt;
    }
    const QString text = QString::fromUtf8(QJsonDocument(document).toJson(QJsonDocument::Indented));
    int remote = 0;
    const QJsonArray names = document.value(u"enabledTools"_s).toArray();
    for (const QJsonValue name : names) {
        if (isRemoteName(name.toString()))
            ++remote;
    }
    qCInfo(lcTools).noquote() << u"📡 Generated WebSocket config with %1 tools (%2 MCP tools)"_s
                                     .arg(document.value(u"localTools"_s).toArray().size())
                                     .arg(remote);
    return text;
}

} // namespace ToolConfigurationDocument

#include "mcp/MCPRemoteConfig.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

// The pre-built integrations have fixed identities so that a screen's list
// and a stored token keep referring to the same entry across runs.
MCPRemoteConfig preBuiltEntry(const char* id, const QString& name, const QString& url,
                              const QString& description)
{
    MCPRemoteConfig config;
    config.id = QUuid::fromString(QString::fromLatin1(id));
    config.name = name;
    config.url = url;
    config.description = description;
    config.requiresAuth = true;
    config.isCustom = false;
    return config;
}

} // namespace

QString MCPRemoteConfig::tokenKeyFor(const QString& name)
{
    return u"mcp_token_"_s + name;
}

QJsonObject MCPRemoteConfig::toJson() const
{
    return {
        {u"id"_s, id.toString(QUuid::WithoutBraces)},
        {u"name"_s, name},
        {u"url"_s, url},
        {u"description"_s, description},
        {u"requiresAuth"_s, requiresAuth},
        {u"isCustom"_s, isCustom},
        {u"dateAdded"_s, dateAdded.toUTC().toString(Qt::ISODateWithMs)},
    };
}

std::optional<MCPRemoteConfig> MCPRemoteConfig::fromJson(const QJsonValue& json)
{
    if (!json.isObject())
        return std::nullopt;
    const QJsonObject object = json.toObject();
    const QStringList textFields = {u"id"_s, u"name"_s, u"url"_s, u"description"_s, u"dateAdded"_s};
    for (const QString& field : textFields) {
        if (!object.value(field).isString())
            return std::nullopt;
    }
    if (!object.value(u"requiresAuth"_s).isBool() || !object.value(u"isCustom"_s).isBool())
        return std::nullopt;
    MCPRemoteConfig config;
    config.id = QUuid::fromString(object.value(u"id"_s).toString());
    config.name = object.value(u"name"_s).toString();
    config.url = object.value(u"url"_s).toString();
    config.description = object.value(u"description"_s).toString();
    config.requiresAuth = object.value(u"requiresAuth"_s).toBool();
    config.isCustom = object.value(u"isCustom"_s).toBool();
    config.dateAdded = QDateTime::fromString(object.value(u"dateAdded"_s).toString(), Qt::ISODate);
    if (config.id.isNull() || config.name.isEmpty() || !config.dateAdded.isValid())
        return std::nullopt;
    return config;
}

QJsonArray MCPRemoteConfig::encodeList(const QList<MCPRemoteConfig>& configs)
{
    QJsonArray array;
    for (const MCPRemoteConfig& config : configs)
        array.append(config.toJson());
    return array;
}

std::optional<QList<MCPRemoteConfig>> MCPRemoteConfig::decodeList(const QJsonValue& json,
                                                                  QString* error)
{
    if (!json.isArray()) {
        if (error)
            *error = u"expected a list of integrations"_s;
        return std::nullopt;
    }
    QList<MCPRemoteConfig> configs;
    const QJsonArray array = json.toArray();
    for (qsizetype i = 0; i < array.size(); ++i) {
        std::optional<MCPRemoteConfig> config = fromJson(array.at(i));
        if (!config) {
            if (error)
                *error = u"entry %1 is not a valid integration"_s.arg(i);
            return std::nullopt;
        }
        configs.append(*config);
    }
    return configs;
}

QList<MCPRemoteConfig> MCPRemoteConfig::preBuilt()
{
    return {
        preBuiltEntry("1d6a8f0e-3c1b-4f52-9a0e-6e1f2b3c4d01", u"Linear"_s,
                      u"https://mcp.linear.app/sse"_s,
                      u"Search for and create issues, projects, and comments with OAuth "
                      u"authentication"_s),
        preBuiltEntry("1d6a8f0e-3c1b-4f52-9a0e-6e1f2b3c4d02", u"Asana"_s,
                      u"https://mcp.asana.com/sse"_s,
                      u"Create, search, and assign tasks and deliverables"_s),
        preBuiltEntry("1d6a8f0e-3c1b-4f52-9a0e-6e1f2b3c4d03", u"Intercom"_s,
                      u"https://mcp.intercom.com/sse"_s,
                      u"Analyze support trends and triage customer issues"_s),
        preBuiltEntry("1d6a8f0e-3c1b-4f52-9a0e-6e1f2b3c4d04", u"PayPal"_s,
                      u"https://mcp.paypal.com/sse"_s,
                      u"Create and manage invoices, and analyze sales activity"_s),
        preBuiltEntry("1d6a8f0e-3c1b-4f52-9a0e-6e1f2b3c4d05", u"Sentry"_s,
                      u"https://mcp.sentry.dev/sse"_s,
                      u"Search, query, and debug errors intelligently"_s),
        preBuiltEntry("1d6a8f0e-3c1b-4f52-9a0e-6e1f2b3c4d06", u"Square"_s,
                      u"https://mcp.squareup.com/sse"_s,
                      u"Search and manage transaction, merchant, and payment data"_s),
    };
}

MCPUrlCheck MCPUrlCheck::of(const QString& url)
{
    static const QStringList schemes = {u"https"_s, u"http"_s, u"wss"_s, u"ws"_s};
    if (url.trimmed().isEmpty())
        return {u"URL cannot be empty"_s, std::nullopt};
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid())
        return {u"Invalid URL format"_s, std::nullopt};
    if (parsed.scheme().isEmpty())
        return {u"URL must include a scheme (https, http, wss, ws)"_s, std::nullopt};
    const QString scheme = parsed.scheme().toLower();
    if (!schemes.contains(scheme))
        return {u"URL scheme must be one of: "_s + schemes.join(u", "_s), std::nullopt};
    if (scheme == u"http"_s || scheme == u"ws"_s)
        return {std::nullopt,
                u"Warning: Using non-secure connection. Consider HTTPS/WSS for production."_s};
    return {};
}

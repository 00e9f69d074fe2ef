// One remote MCP integration as the user sees and keeps it: a pre-built one of
// an outside service or one the user added by URL, with the checks the
// add-integration form makes of a URL.
#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

struct MCPRemoteConfig
{
    QUuid id;
    // Unique among all integrations; also names its token in the secure store.
    QString name;
    // The server's event-stream URL; it contains "/sse".
    QString url;
    QString description;
    bool requiresAuth = false;
    bool isCustom = false;
    // When a custom integration was added.
    QDateTime dateAdded;

    bool operator==(const MCPRemoteConfig&) const = default;

    // The secure-store item holding the integration's OAuth access token.
    QString tokenKey() const { return tokenKeyFor(name); }
    static QString tokenKeyFor(const QString& name);

    QJsonObject toJson() const;
    // Nothing when a field is missing or of the wrong type.
    static std::optional<MCPRemoteConfig> fromJson(const QJsonValue& json);

    static QJsonArray encodeList(const QList<MCPRemoteConfig>& configs);
    // The list, or the reason it cannot be read.
    static std::optional<QList<MCPRemoteConfig>> decodeList(const QJsonValue& json, QString* error);

    // The servers of outside services offered out of the box, in display order.
    static QList<MCPRemoteConfig> preBuilt();
};

// What the add-integration form is told about a URL: refused with an error,
// or accepted, possibly with a warning.
struct MCPUrlCheck
{
    std::optional<QString> error;
    std::optional<QString> warning;

    bool accepted() const { return !error.has_value(); }

    static MCPUrlCheck of(const QString& url);
};

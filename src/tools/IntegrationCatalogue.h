// The integrations the user can give the assistant: what each is, how it is
// signed in to, which tools it provides, and where its credential lives in
// the secure store.
#pragma once

#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

// How an integration's credential is obtained.
enum class AuthType
{
    none,
    apiKey,
    oauth,
    basicAuth,
};

// One extra input of an integration's configuration sheet.
struct IntegrationField
{
    enum class FieldType
    {
        text,
        email,
        password,
    };

    QString key; // "database_id"
    QString label;
    QString placeholder;
    bool isRequired = false;
    FieldType fieldType = FieldType::text;

    bool operator==(const IntegrationField&) const = default;
};

struct IntegrationItem
{
    QUuid id; // fresh each time the catalogue is built
    QString name;
    QString description;
    QString iconName;
    QString iconColor; // a named colour: "orange", "black", "blue", …
    bool isEnabled = false;
    QString category;
    bool isComingSoon = false;
    bool requiresAPIKey = false;
    AuthType authType = AuthType::none;
    QString apiKeyPlaceholder;
    // The stored credential, loaded from the secure store and kept nowhere else.
    std::optional<QString> apiKey;
    std::optional<QStringList> toolIdentifiers;
    std::optional<QString> databaseId;
    std::optional<QList<IntegrationField>> additionalFields;

    bool operator==(const IntegrationItem&) const = default;
};

struct IntegrationsConfig
{
    QList<IntegrationItem> integrations;

    bool operator==(const IntegrationsConfig&) const = default;
};

namespace IntegrationCatalogue {

// Every integration, in the order shown, with its built-in defaults.
QList<IntegrationItem> build();

// The secure-store item of an integration's credential: fixed for the usable
// integrations ("Brave Search" → "brave-search"), otherwise its name in lower
// case ("HubSpot" → "hubspot").
QString serviceName(const QString& integrationName);

// The secure-store item of one of its extra fields: the service name followed
// by the field key with dashes ("notion" + "database_id" → "notion-database-id").
QString fieldItemName(const QString& integrationName, const QString& fieldKey);

QString authTypeName(AuthType type);
QString fieldTypeName(IntegrationField::FieldType type);

} // namespace IntegrationCatalogue

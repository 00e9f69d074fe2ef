// The two tools of the "Brave Search" integration: web results for a query,
// and local businesses and places found in three requests (their identifiers,
// then their details, then their descriptions). The answers are decoded here
// into records before any of them is formatted for the assistant.
#pragma once

#include "tools/LocalTool.h"
#include "tools/ToolService.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct BraveWebResult
{
    QString title;
    QString description;
    QString url;
};

struct BraveAddress
{
    std::optional<QString> streetAddress;
    std::optional<QString> addressLocality;
    std::optional<QString> addressRegion;
    std::optional<QString> postalCode;
};

struct BraveCoordinates
{
    double latitude = 0.0;
    double longitude = 0.0;
};

struct BraveRating
{
    std::optional<double> ratingValue;
    std::optional<qint64> ratingCount;
};

struct BraveLocation
{
    QString id;
    QString name;
    std::optional<BraveAddress> address;
    std::optional<BraveCoordinates> coordinates;
    std::optional<QString> phone;
    std::optional<BraveRating> rating;
    std::optional<QStringList> openingHours;
    std::optional<QString> priceRange;
};

// Decoding and formatting of the service's answers. A decoder yields nothing,
// with `error` saying why, for a body it cannot read.
namespace BraveSearchResults {

// "web" → "results": the entries that have a title, a description and a URL,
// in order; none when the answer has no web section.
std::optional<QList<BraveWebResult>> decodeWebResults(const QByteArray& body, QString* error);
QString formatWebResults(const QList<BraveWebResult>& results);

// "locations" → "results" → "id", in order.
std::optional<QStringList> decodeLocationIds(const QByteArray& body, QString* error);
// "results" as locations; an entry without an identifier or a name makes the
// whole answer unreadable.
std::optional<QList<BraveLocation>> decodeLocations(const QByteArray& body, QString* error);
// "descriptions": location identifier → text.
std::optional<QHash<QString, QString>> decodeDescriptions(const QByteArray& body, QString* error);
QString formatLocations(const QList<BraveLocation>& locations,
                        const QHash<QString, QString>& descriptions);

} // namespace BraveSearchResults

class BraveWebSearchTool : public LocalTool
{
public:
    explicit BraveWebSearchTool(ToolService service) : m_service(std::move(service)) {}

    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    QJsonObject parameterSchema() const override;
    bool requiresAPIKey() const override { return true; }
    void execute(const ToolInvocation& call, Done done) override;

private:
    const ToolService m_service;
};

class BraveLocalSearchTool : public LocalTool
{
public:
    explicit BraveLocalSearchTool(ToolService service) : m_service(std::move(service)) {}

    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    QJsonObject parameterSchema() const override;
    bool requiresAPIKey() const override { return true; }
    void execute(const ToolInvocation& call, Done done) override;

private:
    const ToolService m_service;
};

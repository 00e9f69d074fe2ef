#include "tools/BraveSearchTools.h"

#include "core/HttpClient.h"
#include "core/JsonValues.h"
#include "tools/BuiltInToolDefinitions.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QPointer>
#include <QUrlQuery>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 largestCount = 20;

// The schema the backend is offered, less the upper bound of "count": a
// larger count is not refused but sent as the largest the service takes.
QJsonObject schemaOf(const QString& identifier)
{
    QJsonObject schema = BuiltInToolDefinitions::definition(identifier)
                             .value_or(QJsonObject{})
                             .value(u"parameters"_s)
                             .toObject();
    QJsonObject properties = schema.value(u"properties"_s).toObject();
    QJsonObject count = properties.value(u"count"_s).toObject();
    count.remove(u"maximum"_s);
    properties.insert(u"count"_s, count);
    schema.insert(u"properties"_s, properties);
    return schema;
}

// The first of `keys` that holds a string: the documented record key first,
// then the name the live service uses for the same field.
std::optional<QString> firstString(const QJsonObject& object, std::initializer_list<QString> keys)
{
    for (const QString& key : keys) {
        if (std::optional<QString> text = optionalString(object, key))
            return text;
    }
    return std::nullopt;
}

qint64 integerParameter(const QJsonObject& parameters, const QString& name, qint64 fallback)
{
    const QJsonValue value = parameters.value(name);
    return value.isDouble() ? value.toInteger(fallback) : fallback;
}

QString shortestNumber(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

// One GET to the service with its key; `done` gets the body of a successful
// answer, or the failure to report.
using BodyHandler = std::function<void(const QByteArray& body)>;

struct BraveRequest
{
    const ToolService& service;
    QString path;
    QUrlQuery query;
    QString key;
    QString errorPrefix; // "Brave API error ", followed by the HTTP status
};

void sendBrave(HttpClient& http, const BraveRequest& request, const LocalTool::Done& done,
               BodyHandler onBody)
{
    std::optional<QUrl> url = request.service.endpoint(request.path);
    if (!url) {
        done(ToolOutcome::failure(LocalToolError::executionFailed(u"Invalid Brave API URL"_s)));
        return;
    }
    url->setQuery(request.query);
    // Accept-Encoding is left to the network layer: it asks for gzip itself
    // and decompresses the answer, which it no longer does once the header is
    // set by hand.
    HttpRequest get = HttpRequest::get(*url)
                          .acceptingJson()
                          .withTimeout(request.service.timeout)
                          .withMaxBodySize(request.service.maxBodySize);
    get.headers.append({"X-Subscription-Token", request.key.toUtf8()});
    http.send(get, [done, prefix = request.errorPrefix,
                    onBody = std::move(onBody)](const HttpResponse& response) {
        if (!response.answered()) {
            done(ToolOutcome::failure(transportFailure(response)));
            return;
        }
        if (!response.isSuccess()) {
            const QString status =
                response.status != 0 ? QString::number(response.status) : u"Unknown error"_s;
            done(ToolOutcome::failure(LocalToolError::executionFailed(prefix + status)));
            return;
        }
        onBody(response.body);
    });
}

LocalToolError parseFailure(const QString& prefix, const QString& error)
{
    return LocalToolError::executionFailed(prefix + error);
}

} // namespace

// --- decoding and formatting ----------------------------------------------------------------

namespace BraveSearchResults {

std::optional<QList<BraveWebResult>> decodeWebResults(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    if (!answer)
        return std::nullopt;
    QList<BraveWebResult> results;
    const QJsonArray entries = answer->value(u"web"_s).toObject().value(u"results"_s).toArray();
    for (const QJsonValue entry : entries) {
        const QJsonObject result = entry.toObject();
        const std::optional<QString> title = optionalString(result, u"title"_s);
        const std::optional<QString> description = optionalString(result, u"description"_s);
        const std::optional<QString> url = optionalString(result, u"url"_s);
        // An entry missing one of the three is left out rather than shown with a blank.
        if (title && description && url)
            results.append({*title, *description, *url});
    }
    return results;
}

QString formatWebResults(const QList<BraveWebResult>& results)
{
    if (results.isEmpty())
        return u"No web results found."_s;
    QStringList entries;
    for (const BraveWebResult& result : results) {
        entries.append(u"Title: "_s + result.title + u"\nDescription: "_s + result.description +
                       u"\nURL: "_s + result.url);
    }
    return entries.join(u"\n\n"_s);
}

std::optional<QStringList> decodeLocationIds(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    if (!answer)
        return std::nullopt;
    QStringList ids;
    const QJsonArray entries =
        answer->value(u"locations"_s).toObject().value(u"results"_s).toArray();
    for (const QJsonValue entry : entries) {
        const QJsonValue id = entry.toObject().value(u"id"_s);
        if (id.isString() && !id.toString().isEmpty())
            ids.append(id.toString());
    }
    return ids;
}

namespace {

std::optional<BraveAddress> decodeAddress(const QJsonObject& location)
{
    QJsonValue value = location.value(u"address"_s);
    if (!value.isObject())
        value = location.value(u"postal_address"_s);
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject address = value.toObject();
    return BraveAddress{
        optionalString(address, u"streetAddress"_s), optionalString(address, u"addressLocality"_s),
        optionalString(address, u"addressRegion"_s), optionalString(address, u"postalCode"_s)};
}

std::optional<BraveRating> decodeRating(const QJsonObject& location)
{
    const QJsonValue value = location.value(u"rating"_s);
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject rating = value.toObject();
    BraveRating decoded;
    if (rating.value(u"ratingValue"_s).isDouble())
        decoded.ratingValue = rating.value(u"ratingValue"_s).toDouble();
    for (const QString& key : {u"ratingCount"_s, u"reviewCount"_s}) {
        if (!decoded.ratingCount && rating.value(key).isDouble())
            decoded.ratingCount = rating.value(key).toInteger();
    }
    return decoded;
}

std::optional<QStringList> decodeHours(const QJsonObject& location)
{
    const QJsonValue value = location.value(u"openingHours"_s);
    if (!value.isArray())
        return std::nullopt;
    QStringList hours;
    for (const QJsonValue line : value.toArray()) {
        if (line.isString())
            hours.append(line.toString());
    }
    return hours;
}

std::optional<QString> decodePhone(const QJsonObject& location)
{
    if (std::optional<QString> phone = optionalString(location, u"phone"_s))
        return phone;
    return optionalString(location.value(u"contact"_s).toObject(), u"telephone"_s);
}

} // namespace

std::optional<QList<BraveLocation>> decodeLocations(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    if (!answer)
        return std::nullopt;
    const QJsonValue results = answer->value(u"results"_s);
    if (!results.isArray()) {
        *error = u"\"results\" is not a list"_s;
        return std::nullopt;
    }
    QList<BraveLocation> locations;
    const QJsonArray entries = results.toArray();
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const QJsonObject entry = entries.at(i).toObject();
        BraveLocation location;
        const std::optional<QString> id = optionalString(entry, u"id"_s);
        const std::optional<QString> name = firstString(entry, {u"name"_s, u"title"_s});
        if (!id || !name) {
            *error = u"result %1 has no %2"_s.arg(i + 1).arg(id ? u"name"_s : u"id"_s);
            return std::nullopt;
        }
        location.id = *id;
        location.name = *name;
        location.address = decodeAddress(entry);
        const QJsonObject coordinates = entry.value(u"coordinates"_s).toObject();
        if (coordinates.value(u"latitude"_s).isDouble() &&
            coordinates.value(u"longitude"_s).isDouble()) {
            location.coordinates = BraveCoordinates{coordinates.value(u"latitude"_s).toDouble(),
                                                    coordinates.value(u"longitude"_s).toDouble()};
        }
        location.phone = decodePhone(entry);
        location.rating = decodeRating(entry);
        location.openingHours = decodeHours(entry);
        location.priceRange = firstString(entry, {u"priceRange"_s, u"price_range"_s});
        locations.append(location);
    }
    return locations;
}

std::optional<QHash<QString, QString>> decodeDescriptions(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    if (!answer)
        return std::nullopt;
    QHash<QString, QString> descriptions;
    const QJsonObject entries = answer->value(u"descriptions"_s).toObject();
    for (auto it = entries.constBegin(); it != entries.constEnd(); ++it) {
        if (it.value().isString())
            descriptions.insert(it.key(), it.value().toString());
    }
    // The live service also lists them as {"id", "description"} results.
    for (const QJsonValue entry : answer->value(u"results"_s).toArray()) {
        const QJsonObject result = entry.toObject();
        const std::optional<QString> id = optionalString(result, u"id"_s);
        const std::optional<QString> text = optionalString(result, u"description"_s);
        if (id && text && !descriptions.contains(*id))
            descriptions.insert(*id, *text);
    }
    return descriptions;
}

QString formatLocations(const QList<BraveLocation>& locations,
                        const QHash<QString, QString>& descriptions)
{
    if (locations.isEmpty())
        return u"No local results found"_s;
    QStringList entries;
    for (const BraveLocation& location : locations) {
        QStringList addressParts;
        if (location.address) {
            for (const std::optional<QString>& part :
                 {location.address->streetAddress, location.address->addressLocality,
                  location.address->addressRegion, location.address->postalCode}) {
                if (part && !part->isEmpty())
                    addressParts.append(*part);
            }
        }
        QString rating = u"N/A"_s;
        if (location.rating && location.rating->ratingValue) {
            rating = shortestNumber(*location.rating->ratingValue) + u" ("_s +
                     QString::number(location.rating->ratingCount.value_or(0)) + u" reviews)"_s;
        }
        const QString hours = location.openingHours && !location.openingHours->isEmpty()
                                  ? location.openingHours->join(u", "_s)
                                  : u"N/A"_s;
        entries.append(u"Name: "_s + location.name + u"\nAddress: "_s +
                       (addressParts.isEmpty() ? u"N/A"_s : addressParts.join(u", "_s)) +
                       u"\nPhone: "_s + location.phone.value_or(u"N/A"_s) + u"\nRating: "_s +
                       rating + u"\nPrice Range: "_s + location.priceRange.value_or(u"N/A"_s) +
                       u"\nHours: "_s + hours + u"\nDescription: "_s +
                       descriptions.value(location.id, u"No description available"_s));
    }
    return entries.join(u"\n---\n"_s);
}

} // namespace BraveSearchResults

// --- web search -----------------------------------------------------------------------------

QString BraveWebSearchTool::identifier() const
{
    return u"brave_web_search"_s;
}

QString BraveWebSearchTool::name() const
{
    return u"Brave Web Search"_s;
}

QString BraveWebSearchTool::description() const
{
    return u"Search the web using Brave Search API"_s;
}

QJsonObject BraveWebSearchTool::parameterSchema() const
{
    return schemaOf(identifier());
}

void BraveWebSearchTool::execute(const ToolInvocation& call, Done done)
{
    const QJsonValue query = call.parameters.value(u"query"_s);
    if (!query.isString()) {
        done(ToolOutcome::failure(LocalToolError::missingParameter(u"query"_s)));
        return;
    }
    if (!call.apiKey) {
        done(ToolOutcome::failure(LocalToolError::missingAPIKey(name())));
        return;
    }
    const qint64 count = std::min(integerParameter(call.parameters, u"count"_s, 10), largestCount);
    const qint64 offset = integerParameter(call.parameters, u"offset"_s, 0);
    QUrlQuery items;
    items.addQueryItem(u"q"_s, query.toString());
    items.addQueryItem(u"count"_s, QString::number(count));
    items.addQueryItem(u"offset"_s, QString::number(offset));
    sendBrave(
        call.http, {m_service, u"/res/v1/web/search"_s, items, *call.apiKey, u"Brave API error "_s},
        done, [done](const QByteArray& body) {
            QString error;
            const auto results = BraveSearchResults::decodeWebResults(body, &error);
            if (!results) {
                done(ToolOutcome::failure(parseFailure(u"Failed to parse response: "_s, error)));
                return;
            }
            done(ToolOutcome::success(BraveSearchResults::formatWebResults(*results)));
        });
}

// --- local search ---------------------------------------------------------------------------

QString BraveLocalSearchTool::identifier() const
{
    return u"brave_local_search"_s;
}

QString BraveLocalSearchTool::name() const
{
    return u"Brave Local Search"_s;
}

QString BraveLocalSearchTool::description() const
{
    return u"Search for local businesses and places using Brave Search API"_s;
}

QJsonObject BraveLocalSearchTool::parameterSchema() const
{
    return schemaOf(identifier());
}

void BraveLocalSearchTool::execute(const ToolInvocation& call, Done done)
{
    const QJsonValue query = call.parameters.value(u"query"_s);
    if (!query.isString()) {
        done(ToolOutcome::failure(LocalToolError::missingParameter(u"query"_s)));
        return;
    }
    if (!call.apiKey) {
        done(ToolOutcome::failure(LocalToolError::missingAPIKey(name())));
        return;
    }
    const qint64 count = std::min(integerParameter(call.parameters, u"count"_s, 5), largestCount);
    QUrlQuery items;
    items.addQueryItem(u"q"_s, query.toString());
    items.addQueryItem(u"search_lang"_s, u"en"_s);
    items.addQueryItem(u"result_filter"_s, u"locations"_s);
    items.addQueryItem(u"count"_s, QString::number(count));

    // The later stages run from the answers; the invocation has gone by then,
    // so they hold what they need themselves. The client outlives every
    // request it sends.
    const QPointer<HttpClient> http(&call.http);
    const QString key = *call.apiKey;
    const ToolService service = m_service;
    sendBrave(
        call.http, {m_service, u"/res/v1/web/search"_s, items, key, u"Brave API error "_s}, done,
        [http, key, service, done](const QByteArray& body) {
            QString error;
            const std::optional<QStringList> ids =
                BraveSearchResults::decodeLocationIds(body, &error);
            if (!ids) {
                done(
                    ToolOutcome::failure(parseFailure(u"Failed to parse location IDs: "_s, error)));
                return;
            }
            if (ids->isEmpty() || !http) {
                done(ToolOutcome::success(u"No local results found"_s));
                return;
            }
            // Each identifier is its own "ids" item, as the service expects.
            QUrlQuery byId;
            for (const QString& id : *ids)
                byId.addQueryItem(u"ids"_s, id);
            sendBrave(
                *http, {service, u"/res/v1/local/pois"_s, byId, key, u"Brave POI API error "_s},
                done, [http, key, service, byId, done](const QByteArray& poiBody) {
                    QString poiError;
                    const auto locations = BraveSearchResults::decodeLocations(poiBody, &poiError);
                    if (!locations) {
                        done(ToolOutcome::failure(
                            parseFailure(u"Failed to parse POI data: "_s, poiError)));
                        return;
                    }
                    if (!http)
                        return;
                    sendBrave(*http,
                              {service, u"/res/v1/local/descriptions"_s, byId, key,
                               u"Brave Descriptions API error "_s},
                              done, [locations = *locations, done](const QByteArray& textBody) {
                                  QString textError;
                                  const auto descriptions =
                                      BraveSearchResults::decodeDescriptions(textBody, &textError);
                                  if (!descriptions) {
                                      done(ToolOutcome::failure(parseFailure(
                                          u"Failed to parse descriptions: "_s, textError)));
                                      return;
                                  }
                                  done(ToolOutcome::success(BraveSearchResults::formatLocations(
                                      locations, *descriptions)));
                              });
                });
        });
}

#include "tools/FirecrawlTools.h"

#include "core/HttpClient.h"
#include "core/JsonValues.h"
#include "tools/BuiltInToolDefinitions.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextBoundaryFinder>

using namespace Qt::StringLiterals;

namespace {

// How much of a search result's page text the result shows.
constexpr qsizetype contentPreviewLength = 200;

std::optional<QStringList> optionalStrings(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    if (!value.isArray())
        return std::nullopt;
    QStringList strings;
    for (const QJsonValue each : value.toArray()) {
        if (each.isString())
            strings.append(each.toString());
    }
    return strings;
}

bool decodeSuccess(const QJsonObject& answer, bool* success, QString* error)
{
    const QJsonValue value = answer.value(u"success"_s);
    if (!value.isBool()) {
        *error = u"\"success\" is missing"_s;
        return false;
    }
    *success = value.toBool();
    return true;
}

FirecrawlMetadata decodeMetadata(const QJsonObject& metadata)
{
    FirecrawlMetadata decoded;
    decoded.title = optionalString(metadata, u"title"_s);
    decoded.description = optionalString(metadata, u"description"_s);
    decoded.language = optionalString(metadata, u"language"_s);
    decoded.sourceURL = optionalString(metadata, u"sourceURL"_s);
    if (metadata.value(u"statusCode"_s).isDouble())
        decoded.statusCode = metadata.value(u"statusCode"_s).toInteger();
    return decoded;
}

// The first `length` characters as a reader counts them: an emoji or an
// accented letter is never cut in two.
std::optional<QString> truncated(const QString& text, qsizetype length)
{
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, text);
    qsizetype counted = 0;
    while (graphemes.toNextBoundary() != -1) {
        if (++counted == length)
            return graphemes.position() < text.size()
                       ? std::optional(text.left(graphemes.position()))
                       : std::nullopt;
    }
    return std::nullopt;
}

QJsonObject schemaOf(const QString& identifier)
{
    return BuiltInToolDefinitions::definition(identifier)
        .value_or(QJsonObject{})
        .value(u"parameters"_s)
        .toObject();
}

// Copies `name` into `body` when it was given with the right type.
void copyIf(const QJsonObject& parameters, const QString& name, QJsonValue::Type type,
            QJsonObject& body)
{
    const QJsonValue value = parameters.value(name);
    if (value.type() != type)
        return;
    if (type == QJsonValue::Double)
        body.insert(name, value.toInteger());
    else
        body.insert(name, value);
}

bool isInteger(const QJsonValue& value)
{
    return value.isDouble() && value.toDouble() == static_cast<double>(value.toInteger());
}

void copyIntegerIf(const QJsonObject& parameters, const QString& name, QJsonObject& body)
{
    if (isInteger(parameters.value(name)))
        copyIf(parameters, name, QJsonValue::Double, body);
}

} // namespace

// --- decoding and formatting ----------------------------------------------------------------

namespace FirecrawlResults {

std::optional<FirecrawlScrapeResponse> decodeScrape(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    FirecrawlScrapeResponse response;
    if (!answer || !decodeSuccess(*answer, &response.success, error))
        return std::nullopt;
    response.error = optionalString(*answer, u"error"_s);
    response.warning = optionalString(*answer, u"warning"_s);
    const QJsonValue data = answer->value(u"data"_s);
    if (data.isObject()) {
        const QJsonObject document = data.toObject();
        FirecrawlDocument decoded;
        decoded.markdown = optionalString(document, u"markdown"_s);
        decoded.html = optionalString(document, u"html"_s);
        decoded.rawHtml = optionalString(document, u"rawHtml"_s);
        decoded.screenshot = optionalString(document, u"screenshot"_s);
        decoded.links = optionalStrings(document, u"links"_s);
        if (document.value(u"metadata"_s).isObject())
            decoded.metadata = decodeMetadata(document.value(u"metadata"_s).toObject());
        response.data = decoded;
    }
    return response;
}

std::optional<FirecrawlSearchResponse> decodeSearch(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    FirecrawlSearchResponse response;
    if (!answer || !decodeSuccess(*answer, &response.success, error))
        return std::nullopt;
    response.error = optionalString(*answer, u"error"_s);
    response.warning = optionalString(*answer, u"warning"_s);
    const QJsonValue data = answer->value(u"data"_s);
    if (!data.isArray()) {
        *error = u"\"data\" is not a list"_s;
        return std::nullopt;
    }
    const QJsonArray entries = data.toArray();
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const QJsonObject entry = entries.at(i).toObject();
        const std::optional<QString> url = optionalString(entry, u"url"_s);
        if (!url) {
            *error = u"result %1 has no url"_s.arg(i + 1);
            return std::nullopt;
        }
        response.data.append({*url, optionalString(entry, u"title"_s),
                              optionalString(entry, u"description"_s),
                              optionalString(entry, u"markdown"_s)});
    }
    return response;
}

std::optional<FirecrawlMapResponse> decodeMap(const QByteArray& body, QString* error)
{
    const std::optional<QJsonObject> answer = parseJsonObject(body, error);
    FirecrawlMapResponse response;
    if (!answer || !decodeSuccess(*answer, &response.success, error))
        return std::nullopt;
    response.links = optionalStrings(*answer, u"links"_s);
    response.error = optionalString(*answer, u"error"_s);
    return response;
}

std::optional<QString> errorMessage(const QByteArray& body)
{
    QString ignored;
    const std::optional<QJsonObject> answer = parseJsonObject(body, &ignored);
    return answer ? optionalString(*answer, u"error"_s) : std::nullopt;
}

QString formatScrape(const FirecrawlScrapeResponse& response, const QStringList& formats)
{
    if (!response.data)
        return u"No content retrieved"_s;
    const FirecrawlDocument& document = *response.data;
    const QStringList wanted = formats.isEmpty() ? QStringList{u"markdown"_s} : formats;
    QStringList sections;
    const auto add = [&](const QString& format, const std::optional<QString>& content,
                         const QString& heading) {
        if (wanted.contains(format) && content)
            sections.append(heading + *content);
    };
    add(u"markdown"_s, document.markdown, u"**Markdown Content:**\n"_s);
    add(u"html"_s, document.html, u"**HTML Content:**\n"_s);
    add(u"rawHtml"_s, document.rawHtml, u"**Raw HTML Content:**\n"_s);
    add(u"screenshot"_s, document.screenshot, u"**Screenshot:** "_s);
    if (wanted.contains(u"links"_s) && document.links) {
        sections.append(u"**Links Found (%1):**\n"_s.arg(document.links->size()) +
                        document.links->join(u'\n'));
    }
    if (document.metadata) {
        const FirecrawlMetadata& metadata = *document.metadata;
        QStringList lines{u"**Metadata:**"_s};
        if (metadata.title)
            lines.append(u"Title: "_s + *metadata.title);
        if (metadata.description)
            lines.append(u"Description: "_s + *metadata.description);
        if (metadata.statusCode)
            lines.append(u"Status Code: "_s + QString::number(*metadata.statusCode));
        // The heading ends in its own line break; the items are joined by one.
        sections.append(lines.first() + u'\n' + lines.mid(1).join(u'\n'));
    }
    return sections.isEmpty() ? u"No content available"_s : sections.join(u"\n\n"_s);
}

QString formatMap(const FirecrawlMapResponse& response)
{
    if (!response.links || response.links->isEmpty())
        return u"No links found"_s;
    return u"**Discovered URLs (%1):**\n"_s.arg(response.links->size()) +
           response.links->join(u'\n');
}

QString formatSearch(const FirecrawlSearchResponse& response, const QString& query)
{
    if (response.data.isEmpty())
        return u"No search results found"_s;
    QStringList entries;
    for (qsizetype i = 0; i < response.data.size(); ++i) {
        const FirecrawlSearchResult& result = response.data.at(i);
        QString entry = QString::number(i + 1) + u". **"_s + result.title.value_or(u"No title"_s) +
                        u"**\n"_s + u"   URL: "_s + result.url + u'\n';
        if (result.description)
            entry += u"   Description: "_s + *result.description + u'\n';
        if (result.markdown) {
            const std::optional<QString> preview =
                truncated(*result.markdown, contentPreviewLength);
            entry += u"   Content: "_s + (preview ? *preview + u"..."_s : *result.markdown) + u'\n';
        }
        entries.append(entry);
    }
    return u"**Search Results for '"_s + query + u"' ("_s + QString::number(response.data.size()) +
           u" results):**\n\n"_s + entries.join(u'\n');
}

} // namespace FirecrawlResults

// --- the shared request ---------------------------------------------------------------------

QJsonObject FirecrawlTool::parameterSchema() const
{
    return schemaOf(identifier());
}

std::optional<QString> FirecrawlTool::checked(const ToolInvocation& call, const QString& parameter,
                                              const Done& done) const
{
    if (!call.apiKey) {
        done(ToolOutcome::failure(LocalToolError::missingAPIKey(name())));
        return std::nullopt;
    }
    const QJsonValue value = call.parameters.value(parameter);
    if (!value.isString()) {
        done(ToolOutcome::failure(LocalToolError::missingParameter(parameter)));
        return std::nullopt;
    }
    return value.toString();
}

void FirecrawlTool::post(const ToolInvocation& call, const QString& path, const QJsonObject& body,
                         RateLimit rateLimit, const Done& done,
                         std::function<void(const QByteArray&)> onBody) const
{
    const std::optional<QUrl> url = m_service.endpoint(path);
    if (!url) {
        done(ToolOutcome::failure(LocalToolError::executionFailed(u"Invalid Firecrawl API URL"_s)));
        return;
    }
    const HttpRequest request = HttpRequest::postJson(*url, body)
                                    .acceptingJson()
                                    .withBearer(*call.apiKey)
                                    .withTimeout(m_service.timeout)
                                    .withMaxBodySize(m_service.maxBodySize);
    call.http.send(
        request, [rateLimit, done, onBody = std::move(onBody)](const HttpResponse& response) {
            if (!response.answered()) {
                done(ToolOutcome::failure(transportFailure(response)));
                return;
            }
            if (response.status == 429 && rateLimit == RateLimit::Reported) {
                done(ToolOutcome::failure(
                    LocalToolError::executionFailed(u"Firecrawl API rate limit exceeded"_s)));
                return;
            }
            if (response.status >= 400) {
                done(ToolOutcome::failure(LocalToolError::executionFailed(
                    u"Firecrawl API error: "_s +
                    FirecrawlResults::errorMessage(response.body).value_or(u"Unknown error"_s))));
                return;
            }
            onBody(response.body);
        });
}

namespace {

LocalToolError unreadable(const QString& error)
{
    return LocalToolError::executionFailed(u"Firecrawl API error: unreadable answer ("_s + error +
                                           u')');
}

} // namespace

// --- scrape ---------------------------------------------------------------------------------

QString FirecrawlScrapeTool::identifier() const
{
    return u"firecrawl_scrape"_s;
}

QString FirecrawlScrapeTool::name() const
{
    return u"Firecrawl Scrape"_s;
}

QString FirecrawlScrapeTool::description() const
{
    return u"Scrape content from a single URL with advanced options.\n\n"
           u"**Best for:** Single page content extraction, when you know exactly which page "
           u"contains the information.\n"
           u"**Not recommended for:** Multiple pages (use batch_scrape), unknown page (use "
           u"search), structured data (use extract).\n"
           u"**Returns:** Markdown, HTML, or other formats as specified."_s;
}

void FirecrawlScrapeTool::execute(const ToolInvocation& call, Done done)
{
    const std::optional<QString> url = checked(call, u"url"_s, done);
    if (!url)
        return;
    QStringList formats;
    const QJsonValue given = call.parameters.value(u"formats"_s);
    for (const QJsonValue format : given.toArray()) {
        if (format.isString())
            formats.append(format.toString());
    }
    if (!given.isArray() || formats.isEmpty())
        formats = {u"markdown"_s};
    QJsonObject body{{u"url"_s, *url}, {u"formats"_s, QJsonArray::fromStringList(formats)}};
    copyIf(call.parameters, u"onlyMainContent"_s, QJsonValue::Bool, body);
    copyIntegerIf(call.parameters, u"waitFor"_s, body);
    copyIntegerIf(call.parameters, u"timeout"_s, body);
    post(call, u"/v1/scrape"_s, body, RateLimit::Reported, done,
         [done, formats](const QByteArray& answer) {
             QString error;
             const auto response = FirecrawlResults::decodeScrape(answer, &error);
             done(response
                      ? ToolOutcome::success(FirecrawlResults::formatScrape(*response, formats))
                      : ToolOutcome::failure(unreadable(error)));
         });
}

// --- map ------------------------------------------------------------------------------------

QString FirecrawlMapTool::identifier() const
{
    return u"firecrawl_map"_s;
}

QString FirecrawlMapTool::name() const
{
    return u"Firecrawl Map"_s;
}

QString FirecrawlMapTool::description() const
{
    return u"Map a website to discover all indexed URLs on the site.\n\n"
           u"**Best for:** Discovering URLs on a website before deciding what to scrape; finding "
           u"specific sections of a website.\n"
           u"**Returns:** Array of URLs found on the site."_s;
}

void FirecrawlMapTool::execute(const ToolInvocation& call, Done done)
{
    const std::optional<QString> url = checked(call, u"url"_s, done);
    if (!url)
        return;
    QJsonObject body{{u"url"_s, *url}};
    copyIf(call.parameters, u"search"_s, QJsonValue::String, body);
    copyIntegerIf(call.parameters, u"limit"_s, body);
    post(call, u"/v1/map"_s, body, RateLimit::AsError, done, [done](const QByteArray& answer) {
        QString error;
        const auto response = FirecrawlResults::decodeMap(answer, &error);
        done(response ? ToolOutcome::success(FirecrawlResults::formatMap(*response))
                      : ToolOutcome::failure(unreadable(error)));
    });
}

// --- search ---------------------------------------------------------------------------------

QString FirecrawlSearchTool::identifier() const
{
    return u"firecrawl_search"_s;
}

QString FirecrawlSearchTool::name() const
{
    return u"Firecrawl Search"_s;
}

QString FirecrawlSearchTool::description() const
{
    return u"Search the web and optionally extract content from search results.\n\n"
           u"**Best for:** Finding specific information across multiple websites, when you don't "
           u"know which website has the information.\n"
           u"**Returns:** Array of search results with optional scraped content."_s;
}

void FirecrawlSearchTool::execute(const ToolInvocation& call, Done done)
{
    const std::optional<QString> query = checked(call, u"query"_s, done);
    if (!query)
        return;
    QJsonObject body{{u"query"_s, *query}};
    copyIntegerIf(call.parameters, u"limit"_s, body);
    copyIf(call.parameters, u"lang"_s, QJsonValue::String, body);
    copyIf(call.parameters, u"country"_s, QJsonValue::String, body);
    // Page contents only when asked for: they make the search much slower.
    if (call.parameters.value(u"includeContent"_s) == QJsonValue(true)) {
        body.insert(u"scrapeOptions"_s, QJsonObject{{u"formats"_s, QJsonArray{u"markdown"_s}},
                                                    {u"onlyMainContent"_s, true}});
    }
    post(call, u"/v1/search"_s, body, RateLimit::AsError, done,
         [done, query = *query](const QByteArray& answer) {
             QString error;
             const auto response = FirecrawlResults::decodeSearch(answer, &error);
             done(response ? ToolOutcome::success(FirecrawlResults::formatSearch(*response, query))
                           : ToolOutcome::failure(unreadable(error)));
         });
}

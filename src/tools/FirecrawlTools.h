// The three tools of the "Firecrawl" integration: scrape one page, map a
// site's URLs, and search the web with optional page contents. The answers
// are decoded into the service's records before anything is formatted.
#pragma once

#include "tools/LocalTool.h"
#include "tools/ToolService.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct FirecrawlMetadata
{
    std::optional<QString> title;
    std::optional<QString> description;
    std::optional<QString> language;
    std::optional<QString> sourceURL;
    std::optional<qint64> statusCode;
};

struct FirecrawlDocument
{
    std::optional<QString> markdown;
    std::optional<QString> html;
    std::optional<QString> rawHtml;
    std::optional<QString> screenshot;
    std::optional<QStringList> links;
    std::optional<FirecrawlMetadata> metadata;
};

struct FirecrawlScrapeResponse
{
    bool success = false;
    std::optional<FirecrawlDocument> data;
    std::optional<QString> error;
    std::optional<QString> warning;
};

struct FirecrawlSearchResult
{
    QString url;
    std::optional<QString> title;
    std::optional<QString> description;
    std::optional<QString> markdown;
};

struct FirecrawlSearchResponse
{
    bool success = false;
    QList<FirecrawlSearchResult> data;
    std::optional<QString> error;
    std::optional<QString> warning;
};

struct FirecrawlMapResponse
{
    bool success = false;
    std::optional<QStringList> links;
    std::optional<QString> error;
};

// A decoder yields nothing, with `error` saying why, for a body that is not
// the record: not JSON, not an object, or a required field missing.
namespace FirecrawlResults {

std::optional<FirecrawlScrapeResponse> decodeScrape(const QByteArray& body, QString* error);
std::optional<FirecrawlSearchResponse> decodeSearch(const QByteArray& body, QString* error);
std::optional<FirecrawlMapResponse> decodeMap(const QByteArray& body, QString* error);
// The "error" text of an error answer, whatever else it holds.
std::optional<QString> errorMessage(const QByteArray& body);

// `formats` as requested ("markdown" when none were).
QString formatScrape(const FirecrawlScrapeResponse& response, const QStringList& formats);
QString formatMap(const FirecrawlMapResponse& response);
QString formatSearch(const FirecrawlSearchResponse& response, const QString& query);

} // namespace FirecrawlResults

// What the three tools share: the service, the request and its failures.
class FirecrawlTool : public LocalTool
{
public:
    explicit FirecrawlTool(ToolService service) : m_service(std::move(service)) {}

    QJsonObject parameterSchema() const override;
    bool requiresAPIKey() const override { return true; }

protected:
    enum class RateLimit
    {
        Reported, // a 429 has its own text
        AsError,  // a 429 is an error like any other
    };
    // POSTs `body` to `path` and hands a successful answer's body on.
    void post(const ToolInvocation& call, const QString& path, const QJsonObject& body,
              RateLimit rateLimit, const Done& done,
              std::function<void(const QByteArray&)> onBody) const;
    // The required string parameter and the key, or the failure to report.
    std::optional<QString> checked(const ToolInvocation& call, const QString& parameter,
                                   const Done& done) const;

private:
    const ToolService m_service;
};

class FirecrawlScrapeTool : public FirecrawlTool
{
public:
    using FirecrawlTool::FirecrawlTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class FirecrawlMapTool : public FirecrawlTool
{
public:
    using FirecrawlTool::FirecrawlTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

class FirecrawlSearchTool : public FirecrawlTool
{
public:
    using FirecrawlTool::FirecrawlTool;
    QString identifier() const override;
    QString name() const override;
    QString description() const override;
    void execute(const ToolInvocation& call, Done done) override;
};

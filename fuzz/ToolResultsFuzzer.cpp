// Answers of the outside services the built-in tools call, as arbitrary
// bytes: every decoder either reads a record or says why not, and every
// record it reads formats to a non-empty text for the assistant.
#include "core/JsonValues.h"
#include "tools/BraveSearchTools.h"
#include "tools/FirecrawlTools.h"
#include "tools/NotionBlocks.h"
#include "tools/NotionResults.h"
#include "tools/ResendTools.h"

#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

template <typename T> void decoded(const std::optional<T>& value, const QString& error)
{
    check(value.has_value() || !error.isEmpty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QString error;

    const auto web = BraveSearchResults::decodeWebResults(body, &error);
    decoded(web, error);
    if (web)
        check(!BraveSearchResults::formatWebResults(*web).isEmpty());
    error.clear();
    decoded(BraveSearchResults::decodeLocationIds(body, &error), error);
    error.clear();
    const auto locations = BraveSearchResults::decodeLocations(body, &error);
    decoded(locations, error);
    error.clear();
    const auto descriptions = BraveSearchResults::decodeDescriptions(body, &error);
    decoded(descriptions, error);
    if (locations && descriptions)
        check(!BraveSearchResults::formatLocations(*locations, *descriptions).isEmpty());

    error.clear();
    const auto scrape = FirecrawlResults::decodeScrape(body, &error);
    decoded(scrape, error);
    if (scrape) {
        check(!FirecrawlResults::formatScrape(*scrape, {}).isEmpty());
        check(!FirecrawlResults::formatScrape(
                   *scrape, {u"markdown"_s, u"html"_s, u"rawHtml"_s, u"screenshot"_s, u"links"_s})
                   .isEmpty());
    }
    error.clear();
    const auto search = FirecrawlResults::decodeSearch(body, &error);
    decoded(search, error);
    if (search)
        check(!FirecrawlResults::formatSearch(*search, u"q"_s).isEmpty());
    error.clear();
    const auto map = FirecrawlResults::decodeMap(body, &error);
    decoded(map, error);
    if (map)
        check(!FirecrawlResults::formatMap(*map).isEmpty());
    (void)FirecrawlResults::errorMessage(body);

    error.clear();
    const auto email = ResendResults::decodeResponse(body, &error);
    decoded(email, error);
    if (email) {
        ResendEmailRequest request;
        request.from = u"a@example.com"_s;
        request.to = {u"b@example.com"_s};
        check(ResendResults::formatConfirmation(request, *email).contains(email->id));
    }
    (void)ResendResults::errorMessage(body);
    (void)ResendResults::isEmailAddress(QString::fromUtf8(body));
    check(!ResendResults::emailTemplate(QString::fromUtf8(body)).isEmpty());

    error.clear();
    const auto notion = parseJsonObject(body, &error);
    decoded(notion, error);
    (void)NotionResults::errorMessage(body);
    if (notion) {
        const NotionResponse list = NotionResults::decodeList(*notion);
        check(!NotionResults::formatSearch(list, u"q"_s).isEmpty());
        check(!NotionResults::formatQuery(list, u"d"_s).isEmpty());
        check(!NotionResults::formatUsers(list).isEmpty());
        check(!NotionResults::formatComments(list, u"b"_s).isEmpty());
        const NotionPage page = NotionResults::decodePage(*notion);
        check(!NotionResults::formatPage(page).isEmpty());
        check(!NotionResults::formatCreatedPage(page).isEmpty());
        check(NotionResults::formatUpdatedPage(page, {u"title"_s}).endsWith(u"title"_s));
        check(!NotionResults::formatDatabase(*notion).isEmpty());
        check(!NotionResults::formatUser(NotionResults::decodeUser(*notion)).isEmpty());
        check(!NotionResults::formatNewComment(NotionResults::decodeComment(*notion)).isEmpty());
        check(!NotionResults::formatAddedBlocks({NotionResults::decodeBlock(*notion)}, u"p"_s)
                   .isEmpty());
        // Whatever blocks come out of a request keep to the API's limits.
        QString blockError;
        if (const auto blocks =
                NotionBlocks::blocks(notion->value(u"blocks"_s).toArray(), &blockError)) {
            for (const QJsonArray& run : NotionBlocks::chunks(*blocks))
                check(run.size() <= NotionBlocks::maxBlocksPerRequest);
        } else {
            check(!blockError.isEmpty());
        }
    }
    return 0;
}

// Answers of the outside services the built-in tools call, as arbitrary
// bytes: every decoder either reads a record or says why not, and every
// record it reads formats to a non-empty text for the assistant.
#include "tools/BraveSearchTools.h"
#include "tools/FirecrawlTools.h"
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
    return 0;
}

#include "ToolServiceFakes.h"

ToolServiceFake::ToolServiceFake(Service service) : m_service(service)
{
    answerWith(Answer::Success);
}

QList<QByteArray> ToolServiceFake::paths() const
{
    switch (m_service) {
    case Service::BraveSearch:
        return {"/res/v1/web/search", "/res/v1/local/pois", "/res/v1/local/descriptions"};
    case Service::Firecrawl:
        return {"/v1/scrape", "/v1/map", "/v1/search"};
    case Service::Resend:
        return {"/emails"};
    }
    return {};
}

void ToolServiceFake::answerWith(Answer answer)
{
    for (const QByteArray& path : paths()) {
        HttpStub::Answer reply;
        QList<std::pair<QByteArray, QByteArray>> headers;
        switch (answer) {
        case Answer::Success:
            reply.body = successBody(path);
            break;
        case Answer::Empty:
            reply.body = emptyBody(path);
            break;
        case Answer::Unauthorized:
            reply = {401, errorBody(401), {}, false};
            break;
        case Answer::RateLimited:
            reply = {429, errorBody(429), {}, false};
            headers = {{"Retry-After", "27"}, {"X-RateLimit-Remaining", "0"}};
            break;
        case Answer::ServerError:
            reply = {500, errorBody(500), {}, false};
            break;
        case Answer::NotJson:
            reply.body = "<!DOCTYPE html><html><body>Bad gateway</body></html>";
            break;
        case Answer::Huge:
            reply.body = R"({"padding":")" + QByteArray(hugeSize, 'x') + R"("})";
            break;
        case Answer::Silent:
            reply.hold = true;
            break;
        }
        m_stub.setAnswer(path, reply);
        m_stub.setAnswerHeaders(path, headers);
    }
}

QByteArray ToolServiceFake::successBody(const QByteArray& path) const
{
    if (path == "/res/v1/web/search") {
        // A web search and a location search share the endpoint; the fake
        // answers both sections, as the service does for a mixed query.
        return R"({"type": "search",
            "query": {"original": "coffee", "more_results_available": true},
            "mixed": {"type": "mixed", "main": [{"type": "web", "index": 0, "all": false}]},
            "web": {"type": "search", "family_friendly": true, "results": [
                {"type": "search_result", "subtype": "generic", "title": "Coffee - Wikipedia",
                 "url": "https://en.wikipedia.org/wiki/Coffee", "is_source_local": false,
                 "description": "Coffee is a beverage brewed from roasted <strong>coffee</strong> beans.",
                 "language": "en", "family_friendly": true,
                 "profile": {"name": "Wikipedia", "url": "https://en.wikipedia.org/wiki/Coffee"}},
                {"type": "search_result", "title": "Untitled description",
                 "url": "https://example.com/no-description"},
                {"type": "search_result", "title": "Blue Bottle Coffee",
                 "url": "https://bluebottlecoffee.com/", "description": "Roasters since 2002."}]},
            "locations": {"type": "locations", "results": [
                {"type": "location_result", "id": "loc4CQWMJWLD4VBEBZ62XQLJTGK6YCJEEJDNAAAAAAA=",
                 "title": "Blue Bottle Coffee"},
                {"type": "location_result", "id": "loc4HTAVTJKP4RBEBZCEMBI3NG26YD4II4PATIHPDYI=",
                 "title": "Sightglass"}]}})";
    }
    if (path == "/res/v1/local/pois") {
        return R"({"type": "local_pois", "results": [
            {"type": "location_result", "id": "loc4CQWMJWLD4VBEBZ62XQLJTGK6YCJEEJDNAAAAAAA=",
             "name": "Blue Bottle Coffee",
             "address": {"streetAddress": "66 Mint St", "addressLocality": "San Francisco",
                         "addressRegion": "CA", "postalCode": "94103"},
             "coordinates": {"latitude": 37.7825, "longitude": -122.4073},
             "phone": "+1 510-653-3394", "rating": {"ratingValue": 4.5, "ratingCount": 1203},
             "openingHours": ["Mon-Fri 7:00-18:00", "Sat-Sun 8:00-17:00"], "priceRange": "$$"},
            {"type": "location_result", "id": "loc4HTAVTJKP4RBEBZCEMBI3NG26YD4II4PATIHPDYI=",
             "title": "Sightglass", "postal_address": {"type": "PostalAddress"}}]})";
    }
    if (path == "/res/v1/local/descriptions") {
        return R"({"type": "local_descriptions", "descriptions": {
            "loc4CQWMJWLD4VBEBZ62XQLJTGK6YCJEEJDNAAAAAAA=": "Third-wave roaster in a former garage."}})";
    }
    if (path == "/v1/scrape") {
        return R"({"success": true, "data": {
            "markdown": "# Example Domain\n\nThis domain is for use in examples.",
            "html": "<h1>Example Domain</h1>",
            "rawHtml": "<!doctype html><html><h1>Example Domain</h1></html>",
            "screenshot": "https://service.firecrawl.dev/storage/v1/object/public/media/shot.png",
            "links": ["https://www.iana.org/domains/example", "https://example.com/about"],
            "metadata": {"title": "Example Domain", "description": "An example page",
                         "language": "en", "sourceURL": "https://example.com",
                         "statusCode": 200}}})";
    }
    if (path == "/v1/map") {
        return R"({"success": true, "links": ["https://example.com", "https://example.com/about",
                                              "https://example.com/pricing"]})";
    }
    if (path == "/v1/search") {
        return R"({"success": true, "warning": null, "data": [
            {"url": "https://example.com/a", "title": "First result",
             "description": "The first one.", "markdown": "Short page."},
            {"url": "https://example.com/b"}]})";
    }
    if (path == "/emails")
        return R"({"id": "49a3999c-0ce1-4ea6-ab68-afcd6dc2e794"})";
    return "{}";
}

QByteArray ToolServiceFake::emptyBody(const QByteArray& path) const
{
    if (path == "/res/v1/web/search")
        return R"({"type": "search", "query": {"original": "zzqx"}, "mixed": {"type": "mixed", "main": []}})";
    if (path == "/res/v1/local/pois")
        return R"({"type": "local_pois", "results": []})";
    if (path == "/res/v1/local/descriptions")
        return R"({"type": "local_descriptions", "descriptions": {}})";
    if (path == "/v1/scrape")
        return R"({"success": true, "warning": "The page returned no content"})";
    if (path == "/v1/map")
        return R"({"success": true, "links": []})";
    if (path == "/v1/search")
        return R"({"success": true, "data": []})";
    return successBody(path);
}

QByteArray ToolServiceFake::errorBody(int status) const
{
    switch (m_service) {
    case Service::BraveSearch: {
        const QByteArray code = status == 401   ? "SUBSCRIPTION_TOKEN_INVALID"
                                : status == 429 ? "RATE_LIMITED"
                                                : "INTERNAL_ERROR";
        return R"({"type": "ErrorResponse", "error": {"id": "2cb3a3d5-0b8c-4d3b-9a8e-1c7a3b0e8f41",
            "status": )" +
               QByteArray::number(status) + R"(, "code": ")" + code +
               R"(", "detail": "The request could not be served."}, "time": 1718000000})";
    }
    case Service::Firecrawl:
        if (status == 401)
            return R"({"success": false, "error": "Unauthorized: Invalid token"})";
        if (status == 429)
            return R"({"success": false, "error": "Rate limit exceeded. Consumed (req/min): 11, Remaining (req/min): 0. Please retry after 27s."})";
        return R"({"success": false, "error": "An unexpected error occurred. Please contact help@firecrawl.com for help."})";
    case Service::Resend:
        if (status == 401)
            return R"({"statusCode": 401, "message": "Missing API key in the authorization header.", "name": "missing_api_key"})";
        if (status == 429)
            return R"({"statusCode": 429, "message": "Too many requests. You can only make 2 requests per second.", "name": "rate_limit_exceeded"})";
        return R"({"statusCode": 500, "message": "An unexpected error occurred.", "name": "application_error"})";
    }
    return "{}";
}

// The built-in tools for web search, scraping and e-mail, run the way the chat
// runs them (through the tool manager, keys from a real keyring) against
// local stand-ins for Brave Search, Firecrawl and Resend: what each request
// carries, and the text every kind of answer becomes.
#include "KeyringSession.h"
#include "ToolServiceFakes.h"
#include "store/KeychainManager.h"
#include "tools/BuiltInTools.h"
#include "tools/FirecrawlTools.h"
#include "tools/LocalToolManager.h"
#include "tools/ResendTools.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Service = ToolServiceFake::Service;
using Answer = ToolServiceFake::Answer;

namespace {

QJsonObject parse(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

Service serviceOf(const QString& identifier)
{
    if (identifier.startsWith(u"brave_"_s))
        return Service::BraveSearch;
    if (identifier.startsWith(u"firecrawl_"_s))
        return Service::Firecrawl;
    return Service::Resend;
}

const QString scrapeAll = u"**Markdown Content:**\n# Example Domain\n\nThis domain is for use in "
                          u"examples.\n\n**HTML Content:**\n<h1>Example Domain</h1>\n\n"
                          u"**Raw HTML Content:**\n<!doctype html><html><h1>Example "
                          u"Domain</h1></html>\n\n**Screenshot:** "
                          u"https://service.firecrawl.dev/storage/v1/object/public/media/"
                          u"shot.png\n\n**Links Found (2):**\nhttps://www.iana.org/domains/"
                          u"example\nhttps://example.com/about\n\n**Metadata:**\nTitle: Example "
                          u"Domain\nDescription: An example page\nStatus Code: 200"_s;

// Moc reads the test class; the rows with their raw JSON stay outside it.
void requestsRows()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QByteArray>("parameters");
    QTest::addColumn<QByteArrayList>("paths"); // every request, in order
    QTest::addColumn<QByteArray>("body");      // of the last request; "" for none
    const auto row = [](const char* name, const QString& identifier, QByteArray parameters,
                        QByteArrayList paths, QByteArray body = {}) {
        QTest::newRow(name) << identifier << parameters << paths << body;
    };
    row("web search, defaults", u"brave_web_search"_s, R"({"query": "coffee & tea"})",
        {"/res/v1/web/search?q=coffee%20%26%20tea&count=10&offset=0"});
    row("web search, count capped", u"brave_web_search"_s,
        R"({"query": "x", "count": 50, "offset": 3})",
        {"/res/v1/web/search?q=x&count=20&offset=3"});
    row("web search, small count as given", u"brave_web_search"_s, R"({"query": "x", "count": 3})",
        {"/res/v1/web/search?q=x&count=3&offset=0"});
    row("local search: three stages, one ids item each", u"brave_local_search"_s,
        R"({"query": "coffee"})",
        {"/res/v1/web/search?q=coffee&search_lang=en&result_filter=locations&count=5",
         "/res/v1/local/pois?ids=loc4CQWMJWLD4VBEBZ62XQLJTGK6YCJEEJDNAAAAAAA%3D&ids="
         "loc4HTAVTJKP4RBEBZCEMBI3NG26YD4II4PATIHPDYI%3D",
         "/res/v1/local/descriptions?ids=loc4CQWMJWLD4VBEBZ62XQLJTGK6YCJEEJDNAAAAAAA%3D&ids="
         "loc4HTAVTJKP4RBEBZCEMBI3NG26YD4II4PATIHPDYI%3D"});
    row("scrape, default format", u"firecrawl_scrape"_s, R"({"url": "https://example.com"})",
        {"/v1/scrape"}, R"({"url": "https://example.com", "formats": ["markdown"]})");
    row("scrape, every option", u"firecrawl_scrape"_s,
        R"({"url": "https://example.com", "formats": ["html"], "onlyMainContent": true,
            "waitFor": 500, "timeout": 9000})",
        {"/v1/scrape"},
        R"({"url": "https://example.com", "formats": ["html"], "onlyMainContent": true,
            "waitFor": 500, "timeout": 9000})");
    row("map", u"firecrawl_map"_s,
        R"({"url": "https://example.com", "search": "pricing", "limit": 5})", {"/v1/map"},
        R"({"url": "https://example.com", "search": "pricing", "limit": 5})");
    row("search with content", u"firecrawl_search"_s,
        R"({"query": "crm", "limit": 2, "lang": "de", "country": "at",
            "includeContent": true})",
        {"/v1/search"},
        R"({"query": "crm", "limit": 2, "lang": "de", "country": "at",
            "scrapeOptions": {"formats": ["markdown"], "onlyMainContent": true}})");
    row("search, content not asked for", u"firecrawl_search"_s,
        R"({"query": "crm", "includeContent": false, "lang": 7})", {"/v1/search"},
        R"({"query": "crm"})");
    row("e-mail, plain", u"resend_send_email"_s,
        R"({"to": "ana@example.com", "subject": "Hello", "text": "Hi Ana"})", {"/emails"},
        R"({"from": "Sales <sales@quillmoss.example>", "to": ["ana@example.com"],
            "subject": "Hello", "text": "Hi Ana"})");
    row("e-mail, everything", u"resend_send_email"_s,
        R"({"to": "ana@example.com", "subject": "S", "text": "T", "from": "me@example.org",
            "html": "<p>T</p>", "cc": ["c@example.com"], "bcc": ["b@example.com"],
            "reply_to": ["r@example.com"], "scheduled_at": "tomorrow at 10am"})",
        {"/emails"},
        R"({"from": "me@example.org", "to": ["ana@example.com"], "subject": "S", "text": "T",
            "html": "<p>T</p>", "cc": ["c@example.com"], "bcc": ["b@example.com"],
            "reply_to": ["r@example.com"], "scheduled_at": "tomorrow at 10am"})");
}

void resultsRows()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QByteArray>("parameters");
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("text"); // exact, or a prefix when it ends in "…"
    const auto row = [](const char* name, const QString& identifier, QByteArray parameters,
                        Answer answer, bool success, const QString& text) {
        QTest::newRow(name) << identifier << parameters << answer << success << text;
    };
    const QByteArray query = R"({"query": "coffee"})";
    const QByteArray url = R"({"url": "https://example.com"})";
    const QByteArray mail = R"({"to": "ana@example.com", "subject": "Hello", "text": "Hi"})";
    const QString web = u"brave_web_search"_s;
    const QString local = u"brave_local_search"_s;
    const QString scrape = u"firecrawl_scrape"_s;
    const QString map = u"firecrawl_map"_s;
    const QString search = u"firecrawl_search"_s;
    const QString send = u"resend_send_email"_s;

    row("web: results without a description left out", web, query, Answer::Success, true,
        u"Title: Coffee - Wikipedia\nDescription: Coffee is a beverage brewed from roasted "
        u"<strong>coffee</strong> beans.\nURL: https://en.wikipedia.org/wiki/Coffee\n\n"
        u"Title: Blue Bottle Coffee\nDescription: Roasters since 2002.\nURL: "
        u"https://bluebottlecoffee.com/"_s);
    row("web: none", web, query, Answer::Empty, true, u"No web results found."_s);
    row("web: 401", web, query, Answer::Unauthorized, false,
        u"Tool execution failed: Brave API error 401"_s);
    row("web: 429", web, query, Answer::RateLimited, false,
        u"Tool execution failed: Brave API error 429"_s);
    row("web: not JSON", web, query, Answer::NotJson, false,
        u"Tool execution failed: Failed to parse response: …"_s);
    row("web: too large", web, query, Answer::Huge, false,
        u"Network error: The response is larger than 4194304 bytes"_s);
    row("web: no answer", web, query, Answer::Silent, false,
        u"Network error: The request timed out."_s);
    row("local: both record forms", local, query, Answer::Success, true,
        u"Name: Blue Bottle Coffee\nAddress: 66 Mint St, San Francisco, CA, 94103\n"
        u"Phone: +1 510-653-3394\nRating: 4.5 (1203 reviews)\nPrice Range: $$\n"
        u"Hours: Mon-Fri 7:00-18:00, Sat-Sun 8:00-17:00\nDescription: Third-wave roaster in "
        u"a former garage.\n---\nName: Sightglass\nAddress: N/A\nPhone: N/A\nRating: N/A\n"
        u"Price Range: N/A\nHours: N/A\nDescription: No description available"_s);
    row("local: no locations", local, query, Answer::Empty, true, u"No local results found"_s);
    row("local: 500 at the first stage", local, query, Answer::ServerError, false,
        u"Tool execution failed: Brave API error 500"_s);
    row("local: not JSON", local, query, Answer::NotJson, false,
        u"Tool execution failed: Failed to parse location IDs: …"_s);
    row("scrape: asked-for formats only", scrape,
        R"({"url": "https://example.com", "formats": ["html"]})", Answer::Success, true,
        u"**HTML Content:**\n<h1>Example Domain</h1>\n\n**Metadata:**\nTitle: Example "
        u"Domain\nDescription: An example page\nStatus Code: 200"_s);
    row("scrape: every format", scrape,
        R"({"url": "https://example.com",
            "formats": ["markdown", "html", "rawHtml", "screenshot", "links"]})",
        Answer::Success, true, scrapeAll);
    row("scrape: no data", scrape, url, Answer::Empty, true, u"No content retrieved"_s);
    row("scrape: 429 has its own text", scrape, url, Answer::RateLimited, false,
        u"Tool execution failed: Firecrawl API rate limit exceeded"_s);
    row("scrape: 401", scrape, url, Answer::Unauthorized, false,
        u"Tool execution failed: Firecrawl API error: Unauthorized: Invalid token"_s);
    row("scrape: not JSON", scrape, url, Answer::NotJson, false,
        u"Tool execution failed: Firecrawl API error: unreadable answer (…"_s);
    row("map", map, url, Answer::Success, true,
        u"**Discovered URLs (3):**\nhttps://example.com\nhttps://example.com/about\n"
        u"https://example.com/pricing"_s);
    row("map: none", map, url, Answer::Empty, true, u"No links found"_s);
    row("map: 429 is a plain error", map, url, Answer::RateLimited, false,
        u"Tool execution failed: Firecrawl API error: Rate limit exceeded. Consumed "
        u"(req/min): 11, Remaining (req/min): 0. Please retry after 27s."_s);
    row("search", search, R"({"query": "crm"})", Answer::Success, true,
        u"**Search Results for 'crm' (2 results):**\n\n1. **First result**\n   URL: "
        u"https://example.com/a\n   Description: The first one.\n   Content: Short page.\n\n"
        u"2. **No title**\n   URL: https://example.com/b\n"_s);
    row("search: none", search, R"({"query": "crm"})", Answer::Empty, true,
        u"No search results found"_s);
    row("search: 500", search, R"({"query": "crm"})", Answer::ServerError, false,
        u"Tool execution failed: Firecrawl API error: An unexpected error occurred. Please "
        u"contact help@firecrawl.com for help."_s);
    row("search: no answer", search, R"({"query": "crm"})", Answer::Silent, false,
        u"Network error: The request timed out."_s);
    row("e-mail sent", send, mail, Answer::Success, true,
        u"**✅ Email Sent Successfully via Resend:**\n\nEmail ID: "
        u"49a3999c-0ce1-4ea6-ab68-afcd6dc2e794\nFrom: Sales <sales@quillmoss.example>\nTo: "
        u"ana@example.com\nSubject: Hello\nFormat: Plain Text\n"_s);
    row("e-mail: HTML, copies, schedule", send,
        R"({"to": "ana@example.com", "subject": "S", "text": "T", "html": "<p>T</p>",
            "cc": ["c@example.com", "d@example.com"], "scheduled_at": "tomorrow at 10am"})",
        Answer::Success, true,
        u"**✅ Email Sent Successfully via Resend:**\n\nEmail ID: "
        u"49a3999c-0ce1-4ea6-ab68-afcd6dc2e794\nFrom: Sales <sales@quillmoss.example>\nTo: "
        u"ana@example.com\nSubject: S\nFormat: HTML + Text\n\nCC: c@example.com, "
        u"d@example.com\nScheduled For: tomorrow at 10am"_s);
    row("e-mail: 401", send, mail, Answer::Unauthorized, false,
        u"Tool execution failed: Resend API error: Missing API key in the authorization "
        u"header."_s);
    row("e-mail: 429", send, mail, Answer::RateLimited, false,
        u"Tool execution failed: Resend API error: Too many requests. You can only make 2 "
        u"requests per second."_s);
    row("e-mail: a 200 that is not the record", send, mail, Answer::NotJson, false,
        u"Tool execution failed: Resend API error: unreadable answer (…"_s);
    row("e-mail: no answer", send, mail, Answer::Silent, false,
        u"Network error: The request timed out."_s);
    row("templates: any case", u"resend_email_templates"_s, R"({"template_type": "THANK_YOU"})",
        Answer::Success, true,
        u"**🙏 Thank You Email Template:**\n\n**Subject:** Thank you for your time today…"_s);
    row("templates: alias", u"resend_email_templates"_s, R"({"template_type": "quote"})",
        Answer::Success, true, u"**💼 Proposal Email Template:**…"_s);
    row("templates: unknown gives the list", u"resend_email_templates"_s,
        R"({"template_type": "haiku"})", Answer::Success, true,
        u"**Available Email Templates:**\n\nUse template_type parameter with one of these "
        u"options:…"_s);
}

void refusedBeforeSendingRows()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QByteArray>("parameters");
    QTest::addColumn<QString>("removeItem"); // secure-store item removed first
    QTest::addColumn<QString>("text");
    QTest::newRow("web search without a key")
        << u"brave_web_search"_s << QByteArray(R"({"query": "x"})") << u"brave-search"_s
        << u"API key required for 'Brave Web Search'"_s;
    QTest::newRow("scrape without a url") << u"firecrawl_scrape"_s << QByteArray("{}") << QString()
                                          << u"Missing required parameter: 'url'"_s;
    QTest::newRow("map without a key")
        << u"firecrawl_map"_s << QByteArray(R"({"url": "https://example.com"})") << u"firecrawl"_s
        << u"API key required for 'Firecrawl Map'"_s;
    QTest::newRow("e-mail without a subject")
        << u"resend_send_email"_s << QByteArray(R"({"to": "a@example.com", "text": "t"})")
        << QString() << u"Missing required parameter: 'subject'"_s;
    QTest::newRow("e-mail without any sender")
        << u"resend_send_email"_s
        << QByteArray(R"({"to": "a@example.com", "subject": "s", "text": "t", "from": ""})")
        << ResendSendEmailTool::senderItem()
        << u"Tool execution failed: No sender email provided. Please provide 'from' "
           u"parameter or configure a default sender email in Resend settings."_s;
    QTest::newRow("e-mail to a malformed address")
        << u"resend_send_email"_s
        << QByteArray(R"({"to": "ana at example", "subject": "s", "text": "t"})") << QString()
        << u"Invalid parameter 'to': \"ana at example\" is not an e-mail address"_s;
    QTest::newRow("e-mail with a malformed copy")
        << u"resend_send_email"_s
        << QByteArray(R"({"to": "a@example.com", "subject": "s", "text": "t", "cc": ["x@"]})")
        << QString() << u"Invalid parameter 'cc': \"x@\" is not an e-mail address"_s;
}

} // namespace

class WebToolsTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    KeychainManager m_keychain;
    std::unique_ptr<ToolServiceFake> m_brave;
    std::unique_ptr<ToolServiceFake> m_firecrawl;
    std::unique_ptr<ToolServiceFake> m_resend;
    std::unique_ptr<LocalToolManager> m_manager;

    ToolServiceFake& fake(Service service)
    {
        switch (service) {
        case Service::BraveSearch:
            return *m_brave;
        case Service::Firecrawl:
            return *m_firecrawl;
        case Service::Resend:
            break;
        }
        return *m_resend;
    }

    ToolExecution run(const QString& identifier, const QJsonObject& parameters)
    {
        QFuture<ToolExecution> call = m_manager->executeTool(identifier, parameters);
        [&] { QTRY_VERIFY_WITH_TIMEOUT(call.isFinished(), 20'000); }();
        return call.isFinished() ? call.result() : ToolExecution{};
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_brave = std::make_unique<ToolServiceFake>(Service::BraveSearch);
        m_firecrawl = std::make_unique<ToolServiceFake>(Service::Firecrawl);
        m_resend = std::make_unique<ToolServiceFake>(Service::Resend);
        const auto service = [](const ToolServiceFake& fake) {
            ToolService local;
            local.baseUrl = fake.url();
            local.timeout = 1500ms;
            return local;
        };
        m_manager = std::make_unique<LocalToolManager>(m_keychain);
        registerBuiltInTools(*m_manager, {service(*m_brave), service(*m_firecrawl), ToolService{},
                                          service(*m_resend)});
    }

    void init()
    {
        QVERIFY(m_keychain.storeKey(u"BSA-test-key"_s, u"brave-search"_s));
        QVERIFY(m_keychain.storeKey(u"fc-test-key"_s, u"firecrawl"_s));
        QVERIFY(m_keychain.storeKey(u"re_test_key"_s, u"resend"_s));
        QVERIFY(m_keychain.storeKey(u"Sales <sales@quillmoss.example>"_s,
                                    ResendSendEmailTool::senderItem()));
        for (Service service : {Service::BraveSearch, Service::Firecrawl, Service::Resend})
            fake(service).answerWith(Answer::Success);
    }

    void registersTheSevenTools()
    {
        for (const QString& identifier :
             {u"brave_web_search"_s, u"brave_local_search"_s, u"firecrawl_scrape"_s,
              u"firecrawl_map"_s, u"firecrawl_search"_s, u"resend_send_email"_s,
              u"resend_email_templates"_s})
            QVERIFY2(m_manager->tool(identifier), qPrintable(identifier));
    }

    // What each call sends: method, path with its query, and body.
    void requests_data() { requestsRows(); }

    void requests()
    {
        QFETCH(QString, identifier);
        QFETCH(QByteArray, parameters);
        QFETCH(QByteArrayList, paths);
        QFETCH(QByteArray, body);
        ToolServiceFake& service = fake(serviceOf(identifier));
        const qsizetype before = service.requests().size();
        const ToolExecution result = run(identifier, parse(parameters));
        QVERIFY2(result.success, qPrintable(result.text));
        const QList<HttpStub::Request> sent = service.requests().mid(before);
        QCOMPARE(sent.size(), paths.size());
        for (qsizetype i = 0; i < sent.size(); ++i) {
            const HttpStub::Request& request = sent.at(i);
            QCOMPARE(request.path, paths.at(i));
            QCOMPARE(request.headers.value("accept"), QByteArray("application/json"));
            if (serviceOf(identifier) == Service::BraveSearch) {
                QCOMPARE(request.method, QByteArray("GET"));
                QCOMPARE(request.headers.value("x-subscription-token"), QByteArray("BSA-test-key"));
                QVERIFY(!request.headers.contains("authorization"));
                QVERIFY(request.headers.value("accept-encoding").contains("gzip"));
            } else {
                QCOMPARE(request.method, QByteArray("POST"));
                QCOMPARE(request.headers.value("authorization"),
                         serviceOf(identifier) == Service::Firecrawl
                             ? QByteArray("Bearer fc-test-key")
                             : QByteArray("Bearer re_test_key"));
                QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
            }
        }
        if (!body.isEmpty())
            QCOMPARE(parse(sent.last().body), parse(body));
    }

    // The text each answer becomes, success or failure.
    void results_data() { resultsRows(); }

    void results()
    {
        QFETCH(QString, identifier);
        QFETCH(QByteArray, parameters);
        QFETCH(Answer, answer);
        QFETCH(bool, success);
        QFETCH(QString, text);
        fake(serviceOf(identifier)).answerWith(answer);
        const ToolExecution result = run(identifier, parse(parameters));
        QCOMPARE(result.success, success);
        if (text.endsWith(u"…"_s))
            QVERIFY2(result.text.startsWith(text.chopped(1)), qPrintable(result.text));
        else
            QCOMPARE(result.text, text);
    }

    // Refusals that come before any request is made.
    void refusedBeforeSending_data() { refusedBeforeSendingRows(); }

    void refusedBeforeSending()
    {
        QFETCH(QString, identifier);
        QFETCH(QByteArray, parameters);
        QFETCH(QString, removeItem);
        QFETCH(QString, text);
        if (!removeItem.isEmpty())
            QVERIFY(m_keychain.deleteKey(removeItem));
        ToolServiceFake& service = fake(serviceOf(identifier));
        const qsizetype before = service.requests().size();
        const ToolExecution result = run(identifier, parse(parameters));
        QVERIFY(!result.success);
        QCOMPARE(result.text, text);
        QCOMPARE(service.requests().size(), before);
    }

    void searchContentCutAfter200Characters_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("cut");
        QTest::newRow("200") << 200 << false;
        QTest::newRow("201") << 201 << true;
    }

    void searchContentCutAfter200Characters()
    {
        QFETCH(int, length);
        QFETCH(bool, cut);
        FirecrawlSearchResponse response;
        response.success = true;
        response.data = {
            {u"https://example.com"_s, u"T"_s, std::nullopt, QString(length - 1, u'a') + u"é"_s}};
        // 200 characters as a reader counts them: "é" is one.
        const QString text = FirecrawlResults::formatSearch(response, u"q"_s);
        const QString markdown = *response.data.first().markdown;
        const QString shown = cut ? QString(200, u'a') + u"..."_s : markdown;
        QVERIFY2(text.endsWith(u"   Content: "_s + shown + u"\n"_s), qPrintable(text));
    }
};

QTEST_GUILESS_MAIN(WebToolsTest)
#include "WebToolsTest.moc"

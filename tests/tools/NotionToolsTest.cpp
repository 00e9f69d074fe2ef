// The Notion tools run the way the chat runs them (through the tool manager,
// the token from a real keyring) against a local stand-in for Notion that
// keeps a small workspace: what each request carries, the text each answer
// and each error becomes, and that what the assistant writes arrives.
#include "tools/NotionTools.h"

#include "KeyringSession.h"
#include "LogCapture.h"
#include "NotionFake.h"
#include "store/KeychainManager.h"
#include "tools/BuiltInTools.h"
#include "tools/LocalToolManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QJsonObject parse(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

const QByteArray acme = NotionFake::acmePageId;
const QByteArray notes = NotionFake::notesPageId;
const QByteArray database = NotionFake::databaseId;

QByteArray with(QByteArray text)
{
    return text.replace("ACME", acme).replace("NOTES", notes).replace("DB", database);
}

void requestsRows()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QByteArray>("parameters");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("body"); // "" for none
    const auto row = [](const char* name, const char* identifier, const char* parameters,
                        const char* method, const char* path, const char* body = "") {
        QTest::newRow(name) << QString::fromLatin1(identifier) << with(parameters)
                            << QByteArray(method) << with(path) << with(body);
    };
    row("search", "notion_search",
        R"({"query": "acme", "filter": {"value": "page", "property": "object"}, "page_size": 5})",
        "POST", "/v1/search",
        R"({"query": "acme", "filter": {"value": "page", "property": "object"}, "page_size": 5})");
    row("search, page size capped", "notion_search",
        R"({"query": "a", "page_size": 500, "start_cursor": "ACME", "sort": {"direction": "ascending", "timestamp": "last_edited_time"}})",
        "POST", "/v1/search",
        R"({"query": "a", "page_size": 100, "start_cursor": "ACME", "sort": {"direction": "ascending", "timestamp": "last_edited_time"}})");
    row("get page", "notion_get_page", R"({"page_id": "ACME"})", "GET", "/v1/pages/ACME");
    row("get page, filtered properties", "notion_get_page",
        R"({"page_id": "ACME", "filter_properties": "title, %3AUPp"})", "GET",
        "/v1/pages/ACME?filter_properties=title&filter_properties=%3AUPp");
    row("get database", "notion_get_database", R"({"database_id": "DB"})", "GET",
        "/v1/databases/DB");
    row("query database", "notion_query_database",
        R"({"database_id": "DB", "filter": {"property": "Stage", "select": {"equals": "Won"}},
            "sorts": [{"property": "Amount", "direction": "descending"}], "page_size": 1})",
        "POST", "/v1/databases/DB/query",
        R"({"filter": {"property": "Stage", "select": {"equals": "Won"}},
            "sorts": [{"property": "Amount", "direction": "descending"}], "page_size": 1})");
    row("query database, nothing given", "notion_query_database", R"({"database_id": "DB"})",
        "POST", "/v1/databases/DB/query", "{}");
    row("current bot user", "notion_get_user", "{}", "GET", "/v1/users/me");
    row("a user", "notion_get_user", R"({"user_id": "e79a0b74-3aba-4149-9f74-0bb5791a6ee6"})",
        "GET", "/v1/users/e79a0b74-3aba-4149-9f74-0bb5791a6ee6");
    row("list users", "notion_list_users", "{}", "GET", "/v1/users");
    row("list users, next page", "notion_list_users",
        R"({"start_cursor": "e79a0b74-3aba-4149-9f74-0bb5791a6ee6", "page_size": 2})", "GET",
        "/v1/users?start_cursor=e79a0b74-3aba-4149-9f74-0bb5791a6ee6&page_size=2");
    row("create page under a page", "notion_create_page",
        R"({"parent_page_id": "NOTES", "title": "Recap", "icon_emoji": "📄",
            "cover_url": "https://example.com/c.png", "content_blocks": [{"text": "Hello"}]})",
        "POST", "/v1/pages",
        R"({"parent": {"page_id": "NOTES"},
            "properties": {"title": [{"text": {"content": "Recap"}}]},
            "icon": {"type": "emoji", "emoji": "📄"},
            "cover": {"type": "external", "external": {"url": "https://example.com/c.png"}},
            "children": [{"object": "block", "type": "paragraph",
                          "paragraph": {"rich_text": [{"text": {"content": "Hello"}}]}}]})");
    row("create page in a given database", "notion_create_page",
        R"({"database_id": "DB", "title": "Initech"})", "POST", "/v1/pages",
        R"({"parent": {"database_id": "DB"},
            "properties": {"title": [{"text": {"content": "Initech"}}]}})");
    row("update page", "notion_update_page",
        R"({"page_id": "ACME", "title": "Acme Inc", "archived": false,
            "properties": {"Amount": {"number": 13000}}})",
        "PATCH", "/v1/pages/ACME",
        R"({"archived": false, "properties": {"title": [{"text": {"content": "Acme Inc"}}],
            "Amount": {"number": 13000}}})");
    row("create comment", "notion_create_comment",
        R"({"page_id": "NOTES", "comment_text": "Sent."})", "POST", "/v1/comments",
        R"({"parent": {"page_id": "NOTES"}, "rich_text": [{"text": {"content": "Sent."}}]})");
    row("get comments", "notion_get_comments", R"({"block_id": "NOTES"})", "GET",
        "/v1/comments?block_id=NOTES");
    row("get comments, next page", "notion_get_comments",
        R"({"block_id": "NOTES", "start_cursor": "94cc56ab-9f02-409d-9f99-1037e9fe502f", "page_size": 3})",
        "GET",
        "/v1/"
        "comments?block_id=NOTES&start_cursor=94cc56ab-9f02-409d-9f99-1037e9fe502f&page_size=3");
    row("add blocks", "notion_add_block",
        R"({"page_id": "ACME", "blocks": [{"type": "heading_2", "text": "Next steps"},
            {"object": "block", "type": "bulleted_list_item",
             "bulleted_list_item": {"rich_text": [{"type": "text", "text": {"content": "Demo"}}]}}]})",
        "PATCH", "/v1/blocks/ACME/children",
        R"({"children": [
            {"object": "block", "type": "heading_2",
             "heading_2": {"rich_text": [{"text": {"content": "Next steps"}}]}},
            {"object": "block", "type": "bulleted_list_item",
             "bulleted_list_item": {"rich_text": [{"type": "text", "text": {"content": "Demo"}}]}}]})");
}

void resultsRows()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QByteArray>("parameters");
    QTest::addColumn<int>("failWith");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("text"); // exact, or a prefix when it ends in "…"
    const auto row = [](const char* name, const char* identifier, const char* parameters,
                        int failWith, bool success, const QString& text) {
        QTest::newRow(name) << QString::fromLatin1(identifier) << with(parameters) << failWith
                            << success << text;
    };
    const QString created = u"2026-03-02T09:15:00.000Z"_s;
    const QString edited = u"2026-03-04T16:40:00.000Z"_s;
    row("search", "notion_search", R"({"query": "acme"})", 0, true,
        u"**Notion Search Results for 'acme' (1 results):**\n\n1. **Acme Corp**\n   Type: page\n"
        u"   ID: 59833787-2cf9-4fdf-8782-e53db20768a5\n"
        u"   URL: https://www.notion.so/598337872cf94fdf8782e53db20768a5\n   Created: "_s +
            created + u"\n   Last Edited: "_s + edited + u"\n   Archived: false"_s);
    row("search, more to come", "notion_search", R"({"query": "", "page_size": 1})", 0, true,
        u"…*More results available. Use start_cursor: 59833787-2cf9-4fdf-8782-e53db20768a5 for "
        u"pagination.*"_s);
    row("search, none", "notion_search", R"({"query": "zzqx"})", 0, true,
        u"No results found for query: 'zzqx'"_s);
    row("page", "notion_get_page", R"({"page_id": "ACME"})", 0, true,
        u"**Notion Page Details:**\n\nPage ID: 59833787-2cf9-4fdf-8782-e53db20768a5\nTitle: Acme "
        u"Corp\n…"_s);
    row("database", "notion_get_database", R"({"database_id": "DB"})", 0, true,
        u"**Notion Database Details:**\n\nDatabase ID: d9824bdc-8445-4327-be8b-5b47500af6ce\n"
        u"Title: Deals\nURL: https://www.notion.so/d9824bdc84454327be8b5b47500af6ce\nCreated: "_s +
            created + u"\nLast Edited: "_s + edited +
            u"\nArchived: false\n\n**Properties Schema (4 properties):**\n- Amount: number\n"
            u"- Close date: date\n- Name: title\n- Stage: select (options: Lead, Won)"_s);
    row("query", "notion_query_database", R"({"database_id": "DB", "page_size": 1})", 0, true,
        u"**Database Query Results (1 pages):**\n\n1. **Page ID: "
        u"59833787-2cf9-4fdf-8782-e53db20768a5**\n   URL: "
        u"https://www.notion.so/598337872cf94fdf8782e53db20768a5\n   Properties:\n"
        u"      Amount (number): 12000\n      Close date (date): 2026-04-30\n"
        u"      Name (title): Acme Corp\n      Stage (select): Lead\n\n*More results available. "
        u"Use start_cursor: a1d8501e-1ac1-43e9-a6bd-ea9fe6c8822b for pagination.*"_s);
    row("bot user", "notion_get_user", "{}", 0, true,
        u"**Notion User Details:**\n\nID: 9a3b5ae0-c6e6-482d-b0e1-ed315ee6dc57\nName: "
        u"Quillmoss\nType: bot\nAvatar: N/A"_s);
    row("person", "notion_get_user", R"({"user_id": "e79a0b74-3aba-4149-9f74-0bb5791a6ee6"})", 0,
        true,
        u"**Notion User Details:**\n\nID: e79a0b74-3aba-4149-9f74-0bb5791a6ee6\nName: Ana Lima\n"
        u"Type: person\nAvatar: N/A\n\n**Person Details:**\nEmail: ana@example.com"_s);
    row("users, first page", "notion_list_users", R"({"page_size": 2})", 0, true,
        u"**Notion Workspace Users (2 users):**\n\n1. **Ana Lima**\n   ID: "
        u"e79a0b74-3aba-4149-9f74-0bb5791a6ee6\n   Type: person\n   Avatar: N/A\n   Email: "
        u"ana@example.com\n\n2. **Unnamed User**\n   ID: 0c8d5a2e-55b4-4f7b-9b53-3c8f5c0e9d11\n"
        u"   Type: person\n   Avatar: N/A\n   Email: ops@example.com\n\n*More users available. "
        u"Use start_cursor: 9a3b5ae0-c6e6-482d-b0e1-ed315ee6dc57 for pagination.*"_s);
    row("comments", "notion_get_comments", R"({"block_id": "NOTES"})", 0, true,
        u"**Comments for Block 'b55c9c91-384d-452b-81db-d1ef79372b75' (1 comments):**\n\n1. "
        u"**Comment ID: 94cc56ab-9f02-409d-9f99-1037e9fe502f**\n   Created: "_s +
            created + u"\n   Last Edited: "_s + edited +
            u"\n   Discussion ID: f1407351-36f5-4c49-a13c-49f8ba11776d\n   Created By: "
            u"e79a0b74-3aba-4149-9f74-0bb5791a6ee6\n   Content: Send the pricing sheet."_s);
    row("comments, none", "notion_get_comments", R"({"block_id": "ACME"})", 0, true,
        u"No comments found for block: 59833787-2cf9-4fdf-8782-e53db20768a5"_s);
    row("new comment", "notion_create_comment", R"({"page_id": "ACME", "comment_text": "Hi"})", 0,
        true, u"**Successfully Created Comment:**\n\nComment ID: …"_s);
    row("created page", "notion_create_page", R"({"parent_page_id": "NOTES", "title": "Recap"})", 0,
        true, u"**Successfully Created Notion Page:**\n\nPage ID: …"_s);
    row("updated page", "notion_update_page",
        R"({"page_id": "ACME", "archived": true, "icon_emoji": "💼"})", 0, true,
        u"**Successfully Updated Notion Page:**\n\nPage ID: 59833787-2cf9-4fdf-8782-e53db20768a5\n"
        u"Title: Acme Corp\nURL: https://www.notion.so/598337872cf94fdf8782e53db20768a5\nLast "
        u"Edited: 2026-03-05T10:00:00.000Z\nArchived: true\n\nUpdates Applied: archived, icon"_s);
    row("added blocks", "notion_add_block", R"({"page_id": "ACME", "blocks": [{"text": "One"}]})",
        0, true, u"**Successfully Added 1 Blocks to Page:**\n\n1. **Block ID: …"_s);
    row("no blocks", "notion_add_block", R"({"page_id": "ACME", "blocks": []})", 0, true,
        u"No blocks were added to page: 59833787-2cf9-4fdf-8782-e53db20768a5"_s);
    row("unknown page", "notion_get_page", R"({"page_id": "0000"})", 0, false,
        u"Tool execution failed: Notion API error: Could not find page with ID: 0000. Make "
        u"sure the relevant pages and databases are shared with your integration."_s);
    row("400", "notion_search", R"({"query": "a"})", 400, false,
        u"Tool execution failed: Notion API error: body failed validation: body.parent should "
        u"be defined, instead was `undefined`."_s);
    row("401", "notion_get_user", "{}", 401, false,
        u"Tool execution failed: Notion API error: API token is invalid."_s);
    row("404", "notion_get_database", R"({"database_id": "DB"})", 404, false,
        u"Tool execution failed: Notion API error: Could not find page with ID: …"_s);
    row("409", "notion_update_page", R"({"page_id": "ACME", "archived": true})", 409, false,
        u"Tool execution failed: Notion API error: Conflict occurred while saving. Please try "
        u"again."_s);
    row("429", "notion_list_users", "{}", 429, false,
        u"Tool execution failed: Notion API error: You have been rate limited. Please try again "
        u"in a few minutes."_s);
    row("500", "notion_get_comments", R"({"block_id": "NOTES"})", 500, false,
        u"Tool execution failed: Notion API error: Unexpected error occurred."_s);
}

void refusedRows()
{
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QByteArray>("parameters");
    QTest::addColumn<QString>("removeItem"); // secure-store item removed first
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const char* identifier, const char* parameters,
                        const QString& removeItem, const QString& text) {
        QTest::newRow(name) << QString::fromLatin1(identifier) << with(parameters) << removeItem
                            << text;
    };
    row("no token", "notion_search", R"({"query": "x"})", u"notion"_s,
        u"API key required for 'Notion Search'"_s);
    row("no query", "notion_search", "{}", {}, u"Missing required parameter: 'query'"_s);
    row("no comment text", "notion_create_comment", R"({"page_id": "ACME"})", {},
        u"Missing required parameter: 'comment_text'"_s);
    row("an ID that is a path", "notion_get_page", R"({"page_id": "../users"})", {},
        u"Invalid parameter 'page_id': not a Notion ID"_s);
    row("no parent and no default", "notion_create_page", R"({"title": "T"})",
        NotionTool::databaseItem(),
        u"Tool execution failed: Either 'parent_page_id' or 'database_id' must be provided, or "
        u"configure a default database ID in Notion settings"_s);
    row("update without changes", "notion_update_page", R"({"page_id": "ACME"})", {},
        u"Tool execution failed: No updates specified. Please provide at least one field to "
        u"update."_s);
    row("a block that is none", "notion_add_block", R"({"page_id": "ACME", "blocks": [7]})", {},
        u"Invalid parameter 'blocks': item 1: expected an object"_s);
    row("an unknown short block", "notion_add_block",
        R"({"page_id": "ACME", "blocks": [{"type": "table", "text": "x"}]})", {},
        u"Invalid parameter 'blocks': item 1: \"table\" is not a text block type"_s);
}

} // namespace

class NotionToolsTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    KeychainManager m_keychain;
    std::unique_ptr<NotionFake> m_notion;
    std::unique_ptr<LocalToolManager> m_manager;

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
        m_manager = std::make_unique<LocalToolManager>(m_keychain);
    }

    // A fresh workspace for every test.
    void init()
    {
        m_notion = std::make_unique<NotionFake>();
        ToolService notion;
        notion.baseUrl = m_notion->url();
        notion.timeout = 5s;
        registerBuiltInTools(*m_manager, {{}, {}, notion, {}});
        QVERIFY(m_keychain.storeKey(QString::fromLatin1(NotionFake::token), u"notion"_s));
        (void)m_keychain.deleteKey(NotionTool::databaseItem());
    }

    void requests_data() { requestsRows(); }

    void requests()
    {
        QFETCH(QString, identifier);
        QFETCH(QByteArray, parameters);
        QFETCH(QByteArray, method);
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, body);
        const ToolExecution result = run(identifier, parse(parameters));
        QVERIFY2(result.success, qPrintable(result.text));
        const QList<HttpStub::Request> sent = m_notion->requests();
        QCOMPARE(sent.size(), 1);
        const HttpStub::Request& request = sent.first();
        QCOMPARE(request.method, method);
        QCOMPARE(request.path, path);
        QCOMPARE(request.headers.value("notion-version"), QByteArray("2022-06-28"));
        QCOMPARE(request.headers.value("authorization"), "Bearer " + QByteArray(NotionFake::token));
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        if (body.isEmpty())
            QVERIFY(request.body.isEmpty());
        else
            QCOMPARE(parse(request.body), parse(body));
    }

    void results_data() { resultsRows(); }

    void results()
    {
        QFETCH(QString, identifier);
        QFETCH(QByteArray, parameters);
        QFETCH(int, failWith);
        QFETCH(bool, success);
        QFETCH(QString, text);
        m_notion->failWith(failWith);
        const ToolExecution result = run(identifier, parse(parameters));
        QCOMPARE(result.success, success);
        if (text.startsWith(u"…"_s))
            QVERIFY2(result.text.endsWith(text.mid(1)), qPrintable(result.text));
        else if (text.endsWith(u"…"_s))
            QVERIFY2(result.text.startsWith(text.chopped(1)), qPrintable(result.text));
        else
            QCOMPARE(result.text, text);
    }

    // Refusals that come before any request is made.
    void refused_data() { refusedRows(); }

    void refused()
    {
        QFETCH(QString, identifier);
        QFETCH(QByteArray, parameters);
        QFETCH(QString, removeItem);
        QFETCH(QString, text);
        if (!removeItem.isEmpty())
            (void)m_keychain.deleteKey(removeItem);
        const ToolExecution result = run(identifier, parse(parameters));
        QVERIFY(!result.success);
        QCOMPARE(result.text, text);
        QVERIFY(m_notion->requests().isEmpty());
    }

    // After a call: the assistant writes its action items into the default
    // database, and they arrive as to-do blocks of a new page there.
    void actionItemsLandInTheDefaultDatabase()
    {
        QVERIFY(m_keychain.storeKey(QString::fromLatin1(NotionFake::databaseId),
                                    NotionTool::databaseItem()));
        LogCapture log;
        const ToolExecution result = run(u"notion_create_page"_s, parse(R"({
            "title": "Acme call: action items", "icon_emoji": "✅",
            "content_blocks": [
                {"type": "heading_2", "text": "Action items"},
                {"type": "to_do", "text": "Send the pricing sheet to Ana"},
                {"type": "to_do", "text": "Book the technical demo", "checked": false}]})"));
        QVERIFY2(result.success, qPrintable(result.text));
        QVERIFY(result.text.contains(u"Parent Database ID: "_s +
                                     QString::fromLatin1(NotionFake::databaseId)));
        QVERIFY(log.lines().contains(u"🔧 Using stored database ID: "_s +
                                     QString::fromLatin1(NotionFake::databaseId)));
        const QList<QJsonObject> pages =
            m_notion->pagesIn(QString::fromLatin1(NotionFake::databaseId));
        QCOMPARE(pages.size(), 3);
        const QString id = pages.last().value(u"id"_s).toString();
        QVERIFY(result.text.contains(id));
        const QJsonArray blocks = m_notion->children(id);
        QCOMPARE(blocks.size(), 3);
        QStringList todos;
        for (const QJsonValue block : blocks) {
            const QJsonObject object = block.toObject();
            if (object.value(u"type"_s) != u"to_do"_s)
                continue;
            const QJsonObject todo = object.value(u"to_do"_s).toObject();
            QCOMPARE(todo.value(u"checked"_s), QJsonValue(false));
            todos.append(todo.value(u"rich_text"_s)
                             .toArray()
                             .first()
                             .toObject()
                             .value(u"plain_text"_s)
                             .toString());
        }
        QCOMPARE(todos,
                 (QStringList{u"Send the pricing sheet to Ana"_s, u"Book the technical demo"_s}));
    }

    // Past the API's limits, content goes in several text objects and
    // requests, in order, and all of it arrives.
    void longContentIsSplitToTheLimits_data()
    {
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<int>("requests");
        QTest::newRow("new page") << u"notion_create_page"_s << 3;
        QTest::newRow("appended") << u"notion_add_block"_s << 3;
    }

    void longContentIsSplitToTheLimits()
    {
        QFETCH(QString, identifier);
        QFETCH(int, requests);
        QJsonArray content;
        for (int i = 0; i < 230; ++i)
            content.append(QJsonObject{{u"text"_s, u"Line %1"_s.arg(i)}});
        // A surrogate pair right at the cut must stay whole.
        const QString longText = QString(1999, u'a') + u"😀"_s + QString(2600, u'b');
        content.append(QJsonObject{{u"type"_s, u"paragraph"_s}, {u"content"_s, longText}});
        const QString page = QString::fromLatin1(NotionFake::notesPageId);
        const QJsonObject parameters =
            identifier == u"notion_create_page"_s
                ? QJsonObject{{u"parent_page_id"_s, page},
                              {u"title"_s, QString(2100, u't')},
                              {u"content_blocks"_s, content}}
                : QJsonObject{{u"page_id"_s, page}, {u"blocks"_s, content}};
        const ToolExecution result = run(identifier, parameters);
        QVERIFY2(result.success, qPrintable(result.text));
        QCOMPARE(m_notion->requests().size(), requests);
        const QString target = identifier == u"notion_create_page"_s
                                   ? result.text.section(u"Page ID: "_s, 1).section(u'\n', 0, 0)
                                   : page;
        const QJsonArray blocks = m_notion->children(target);
        QCOMPARE(blocks.size(), 231);
        QCOMPARE(blocks.at(229)
                     .toObject()
                     .value(u"paragraph"_s)
                     .toObject()
                     .value(u"rich_text"_s)
                     .toArray()
                     .first()
                     .toObject()
                     .value(u"plain_text"_s)
                     .toString(),
                 u"Line 229"_s);
        const QJsonArray parts = blocks.at(230)
                                     .toObject()
                                     .value(u"paragraph"_s)
                                     .toObject()
                                     .value(u"rich_text"_s)
                                     .toArray();
        QCOMPARE(parts.size(), 3);
        QString joined;
        for (const QJsonValue part : parts)
            joined += part.toObject().value(u"plain_text"_s).toString();
        QCOMPARE(joined, longText);
        if (identifier == u"notion_add_block"_s)
            QVERIFY(result.text.startsWith(u"**Successfully Added 231 Blocks to Page:**"_s));
    }
};

QTEST_GUILESS_MAIN(NotionToolsTest)
#include "NotionToolsTest.moc"

#include "CliRunner.h"
#include "KeyringSession.h"
#include "NotionFake.h"
#include "TestPaths.h"
#include "ToolServiceFakes.h"
#include "WhileServing.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QJsonObject integrationNamed(const QString& listing, const QString& name)
{
    for (const auto& item : QJsonDocument::fromJson(listing.toUtf8()).array()) {
        if (item[u"name"_s].toString() == name)
            return item.toObject();
    }
    return {};
}

} // namespace

// quillmoss integrations and tools end to end, with a private keyring and home:
// each invocation is a fresh process, so what one step changes the next one
// reads back from the settings file and the secure store.
class IntegrationsCommandTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;

    QString settingsPath() const { return m_home->path() + u"/.config/quillmoss/settings.json"_s; }

    static CliRunner::Result run(const QStringList& arguments, const QByteArray& input = {})
    {
        return CliRunner::run(arguments, input);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
    }

    // Steps run in order and share the keyring and the settings file.
    void session_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");    // exact standard output
        QTest::addColumn<QString>("errHas"); // standard error contains this ("" = no "quillmoss:")
        const auto row = [](const char* name, const QStringList& arguments, QByteArray input,
                            int exitCode, QString out, QString errHas = {}) {
            QTest::newRow(name) << arguments << input << exitCode << out << errHas;
        };
        row("without a verb", {u"integrations"_s}, {}, 2, {}, u"integrations needs a verb"_s);
        row("enable without a name", {u"integrations"_s, u"enable"_s}, {}, 2, {}, u"Usage:"_s);
        row("set-field without a value",
            {u"integrations"_s, u"set-field"_s, u"Notion"_s, u"database_id"_s}, {}, 2, {},
            u"Usage:"_s);
        row("list, unknown option", {u"integrations"_s, u"list"_s, u"--all"_s}, {}, 2, {},
            u"all"_s);
        row("unknown integration", {u"integrations"_s, u"enable"_s, u"Bing"_s}, {}, 1, {},
            u"quillmoss: Unknown integration: Bing"_s);
        row("coming soon", {u"integrations"_s, u"enable"_s, u"hubspot"_s}, {}, 1, {},
            u"quillmoss: HubSpot is coming soon and cannot be enabled yet"_s);
        row("nothing enabled: no tools", {u"tools"_s, u"list"_s}, {}, 0, {});
        row("enable, any case", {u"integrations"_s, u"enable"_s, u"brave search"_s}, {}, 0,
            u"Brave Search enabled\n"_s);
        row("the tools it brings", {u"tools"_s, u"list"_s}, {}, 0,
            u"brave_web_search    Search the web for current information, news, and general "
            u"knowledge. Use this when you need up-to-date information from the internet.\n"
            u"brave_local_search  Search for local businesses, places, restaurants, and services "
            u"with details like address, phone, hours, and ratings.\n"_s);
        row("blank key", {u"integrations"_s, u"set-key"_s, u"Brave Search"_s}, "  \n", 1, {},
            u"quillmoss: Please enter a valid API key"_s);
        row("key from stdin", {u"integrations"_s, u"set-key"_s, u"BRAVE SEARCH"_s}, " BSA-key-1\n",
            0, u"Brave Search API key stored\n"_s);
        row("stored under its service", {u"keychain"_s, u"get"_s, u"brave-search"_s}, {}, 0,
            u"BSA-key-1\n"_s);
        row("no key for OAuth", {u"integrations"_s, u"set-key"_s, u"Slack"_s}, "xoxb", 1, {},
            u"quillmoss: Slack does not take an API key"_s);
        row("set a field",
            {u"integrations"_s, u"set-field"_s, u"notion"_s, u"database_id"_s, u"db-42"_s}, {}, 0,
            u"Notion database_id stored\n"_s);
        row("field in its own item", {u"keychain"_s, u"get"_s, u"notion-database-id"_s}, {}, 0,
            u"db-42\n"_s);
        row("unknown field",
            {u"integrations"_s, u"set-field"_s, u"Resend"_s, u"from"_s, u"a@b.example"_s}, {}, 1,
            {}, u"quillmoss: Resend has no field \"from\"; its fields: sender_email"_s);
        row("no fields at all",
            {u"integrations"_s, u"set-field"_s, u"Firecrawl"_s, u"database_id"_s, u"x"_s}, {}, 1,
            {}, u"Firecrawl has no fields"_s);
        row("empty value removes",
            {u"integrations"_s, u"set-field"_s, u"Notion"_s, u"database_id"_s, {}}, {}, 0,
            u"Notion database_id removed\n"_s);
        row("removed", {u"keychain"_s, u"get"_s, u"notion-database-id"_s}, {}, 1, {});
        row("unknown tool", {u"tools"_s, u"run"_s, u"nope"_s}, {}, 1, {},
            u"quillmoss: Tool 'nope' not found"_s);
        row("arguments not JSON", {u"tools"_s, u"run"_s, u"brave_web_search"_s, u"{query"_s}, {}, 1,
            {}, u"quillmoss: JSON-ARGS must be a JSON object: "_s);
        row("arguments not an object", {u"tools"_s, u"run"_s, u"brave_web_search"_s, u"[1]"_s}, {},
            1, {}, u"quillmoss: JSON-ARGS must be a JSON object: "_s);
        row("run without an id", {u"tools"_s, u"run"_s}, {}, 2, {}, u"Usage:"_s);
        row("remove the key", {u"integrations"_s, u"remove-key"_s, u"Brave Search"_s}, {}, 0,
            u"Brave Search API key removed\n"_s);
        row("gone from the store", {u"keychain"_s, u"get"_s, u"brave-search"_s}, {}, 1, {});
        row("disable", {u"integrations"_s, u"disable"_s, u"Brave Search"_s}, {}, 0,
            u"Brave Search disabled\n"_s);
        row("disabled again: no tools", {u"tools"_s, u"list"_s}, {}, 0, {});
    }

    void session()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errHas);
        const CliRunner::Result result = run(arguments, input);
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
        QCOMPARE(result.out, out);
        if (errHas.isEmpty())
            QVERIFY2(!result.err.contains(u"quillmoss:"_s), qPrintable(result.err));
        else
            QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
    }

    // Enabled state goes to "enabledIntegrations" and survives the process;
    // the listing says whether a key is stored, never the key.
    void enabledStatePersists()
    {
        QCOMPARE(run({u"integrations"_s, u"enable"_s, u"Notion"_s}).exitCode, 0);
        QCOMPARE(run({u"integrations"_s, u"set-key"_s, u"Notion"_s}, "ntn_secret_1").exitCode, 0);
        const CliRunner::Result listed = run({u"integrations"_s, u"list"_s, u"--json"_s});
        QVERIFY2(listed.exitCode == 0, qPrintable(listed.err));
        QVERIFY(!listed.out.contains(u"ntn_secret_1"_s));
        QCOMPARE(QJsonDocument::fromJson(listed.out.toUtf8()).array().size(), 8);
        const QJsonObject notion = integrationNamed(listed.out, u"Notion"_s);
        QCOMPARE(notion.value(u"enabled"_s), QJsonValue(true));
        QCOMPARE(notion.value(u"keyStored"_s), QJsonValue(true));
        QCOMPARE(notion.value(u"comingSoon"_s), QJsonValue(false));
        QCOMPARE(notion.value(u"authType"_s), QJsonValue(u"apiKey"_s));
        QCOMPARE(notion.value(u"category"_s), QJsonValue(u"Search & AI Tools"_s));
        QCOMPARE(notion.value(u"tools"_s).toArray().size(), 11);
        const QJsonObject hubSpot = integrationNamed(listed.out, u"HubSpot"_s);
        QCOMPARE(hubSpot.value(u"comingSoon"_s), QJsonValue(true));
        QCOMPARE(hubSpot.value(u"tools"_s), QJsonValue(QJsonArray()));
        // The global option works as well as the one after the verb.
        QCOMPARE(run({u"--json"_s, u"integrations"_s, u"list"_s}).out, listed.out);

        const QJsonObject settings =
            QJsonDocument::fromJson(TestPaths::readFile(settingsPath())).object();
        QCOMPARE(settings.value(u"enabledIntegrations"_s), QJsonValue(QJsonArray{u"Notion"_s}));

        const CliRunner::Result table = run({u"integrations"_s, u"list"_s});
        QCOMPARE(table.exitCode, 0);
        const QStringList lines = table.out.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 9);
        const QString notionLine = lines.filter(u"Notion"_s).value(0);
        QCOMPARE(notionLine.simplified(), u"Notion Search & AI Tools yes yes 11"_s);
        // Columns line up under the heading.
        QCOMPARE(notionLine.indexOf(u"Search"_s), lines.first().indexOf(u"CATEGORY"_s));
        QVERIFY(lines.filter(u"Slack"_s).value(0).endsWith(u"coming soon"_s));

        QCOMPARE(run({u"integrations"_s, u"disable"_s, u"Notion"_s}).exitCode, 0);
        QCOMPARE(run({u"integrations"_s, u"remove-key"_s, u"Notion"_s}).exitCode, 0);
        const QJsonObject after =
            integrationNamed(run({u"integrations"_s, u"list"_s, u"--json"_s}).out, u"Notion"_s);
        QCOMPARE(after.value(u"enabled"_s), QJsonValue(false));
        QCOMPARE(after.value(u"keyStored"_s), QJsonValue(false));
    }

    // The document exactly as the backend gets it.
    void toolDocument()
    {
        const CliRunner::Result empty = run({u"tools"_s, u"list"_s, u"--json"_s});
        QVERIFY2(empty.exitCode == 0, qPrintable(empty.err));
        QCOMPARE(QJsonDocument::fromJson(empty.out.toUtf8()).object(),
                 (QJsonObject{{u"executionMode"_s, u"local"_s},
                              {u"localTools"_s, QJsonArray()},
                              {u"enabledTools"_s, QJsonArray()}}));

        QCOMPARE(run({u"integrations"_s, u"enable"_s, u"Brave Search"_s}).exitCode, 0);
        const CliRunner::Result brave = run({u"--json"_s, u"tools"_s, u"list"_s});
        QVERIFY2(brave.exitCode == 0, qPrintable(brave.err));
        QVERIFY(brave.out.contains(u"\n    "_s)); // pretty-printed, as sent
        const QJsonObject document = QJsonDocument::fromJson(brave.out.toUtf8()).object();
        QCOMPARE(document.value(u"enabledTools"_s),
                 QJsonValue(QJsonArray{u"brave_web_search"_s, u"brave_local_search"_s}));
        const QJsonArray definitions = document.value(u"localTools"_s).toArray();
        QCOMPARE(definitions.size(), 2);
        QCOMPARE(definitions[0][u"parameters"_s][u"additionalProperties"_s], QJsonValue(false));
        QVERIFY(definitions[1][u"parameters"_s][u"additionalProperties"_s].isUndefined());
        QCOMPARE(run({u"integrations"_s, u"disable"_s, u"Brave Search"_s}).exitCode, 0);
    }

    void corruptEnabledList_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::newRow("a string") << QByteArray("\"Brave Search\"");
        QTest::newRow("a number in the list") << QByteArray("[42, \"Brave Search\"]");
        QTest::newRow("an object") << QByteArray("{\"Brave Search\": true}");
    }

    // A damaged list reads as nothing enabled, apart from the names it holds.
    void corruptEnabledList()
    {
        QFETCH(QByteArray, stored);
        QFile file(settingsPath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("{\"enabledIntegrations\": " + stored + "}");
        file.close();
        const CliRunner::Result listed = run({u"integrations"_s, u"list"_s, u"--json"_s});
        QVERIFY2(listed.exitCode == 0, qPrintable(listed.err));
        const QJsonArray items = QJsonDocument::fromJson(listed.out.toUtf8()).array();
        QCOMPARE(items.size(), 8);
        for (const auto& item : items) {
            const bool namedInList = stored.startsWith('[') && item[u"name"_s] == u"Brave Search"_s;
            QCOMPARE(item[u"enabled"_s].toBool(), namedInList);
        }
    }

    // A built-in tool run from the command line against a stand-in for its
    // service: the formatted result on stdout, or the failure's text.
    void runAgainstTheService_data()
    {
        QTest::addColumn<ToolServiceFake::Answer>("answer");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("errHas");
        QTest::newRow("results") << ToolServiceFake::Answer::Success << 0
                                 << u"Title: Coffee - Wikipedia\nDescription: Coffee is a "
                                    u"beverage brewed from roasted <strong>coffee</strong> "
                                    u"beans.\nURL: https://en.wikipedia.org/wiki/Coffee\n\n"
                                    u"Title: Blue Bottle Coffee\nDescription: Roasters since "
                                    u"2002.\nURL: https://bluebottlecoffee.com/\n"_s
                                 << QString();
        QTest::newRow("rejected key") << ToolServiceFake::Answer::Unauthorized << 1 << QString()
                                      << u"quillmoss: Tool execution failed: Brave API error 401"_s;
    }

    void runAgainstTheService()
    {
        QFETCH(ToolServiceFake::Answer, answer);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errHas);
        QCOMPARE(run({u"integrations"_s, u"set-key"_s, u"Brave Search"_s}, "BSA-cli").exitCode, 0);
        ToolServiceFake brave(ToolServiceFake::Service::BraveSearch);
        brave.answerWith(answer);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QUILLMOSS_BRAVE_BASE_URL"_s, brave.url().toString());
        const CliRunner::Result result = whileServing([&environment] {
            return CliRunner::run(
                {u"tools"_s, u"run"_s, u"brave_web_search"_s, uR"({"query": "coffee"})"_s}, {},
                environment);
        });
        QVERIFY2(result.exitCode == exitCode, qPrintable(result.err));
        QCOMPARE(result.out, out);
        if (!errHas.isEmpty())
            QVERIFY2(result.err.contains(errHas), qPrintable(result.err));
        QCOMPARE(brave.requests().size(), 1);
        QCOMPARE(brave.requests().first().headers.value("x-subscription-token"),
                 QByteArray("BSA-cli"));
        QVERIFY(!result.err.contains(u"BSA-cli"_s));
    }

    // The Notion tools from the command line against a stand-in workspace:
    // the found page on stdout, or Notion's own error text.
    // Each Notion tool from the command line against the stand-in workspace:
    // the request it makes and what it prints.
    void runNotionAgainstTheService_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("outHas");
        const QString acme = QString::fromLatin1(NotionFake::acmePageId);
        const QString database = QString::fromLatin1(NotionFake::databaseId);
        const QString person = QString::fromLatin1(NotionFake::personId);
        QTest::newRow("search") << u"notion_search"_s << uR"({"query": "Acme"})"_s
                                << QByteArray("POST") << u"/v1/search"_s << u"Acme"_s;
        QTest::newRow("get page") << u"notion_get_page"_s << u"{\"page_id\": \"%1\"}"_s.arg(acme)
                                  << QByteArray("GET") << u"/v1/pages/"_s + acme << u"Acme"_s;
        QTest::newRow("create page in the default database")
            << u"notion_create_page"_s << uR"({"title": "Follow-up with Initech"})"_s
            << QByteArray("POST") << u"/v1/pages"_s << u"Follow-up with Initech"_s;
        QTest::newRow("update page")
            << u"notion_update_page"_s
            << u"{\"page_id\": \"%1\", \"title\": \"Acme renewal\"}"_s.arg(acme)
            << QByteArray("PATCH") << u"/v1/pages/"_s + acme << acme;
        QTest::newRow("get database")
            << u"notion_get_database"_s << u"{\"database_id\": \"%1\"}"_s.arg(database)
            << QByteArray("GET") << u"/v1/databases/"_s + database << database;
        QTest::newRow("query database")
            << u"notion_query_database"_s << u"{\"database_id\": \"%1\"}"_s.arg(database)
            << QByteArray("POST") << u"/v1/databases/%1/query"_s.arg(database) << u"Acme"_s;
        QTest::newRow("add block")
            << u"notion_add_block"_s
            << u"{\"page_id\": \"%1\", \"blocks\": [{\"type\": \"to_do\", \"text\": \"Send the revised quote\"}]}"_s
                   .arg(acme)
            << QByteArray("PATCH") << u"/v1/blocks/%1/children"_s.arg(acme)
            << u"Successfully Added 1 Blocks"_s;
        QTest::newRow("get comments")
            << u"notion_get_comments"_s << u"{\"block_id\": \"%1\"}"_s.arg(acme)
            << QByteArray("GET") << u"/v1/comments"_s << QString();
        QTest::newRow("create comment")
            << u"notion_create_comment"_s
            << u"{\"page_id\": \"%1\", \"comment_text\": \"Quote sent\"}"_s.arg(acme)
            << QByteArray("POST") << u"/v1/comments"_s << QString();
        QTest::newRow("get user") << u"notion_get_user"_s << u"{\"user_id\": \"%1\"}"_s.arg(person)
                                  << QByteArray("GET") << u"/v1/users/"_s + person << person;
        QTest::newRow("list users")
            << u"notion_list_users"_s << u"{}"_s << QByteArray("GET") << u"/v1/users"_s << person;
    }

    void runNotionAgainstTheService()
    {
        QFETCH(QString, tool);
        QFETCH(QString, arguments);
        QFETCH(QByteArray, method);
        QFETCH(QString, path);
        QFETCH(QString, outHas);
        const QByteArray token(NotionFake::token);
        QCOMPARE(run({u"integrations"_s, u"set-key"_s, u"Notion"_s}, token).exitCode, 0);
        QCOMPARE(run({u"integrations"_s, u"set-field"_s, u"Notion"_s, u"database_id"_s,
                      QString::fromLatin1(NotionFake::databaseId)})
                     .exitCode,
                 0);
        NotionFake notion;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QUILLMOSS_NOTION_BASE_URL"_s, notion.url().toString());
        const auto runTool = [&] {
            return whileServing([&] {
                return CliRunner::run({u"tools"_s, u"run"_s, tool, arguments}, {}, environment);
            });
        };

        const CliRunner::Result result = runTool();
        QVERIFY2(result.exitCode == 0, qPrintable(result.err));
        if (!outHas.isEmpty())
            QVERIFY2(result.out.contains(outHas), qPrintable(result.out));
        QVERIFY(!notion.requests().isEmpty());
        const HttpStub::Request request = notion.requests().last();
        QCOMPARE(request.method, method);
        QVERIFY2(request.path.startsWith(path.toUtf8()), request.path.constData());
        QCOMPARE(request.headers.value("authorization"), "Bearer " + token);
        QCOMPARE(request.headers.value("notion-version"), QByteArray("2022-06-28"));

        // The same call refused by Notion prints Notion's own error text.
        for (const int status : {401, 429}) {
            notion.failWith(status);
            const CliRunner::Result refused = runTool();
            QCOMPARE(refused.exitCode, 1);
            QVERIFY2(
                refused.err.contains(u"quillmoss: Tool execution failed: Notion API error: "_s),
                qPrintable(refused.err));
            QVERIFY(!refused.err.contains(QString::fromLatin1(token)));
        }
    }
};

QTEST_GUILESS_MAIN(IntegrationsCommandTest)
#include "IntegrationsCommandTest.moc"

// Which tools the backend is told of, and the integration settings behind it:
// the document for each state that matters, the stored configuration across a
// restart against the real keyring and settings file, and the sheet's saving.
#include "KeyringSession.h"
#include "LogCapture.h"
#include "TestPaths.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "tools/APIKeyConfigurationForm.h"
#include "tools/ConfigurationManager.h"
#include "tools/LocalToolManager.h"
#include "tools/ToolConfigurationDocument.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

// A remote tool as a server could declare it.
class RemoteTool : public LocalTool
{
public:
    RemoteTool(QString identifier, std::optional<QJsonValue> schema)
        : m_identifier(std::move(identifier)), m_schema(std::move(schema))
    {}
    QString identifier() const override { return m_identifier; }
    QString name() const override { return u"Remote "_s + m_identifier; }
    QString description() const override { return u"A remote tool"_s; }
    QJsonObject parameterSchema() const override
    {
        return m_schema && m_schema->isObject() ? m_schema->toObject()
                                                : ToolConfigurationDocument::fallbackSchema();
    }
    std::optional<QJsonValue> declaredInputSchema() const override { return m_schema; }
    void execute(const ToolInvocation&, Done done) override
    {
        done(ToolOutcome::success(QString()));
    }

private:
    QString m_identifier;
    std::optional<QJsonValue> m_schema;
};

QStringList namesOf(const QJsonObject& document)
{
    QStringList names;
    for (const QJsonValue name : document.value(u"enabledTools"_s).toArray())
        names.append(name.toString());
    return names;
}

} // namespace

class ToolConfigurationTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<TemporaryHome> m_home;
    KeychainManager m_keychain;

    QString settingsPath() const { return m_home->path() + u"/tools-settings.json"_s; }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_home = std::make_unique<TemporaryHome>();
    }

    void init()
    {
        QVERIFY(m_keychain.deleteAllKeys());
        QFile::remove(settingsPath());
    }

    void document_data()
    {
        QTest::addColumn<QStringList>("enabled");
        QTest::addColumn<QStringList>("keys");
        QTest::addColumn<QStringList>("tools");
        const QStringList brave{u"brave_web_search"_s, u"brave_local_search"_s};
        QTest::newRow("nothing enabled") << QStringList() << QStringList() << QStringList();
        QTest::newRow("key without enabling")
            << QStringList() << QStringList{u"brave-search"_s} << QStringList();
        // The assistant may ask; the call then fails for want of a key.
        QTest::newRow("enabled without key")
            << QStringList{u"Brave Search"_s} << QStringList() << brave;
        QTest::newRow("enabled with key")
            << QStringList{u"Brave Search"_s} << QStringList{u"brave-search"_s} << brave;
        QTest::newRow("coming soon, even enabled")
            << QStringList{u"HubSpot"_s, u"Slack"_s} << QStringList{u"hubspot"_s} << QStringList();
        QTest::newRow("catalogue order, not the stored order")
            << QStringList{u"Resend"_s, u"Firecrawl"_s} << QStringList()
            << QStringList{u"firecrawl_scrape"_s, u"firecrawl_map"_s, u"firecrawl_search"_s,
                           u"resend_send_email"_s, u"resend_email_templates"_s};
        QTest::newRow("Notion") << QStringList{u"Notion"_s} << QStringList{u"notion"_s}
                                << QStringList{u"notion_search"_s,       u"notion_get_page"_s,
                                               u"notion_get_database"_s, u"notion_query_database"_s,
                                               u"notion_get_user"_s,     u"notion_create_page"_s,
                                               u"notion_update_page"_s,  u"notion_create_comment"_s,
                                               u"notion_get_comments"_s, u"notion_add_block"_s,
                                               u"notion_list_users"_s};
    }

    void document()
    {
        QFETCH(QStringList, enabled);
        QFETCH(QStringList, keys);
        QFETCH(QStringList, tools);
        {
            SettingsStore settings(settingsPath());
            QVERIFY(settings.setStringList(u"enabledIntegrations"_s, enabled));
        }
        for (const QString& key : keys)
            QVERIFY(m_keychain.storeKey(u"secret-"_s + key, key));
        SettingsStore settings(settingsPath());
        LocalToolManager manager(m_keychain);
        ConfigurationManager configuration(settings, m_keychain, manager);
        const std::optional<QString> text = configuration.toolConfiguration();
        QVERIFY(text);
        QVERIFY2(!text->contains(u"secret-"_s), "a credential in the document");
        const QJsonObject document = QJsonDocument::fromJson(text->toUtf8()).object();
        QCOMPARE(document.keys(),
                 (QStringList{u"enabledTools"_s, u"executionMode"_s, u"localTools"_s}));
        QCOMPARE(document[u"executionMode"_s].toString(), u"local"_s);
        QCOMPARE(namesOf(document), tools);
        const QJsonArray definitions = document[u"localTools"_s].toArray();
        QCOMPARE(definitions.size(), tools.size());
        for (qsizetype i = 0; i < definitions.size(); ++i) {
            const QJsonObject definition = definitions.at(i).toObject();
            QCOMPARE(definition[u"name"_s].toString(), tools.at(i));
            const QJsonObject parameters = definition[u"parameters"_s].toObject();
            QCOMPARE(parameters[u"type"_s].toString(), u"object"_s);
            QVERIFY(parameters[u"required"_s].isArray());
            // Only these three refuse keys they do not declare.
            const bool closed = tools.at(i) == u"brave_web_search"_s ||
                                tools.at(i) == u"firecrawl_scrape"_s ||
                                tools.at(i) == u"firecrawl_map"_s;
            QCOMPARE(parameters.contains(u"additionalProperties"_s), closed);
        }
    }

    void remoteDefinitions_data()
    {
        QTest::addColumn<std::optional<QJsonValue>>("schema");
        QTest::addColumn<QJsonObject>("parameters");
        QTest::addColumn<QString>("logged");
        const QJsonObject declared{{u"type"_s, u"object"_s},
                                   {u"properties"_s, QJsonObject{{u"city"_s, QJsonObject()}}}};
        QTest::newRow("object schema") << std::optional<QJsonValue>(declared) << declared
                                       << u"🔍   ✅ Successfully converted MCP.Value to dictionary"_s;
        QTest::newRow("no schema")
            << std::optional<QJsonValue>() << ToolConfigurationDocument::fallbackSchema()
            << u"🔍 [MCP Schema Debug] No inputSchema found for "
               u"'mcp_weather', using fallback"_s;
        QTest::newRow("not an object")
            << std::optional<QJsonValue>(QJsonValue(u"object"_s))
            << ToolConfigurationDocument::fallbackSchema()
            << u"🔍   ❌ Failed to convert MCP.Value to dictionary - using fallback"_s;
    }

    void remoteDefinitions()
    {
        QFETCH(std::optional<QJsonValue>, schema);
        QFETCH(QJsonObject, parameters);
        QFETCH(QString, logged);
        LogCapture log;
        const RemoteTool tool(u"mcp_weather"_s, schema);
        const QJsonObject document = ToolConfigurationDocument::build(
            IntegrationCatalogue::build(),
            {std::make_shared<const RemoteTool>(u"mcp_weather"_s, schema)});
        // Brave Search is on in the catalogue as built, before anything is loaded.
        QCOMPARE(namesOf(document),
                 (QStringList{u"brave_web_search"_s, u"brave_local_search"_s, u"mcp_weather"_s}));
        const QJsonObject definition = document[u"localTools"_s].toArray().last().toObject();
        QCOMPARE(definition[u"displayName"_s].toString(), tool.name());
        QCOMPARE(definition[u"parameters"_s].toObject(), parameters);
        QVERIFY2(log.lines().contains(logged), qPrintable(log.lines().join(u'\n')));
        QVERIFY(log.lines().contains(u"🔍     📋 MCP Tool Details:"_s));
        QCOMPARE(ToolConfigurationDocument::fallbackSchema()[u"additionalProperties"_s].toBool(),
                 true);

        QVERIFY(ToolConfigurationDocument::encode(document));
        QVERIFY(log.lines().contains(u"📡 Generated WebSocket config with 3 tools (1 MCP tools)"_s));
    }

    // A document that cannot be encoded is no document, never an empty one.
    void unencodable()
    {
        LogCapture log;
        QJsonObject schema = ToolConfigurationDocument::fallbackSchema();
        schema.insert(u"maximum"_s, std::numeric_limits<double>::infinity());
        const QJsonObject document = ToolConfigurationDocument::build(
            {}, {std::make_shared<const RemoteTool>(u"mcp_odd"_s, QJsonValue(schema))});
        QVERIFY(!ToolConfigurationDocument::encode(document));
        QVERIFY(log.lines({u"Error encoding AI SDK tool config to JSON: "_s}).size() == 1);
    }

    // What the user set survives a restart: enabled integrations in the
    // settings file, keys in the keyring, nothing secret in the file.
    void persistsAcrossRestart()
    {
        {
            SettingsStore settings(settingsPath());
            LocalToolManager manager(m_keychain);
            ConfigurationManager configuration(settings, m_keychain, manager);
            QStringList announced;
            int documents = 0;
            configuration.onIntegrationsChange = [&](const QStringList& names) {
                announced = names;
            };
            configuration.onToolConfigChange = [&](const QString&) { ++documents; };
            QVERIFY(!configuration.integration(u"Brave Search"_s)->isEnabled);
            QVERIFY(configuration.toggleIntegration(u"notion"_s, true));
            QCOMPARE(announced, QStringList{u"Notion"_s});
            QVERIFY(configuration.setAPIKey(u"Notion"_s, u"secret_notion"_s));
            QVERIFY(configuration.setFieldValue(u"Notion"_s, u"database_id"_s, u"db-42"_s));
            QVERIFY(!configuration.toggleIntegration(u"HubSpot"_s, true));
            QVERIFY(!configuration.toggleIntegration(u"Nonesuch"_s, true));
            QCOMPARE(documents, 2);
            // Switching off keeps the key.
            QVERIFY(configuration.toggleIntegration(u"Notion"_s, false));
            QVERIFY(configuration.hasAPIKey(u"Notion"_s));
            QVERIFY(configuration.toggleIntegration(u"Notion"_s, true));
        }
        const QByteArray file = TestPaths::readFile(settingsPath());
        QVERIFY(!file.contains("secret_notion"));
        QVERIFY(m_keychain.readKey(u"notion"_s) == u"secret_notion"_s);
        QVERIFY(m_keychain.readKey(u"notion-database-id"_s) == u"db-42"_s);

        SettingsStore settings(settingsPath());
        QVERIFY(settings.dateValue(u"lastSyncDate"_s).has_value());
        LocalToolManager manager(m_keychain);
        ConfigurationManager configuration(settings, m_keychain, manager);
        const IntegrationItem notion = *configuration.integration(u"Notion"_s);
        QVERIFY(notion.isEnabled);
        QCOMPARE(notion.apiKey.value_or(QString()), u"secret_notion"_s);
        QCOMPARE(configuration.fieldValue(u"Notion"_s, u"database_id"_s).value_or(QString()),
                 u"db-42"_s);
        QVERIFY(configuration.removeAPIKey(u"Notion"_s));
        QVERIFY(!configuration.hasAPIKey(u"Notion"_s));
        QVERIFY(!m_keychain.readKey(u"notion"_s));
    }

    void storedList_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QStringList>("enabled");
        QTest::newRow("missing") << QByteArray("{}") << QStringList();
        QTest::newRow("a string") << QByteArray(R"({"enabledIntegrations": "Brave Search"})")
                                  << QStringList();
        QTest::newRow("an object")
            << QByteArray(R"({"enabledIntegrations": {"Brave Search": true}})") << QStringList();
        QTest::newRow("names among other things")
            << QByteArray(R"({"enabledIntegrations": [1, "Resend", null, "Unknown", "notion"]})")
            << QStringList{u"Resend"_s};
    }

    void storedList()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QStringList, enabled);
        QFile file(settingsPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(stored);
        file.close();
        // A blank stored key counts as none.
        QVERIFY(m_keychain.storeKey(u" "_s, u"resend"_s));
        SettingsStore settings(settingsPath());
        LocalToolManager manager(m_keychain);
        ConfigurationManager configuration(settings, m_keychain, manager);
        QStringList names;
        for (const IntegrationItem& item : configuration.integrationsConfig().integrations) {
            if (item.isEnabled)
                names.append(item.name);
        }
        QCOMPARE(names, enabled);
        QVERIFY(!configuration.hasAPIKey(u"Resend"_s));
    }

    void sheet_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariantMap>("fields");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("item");
        QTest::addColumn<QString>("field");
        QTest::newRow("blank key") << u"Brave Search"_s << u" \n\t "_s << QVariantMap()
                                   << u"Please enter a valid API key"_s << QString() << QString();
        QTest::newRow("key trimmed") << u"Brave Search"_s << u"  BSA-1\n"_s << QVariantMap()
                                     << QString() << u"brave-search"_s << QString();
        QTest::newRow("Notion with its database")
            << u"Notion"_s << u"ntn_2"_s << QVariantMap{{u"database_id"_s, u" db-7 "_s}}
            << QString() << u"notion"_s << u"notion-database-id=db-7"_s;
        QTest::newRow("Resend with its sender")
            << u"Resend"_s << u"re_3"_s << QVariantMap{{u"sender_email"_s, u"sales@example.com"_s}}
            << QString() << u"resend"_s << u"resend-sender-email=sales@example.com"_s;
        QTest::newRow("a key the store refuses")
            << u"Firecrawl"_s << QString(KeychainManager::maxValueLength + 1, u'k') << QVariantMap()
            << u"Failed to store API key securely"_s << QString() << QString();
        // The integration outside the fixed table keeps its lower-cased name.
        QTest::newRow("coming soon")
            << u"HubSpot"_s << u"hs-4"_s << QVariantMap() << QString() << u"hubspot"_s << QString();
    }

    void sheet()
    {
        QFETCH(QString, name);
        QFETCH(QString, key);
        QFETCH(QVariantMap, fields);
        QFETCH(QString, error);
        QFETCH(QString, item);
        QFETCH(QString, field);
        SettingsStore settings(settingsPath());
        LocalToolManager manager(m_keychain);
        ConfigurationManager configuration(settings, m_keychain, manager);
        APIKeyConfigurationForm form(m_keychain, configuration);
        QCOMPARE(form.save(name, key, fields), error.isEmpty());
        QCOMPARE(form.errorMessage(), error);
        QCOMPARE(configuration.hasAPIKey(name), error.isEmpty());
        if (!item.isEmpty())
            QCOMPARE(m_keychain.readKey(item).value_or(QString()), key.trimmed());
        if (!field.isEmpty()) {
            const QStringList parts = field.split(u'=');
            QCOMPARE(m_keychain.readKey(parts.at(0)).value_or(QString()), parts.at(1));
            QCOMPARE(form.storedFields(name).size(), 1);
        }
        if (error.isEmpty())
            QCOMPARE(m_keychain.allKeys().size(), field.isEmpty() ? 1 : 2);
    }
};

QTEST_GUILESS_MAIN(ToolConfigurationTest)
#include "ToolConfigurationTest.moc"

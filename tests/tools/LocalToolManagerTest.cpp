// The tool registry and runner: parameters checked against each tool's schema,
// every failure turned into its result text, calls run off the GUI thread and
// reported back on it, credentials read from the real keyring for the call only.
#include "tools/LocalToolManager.h"

#include "KeyringSession.h"
#include "core/HttpClient.h"
#include "store/KeychainManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

QJsonObject parse(const char* json)
{
    return QJsonDocument::fromJson(json).object();
}

// A tool of the tests' own: it answers with what it was given, fails, throws or
// never answers, as its identifier says.
class ScriptedTool : public LocalTool
{
public:
    ScriptedTool(QString identifier, QJsonObject schema, bool needsKey = false)
        : m_identifier(std::move(identifier)), m_schema(std::move(schema)), m_needsKey(needsKey)
    {}

    QString identifier() const override { return m_identifier; }
    QString name() const override { return u"Scripted "_s + m_identifier; }
    QString description() const override { return u"**Best for:** tests"_s; }
    QJsonObject parameterSchema() const override { return m_schema; }
    bool requiresAPIKey() const override { return m_needsKey; }

    void execute(const ToolInvocation& call, Done done) override
    {
        threadOfLastCall = QThread::currentThread();
        ++calls;
        if (m_identifier.endsWith(u"throws"_s))
            throw std::runtime_error("the service fell over");
        if (m_identifier.endsWith(u"fails"_s)) {
            done(ToolOutcome::failure(LocalToolError::executionFailed(u"Demo API error: 500"_s)));
            return;
        }
        if (m_identifier.endsWith(u"silent"_s))
            return;
        const QString text =
            QString::fromUtf8(QJsonDocument(call.parameters).toJson(QJsonDocument::Compact)) +
            u" key="_s + call.apiKey.value_or(u"none"_s);
        // Answers later, from the worker's event loop, as a network tool would.
        QTimer::singleShot(10ms, &call.http, [done, text] { done(ToolOutcome::success(text)); });
    }

    std::atomic<QThread*> threadOfLastCall = nullptr;
    std::atomic<int> calls = 0;

private:
    QString m_identifier;
    QJsonObject m_schema;
    bool m_needsKey;
};

const QJsonObject searchSchema = parse(R"({
    "type": "object",
    "properties": {
        "query": {"type": "string"},
        "count": {"type": "integer", "minimum": 1, "maximum": 20},
        "ratio": {"type": "number"},
        "exact": {"type": "boolean"},
        "kind": {"type": "string", "enum": ["news", "web"]},
        "tags": {"type": "array", "items": {"type": "string"}},
        "filter": {"type": "object"},
        "either": {"type": ["string", "integer"]}
    },
    "required": ["query"],
    "additionalProperties": false
})");

} // namespace

class LocalToolManagerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    KeychainManager m_keychain;

    ToolExecution run(LocalToolManager& manager, const QString& identifier,
                      const QJsonObject& parameters)
    {
        std::optional<ToolExecution> result;
        QThread* reportedOn = nullptr;
        manager.executeTool(identifier, parameters, [&](const ToolExecution& execution) {
            reportedOn = QThread::currentThread();
            result = execution;
        });
        [&] { QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 10'000); }();
        if (!result)
            return {};
        [&] { QCOMPARE(reportedOn, QThread::currentThread()); }();
        return *result;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
    }

    void init() { QVERIFY(m_keychain.deleteAllKeys()); }

    void parameters_data()
    {
        QTest::addColumn<QByteArray>("parameters");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const char* json, bool success, const QString& text) {
            QTest::newRow(name) << QByteArray(json) << success << text;
        };
        row("required only", R"({"query": "pricing"})", true, uR"({"query":"pricing"} key=none)"_s);
        row("every kind", R"({"query": "q", "count": 20, "ratio": 0.5, "exact": true,
             "kind": "news", "tags": ["a"], "filter": {}, "either": 3})",
            true,
            uR"({"count":20,"either":3,"exact":true,"filter":{},"kind":"news","query":"q","ratio":0.5,"tags":["a"]} key=none)"_s);
        row("null optional left out", R"({"query": "q", "count": null})", true,
            uR"({"query":"q"} key=none)"_s);
        row("integral number as integer", R"({"query": "q", "count": 5.0})", true,
            uR"({"count":5,"query":"q"} key=none)"_s);
        row("missing required", R"({"count": 3})", false, u"Missing required parameter: 'query'"_s);
        row("null required", R"({"query": null})", false, u"Missing required parameter: 'query'"_s);
        row("number for string", R"({"query": 42})", false,
            u"Invalid parameter 'query': expected a string"_s);
        row("fraction for integer", R"({"query": "q", "count": 2.5})", false,
            u"Invalid parameter 'count': expected an integer"_s);
        row("string for integer", R"({"query": "q", "count": "5"})", false,
            u"Invalid parameter 'count': expected an integer"_s);
        row("below minimum", R"({"query": "q", "count": 0})", false,
            u"Invalid parameter 'count': must be at least 1"_s);
        row("above maximum", R"({"query": "q", "count": 21})", false,
            u"Invalid parameter 'count': must be at most 20"_s);
        row("not a choice", R"({"query": "q", "kind": "images"})", false,
            u"Invalid parameter 'kind': must be one of: news, web"_s);
        row("wrong item", R"({"query": "q", "tags": ["a", 1]})", false,
            u"Invalid parameter 'tags': item 2: expected a string"_s);
        row("string for boolean", R"({"query": "q", "exact": "yes"})", false,
            u"Invalid parameter 'exact': expected true or false"_s);
        row("array for object", R"({"query": "q", "filter": []})", false,
            u"Invalid parameter 'filter': expected an object"_s);
        row("neither of two types", R"({"query": "q", "either": false})", false,
            u"Invalid parameter 'either': expected a string or an integer"_s);
        row("extra key refused", R"({"query": "q", "page": 2})", false,
            u"Invalid parameter 'page': not a parameter of this tool"_s);
    }

    void parameters()
    {
        QFETCH(QByteArray, parameters);
        QFETCH(bool, success);
        QFETCH(QString, text);
        LocalToolManager manager(m_keychain);
        auto tool = std::make_shared<ScriptedTool>(u"demo_search"_s, searchSchema);
        manager.registerTool(tool);
        const ToolExecution execution =
            run(manager, u"demo_search"_s, QJsonDocument::fromJson(parameters).object());
        QCOMPARE(execution.text, text);
        QCOMPARE(execution.success, success);
        // A refused call never reaches the tool.
        QCOMPARE(tool->calls.load(), success ? 1 : 0);
    }

    // Extra keys are the tool's business where its schema does not refuse them.
    void openSchemaPassesExtraKeys()
    {
        LocalToolManager manager(m_keychain);
        QJsonObject open = searchSchema;
        open.remove(u"additionalProperties"_s);
        manager.registerTool(std::make_shared<ScriptedTool>(u"demo_open"_s, open));
        QCOMPARE(run(manager, u"demo_open"_s, parse(R"({"query": "q", "page": 2})")).text,
                 uR"({"page":2,"query":"q"} key=none)"_s);
    }

    void failures_data()
    {
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("kind");
        QTest::newRow("unknown") << u"nope"_s << u"Tool 'nope' not found"_s
                                 << int(LocalToolError::Kind::toolNotFound);
        QTest::newRow("tool's own failure")
            << u"demo_fails"_s << u"Tool execution failed: Demo API error: 500"_s
            << int(LocalToolError::Kind::executionFailed);
        QTest::newRow("tool throws")
            << u"demo_throws"_s << u"Tool execution failed: the service fell over"_s
            << int(LocalToolError::Kind::executionFailed);
        QTest::newRow("never answers")
            << u"demo_silent"_s
            << u"Tool execution failed: Scripted demo_silent did not answer within 0.2 seconds"_s
            << int(LocalToolError::Kind::executionFailed);
    }

    void failures()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, text);
        QFETCH(int, kind);
        LocalToolManager manager(m_keychain);
        manager.setExecutionTimeLimit(200ms);
        for (const QString& name : {u"demo_fails"_s, u"demo_throws"_s, u"demo_silent"_s})
            manager.registerTool(std::make_shared<ScriptedTool>(name, searchSchema));
        const ToolExecution execution = run(manager, identifier, parse(R"({"query": "q"})"));
        QCOMPARE(execution.identifier, identifier);
        QVERIFY(!execution.success);
        QCOMPARE(execution.text, text);
        QCOMPARE(int(execution.errorKind.value_or(LocalToolError::Kind::networkError)), kind);
        QVERIFY(execution.elapsedSeconds > 0.0);
    }

    // The credential comes from the integration's item for each call; a call
    // without it is refused before its parameters are even looked at.
    void credentials()
    {
        LocalToolManager manager(m_keychain);
        auto tool = std::make_shared<ScriptedTool>(u"brave_web_search"_s, searchSchema, true);
        manager.registerTool(tool);
        QCOMPARE(run(manager, u"brave_web_search"_s, {}).text,
                 u"API key required for 'Scripted brave_web_search'"_s);
        QVERIFY(m_keychain.storeKey(u"BSA-key-1"_s, u"brave-search"_s));
        const ToolExecution execution =
            run(manager, u"brave_web_search"_s, parse(R"({"query": "q"})"));
        QVERIFY(execution.success);
        QCOMPARE(execution.text, uR"({"query":"q"} key=BSA-key-1)"_s);
        QVERIFY(tool->threadOfLastCall.load() != QThread::currentThread());
    }

    void credentialItems_data()
    {
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("item");
        QTest::newRow("brave local") << u"brave_local_search"_s << u"brave-search"_s;
        QTest::newRow("firecrawl map") << u"firecrawl_map"_s << u"firecrawl"_s;
        QTest::newRow("notion users") << u"notion_list_users"_s << u"notion"_s;
        QTest::newRow("resend templates") << u"resend_email_templates"_s << u"resend"_s;
        QTest::newRow("remote, even with a known name") << u"mcp_brave_web_search"_s << QString();
        QTest::newRow("unknown") << u"weather_now"_s << QString();
    }

    void credentialItems()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, item);
        QCOMPARE(LocalToolManager::credentialItem(identifier).value_or(QString()), item);
    }

    // Remote tools come and go at run time; each change is announced once.
    void remoteTools()
    {
        LocalToolManager manager(m_keychain);
        QSignalSpy updates(&manager, &LocalToolManager::toolsUpdatedChanged);
        manager.registerTool(std::make_shared<ScriptedTool>(u"demo_search"_s, searchSchema));
        manager.replaceRemoteTools({std::make_shared<ScriptedTool>(u"mcp_a"_s, searchSchema),
                                    std::make_shared<ScriptedTool>(u"mcp_b"_s, searchSchema),
                                    std::make_shared<ScriptedTool>(u"not_remote"_s, searchSchema)});
        QCOMPARE(manager.toolIdentifiers(),
                 (QStringList{u"demo_search"_s, u"mcp_a"_s, u"mcp_b"_s}));
        manager.replaceRemoteTools({std::make_shared<ScriptedTool>(u"mcp_c"_s, searchSchema)});
        QCOMPARE(manager.toolIdentifiers(), (QStringList{u"demo_search"_s, u"mcp_c"_s}));
        QVERIFY(manager.removeTool(u"mcp_c"_s));
        QVERIFY(!manager.removeTool(u"mcp_c"_s));
        QCOMPARE(updates.size(), 4);
        QCOMPARE(manager.toolsUpdated(), 4);
        QCOMPARE(run(manager, u"mcp_c"_s, {}).text, u"Tool 'mcp_c' not found"_s);
    }

    // A tool removed while its call runs still finishes that call.
    void removedDuringCall()
    {
        LocalToolManager manager(m_keychain);
        manager.registerTool(std::make_shared<ScriptedTool>(u"mcp_slow"_s, searchSchema));
        std::optional<ToolExecution> result;
        manager.executeTool(u"mcp_slow"_s, parse(R"({"query": "q"})"),
                            [&](const ToolExecution& execution) { result = execution; });
        manager.replaceRemoteTools({});
        QTRY_VERIFY(result.has_value());
        QVERIFY(result->success);
    }

    // Going away with calls in flight: prompt, and no completion runs afterwards.
    void shutdownWithCallsInFlight()
    {
        bool called = false;
        {
            LocalToolManager manager(m_keychain);
            manager.registerTool(std::make_shared<ScriptedTool>(u"demo_silent"_s, searchSchema));
            manager.registerTool(std::make_shared<ScriptedTool>(u"demo_search"_s, searchSchema));
            manager.executeTool(u"demo_silent"_s, parse(R"({"query": "q"})"),
                                [&](const ToolExecution&) { called = true; });
            manager.executeTool(u"demo_search"_s, parse(R"({"query": "q"})"),
                                [&](const ToolExecution&) { called = true; });
        }
        QTest::qWait(100);
        QVERIFY(!called);
    }

    void futureForm()
    {
        LocalToolManager manager(m_keychain);
        QFuture<ToolExecution> future = manager.executeTool(u"nope"_s, {});
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.result().text, u"Tool 'nope' not found"_s);
    }
};

QTEST_GUILESS_MAIN(LocalToolManagerTest)
#include "LocalToolManagerTest.moc"

// The MCP client over a transport in memory: the handshake it sends, the tool
// list over pages, tool results read as text, error and time-out texts, the
// server's own requests answered, and notifications passed on.
#include "protocol/McpClient.h"

#include "MemoryMcpTransport.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QJsonObject initializeResult{
    {"protocolVersion"_L1, u"2024-11-05"_s},
    {"capabilities"_L1, QJsonObject{{"tools"_L1, QJsonObject{{"listChanged"_L1, true}}}}},
    {"serverInfo"_L1, QJsonObject{{"name"_L1, u"memory"_s}, {"version"_L1, u"1.0"_s}}},
};

// A client with a server in memory that answers initialize and hands every
// other request to `handler`.
struct Fixture
{
    MemoryMcpTransport* transport = nullptr;
    std::unique_ptr<McpClient> client;
    std::function<void(const QJsonObject&)> handler;

    Fixture()
    {
        auto owned = std::make_unique<MemoryMcpTransport>();
        transport = owned.get();
        transport->server = [this](const QJsonObject& message) {
            if (message.value("method"_L1) == "initialize"_L1)
                transport->answer(message, initializeResult);
            else if (handler && message.contains("id"_L1))
                handler(message);
        };
        client = std::make_unique<McpClient>(std::move(owned));
    }

    std::optional<QString> connect()
    {
        std::optional<std::optional<QString>> outcome;
        client->connectToServer([&](const std::optional<QString>& error) { outcome = error; });
        if (!QTest::qWaitFor([&] { return outcome.has_value(); }, 5000))
            return u"no answer"_s;
        return *outcome;
    }

    template <typename T, typename Call> McpResult<T> wait(Call call)
    {
        std::optional<McpResult<T>> outcome;
        call([&](const McpResult<T>& result) { outcome = result; });
        if (!QTest::qWaitFor([&] { return outcome.has_value(); }, 5000))
            return u"no answer"_s;
        return *outcome;
    }
};

QString errorOf(const auto& result)
{
    const auto* text = std::get_if<QString>(&result);
    return text != nullptr ? *text : QString();
}

} // namespace

class McpClientTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handshake()
    {
        Fixture fixture;
        QCOMPARE(fixture.connect(), std::nullopt);
        QVERIFY(fixture.client->isConnected());

        const auto sent = fixture.transport->sent();
        QCOMPARE(sent.size(), 2);
        const QJsonObject params = sent[0].value("params"_L1).toObject();
        QCOMPARE(sent[0].value("method"_L1).toString(), u"initialize"_s);
        QCOMPARE(sent[0].value("jsonrpc"_L1).toString(), u"2.0"_s);
        QCOMPARE(params.value("protocolVersion"_L1).toString(), u"2024-11-05"_s);
        QCOMPARE(params.value("capabilities"_L1), QJsonValue(QJsonObject()));
        QCOMPARE(params.value("clientInfo"_L1),
                 QJsonValue(QJsonObject{{"name"_L1, u"Quillmoss"_s}, {"version"_L1, u"1.0.22"_s}}));
        QCOMPARE(sent[1].value("method"_L1).toString(), u"notifications/initialized"_s);
        QVERIFY(!sent[1].contains("id"_L1));
        QCOMPARE(fixture.client->serverInfo().value("name"_L1).toString(), u"memory"_s);
    }

    void handshakeFailures_data()
    {
        QTest::addColumn<QString>("openError");
        QTest::addColumn<QJsonValue>("answer"); // undefined: an error response instead
        QTest::addColumn<QString>("error");

        QTest::newRow("transport fails") << u"HTTP 401"_s << QJsonValue() << u"HTTP 401"_s;
        QTest::newRow("other protocol version")
            << QString() << QJsonValue(QJsonObject{{"protocolVersion"_L1, u"1999-01-01"_s}})
            << u"\"1999-01-01\""_s;
        QTest::newRow("initialize refused")
            << QString() << QJsonValue(QJsonValue::Undefined) << u"MCP error -32600: No"_s;
    }

    void handshakeFailures()
    {
        QFETCH(QString, openError);
        QFETCH(QJsonValue, answer);
        QFETCH(QString, error);

        Fixture fixture;
        if (!openError.isEmpty())
            fixture.transport->openError = openError;
        fixture.transport->server = [&](const QJsonObject& message) {
            if (answer.isUndefined())
                fixture.transport->answerError(message, -32600, u"No"_s);
            else
                fixture.transport->answer(message, answer);
        };
        const auto outcome = fixture.connect();
        QVERIFY(outcome.has_value());
        QVERIFY2(outcome->contains(error), qPrintable(*outcome));
        QVERIFY(!fixture.client->isConnected());
        QVERIFY(fixture.transport->sent(u"notifications/initialized"_s).isEmpty());
    }

    void toolPages_data()
    {
        QTest::addColumn<QStringList>("cursors"); // the nextCursor of each page; "" ends
        QTest::addColumn<QStringList>("tools");
        QTest::addColumn<QString>("error");

        QTest::newRow("one page") << QStringList{u""_s} << QStringList{u"t0"_s} << QString();
        QTest::newRow("three pages") << QStringList{u"c1"_s, u"c2"_s, u""_s}
                                     << QStringList{u"t0"_s, u"t1"_s, u"t2"_s} << QString();
        QTest::newRow("cursor repeated") << QStringList{u"c1"_s, u"c2"_s, u"c1"_s, u"c2"_s}
                                         << QStringList() << u"cursor \"c1\" again"_s;
        QTest::newRow("same cursor at once")
            << QStringList{u"c1"_s, u"c1"_s} << QStringList() << u"cursor \"c1\" again"_s;
    }

    void toolPages()
    {
        QFETCH(QStringList, cursors);
        QFETCH(QStringList, tools);
        QFETCH(QString, error);

        Fixture fixture;
        QStringList cursorsAsked;
        int page = 0;
        fixture.handler = [&](const QJsonObject& request) {
            const QJsonObject params = request.value("params"_L1).toObject();
            cursorsAsked.append(params.value("cursor"_L1).toString());
            QJsonObject result{
                {"tools"_L1, QJsonArray{QJsonObject{{"name"_L1, u"t%1"_s.arg(page)},
                                                    {"inputSchema"_L1, QJsonObject{}}},
                                        QJsonObject{{"description"_L1, u"nameless"_s}}}}};
            const QString next = cursors.value(page++ % cursors.size());
            if (!next.isEmpty())
                result.insert("nextCursor"_L1, next);
            fixture.transport->answer(request, result);
        };
        QCOMPARE(fixture.connect(), std::nullopt);
        const auto listed = fixture.wait<QList<McpTool>>(
            [&](auto done) { fixture.client->listTools(std::move(done)); });
        if (!error.isEmpty()) {
            QVERIFY2(errorOf(listed).contains(error), qPrintable(errorOf(listed)));
            return;
        }
        QVERIFY2(std::holds_alternative<QList<McpTool>>(listed), qPrintable(errorOf(listed)));
        QStringList names;
        for (const McpTool& tool : std::get<QList<McpTool>>(listed))
            names.append(tool.name);
        QCOMPARE(names, tools);
        QStringList expectedCursors{QString()};
        for (qsizetype i = 0; i + 1 < cursors.size(); ++i)
            expectedCursors.append(cursors[i]);
        QCOMPARE(cursorsAsked, expectedCursors);
    }

    void callResults_data()
    {
        QTest::addColumn<QJsonValue>("result");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("isError");

        const auto item = [](const QString& type, QJsonObject fields) {
            fields.insert("type"_L1, type);
            return fields;
        };
        QTest::newRow("text") << QJsonValue(QJsonObject{
                                     {"content"_L1,
                                      QJsonArray{item(u"text"_s, {{"text"_L1, u"Echo: hi"_s}})}}})
                              << u"Echo: hi"_s << false;
        QTest::newRow("text, image, text joined by newlines")
            << QJsonValue(QJsonObject{
                   {"content"_L1, QJsonArray{item(u"text"_s, {{"text"_L1, u"a"_s}}),
                                             item(u"image"_s, {{"data"_L1, u"AAECAwQ="_s},
                                                               {"mimeType"_L1, u"image/png"_s}}),
                                             item(u"text"_s, {{"text"_L1, u"b"_s}})}}})
            << u"a\n[Image: image/png, 5 bytes]\nb"_s << false;
        QTest::newRow("resource with text")
            << QJsonValue(QJsonObject{
                   {"content"_L1,
                    QJsonArray{item(u"resource"_s,
                                    {{"resource"_L1, QJsonObject{{"uri"_L1, u"file:///a"_s},
                                                                 {"text"_L1, u"inside"_s}}}})}}})
            << u"inside"_s << false;
        QTest::newRow("resource without text")
            << QJsonValue(QJsonObject{
                   {"content"_L1,
                    QJsonArray{item(u"resource"_s,
                                    {{"resource"_L1, QJsonObject{{"uri"_L1, u"file:///b"_s},
                                                                 {"blob"_L1, u"AAA="_s}}}})}}})
            << u"[Resource: file:///b]"_s << false;
        QTest::newRow("tool error")
            << QJsonValue(QJsonObject{
                   {"content"_L1, QJsonArray{item(u"text"_s, {{"text"_L1, u"boom"_s}})}},
                   {"isError"_L1, true}})
            << u"boom"_s << true;
        QTest::newRow("structured content only")
            << QJsonValue(QJsonObject{{"content"_L1, QJsonArray{}},
                                      {"structuredContent"_L1, QJsonObject{{"sum"_L1, 5}}}})
            << u"{\"sum\":5}"_s << false;
        QTest::newRow("no content") << QJsonValue(QJsonObject{}) << QString() << false;
    }

    void callResults()
    {
        QFETCH(QJsonValue, result);
        QFETCH(QString, text);
        QFETCH(bool, isError);

        Fixture fixture;
        QJsonObject asked;
        fixture.handler = [&](const QJsonObject& request) {
            asked = request;
            fixture.transport->answer(request, result);
        };
        QCOMPARE(fixture.connect(), std::nullopt);
        const auto called = fixture.wait<McpCallResult>([&](auto done) {
            fixture.client->callTool(u"echo"_s, {{"message"_L1, u"hi"_s}}, std::move(done));
        });
        QVERIFY2(std::holds_alternative<McpCallResult>(called), qPrintable(errorOf(called)));
        QCOMPARE(std::get<McpCallResult>(called).text, text);
        QCOMPARE(std::get<McpCallResult>(called).isError, isError);
        QCOMPARE(asked.value("method"_L1).toString(), u"tools/call"_s);
        QCOMPARE(asked.value("params"_L1),
                 QJsonValue(QJsonObject{{"name"_L1, u"echo"_s},
                                        {"arguments"_L1, QJsonObject{{"message"_L1, u"hi"_s}}}}));
    }

    void failures_data()
    {
        QTest::addColumn<QString>("how"); // error, silence, drop, garbage
        QTest::addColumn<QStringList>("texts");

        QTest::newRow("JSON-RPC error")
            << u"error"_s << QStringList{u"MCP error -32602: Tool nope not found"_s};
        QTest::newRow("no answer in time")
            << u"silence"_s
            << QStringList{u"MCP error -32001: Request timed out"_s, u"tools/call"_s, u"200 ms"_s};
        QTest::newRow("connection lost")
            << u"drop"_s << QStringList{u"MCP connection closed: reset by peer"_s};
        QTest::newRow("answer not JSON, then time-out")
            << u"garbage"_s << QStringList{u"MCP error -32001: Request timed out"_s};
    }

    void failures()
    {
        QFETCH(QString, how);
        QFETCH(QStringList, texts);

        Fixture fixture;
        fixture.handler = [&](const QJsonObject& request) {
            if (how == "error"_L1)
                fixture.transport->answerError(request, -32602, u"Tool nope not found"_s);
            else if (how == "drop"_L1)
                fixture.transport->drop(u"reset by peer"_s);
            else if (how == "garbage"_L1)
                fixture.transport->deliverRaw("{\"id\": 2, \"result\":");
        };
        QCOMPARE(fixture.connect(), std::nullopt);
        QSignalSpy disconnected(fixture.client.get(), &McpClient::disconnected);
        fixture.client->setRequestTimeout(200ms);
        const auto called = fixture.wait<McpCallResult>(
            [&](auto done) { fixture.client->callTool(u"nope"_s, {}, std::move(done)); });
        for (const QString& text : texts)
            QVERIFY2(errorOf(called).contains(text), qPrintable(errorOf(called)));
        QCOMPARE(disconnected.size(), how == "drop"_L1 ? 1 : 0);
        QCOMPARE(fixture.client->isConnected(), how != "drop"_L1);
    }

    void serverRequestsAnswered_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<QJsonValue>("id");
        QTest::addColumn<QString>("answer"); // compact JSON of the answer without "jsonrpc"

        QTest::newRow("ping") << u"ping"_s << QJsonValue(u"srv-1"_s) << u"{\"result\":{}}"_s;
        QTest::newRow("roots/list") << u"roots/list"_s << QJsonValue(9) << u"{\"error\":-32601}"_s;
        QTest::newRow("sampling") << u"sampling/createMessage"_s << QJsonValue(10)
                                  << u"{\"error\":-32601}"_s;
    }

    void serverRequestsAnswered()
    {
        QFETCH(QString, method);
        QFETCH(QJsonValue, id);
        QFETCH(QString, answer);

        Fixture fixture;
        QCOMPARE(fixture.connect(), std::nullopt);
        const qsizetype before = fixture.transport->sent().size();
        fixture.transport->deliver(
            {{"jsonrpc"_L1, u"2.0"_s}, {"id"_L1, id}, {"method"_L1, method}});
        QTRY_COMPARE(fixture.transport->sent().size(), before + 1);
        const QJsonObject reply = fixture.transport->sent().last();
        QCOMPARE(reply.value("id"_L1), id);
        QCOMPARE(reply.value("jsonrpc"_L1).toString(), u"2.0"_s);
        if (answer.contains("result"_L1)) {
            QCOMPARE(reply.value("result"_L1), QJsonValue(QJsonObject()));
        } else {
            QCOMPARE(reply.value("error"_L1).toObject().value("code"_L1).toInt(), -32601);
            QVERIFY(!reply.contains("result"_L1));
        }
    }

    void notifications()
    {
        Fixture fixture;
        QCOMPARE(fixture.connect(), std::nullopt);
        QSignalSpy changed(fixture.client.get(), &McpClient::toolListChanged);
        QSignalSpy any(fixture.client.get(), &McpClient::notificationReceived);
        fixture.transport->deliver(
            {{"jsonrpc"_L1, u"2.0"_s},
             {"method"_L1, u"notifications/message"_s},
             {"params"_L1, QJsonObject{{"level"_L1, u"info"_s}, {"data"_L1, u"x"_s}}}});
        fixture.transport->deliver(
            {{"jsonrpc"_L1, u"2.0"_s}, {"method"_L1, u"notifications/tools/list_changed"_s}});
        QTRY_COMPARE(any.size(), 2);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(any[0][0].toString(), u"notifications/message"_s);
        QCOMPARE(any[0][1].toJsonObject().value("level"_L1).toString(), u"info"_s);
        QCOMPARE(any[1][0].toString(), u"notifications/tools/list_changed"_s);
    }

    void pingAndDisconnect()
    {
        Fixture fixture;
        fixture.handler = [&](const QJsonObject& request) {
            if (request.value("method"_L1) == "ping"_L1)
                fixture.transport->answer(request, QJsonObject());
        };
        QCOMPARE(fixture.connect(), std::nullopt);
        std::optional<std::optional<QString>> pinged;
        fixture.client->ping([&](const std::optional<QString>& error) { pinged = error; });
        QTRY_VERIFY(pinged.has_value());
        QCOMPARE(*pinged, std::nullopt);
        QVERIFY(!fixture.transport->sent(u"ping"_s).first().contains("params"_L1));

        // A request still waiting fails when the client disconnects; later ones at once.
        fixture.handler = nullptr;
        std::optional<QString> waiting;
        fixture.client->ping([&](const std::optional<QString>& error) { waiting = error; });
        fixture.client->disconnectFromServer();
        QVERIFY(waiting.has_value());
        QVERIFY(!fixture.client->isConnected());
        const auto after = fixture.wait<QList<McpTool>>(
            [&](auto done) { fixture.client->listTools(std::move(done)); });
        QVERIFY(errorOf(after).contains(u"not connected"_s));
    }
};

QTEST_GUILESS_MAIN(McpClientTest)
#include "McpClientTest.moc"

// The event-stream transport under the MCP client: against the official
// reference server as the app talks to it, and against a server of our own
// for refusals, odd answers, stalls, pushed tool lists and dropped streams.
#include "LogCapture.h"
#include "McpReferenceServer.h"
#include "SseTestServer.h"
#include "mcp/AuthenticatedMCPTransport.h"
#include "protocol/McpClient.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString token = u"secret-token-123"_s;

struct Outcome
{
    bool done = false;
    std::optional<QString> error;
};

Outcome openAndWait(AuthenticatedMCPTransport& transport, int waitMs = 5000)
{
    auto outcome = std::make_shared<Outcome>();
    transport.open([outcome](const std::optional<QString>& error) {
        outcome->done = true;
        outcome->error = error;
    });
    (void)QTest::qWaitFor([&] { return outcome->done; }, waitMs);
    return *outcome;
}

Outcome sendAndWait(AuthenticatedMCPTransport& transport, const QByteArray& message)
{
    auto outcome = std::make_shared<Outcome>();
    transport.send(message, [outcome](const std::optional<QString>& error) {
        outcome->done = true;
        outcome->error = error;
    });
    (void)QTest::qWaitFor([&] { return outcome->done; }, 5000);
    return *outcome;
}

template <typename T, typename Call> McpResult<T> wait(Call call)
{
    std::optional<McpResult<T>> outcome;
    call([&](const McpResult<T>& result) { outcome = result; });
    if (!QTest::qWaitFor([&] { return outcome.has_value(); }, 10000))
        return u"no answer"_s;
    return *outcome;
}

QString errorOf(const auto& result)
{
    const auto* text = std::get_if<QString>(&result);
    return text != nullptr ? *text : QString();
}

std::optional<QString> connectClient(McpClient& client)
{
    std::optional<std::optional<QString>> outcome;
    client.connectToServer([&](const std::optional<QString>& error) { outcome = error; });
    if (!QTest::qWaitFor([&] { return outcome.has_value(); }, 10000))
        return u"no answer"_s;
    return *outcome;
}

} // namespace

class McpTransportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // --- The official reference server.

    void referenceServer()
    {
        McpReferenceServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        auto owned = std::make_unique<AuthenticatedMCPTransport>(server.sseUrl());
        AuthenticatedMCPTransport* transport = owned.get();
        McpClient client(std::move(owned));
        QSignalSpy listChanged(&client, &McpClient::toolListChanged);

        QCOMPARE(connectClient(client), std::nullopt);
        QCOMPARE(client.serverInfo().value("name"_L1).toString(), u"mcp-servers/everything"_s);
        QCOMPARE(transport->messagePostUrl().path(), u"/message"_s);
        QVERIFY(transport->messagePostUrl().query().startsWith(u"sessionId="_s));
        QCOMPARE(transport->messagePostUrl().port(), server.sseUrl().port());
        // Tools registered once the client said it is initialized are announced.
        QTRY_VERIFY(!listChanged.isEmpty());

        const auto listed =
            wait<QList<McpTool>>([&](auto done) { client.listTools(std::move(done)); });
        QVERIFY2(std::holds_alternative<QList<McpTool>>(listed), qPrintable(errorOf(listed)));
        QStringList names;
        for (const McpTool& tool : std::get<QList<McpTool>>(listed))
            names.append(tool.name);
        QCOMPARE(names, McpReferenceServer::toolNames());
        QVERIFY(std::get<QList<McpTool>>(listed).first().inputSchema.has_value());

        struct Call
        {
            QString tool;
            QJsonObject arguments;
            QString text; // exact, or the start when it ends in "…"
            bool isError;
        };
        const QList<Call> calls = {
            {u"echo"_s, {{"message"_L1, u"hi ✓"_s}}, u"Echo: hi ✓"_s, false},
            {u"get-sum"_s, {{"a"_L1, 2}, {"b"_L1, 3}}, u"The sum of 2 and 3 is 5."_s, false},
            {u"get-tiny-image"_s,
             {},
             u"Here's the image you requested:\n[Image: image/png, 4033 bytes]\nThe image above "
             "is the MCP logo."_s,
             false},
            {u"get-sum"_s,
             {{"a"_L1, u"x"_s}},
             u"MCP error -32602: Input validation error…"_s,
             true},
            {u"nope"_s, {}, u"MCP error -32602: Tool nope not found"_s, true},
        };
        for (const Call& call : calls) {
            const auto result = wait<McpCallResult>(
                [&](auto done) { client.callTool(call.tool, call.arguments, std::move(done)); });
            QVERIFY2(std::holds_alternative<McpCallResult>(result), qPrintable(errorOf(result)));
            const McpCallResult& answer = std::get<McpCallResult>(result);
            if (call.text.endsWith(u'…'))
                QVERIFY2(answer.text.startsWith(call.text.chopped(1)), qPrintable(answer.text));
            else
                QCOMPARE(answer.text, call.text);
            QCOMPARE(answer.isError, call.isError);
        }

        std::optional<std::optional<QString>> pinged;
        client.ping([&](const std::optional<QString>& error) { pinged = error; });
        QTRY_VERIFY(pinged.has_value());
        QCOMPARE(*pinged, std::nullopt);

        QSignalSpy closed(transport, &McpTransport::closed);
        client.disconnectFromServer();
        QCOMPARE(closed.size(), 1);
        QVERIFY(!client.isConnected());
        QTRY_VERIFY(server.log().contains(u"Client Disconnected"_s));
    }

    // --- Our own server.

    void openFailures_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("contentType");
        QTest::addColumn<bool>("endAtOnce");
        QTest::addColumn<QString>("error"); // %1: the stream's URL

        QTest::newRow("401") << 401 << "text/event-stream"_ba << false
                             << u"SSE Connection to %1 failed due to authentication (HTTP 401)"_s;
        QTest::newRow("403") << 403 << "text/event-stream"_ba << false
                             << u"SSE Connection to %1 failed due to authentication (HTTP 403)"_s;
        QTest::newRow("201") << 201 << "text/event-stream"_ba << false
                             << u"Failed to establish SSE connection to %1 (HTTP 201)"_s;
        QTest::newRow("500") << 500 << "text/event-stream"_ba << false << u"(HTTP 500)"_s;
        QTest::newRow("wrong type") << 200 << "text/html; charset=utf-8"_ba << false
                                    << u"Invalid MimeType for %1: text/html"_s;
        QTest::newRow("ends before the first byte")
            << 200 << "text/event-stream"_ba << true
            << u"%1 completed with unknown error before connection fully established"_s;
    }

    void openFailures()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, contentType);
        QFETCH(bool, endAtOnce);
        QFETCH(QString, error);

        SseTestServer server;
        server.stream.status = status;
        server.stream.contentType = contentType;
        server.stream.endAtOnce = endAtOnce;
        if (endAtOnce)
            server.stream.first.clear();
        AuthenticatedMCPTransport transport(server.url(), token);
        QSignalSpy closed(&transport, &McpTransport::closed);
        const Outcome outcome = openAndWait(transport);
        QVERIFY(outcome.done);
        QVERIFY(outcome.error.has_value());
        const QString expected =
            error.contains(u"%1"_s) ? error.arg(server.url().toString()) : error;
        QVERIFY2(outcome.error->contains(expected), qPrintable(*outcome.error));
        QVERIFY(!transport.isOpen());
        QCOMPARE(closed.size(), 0);
        // A transport is not opened twice.
        QVERIFY(openAndWait(transport).error.has_value());
    }

    void requestHeaders_data()
    {
        QTest::addColumn<bool>("withToken");
        QTest::newRow("with token") << true;
        QTest::newRow("without token") << false;
    }

    void requestHeaders()
    {
        QFETCH(bool, withToken);

        LogCapture logs;
        SseTestServer server;
        AuthenticatedMCPTransport transport(server.url(),
                                            withToken ? std::optional(token) : std::nullopt);
        QCOMPARE(openAndWait(transport).error, std::nullopt);
        QCOMPARE(sendAndWait(transport, R"({"jsonrpc":"2.0","method":"x"})").error, std::nullopt);

        const auto get = server.requests("GET").value(0);
        QCOMPARE(get.path, "/sse"_ba);
        QCOMPARE(get.headers.value("accept"), "text/event-stream"_ba);
        QCOMPARE(get.headers.value("cache-control"), "no-cache"_ba);
        QCOMPARE(get.headers.value("connection").toLower(), "keep-alive"_ba);
        QCOMPARE(get.headers.value("mcp-protocol-version"), "2024-11-05"_ba);
        const auto post = server.requests("POST").value(0);
        QCOMPARE(post.path, "/message?sessionId=s1"_ba);
        QCOMPARE(post.headers.value("content-type"), "application/json"_ba);
        QCOMPARE(post.headers.value("mcp-protocol-version"), "2024-11-05"_ba);
        QCOMPARE(post.body, R"({"jsonrpc":"2.0","method":"x"})"_ba);
        const QByteArray bearer = withToken ? "Bearer " + token.toUtf8() : QByteArray();
        QCOMPARE(get.headers.value("authorization"), bearer);
        QCOMPARE(post.headers.value("authorization"), bearer);
        for (const QString& line : logs.lines())
            QVERIFY2(!line.contains(token), qPrintable(line));
    }

    void endpoints_data()
    {
        QTest::addColumn<QString>("endpoint"); // %1: the stream's port, %2: another server's
        QTest::addColumn<QString>("postUrl");  // %1: the stream's port; empty: unchanged

        QTest::newRow("path and query")
            << u"/message?sessionId=abc"_s << u"http://127.0.0.1:%1/message?sessionId=abc"_s;
        QTest::newRow("relative path")
            << u"messages/?session_id=9"_s << u"http://127.0.0.1:%1/mcp/messages/?session_id=9"_s;
        QTest::newRow("absolute URL, same origin")
            << u"http://127.0.0.1:%1/post?a=b"_s << u"http://127.0.0.1:%1/post?a=b"_s;
        QTest::newRow("another port") << u"http://127.0.0.1:%2/message"_s << QString();
        QTest::newRow("another host") << u"http://localhost:%1/message"_s << QString();
        QTest::newRow("another scheme") << u"https://127.0.0.1:%1/message"_s << QString();
        QTest::newRow("scheme-relative elsewhere") << u"//127.0.0.2:%1/message"_s << QString();
    }

    // The POST URL follows the endpoint on the stream's own origin only; the
    // token never goes to another server.
    void endpoints()
    {
        QFETCH(QString, endpoint);
        QFETCH(QString, postUrl);

        SseTestServer server;
        SseTestServer other;
        const int port = server.url().port();
        QString announced = endpoint;
        announced.replace(u"%1"_s, QString::number(port))
            .replace(u"%2"_s, QString::number(other.url().port()));
        server.stream.first = "event: endpoint\ndata: " + announced.toUtf8() + "\n\n";
        const QUrl streamUrl = server.url(u"/mcp/sse"_s);
        AuthenticatedMCPTransport transport(streamUrl, token);
        QCOMPARE(openAndWait(transport).error, std::nullopt);
        const QUrl expected = postUrl.isEmpty() ? streamUrl : QUrl(postUrl.arg(port));
        QCOMPARE(transport.messagePostUrl(), expected);
        QCOMPARE(transport.sseConnectUrl(), streamUrl);

        QCOMPARE(sendAndWait(transport, "{}").error, std::nullopt);
        QCOMPARE(other.requests().size(), 0);
        const auto post = server.requests("POST").value(0);
        QCOMPARE(post.headers.value("authorization"), "Bearer " + token.toUtf8());
        QCOMPARE(QUrl::fromEncoded(post.path).path(), expected.path());
    }

    void postAnswers_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("error"); // %1: the POST URL; empty: success

        QTest::newRow("202") << 202 << "Accepted"_ba << QString();
        QTest::newRow("201") << 201 << QByteArray() << QString();
        QTest::newRow("500 with text")
            << 500 << "boom"_ba << u"Send POST to %1 failed with status 500. Body: boom"_s;
        QTest::newRow("502 without body")
            << 502 << QByteArray()
            << u"Send POST to %1 failed with status 502. Body: No readable response body"_s;
        QTest::newRow("401") << 401 << "no"_ba << u"authentication (HTTP 401)"_s;
        QTest::newRow("403") << 403 << "no"_ba << u"authentication (HTTP 403)"_s;
    }

    void postAnswers()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, error);

        SseTestServer server;
        server.post = {status, body};
        AuthenticatedMCPTransport transport(server.url(), token);
        QSignalSpy received(&transport, &McpTransport::messageReceived);
        QCOMPARE(openAndWait(transport).error, std::nullopt);
        const Outcome sent = sendAndWait(transport, R"({"jsonrpc":"2.0","id":1,"method":"ping"})");
        QVERIFY(sent.done);
        if (error.isEmpty()) {
            QCOMPARE(sent.error, std::nullopt);
        } else {
            QVERIFY(sent.error.has_value());
            const QString expected =
                error.contains(u"%1"_s) ? error.arg(transport.messagePostUrl().toString()) : error;
            QCOMPARE(sent.error->contains(expected), true);
        }
        // A POST's body is never taken for a message.
        QTest::qWait(50);
        QCOMPARE(received.size(), 0);
        QVERIFY(transport.isOpen());
    }

    void sendWhenNotOpen()
    {
        SseTestServer server;
        AuthenticatedMCPTransport transport(server.url(), token);
        const Outcome sent = sendAndWait(transport, "{}");
        QCOMPARE(sent.error,
                 u"AuthenticatedMCPTransport: Not connected to %1"_s.arg(server.url().toString()));
        QCOMPARE(server.requests().size(), 0);
    }

    void classification_data()
    {
        QTest::addColumn<QByteArray>("event");
        QTest::addColumn<bool>("forwarded");
        QTest::addColumn<QStringList>("discovered");

        QTest::newRow("tools/list push")
            << "data: {\"jsonrpc\":\"2.0\",\"method\":\"tools/list\",\"params\":{\"tools\":"
               "[{\"name\":\"a\"},{\"name\":\"b\"},{\"name\":\"a\"},{\"title\":\"x\"}]}}\n\n"_ba
            << false << QStringList{u"a"_s, u"b"_s};
        QTest::newRow("tools/list push, no named tools")
            << "data: {\"jsonrpc\":\"2.0\",\"method\":\"tools/list\",\"params\":{\"tools\":[]}}"
               "\n\n"_ba
            << true << QStringList();
        QTest::newRow("with an id always goes to the client")
            << "data: {\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"tools/list\",\"params\":"
               "{\"tools\":[{\"name\":\"a\"}]}}\n\n"_ba
            << true << QStringList();
        QTest::newRow("result") << "event: message\ndata: {\"jsonrpc\":\"2.0\",\"id\":1,"
                                   "\"result\":{}}\n\n"_ba
                                << true << QStringList();
        QTest::newRow("other notification")
            << "data: {\"jsonrpc\":\"2.0\",\"method\":\"notifications/tools/list_changed\"}\n\n"_ba
            << true << QStringList();
        QTest::newRow("not JSON goes on unchanged")
            << "data: {oops\n\n"_ba << true << QStringList();
        QTest::newRow("other event types are not messages")
            << "event: ping\ndata: {\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{}}\n\n"_ba << false
            << QStringList();
    }

    void classification()
    {
        QFETCH(QByteArray, event);
        QFETCH(bool, forwarded);
        QFETCH(QStringList, discovered);

        SseTestServer server;
        AuthenticatedMCPTransport transport(server.url());
        QSignalSpy received(&transport, &McpTransport::messageReceived);
        QCOMPARE(openAndWait(transport).error, std::nullopt);
        server.push(event);
        server.pushMessage(R"({"marker":true})");
        QTRY_COMPARE(received.size(), forwarded ? 2 : 1);
        if (forwarded) {
            const QByteArray data = event.mid(event.indexOf("data: ") + 6).chopped(2);
            QCOMPARE(received[0][0].toByteArray(), data);
        }
        QCOMPARE(transport.discoveredTools(), discovered);
    }

    void openWaitsForTheFirstByte()
    {
        SseTestServer server;
        server.stream.first.clear();
        AuthenticatedMCPTransport transport(server.url());
        auto outcome = std::make_shared<Outcome>();
        transport.open([outcome](const std::optional<QString>& error) {
            outcome->done = true;
            outcome->error = error;
        });
        QTRY_COMPARE(server.streamCount(), 1);
        QTest::qWait(300);
        QVERIFY(!outcome->done);
        QVERIFY(!transport.isOpen());
        server.push(": hello\n\n");
        QTRY_VERIFY(outcome->done);
        QCOMPARE(outcome->error, std::nullopt);
        QVERIFY(transport.isOpen());
    }

    void closeWhileOpening()
    {
        SseTestServer server;
        server.stream.first.clear();
        AuthenticatedMCPTransport transport(server.url());
        QSignalSpy closed(&transport, &McpTransport::closed);
        auto outcome = std::make_shared<Outcome>();
        transport.open([outcome](const std::optional<QString>& error) {
            outcome->done = true;
            outcome->error = error;
        });
        QTRY_COMPARE(server.streamCount(), 1);
        transport.close();
        QTRY_VERIFY(outcome->done);
        QCOMPARE(outcome->error, u"Connection cancelled during disconnect."_s);
        QCOMPARE(closed.size(), 0);
    }

    void destroyedWithStreamInFlight()
    {
        SseTestServer server;
        server.stream.first.clear();
        bool calledBack = false;
        auto transport = std::make_unique<AuthenticatedMCPTransport>(server.url());
        transport->open([&](const std::optional<QString>&) { calledBack = true; });
        QTRY_COMPARE(server.streamCount(), 1);
        transport.reset();
        server.push("data: x\n\n");
        QTRY_COMPARE(server.streamCount(), 0);
        QVERIFY(!calledBack);
    }

    void stalledServerTimesOut()
    {
        SseTestServer server; // sends the endpoint, then never answers
        McpClient client(std::make_unique<AuthenticatedMCPTransport>(server.url(), token));
        client.setRequestTimeout(300ms);
        const auto outcome = connectClient(client);
        QVERIFY(outcome.has_value());
        QVERIFY2(outcome->contains(u"MCP error -32001: Request timed out"_s), qPrintable(*outcome));
        QVERIFY(outcome->contains(u"initialize"_s));
        QCOMPARE(server.requests("POST").size(), 1);
    }

    void streamEnds_data()
    {
        QTest::addColumn<bool>("clean");
        QTest::newRow("ended by the server") << true;
        QTest::newRow("connection cut") << false;
    }

    void streamEnds()
    {
        QFETCH(bool, clean);

        SseTestServer server;
        AuthenticatedMCPTransport transport(server.url(), token);
        QSignalSpy closed(&transport, &McpTransport::closed);
        QCOMPARE(openAndWait(transport).error, std::nullopt);
        if (clean)
            server.endStreams();
        else
            server.dropStreams();
        QTRY_COMPARE(closed.size(), 1);
        QCOMPARE(closed[0][0].toString().isEmpty(), clean);
        QVERIFY(!transport.isOpen());
        QVERIFY(sendAndWait(transport, "{}").error->contains(u"Not connected"_s));
        QTest::qWait(50);
        QCOMPARE(closed.size(), 1);

        // Connecting again takes a new transport.
        AuthenticatedMCPTransport again(server.url(), token);
        QCOMPARE(openAndWait(again).error, std::nullopt);
        QCOMPARE(server.requests("GET").size(), 2);
    }

    void endlessEventIsCut()
    {
        SseTestServer server;
        AuthenticatedMCPTransport transport(server.url());
        QSignalSpy closed(&transport, &McpTransport::closed);
        QCOMPARE(openAndWait(transport).error, std::nullopt);
        const QByteArray line = "data: " + QByteArray(1024 * 1024, 'x') + "\n";
        for (int i = 0; i < 9 && closed.isEmpty(); ++i) {
            server.push(line);
            QTest::qWait(20);
        }
        QTRY_COMPARE(closed.size(), 1);
        QVERIFY2(closed[0][0].toString().contains(u"more than"_s),
                 qPrintable(closed[0][0].toString()));
    }
};

QTEST_GUILESS_MAIN(McpTransportTest)
#include "McpTransportTest.moc"

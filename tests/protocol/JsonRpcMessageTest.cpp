// JSON-RPC messages as MCP servers send them: each kind decodes to what it
// says and encodes back to the same message; what no server may send is
// refused with a reason.
#include "protocol/JsonRpcMessage.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using Kind = JsonRpcMessage::Kind;

class JsonRpcMessageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valid_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QJsonValue>("id");
        QTest::addColumn<QString>("method");

        QTest::newRow("request, number id")
            << R"({"jsonrpc":"2.0","id":7,"method":"tools/list","params":{}})"_ba
            << int(Kind::Request) << QJsonValue(7) << u"tools/list"_s;
        QTest::newRow("request, string id")
            << R"({"jsonrpc":"2.0","id":"a-1","method":"ping"})"_ba << int(Kind::Request)
            << QJsonValue(u"a-1"_s) << u"ping"_s;
        QTest::newRow("request, params array")
            << R"({"jsonrpc":"2.0","id":1,"method":"m","params":[1]})"_ba << int(Kind::Request)
            << QJsonValue(1) << u"m"_s;
        QTest::newRow("notification")
            << R"({"method":"notifications/tools/list_changed","jsonrpc":"2.0"})"_ba
            << int(Kind::Notification) << QJsonValue() << u"notifications/tools/list_changed"_s;
        QTest::newRow("result as the reference server orders it")
            << R"({"result":{"content":[]},"jsonrpc":"2.0","id":3})"_ba << int(Kind::Result)
            << QJsonValue(3) << QString();
        QTest::newRow("null result") << R"({"jsonrpc":"2.0","id":3,"result":null})"_ba
                                     << int(Kind::Result) << QJsonValue(3) << QString();
        QTest::newRow("error")
            << R"({"jsonrpc":"2.0","id":4,"error":{"code":-32601,"message":"Method not found"}})"_ba
            << int(Kind::Error) << QJsonValue(4) << QString();
        QTest::newRow("error with data and null id")
            << R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error","data":"x"}})"_ba
            << int(Kind::Error) << QJsonValue() << QString();
    }

    void valid()
    {
        QFETCH(QByteArray, json);
        QFETCH(int, kind);
        QFETCH(QJsonValue, id);
        QFETCH(QString, method);

        const auto decoded = JsonRpcMessage::decode(json);
        QVERIFY2(decoded.ok(), qPrintable(decoded.error));
        QVERIFY(decoded.error.isEmpty());
        QCOMPARE(int(decoded.value->kind), kind);
        QCOMPARE(decoded.value->id, id);
        QCOMPARE(decoded.value->method, method);

        const auto again = JsonRpcMessage::decode(decoded.value->encode());
        QVERIFY2(again.ok(), qPrintable(again.error));
        QCOMPARE(*again.value, *decoded.value);
    }

    void errorFields()
    {
        const auto decoded = JsonRpcMessage::decode(
            R"({"jsonrpc":"2.0","id":"x","error":{"code":-32602,"message":"Bad","data":{"k":1}}})");
        QVERIFY(decoded.ok());
        QCOMPARE(decoded.value->errorCode, -32602);
        QCOMPARE(decoded.value->errorMessage, u"Bad"_s);
        QCOMPARE(decoded.value->errorData.toObject().value("k"_L1).toInt(), 1);
    }

    void invalid_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("why");

        QTest::newRow("not JSON") << "{\"jsonrpc\":"_ba << u"Not JSON"_s;
        QTest::newRow("empty") << QByteArray() << u"Not JSON"_s;
        QTest::newRow("batch") << R"([{"jsonrpc":"2.0","method":"a"}])"_ba << u"batch"_s;
        QTest::newRow("a string") << "\"x\""_ba << QString();
        QTest::newRow("no version") << R"({"id":1,"method":"a"})"_ba << u"\"2.0\""_s;
        QTest::newRow("version 1") << R"({"jsonrpc":"1.0","id":1,"method":"a"})"_ba << u"\"2.0\""_s;
        QTest::newRow("empty method")
            << R"({"jsonrpc":"2.0","id":1,"method":""})"_ba << u"\"method\""_s;
        QTest::newRow("method not a string")
            << R"({"jsonrpc":"2.0","id":1,"method":5})"_ba << u"\"method\""_s;
        QTest::newRow("params a string")
            << R"({"jsonrpc":"2.0","id":1,"method":"a","params":"x"})"_ba << u"\"params\""_s;
        QTest::newRow("request with null id")
            << R"({"jsonrpc":"2.0","id":null,"method":"a"})"_ba << u"number or a string"_s;
        QTest::newRow("request with object id")
            << R"({"jsonrpc":"2.0","id":{},"method":"a"})"_ba << u"number or a string"_s;
        QTest::newRow("method and result")
            << R"({"jsonrpc":"2.0","id":1,"method":"a","result":{}})"_ba << u"both"_s;
        QTest::newRow("result and error")
            << R"({"jsonrpc":"2.0","id":1,"result":{},"error":{"code":1,"message":""}})"_ba
            << u"both"_s;
        QTest::newRow("nothing") << R"({"jsonrpc":"2.0","id":1})"_ba << u"neither"_s;
        QTest::newRow("result without id")
            << R"({"jsonrpc":"2.0","result":{}})"_ba << u"id of its request"_s;
        QTest::newRow("result with null id")
            << R"({"jsonrpc":"2.0","id":null,"result":{}})"_ba << u"id of a result"_s;
        QTest::newRow("error not an object")
            << R"({"jsonrpc":"2.0","id":1,"error":"x"})"_ba << u"\"error\" must be an object"_s;
        QTest::newRow("fractional code")
            << R"({"jsonrpc":"2.0","id":1,"error":{"code":1.5,"message":"x"}})"_ba
            << u"error.code"_s;
        QTest::newRow("code as text")
            << R"({"jsonrpc":"2.0","id":1,"error":{"code":"1","message":"x"}})"_ba
            << u"error.code"_s;
        QTest::newRow("no message")
            << R"({"jsonrpc":"2.0","id":1,"error":{"code":1}})"_ba << u"error.message"_s;
    }

    void invalid()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, why);

        const auto decoded = JsonRpcMessage::decode(json);
        QVERIFY(!decoded.ok());
        QVERIFY2(decoded.error.contains(why), qPrintable(decoded.error));
    }

    void encoding()
    {
        QCOMPARE(JsonRpcMessage::request(1, u"ping"_s).encode(),
                 R"({"id":1,"jsonrpc":"2.0","method":"ping"})"_ba);
        QCOMPARE(JsonRpcMessage::notification(u"notifications/initialized"_s).encode(),
                 R"({"jsonrpc":"2.0","method":"notifications/initialized"})"_ba);
        QCOMPARE(JsonRpcMessage::request(2, u"tools/call"_s, QJsonObject{{"name"_L1, u"echo"_s}})
                     .encode(),
                 R"({"id":2,"jsonrpc":"2.0","method":"tools/call","params":{"name":"echo"}})"_ba);
        QCOMPARE(
            JsonRpcMessage::errorResponse(u"s"_s, -32601, u"Method not found"_s).encode(),
            R"({"error":{"code":-32601,"message":"Method not found"},"id":"s","jsonrpc":"2.0"})"_ba);
    }
};

QTEST_GUILESS_MAIN(JsonRpcMessageTest)
#include "JsonRpcMessageTest.moc"

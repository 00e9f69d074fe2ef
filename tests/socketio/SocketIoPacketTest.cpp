// The event socket's packets on their own: what the reference server writes
// decodes to the right packet and encodes back the way the server writes it;
// what it could never write is refused with a reason, never a crash.
#include "protocol/SocketIoPacket.h"

#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using Type = SocketIoPacket::Type;

class SocketIoPacketTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void engineFrames_data()
    {
        QTest::addColumn<QString>("frame");
        QTest::addColumn<int>("type"); // -1: refused
        QTest::addColumn<QString>("data");

        QTest::newRow("open") << u"0{\"sid\":\"a\"}"_s << 0 << u"{\"sid\":\"a\"}"_s;
        QTest::newRow("close") << u"1"_s << 1 << QString();
        QTest::newRow("ping") << u"2"_s << 2 << QString();
        QTest::newRow("ping with probe") << u"2probe"_s << 2 << u"probe"_s;
        QTest::newRow("pong with probe") << u"3probe"_s << 3 << u"probe"_s;
        QTest::newRow("message") << u"42[\"ä\"]"_s << 4 << u"2[\"ä\"]"_s;
        QTest::newRow("upgrade") << u"5"_s << 5 << QString();
        QTest::newRow("noop") << u"6"_s << 6 << QString();
        QTest::newRow("empty") << QString() << -1 << QString();
        QTest::newRow("type 7") << u"7"_s << -1 << QString();
        QTest::newRow("letter") << u"x2"_s << -1 << QString();
        QTest::newRow("base64 binary") << u"bAQID"_s << -1 << QString();
    }

    void engineFrames()
    {
        QFETCH(QString, frame);
        QFETCH(int, type);
        QFETCH(QString, data);

        const auto decoded = EngineIoPacket::decode(frame);
        QCOMPARE(decoded.ok(), type >= 0);
        QCOMPARE(decoded.error.isEmpty(), decoded.ok());
        if (!decoded.ok())
            return;
        QCOMPARE(static_cast<int>(decoded.value->type), type);
        QCOMPARE(decoded.value->data, data);
        QCOMPARE(decoded.value->encode(), frame);
    }

    void handshake_data()
    {
        QTest::addColumn<QString>("json");
        QTest::addColumn<bool>("ok");

        QTest::newRow("as the server sends it")
            << u"{\"sid\":\"lv_VI97HAXpY6yYWAAAC\",\"upgrades\":[],\"pingInterval\":25000,"
               "\"pingTimeout\":20000,\"maxPayload\":1000000}"_s
            << true;
        QTest::newRow("without optional keys")
            << u"{\"sid\":\"s\",\"pingInterval\":1,\"pingTimeout\":1}"_s << true;
        QTest::newRow("no sid") << u"{\"pingInterval\":25000,\"pingTimeout\":20000}"_s << false;
        QTest::newRow("zero interval")
            << u"{\"sid\":\"s\",\"pingInterval\":0,\"pingTimeout\":20000}"_s << false;
        QTest::newRow("fractional timeout")
            << u"{\"sid\":\"s\",\"pingInterval\":25000,\"pingTimeout\":0.5}"_s << false;
        QTest::newRow("interval as text")
            << u"{\"sid\":\"s\",\"pingInterval\":\"25000\",\"pingTimeout\":20000}"_s << false;
        QTest::newRow("interval beyond a day")
            << u"{\"sid\":\"s\",\"pingInterval\":86400001,\"pingTimeout\":20000}"_s << false;
        QTest::newRow("upgrades not a list")
            << u"{\"sid\":\"s\",\"pingInterval\":1,\"pingTimeout\":1,\"upgrades\":\"ws\"}"_s
            << false;
        QTest::newRow("negative maxPayload")
            << u"{\"sid\":\"s\",\"pingInterval\":1,\"pingTimeout\":1,\"maxPayload\":-1}"_s << false;
        QTest::newRow("an array") << u"[]"_s << false;
        QTest::newRow("not JSON") << u"{\"sid\":"_s << false;
    }

    void handshake()
    {
        QFETCH(QString, json);
        QFETCH(bool, ok);

        const auto decoded = EngineIoHandshake::decode(json);
        QCOMPARE(decoded.ok(), ok);
        if (!ok) {
            QVERIFY(!decoded.error.isEmpty());
            return;
        }
        const auto again = EngineIoHandshake::decode(decoded.value->encode());
        QVERIFY2(again.ok(), qPrintable(again.error));
        QCOMPARE(*again.value, *decoded.value);
    }

    void handshakeValues()
    {
        const auto decoded = EngineIoHandshake::decode(
            u"{\"sid\":\"abc\",\"upgrades\":[\"x\"],\"pingInterval\":300,\"pingTimeout\":200,"
            "\"maxPayload\":1000000}"_s);
        QVERIFY(decoded.ok());
        QCOMPARE(decoded.value->sid, u"abc"_s);
        QCOMPARE(decoded.value->upgrades, QStringList{u"x"_s});
        QCOMPARE(decoded.value->pingInterval.count(), 300);
        QCOMPARE(decoded.value->pingTimeout.count(), 200);
        QCOMPARE(decoded.value->maxPayload, 1000000);
    }

    void socketIoPackets_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("type"); // -1: refused
        QTest::addColumn<QString>("nameSpace");
        QTest::addColumn<qint64>("ackId");    // -1: none
        QTest::addColumn<QString>("encoded"); // how it is written back

        const QString events = u"/calls"_s;
        QTest::newRow("connect") << u"0"_s << 0 << u"/"_s << -1LL << u"0"_s;
        QTest::newRow("connect namespace") << u"0/calls,"_s << 0 << events << -1LL << u"0/calls,"_s;
        QTest::newRow("connect namespace, no comma")
            << u"0/calls"_s << 0 << events << -1LL << u"0/calls,"_s;
        QTest::newRow("connect acknowledged")
            << u"0/calls,{\"sid\":\"oSO0OpakMV_3jnilAAAA\"}"_s << 0 << events << -1LL
            << u"0/calls,{\"sid\":\"oSO0OpakMV_3jnilAAAA\"}"_s;
        QTest::newRow("main namespace spelled out")
            << u"2/,[\"a\"]"_s << 2 << u"/"_s << -1LL << u"2[\"a\"]"_s;
        QTest::newRow("disconnect") << u"1/calls,"_s << 1 << events << -1LL << u"1/calls,"_s;
        QTest::newRow("event") << u"2[\"foo\"]"_s << 2 << u"/"_s << -1LL << u"2[\"foo\"]"_s;
        QTest::newRow("event with values")
            << u"2/calls,[\"e\",1,-2.5,true,null,{\"a\":[1,{\"b\":\"c\"}]}]"_s << 2 << events
            << -1LL << u"2/calls,[\"e\",1,-2.5,true,null,{\"a\":[1,{\"b\":\"c\"}]}]"_s;
        QTest::newRow("event asking for an ack")
            << u"2/calls,13[\"foo\"]"_s << 2 << events << 13LL << u"2/calls,13[\"foo\"]"_s;
        QTest::newRow("event, numeric namespace")
            << u"2/12,5[\"a\"]"_s << 2 << u"/12"_s << 5LL << u"2/12,5[\"a\"]"_s;
        QTest::newRow("event, Unicode")
            << u"2/calls,[\"naïve\",\"日本語\",\"🎙️\",\"\u2028\",\"\\\"\\\\\\n\"]"_s << 2
            << events << -1LL
            << u"2/calls,[\"naïve\",\"日本語\",\"🎙️\",\"\u2028\",\"\\\"\\\\\\n\"]"_s;
        QTest::newRow("event, escaped surrogate pair")
            << u"2[\"\\ud83c\\udf99\"]"_s << 2 << u"/"_s << -1LL << u"2[\"🎙\"]"_s;
        QTest::newRow("event, white space")
            << u"2 [ \"a\" , 1 ]"_s << 2 << u"/"_s << -1LL << u"2[\"a\",1]"_s;
        QTest::newRow("ack") << u"3/calls,13[\"bar\"]"_s << 3 << events << 13LL
                             << u"3/calls,13[\"bar\"]"_s;
        QTest::newRow("empty ack") << u"312[]"_s << 3 << u"/"_s << 12LL << u"312[]"_s;
        QTest::newRow("largest ack id") << u"39007199254740991[]"_s << 3 << u"/"_s
                                        << 9007199254740991LL << u"39007199254740991[]"_s;
        QTest::newRow("connect error")
            << u"4/calls,{\"message\":\"unauthorized: bad token\"}"_s << 4 << events << -1LL
            << u"4/calls,{\"message\":\"unauthorized: bad token\"}"_s;
        QTest::newRow("connect error with data")
            << u"4{\"message\":\"m\",\"data\":{\"code\":7}}"_s << 4 << u"/"_s << -1LL
            << u"4{\"data\":{\"code\":7},\"message\":\"m\"}"_s;
        QTest::newRow("connect error as text")
            << u"4\"Invalid namespace\""_s << 4 << u"/"_s << -1LL << u"4\"Invalid namespace\""_s;

        for (const auto& [name, text] : std::initializer_list<std::pair<const char*, QString>>{
                 {"empty", QString()},
                 {"unknown type", u"7[\"a\"]"_s},
                 {"not a digit", u"e[\"a\"]"_s},
                 {"binary event", u"51-[\"a\",{\"_placeholder\":true,\"num\":0}]"_s},
                 {"binary ack", u"61-15[\"bar\",{\"_placeholder\":true,\"num\":0}]"_s},
                 {"event without payload", u"2/calls,"_s},
                 {"event, empty array", u"2[]"_s},
                 {"event named by a number", u"2[1,\"a\"]"_s},
                 {"event, object payload", u"2{\"a\":1}"_s},
                 {"event, truncated", u"2/calls,[\"a\""_s},
                 {"event, trailing garbage", u"2[\"a\"]x"_s},
                 {"event, two values", u"2[\"a\"],[\"b\"]"_s},
                 {"event, ack id past 2^53", u"29007199254740992[\"a\"]"_s},
                 {"event, huge ack id", u"2/calls,99999999999999999999999[\"a\"]"_s},
                 {"event, lone number", u"2/calls,12"_s},
                 {"event, number too large", u"2[\"a\",1e999]"_s},
                 {"ack without id", u"3[\"a\"]"_s},
                 {"ack, object payload", u"35{}"_s},
                 {"disconnect with payload", u"1/calls,[\"x\"]"_s},
                 {"connect, array payload", u"0[1]"_s},
                 {"connect, id-like digits", u"0/calls,12{}"_s},
                 {"connect error, array", u"4[1]"_s},
                 {"connect error, numeric message", u"4{\"message\":5}"_s},
             }) {
            QTest::newRow(name) << text << -1 << QString() << -1LL << QString();
        }
    }

    void socketIoPackets()
    {
        QFETCH(QString, text);
        QFETCH(int, type);
        QFETCH(QString, nameSpace);
        QFETCH(qint64, ackId);
        QFETCH(QString, encoded);

        const auto decoded = SocketIoPacket::decode(text);
        QVERIFY2(decoded.ok() == (type >= 0), qPrintable(decoded.error));
        if (!decoded.ok()) {
            QVERIFY(!decoded.error.isEmpty());
            return;
        }
        const SocketIoPacket& packet = *decoded.value;
        QCOMPARE(static_cast<int>(packet.type), type);
        QCOMPARE(packet.nameSpace, nameSpace);
        QCOMPARE(packet.ackId.value_or(-1), ackId);
        QCOMPARE(packet.encode(), encoded);
        const auto again = SocketIoPacket::decode(encoded);
        QVERIFY(again.ok());
        QCOMPARE(*again.value, packet);
    }

    // What the client reads out of a packet, and what it writes.
    void contents()
    {
        const auto event =
            SocketIoPacket::decode(u"2/calls,7[\"transcript\",{\"text\":\"hé\"},2]"_s);
        QVERIFY(event.ok());
        QCOMPARE(event.value->eventName(), u"transcript"_s);
        QCOMPARE(event.value->eventItems(), (QJsonArray{QJsonObject{{u"text"_s, u"hé"_s}}, 2}));

        QCOMPARE(SocketIoPacket::decode(u"4/calls,{\"message\":\"unauthorized\"}"_s)
                     .value->errorMessage(),
                 u"unauthorized"_s);
        QCOMPARE(SocketIoPacket::decode(u"4\"Invalid namespace\""_s).value->errorMessage(),
                 u"Invalid namespace"_s);
        QCOMPARE(SocketIoPacket::decode(u"4{}"_s).value->errorMessage(), QString());

        QCOMPARE(SocketIoPacket::event(u"/calls"_s, u"audio"_s, {1, u"ü"_s}).encode(),
                 u"2/calls,[\"audio\",1,\"ü\"]"_s);
        QCOMPARE(SocketIoPacket::event(u"/calls"_s, u"ping"_s, {}).encode(),
                 u"2/calls,[\"ping\"]"_s);
        QCOMPARE(SocketIoPacket::connect(u"/calls"_s).encode(), u"0/calls,"_s);
        QCOMPARE(SocketIoPacket::disconnect(u"/"_s).encode(), u"1"_s);
    }

    // Every cut of a well-formed frame either decodes or is refused with a reason.
    void truncatedFrames()
    {
        const QString frames[] = {
            u"42/calls,13[\"e\",{\"a\":[1,2,{\"b\":\"ü🎙\"}]},true]"_s,
            u"0{\"sid\":\"s\",\"upgrades\":[],\"pingInterval\":25000,\"pingTimeout\":20000}"_s,
            u"44/calls,{\"message\":\"unauthorized\",\"data\":{\"x\":null}}"_s,
        };
        for (const QString& frame : frames) {
            for (qsizetype length = 0; length <= frame.size(); ++length) {
                const auto engine = EngineIoPacket::decode(QStringView(frame).first(length));
                if (!engine.ok()) {
                    QVERIFY(!engine.error.isEmpty());
                    continue;
                }
                const auto socketIo = SocketIoPacket::decode(engine.value->data);
                const auto handshake = EngineIoHandshake::decode(engine.value->data);
                QVERIFY(socketIo.ok() || !socketIo.error.isEmpty());
                QVERIFY(handshake.ok() || !handshake.error.isEmpty());
            }
        }
    }
};

QTEST_GUILESS_MAIN(SocketIoPacketTest)
#include "SocketIoPacketTest.moc"

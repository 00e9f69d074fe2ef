// The event socket client against the reference Socket.IO 4 server: what the
// server sees of the handshake and of every emit, what the client delivers of
// every server event, and how it behaves when the connection breaks, the
// server goes away and comes back, goes silent, or refuses it.
#include "protocol/SocketIoClient.h"

#include "SocketIoTestServer.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QTcpServer>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Status = SocketIoClient::Status;

namespace {

constexpr int settle = 10'000; // ms to wait for what must happen

// Every signal of a client, in order, as "name[:argument]".
class SignalLog : public QObject
{
public:
    explicit SignalLog(SocketIoClient& client)
    {
        m_clock.start();
        connect(&client, &SocketIoClient::connected, this, [this] { add(u"connected"_s); });
        connect(&client, &SocketIoClient::disconnected, this,
                [this](const QString& reason) { add(u"disconnected:"_s + reason); });
        connect(&client, &SocketIoClient::reconnecting, this, [this] { add(u"reconnecting"_s); });
        connect(&client, &SocketIoClient::reconnectAttempt, this,
                [this](int attempt) { add(u"attempt:"_s + QString::number(attempt)); });
        connect(&client, &SocketIoClient::errorOccurred, this,
                [this](const QString& message) { add(u"error:"_s + message); });
        connect(&client, &SocketIoClient::eventReceived, this,
                [this](const QString& event, const QJsonArray& items) {
                    add(u"event:"_s + event);
                    events.append({event, items});
                });
    }

    int count(const QString& prefix) const
    {
        return static_cast<int>(
            std::count_if(entries.cbegin(), entries.cend(),
                          [&](const QString& e) { return e.startsWith(prefix); }));
    }
    // When the first entry with `prefix` came, in ms since the log began; -1 when none did.
    qint64 timeOf(const QString& prefix) const
    {
        for (qsizetype i = 0; i < entries.size(); ++i) {
            if (entries[i].startsWith(prefix))
                return times[i];
        }
        return -1;
    }

    QStringList entries;
    QList<qint64> times;
    QList<std::pair<QString, QJsonArray>> events;

private:
    void add(const QString& entry)
    {
        entries.append(entry);
        times.append(m_clock.elapsed());
    }

    QElapsedTimer m_clock;
};

SocketIoClient::Options quick()
{
    SocketIoClient::Options options;
    options.reconnectionDelay = 50ms;
    options.reconnectionDelayMax = 200ms;
    options.randomizationFactor = 0;
    options.connectTimeout = 5s;
    return options;
}

const QMap<QString, QString> defaultParams = {{u"token"_s, u"good"_s}};

// Payloads of every JSON kind, the way event items travel both ways.
void addPayloadRows()
{
    QTest::addColumn<QJsonArray>("items");
    QTest::newRow("nothing") << QJsonArray{};
    QTest::newRow("strings") << QJsonArray{u"plain"_s, QString(), u"with \"quotes\", \\ and \n"_s};
    QTest::newRow("numbers") << QJsonArray{0, 42, -7, 3.25, 1e-7, 9007199254740991.0};
    QTest::newRow("booleans and null") << QJsonArray{true, false, QJsonValue::Null};
    QTest::newRow("nested") << QJsonArray{
        QJsonObject{{u"segments"_s, QJsonArray{QJsonObject{{u"start"_s, 1.5}, {u"text"_s, u"hi"_s}},
                                               QJsonArray{QJsonArray{}, QJsonObject{}}}},
                    {u"final"_s, true}}};
    QTest::newRow("Unicode") << QJsonArray{
        u"naïve café"_s, u"日本語のテキスト"_s,    u"🎙️👩🏽‍💼"_s,
        u"עברית"_s,      u"line\u2028separator"_s, QJsonObject{{u"ключ"_s, u"значение"_s}}};
}

} // namespace

class SocketIoClientTest : public QObject
{
    Q_OBJECT

    // A client of the server's "/calls", connected; null when it did not connect.
    static std::unique_ptr<SocketIoClient>
    connectedClient(const SocketIoTestServer& server,
                    const SocketIoClient::Options& options = quick(),
                    const QMap<QString, QString>& params = defaultParams)
    {
        auto client = std::make_unique<SocketIoClient>(server.url(), u"/calls"_s, params, options);
        client->connectToServer();
        if (!QTest::qWaitFor([&] { return client->status() == Status::Connected; }, settle))
            return nullptr;
        return client;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Info tells the story of a failing test; debug would drown it.
        QLoggingCategory::setFilterRules(u"com.quillmoss.socket.debug=false"_s);
    }

    void backoffDelay_data()
    {
        QTest::addColumn<int>("factorPercent");
        QTest::addColumn<int>("attempt");
        QTest::addColumn<double>("random");
        QTest::addColumn<qint64>("expected");

        QTest::newRow("first") << 0 << 1 << 0.3 << 1000LL;
        QTest::newRow("doubled") << 0 << 2 << 0.3 << 2000LL;
        QTest::newRow("doubled twice") << 0 << 3 << 0.3 << 4000LL;
        QTest::newRow("capped") << 0 << 4 << 0.3 << 5000LL;
        QTest::newRow("far on, still capped") << 0 << 10'000 << 0.3 << 5000LL;
        QTest::newRow("jitter, shortest") << 50 << 1 << 0.0 << 500LL;
        QTest::newRow("jitter, middle") << 50 << 2 << 0.5 << 2000LL;
        QTest::newRow("jitter, longest") << 50 << 2 << 1.0 << 3000LL;
        QTest::newRow("jitter at the cap, shortest") << 50 << 5 << 0.0 << 2500LL;
        QTest::newRow("jitter never beyond the cap") << 50 << 5 << 1.0 << 5000LL;
    }

    void backoffDelay()
    {
        QFETCH(int, factorPercent);
        QFETCH(int, attempt);
        QFETCH(double, random);
        QFETCH(qint64, expected);

        SocketIoClient::Options options; // 1 s, doubled, at most 5 s
        options.randomizationFactor = factorPercent / 100.0;
        QCOMPARE(SocketIoClient::backoffDelay(options, attempt, random).count(), expected);
    }

    // The handshake's query as the server parsed it: ours, and the caller's intact.
    void handshake()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const QMap<QString, QString> params = {
            {u"token"_s, u"eyJhbGciOi.J9-_x"_s},
            {u"client"_s, u"quillmoss-desktop"_s},
            {u"odd"_s, u"a+b &c=d/é?#%20"_s},
        };
        const auto client = connectedClient(server, quick(), params);
        QVERIFY(client);

        const auto state = server.state();
        QCOMPARE(state.upgrades, 1);
        QCOMPARE(state.connections.size(), 1);
        const auto& connection = state.connections.first();
        QCOMPARE(connection.nameSpace, u"/calls"_s);
        QCOMPARE(connection.query.value(u"EIO"_s), u"4"_s);
        QCOMPARE(connection.query.value(u"transport"_s), u"websocket"_s);
        for (auto it = params.cbegin(); it != params.cend(); ++it)
            QCOMPARE(connection.query.value(it.key()), it.value());
    }

    void emitsAsTheServerSeesThem_data() { addPayloadRows(); }

    void emitsAsTheServerSeesThem()
    {
        QFETCH(QJsonArray, items);
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);

        QVERIFY(client->emitEvent(u"transcript.chunk"_s, items));
        QTRY_COMPARE_WITH_TIMEOUT(server.state().events.size(), 1, settle);
        const auto event = server.state().events.first();
        QCOMPARE(event.name, u"transcript.chunk"_s);
        QCOMPARE(event.items, items);
    }

    void serverEventsDelivered_data()
    {
        addPayloadRows();
        // The same payloads once more, the server asking for an acknowledgement.
        QTest::newRow("ack asked") << QJsonArray{u"x"_s, 1};
    }

    void serverEventsDelivered()
    {
        QFETCH(QJsonArray, items);
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);
        SignalLog log(*client);

        const bool askAck = QByteArray(QTest::currentDataTag()) == "ack asked";
        QCOMPARE(server.emitEvent(u"summary.ready"_s, items, askAck), 1);
        QTRY_COMPARE_WITH_TIMEOUT(log.events.size(), 1, settle);
        QCOMPARE(log.events.first().first, u"summary.ready"_s);
        QCOMPARE(log.events.first().second, items);
    }

    // Many events both ways arrive complete and in order.
    void echoKeepsOrder()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);
        SignalLog log(*client);

        constexpr int count = 200;
        for (int i = 0; i < count; ++i)
            QVERIFY(client->emitEvent(u"echo"_s, {i, QString(i % 50, u'ß')}));
        QTRY_COMPARE_WITH_TIMEOUT(log.events.size(), count, settle);
        for (int i = 0; i < count; ++i) {
            QCOMPARE(log.events[i].first, u"echoed"_s);
            QCOMPARE(log.events[i].second, (QJsonArray{i, QString(i % 50, u'ß')}));
        }
    }

    // Binary events and acknowledgements nothing asked for are passed over; the
    // connection and the events after them carry on.
    void unsupportedPacketsPassedOver()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);
        SignalLog log(*client);

        QCOMPARE(server.emitBinaryEvent(u"audio"_s), 1);
        QCOMPARE(server.sendStrayAck(41), 1);
        QCOMPARE(server.emitEvent(u"after"_s, {1}), 1);
        QTRY_COMPARE_WITH_TIMEOUT(log.events.size(), 1, settle);
        QCOMPARE(log.entries, QStringList{u"event:after"_s});
        QCOMPARE(client->status(), Status::Connected);
        QCOMPARE(server.state().upgrades, 1);
    }

    void emitWhileNotConnectedIsDropped()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient client(server.url(), u"/calls"_s, defaultParams, quick());
        QVERIFY(!client.emitEvent(u"early"_s, {1}));
        client.connectToServer();
        QCOMPARE(client.status(), Status::Connecting);
        QVERIFY(!client.emitEvent(u"early"_s, {2}));
        QTRY_COMPARE_WITH_TIMEOUT(client.status(), Status::Connected, settle);
        QVERIFY(client.emitEvent(u"late"_s, {3}));
        QTRY_COMPARE_WITH_TIMEOUT(server.state().events.size(), 1, settle);
        QCOMPARE(server.state().events.first().name, u"late"_s);
    }

    // An event past the server's maxPayload (1 MB by default) would get the
    // whole connection closed; it is refused instead, and the connection lives on.
    void oversizedEmitRefused()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);
        SignalLog log(*client);

        QVERIFY(!client->emitEvent(u"big"_s, {QString(1'000'000, u'x')}));
        QVERIFY(client->emitEvent(u"fits"_s, {QString(999'000, u'x')}));
        QTRY_COMPARE_WITH_TIMEOUT(server.state().events.size(), 1, settle);
        QCOMPARE(server.state().events.first().name, u"fits"_s);
        QVERIFY(log.entries.isEmpty());
    }

    // The transport closed under a connected client: it tells, comes back by
    // itself, and carries on with the same handshake.
    void transportDropReconnects()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);
        SignalLog log(*client);

        QCOMPARE(server.dropTransports(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(log.count(u"connected"_s), 1, settle);
        QCOMPARE(log.entries, (QStringList{u"disconnected:transport close"_s, u"reconnecting"_s,
                                           u"attempt:1"_s, u"connected"_s}));
        QVERIFY(client->emitEvent(u"after"_s, {}));
        QTRY_COMPARE_WITH_TIMEOUT(server.state().events.size(), 1, settle);
        const auto state = server.state();
        QCOMPARE(state.connections.size(), 2);
        QVERIFY(!state.connections[0].connected);
        QVERIFY(state.connections[1].connected);
        QCOMPARE(state.connections[1].query, state.connections[0].query);
        QCOMPARE(state.events.first().socket, state.connections[1].id);
    }

    // The server gone: attempts at growing intervals until it is back on the same port.
    void serverGoneAndBack()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient::Options options = quick();
        options.reconnectionDelay = 100ms;
        options.reconnectionDelayMax = 400ms;
        const auto client = connectedClient(server, options);
        QVERIFY(client);
        SignalLog log(*client);

        server.stop();
        QTRY_VERIFY_WITH_TIMEOUT(log.count(u"attempt:"_s) >= 4, settle);
        QCOMPARE(client->status(), Status::Connecting);
        QVERIFY2(server.restart(), qPrintable(server.error()));
        QTRY_COMPARE_WITH_TIMEOUT(client->status(), Status::Connected, settle);

        QCOMPARE(log.entries.mid(0, 2),
                 (QStringList{u"disconnected:transport close"_s, u"reconnecting"_s}));
        QCOMPARE(log.entries.last(), u"connected"_s);
        const int attempts = log.count(u"attempt:"_s);
        QCOMPARE(log.count(u"reconnecting"_s), 1);
        QCOMPARE(log.count(u"error:"_s), 0);
        for (int n = 1; n <= attempts; ++n)
            QCOMPARE(log.entries[1 + n], u"attempt:"_s + QString::number(n));
        // 100, 200, 400, 400 ms: the waits double up to the cap. Coarse timers may
        // fire 5% early, a busy machine only makes the waits longer.
        const qint64 first = log.timeOf(u"attempt:1"_s) - log.timeOf(u"reconnecting"_s);
        const qint64 second = log.timeOf(u"attempt:2"_s) - log.timeOf(u"attempt:1"_s);
        const qint64 third = log.timeOf(u"attempt:3"_s) - log.timeOf(u"attempt:2"_s);
        QVERIFY2(first >= 90 && second >= 180 && third >= 360,
                 qPrintable(u"%1, %2, %3 ms"_s.arg(first).arg(second).arg(third)));
        QCOMPARE(server.state().connections.size(), 1);
    }

    void reconnectionGivesUp()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient::Options options = quick();
        options.reconnectionAttempts = 2;
        const auto client = connectedClient(server, options);
        QVERIFY(client);
        SignalLog log(*client);

        server.stop();
        QTRY_COMPARE_WITH_TIMEOUT(client->status(), Status::Disconnected, settle);
        QTest::qWait(500); // time for a third attempt, which must not come
        QCOMPARE(log.entries,
                 (QStringList{u"disconnected:transport close"_s, u"reconnecting"_s, u"attempt:1"_s,
                              u"attempt:2"_s, u"error:Reconnection failed"_s}));
    }

    // The first connection fails: the owner hears why, then the client keeps
    // trying (or, without reconnection, stops).
    void firstConnectionFails_data()
    {
        QTest::addColumn<bool>("reconnection");
        QTest::addColumn<QStringList>("after"); // the log after the first entry
        QTest::newRow("reconnection")
            << true
            << QStringList{u"reconnecting"_s, u"attempt:1"_s, u"error:Reconnection failed"_s};
        QTest::newRow("no reconnection") << false << QStringList{};
    }

    void firstConnectionFails()
    {
        QFETCH(bool, reconnection);
        QFETCH(QStringList, after);
        QTcpServer closed; // a port certainly free: taken, then given back
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const QUrl url(u"http://127.0.0.1:%1"_s.arg(closed.serverPort()));
        closed.close();

        SocketIoClient::Options options = quick();
        options.reconnection = reconnection;
        options.reconnectionAttempts = 1;
        SocketIoClient client(url, u"/calls"_s, defaultParams, options);
        SignalLog log(client);
        client.connectToServer();
        QTRY_COMPARE_WITH_TIMEOUT(client.status(), Status::Disconnected, settle);
        QVERIFY(!log.entries.isEmpty());
        QVERIFY2(log.entries.first().startsWith(u"error:"_s), qPrintable(log.entries.first()));
        QCOMPARE(log.entries.mid(1), after);
    }

    // disconnectFromServer() while reconnecting ends it for good: no attempt
    // reaches the server afterwards, even once it is back.
    void disconnectStopsReconnection_data()
    {
        QTest::addColumn<bool>("serverGone");
        QTest::newRow("during the first wait") << false;
        QTest::newRow("after failed attempts") << true;
    }

    void disconnectStopsReconnection()
    {
        QFETCH(bool, serverGone);
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient::Options options = quick();
        options.reconnectionDelay = serverGone ? 100ms : 1000ms;
        options.reconnectionDelayMax = 1000ms;
        const auto client = connectedClient(server, options);
        QVERIFY(client);
        SignalLog log(*client);

        if (serverGone) {
            QVERIFY(server.pause(1500ms));
            QTRY_VERIFY_WITH_TIMEOUT(log.count(u"attempt:2"_s) == 1, settle);
        } else {
            QCOMPARE(server.dropTransports(), 1);
            QTRY_COMPARE_WITH_TIMEOUT(log.count(u"reconnecting"_s), 1, settle);
        }
        const int attempts = log.count(u"attempt:"_s);
        client->disconnectFromServer();
        QCOMPARE(client->status(), Status::Disconnected);
        QTest::qWait(2500); // past the server's return and several would-be attempts
        QCOMPARE(log.count(u"attempt:"_s), attempts);
        QCOMPARE(log.count(u"connected"_s), 0);
        QCOMPARE(log.count(u"disconnected:"_s), 1); // the drop's, nothing for the stop
        QCOMPARE(server.state().upgrades, 1);
    }

    // The server refused the namespace: its words reach the owner, and the
    // client does not knock again.
    void refusedConnection_data()
    {
        QTest::addColumn<QString>("nameSpace");
        QTest::addColumn<QString>("token");
        QTest::addColumn<QString>("message");
        QTest::newRow("bad token") << u"/calls"_s << u"bad"_s << u"unauthorized: bad token"_s;
        QTest::newRow("unknown namespace") << u"/nowhere"_s << u"good"_s << u"Invalid namespace"_s;
    }

    void refusedConnection()
    {
        QFETCH(QString, nameSpace);
        QFETCH(QString, token);
        QFETCH(QString, message);
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient client(server.url(), nameSpace, {{u"token"_s, token}}, quick());
        SignalLog log(client);
        client.connectToServer();
        QTRY_COMPARE_WITH_TIMEOUT(client.status(), Status::Disconnected, settle);
        QTest::qWait(500); // several backoff waits: no attempt may follow
        QCOMPARE(log.entries, QStringList{u"error:"_s + message});
        QCOMPARE(server.state().upgrades, 1);
        QVERIFY(server.state().connections.isEmpty());
    }

    // Endings that must not bring reconnection.
    void endsWithoutReconnection_data()
    {
        QTest::addColumn<QString>("cause");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("serverReason"); // how the server saw it end
        QTest::newRow("server disconnects the namespace")
            << u"server"_s << u"io server disconnect"_s << u"server namespace disconnect"_s;
        QTest::newRow("client disconnects")
            << u"client"_s << u"io client disconnect"_s << u"client namespace disconnect"_s;
        QTest::newRow("transport drop, reconnection off")
            << u"drop"_s << u"transport close"_s << u"forced close"_s;
    }

    void endsWithoutReconnection()
    {
        QFETCH(QString, cause);
        QFETCH(QString, reason);
        QFETCH(QString, serverReason);
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient::Options options = quick();
        options.reconnection = cause != u"drop"_s;
        const auto client = connectedClient(server, options);
        QVERIFY(client);
        SignalLog log(*client);

        if (cause == u"server"_s)
            QCOMPARE(server.disconnectNameSpace(), 1);
        else if (cause == u"client"_s)
            client->disconnectFromServer();
        else
            QCOMPARE(server.dropTransports(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(client->status(), Status::Disconnected, settle);
        QTRY_COMPARE_WITH_TIMEOUT(server.state().connections.first().reason, serverReason, settle);
        QTest::qWait(500);
        QCOMPARE(log.entries, QStringList{u"disconnected:"_s + reason});
        QVERIFY(!client->emitEvent(u"after"_s, {}));
        QCOMPARE(server.state().upgrades, 1);

        // Only the owner starts again.
        client->connectToServer();
        QTRY_COMPARE_WITH_TIMEOUT(client->status(), Status::Connected, settle);
        QCOMPARE(server.state().connections.size(), 2);
    }

    // Deleting a connected client leaves the namespace properly and quietly.
    void destructionDisconnects()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        auto client = connectedClient(server);
        QVERIFY(client);
        auto log = std::make_unique<SignalLog>(*client);
        client.reset();
        QVERIFY(log->entries.isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(server.state().connections.first().reason,
                                  u"client namespace disconnect"_s, settle);
    }

    // An idle connection lives on through many heartbeats of a quick server.
    void heartbeatKeepsIdleConnection()
    {
        SocketIoTestServer server({.pingInterval = 200ms, .pingTimeout = 200ms});
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        const auto client = connectedClient(server);
        QVERIFY(client);
        SignalLog log(*client);

        QTest::qWait(2000); // ten pings; unanswered, the server would have closed after one
        QVERIFY2(log.entries.isEmpty(), qPrintable(log.entries.join(u", "_s)));
        const auto state = server.state();
        QCOMPARE(state.upgrades, 1);
        QVERIFY(state.connections.first().connected);
    }

    // A server that stops answering (its process frozen, TCP still open) is
    // given up on after pingInterval + pingTimeout; the client comes back once
    // it answers again, its attempts in between bounded by connectTimeout.
    void silentServerDetected()
    {
        SocketIoTestServer server({.pingInterval = 200ms, .pingTimeout = 200ms});
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        SocketIoClient::Options options = quick();
        options.connectTimeout = 300ms;
        const auto client = connectedClient(server, options);
        QVERIFY(client);
        SignalLog log(*client);

        QElapsedTimer silence;
        QVERIFY(server.freeze());
        silence.start();
        QTRY_COMPARE_WITH_TIMEOUT(log.count(u"disconnected:"_s), 1, settle);
        const qint64 noticed = silence.elapsed();
        QCOMPARE(log.entries.first(), u"disconnected:ping timeout"_s);
        QVERIFY2(noticed <= 2000, qPrintable(QString::number(noticed)));
        // Attempts against the frozen server time out one after the other.
        QTRY_VERIFY_WITH_TIMEOUT(log.count(u"attempt:2"_s) == 1, settle);
        QCOMPARE(client->status(), Status::Connecting);

        QVERIFY(server.thaw());
        QTRY_COMPARE_WITH_TIMEOUT(client->status(), Status::Connected, settle);
        QCOMPARE(log.entries.mid(1, 2), (QStringList{u"reconnecting"_s, u"attempt:1"_s}));
        QCOMPARE(log.count(u"error:"_s), 0);
    }

    void connectTimeout()
    {
        SocketIoTestServer server;
        QVERIFY2(server.isRunning(), qPrintable(server.error()));
        QVERIFY(server.freeze());
        SocketIoClient::Options options = quick();
        options.reconnection = false;
        options.connectTimeout = 300ms;
        SocketIoClient client(server.url(), u"/calls"_s, defaultParams, options);
        SignalLog log(client);
        QElapsedTimer waited;
        waited.start();
        client.connectToServer();
        QTRY_COMPARE_WITH_TIMEOUT(client.status(), Status::Disconnected, settle);
        QVERIFY2(waited.elapsed() >= 270, qPrintable(QString::number(waited.elapsed())));
        QCOMPARE(log.entries, QStringList{u"error:Connection timed out"_s});
        QVERIFY(server.thaw());
    }
};

QTEST_GUILESS_MAIN(SocketIoClientTest)
#include "SocketIoClientTest.moc"

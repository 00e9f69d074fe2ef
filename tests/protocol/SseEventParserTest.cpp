// The event-stream parser: the same events whatever the reads' split, both
// line ends, comments, multi-line data, and a cap on an event that never ends.
#include "protocol/SseEventParser.h"

#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(QList<SseEvent>)

namespace {

SseEvent sseEvent(const QString& type, const QByteArray& data, const QString& id = {})
{
    SseEvent result;
    result.type = type;
    result.data = data;
    result.id = id;
    return result;
}

QList<SseEvent> feedInPieces(const QByteArray& stream, QList<qsizetype> cuts)
{
    SseEventParser parser;
    QList<SseEvent> events;
    qsizetype from = 0;
    cuts.append(stream.size());
    for (const qsizetype cut : cuts) {
        events += parser.feed(QByteArrayView(stream).sliced(from, cut - from));
        from = cut;
    }
    return events;
}

} // namespace

class SseEventParserTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void streams_data()
    {
        QTest::addColumn<QByteArray>("stream");
        QTest::addColumn<QList<SseEvent>>("events");

        const QByteArray endpoint = "/message?sessionId=29f3";
        QTest::newRow("endpoint as the reference server sends it")
            << "event: endpoint\ndata: /message?sessionId=29f3\n\n"_ba
            << QList{sseEvent(u"endpoint"_s, endpoint)};
        QTest::newRow("CRLF line ends")
            << "event: endpoint\r\ndata: /message?sessionId=29f3\r\n\r\n"_ba
            << QList{sseEvent(u"endpoint"_s, endpoint)};
        QTest::newRow("lone CR line ends")
            << "data: a\rdata: b\r\r"_ba << QList{sseEvent(u"message"_s, "a\nb")};
        QTest::newRow("comments are no part of events")
            << ": keep-alive\n\ndata: {\"id\":1}\n: more\n\n"_ba
            << QList{sseEvent(u"message"_s, "{\"id\":1}")};
        QTest::newRow("multi-line data joined by LF")
            << "data: {\ndata:  \"a\": 1\ndata: }\n\n"_ba
            << QList{sseEvent(u"message"_s, "{\n \"a\": 1\n}")};
        QTest::newRow("only one space after the colon is stripped")
            << "data:x\n\ndata:  y\n\n"_ba
            << QList{sseEvent(u"message"_s, "x"), sseEvent(u"message"_s, " y")};
        QTest::newRow("two events with ids")
            << "id: 1\ndata: one\n\nevent: message\nid: 2\ndata: two\n\n"_ba
            << QList{sseEvent(u"message"_s, "one", u"1"_s), sseEvent(u"message"_s, "two", u"2"_s)};
        QTest::newRow("an event without data is none")
            << "event: endpoint\n\ndata: x\n\n"_ba << QList{sseEvent(u"message"_s, "x")};
        QTest::newRow("a field without a colon")
            << "data\ndata\n\n"_ba << QList{sseEvent(u"message"_s, "\n")};
        QTest::newRow("unknown fields and retry are ignored")
            << "retry: 10\nfoo: bar\ndata: x\n\n"_ba << QList{sseEvent(u"message"_s, "x")};
        QTest::newRow("unfinished event waits") << "data: x\n"_ba << QList<SseEvent>();
        QTest::newRow("byte-order mark at the start") << "\xEF\xBB\xBF"
                                                         "data: x\n\n"_ba
                                                      << QList{sseEvent(u"message"_s, "x")};
        QTest::newRow("UTF-8 kept as bytes")
            << "data: Grüße ✓\n\n"_ba << QList{sseEvent(u"message"_s, "Grüße ✓")};
    }

    // Every split in two and a read per byte give the events of one read.
    void streams()
    {
        QFETCH(QByteArray, stream);
        QFETCH(QList<SseEvent>, events);

        QCOMPARE(feedInPieces(stream, {}), events);
        for (qsizetype cut = 1; cut < stream.size(); ++cut)
            QCOMPARE(feedInPieces(stream, {cut}), events);
        QList<qsizetype> everyByte;
        for (qsizetype cut = 1; cut < stream.size(); ++cut)
            everyByte.append(cut);
        QCOMPARE(feedInPieces(stream, everyByte), events);
    }

    void eventsAreGivenAsSoonAsTheyEnd()
    {
        SseEventParser parser;
        QCOMPARE(parser.feed("data: a\n"), QList<SseEvent>());
        QCOMPARE(parser.feed("\ndata: b"), QList{sseEvent(u"message"_s, "a")});
        // The CR ends the line, and the LF that follows in the next read is its own.
        QCOMPARE(parser.feed("\r"), QList<SseEvent>());
        QCOMPARE(parser.feed("\n\r\n"), QList{sseEvent(u"message"_s, "b")});
    }

    void cap_data()
    {
        QTest::addColumn<QByteArray>("stream");
        QTest::addColumn<bool>("fails");

        QTest::newRow("data lines past the cap")
            << QByteArray("data: 0123456789\n").repeated(10) << true;
        QTest::newRow("one endless line") << "data: " + QByteArray(200, 'x') << true;
        QTest::newRow("many small events under the cap")
            << QByteArray("data: 0123456789\n\n").repeated(100) << false;
    }

    void cap()
    {
        QFETCH(QByteArray, stream);
        QFETCH(bool, fails);

        SseEventParser parser(100);
        for (qsizetype at = 0; at < stream.size(); at += 7)
            parser.feed(QByteArrayView(stream).sliced(at, qMin<qsizetype>(7, stream.size() - at)));
        QCOMPARE(parser.failed(), fails);
        QVERIFY(parser.bufferedSize() <= 100);
        if (fails) {
            QVERIFY(parser.error().contains(u"more than 100 bytes"_s));
            QCOMPARE(parser.feed("\n\ndata: x\n\n"), QList<SseEvent>());
        }
    }
};

QTEST_GUILESS_MAIN(SseEventParserTest)
#include "SseEventParserTest.moc"

#include "account/CallRecords.h"

#include "JsonEdit.h"
#include "account/CallPresentation.h"

#include <QJsonDocument>
#include <QTest>

#include <cmath>
#include <ctime>
#include <limits>

using namespace Qt::StringLiterals;
using CallPresentation::SortOrder;

namespace {

// Two calls using every key the backend may send, in every form it may send them.
const QByteArray fixture =
    "{\"success\": true, \"count\": 2, \"data\": ["
    "{\"id\": \"c1\", \"user_id\": \"u1\", \"direction\": \"outbound\", \"status\": \"completed\","
    " \"created_at\": \"2026-03-04T09:30:00.123456Z\","
    " \"updated_at\": \"2026-03-04T10:00:00.123+02:00\", \"last_saved\": \"2026-03-04T10:00:00Z\","
    " \"transcription\": {\"id\": \"t1\", \"text\": \"Hello there\", \"duration\": 754,"
    "  \"confidence\": 0.93, \"created_at\": \"2026-03-04T10:00:00.000Z\", \"segments\": ["
    "  {\"start_time\": 0, \"end_time\": 2.5, \"speaker\": \"Speaker 1\", \"text\": \"Hello\"},"
    "  {\"start_time\": 2.5, \"end_time\": 4, \"speaker\": \"Speaker 2\", \"text\": \"there\"}]},"
    " \"summary\": {\"content\": \"Pricing call\", \"key_points\": [\"Budget\", \"Pilot\"],"
    "  \"action_items\": [{\"description\": \"Send the proposal\", \"assignee\": \"Dana\","
    "   \"priority\": \"high\", \"deadline\": \"Friday\"},"
    "   {\"description\": \"Book a demo\", \"priority\": \"low\"}, \"Follow up next week\"],"
    "  \"sentiment\": \"positive\", \"created_at\": \"2026-03-04T10:00:00.000Z\","
    "  \"sentiment_score\": -0.25, \"topics\": [{\"topic\": \"pricing\", \"importance\": 0.8,"
    "  \"mentions\": 3}], \"speakers\": [{\"name\": \"Dana\", \"role\": \"Buyer\","
    "  \"mainContributions\": [\"Asked about pricing\"]},"
    "  {\"name\": \"Sam\", \"mainContributions\": []}]},"
    " \"messages\": [{\"id\": \"m1\", \"content\": \"search pricing\","
    "  \"timestamp\": \"2026-03-04T09:40:00.000Z\", \"role\": \"user\"},"
    "  {\"id\": \"m2\", \"content\": \"Found it\", \"timestamp\": \"2026-03-04T09:40:01.500Z\","
    "   \"role\": \"assistant\", \"tool_calls\": [{\"name\": \"search\", \"arguments\": {\"q\": "
    "1}}],"
    "   \"metadata\": {\"processing_time\": 1.25, \"type\": \"tool\"}}],"
    " \"message_count\": 2, \"duration_seconds\": 754, \"call_duration\": \"12:34\"},"
    "{\"id\": \"c2\", \"user_id\": \"u1\", \"direction\": \"inbound\", \"status\": \"failed\","
    " \"created_at\": \"2026-03-03T08:00:00Z\", \"updated_at\": \"2026-03-03T08:00:00Z\","
    " \"last_saved\": \"2026-03-03T08:00:00Z\","
    " \"decryption_error\": \"Unable to decrypt call contents\", \"call_duration\": 65}]}";

QJsonObject fixtureObject()
{
    return QJsonDocument::fromJson(fixture).object();
}

Decoded<CallHistoryResponse> decode(const QJsonObject& object)
{
    return CallRecords::decodeResponse(QJsonDocument(object).toJson());
}

QDateTime local(int year, int month, int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

UserCallData call(const QString& id, const QString& createdAt, const QString& status,
                  std::optional<UserCallData::CallDuration> duration)
{
    UserCallData call;
    call.id = id;
    call.status = status;
    call.createdAt = *RecordDate::parse(createdAt);
    call.callDuration = std::move(duration);
    return call;
}

} // namespace

class CallRecordsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Local time away from UTC (a POSIX rule, so no time-zone database is
    // needed), so that mixing up UTC and local time shows.
    void initTestCase()
    {
        qputenv("TZ", "QST-5:30");
        tzset();
        QCOMPARE(QDateTime(QDate(2026, 3, 4), QTime(0, 0), Qt::UTC).toLocalTime().time(),
                 QTime(5, 30));
    }

    // Everything decoded is written back exactly; nothing is lost or invented.
    void roundTrip()
    {
        const Decoded<CallHistoryResponse> decoded = CallRecords::decodeResponse(fixture);
        QVERIFY2(decoded.ok(), qPrintable(decoded.error.description));
        QCOMPARE(CallRecords::encode(*decoded.value), fixtureObject());
        QCOMPARE(decode(CallRecords::encode(*decoded.value)).value, decoded.value);
        const QList<UserCallData> calls = decoded.value->data;
        QCOMPARE(CallRecords::decodeCalls(CallRecords::encodeCalls(calls)).value, calls);

        const UserCallData& first = calls.at(0);
        QCOMPARE(first.createdAt.text, u"2026-03-04T09:30:00.123456Z"_s);
        QCOMPARE(first.updatedAt.moment,
                 QDateTime(QDate(2026, 3, 4), QTime(8, 0, 0, 123), Qt::UTC));
        const QList<ActionItem> items = first.summary->actionItems;
        QCOMPARE(items.at(0).priority, ActionItem::Priority::High);
        QVERIFY(items.at(2).isPlainText && !items.at(2).priority);
        QCOMPARE(first.callDuration, UserCallData::CallDuration(u"12:34"_s));
        QCOMPARE(calls.at(1).callDuration, UserCallData::CallDuration(65.0));
    }

    void decodingErrors_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QJsonValue>("replacement"); // Undefined: the key is removed
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("codingPath");
        QTest::addColumn<QString>("keyOrType");
        const QJsonValue removed(QJsonValue::Undefined);
        const auto row = [](const char* name, const QString& path, const QJsonValue& replacement,
                            const QString& kind, const QString& codingPath, const QString& detail) {
            QTest::newRow(name) << path << replacement << kind << codingPath << detail;
        };
        const QString missing = u"key_not_found"_s;
        const QString mismatch = u"type_mismatch"_s;
        const QString null = u"value_not_found"_s;
        const QString corrupted = u"data_corrupted"_s;
        row("top-level key", u"success"_s, removed, missing, u""_s, u"success"_s);
        row("key of a call", u"data[1].user_id"_s, removed, missing, u"data[1]"_s, u"user_id"_s);
        row("key of metadata", u"data[0].messages[1].metadata.processing_time"_s, removed, missing,
            u"data[0].messages[1].metadata"_s, u"processing_time"_s);
        row("priority of an item", u"data[0].summary.action_items[1].priority"_s, removed, missing,
            u"data[0].summary.action_items[1]"_s, u"priority"_s);
        row("number for a string", u"data[0].summary.key_points[1]"_s, 5, mismatch,
            u"data[0].summary.key_points[1]"_s, u"String"_s);
        row("text for a Bool", u"success"_s, u"true"_s, mismatch, u"success"_s, u"Bool"_s);
        row("object for a list", u"data"_s, QJsonObject(), mismatch, u"data"_s, u"Array"_s);
        row("list for a record", u"data[0].summary"_s, QJsonArray(), mismatch, u"data[0].summary"_s,
            u"CallSummaryData"_s);
        row("number for an item", u"data[0].summary.action_items[0]"_s, 7, mismatch,
            u"data[0].summary.action_items[0]"_s, u"ActionItem"_s);
        row("Bool for a duration", u"data[1].call_duration"_s, true, mismatch,
            u"data[1].call_duration"_s, u"String or Double"_s);
        row("null required text", u"data[0].status"_s, QJsonValue(), null, u"data[0].status"_s,
            u"String"_s);
        row("null in a list", u"data[0].summary.key_points[0]"_s, QJsonValue(), null,
            u"data[0].summary.key_points[0]"_s, u"String"_s);
        row("null call", u"data[1]"_s, QJsonValue(), null, u"data[1]"_s, u"UserCallData"_s);
        row("fraction for an Int", u"data[0].message_count"_s, 2.5, corrupted,
            u"data[0].message_count"_s, u""_s);
        row("date without a zone", u"data[0].created_at"_s, u"2026-03-04T09:30:00"_s, corrupted,
            u"data[0].created_at"_s, u""_s);
        row("unknown priority", u"data[0].summary.action_items[0].priority"_s, u"urgent"_s,
            corrupted, u"data[0].summary.action_items[0].priority"_s, u""_s);
    }

    void decodingErrors()
    {
        QFETCH(QString, path);
        QFETCH(QJsonValue, replacement);
        QFETCH(QString, kind);
        QFETCH(QString, codingPath);
        QFETCH(QString, keyOrType);
        const Decoded<CallHistoryResponse> decoded =
            decode(JsonEdit::edited(fixtureObject(), path, replacement));
        QVERIFY(!decoded.ok());
        QCOMPARE(decoded.error.kindName(), kind);
        QCOMPARE(decoded.error.codingPath, codingPath);
        QCOMPARE(kind == u"key_not_found"_s ? decoded.error.key : decoded.error.expectedType,
                 keyOrType);
        QVERIFY(!decoded.error.description.isEmpty());
    }

    // The first problem in document order is the one reported.
    void firstErrorWins()
    {
        QJsonObject broken = JsonEdit::edited(fixtureObject(), u"data[1].id"_s, 1);
        broken = JsonEdit::edited(broken, u"data[0].summary.topics[0].topic"_s, {});
        const Decoded<CallHistoryResponse> decoded = decode(broken);
        QCOMPARE(decoded.error.codingPath, u"data[0].summary.topics[0].topic"_s);
    }

    void unusableDocuments_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("kind");
        QTest::newRow("empty") << QByteArray() << u"data_corrupted"_s;
        QTest::newRow("HTML") << QByteArray("<html>Bad gateway</html>") << u"data_corrupted"_s;
        QTest::newRow("cut short") << fixture.left(fixture.size() / 2) << u"data_corrupted"_s;
        QTest::newRow("array at the top") << QByteArray("[]") << u"type_mismatch"_s;
    }

    void unusableDocuments()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, kind);
        const Decoded<CallHistoryResponse> decoded = CallRecords::decodeResponse(body);
        QVERIFY(!decoded.ok());
        QCOMPARE(decoded.error.kindName(), kind);
        QCOMPARE(decoded.error.codingPath, QString());
    }

    // Missing and null optional keys both decode as absent, and are left out
    // when written back.
    void optionalKeys_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QJsonValue>("replacement");
        for (const char* path :
             {"error", "data[0].transcription", "data[0].summary", "data[0].messages",
              "data[0].message_count", "data[1].decryption_error", "data[0].duration_seconds",
              "data[0].call_duration", "data[0].summary.sentiment_score", "data[0].summary.topics",
              "data[0].summary.speakers", "data[0].summary.speakers[0].role",
              "data[0].summary.action_items[0].assignee",
              "data[0].summary.action_items[0].deadline", "data[0].messages[0].role",
              "data[0].messages[1].tool_calls", "data[0].messages[1].metadata"}) {
            QTest::addRow("%s missing", path)
                << QString::fromLatin1(path) << QJsonValue(QJsonValue::Undefined);
            QTest::addRow("%s null", path) << QString::fromLatin1(path) << QJsonValue();
        }
    }

    void optionalKeys()
    {
        QFETCH(QString, path);
        QFETCH(QJsonValue, replacement);
        const Decoded<CallHistoryResponse> decoded =
            decode(JsonEdit::edited(fixtureObject(), path, replacement));
        QVERIFY2(decoded.ok(), qPrintable(decoded.error.description));
        QCOMPARE(CallRecords::encode(*decoded.value),
                 JsonEdit::edited(fixtureObject(), path, QJsonValue(QJsonValue::Undefined)));
    }

    void dates_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("moment"); // invalid: refused
        const auto utc = [](int hour, int minute, int ms) {
            return QDateTime(QDate(2026, 3, 4), QTime(hour, minute, 0, ms), Qt::UTC);
        };
        QTest::newRow("microseconds") << u"2026-03-04T09:30:00.123456Z"_s << utc(9, 30, 123);
        QTest::newRow("milliseconds") << u"2026-03-04T09:30:00.123Z"_s << utc(9, 30, 123);
        QTest::newRow("whole seconds") << u"2026-03-04T09:30:00Z"_s << utc(9, 30, 0);
        QTest::newRow("east of UTC") << u"2026-03-04T09:30:00.500+02:00"_s << utc(7, 30, 500);
        QTest::newRow("west of UTC") << u"2026-03-04T09:30:00-05:30"_s << utc(15, 0, 0);
        QTest::newRow("day before in UTC") << u"2026-03-05T01:00:00+02:00"_s << utc(23, 0, 0);
        for (const char* refused :
             {"2026-03-04T09:30:00", "2026-03-04T09:30:00.12Z", "2026-03-04T09:30:00.1234Z",
              "2026-03-04T09:30:00.1234567Z", "2026-03-04 09:30:00Z", "2026-03-04T09:30:00+0200",
              "2026-03-04T09:30:00+02", "2026-02-30T09:30:00Z", "2026-03-04T24:00:00Z",
              "2026-03-04T09:30:60Z", "2026-03-04", "", " 2026-03-04T09:30:00Z",
              "2026-03-04T09:30:00z"}) {
            QTest::addRow("refuses \"%s\"", refused) << QString::fromLatin1(refused) << QDateTime();
        }
    }

    void dates()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, moment);
        const std::optional<RecordDate> date = RecordDate::parse(text);
        QCOMPARE(date.has_value(), moment.isValid());
        if (date) {
            QCOMPARE(date->moment, moment);
            QCOMPARE(date->text, text);
        }
    }

    void displayDate_data()
    {
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<QDateTime>("moment");
        QTest::addColumn<QString>("text");
        const QDateTime morning = local(2026, 3, 4, 0, 0, 30);
        QTest::newRow("today") << local(2026, 3, 4, 15, 10) << local(2026, 3, 4, 15, 5)
                               << u"Today 3:05 PM"_s;
        QTest::newRow("midnight today")
            << morning << local(2026, 3, 4, 0, 0) << u"Today 12:00 AM"_s;
        QTest::newRow("before midnight")
            << morning << local(2026, 3, 3, 23, 59) << u"Yesterday 11:59 PM"_s;
        QTest::newRow("start of yesterday")
            << local(2026, 3, 4, 23, 59) << local(2026, 3, 3, 0, 0) << u"Yesterday 12:00 AM"_s;
        QTest::newRow("two days ago")
            << morning << local(2026, 3, 2, 23, 59, 59) << u"Mar 2, 11:59 PM"_s;
        QTest::newRow("leap day") << local(2028, 3, 1, 8, 0) << local(2028, 2, 29, 20, 15)
                                  << u"Yesterday 8:15 PM"_s;
        const QDateTime newYear = local(2026, 1, 1, 0, 10);
        QTest::newRow("new year's eve")
            << newYear << local(2025, 12, 31, 23, 50) << u"Yesterday 11:50 PM"_s;
        QTest::newRow("last year")
            << newYear << local(2025, 12, 30, 9, 5) << u"Dec 30, 2025 9:05 AM"_s;
        QTest::newRow("a year ago today")
            << local(2026, 3, 4, 10, 0) << local(2025, 3, 4, 10, 0) << u"Mar 4, 2025 10:00 AM"_s;
    }

    // The same moment in UTC reads the same: display is always in local time.
    void displayDate()
    {
        QFETCH(QDateTime, now);
        QFETCH(QDateTime, moment);
        QFETCH(QString, text);
        QCOMPARE(CallPresentation::displayDate(moment, now), text);
        QCOMPARE(CallPresentation::displayDate(moment.toUTC(), now.toUTC()), text);
    }

    void displayDuration_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << 0.0 << u"0:00"_s;
        QTest::newRow("rounded up") << 59.5 << u"1:00"_s;
        QTest::newRow("minutes") << 725.0 << u"12:05"_s;
        QTest::newRow("just under an hour") << 3599.0 << u"59:59"_s;
        QTest::newRow("an hour") << 3600.0 << u"1:00:00"_s;
        QTest::newRow("hours") << 3723.0 << u"1:02:03"_s;
        QTest::newRow("negative") << -1.0 << QString();
        QTest::newRow("not a number") << std::nan("") << QString();
    }

    void displayDuration()
    {
        QFETCH(double, seconds);
        QFETCH(QString, text);
        QCOMPARE(CallPresentation::displayDuration(seconds), text);
    }

    void callDuration_data()
    {
        QTest::addColumn<QJsonValue>("durationSeconds");
        QTest::addColumn<QJsonValue>("callDuration");
        QTest::addColumn<QVariant>("seconds"); // invalid: none
        const QJsonValue none(QJsonValue::Undefined);
        QTest::newRow("seconds win")
            << QJsonValue(754.5) << QJsonValue(u"1:00"_s) << QVariant(754.5);
        QTest::newRow("numeric text") << none << QJsonValue(65) << QVariant(65.0);
        QTest::newRow("m:ss") << none << QJsonValue(u"12:05"_s) << QVariant(725.0);
        QTest::newRow("h:mm:ss") << none << QJsonValue(u"1:02:03"_s) << QVariant(3723.0);
        QTest::newRow("seconds past 59") << none << QJsonValue(u"12:75"_s) << QVariant();
    }

    void callDuration()
    {
        QFETCH(QJsonValue, durationSeconds);
        QFETCH(QJsonValue, callDuration);
        QFETCH(QVariant, seconds);
        QJsonObject record = fixtureObject().value(u"data"_s).toArray().at(1).toObject();
        record.insert(u"duration_seconds"_s, durationSeconds);
        record.insert(u"call_duration"_s, callDuration);
        const Decoded<QList<UserCallData>> decoded = CallRecords::decodeCalls(QJsonArray{record});
        QVERIFY(decoded.ok());
        const std::optional<double> found = decoded.value->first().durationInSeconds();
        QCOMPARE(found.has_value(), seconds.isValid());
        if (found) {
            QCOMPARE(*found, seconds.toDouble());
        }
    }

    void sortOrders_data()
    {
        QTest::addColumn<QString>("cliName");
        QTest::addColumn<QString>("expected");
        QTest::newRow("newest") << u"newest"_s << u"e b a c d"_s;
        QTest::newRow("oldest") << u"oldest"_s << u"d a c b e"_s;
        QTest::newRow("duration") << u"duration"_s << u"c a d b e"_s;
        QTest::newRow("status") << u"status"_s << u"c e a d b"_s;
    }

    // a and c were made at the same moment, a and d last equally long, b and e
    // have no duration: ties keep the order the backend sent.
    void sortOrders()
    {
        QFETCH(QString, cliName);
        QFETCH(QString, expected);
        const QList<UserCallData> calls = {
            call(u"a"_s, u"2026-03-04T10:00:00Z"_s, u"completed"_s, 600.0),
            call(u"b"_s, u"2026-03-04T12:00:00Z"_s, u"failed"_s, std::nullopt),
            call(u"c"_s, u"2026-03-04T10:00:00Z"_s, u"active"_s, u"12:05"_s),
            call(u"d"_s, u"2026-03-01T10:00:00Z"_s, u"completed"_s, u"10:00"_s),
            call(u"e"_s, u"2026-03-05T10:00:00Z"_s, u"Completed"_s, std::nullopt),
        };
        const std::optional<SortOrder> order = CallPresentation::sortOrderFromCliName(cliName);
        QVERIFY(order.has_value());
        QCOMPARE(CallPresentation::cliName(*order), cliName);
        QStringList ids;
        for (const UserCallData& sorted : CallPresentation::sorted(calls, *order)) {
            ids.append(sorted.id);
        }
        QCOMPARE(ids.join(u' '), expected);
        QCOMPARE(CallPresentation::sortOrderFromCliName(u"Newest"_s), std::nullopt);
    }

    void actionItemsMarkdown_data()
    {
        QTest::addColumn<QByteArray>("items"); // empty: the call has no summary
        QTest::addColumn<QString>("bullets");
        QTest::newRow("no summary") << QByteArray() << u"_No action items._\n"_s;
        QTest::newRow("no items") << QByteArray("[]") << u"_No action items._\n"_s;
        QTest::newRow("every field")
            << QByteArray("[{\"description\": \"Send the proposal\", \"assignee\": \"Dana\","
                          " \"priority\": \"high\", \"deadline\": \"Friday\"}]")
            << u"- [ ] Send the proposal — Dana (priority: high) (due: Friday)\n"_s;
        QTest::newRow("priority only")
            << QByteArray("[{\"description\": \"Book a demo\", \"priority\": \"medium\"},"
                          " \"Follow up\"]")
            << u"- [ ] Book a demo (priority: medium)\n- [ ] Follow up\n"_s;
        QTest::newRow("line breaks")
            << QByteArray("[{\"description\": \"Call Dana\\r\\n  about pricing\\n\","
                          " \"priority\": \"low\", \"assignee\": \"\"}]")
            << u"- [ ] Call Dana about pricing (priority: low)\n"_s;
    }

    void actionItemsMarkdown()
    {
        QFETCH(QByteArray, items);
        QFETCH(QString, bullets);
        QJsonObject record = fixtureObject().value(u"data"_s).toArray().at(0).toObject();
        if (items.isEmpty()) {
            record.remove(u"summary"_s);
        } else {
            QJsonObject summary = record.value(u"summary"_s).toObject();
            summary.insert(u"action_items"_s, QJsonDocument::fromJson(items).array());
            record.insert(u"summary"_s, summary);
        }
        const Decoded<QList<UserCallData>> decoded = CallRecords::decodeCalls(QJsonArray{record});
        QVERIFY(decoded.ok());
        QCOMPARE(CallPresentation::actionItemsMarkdown(decoded.value->first()),
                 u"# Action Items from Call\n\n"_s + bullets);
    }
};

QTEST_GUILESS_MAIN(CallRecordsTest)
#include "CallRecordsTest.moc"

#include "session/LiveSessionRecords.h"

#include "../account/JsonEdit.h"
#include "LogCapture.h"
#include "SummaryText.h"
#include "session/SummaryModelError.h"

#include <QJsonArray>
#include <QLoggingCategory>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace LiveSession;
using SummaryText::describe;

namespace {

const QString fullSummary =
    u"{'overview':'Pricing call','keyPoints':['Budget approved','',7,'Pilot in May'],"
    "'speakers':[{'name':'Dana','role':'Buyer','mainContributions':['Asked about pricing']},"
    "{'name':'Sam'}],"
    "'actionItems':[{'description':'Send the proposal','assignee':'Sam','priority':'high',"
    "'deadline':'Friday'},{'description':'Book a demo','priority':'low'}],"
    "'topics':[{'topic':'pricing','importance':0.8,'mentions':3}],"
    "'sentiment':{'overall':'positive','score':0.6},'duration':'12:34','confidence':0.9}"_s;

const QStringList fullLines{
    u"overview:Pricing call"_s,  u"key:Budget approved"_s,
    u"key:Pilot in May"_s,       u"speaker:Dana|Buyer|Asked about pricing"_s,
    u"speaker:Sam||"_s,          u"item:Send the proposal|high|Sam|Friday"_s,
    u"item:Book a demo|low||"_s, u"topic:pricing|0.8|3"_s,
    u"sentiment:positive|0.6"_s, u"duration:12:34"_s,
    u"confidence:0.9"_s,
};

const QString receivedAnswer =
    u"{'success':true,'timestamp':'2026-03-04T10:00:00Z','processed':true,'unknown':1,"
    "'summary':{'callId':'c1','timestamp':'2026-03-04T10:00:00Z','processedSegments':4,"
    "'summary':{'overview':'Pricing call'}}}"_s;

QStringList entryLines(const QStringList& lines)
{
    QStringList entries;
    for (const QString& line : lines) {
        if (line.startsWith(u"speaker:"_s) || line.startsWith(u"item:"_s) ||
            line.startsWith(u"topic:"_s)) {
            entries.append(line);
        }
    }
    return entries;
}

} // namespace

class LiveSessionRecordsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"com.quillmoss.*.debug=true"_s); }

    void summaryPayloads_data()
    {
        QTest::addColumn<QString>("payload");
        QTest::addColumn<QStringList>("summary");
        QTest::addColumn<QString>("callId");        // "-": absent
        QTest::addColumn<int>("processedSegments"); // -1: absent
        QTest::addColumn<QStringList>("log");
        const QString direct = u"Using data as direct summary"_s;
        const QString neutral = u"😐 Default sentiment: neutral"_s;
        const QStringList defaultOnly{u"sentiment:default"_s};

        QTest::newRow("nested") << u"{'callId':'c1','processedSegments':4,'summary':"_s +
                                       fullSummary + u'}'
                                << fullLines << u"c1"_s << 4
                                << QStringList{u"✅ Using nested summary data"_s};
        QTest::newRow("direct") << u"{'callId':'c1','processedSegments':4,"_s + fullSummary.mid(1)
                                << fullLines << u"c1"_s << 4 << QStringList{direct};
        QTest::newRow("without sentiment")
            << u"{'overview':'Hi'}"_s << QStringList{u"overview:Hi"_s, u"sentiment:default"_s}
            << u"-"_s << -1 << QStringList{direct, neutral};
        QTest::newRow("sentiment as bare text")
            << u"{'sentiment':' Negative '}"_s << QStringList{u"sentiment:negative|0"_s} << u"-"_s
            << -1 << QStringList{direct};
        QTest::newRow("unknown sentiment")
            << u"{'sentiment':{'overall':'ecstatic','score':0.9}}"_s << defaultOnly << u"-"_s << -1
            << QStringList{direct, neutral};
        QTest::newRow("integers for doubles")
            << u"{'topics':[{'topic':'t','importance':1,'mentions':2}],'confidence':1,"
               "'sentiment':{'overall':'neutral','score':1},'processedSegments':3.0}"_s
            << QStringList{u"topic:t|1|2"_s, u"sentiment:neutral|1"_s, u"confidence:1"_s} << u"-"_s
            << 3 << QStringList{direct};
        QTest::newRow("nulls are absent")
            << u"{'overview':null,'keyPoints':null,'speakers':[{'name':'Dana','role':null}],"
               "'actionItems':[{'description':'Call back','assignee':null,'deadline':null,"
               "'priority':null}],'sentiment':null,'confidence':null,'callId':null,"
               "'processedSegments':null}"_s
            << QStringList{u"speaker:Dana||"_s, u"item:Call back|medium||"_s,
                           u"sentiment:default"_s}
            << u"-"_s << -1 << QStringList{direct, neutral};
        QTest::newRow("other types are absent")
            << u"{'overview':5,'keyPoints':'Budget','speakers':{},'topics':'pricing',"
               "'duration':754,'confidence':'high','callId':7,'processedSegments':'4'}"_s
            << defaultOnly << u"-"_s << -1
            << QStringList{direct, u"❌ 'speakers' is not a list: {}"_s,
                           u"❌ 'topics' is not a list: \"pricing\""_s, neutral};
        QTest::newRow("priorities")
            << u"{'actionItems':[{'description':'A','priority':'HIGH '},"
               "{'description':'B','priority':'urgent'},{'description':'C'},'D']}"_s
            << QStringList{u"item:A|high||"_s, u"item:B|medium||"_s, u"item:C|medium||"_s,
                           u"item:D|medium||"_s, u"sentiment:default"_s}
            << u"-"_s << -1 << QStringList{direct, neutral};
        QTest::newRow("blank optional texts")
            << u"{'speakers':[{'name':'Dana','role':'  '}],"
               "'actionItems':[{'description':'Call','assignee':'','deadline':' '}]}"_s
            << QStringList{u"speaker:Dana||"_s, u"item:Call|medium||"_s, u"sentiment:default"_s}
            << u"-"_s << -1 << QStringList{direct, neutral};
        QTest::newRow("summary key that is not an object")
            << u"{'summary':'Short call','overview':'Long call'}"_s
            << QStringList{u"overview:Long call"_s, u"sentiment:default"_s} << u"-"_s << -1
            << QStringList{direct, neutral};
    }

    void summaryPayloads()
    {
        QFETCH(QString, payload);
        QFETCH(QStringList, summary);
        QFETCH(QString, callId);
        QFETCH(int, processedSegments);
        QFETCH(QStringList, log);
        const LogCapture capture;
        const Decoded<SummaryUpdate> decoded = decodeSummaryPayload(SummaryText::object(payload));
        QVERIFY(decoded.ok());
        QCOMPARE(describe(decoded.value->summary), summary);
        QCOMPARE(decoded.value->callId.value_or(u"-"_s), callId);
        QCOMPARE(decoded.value->processedSegments.value_or(-1), processedSegments);
        QCOMPARE(capture.lines({u"❌"_s, u"✅ Using"_s, u"Using"_s, u"😐"_s}), log);
    }

    // A malformed entry is reported with the entry itself and dropped alone.
    void malformedEntries_data()
    {
        QTest::addColumn<QString>("payload");
        QTest::addColumn<QStringList>("kept");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("topic that is not an object")
            << u"{'topics':[5,{'topic':'pricing','importance':0.5,'mentions':1},['x']]}"_s
            << QStringList{u"topic:pricing|0.5|1"_s}
            << QStringList{u"❌ Topic at index 0 is not a dictionary: 5"_s,
                           u"✅ Successfully parsed topic: "
                           "{\"importance\":0.5,\"mentions\":1,\"topic\":\"pricing\"}"_s,
                           u"❌ Topic at index 2 is not a dictionary: [\"x\"]"_s};
        QTest::newRow("topic missing fields")
            << u"{'topics':[{'importance':0.5},{'topic':'ok','importance':1,'mentions':0}]}"_s
            << QStringList{u"topic:ok|1|0"_s}
            << QStringList{u"❌ Topic missing 'topic' field: {\"importance\":0.5}"_s,
                           u"❌ Topic missing 'mentions' field: {\"importance\":0.5}"_s,
                           u"✅ Successfully parsed topic: "
                           "{\"importance\":1,\"mentions\":0,\"topic\":\"ok\"}"_s};
        const QString odd = u"{\"importance\":\"high\",\"mentions\":2.5,\"topic\":\"\"}"_s;
        QTest::newRow("topic fields of other types")
            << u"{'topics':[{'topic':'','importance':'high','mentions':2.5}]}"_s << QStringList{}
            << QStringList{u"❌ Topic missing 'topic' field: "_s + odd,
                           u"❌ Topic missing 'importance' field: "_s + odd,
                           u"❌ Topic missing 'mentions' field: "_s + odd};
        QTest::newRow("speaker without a name")
            << u"{'speakers':[{'role':'Buyer'},{'name':'  '},{'name':'Sam'}]}"_s
            << QStringList{u"speaker:Sam||"_s}
            << QStringList{u"Speaker missing name: {\"role\":\"Buyer\"}"_s,
                           u"Speaker missing name: {\"name\":\"  \"}"_s};
        QTest::newRow("speaker that is not an object")
            << u"{'speakers':['Dana',null]}"_s << QStringList{}
            << QStringList{u"❌ Speaker at index 0 is not a dictionary: \"Dana\""_s,
                           u"❌ Speaker at index 1 is not a dictionary: null"_s};
        QTest::newRow("speaker contributions of other types")
            << u"{'speakers':[{'name':'Dana','mainContributions':[1,'','Asked']}]}"_s
            << QStringList{u"speaker:Dana||Asked"_s} << QStringList{};
        QTest::newRow("action items")
            << u"{'actionItems':[3,{'priority':'high'},'Call back']}"_s
            << QStringList{u"item:Call back|medium||"_s}
            << QStringList{u"❌ Action item at index 0 is not a dictionary: 3"_s,
                           u"❌ Action item missing description: {\"priority\":\"high\"}"_s};
    }

    void malformedEntries()
    {
        QFETCH(QString, payload);
        QFETCH(QStringList, kept);
        QFETCH(QStringList, log);
        const LogCapture capture;
        const Decoded<CallSummary> decoded = decodeCallSummary(SummaryText::object(payload));
        QVERIFY(decoded.ok());
        QCOMPARE(entryLines(describe(*decoded.value)), kept);
        QCOMPARE(capture.lines({u"❌"_s, u"✅ Successfully"_s, u"Speaker missing"_s}), log);
    }

    void envelopes_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QJsonValue>("replacement"); // Undefined: the key is removed
        QTest::addColumn<QString>("error");          // empty: decodes
        const QJsonValue removed(QJsonValue::Undefined);
        QTest::newRow("complete") << QString() << removed << QString();
        QTest::newRow("unknown keys")
            << u"summary.extra"_s << QJsonValue(QJsonArray{1}) << QString();
        QTest::newRow("malformed topic inside")
            << u"summary.summary.topics"_s << QJsonValue(QJsonArray{5}) << QString();
        QTest::newRow("success missing")
            << u"success"_s << removed << u"No value for key \"success\""_s;
        QTest::newRow("success as text") << u"success"_s << QJsonValue(u"true"_s)
                                         << u"\"success\" is a string, expected a Bool"_s;
        QTest::newRow("timestamp null")
            << u"timestamp"_s << QJsonValue() << u"\"timestamp\" is null, expected a String"_s;
        QTest::newRow("processed missing")
            << u"processed"_s << removed << u"No value for key \"processed\""_s;
        QTest::newRow("summary a list") << u"summary"_s << QJsonValue(QJsonArray())
                                        << u"\"summary\" is an array, expected an object"_s;
        QTest::newRow("call id missing")
            << u"summary.callId"_s << removed << u"No value for key \"summary.callId\""_s;
        QTest::newRow("inner summary as text")
            << u"summary.summary"_s << QJsonValue(u"Pricing"_s)
            << u"\"summary.summary\" is a string, expected an object"_s;
        QTest::newRow("fraction of segments")
            << u"summary.processedSegments"_s << QJsonValue(2.5)
            << u"\"summary.processedSegments\" is not a count of segments: 2.5"_s;
        QTest::newRow("negative segments")
            << u"summary.processedSegments"_s << QJsonValue(-1)
            << u"\"summary.processedSegments\" is not a count of segments: -1"_s;
        QTest::newRow("segments as text")
            << u"summary.processedSegments"_s << QJsonValue(u"4"_s)
            << u"\"summary.processedSegments\" is a string, expected a whole number"_s;
    }

    void envelopes()
    {
        QFETCH(QString, path);
        QFETCH(QJsonValue, replacement);
        QFETCH(QString, error);
        QJsonObject answer = SummaryText::object(receivedAnswer);
        if (!path.isEmpty()) {
            answer = JsonEdit::edited(answer, path, replacement);
        }
        const Decoded<TranscriptionReceivedResponse> decoded = decodeTranscriptionReceived(answer);
        QCOMPARE(decoded.error, error);
        QCOMPARE(decoded.ok(), error.isEmpty());
        if (decoded.ok()) {
            QVERIFY(decoded.value->success && decoded.value->processed);
            QCOMPARE(decoded.value->summary.callId, u"c1"_s);
            QCOMPARE(decoded.value->summary.processedSegments, 4);
            QCOMPARE(decoded.value->summary.summary.overview, u"Pricing call"_s);
        }
    }

    void nonObjects_data()
    {
        QTest::addColumn<QJsonValue>("json");
        QTest::newRow("array") << QJsonValue(QJsonArray{1});
        QTest::newRow("number") << QJsonValue(4);
        QTest::newRow("null") << QJsonValue();
        QTest::newRow("nothing") << QJsonValue(QJsonValue::Undefined);
    }

    void nonObjects()
    {
        QFETCH(QJsonValue, json);
        QVERIFY(!decodeCallSummary(json).ok());
        QVERIFY(!decodeEnhancedSummary(json).ok());
        QVERIFY(!decodeTranscriptionReceived(json).ok());
        QVERIFY(!decodeSummaryPayload(json).ok());
        QVERIFY(!decodeSpeaker(json).ok());
        QVERIFY(!decodeActionItem(json).ok());
        QVERIFY(!decodeTopic(json).ok());
        QVERIFY(!decodeSentiment(json));
        QVERIFY(!decodeTranscriptionReceived(json).error.isEmpty());
    }

    // Local ids are made per decoding and are not part of a record's contents.
    void freshIds()
    {
        const QJsonObject json = SummaryText::object(fullSummary);
        const CallSummary first = *decodeCallSummary(json).value;
        const CallSummary second = *decodeCallSummary(json).value;
        QCOMPARE(first, second);
        QVERIFY(!first.speakers.at(0).id.isEmpty());
        QVERIFY(first.speakers.at(0).id != second.speakers.at(0).id);
        QVERIFY(first.speakers.at(0).id != first.speakers.at(1).id);
        QVERIFY(first.actionItems.at(0).id != second.actionItems.at(0).id);
        QVERIFY(first.actionItems.at(0).id != first.actionItems.at(1).id);
    }

    void summaryDataEncoding_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("timestamp");
        QTest::addColumn<int>("callDuration"); // -1: unknown
        QTest::addColumn<QString>("summary");  // "-": none
        QTest::addColumn<QString>("json");
        const QDateTime india(QDate(2026, 3, 4), QTime(10, 0, 0, 250), Qt::OffsetFromUTC,
                              5 * 3600 + 1800);
        QTest::newRow("every key")
            << u"Hello"_s << india << 754 << u"Pricing"_s
            << u"{'transcriptionText':'Hello','timestamp':'2026-03-04T04:30:00.250Z',"
               "'callDuration':754,'summary':'Pricing'}"_s;
        QTest::newRow("optional keys left out")
            << u"Hello"_s << india << -1 << u"-"_s
            << u"{'transcriptionText':'Hello','timestamp':'2026-03-04T04:30:00.250Z'}"_s;
        QTest::newRow("zero duration is known")
            << QString() << india.toUTC() << 0 << u"-"_s
            << u"{'transcriptionText':'','timestamp':'2026-03-04T04:30:00.250Z',"
               "'callDuration':0}"_s;
    }

    void summaryDataEncoding()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, timestamp);
        QFETCH(int, callDuration);
        QFETCH(QString, summary);
        QFETCH(QString, json);
        TranscriptionSummaryData data{text, timestamp, std::nullopt, std::nullopt};
        if (callDuration >= 0) {
            data.callDuration = callDuration;
        }
        if (summary != u"-"_s) {
            data.summary = summary;
        }
        QCOMPARE(data.toJson(), SummaryText::object(json));
    }

    void errorTexts_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("message");
        const QStringList messages{u"Websocket is not connected."_s,
                                   u"Failed to decode the response."_s,
                                   u"Server error with status code: 503"_s,
                                   u"Invalid response from server."_s,
                                   u"Invalid server URL."_s,
                                   u"Connection refused"_s};
        for (int index = 0; index < messages.size(); ++index) {
            QTest::newRow(qPrintable(messages.at(index))) << index << messages.at(index);
        }
    }

    void errorTexts()
    {
        QFETCH(int, index);
        QFETCH(QString, message);
        const QList<SummaryModelError> errors{
            SummaryModelError::websocketNotConnected(),
            SummaryModelError::decodingError(),
            SummaryModelError::serverError(503),
            SummaryModelError::invalidResponse(),
            SummaryModelError::invalidUrl(),
            SummaryModelError::requestError(u"Connection refused"_s)};
        QCOMPARE(errors.at(index).message(), message);
    }
};

QTEST_GUILESS_MAIN(LiveSessionRecordsTest)
#include "LiveSessionRecordsTest.moc"

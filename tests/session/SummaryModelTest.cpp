#include "session/SummaryModel.h"

#include "LogCapture.h"
#include "SummaryText.h"
#include "call/TranscriptionViewModel.h"
#include "session/SummaryTranscriptFeed.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using SummaryText::describe;

namespace {

// A model with a clock, a transcript and a session the test controls.
struct Harness
{
    QDateTime now{QDate(2026, 3, 4), QTime(10, 0), Qt::UTC};
    SummaryModel model{SummaryModel::Options{[this] { return now; }, 5ms}};
    QString transcript;
    bool accept = true;
    QList<QJsonObject> sent; // every attempt, taken or not

    Harness()
    {
        model.setTranscriptProvider([this] { return transcript; });
        model.setSummarySender([this](const QJsonObject& json) {
            sent.append(json);
            return accept;
        });
    }

    QStringList sentTexts() const
    {
        QStringList texts;
        for (const QJsonObject& json : sent) {
            texts.append(json.value("transcriptionText"_L1).toString());
        }
        return texts;
    }
};

// "s:" a summary event, "r:" a transcriptionReceived answer, "p:" a processed
// transcription; the payload follows with ' for ".
void feed(SummaryModel& model, const QStringList& events)
{
    for (const QString& event : events) {
        const QJsonObject payload = SummaryText::object(event.mid(2));
        if (event.startsWith(u"s:"_s)) {
            model.handleSummary(payload);
        } else if (event.startsWith(u"r:"_s)) {
            model.handleReceivedTranscription(payload);
        } else {
            model.handleProcessedTranscription(payload);
        }
    }
}

// "overview|processedSegments|stale", "-" for an unknown count.
QStringList describeHistory(const QList<SummaryHistoryEntry>& history)
{
    QStringList lines;
    for (const SummaryHistoryEntry& entry : history) {
        lines.append(
            entry.overview() + u'|' +
            (entry.processedSegments ? QString::number(*entry.processedSegments) : u"-"_s) + u'|' +
            (entry.stale ? u"stale"_s : QString()));
    }
    return lines;
}

QString summaryEvent(const QString& fields)
{
    return u"s:{"_s + fields + u'}';
}

} // namespace

class SummaryModelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"com.quillmoss.*.debug=true"_s); }

    void merges_data()
    {
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QStringList>("summary");
        QTest::addColumn<bool>("hasSummary");
        QTest::addColumn<QString>("callId");
        QTest::addColumn<int>("processedSegments");
        QTest::addColumn<QStringList>("history");
        QTest::addColumn<QString>("error");
        const auto s = summaryEvent;
        const QString neutral = u"sentiment:default"_s;
        const QStringList onlyA{u"overview:A"_s, neutral};
        const QStringList onlyB{u"overview:B"_s, neutral};
        const QStringList nothing{neutral};

        QTest::newRow("first summary")
            << QStringList{s(u"'callId':'c1','processedSegments':1,'overview':'A'"_s)} << onlyA
            << true << u"c1"_s << 1 << QStringList{u"A|1|"_s} << QString();
        QTest::newRow("stale summary goes to the history only")
            << QStringList{s(u"'processedSegments':5,'overview':'A'"_s),
                           s(u"'processedSegments':3,'overview':'B','confidence':0.5"_s)}
            << onlyA << true << QString() << 5 << QStringList{u"A|5|"_s, u"B|3|stale"_s}
            << QString();
        QTest::newRow("equal counts replace")
            << QStringList{s(u"'processedSegments':5,'overview':'A'"_s),
                           s(u"'processedSegments':5,'overview':'B'"_s)}
            << onlyB << true << QString() << 5 << QStringList{u"A|5|"_s, u"B|5|"_s} << QString();
        QTest::newRow("a missing count is not stale")
            << QStringList{s(u"'processedSegments':5,'overview':'A'"_s), s(u"'overview':'B'"_s)}
            << onlyB << true << QString() << 5 << QStringList{u"A|5|"_s, u"B|-|"_s} << QString();
        QTest::newRow("another call starts over")
            << QStringList{s(u"'callId':'c1','processedSegments':5,'overview':'A',"
                             "'actionItems':['Send the proposal']"_s),
                           s(u"'callId':'c2','processedSegments':1,'overview':'B'"_s)}
            << onlyB << true << u"c2"_s << 1 << QStringList{u"B|1|"_s} << QString();
        QTest::newRow("no call id is the same call")
            << QStringList{s(u"'callId':'c1','overview':'A'"_s), s(u"'overview':'B'"_s)} << onlyB
            << true << u"c1"_s << 0 << QStringList{u"A|-|"_s, u"B|-|"_s} << QString();
        QTest::newRow("empty fields keep the current ones")
            << QStringList{s(u"'overview':'A','keyPoints':['k1'],'speakers':[{'name':'Dana'}],"
                             "'topics':[{'topic':'t','importance':0.5,'mentions':1}],"
                             "'sentiment':{'overall':'positive','score':0.5},'duration':'1:00',"
                             "'confidence':0.8"_s),
                           s(u"'overview':'','keyPoints':['k2'],'speakers':[],'topics':[],"
                             "'duration':'','sentiment':null"_s)}
            << QStringList{u"overview:A"_s,
                           u"key:k2"_s,
                           u"speaker:Dana||"_s,
                           u"topic:t|0.5|1"_s,
                           u"sentiment:positive|0.5"_s,
                           u"duration:1:00"_s,
                           u"confidence:0.8"_s}
            << true << QString() << 0 << QStringList{u"A|-|"_s, u"|-|"_s} << QString();
        QTest::newRow("action items accumulate by description")
            << QStringList{s(u"'actionItems':[{'description':'Send the proposal',"
                             "'priority':'high'},'Book a demo']"_s),
                           s(u"'actionItems':[{'description':'send  the PROPOSAL.',"
                             "'priority':'low','assignee':'Sam'},'Call Dana']"_s)}
            << QStringList{u"item:Send the proposal|low|Sam|"_s, u"item:Book a demo|medium||"_s,
                           u"item:Call Dana|medium||"_s, neutral}
            << true << QString() << 0 << QStringList{u"|-|"_s, u"|-|"_s} << QString();
        QTest::newRow("duplicate items within one summary")
            << QStringList{s(u"'actionItems':[{'description':'Call','priority':'high',"
                             "'deadline':'Friday'},{'description':'call!','priority':'low'}]"_s)}
            << QStringList{u"item:Call|low||Friday"_s, neutral} << true << QString() << 0
            << QStringList{u"|-|"_s} << QString();
        QTest::newRow("identical summary enters the history once")
            << QStringList{s(u"'processedSegments':1,'overview':'A'"_s),
                           s(u"'processedSegments':2,'overview':'A'"_s)}
            << onlyA << true << QString() << 2 << QStringList{u"A|1|"_s} << QString();
        QTest::newRow("a repeat after a change is new")
            << QStringList{s(u"'overview':'A'"_s), s(u"'overview':'B'"_s), s(u"'overview':'A'"_s)}
            << onlyA << true << QString() << 0 << QStringList{u"A|-|"_s, u"B|-|"_s, u"A|-|"_s}
            << QString();
        QTest::newRow("summary with nothing to show")
            << QStringList{s(u"'callId':'c1','processedSegments':3,'keyPoints':[]"_s)} << nothing
            << false << QString() << 0 << QStringList{} << QString();
        QTest::newRow("processed transcription with a summary")
            << QStringList{u"p:{'transcription':'hi','processedSegments':2,"
                           "'summary':{'overview':'A'}}"_s}
            << onlyA << true << QString() << 2 << QStringList{u"A|2|"_s} << QString();
        QTest::newRow("processed transcription without one")
            << QStringList{u"p:{'transcription':'hi','overview':'A','summary':'A'}"_s} << nothing
            << false << QString() << 0 << QStringList{} << QString();
        const QString received =
            u"r:{'success':%1,'timestamp':'2026-03-04T10:00:00Z','processed':true,"
            "'summary':{'callId':'c1','timestamp':'2026-03-04T10:00:00Z',"
            "'processedSegments':4,'summary':{'overview':'A'}}}"_s;
        QTest::newRow("transcription received")
            << QStringList{received.arg(u"true"_s)} << onlyA << true << u"c1"_s << 4
            << QStringList{u"A|4|"_s} << QString();
        QTest::newRow("transcription not taken")
            << QStringList{received.arg(u"false"_s)} << nothing << false << QString() << 0
            << QStringList{} << u"Invalid response from server."_s;
        QTest::newRow("undecodable answer")
            << QStringList{u"r:{'success':true}"_s} << nothing << false << QString() << 0
            << QStringList{} << u"Failed to decode the response."_s;
        QTest::newRow("a summary clears the error")
            << QStringList{u"r:{}"_s, s(u"'overview':'A'"_s)} << onlyA << true << QString() << 0
            << QStringList{u"A|-|"_s} << QString();
    }

    void merges()
    {
        QFETCH(QStringList, events);
        QFETCH(QStringList, summary);
        QFETCH(bool, hasSummary);
        QFETCH(QString, callId);
        QFETCH(int, processedSegments);
        QFETCH(QStringList, history);
        QFETCH(QString, error);
        Harness harness;
        feed(harness.model, events);
        QCOMPARE(describe(harness.model.summary()), summary);
        QCOMPARE(harness.model.hasSummary(), hasSummary);
        QCOMPARE(harness.model.callId(), callId);
        QCOMPARE(harness.model.processedSegments(), processedSegments);
        QCOMPARE(describeHistory(harness.model.history()), history);
        QCOMPARE(harness.model.lastError(), error);
    }

    void undecodableAnswerIsLogged()
    {
        const LogCapture log;
        Harness harness;
        feed(harness.model, {u"r:{'success':true}"_s});
        QCOMPARE(log.lines({u"❌"_s}),
                 QStringList{
                     u"❌ Error decoding transcription received: No value for key \"timestamp\""_s});
    }

    // List rows keep their local ids across summaries, so views do not redraw them.
    void stableIds()
    {
        Harness harness;
        feed(harness.model,
             {summaryEvent(u"'actionItems':['Call'],'speakers':[{'name':'Dana'}]"_s)});
        const QString call = harness.model.summary().actionItems.at(0).id;
        const QString dana = harness.model.summary().speakers.at(0).id;
        feed(harness.model, {summaryEvent(u"'actionItems':['call.','Mail'],"
                                          "'speakers':[{'name':'Sam'},{'name':' DANA'}]"_s)});
        const LiveSession::CallSummary& summary = harness.model.summary();
        QCOMPARE(summary.actionItems.at(0).id, call);
        QVERIFY(summary.actionItems.at(1).id != call);
        QCOMPARE(summary.speakers.at(1).id, dana);
        QVERIFY(summary.speakers.at(0).id != dana);
    }

    void historyIsBounded()
    {
        Harness harness;
        const qsizetype total = SummaryModel::historyLimit + 5;
        for (qsizetype index = 0; index < total; ++index) {
            feed(harness.model, {summaryEvent(u"'overview':'S%1'"_s.arg(index))});
        }
        const QList<SummaryHistoryEntry> history = harness.model.history();
        QCOMPARE(history.size(), SummaryModel::historyLimit);
        QCOMPARE(history.first().overview(), u"S5"_s);
        QCOMPARE(history.last().overview(), u"S%1"_s.arg(total - 1));
    }

    void pushes_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("sent");
        QTest::addColumn<QString>("error");
        const QString notConnected = u"Websocket is not connected."_s;
        QTest::newRow("only when the transcript changed")
            << QStringList{u"text:A"_s, u"tick"_s, u"tick"_s, u"text:A B"_s, u"tick"_s, u"tick"_s}
            << QStringList{u"A"_s, u"A B"_s} << QString();
        QTest::newRow("blank transcript")
            << QStringList{u"tick"_s, u"text: "_s, u"tick"_s} << QStringList{} << QString();
        QTest::newRow("refused, then taken on the next tick")
            << QStringList{u"refuse"_s, u"text:A"_s, u"tick"_s, u"accept"_s, u"tick"_s, u"tick"_s}
            << QStringList{u"A"_s, u"A"_s} << QString();
        QTest::newRow("refused again")
            << QStringList{u"refuse"_s, u"text:A"_s, u"tick"_s, u"tick"_s}
            << QStringList{u"A"_s, u"A"_s} << notConnected;
        QTest::newRow("newest text after a refusal")
            << QStringList{u"refuse"_s, u"text:A"_s,  u"tick"_s,
                           u"accept"_s, u"text:AB"_s, u"tick"_s}
            << QStringList{u"A"_s, u"AB"_s} << QString();
        QTest::newRow("same text again after clear")
            << QStringList{u"text:A"_s, u"tick"_s, u"clear"_s, u"tick"_s}
            << QStringList{u"A"_s, u"A"_s} << QString();
        QTest::newRow("no session")
            << QStringList{u"nosender"_s, u"text:A"_s, u"tick"_s} << QStringList{} << notConnected;
    }

    void pushes()
    {
        QFETCH(QStringList, steps);
        QFETCH(QStringList, sent);
        QFETCH(QString, error);
        Harness harness;
        for (const QString& step : steps) {
            if (step.startsWith(u"text:"_s)) {
                harness.transcript = step.mid(5);
            } else if (step == u"tick"_s) {
                const qsizetype before = harness.sent.size();
                const bool pushed = harness.model.pushTranscriptIfChanged();
                QCOMPARE(pushed, harness.sent.size() > before && harness.accept);
            } else if (step == u"clear"_s) {
                harness.model.clear();
            } else if (step == u"nosender"_s) {
                harness.model.setSummarySender({});
            } else {
                harness.accept = step == u"accept"_s;
            }
        }
        QCOMPARE(harness.sentTexts(), sent);
        QCOMPARE(harness.model.lastError(), error);
    }

    void pushContents_data()
    {
        QTest::addColumn<int>("startedSecondsAgo"); // INT_MIN: unknown
        QTest::addColumn<QString>("overview");
        QTest::addColumn<QString>("json");
        QTest::newRow("call start and overview")
            << 754 << u"Pricing"_s
            << u"{'transcriptionText':'Hello','timestamp':'2026-03-04T10:00:00.000Z',"
               "'callDuration':754,'summary':'Pricing'}"_s;
        QTest::newRow("neither")
            << std::numeric_limits<int>::min() << QString()
            << u"{'transcriptionText':'Hello','timestamp':'2026-03-04T10:00:00.000Z'}"_s;
        QTest::newRow("start ahead of the clock")
            << -10 << QString()
            << u"{'transcriptionText':'Hello','timestamp':'2026-03-04T10:00:00.000Z',"
               "'callDuration':0}"_s;
    }

    void pushContents()
    {
        QFETCH(int, startedSecondsAgo);
        QFETCH(QString, overview);
        QFETCH(QString, json);
        Harness harness;
        if (startedSecondsAgo != std::numeric_limits<int>::min()) {
            harness.model.setCallStartedAt(harness.now.addSecs(-startedSecondsAgo));
        }
        if (!overview.isEmpty()) {
            feed(harness.model, {summaryEvent(u"'overview':'%1'"_s.arg(overview))});
        }
        harness.transcript = u"Hello"_s;
        QVERIFY(harness.model.pushTranscriptIfChanged());
        QCOMPARE(harness.sent.last(), SummaryText::object(json));
    }

    void periodicPush()
    {
        Harness harness;
        const QSignalSpy pushing(&harness.model, &SummaryModel::isPushingChanged);
        harness.transcript = u"A"_s;
        harness.model.start();
        harness.model.start();
        QCOMPARE(pushing.size(), 1);
        QVERIFY(harness.model.isPushing());
        QTRY_COMPARE(harness.sentTexts(), QStringList{u"A"_s});
        harness.transcript = u"A B"_s;
        QTRY_COMPARE(harness.sentTexts(), (QStringList{u"A"_s, u"A B"_s}));
        harness.model.stop();
        QVERIFY(!harness.model.isPushing());
        QCOMPARE(pushing.size(), 2);
        harness.transcript = u"A B C"_s;
        QTest::qWait(50);
        QCOMPARE(harness.sent.size(), 2);
    }

    void clearStartsOver()
    {
        Harness harness;
        feed(harness.model,
             {summaryEvent(u"'callId':'c1','processedSegments':9,'overview':'A'"_s), u"r:{}"_s});
        harness.model.setCallStartedAt(harness.now.addSecs(-60));
        harness.model.clear();
        QVERIFY(!harness.model.hasSummary());
        QVERIFY(harness.model.history().isEmpty());
        QCOMPARE(harness.model.lastError(), QString());
        // The next call's first summary is not stale against the last call's count.
        feed(harness.model, {summaryEvent(u"'processedSegments':1,'overview':'B'"_s)});
        QCOMPARE(harness.model.overview(), u"B"_s);
        harness.transcript = u"Hi"_s;
        QVERIFY(harness.model.pushTranscriptIfChanged());
        QVERIFY(!harness.sent.last().contains("callDuration"_L1));
    }

    void feedsFromTheLiveTranscript()
    {
        Harness harness;
        auto* transcript = new TranscriptionViewModel;
        feedSummaryFromTranscript(harness.model, transcript);
        transcript->addLocalTranscription(u"Hello there"_s);
        QCoreApplication::processEvents();
        QVERIFY(harness.model.pushTranscriptIfChanged());
        QCOMPARE(harness.sentTexts(), QStringList{u"Hello there"_s});
        delete transcript;
        QVERIFY(!harness.model.pushTranscriptIfChanged());
        QCOMPARE(harness.sent.size(), 1);
    }
};

QTEST_GUILESS_MAIN(SummaryModelTest)
#include "SummaryModelTest.moc"

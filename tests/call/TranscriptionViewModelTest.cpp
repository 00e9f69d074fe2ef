#include "call/TranscriptionViewModel.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <thread>

using namespace Qt::StringLiterals;

namespace {

// "speaker|text", with "|partial" for provisional segments.
QStringList describe(const QList<TranscriptionSegment>& segments)
{
    QStringList lines;
    for (const TranscriptionSegment& segment : segments) {
        lines.append(segment.speaker + u'|' + segment.text +
                     (segment.isPartial ? u"|partial"_s : QString()));
    }
    return lines;
}

// An entry starting with '{' is a backend message, anything else local text.
void feed(TranscriptionViewModel& model, const QStringList& entries)
{
    for (const QString& entry : entries) {
        if (entry.startsWith(u'{')) {
            model.addServerSegments(QJsonDocument::fromJson(entry.toUtf8()).object());
        } else {
            model.addLocalTranscription(entry);
        }
    }
    QCoreApplication::processEvents();
}

} // namespace

class TranscriptionViewModelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }

    void merges_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QStringList>("segments");
        // The flat text: the user's own speech only.
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("skipped");
        const auto alice = u"{\"segments\":[{\"speaker\":\"Alice\",\"text\":\"Hello\"}]}"_s;
        const auto bob = [](const char* text, bool partial) {
            return u"{\"segments\":[{\"speaker\":\"Bob\",\"text\":\"%1\",\"isPartial\":%2}]}"_s.arg(
                QLatin1String(text), partial ? u"true"_s : u"false"_s);
        };
        QTest::newRow("two local chunks")
            << QStringList{u"Hello there"_s, u" how are you "_s}
            << QStringList{u"local|Hello there how are you"_s} << u"Hello there how are you"_s << 0;
        QTest::newRow("local after a remote segment extends the earlier local one")
            << QStringList{u"Hi"_s, alice, u"Thanks"_s}
            << QStringList{u"local|Hi Thanks"_s, u"Alice|Hello"_s} << u"Hi Thanks"_s << 0;
        QTest::newRow("first local after a remote segment")
            << QStringList{alice, u"Hi"_s} << QStringList{u"Alice|Hello"_s, u"local|Hi"_s}
            << u"Hi"_s << 0;
        QTest::newRow("blank local text")
            << QStringList{u"  "_s} << QStringList{} << QString() << 0;
        QTest::newRow("no speaker")
            << QStringList{u"{\"segments\":[{\"text\":\"who\"},{\"speaker\":\"\",\"text\":\"me\"}]}"_s}
            << QStringList{u"unknown|who"_s, u"unknown|me"_s} << QString() << 0;
        QTest::newRow("partials refined in place, final text only")
            << QStringList{bob("I think", true), bob("I think we", true), u"sure"_s,
                           bob("I think we should", false)}
            << QStringList{u"Bob|I think we should"_s, u"local|sure"_s} << u"sure"_s << 0;
        QTest::newRow("another speaker's partial stays")
            << QStringList{bob("Hm", true), alice}
            << QStringList{u"Bob|Hm|partial"_s, u"Alice|Hello"_s} << QString() << 0;
        QTest::newRow("finals are separate segments")
            << QStringList{bob("One", false), bob("Two", false)}
            << QStringList{u"Bob|One"_s, u"Bob|Two"_s} << QString() << 0;
        QTest::newRow("malformed elements skipped")
            << QStringList{u"{\"segments\":[1,[],{\"speaker\":5,\"text\":\"x\"},{\"text\":7},"
                           u"{\"speaker\":\"A\"},{\"speaker\":\"A\",\"text\":\" \"},"
                           u"{\"speaker\":\"A\",\"text\":\"x\",\"isPartial\":\"yes\"},"
                           u"{\"speaker\":null,\"text\":\"kept\",\"isPartial\":null}]}"_s}
            << QStringList{u"unknown|kept"_s} << QString() << 7;
        QTest::newRow("no segment list")
            << QStringList{u"{\"segments\":\"no\"}"_s, u"{}"_s} << QStringList{} << QString() << 0;
    }

    void merges()
    {
        QFETCH(QStringList, entries);
        QFETCH(QStringList, segments);
        QFETCH(QString, text);
        QFETCH(int, skipped);
        if (skipped > 0) {
            QTest::ignoreMessage(QtWarningMsg,
                                 qPrintable(u"⚠️ [Transcript] Skipped %1 malformed transcript "
                                            u"segment(s)"_s.arg(skipped)));
        }
        TranscriptionViewModel model;
        QSignalSpy textChanges(&model, &TranscriptionViewModel::transcriptionTextChanged);
        QList<TranscriptionSegment> fromServer;
        connect(&model, &TranscriptionViewModel::serverSegmentsAdded, &model,
                [&fromServer](const QList<TranscriptionSegment>& added) { fromServer += added; });
        feed(model, entries);
        QCOMPARE(describe(model.speakerSegments()), segments);
        QCOMPARE(model.transcriptionText(), text);
        // The flat text changes with local text only; the backend's segments are announced.
        qsizetype local = 0;
        qsizetype server = 0;
        for (const QString& entry : entries) {
            if (!entry.startsWith(u'{'))
                local += entry.trimmed().isEmpty() ? 0 : 1;
            else
                server += QJsonDocument::fromJson(entry.toUtf8())[u"segments"_s].toArray().size();
        }
        QCOMPARE(textChanges.size(), local);
        QCOMPARE(fromServer.size(), server - skipped);
    }

    // Recognition calls in from its own thread; the properties change on the
    // model's thread, in the order of the calls.
    void hopsToItsThread()
    {
        TranscriptionViewModel model;
        QList<QThread*> changedOn;
        connect(&model, &TranscriptionViewModel::transcriptionTextChanged, &model,
                [&changedOn] { changedOn.append(QThread::currentThread()); });
        QStringList words;
        std::thread recognizer([&model, &words] {
            for (int i = 0; i < 50; ++i) {
                words.append(QString::number(i));
                model.addLocalTranscription(words.last());
            }
        });
        recognizer.join();
        QVERIFY(model.transcriptionText().isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(model.transcriptionText(), words.join(u' '));
        QCOMPARE(changedOn, QList<QThread*>(50, thread()));
    }

    // The header's date in medium date and short (12-hour) time style.
    void exportsMarkdown()
    {
        TranscriptionViewModel model;
        const QString header = u"# Live Transcription\n\n**Exported:** "_s;
        QCOMPARE(model.markdown(QDateTime(QDate(2027, 1, 3), QTime(0, 5), Qt::UTC)),
                 header + u"Jan 3, 2027 at 12:05 AM\n\n"_s);
        feed(model, {u"Hi there"_s, u"{\"segments\":[{\"text\":\"Hello\"},{\"speaker\":\"Alice\","
                                    u"\"text\":\"Bye\"}]}"_s});
        QCOMPARE(model.markdown(QDateTime(QDate(2026, 11, 21), QTime(21, 40), Qt::UTC)),
                 header + u"Nov 21, 2026 at 9:40 PM\n\n**local:** Hi there\n\n**unknown:** Hello"
                          u"\n\n**Alice:** Bye"_s);
    }
};

QTEST_GUILESS_MAIN(TranscriptionViewModelTest)
#include "TranscriptionViewModelTest.moc"

// The chat's records from whatever the backend's model sends: what is kept,
// what is defaulted, and what is refused rather than guessed.
#include "chat/ChatRecords.h"

#include "LogCapture.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QJsonObject parse(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).object();
}

} // namespace

class ChatRecordsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void responses_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QString>("content");
        QTest::addColumn<int>("toolCalls");
        QTest::addColumn<bool>("pending");
        QTest::addColumn<QString>("firstArguments");
        const auto row = [](const char* name, const char* payload, bool decodes,
                            const QString& content, int toolCalls, bool pending,
                            const QString& firstArguments = {}) {
            QTest::newRow(name) << QByteArray(payload) << decodes << content << toolCalls << pending
                                << firstArguments;
        };
        row("top level", R"({"success": true, "content": "Hi", "isFromUser": false})", true,
            u"Hi"_s, -1, false);
        row("nested under message",
            R"({"success": true, "message": {"content": "Nested", "messageId": "m1"}})", true,
            u"Nested"_s, -1, false);
        row("tool calls needing approval",
            R"({"success": true, "content": "Searching", "requiresApproval": true,
                "toolCalls": [{"id": "c1", "name": "brave_web_search",
                               "parameters": {"query": "acme"}}]})",
            true, u"Searching"_s, 1, true, uR"({"query":"acme"})"_s);
        row("envelope asks for approval of a nested message",
            R"({"success": true, "requiresApproval": true,
                "message": {"content": "x", "toolCalls": [{"name": "t", "parameters": "{\u0022a\u0022: 1}"}]}})",
            true, u"x"_s, 1, true, uR"({"a":1})"_s);
        row("calls without a name or with unusable arguments are dropped",
            R"({"content": "x", "isPendingToolApproval": true,
                "toolCalls": [{"parameters": {}}, {"name": "t", "parameters": [1]},
                              {"name": " ", "parameters": {}}, 7,
                              {"name": "ok", "parameters": "not json"},
                              {"name": "kept"}]})",
            true, u"x"_s, 1, true, u"{}"_s);
        row("no content", R"({"success": true, "message": "just text"})", false, {}, -1, false);
        row("content of another type", R"({"content": 42})", false, {}, -1, false);
    }

    void responses()
    {
        QFETCH(QByteArray, payload);
        QFETCH(bool, decodes);
        QFETCH(QString, content);
        QFETCH(int, toolCalls);
        QFETCH(bool, pending);
        QFETCH(QString, firstArguments);
        LogCapture log;
        QString error;
        const std::optional<ChatMessage> message =
            ChatRecords::decodeChatResponse(parse(payload), &error);
        QCOMPARE(message.has_value(), decodes);
        QCOMPARE(error.isEmpty(), decodes);
        if (!message)
            return;
        QCOMPARE(message->content, content);
        QVERIFY(!message->id.isEmpty());
        QVERIFY(message->timestamp.isValid());
        QVERIFY(!message->isLoading);
        QCOMPARE(message->isPendingToolApproval, pending);
        QCOMPARE(message->toolCalls ? int(message->toolCalls->size()) : -1, toolCalls);
        if (!firstArguments.isEmpty())
            QCOMPARE(QString::fromUtf8(QJsonDocument(message->toolCalls->first().parameters)
                                           .toJson(QJsonDocument::Compact)),
                     firstArguments);
    }

    void timestamps_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QDateTime>("expected"); // invalid: "about now"
        QTest::newRow("ISO text")
            << QByteArray(R"({"content": "", "timestamp": "2026-03-01T10:00:00.250Z"})")
            << QDateTime(QDate(2026, 3, 1), QTime(10, 0, 0, 250), Qt::UTC);
        QTest::newRow("seconds") << QByteArray(R"({"content": "", "timestamp": 1772359200})")
                                 << QDateTime(QDate(2026, 3, 1), QTime(10, 0), Qt::UTC);
        QTest::newRow("garbage") << QByteArray(R"({"content": "", "timestamp": "soon"})")
                                 << QDateTime();
    }

    void timestamps()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QDateTime, expected);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        const std::optional<ChatMessage> message = ChatRecords::decodeChatMessage(parse(payload));
        QVERIFY(message);
        if (expected.isValid())
            QCOMPARE(message->timestamp, expected);
        else
            QVERIFY(message->timestamp >= before);
    }

    void suggestions_data()
    {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<QString>("toolName"); // empty: refused
        QTest::addColumn<QString>("logged");
        QTest::newRow("name") << QByteArray(R"({"name": "notion_create_page", "reason": "notes",
                                              "confidence": 0.8, "parameters": {"title": "T"}})")
                              << u"notion_create_page"_s
                              << u"✅ AgentSuggestion.from() - Successfully parsed suggestion:"_s;
        QTest::newRow("toolName")
            << QByteArray(R"({"toolName": "brave_web_search"})") << u"brave_web_search"_s
            << u"✅ AgentSuggestion.from() - Successfully parsed suggestion:"_s;
        QTest::newRow("neither")
            << QByteArray(R"({"tool": "x", "reason": "r"})") << QString()
            << u"AgentSuggestion.from() - Missing required field: name/toolName"_s;
        QTest::newRow("blank name")
            << QByteArray(R"({"name": "  "})") << QString()
            << u"AgentSuggestion.from() - Missing required field: name/toolName"_s;
    }

    void suggestions()
    {
        QFETCH(QByteArray, entry);
        QFETCH(QString, toolName);
        QFETCH(QString, logged);
        LogCapture log;
        const std::optional<AgentSuggestion> suggestion =
            ChatRecords::decodeAgentSuggestion(parse(entry));
        QCOMPARE(suggestion ? suggestion->toolName : QString(), toolName);
        QVERIFY2(!log.lines({logged}).isEmpty(), qPrintable(log.lines().join(u'\n')));
        if (suggestion)
            QVERIFY(!suggestion->id.isEmpty());
    }
};

QTEST_GUILESS_MAIN(ChatRecordsTest)
#include "ChatRecordsTest.moc"

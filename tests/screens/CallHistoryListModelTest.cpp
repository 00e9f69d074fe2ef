#include "account/CallHistoryListModel.h"

#include "KeyringSession.h"
#include "LocalBackend.h"
#include "TestPaths.h"
#include "account/CallHistoryService.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString tokenKey = u"com.quillmoss.accesstoken"_s;
const QString decryptionErrorText = u"Unable to decrypt call contents"_s;

// Flips the last byte of one call's sealed contents in the backend's database,
// as a damaged disk would: the server can no longer open that call.
const QString damageScript =
    u"const fs = require('fs');"
    "const initSqlJs = require('sql.js');"
    "const [file, id] = process.argv.slice(1);"
    "initSqlJs().then((SQL) => {"
    "  const db = new SQL.Database(fs.readFileSync(file));"
    "  const rows = db.exec('SELECT contents FROM calls WHERE id = ?', [id]);"
    "  const contents = Uint8Array.from(rows[0].values[0][0]);"
    "  contents[contents.length - 1] ^= 0x01;"
    "  db.run('UPDATE calls SET contents = ? WHERE id = ?', [contents, id]);"
    "  fs.writeFileSync(file, db.export());"
    "});"_s;

QStringList idsOf(const QList<UserCallData>& calls)
{
    QStringList ids;
    for (const UserCallData& call : calls) {
        ids.append(call.id);
    }
    return ids;
}

UserCallData withSummary(const QString& direction, const std::optional<QString>& content)
{
    UserCallData call;
    call.direction = direction;
    if (content) {
        call.summary = CallSummaryData{};
        call.summary->content = *content;
    }
    return call;
}

} // namespace

// The list and detail view over the call-history service, against the real
// local backend with its demo calls, one of them damaged on the server.
class CallHistoryListModelTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<LocalBackend> m_backend;
    KeychainManager m_keychain;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<CallHistoryService> m_history;
    std::unique_ptr<CallHistoryListModel> m_model;
    QString m_damagedId;
    QDateTime m_now;

    QStringList rowIds() const
    {
        QStringList ids;
        for (int row = 0; row < m_model->rowCount(); ++row) {
            ids.append(m_model->index(row).data(CallHistoryListModel::IdRole).toString());
        }
        return ids;
    }

    int rowOf(const QString& id) const { return static_cast<int>(rowIds().indexOf(id)); }

    // The demo call with the most to show: a summary with topics and speakers,
    // a transcript and timed assistant answers.
    UserCallData richestCall() const
    {
        for (const UserCallData& call : m_history->calls()) {
            if (call.summary && !call.summary->topicList().isEmpty() &&
                !call.summary->speakerList().isEmpty() && call.transcription &&
                !call.messageList().isEmpty()) {
                return call;
            }
        }
        return {};
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_backend = std::make_unique<LocalBackend>(LocalBackend::Options{true, 0});
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
        auto tokens = m_backend->signIn(LocalBackend::demoEmail());
        QVERIFY(tokens.has_value());
        const QJsonArray listed = m_backend->request("GET", u"/calls"_s, {}, tokens->accessToken)
                                      .json()
                                      .object()
                                      .value(u"data"_s)
                                      .toArray();
        QCOMPARE(listed.size(), 5);
        m_damagedId = listed.at(2).toObject().value(u"id"_s).toString();

        m_backend->stop();
        QProcess node;
        node.setWorkingDirectory(TestPaths::sourceDirectory() + u"/local-backend"_s);
        node.start(u"node"_s, {u"-e"_s, damageScript, m_backend->databasePath(), m_damagedId});
        QVERIFY(node.waitForFinished(60'000));
        QVERIFY2(node.exitStatus() == QProcess::NormalExit && node.exitCode() == 0,
                 node.readAllStandardError().constData());
        QVERIFY2(m_backend->restart(), qPrintable(m_backend->error()));
        tokens = m_backend->signIn(LocalBackend::demoEmail());
        QVERIFY(tokens.has_value());
        QVERIFY(m_keychain.storeKey(tokens->accessToken, tokenKey));
    }

    void init()
    {
        m_home = std::make_unique<TemporaryHome>();
        m_settings = std::make_unique<SettingsStore>(m_home->path() + u"/settings.json"_s);
        m_history = std::make_unique<CallHistoryService>(*m_settings, m_keychain, m_backend->url());
        m_now = QDateTime::currentDateTime();
        m_model = std::make_unique<CallHistoryListModel>(*m_history, [this] { return m_now; });
        QSignalSpy count(m_model.get(), &CallHistoryListModel::countChanged);
        const QFuture<bool> loaded = m_history->loadCalls();
        QVERIFY(QTest::qWaitFor([&] { return loaded.isFinished(); }, 30000));
        QVERIFY(loaded.result());
        QCOMPARE(count.size(), 1);
        QCOMPARE(m_model->count(), 5);
    }

    void cleanup()
    {
        m_model.reset();
        m_history.reset();
        m_settings.reset();
        m_home.reset();
    }

    void sortOrder_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("chosen"); // what the model then says
        QTest::newRow("Date (Newest)") << 0 << 0;
        QTest::newRow("Date (Oldest)") << 1 << 1;
        QTest::newRow("Duration") << 2 << 2;
        QTest::newRow("Status") << 3 << 3;
        QTest::newRow("negative, ignored") << -1 << 1;
        QTest::newRow("past the end, ignored") << 4 << 1;
    }

    void sortOrder()
    {
        QFETCH(int, index);
        QFETCH(int, chosen);
        m_model->setSortOrderIndex(1);
        QSignalSpy indexChanged(m_model.get(), &CallHistoryListModel::sortOrderIndexChanged);

        m_model->setSortOrderIndex(index);
        QCOMPARE(m_model->sortOrderIndex(), chosen);
        QCOMPARE(indexChanged.size(), chosen == 1 ? 0 : 1);
        const CallPresentation::SortOrder order = CallPresentation::sortOrders().at(chosen);
        QCOMPARE(m_model->sortOrderNames().at(chosen), CallPresentation::displayName(order));
        QCOMPARE(rowIds(), idsOf(CallPresentation::sorted(m_history->calls(), order)));
    }

    void rows()
    {
        for (int row = 0; row < m_model->rowCount(); ++row) {
            const QModelIndex index = m_model->index(row);
            QCOMPARE(index.data(CallHistoryListModel::StatusRole).toString(),
                     m_history->sortedCalls().at(row).status);
            // The backend writes the length as text; the list shows that text.
            QVERIFY(index.data(CallHistoryListModel::DurationTextRole)
                        .toString()
                        .contains(QRegularExpression(u"^\\d+:\\d\\d(:\\d\\d)?$"_s)));
        }
        // "Today" and "Yesterday" are told by the clock the model is given.
        const UserCallData newest = m_history->sortedCalls().first();
        m_now = newest.createdAt.moment;
        QVERIFY(m_model->index(0)
                    .data(CallHistoryListModel::DateTextRole)
                    .toString()
                    .startsWith(u"Today "_s));
        m_now = newest.createdAt.moment.addDays(1);
        QVERIFY(m_model->index(0)
                    .data(CallHistoryListModel::DateTextRole)
                    .toString()
                    .startsWith(u"Yesterday "_s));
    }

    // The server could not open one call: it stays in the list, marked with
    // the server's own words, and its tabs are empty rather than made up.
    void damagedCall()
    {
        const int row = rowOf(m_damagedId);
        QVERIFY(row >= 0);
        const QModelIndex index = m_model->index(row);
        QCOMPARE(index.data(CallHistoryListModel::DecryptionErrorRole).toString(),
                 decryptionErrorText);
        QCOMPARE(index.data(CallHistoryListModel::HasSummaryRole).toBool(), false);
        QCOMPARE(index.data(CallHistoryListModel::TitleRole).toString(), u"Outbound call"_s);
        QCOMPARE(m_model->index(row == 0 ? 1 : 0).data(CallHistoryListModel::DecryptionErrorRole),
                 QVariant(QString()));

        const CallDetail detail = m_model->detail(m_damagedId);
        QCOMPARE(detail.decryptionError, decryptionErrorText);
        QVERIFY(detail.actions.isEmpty());
        QVERIFY(detail.comments.isEmpty());
        QVERIFY(detail.topics.isEmpty());
        QCOMPARE(m_model->actionItemsMarkdown(m_damagedId),
                 u"# Action Items from Call\n\n_No action items._\n"_s);
    }

    void detailTabs()
    {
        const UserCallData call = richestCall();
        QVERIFY(!call.id.isEmpty());
        const CallSummaryData& summary = *call.summary;
        const CallDetail detail = m_model->detail(call.id);

        QCOMPARE(detail.summary.keyPoints, summary.keyPoints);
        QCOMPARE(detail.transcript.segments.size(), call.transcription->segments.size());
        QCOMPARE(detail.transcript.segments.value(0).speaker,
                 call.transcription->segments.first().speaker);
        QCOMPARE(detail.actions.size(), summary.actionItems.size());
        QCOMPARE(detail.actions.value(0).priority, u"high"_s);
        QCOMPARE(detail.comments.value(0).author, u"You"_s);
        QCOMPARE(detail.comments.value(0).content, call.messageList().first().content);
        const Topic topic = summary.topicList().first();
        QCOMPARE(detail.topics.value(0).importanceText,
                 u"%1%"_s.arg(qRound(topic.importance * 100)));

        const CallDetailInsights& insights = detail.insights;
        QVERIFY(insights.sentimentScoreText.startsWith(u'+'));
        const CallDetailSpeaker speaker = insights.speakers.value(0);
        QCOMPARE(speaker.role, summary.speakerList().first().roleText());
        QCOMPARE(speaker.contributions, summary.speakerList().first().mainContributions);
        QStringList labels;
        for (const CallDetailFigure& row : insights.processing) {
            labels.append(row.label);
        }
        QVERIFY(labels.contains(u"Transcription confidence"_s));
        QVERIFY(labels.contains(u"Average response time"_s));

        QVERIFY(m_model->detail(u"no-such-call"_s).isEmpty());
    }

    void title_data()
    {
        QTest::addColumn<UserCallData>("call");
        QTest::addColumn<QString>("title");
        QTest::newRow("first sentence")
            << withSummary(u"outbound"_s, u"Pricing talk with Acme. They want a quote."_s)
            << u"Pricing talk with Acme"_s;
        QTest::newRow("a question; dots inside a number do not end it")
            << withSummary(u"outbound"_s, u"Version 2.5 rollout? Yes."_s)
            << u"Version 2.5 rollout"_s;
        QTest::newRow("long, cut at a word")
            << withSummary(u"outbound"_s,
                           u"Discovery call with Northwind Logistics about their weekly "
                           "forecast spreadsheet and Salesforce"_s)
            << u"Discovery call with Northwind Logistics about their weekly…"_s;
        QTest::newRow("one endless word")
            << withSummary(u"outbound"_s, QString(100, u'x')) << QString(64, u'x') + u'…';
        QTest::newRow("empty summary, inbound")
            << withSummary(u"inbound"_s, u"  "_s) << u"Inbound call"_s;
        QTest::newRow("no summary, unknown direction")
            << withSummary(u"sideways"_s, std::nullopt) << u"Call"_s;
    }

    void title()
    {
        QFETCH(UserCallData, call);
        QFETCH(QString, title);
        QCOMPARE(CallHistoryListModel::title(call), title);
    }

    void saveActionItems_data()
    {
        QTest::addColumn<QString>("target"); // in a scratch folder unless absolute
        QTest::addColumn<QString>("error");  // how the error starts; empty for success
        QTest::newRow("new file") << u"actions.md"_s << QString();
        QTest::newRow("replaces a file") << u"old.md"_s << QString();
        QTest::newRow("missing folder") << u"no-such-folder/actions.md"_s
                                        << u"The action items could not be saved: the folder "_s;
        QTest::newRow("a folder nobody may write in")
            << u"/proc/quillmoss-actions.md"_s
            << u"The action items could not be saved to /proc/quillmoss-actions.md ("_s;
        QTest::newRow("a folder") << u"."_s << u"%1/. is a folder."_s;
        QTest::newRow("a web address")
            << u"https://example.com/actions.md"_s << u"Action items can only be saved to a file"_s;
        QTest::newRow("unknown call")
            << u"@unknown"_s << u"This call is no longer in the call history."_s;
    }

    void saveActionItems()
    {
        QFETCH(QString, target);
        QFETCH(QString, error);
        QTemporaryDir scratch;
        QVERIFY(scratch.isValid());
        const QString old = scratch.filePath(u"old.md"_s);
        QFile oldFile(old);
        QVERIFY(oldFile.open(QIODevice::WriteOnly));
        oldFile.write(QByteArray(4096, 'o')); // longer than the list: none of it may survive
        oldFile.close();
        const QString id = target == u"@unknown"_s ? u"no-such-call"_s : richestCall().id;
        const QString path = QDir(scratch.path()).filePath(target);
        const QUrl url = target.startsWith(u"https:"_s) ? QUrl(target) : QUrl::fromLocalFile(path);

        const QString result = m_model->saveActionItems(id, url);
        if (error.isEmpty()) {
            QCOMPARE(result, QString());
            QCOMPARE(QString::fromUtf8(TestPaths::readFile(path)),
                     m_model->actionItemsMarkdown(id));
        } else {
            const QString start = error.contains(u"%1"_s) ? error.arg(scratch.path()) : error;
            QVERIFY2(result.startsWith(start), qPrintable(result));
        }
        // Nothing half-written is left behind, and a failure leaves the old file alone.
        QStringList expected{u"old.md"_s};
        if (error.isEmpty() && target != u"old.md"_s) {
            expected.prepend(target);
        }
        QCOMPARE(QDir(scratch.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), expected);
        if (!error.isEmpty()) {
            QCOMPARE(TestPaths::readFile(old), QByteArray(4096, 'o'));
        }
    }
};

QTEST_GUILESS_MAIN(CallHistoryListModelTest)
#include "CallHistoryListModelTest.moc"

#include "account/CallHistoryService.h"

#include "HttpStub.h"
#include "JsonEdit.h"
#include "KeyringSession.h"
#include "LocalBackend.h"
#include "LogCapture.h"
#include "TestPaths.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString tokenKey = u"com.quillmoss.accesstoken"_s;
const QString cacheKey = QString::fromLatin1(CallHistoryService::cacheKey);
const QString expiryKey = QString::fromLatin1(CallHistoryService::cacheExpiryKey);
const QString lastUpdatedKey = QString::fromLatin1(CallHistoryService::lastUpdatedKey);
const QString decodingFailedText = u"Unable to load call history. Please try again."_s;

// Two calls, the first with words that must never reach analytics.
const QByteArray twoCalls =
    "{\"success\": true, \"count\": 2, \"data\": ["
    "{\"id\": \"c1\", \"user_id\": \"u1\", \"direction\": \"outbound\", \"status\": \"completed\","
    " \"created_at\": \"2026-03-04T09:00:00.000Z\", \"updated_at\": \"2026-03-04T09:30:00.000Z\","
    " \"last_saved\": \"2026-03-04T09:30:00.000Z\", \"summary\": {\"content\": \"secret words\","
    " \"key_points\": [\"secret point\"], \"action_items\": [], \"sentiment\": \"neutral\","
    " \"created_at\": \"2026-03-04T09:30:00.000Z\"}},"
    "{\"id\": \"c2\", \"user_id\": \"u1\", \"direction\": \"inbound\", \"status\": \"failed\","
    " \"created_at\": \"2026-03-03T09:00:00Z\", \"updated_at\": \"2026-03-03T09:00:00Z\","
    " \"last_saved\": \"2026-03-03T09:00:00Z\"}]}";

class RecordingAnalytics final : public Analytics
{
public:
    void track(const QString& event, const QVariantMap& properties) override
    {
        events.append({event, properties});
    }
    QList<QPair<QString, QVariantMap>> events;
};

bool waitFor(const QFuture<bool>& future)
{
    return QTest::qWaitFor([&] { return future.isFinished(); }, 30000);
}

} // namespace

// Against the real local backend (the demo account's calls), a throw-away
// keyring holding the access token, and a stand-in server for broken answers.
class CallHistoryServiceTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<KeyringSession> m_keyring;
    std::unique_ptr<LocalBackend> m_backend;
    KeychainManager m_keychain;
    QString m_token;
    std::unique_ptr<TemporaryHome> m_home;
    std::unique_ptr<SettingsStore> m_settings;
    std::unique_ptr<HttpStub> m_stub;
    RecordingAnalytics m_analytics;
    QDateTime m_now;

    std::unique_ptr<CallHistoryService> service(const QUrl& url)
    {
        return std::make_unique<CallHistoryService>(*m_settings, m_keychain, url, m_analytics,
                                                    [this] { return m_now; });
    }

    int backendFetches() const { return m_backend->requestCount(u"GET"_s, u"/calls"_s); }

    // A service showing the stand-in's two calls, with the cache written.
    std::unique_ptr<CallHistoryService> serviceShowingTwoCalls()
    {
        m_stub->setAnswer("/calls", {200, twoCalls, {}, false});
        auto history = service(m_stub->url());
        const QFuture<bool> fetched = history->fetchCalls();
        if (!waitFor(fetched) || !fetched.result() || history->calls().size() != 2) {
            return nullptr;
        }
        return history;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_keyring = std::make_unique<KeyringSession>();
        QVERIFY2(m_keyring->isRunning(), qPrintable(m_keyring->error()));
        m_backend = std::make_unique<LocalBackend>(LocalBackend::Options{true, 0});
        QVERIFY2(m_backend->isRunning(), qPrintable(m_backend->error()));
        const auto tokens = m_backend->signIn(LocalBackend::demoEmail());
        QVERIFY(tokens.has_value());
        m_token = tokens->accessToken;
    }

    void init()
    {
        m_home = std::make_unique<TemporaryHome>();
        m_settings = std::make_unique<SettingsStore>(m_home->path() + u"/settings.json"_s);
        m_stub = std::make_unique<HttpStub>();
        QVERIFY(m_stub->isListening());
        QVERIFY(m_keychain.storeKey(m_token, tokenKey));
        m_analytics.events.clear();
        m_now = QDateTime(QDate(2026, 3, 4), QTime(10, 0), Qt::UTC);
    }

    void cleanup()
    {
        m_stub.reset();
        m_settings.reset();
        m_home.reset();
    }

    void fetchPublishesAndCaches()
    {
        auto history = service(m_backend->url());
        QSignalSpy loading(history.get(), &CallHistoryService::isLoadingChanged);
        const LogCapture log;
        const int fetchesBefore = backendFetches();

        const QFuture<bool> loaded = history->loadCalls();
        QVERIFY(history->isLoading());
        QVERIFY(waitFor(loaded));
        QVERIFY(loaded.result());
        QCOMPARE(loading.size(), 2);
        QCOMPARE(backendFetches(), fetchesBefore + 1);
        QCOMPARE(history->errorMessage(), QString());
        const QList<UserCallData> calls = history->calls();
        QVERIFY(calls.size() >= 2);
        QCOMPARE(history->sortedCalls().size(), calls.size());

        QCOMPARE(m_settings->dateValue(expiryKey), m_now.addSecs(300));
        QCOMPARE(m_settings->dateValue(lastUpdatedKey), m_now);
        QCOMPARE(history->lastUpdated(), m_now);
        QCOMPARE(CallRecords::decodeCalls(m_settings->value(cacheKey)).value, calls);

        const QString count = QString::number(calls.size());
        const QStringList lines = log.lines({u"📞"_s});
        QCOMPARE(lines.size(), 5);
        QCOMPARE(lines.at(0), u"📞 Cache expired or not found, will fetch fresh data"_s);
        QCOMPARE(lines.at(1), u"📞 Call history response status: 200"_s);
        QVERIFY(lines.at(2).startsWith(u"📞 Raw API response: {"_s));
        QCOMPARE(lines.at(3), u"📞 Loaded "_s + count + u" calls from API"_s);
        QCOMPARE(lines.at(4), u"📞 Cached "_s + count + u" calls (expires in 5 minutes)"_s);
        QVERIFY(!log.lines().join(u'\n').contains(m_token));

        const auto withItems = std::find_if(calls.begin(), calls.end(), [](const auto& call) {
            return call.summary && !call.summary->actionItems.isEmpty();
        });
        QVERIFY(withItems != calls.end());
        QCOMPARE(history->exportActionItems(withItems->id),
                 CallPresentation::actionItemsMarkdown(*withItems));
        QVERIFY(history->exportActionItems(withItems->id).contains(u"\n- [ ] "_s));
        QCOMPARE(history->exportActionItems(u"no-such-call"_s), QString());
    }

    void cacheExpiry_data()
    {
        QTest::addColumn<int>("elapsedSeconds");
        QTest::addColumn<bool>("fromCache");
        QTest::newRow("just written") << 0 << true;
        QTest::newRow("299 s later") << 299 << true;
        QTest::newRow("300 s later") << 300 << false;
        QTest::newRow("301 s later") << 301 << false;
    }

    // The cache outlives the service (the screen is opened again), for five minutes.
    void cacheExpiry()
    {
        QFETCH(int, elapsedSeconds);
        QFETCH(bool, fromCache);
        const QDateTime written = m_now;
        QList<UserCallData> calls;
        {
            auto first = service(m_backend->url());
            QVERIFY(waitFor(first->fetchCalls()));
            calls = first->calls();
        }
        m_now = m_now.addSecs(elapsedSeconds);
        auto history = service(m_backend->url());
        QCOMPARE(history->lastUpdated(), written);
        const int fetchesBefore = backendFetches();
        const LogCapture log;

        const QFuture<bool> loaded = history->loadCalls();
        QVERIFY(waitFor(loaded));
        QVERIFY(loaded.result());
        QCOMPARE(backendFetches(), fetchesBefore + (fromCache ? 0 : 1));
        QCOMPARE(history->calls(), calls);
        QCOMPARE(log.lines({u"📞 Loaded"_s}),
                 QStringList{u"📞 Loaded %1 calls from %2"_s.arg(calls.size())
                                 .arg(fromCache ? u"cache"_s : u"API"_s)});
        QCOMPARE(history->lastUpdated(), fromCache ? written : m_now);
    }

    // "Clear Cache & Refresh" fetches even while the cache is fresh; the calls
    // stay on screen meanwhile.
    void clearCacheAndRefresh()
    {
        auto history = service(m_backend->url());
        QVERIFY(waitFor(history->fetchCalls()));
        const QList<UserCallData> calls = history->calls();
        m_now = m_now.addSecs(10);
        const int fetchesBefore = backendFetches();
        const LogCapture log;

        const QFuture<bool> refreshed = history->clearCacheAndRefresh();
        for (const QString& key : {cacheKey, expiryKey, lastUpdatedKey}) {
            QVERIFY2(!m_settings->contains(key), qPrintable(key));
        }
        QVERIFY(!history->lastUpdated().isValid());
        QCOMPARE(history->calls(), calls);
        QCOMPARE(log.lines().first(), u"📞 Call history cache cleared"_s);

        QVERIFY(waitFor(refreshed));
        QVERIFY(refreshed.result());
        QCOMPARE(backendFetches(), fetchesBefore + 1);
        QCOMPARE(m_settings->dateValue(expiryKey), m_now.addSecs(300));
        QCOMPARE(history->lastUpdated(), m_now);
    }

    void failedFetchKeepsCallsAndCache_data()
    {
        QTest::addColumn<int>("status"); // 0: the server is gone
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("logged");
        const QString failed = u"Failed to fetch calls"_s;
        QTest::newRow("server error")
            << 500 << QByteArray("{\"success\": false, \"error\": \"Down\"}") << failed
            << u"Failed to fetch calls: HTTP 500: Down"_s;
        QTest::newRow("unauthorized")
            << 401 << QByteArray("{}") << failed << u"Failed to fetch calls: HTTP 401"_s;
        QTest::newRow("no success")
            << 200
            << QByteArray("{\"success\": false, \"data\": [], \"count\": 0, \"error\": \"Busy\"}")
            << failed << u"Failed to fetch calls: Busy"_s;
        QTest::newRow("not JSON") << 200 << QByteArray("<html>Bad gateway</html>")
                                  << decodingFailedText << u"❌ Data corrupted at path: "_s;
        QTest::newRow("server gone")
            << 0 << QByteArray()
            << u"Unable to connect to our servers. Please check your internet connection."_s
            << u"❌ Call history fetch error: "_s;
    }

    void failedFetchKeepsCallsAndCache()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        QFETCH(QString, logged);
        const auto history = serviceShowingTwoCalls();
        QVERIFY(history);
        QCOMPARE(m_stub->requests().first().headers.value("authorization"),
                 "Bearer " + m_token.toUtf8());
        const QList<UserCallData> calls = history->calls();
        const QJsonObject settingsBefore = m_settings->allValues();

        m_now = m_now.addSecs(600);
        if (status == 0) {
            m_stub.reset();
        } else {
            m_stub->setAnswer("/calls", {status, body, {}, false});
        }
        const LogCapture log;
        const QFuture<bool> fetched = history->fetchCalls();
        QVERIFY(waitFor(fetched));
        QVERIFY(!fetched.result());
        QCOMPARE(history->errorMessage(), message);
        QVERIFY(!history->isLoading());
        QCOMPARE(history->calls(), calls);
        QCOMPARE(m_settings->allValues(), settingsBefore);
        QVERIFY2(log.lines({logged}).size() == 1, qPrintable(log.lines().join(u'\n')));
        if (status == 0) {
            QCOMPARE(m_analytics.events.size(), 1);
            QCOMPARE(m_analytics.events.first().first, u"call_history_network_error"_s);
            const QVariantMap properties = m_analytics.events.first().second;
            QVERIFY(!properties.value(u"error_description"_s).toString().isEmpty());
            QCOMPARE(properties.value(u"has_existing_data"_s), QVariant(true));
        }
    }

    void decodingErrorIsReported_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QJsonValue>("replacement");
        QTest::addColumn<bool>("shownBefore");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<QVariantMap>("properties"); // besides description and has_existing_data
        QTest::addColumn<QString>("valueType");
        QTest::newRow("missing key") << u"data[1].user_id"_s << QJsonValue(QJsonValue::Undefined)
                                     << true << u"❌ Missing key 'user_id' at path: data[1]"_s
                                     << QVariantMap{{u"error_type"_s, u"key_not_found"_s},
                                                    {u"coding_path"_s, u"data[1]"_s},
                                                    {u"missing_key"_s, u"user_id"_s}}
                                     << u"missing"_s;
        QTest::newRow("type mismatch")
            << u"data[0].summary.key_points[0]"_s << QJsonValue(5) << false
            << u"❌ Type mismatch for type String at path: data[0].summary.key_points[0]"_s
            << QVariantMap{{u"error_type"_s, u"type_mismatch"_s},
                           {u"coding_path"_s, u"data[0].summary.key_points[0]"_s},
                           {u"expected_type"_s, u"String"_s}}
            << u"number"_s;
        QTest::newRow("null value")
            << u"data[0].status"_s << QJsonValue() << true
            << u"❌ Value not found for type String at path: data[0].status"_s
            << QVariantMap{{u"error_type"_s, u"value_not_found"_s},
                           {u"coding_path"_s, u"data[0].status"_s},
                           {u"expected_type"_s, u"String"_s}}
            << u"null"_s;
        QTest::newRow("unreadable date")
            << u"data[1].created_at"_s << QJsonValue(u"yesterday"_s) << false
            << u"❌ Data corrupted at path: data[1].created_at"_s
            << QVariantMap{{u"error_type"_s, u"data_corrupted"_s},
                           {u"coding_path"_s, u"data[1].created_at"_s}}
            << u"string"_s;
    }

    // Reported by kind to the log and analytics, with no call contents in
    // either event; the user gets one sentence and keeps what was shown.
    void decodingErrorIsReported()
    {
        QFETCH(QString, path);
        QFETCH(QJsonValue, replacement);
        QFETCH(bool, shownBefore);
        QFETCH(QString, logged);
        QFETCH(QVariantMap, properties);
        QFETCH(QString, valueType);
        std::unique_ptr<CallHistoryService> history;
        if (shownBefore) {
            history = serviceShowingTwoCalls();
            QVERIFY(history);
            m_analytics.events.clear();
        } else {
            history = service(m_stub->url());
        }
        const QList<UserCallData> calls = history->calls();
        const QJsonObject settingsBefore = m_settings->allValues();
        const QByteArray body =
            QJsonDocument(
                JsonEdit::edited(QJsonDocument::fromJson(twoCalls).object(), path, replacement))
                .toJson();
        m_stub->setAnswer("/calls", {200, body, {}, false});
        const LogCapture log;

        const QFuture<bool> fetched = history->fetchCalls();
        QVERIFY(waitFor(fetched));
        QVERIFY(!fetched.result());
        QCOMPARE(history->errorMessage(), decodingFailedText);
        QCOMPARE(history->calls(), calls);
        QCOMPARE(m_settings->allValues(), settingsBefore);
        QCOMPARE(log.lines({u"❌"_s}), QStringList{logged});

        QCOMPARE(m_analytics.events.size(), 2);
        QCOMPARE(m_analytics.events.at(0).first, u"call_history_decoding_error"_s);
        QVariantMap reported = m_analytics.events.at(0).second;
        QVERIFY(!reported.take(u"description"_s).toString().isEmpty());
        properties.insert(u"has_existing_data"_s, shownBefore);
        QCOMPARE(reported, properties);

        QCOMPARE(m_analytics.events.at(1).first, u"call_history_decoding_error_detail"_s);
        const QVariantMap detail = m_analytics.events.at(1).second;
        QCOMPARE(detail.value(u"status_code"_s), QVariant(200));
        QCOMPARE(detail.value(u"response_bytes"_s).toLongLong(), body.size());
        QCOMPARE(detail.value(u"value_type"_s), QVariant(valueType));
        const QByteArray everything =
            QJsonDocument(QJsonObject::fromVariantMap(reported)).toJson() +
            QJsonDocument(QJsonObject::fromVariantMap(detail)).toJson();
        QVERIFY(!everything.contains("secret"));
        QVERIFY(!everything.contains(m_token.toUtf8()));
    }

    void unusableCacheIsFetchedAgain_data()
    {
        QTest::addColumn<QJsonValue>("cached");
        QTest::addColumn<int>("expiresInSeconds");
        QTest::addColumn<bool>("decodeFails");
        QTest::newRow("call without keys")
            << QJsonValue(QJsonArray{QJsonObject{{u"id"_s, u"x"_s}}}) << 100 << true;
        QTest::newRow("text") << QJsonValue(u"[]"_s) << 100 << true;
        QTest::newRow("expired") << QJsonValue(QJsonArray()) << -1 << false;
        QTest::newRow("no expiry") << QJsonValue(QJsonArray()) << 0 << false;
    }

    void unusableCacheIsFetchedAgain()
    {
        QFETCH(QJsonValue, cached);
        QFETCH(int, expiresInSeconds);
        QFETCH(bool, decodeFails);
        QVERIFY(m_settings->setValue(cacheKey, cached));
        if (expiresInSeconds != 0) {
            QVERIFY(m_settings->setDate(expiryKey, m_now.addSecs(expiresInSeconds)));
        }
        m_stub->setAnswer("/calls", {200, twoCalls, {}, false});
        auto history = service(m_stub->url());
        const LogCapture log;
        const QFuture<bool> loaded = history->loadCalls();
        QVERIFY(waitFor(loaded));
        QVERIFY(loaded.result());
        QCOMPARE(m_stub->requests().size(), 1);
        QCOMPARE(history->calls().size(), 2);
        QCOMPARE(log.lines({u"❌ Failed to decode cached call history: "_s}).size(),
                 decodeFails ? 1 : 0);
        QCOMPARE(log.lines({u"📞 Cache expired or not found, will fetch fresh data"_s}).size(), 1);
        QCOMPARE(CallRecords::decodeCalls(m_settings->value(cacheKey)).value, history->calls());
    }

    void signedOutMakesNoRequest()
    {
        QVERIFY(m_keychain.deleteKey(tokenKey));
        auto history = service(m_stub->url());
        const LogCapture log;
        const QFuture<bool> fetched = history->fetchCalls();
        QVERIFY(waitFor(fetched));
        QVERIFY(!fetched.result());
        QCOMPARE(history->errorMessage(), u"Failed to fetch calls"_s);
        QCOMPARE(log.lines({u"Failed to fetch calls: "_s}).size(), 1);
        QCOMPARE(m_stub->requests().size(), 0);
    }

    // A second fetch joins the first; closing the service ends both at once.
    void shutdownWithFetchInFlight()
    {
        m_stub->setAnswer("/calls", {0, {}, {}, true});
        auto history = service(m_stub->url());
        const QFuture<bool> first = history->fetchCalls();
        const QFuture<bool> second = history->fetchCalls();
        QTRY_COMPARE(m_stub->requests().size(), 1);
        QVERIFY(history->isLoading());
        QVERIFY(!first.isFinished() && !second.isFinished());
        history.reset();
        QVERIFY(first.isFinished() && second.isFinished());
        QVERIFY(!first.result() && !second.result());
        QTest::qWait(50);
        QCOMPARE(m_stub->requests().size(), 1);
    }
};

QTEST_GUILESS_MAIN(CallHistoryServiceTest)
#include "CallHistoryServiceTest.moc"

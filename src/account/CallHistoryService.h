// The signed-in user's past calls: fetched from the backend's GET /calls, kept
// for five minutes in the settings document so that reopening the history does
// not fetch again, and published to the call-history screen in its sort order.
#pragma once

#include "account/Analytics.h"
#include "account/CallPresentation.h"
#include "account/CallRecords.h"
#include "core/HttpClient.h"

#include <QDateTime>
#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class KeychainManager;
class SettingsStore;

// Lives on the GUI thread, where its properties change and its futures finish.
//
// A failed fetch never takes away calls already shown, and the cache is only
// written after a response decoded completely, so a bad answer can neither
// empty the screen nor poison the next five minutes.
class CallHistoryService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QList<UserCallData> calls READ calls NOTIFY callsChanged)
    Q_PROPERTY(QList<UserCallData> sortedCalls READ sortedCalls NOTIFY sortedCallsChanged)
    Q_PROPERTY(CallPresentation::SortOrder sortOrder READ sortOrder WRITE setSortOrder NOTIFY
                   sortOrderChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(QDateTime lastUpdated READ lastUpdated NOTIFY lastUpdatedChanged)

public:
    using Clock = std::function<QDateTime()>;

    static constexpr std::chrono::seconds cacheExpiryInterval{300};
    static constexpr auto cacheKey = "CallHistoryCache";
    static constexpr auto cacheExpiryKey = "CallHistoryCacheExpiry";
    static constexpr auto lastUpdatedKey = "CallHistoryLastUpdated";

    // `clock` answers "now" for the cache's expiry (the current UTC time when empty).
    CallHistoryService(SettingsStore& settings, KeychainManager& keychain, QUrl backendUrl,
                       Analytics& analytics = Analytics::none(), Clock clock = {},
                       QObject* parent = nullptr);
    // Aborts a fetch in flight; its future finishes with false.
    ~CallHistoryService() override;
    CallHistoryService(const CallHistoryService&) = delete;
    CallHistoryService& operator=(const CallHistoryService&) = delete;

    QList<UserCallData> calls() const { return m_calls; }
    QList<UserCallData> sortedCalls() const { return m_sortedCalls; }
    CallPresentation::SortOrder sortOrder() const { return m_sortOrder; }
    void setSortOrder(CallPresentation::SortOrder order);
    bool isLoading() const { return m_loading; }
    // User-facing; empty when the last load went well.
    QString errorMessage() const { return m_errorMessage; }
    // When the cache was last written; invalid before the first successful fetch.
    QDateTime lastUpdated() const { return m_lastUpdated; }

    // The screen's load: the cache while it is fresh and decodes, else a fetch.
    // True when calls were published.
    Q_INVOKABLE QFuture<bool> loadCalls();
    // Always from the backend. A call while a fetch runs joins it (one request).
    Q_INVOKABLE QFuture<bool> fetchCalls();
    // Forgets the cache and its times; the calls shown stay.
    Q_INVOKABLE void clearCache();
    // Drops the calls shown and the last error (the user signed out); a fetch
    // in flight is abandoned so its answer cannot bring them back.
    void forgetCalls();
    // The screen's "Clear Cache & Refresh".
    Q_INVOKABLE QFuture<bool> clearCacheAndRefresh();

    std::optional<UserCallData> callById(const QString& id) const;
    // The call's action items as Markdown; empty for an unknown id.
    Q_INVOKABLE QString exportActionItems(const QString& id) const;

Q_SIGNALS:
    void callsChanged();
    void sortedCallsChanged();
    void sortOrderChanged();
    void isLoadingChanged();
    void errorMessageChanged();
    void lastUpdatedChanged();

private:
    struct Fetch;

    std::optional<QList<UserCallData>> readCache();
    void tokenRead(const std::optional<QString>& token);
    void replyFinished(const HttpResponse& reply);
    void handleResponse(int status, const QByteArray& body);
    void reportDecodingError(const DecodingError& error, int status, const QByteArray& body);
    void reportNetworkError(const QString& failure, const QString& error);
    void saveCache();
    void finishFetch(bool ok);
    void publish(const QList<UserCallData>& calls);
    void setLoading(bool loading);
    void setErrorMessage(const QString& message);
    void setLastUpdated(const QDateTime& when);
    QDateTime now() const;

    SettingsStore& m_settings;
    KeychainManager& m_keychain;
    Analytics& m_analytics;
    const Clock m_clock;
    HttpClient* m_http;             // child
    std::unique_ptr<Fetch> m_fetch; // the fetch in flight, if any

    QList<UserCallData> m_calls;
    QList<UserCallData> m_sortedCalls;
    CallPresentation::SortOrder m_sortOrder = CallPresentation::SortOrder::DateNewest;
    bool m_loading = false;
    QString m_errorMessage;
    QDateTime m_lastUpdated;
};

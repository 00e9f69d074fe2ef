#include "account/CallHistoryService.h"

#include "core/JsonValues.h"
#include "core/Logging.h"
#include "store/KeychainManager.h"
#include "store/SettingsStore.h"
#include "store/StoredTokens.h"

#include <QFutureWatcher>
#include <QJsonDocument>
#include <QPointer>
#include <QPromise>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

const QString fetchFailedText = u"Failed to fetch calls"_s;
const QString decodingFailedText = u"Unable to load call history. Please try again."_s;
const QString unreachableText =
    u"Unable to connect to our servers. Please check your internet connection."_s;
const QString timedOutText = u"The server took too long to respond. Please try again."_s;
const QString transportFailedText =
    u"Unable to load call history. Please check your connection and try again."_s;

QString keyOf(const char* key)
{
    return QString::fromLatin1(key);
}

void logInfo(const QString& line)
{
    qCInfo(lcAccount).noquote() << line;
}

void logWarning(const QString& line)
{
    qCWarning(lcAccount).noquote() << line;
}

QFuture<bool> finishedFuture(bool value)
{
    QPromise<bool> promise;
    promise.start();
    promise.addResult(value);
    promise.finish();
    return promise.future();
}

// The value a coding path ("data[2].summary.key_points[0]") leads to in `root`;
// Undefined when it leads nowhere.
QJsonValue valueAt(const QJsonValue& root, const QString& path)
{
    static const QRegularExpression step(u"([^.\\[\\]]+)|\\[(\\d+)\\]"_s);
    QJsonValue value = root;
    for (const QRegularExpressionMatch& match : step.globalMatch(path)) {
        value = match.hasCaptured(1) ? value.toObject().value(match.captured(1))
                                     : value.toArray().at(match.captured(2).toLongLong());
    }
    return value;
}

QString parentPath(const QString& path)
{
    const qsizetype cut = std::max(path.lastIndexOf(u'.'), path.lastIndexOf(u'['));
    return cut < 0 ? QString() : path.left(cut);
}

// What the failing part of a response looked like, as shapes and key names only:
// analytics never receives call contents (transcripts, summaries, messages), so
// no value of the response leaves the machine.
QVariantMap responseShape(const DecodingError& error, const QByteArray& body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isNull()) {
        return {{u"value_type"_s, u"not JSON"_s}};
    }
    const QJsonValue root =
        document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    const bool keyMissing = error.kind == DecodingError::Kind::KeyNotFound;
    const QString valuePath =
        keyMissing ? (error.codingPath.isEmpty() ? error.key : error.codingPath + u'.' + error.key)
                   : error.codingPath;
    const QJsonValue container = valueAt(root, parentPath(valuePath));
    QStringList siblingKeys = container.toObject().keys();
    siblingKeys.sort();
    return {
        {u"value_type"_s, jsonTypeName(valuePath.isEmpty() ? root : valueAt(root, valuePath),
                                       JsonTypeWording::Label)},
        {u"sibling_keys"_s, siblingKeys.join(u',')},
        {u"record_count"_s, root.toObject().value(u"data"_s).toArray().size()},
    };
}

// The backend's own words for a failed request ({"success": false, "error": …}).
QString errorTextOf(const QByteArray& body)
{
    return QJsonDocument::fromJson(body).object().value(u"error"_s).toString();
}

} // namespace

struct CallHistoryService::Fetch
{
    QPromise<bool> promise;
    QFuture<bool> future;
    QPointer<HttpCall> call;
};

CallHistoryService::CallHistoryService(SettingsStore& settings, KeychainManager& keychain,
                                       QUrl backendUrl, Analytics& analytics, Clock clock,
                                       QObject* parent)
    : QObject(parent), m_settings(settings), m_keychain(keychain), m_analytics(analytics),
      m_clock(std::move(clock)), m_http(new HttpClient(std::move(backendUrl), {}, this)),
      m_lastUpdated(m_settings.dateValue(keyOf(lastUpdatedKey)).value_or(QDateTime()))
{}

CallHistoryService::~CallHistoryService()
{
    if (!m_fetch) {
        return;
    }
    if (m_fetch->call) {
        m_fetch->call->cancel();
    }
    m_fetch->promise.addResult(false);
    m_fetch->promise.finish();
}

void CallHistoryService::setSortOrder(CallPresentation::SortOrder order)
{
    if (order == m_sortOrder) {
        return;
    }
    m_sortOrder = order;
    m_sortedCalls = CallPresentation::sorted(m_calls, m_sortOrder);
    Q_EMIT sortOrderChanged();
    Q_EMIT sortedCallsChanged();
}

QFuture<bool> CallHistoryService::loadCalls()
{
    if (std::optional<QList<UserCallData>> cached = readCache()) {
        publish(*cached);
        setErrorMessage({});
        setLastUpdated(m_settings.dateValue(keyOf(lastUpdatedKey)).value_or(QDateTime()));
        logInfo(u"📞 Loaded %1 calls from cache"_s.arg(cached->size()));
        return finishedFuture(true);
    }
    logInfo(u"📞 Cache expired or not found, will fetch fresh data"_s);
    return fetchCalls();
}

std::optional<QList<UserCallData>> CallHistoryService::readCache()
{
    const std::optional<QDateTime> expiry = m_settings.dateValue(keyOf(cacheExpiryKey));
    const QJsonValue cached = m_settings.value(keyOf(cacheKey));
    if (!expiry || *expiry <= now() || cached.isUndefined() || cached.isNull()) {
        return std::nullopt;
    }
    Decoded<QList<UserCallData>> decoded = CallRecords::decodeCalls(cached);
    if (!decoded.ok()) {
        logWarning(u"❌ Failed to decode cached call history: "_s + decoded.error.description +
                   u" (at path: "_s + decoded.error.codingPath + u')');
        return std::nullopt;
    }
    return std::move(decoded.value);
}

QFuture<bool> CallHistoryService::fetchCalls()
{
    if (m_fetch) {
        return m_fetch->future;
    }
    m_fetch = std::make_unique<Fetch>();
    m_fetch->promise.start();
    m_fetch->future = m_fetch->promise.future();
    QFuture<bool> future = m_fetch->future;
    setLoading(true);
    setErrorMessage({});

    // The watcher is a child: should the service go first, the answer goes nowhere.
    auto* watcher = new QFutureWatcher<std::optional<QString>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QFuture<std::optional<QString>> read = watcher->future();
        tokenRead(read.isResultReadyAt(0) ? read.result() : std::nullopt);
    });
    // The stored token as it is: the history has no say in renewing it.
    watcher->setFuture(StoredTokens::readAccessToken(m_keychain));
    return future;
}

void CallHistoryService::tokenRead(const std::optional<QString>& token)
{
    if (!m_fetch) {
        return;
    }
    if (!token || token->isEmpty()) {
        logWarning(u"Failed to fetch calls: no access token in the secure store (signed out?)"_s);
        setErrorMessage(fetchFailedText);
        finishFetch(false);
        return;
    }
    m_fetch->call = m_http->send(HttpRequest::get(u"/calls"_s).acceptingJson().withBearer(*token),
                                 [this](const HttpResponse& reply) { replyFinished(reply); });
}

void CallHistoryService::replyFinished(const HttpResponse& reply)
{
    if (!m_fetch) {
        return;
    }
    switch (reply.failure) {
    case HttpFailure::None:
        handleResponse(reply.status, reply.body);
        return;
    case HttpFailure::Unreachable:
        reportNetworkError(u"unreachable"_s, reply.errorString);
        setErrorMessage(unreachableText);
        break;
    case HttpFailure::TimedOut:
        reportNetworkError(u"timed_out"_s, reply.errorString);
        setErrorMessage(timedOutText);
        break;
    case HttpFailure::Other:
    case HttpFailure::NoAccessToken: // not asked of the client here
    case HttpFailure::Cancelled:
        reportNetworkError(u"other"_s, reply.errorString);
        setErrorMessage(transportFailedText);
        break;
    }
    finishFetch(false);
}

void CallHistoryService::handleResponse(int status, const QByteArray& body)
{
    logInfo(u"📞 Call history response status: "_s + QString::number(status));
    // The body holds whole transcripts: a debug line, and only its start.
    constexpr qsizetype rawLogLimit = 2000;
    qCDebug(lcAccount).noquote() << u"📞 Raw API response: "_s +
                                        QString::fromUtf8(body.left(rawLogLimit)) +
                                        (body.size() > rawLogLimit
                                             ? u"… (%1 bytes in all)"_s.arg(body.size())
                                             : QString());
    if (status < 200 || status > 299) {
        const QString detail = errorTextOf(body);
        logWarning(u"Failed to fetch calls: HTTP "_s + QString::number(status) +
                   (detail.isEmpty() ? QString() : u": "_s + detail));
        setErrorMessage(fetchFailedText);
        finishFetch(false);
        return;
    }
    Decoded<CallHistoryResponse> decoded = CallRecords::decodeResponse(body);
    if (!decoded.ok()) {
        reportDecodingError(decoded.error, status, body);
        setErrorMessage(decodingFailedText);
        finishFetch(false);
        return;
    }
    if (!decoded.value->success) {
        logWarning(u"Failed to fetch calls: "_s +
                   decoded.value->error.value_or(u"the backend reported no success"_s));
        setErrorMessage(fetchFailedText);
        finishFetch(false);
        return;
    }
    publish(decoded.value->data);
    logInfo(u"📞 Loaded %1 calls from API"_s.arg(m_calls.size()));
    saveCache();
    finishFetch(true);
}

void CallHistoryService::reportDecodingError(const DecodingError& error, int status,
                                             const QByteArray& body)
{
    QVariantMap properties = {
        {u"error_type"_s, error.kindName()},
        {u"description"_s, error.description},
        {u"coding_path"_s, error.codingPath},
        {u"has_existing_data"_s, !m_calls.isEmpty()},
    };
    switch (error.kind) {
    case DecodingError::Kind::KeyNotFound:
        logWarning(u"❌ Missing key '"_s + error.key + u"' at path: "_s + error.codingPath);
        properties.insert(u"missing_key"_s, error.key);
        break;
    case DecodingError::Kind::TypeMismatch:
        logWarning(u"❌ Type mismatch for type "_s + error.expectedType + u" at path: "_s +
                   error.codingPath);
        properties.insert(u"expected_type"_s, error.expectedType);
        break;
    case DecodingError::Kind::ValueNotFound:
        logWarning(u"❌ Value not found for type "_s + error.expectedType + u" at path: "_s +
                   error.codingPath);
        properties.insert(u"expected_type"_s, error.expectedType);
        break;
    case DecodingError::Kind::DataCorrupted:
        logWarning(u"❌ Data corrupted at path: "_s + error.codingPath);
        break;
    case DecodingError::Kind::Unknown:
        logWarning(u"❌ Unknown decoding error: "_s + error.description);
        break;
    }
    m_analytics.track(u"call_history_decoding_error"_s, properties);

    QVariantMap detail = responseShape(error, body);
    detail.insert(u"error_type"_s, error.kindName());
    detail.insert(u"coding_path"_s, error.codingPath);
    detail.insert(u"status_code"_s, status);
    detail.insert(u"response_bytes"_s, body.size());
    m_analytics.track(u"call_history_decoding_error_detail"_s, detail);
}

void CallHistoryService::reportNetworkError(const QString& failure, const QString& error)
{
    logWarning(u"❌ Call history fetch error: "_s + error);
    m_analytics.track(u"call_history_network_error"_s,
                      {{u"error_description"_s, error},
                       {u"failure"_s, failure},
                       {u"has_existing_data"_s, !m_calls.isEmpty()}});
}

void CallHistoryService::saveCache()
{
    const QDateTime savedAt = now();
    const QDateTime expiry = savedAt.addSecs(cacheExpiryInterval.count());
    if (!m_settings.setValue(keyOf(cacheKey), CallRecords::encodeCalls(m_calls)) ||
        !m_settings.setDate(keyOf(cacheExpiryKey), expiry) ||
        !m_settings.setDate(keyOf(lastUpdatedKey), savedAt)) {
        logWarning(u"❌ Failed to cache call history: "_s + m_settings.lastError());
        return;
    }
    setLastUpdated(savedAt);
    logInfo(
        u"📞 Cached %1 calls (expires in %2 minutes)"_s.arg(m_calls.size())
            .arg(std::chrono::duration_cast<std::chrono::minutes>(cacheExpiryInterval).count()));
}

void CallHistoryService::clearCache()
{
    m_settings.remove(keyOf(cacheKey));
    m_settings.remove(keyOf(cacheExpiryKey));
    m_settings.remove(keyOf(lastUpdatedKey));
    setLastUpdated({});
    logInfo(u"📞 Call history cache cleared"_s);
}

void CallHistoryService::forgetCalls()
{
    if (m_fetch) {
        if (m_fetch->call) {
            m_fetch->call->cancel();
        }
        finishFetch(false);
    }
    setErrorMessage({});
    publish({});
}

QFuture<bool> CallHistoryService::clearCacheAndRefresh()
{
    clearCache();
    return fetchCalls();
}

std::optional<UserCallData> CallHistoryService::callById(const QString& id) const
{
    for (const UserCallData& call : m_calls) {
        if (call.id == id) {
            return call;
        }
    }
    return std::nullopt;
}

QString CallHistoryService::exportActionItems(const QString& id) const
{
    const std::optional<UserCallData> call = callById(id);
    return call ? CallPresentation::actionItemsMarkdown(*call) : QString();
}

void CallHistoryService::finishFetch(bool ok)
{
    // Taken out first: a listener of the changes below may start the next fetch.
    const std::unique_ptr<Fetch> fetch = std::move(m_fetch);
    setLoading(false);
    fetch->promise.addResult(ok);
    fetch->promise.finish();
}

void CallHistoryService::publish(const QList<UserCallData>& calls)
{
    m_calls = calls;
    m_sortedCalls = CallPresentation::sorted(m_calls, m_sortOrder);
    Q_EMIT callsChanged();
    Q_EMIT sortedCallsChanged();
}

void CallHistoryService::setLoading(bool loading)
{
    if (loading != m_loading) {
        m_loading = loading;
        Q_EMIT isLoadingChanged();
    }
}

void CallHistoryService::setErrorMessage(const QString& message)
{
    if (message != m_errorMessage) {
        m_errorMessage = message;
        Q_EMIT errorMessageChanged();
    }
}

void CallHistoryService::setLastUpdated(const QDateTime& when)
{
    if (when != m_lastUpdated) {
        m_lastUpdated = when;
        Q_EMIT lastUpdatedChanged();
    }
}

QDateTime CallHistoryService::now() const
{
    return m_clock ? m_clock() : QDateTime::currentDateTimeUtc();
}

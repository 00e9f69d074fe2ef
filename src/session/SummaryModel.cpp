#include "session/SummaryModel.h"

#include "core/JsonValues.h"
#include "core/Logging.h"

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;
using namespace LiveSession;

namespace {

bool isBlank(const QString& text)
{
    return text.trimmed().isEmpty();
}

QString speakerKey(const Speaker& speaker)
{
    return speaker.name.simplified().toCaseFolded();
}

// The newer list, each speaker keeping the local id it had under its name so
// that the speakers list does not flicker on every summary.
QList<Speaker> mergedSpeakers(const QList<Speaker>& current, const QList<Speaker>& incoming)
{
    QList<Speaker> result;
    for (const Speaker& speaker : incoming) {
        const QString key = speakerKey(speaker);
        const auto same = [&key](const Speaker& other) { return speakerKey(other) == key; };
        if (std::any_of(result.cbegin(), result.cend(), same)) {
            continue;
        }
        Speaker merged = speaker;
        if (const auto known = std::find_if(current.cbegin(), current.cend(), same);
            known != current.cend()) {
            merged.id = known->id;
        }
        result.append(std::move(merged));
    }
    return result;
}

QList<ActionItem> mergedActionItems(QList<ActionItem> items, const QList<ActionItem>& incoming)
{
    for (const ActionItem& item : incoming) {
        const QString key = item.normalizedDescription();
        const auto found =
            std::find_if(items.begin(), items.end(), [&key](const ActionItem& other) {
                return other.normalizedDescription() == key;
            });
        if (found == items.end()) {
            items.append(item);
            continue;
        }
        found->priority = item.priority;
        if (item.assignee) {
            found->assignee = item.assignee;
        }
        if (item.deadline) {
            found->deadline = item.deadline;
        }
    }
    return items;
}

} // namespace

QVariant SummaryHistoryEntry::processedSegmentsValue() const
{
    return processedSegments ? QVariant(*processedSegments) : QVariant();
}

SummaryModel::SummaryModel(QObject* parent) : SummaryModel(Options{}, parent) {}

SummaryModel::SummaryModel(Options options, QObject* parent)
    : QObject(parent), m_clock(std::move(options.clock))
{
    m_pushTimer.setInterval(options.pushInterval);
    connect(&m_pushTimer, &QTimer::timeout, this, [this] { pushTranscriptIfChanged(); });
}

void SummaryModel::handleProcessedTranscription(const QJsonObject& payload)
{
    if (!payload.value("summary"_L1).isObject()) {
        qCDebug(lcSession) << "Processed transcription without a summary";
        return;
    }
    handleSummary(payload);
}

void SummaryModel::handleReceivedTranscription(const QJsonObject& payload)
{
    const Decoded<TranscriptionReceivedResponse> decoded = decodeTranscriptionReceived(payload);
    if (!decoded.ok()) {
        qCWarning(lcSession).noquote()
            << u"❌ Error decoding transcription received: "_s + decoded.error;
        setError(SummaryModelError::decodingError());
        return;
    }
    if (!decoded.value->success) {
        qCWarning(lcSession) << "The backend did not take the transcription";
        setError(SummaryModelError::invalidResponse());
        return;
    }
    apply(SummaryUpdate::from(decoded.value->summary));
}

void SummaryModel::handleSummary(const QJsonObject& payload)
{
    const Decoded<SummaryUpdate> decoded = decodeSummaryPayload(payload);
    if (!decoded.ok()) {
        qCWarning(lcSession).noquote() << u"❌ Error decoding summary: "_s + decoded.error;
        setError(SummaryModelError::decodingError());
        return;
    }
    apply(*decoded.value);
}

void SummaryModel::setSummarySender(SummarySender sender)
{
    m_sender = std::move(sender);
}

void SummaryModel::setTranscriptProvider(TranscriptProvider provider)
{
    m_transcript = std::move(provider);
}

void SummaryModel::setCallStartedAt(const QDateTime& startedAt)
{
    m_callStartedAt = startedAt;
}

void SummaryModel::start()
{
    if (m_pushTimer.isActive()) {
        return;
    }
    m_pushTimer.start();
    Q_EMIT isPushingChanged();
}

void SummaryModel::stop()
{
    if (!m_pushTimer.isActive()) {
        return;
    }
    m_pushTimer.stop();
    Q_EMIT isPushingChanged();
}

bool SummaryModel::pushTranscriptIfChanged()
{
    // Copies: a provider or sender may replace itself while it runs.
    const TranscriptProvider provider = m_transcript;
    const QString text = provider ? provider() : QString();
    if (isBlank(text) || text == m_lastPushedTranscript) {
        return false;
    }
    TranscriptionSummaryData data;
    data.transcriptionText = text;
    data.timestamp = m_clock();
    if (m_callStartedAt.isValid()) {
        const qint64 seconds = m_callStartedAt.secsTo(data.timestamp);
        data.callDuration =
            static_cast<int>(std::clamp<qint64>(seconds, 0, std::numeric_limits<int>::max()));
    }
    if (!isBlank(m_summary.overview)) {
        data.summary = m_summary.overview;
    }
    const SummarySender sender = m_sender;
    if (!sender || !sender(data.toJson())) {
        qCInfo(lcSession)
            << "The session did not take the transcript; trying again on the next tick";
        setError(SummaryModelError::websocketNotConnected());
        return false;
    }
    qCDebug(lcSession) << "Pushed the transcript for summarizing," << text.size() << "characters";
    m_lastPushedTranscript = text;
    if (m_error && m_error->kind() == SummaryModelError::Kind::WebsocketNotConnected) {
        setError(std::nullopt);
    }
    return true;
}

void SummaryModel::reportError(const SummaryModelError& error)
{
    qCWarning(lcSession).noquote() << u"Summary error: "_s + error.message();
    setError(error);
}

void SummaryModel::clear()
{
    resetSummary();
    m_callStartedAt = QDateTime();
    m_lastPushedTranscript.reset();
    setError(std::nullopt);
}

QVariantList SummaryModel::historyList() const
{
    return variantList(m_history);
}

void SummaryModel::apply(const SummaryUpdate& update)
{
    if (update.summary.isEmpty()) {
        qCDebug(lcSession) << "A summary with nothing to show; ignored";
        return;
    }
    const QString callId = update.callId.value_or(QString());
    if (!callId.isEmpty() && !m_callId.isEmpty() && callId != m_callId) {
        qCInfo(lcSession).noquote()
            << u"A summary of call %1 while showing call %2: starting over"_s.arg(callId, m_callId);
        resetSummary();
    }
    const bool callIdChanged = !callId.isEmpty() && callId != m_callId;
    if (callIdChanged) {
        m_callId = callId;
    }
    const bool stale = update.processedSegments && m_processedSegments &&
                       *update.processedSegments < *m_processedSegments;
    addToHistory(update, stale);
    if (stale) {
        qCInfo(lcSession) << "A stale summary covering" << *update.processedSegments
                          << "segments while showing" << *m_processedSegments
                          << "; kept in the history only";
        if (callIdChanged) {
            Q_EMIT summaryChanged();
        }
        return;
    }
    merge(update.summary);
    if (update.processedSegments) {
        m_processedSegments = std::max(*update.processedSegments, m_processedSegments.value_or(0));
    }
    m_lastUpdated = m_clock();
    m_hasSummary = true;
    setError(std::nullopt);
    Q_EMIT summaryChanged();
}

void SummaryModel::addToHistory(const SummaryUpdate& update, bool stale)
{
    if (!m_history.isEmpty() && m_history.constLast().summary == update.summary) {
        return;
    }
    m_history.append(SummaryHistoryEntry{m_clock(), update.processedSegments, update.timestamp,
                                         stale, update.summary});
    if (m_history.size() > historyLimit) {
        m_history.remove(0, m_history.size() - historyLimit);
    }
    Q_EMIT historyChanged();
}

void SummaryModel::merge(const CallSummary& incoming)
{
    if (!isBlank(incoming.overview)) {
        m_summary.overview = incoming.overview;
    }
    if (!incoming.keyPoints.isEmpty()) {
        m_summary.keyPoints = incoming.keyPoints;
    }
    if (!incoming.speakers.isEmpty()) {
        m_summary.speakers = mergedSpeakers(m_summary.speakers, incoming.speakers);
    }
    m_summary.actionItems =
        mergedActionItems(std::move(m_summary.actionItems), incoming.actionItems);
    if (!incoming.topics.isEmpty()) {
        m_summary.topics = incoming.topics;
    }
    if (!incoming.sentimentIsDefault) {
        m_summary.sentiment = incoming.sentiment;
        m_summary.sentimentIsDefault = false;
    }
    if (!isBlank(incoming.duration)) {
        m_summary.duration = incoming.duration;
    }
    if (incoming.confidence) {
        m_summary.confidence = incoming.confidence;
    }
}

void SummaryModel::resetSummary()
{
    m_summary = CallSummary();
    m_hasSummary = false;
    m_callId.clear();
    m_processedSegments.reset();
    m_lastUpdated = QDateTime();
    Q_EMIT summaryChanged();
    if (!m_history.isEmpty()) {
        m_history.clear();
        Q_EMIT historyChanged();
    }
}

void SummaryModel::setError(std::optional<SummaryModelError> error)
{
    if (m_error == error) {
        return;
    }
    m_error = std::move(error);
    Q_EMIT lastErrorChanged();
}

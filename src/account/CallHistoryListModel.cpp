#include "account/CallHistoryListModel.h"

#include "account/CallHistoryService.h"
#include "account/CallPresentation.h"
#include "core/Logging.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QVariantList>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Long enough to tell calls apart, short enough for one line of the list.
constexpr qsizetype longestTitle = 64;

QString percentText(double fraction)
{
    return u"%1%"_s.arg(std::lround(fraction * 100.0));
}

QString directionTitle(const QString& direction)
{
    if (direction == u"outbound"_s) {
        return u"Outbound call"_s;
    }
    if (direction == u"inbound"_s) {
        return u"Inbound call"_s;
    }
    return u"Call"_s;
}

QString authorOf(const CallConversationMessage& message)
{
    const QString role = message.roleText();
    if (role == u"user"_s) {
        return u"You"_s;
    }
    if (role == u"assistant"_s) {
        return u"Assistant"_s;
    }
    return role.isEmpty() ? u"Message"_s : role;
}

QString secondsText(double seconds)
{
    return u"%1 s"_s.arg(seconds, 0, 'f', 1);
}

QVariantMap processingRow(const QString& label, const QString& value)
{
    return {{u"label"_s, label}, {u"value"_s, value}};
}

} // namespace

CallHistoryListModel::CallHistoryListModel(CallHistoryService& history, Clock now, QObject* parent)
    : QAbstractListModel(parent), m_history(history), m_now(std::move(now)),
      m_calls(history.sortedCalls())
{
    connect(&m_history, &CallHistoryService::sortedCallsChanged, this,
            &CallHistoryListModel::reload);
    connect(&m_history, &CallHistoryService::sortOrderChanged, this,
            &CallHistoryListModel::sortOrderIndexChanged);
}

int CallHistoryListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_calls.size());
}

QVariant CallHistoryListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const UserCallData& call = m_calls.at(index.row());
    switch (role) {
    case IdRole:
        return call.id;
    case Qt::DisplayRole:
    case TitleRole:
        return title(call);
    case DateTextRole:
        return dateText(call.createdAt);
    case DurationTextRole:
        return CallPresentation::displayDuration(call);
    case StatusRole:
        return call.status;
    case DirectionRole:
        return call.direction;
    case DecryptionErrorRole:
        return call.decryptionErrorText();
    case HasSummaryRole:
        return call.summary.has_value();
    default:
        return {};
    }
}

QHash<int, QByteArray> CallHistoryListModel::roleNames() const
{
    return {
        {IdRole, "id"},
        {TitleRole, "title"},
        {DateTextRole, "dateText"},
        {DurationTextRole, "durationText"},
        {StatusRole, "status"},
        {DirectionRole, "direction"},
        {DecryptionErrorRole, "decryptionError"},
        {HasSummaryRole, "hasSummary"},
    };
}

QStringList CallHistoryListModel::sortOrderNames()
{
    QStringList names;
    for (const CallPresentation::SortOrder order : CallPresentation::sortOrders()) {
        names.append(CallPresentation::displayName(order));
    }
    return names;
}

int CallHistoryListModel::sortOrderIndex() const
{
    return static_cast<int>(CallPresentation::sortOrders().indexOf(m_history.sortOrder()));
}

void CallHistoryListModel::setSortOrderIndex(int index)
{
    const QList<CallPresentation::SortOrder>& orders = CallPresentation::sortOrders();
    if (index < 0 || index >= orders.size()) {
        return;
    }
    m_history.setSortOrder(orders.at(index));
}

QStringList CallHistoryListModel::detailTabNames()
{
    return {u"Summary"_s, u"Transcript"_s, u"Actions"_s, u"Comments"_s, u"Topics"_s, u"Insights"_s};
}

QString CallHistoryListModel::title(const UserCallData& call)
{
    QString text = call.summary ? call.summary->content.simplified() : QString();
    // The first sentence is the summarizer's own headline for the call.
    static const QRegularExpression sentenceEnd(u"[.!?](?=\\s|$)"_s);
    if (const QRegularExpressionMatch end = sentenceEnd.match(text); end.hasMatch()) {
        text.truncate(end.capturedStart());
    }
    if (text.isEmpty()) {
        return directionTitle(call.direction);
    }
    if (text.size() <= longestTitle) {
        return text;
    }
    qsizetype cut = text.lastIndexOf(u' ', longestTitle);
    if (cut < longestTitle / 2) {
        cut = longestTitle; // one very long word: cut inside it
    }
    text.truncate(cut);
    while (!text.isEmpty() && (text.back().isSpace() || text.back().isPunct())) {
        text.chop(1);
    }
    return text + u'…';
}

QVariantMap CallHistoryListModel::detail(const QString& id) const
{
    const std::optional<UserCallData> found = m_history.callById(id);
    if (!found) {
        return {};
    }
    const UserCallData& call = *found;
    const std::optional<CallSummaryData>& summary = call.summary;

    QVariantMap summaryTab;
    summaryTab.insert(u"content"_s, summary ? summary->content : QString());
    summaryTab.insert(u"keyPoints"_s, summary ? summary->keyPoints : QStringList());
    summaryTab.insert(u"sentiment"_s, summary ? summary->sentiment : QString());

    QVariantList segments;
    QString transcriptText;
    if (call.transcription) {
        for (const CallTranscriptionSegment& segment : call.transcription->segments) {
            segments.append(QVariantMap{
                {u"speaker"_s, segment.speaker},
                {u"time"_s, CallPresentation::displayDuration(segment.startTime)},
                {u"text"_s, segment.text},
            });
        }
        transcriptText = call.transcription->text;
    }

    QVariantList actions;
    for (const ActionItem& item : summary ? summary->actionItems : QList<ActionItem>()) {
        actions.append(QVariantMap{
            {u"description"_s, item.description},
            {u"assignee"_s, item.assigneeText()},
            {u"priority"_s, item.priorityText()},
            {u"deadline"_s, item.deadlineText()},
        });
    }

    QVariantList comments;
    int timedMessages = 0;
    double processingSeconds = 0.0;
    for (const CallConversationMessage& message : call.messageList()) {
        comments.append(QVariantMap{
            {u"role"_s, message.roleText()},
            {u"author"_s, authorOf(message)},
            {u"content"_s, message.content},
            {u"time"_s, dateText(message.timestamp)},
        });
        if (message.metadata && std::isfinite(message.metadata->processingTime)) {
            ++timedMessages;
            processingSeconds += message.metadata->processingTime;
        }
    }

    QVariantList topics;
    QVariantList speakers;
    if (summary) {
        for (const Topic& topic : summary->topicList()) {
            topics.append(QVariantMap{
                {u"topic"_s, topic.topic},
                {u"importance"_s, topic.importance},
                {u"importanceText"_s, percentText(topic.importance)},
                {u"mentions"_s, topic.mentions},
            });
        }
        for (const Speaker& speaker : summary->speakerList()) {
            speakers.append(QVariantMap{
                {u"name"_s, speaker.name},
                {u"role"_s, speaker.roleText()},
                {u"contributions"_s, speaker.mainContributions},
            });
        }
    }

    QVariantList processing;
    if (call.transcription) {
        processing.append(processingRow(u"Transcription confidence"_s,
                                        percentText(call.transcription->confidence)));
        processing.append(processingRow(u"Transcript segments"_s,
                                        QString::number(call.transcription->segments.size())));
    }
    processing.append(processingRow(
        u"Assistant messages"_s,
        QString::number(call.messageCount.value_or(static_cast<int>(call.messageList().size())))));
    if (timedMessages > 0) {
        processing.append(processingRow(u"Average response time"_s,
                                        secondsText(processingSeconds / timedMessages)));
    }
    if (summary && summary->createdAt.moment.isValid()) {
        processing.append(processingRow(u"Summary written"_s, dateText(summary->createdAt)));
    }
    if (call.lastSaved.moment.isValid()) {
        processing.append(processingRow(u"Last saved"_s, dateText(call.lastSaved)));
    }

    QVariantMap insights;
    insights.insert(u"sentiment"_s, summary ? summary->sentiment : QString());
    const std::optional<double> score = summary ? summary->sentimentScore : std::nullopt;
    insights.insert(u"sentimentScore"_s, score ? QVariant(*score) : QVariant());
    insights.insert(u"sentimentScoreText"_s,
                    score ? (*score > 0 ? u"+"_s : QString()) + QString::number(*score, 'f', 2)
                          : QString());
    insights.insert(u"speakers"_s, speakers);
    insights.insert(u"processing"_s, processing);

    return {
        {u"id"_s, call.id},
        {u"title"_s, title(call)},
        {u"dateText"_s, dateText(call.createdAt)},
        {u"durationText"_s, CallPresentation::displayDuration(call)},
        {u"status"_s, call.status},
        {u"direction"_s, call.direction},
        {u"decryptionError"_s, call.decryptionErrorText()},
        {u"hasSummary"_s, summary.has_value()},
        {u"summary"_s, summaryTab},
        {u"transcript"_s, QVariantMap{{u"segments"_s, segments}, {u"text"_s, transcriptText}}},
        {u"actions"_s, actions},
        {u"comments"_s, comments},
        {u"topics"_s, topics},
        {u"insights"_s, insights},
    };
}

QString CallHistoryListModel::actionItemsMarkdown(const QString& id) const
{
    return m_history.exportActionItems(id);
}

QString CallHistoryListModel::saveActionItems(const QString& id, const QUrl& fileUrl) const
{
    const QString markdown = m_history.exportActionItems(id);
    if (markdown.isEmpty()) {
        return u"This call is no longer in the call history."_s;
    }
    if (!fileUrl.isLocalFile()) {
        return u"Action items can only be saved to a file on this computer."_s;
    }
    const QString path = fileUrl.toLocalFile();
    const QString shown = QDir::toNativeSeparators(path);
    const QFileInfo info(path);
    if (info.isDir()) {
        return u"%1 is a folder. Choose a file name for the action items."_s.arg(shown);
    }
    if (!info.absoluteDir().exists()) {
        return u"The action items could not be saved: the folder %1 does not exist."_s.arg(
            QDir::toNativeSeparators(info.absolutePath()));
    }
    // Written beside the target and renamed over it, so a full disk or a
    // crash never leaves half a list where the user expects the whole one.
    QSaveFile file(path);
    const QByteArray bytes = markdown.toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        qCWarning(lcAccount).noquote()
            << u"Failed to save action items to %1: %2"_s.arg(shown, reason);
        return u"The action items could not be saved to %1 (%2)."_s.arg(shown, reason);
    }
    qCInfo(lcAccount).noquote() << u"Saved action items of call %1 to %2"_s.arg(id, shown);
    return {};
}

void CallHistoryListModel::reload()
{
    const bool countChanges = m_history.sortedCalls().size() != m_calls.size();
    beginResetModel();
    m_calls = m_history.sortedCalls();
    endResetModel();
    if (countChanges) {
        Q_EMIT countChanged();
    }
}

QDateTime CallHistoryListModel::now() const
{
    return m_now ? m_now() : QDateTime::currentDateTime();
}

QString CallHistoryListModel::dateText(const RecordDate& date) const
{
    return date.moment.isValid() ? CallPresentation::displayDate(date.moment, now()) : QString();
}

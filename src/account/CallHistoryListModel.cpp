#include "account/CallHistoryListModel.h"

#include "account/CallHistoryService.h"
#include "account/CallPresentation.h"
#include "core/Logging.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

using namespace Qt::StringLiterals;

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
    return CallPresentation::title(call);
}

CallDetail CallHistoryListModel::detail(const QString& id) const
{
    const std::optional<UserCallData> found = m_history.callById(id);
    return found ? CallDetail::of(*found, now()) : CallDetail();
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

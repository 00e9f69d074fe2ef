// The call-history screen's list and detail view: the service's calls in the
// chosen order as rows, one call's details as the six tabs show them, and the
// export of its action items.
#pragma once

#include "account/CallDetail.h"
#include "account/CallRecords.h"

#include <QAbstractListModel>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

class CallHistoryService;

// Lives on the GUI thread beside the service (which must outlive it) and
// resets whenever the service publishes a new sorted list.
class CallHistoryListModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(QStringList sortOrderNames READ sortOrderNames CONSTANT)
    Q_PROPERTY(
        int sortOrderIndex READ sortOrderIndex WRITE setSortOrderIndex NOTIFY sortOrderIndexChanged)
    Q_PROPERTY(QStringList detailTabNames READ detailTabNames CONSTANT)

public:
    using Clock = std::function<QDateTime()>;

    enum Role
    {
        IdRole = Qt::UserRole + 1,
        TitleRole,
        DateTextRole,
        DurationTextRole,
        StatusRole,
        DirectionRole,
        DecryptionErrorRole,
        HasSummaryRole,
    };
    Q_ENUM(Role)

    // `now` answers "now" for "Today"/"Yesterday" (the current time when empty).
    explicit CallHistoryListModel(CallHistoryService& history, Clock now = {},
                                  QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return rowCount(); }
    static QStringList sortOrderNames();
    int sortOrderIndex() const;
    // An index outside the list of orders is ignored.
    void setSortOrderIndex(int index);
    // "Summary", "Transcript", "Actions", "Comments", "Topics", "Insights".
    static QStringList detailTabNames();

    // The list's headline for a call: the summary's opening words, else its direction.
    static QString title(const UserCallData& call);

    // Everything the detail view shows for the call, by tab; empty for an unknown id.
    Q_INVOKABLE CallDetail detail(const QString& id) const;
    Q_INVOKABLE QString actionItemsMarkdown(const QString& id) const;
    // Writes the call's action items as Markdown to a local file, whole or not
    // at all. Empty on success, else a sentence for the user.
    Q_INVOKABLE QString saveActionItems(const QString& id, const QUrl& fileUrl) const;

Q_SIGNALS:
    void countChanged();
    void sortOrderIndexChanged();

private:
    void reload();
    QDateTime now() const;
    QString dateText(const RecordDate& date) const;

    CallHistoryService& m_history;
    const Clock m_now;
    QList<UserCallData> m_calls;
};

// The conversation as a list the chat panel shows, one row per message,
// following the ChatViewModel row by row.
#pragma once

#include <QAbstractListModel>
#include <QPointer>

class ChatViewModel;

// Lives on the GUI thread with the ChatViewModel it shows.
class ChatMessageListModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)

public:
    enum Role
    {
        MessageIdRole = Qt::UserRole + 1,
        ContentRole,
        IsFromUserRole,
        IsLoadingRole,
        TimestampRole,
        IsSuggestionRole,
        // [{"name", "title", "arguments"}]: the tools asked for, arguments readable
        ToolCallsRole,
        // [{"success", "content"}]
        ToolResultsRole,
        ApprovalStateRole, // ChatViewModel::ApprovalState
    };

    explicit ChatMessageListModel(ChatViewModel& chat, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void countChanged();

private:
    QPointer<ChatViewModel> m_chat;
    // The rows the views know of: the model's own count, changed only between
    // the begin and end of each change, as views expect.
    int m_rows = 0;
};

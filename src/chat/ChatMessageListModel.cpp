#include "chat/ChatMessageListModel.h"

#include "chat/ChatViewModel.h"

#include <QVariantList>
#include <QVariantMap>

using namespace Qt::StringLiterals;

ChatMessageListModel::ChatMessageListModel(ChatViewModel& chat, QObject* parent)
    : QAbstractListModel(parent), m_chat(&chat), m_rows(static_cast<int>(chat.messages().size()))
{
    connect(&chat, &ChatViewModel::messageInserted, this, [this](int row) {
        beginInsertRows({}, row, row);
        ++m_rows;
        endInsertRows();
        Q_EMIT countChanged();
    });
    connect(&chat, &ChatViewModel::messageRemoved, this, [this](int row) {
        beginRemoveRows({}, row, row);
        --m_rows;
        endRemoveRows();
        Q_EMIT countChanged();
    });
    connect(&chat, &ChatViewModel::messageUpdated, this,
            [this](int row) { Q_EMIT dataChanged(index(row), index(row)); });
    connect(&chat, &ChatViewModel::messagesReset, this, [this] {
        beginResetModel();
        m_rows = m_chat ? static_cast<int>(m_chat->messages().size()) : 0;
        endResetModel();
        Q_EMIT countChanged();
    });
}

int ChatMessageListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

QVariant ChatMessageListModel::data(const QModelIndex& index, int role) const
{
    if (!m_chat || !index.isValid() || index.row() >= m_chat->messages().size())
        return {};
    const ChatMessage& message = m_chat->messages().at(index.row());
    switch (role) {
    case MessageIdRole:
        return message.id;
    case ContentRole:
    case Qt::DisplayRole:
        return message.content;
    case IsFromUserRole:
        return message.isFromUser;
    case IsLoadingRole:
        return message.isLoading;
    case TimestampRole:
        return message.timestamp;
    case IsSuggestionRole:
        return ChatViewModel::isSuggestion(message.id);
    case ToolCallsRole: {
        QVariantList calls;
        for (const ToolCall& call : message.toolCalls.value_or(QList<ToolCall>()))
            calls.append(
                QVariantMap{{u"name"_s, call.name},
                            {u"title"_s, m_chat->toolTitle(call.name)},
                            {u"arguments"_s, ChatRecords::readableArguments(call.parameters)}});
        return calls;
    }
    case ToolResultsRole: {
        QVariantList results;
        for (const ToolResult& result : message.toolResults.value_or(QList<ToolResult>()))
            results.append(
                QVariantMap{{u"success"_s, result.success}, {u"content"_s, result.result}});
        return results;
    }
    case ApprovalStateRole:
        return static_cast<int>(m_chat->approvalState(message.id));
    default:
        return {};
    }
}

QHash<int, QByteArray> ChatMessageListModel::roleNames() const
{
    return {{MessageIdRole, "messageId"},        {ContentRole, "content"},
            {IsFromUserRole, "isFromUser"},      {IsLoadingRole, "isLoading"},
            {TimestampRole, "timestamp"},        {IsSuggestionRole, "isSuggestion"},
            {ToolCallsRole, "toolCalls"},        {ToolResultsRole, "toolResults"},
            {ApprovalStateRole, "approvalState"}};
}

// Notion's answers decoded into records, and the Markdown text each tool
// makes of them for the assistant. Lists end by naming the cursor to pass
// for the next page; nothing here follows it.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct NotionRichText
{
    QString type;
    QString content; // "text.content"
    std::optional<QString> link;
    QString plainText;
    std::optional<QString> href;
};

struct NotionUser
{
    QString id;
    QString type; // "person" or "bot"
    std::optional<QString> name;
    std::optional<QString> email; // "person.email"
    std::optional<QString> avatarUrl;
};

struct NotionBlock
{
    QString id;
    QString type;
    bool hasChildren = false;
    bool archived = false;
};

struct NotionParent
{
    QString type;
    std::optional<QString> pageId;
    std::optional<QString> databaseId;
};

// One property value of a page, reduced to the kinds shown as text.
struct NotionProperty
{
    QString name;
    QString type;
    QString text; // the value as shown; empty when unset
};

struct NotionPage
{
    QString id;
    QString object; // "page" or "database"
    NotionParent parent;
    QList<NotionProperty> properties;
    QString title; // a page's title property or a database's "title"
    std::optional<QString> url;
    std::optional<QString> createdTime;
    std::optional<QString> lastEditedTime;
    bool archived = false;
};

struct NotionComment
{
    QString id;
    std::optional<QString> discussionId;
    std::optional<QString> createdTime;
    std::optional<QString> lastEditedTime;
    std::optional<QString> createdById;
    QList<NotionRichText> richText;
};

// A list answer: "object": "list", its "results", and where the next page starts.
struct NotionResponse
{
    QString object;
    QJsonArray results;
    std::optional<QString> nextCursor;
    bool hasMore = false;
};

namespace NotionResults {

// The "message" of Notion's error object.
std::optional<QString> errorMessage(const QByteArray& body);

NotionResponse decodeList(const QJsonObject& answer);
NotionPage decodePage(const QJsonObject& page);
NotionUser decodeUser(const QJsonObject& user);
NotionBlock decodeBlock(const QJsonObject& block);
NotionComment decodeComment(const QJsonObject& comment);
QList<NotionRichText> decodeRichText(const QJsonArray& richText);

QString formatSearch(const NotionResponse& response, const QString& query);
QString formatPage(const NotionPage& page);
// `database` is the answer as it came: its schema is read from "properties".
QString formatDatabase(const QJsonObject& database);
QString formatQuery(const NotionResponse& response, const QString& databaseId);
QString formatUser(const NotionUser& user);
QString formatUsers(const NotionResponse& response);
QString formatComments(const NotionResponse& response, const QString& blockId);
QString formatNewComment(const NotionComment& comment);
QString formatAddedBlocks(const QList<NotionBlock>& blocks, const QString& pageId);
QString formatCreatedPage(const NotionPage& page);
// `updates` names what was changed ("title", "archived", …), in order.
QString formatUpdatedPage(const NotionPage& page, const QStringList& updates);

} // namespace NotionResults

#include "tools/NotionResults.h"

#include "core/JsonValues.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

QString orNA(const std::optional<QString>& value)
{
    return value && !value->isEmpty() ? *value : u"N/A"_s;
}

QString flag(bool value)
{
    return value ? u"true"_s : u"false"_s;
}

QString joinedPlainText(const QList<NotionRichText>& richText)
{
    QString text;
    for (const NotionRichText& element : richText)
        text += element.plainText.isEmpty() ? element.content : element.plainText;
    return text;
}

QString plainTextOf(const QJsonValue& richText)
{
    return joinedPlainText(NotionResults::decodeRichText(richText.toArray()));
}

QString numberText(const QJsonValue& value)
{
    return value.isDouble() ? QString::number(value.toDouble(), 'g', 15) : QString();
}

NotionProperty decodeProperty(const QString& name, const QJsonObject& property)
{
    NotionProperty decoded{name, property.value(u"type"_s).toString(), {}};
    const QJsonValue value = property.value(decoded.type);
    if (decoded.type == u"title"_s || decoded.type == u"rich_text"_s) {
        decoded.text = plainTextOf(value);
    } else if (decoded.type == u"number"_s) {
        decoded.text = numberText(value);
    } else if (decoded.type == u"checkbox"_s) {
        decoded.text = value.isBool() ? flag(value.toBool()) : QString();
    } else if (decoded.type == u"select"_s || decoded.type == u"status"_s) {
        decoded.text = value.toObject().value(u"name"_s).toString();
    } else if (decoded.type == u"multi_select"_s) {
        QStringList names;
        for (const QJsonValue option : value.toArray())
            names.append(option.toObject().value(u"name"_s).toString());
        decoded.text = names.join(u", "_s);
    } else if (decoded.type == u"date"_s) {
        decoded.text = value.toObject().value(u"start"_s).toString();
        if (const QJsonValue end = value.toObject().value(u"end"_s); end.isString())
            decoded.text += u" → "_s + end.toString();
    } else if (value.isString() || value.isDouble() || value.isBool()) {
        // url, email, phone_number, created_time and the like
        decoded.text = value.isString() ? value.toString()
                       : value.isBool() ? flag(value.toBool())
                                        : numberText(value);
    }
    return decoded;
}

QString titleOf(const QJsonObject& object, const QList<NotionProperty>& properties)
{
    if (object.value(u"title"_s).isArray())
        return plainTextOf(object.value(u"title"_s));
    for (const NotionProperty& property : properties) {
        if (property.type == u"title"_s)
            return property.text;
    }
    return {};
}

QString shownTitle(const QString& title)
{
    return title.trimmed().isEmpty() ? u"Untitled"_s : title;
}

QString moreAvailable(const NotionResponse& response, const QString& what)
{
    if (!response.hasMore || !response.nextCursor)
        return {};
    return u"\n\n*More "_s + what + u" available. Use start_cursor: "_s + *response.nextCursor +
           u" for pagination.*"_s;
}

QString parentLine(const NotionParent& parent)
{
    if (parent.pageId)
        return u"Parent Page ID: "_s + *parent.pageId;
    if (parent.databaseId)
        return u"Parent Database ID: "_s + *parent.databaseId;
    return u"Parent: "_s + orNA(parent.type);
}

QStringList propertyLines(const QList<NotionProperty>& properties, const QString& indent)
{
    QStringList lines;
    for (const NotionProperty& property : properties) {
        lines.append(indent + property.name + u" ("_s + property.type + u"): "_s +
                     (property.text.isEmpty() ? u"(empty)"_s : property.text));
    }
    return lines;
}

} // namespace

namespace NotionResults {

std::optional<QString> errorMessage(const QByteArray& body)
{
    QString ignored;
    const std::optional<QJsonObject> answer = parseJsonObject(body, &ignored);
    return answer ? optionalString(*answer, u"message"_s) : std::nullopt;
}

NotionResponse decodeList(const QJsonObject& answer)
{
    NotionResponse response;
    response.object = answer.value(u"object"_s).toString();
    response.results = answer.value(u"results"_s).toArray();
    response.nextCursor = optionalString(answer, u"next_cursor"_s);
    response.hasMore = answer.value(u"has_more"_s).toBool();
    return response;
}

QList<NotionRichText> decodeRichText(const QJsonArray& richText)
{
    QList<NotionRichText> decoded;
    for (const QJsonValue element : richText) {
        const QJsonObject object = element.toObject();
        const QJsonObject text = object.value(u"text"_s).toObject();
        decoded.append({object.value(u"type"_s).toString(), text.value(u"content"_s).toString(),
                        optionalString(text.value(u"link"_s).toObject(), u"url"_s),
                        object.value(u"plain_text"_s).toString(),
                        optionalString(object, u"href"_s)});
    }
    return decoded;
}

NotionPage decodePage(const QJsonObject& page)
{
    NotionPage decoded;
    decoded.id = page.value(u"id"_s).toString();
    decoded.object = page.value(u"object"_s).toString();
    const QJsonObject parent = page.value(u"parent"_s).toObject();
    decoded.parent = {parent.value(u"type"_s).toString(), optionalString(parent, u"page_id"_s),
                      optionalString(parent, u"database_id"_s)};
    const QJsonObject properties = page.value(u"properties"_s).toObject();
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it)
        decoded.properties.append(decodeProperty(it.key(), it.value().toObject()));
    decoded.title = titleOf(page, decoded.properties);
    decoded.url = optionalString(page, u"url"_s);
    decoded.createdTime = optionalString(page, u"created_time"_s);
    decoded.lastEditedTime = optionalString(page, u"last_edited_time"_s);
    decoded.archived = page.value(u"archived"_s).toBool() || page.value(u"in_trash"_s).toBool();
    return decoded;
}

NotionUser decodeUser(const QJsonObject& user)
{
    return {user.value(u"id"_s).toString(), user.value(u"type"_s).toString(),
            optionalString(user, u"name"_s),
            optionalString(user.value(u"person"_s).toObject(), u"email"_s),
            optionalString(user, u"avatar_url"_s)};
}

NotionBlock decodeBlock(const QJsonObject& block)
{
    return {block.value(u"id"_s).toString(), block.value(u"type"_s).toString(),
            block.value(u"has_children"_s).toBool(), block.value(u"archived"_s).toBool()};
}

NotionComment decodeComment(const QJsonObject& comment)
{
    return {comment.value(u"id"_s).toString(),
            optionalString(comment, u"discussion_id"_s),
            optionalString(comment, u"created_time"_s),
            optionalString(comment, u"last_edited_time"_s),
            optionalString(comment.value(u"created_by"_s).toObject(), u"id"_s),
            decodeRichText(comment.value(u"rich_text"_s).toArray())};
}

QString formatSearch(const NotionResponse& response, const QString& query)
{
    if (response.results.isEmpty())
        return u"No results found for query: '"_s + query + u"'"_s;
    QStringList items;
    for (qsizetype i = 0; i < response.results.size(); ++i) {
        const NotionPage item = decodePage(response.results.at(i).toObject());
        items.append(u"%1. **%2**\n   Type: %3\n   ID: %4\n   URL: %5\n   Created: %6\n"
                     u"   Last Edited: %7\n   Archived: %8"_s.arg(i + 1)
                         .arg(shownTitle(item.title), orNA(item.object), orNA(item.id),
                              orNA(item.url), orNA(item.createdTime), orNA(item.lastEditedTime),
                              flag(item.archived)));
    }
    return u"**Notion Search Results for '"_s + query +
           u"' (%1 results):**\n\n"_s.arg(items.size()) + items.join(u"\n\n"_s) +
           moreAvailable(response, u"results"_s);
}

QString formatPage(const NotionPage& page)
{
    QStringList lines{
        u"**Notion Page Details:**\n"_s,         u"Page ID: "_s + orNA(page.id),
        u"Title: "_s + shownTitle(page.title),   u"URL: "_s + orNA(page.url),
        u"Created: "_s + orNA(page.createdTime), u"Last Edited: "_s + orNA(page.lastEditedTime),
        u"Archived: "_s + flag(page.archived),   parentLine(page.parent)};
    if (!page.properties.isEmpty()) {
        lines.append(u"\n**Properties (%1):**"_s.arg(page.properties.size()));
        lines.append(propertyLines(page.properties, u"- "_s));
    }
    return lines.join(u'\n');
}

QString formatDatabase(const QJsonObject& database)
{
    const NotionPage decoded = decodePage(database);
    QStringList lines{u"**Notion Database Details:**\n"_s,
                      u"Database ID: "_s + orNA(decoded.id),
                      u"Title: "_s + shownTitle(decoded.title),
                      u"URL: "_s + orNA(decoded.url),
                      u"Created: "_s + orNA(decoded.createdTime),
                      u"Last Edited: "_s + orNA(decoded.lastEditedTime),
                      u"Archived: "_s + flag(decoded.archived)};
    const QJsonObject schema = database.value(u"properties"_s).toObject();
    lines.append(u"\n**Properties Schema (%1 properties):**"_s.arg(schema.size()));
    for (auto it = schema.constBegin(); it != schema.constEnd(); ++it) {
        const QJsonObject property = it.value().toObject();
        const QString type = property.value(u"type"_s).toString();
        QString line = u"- "_s + it.key() + u": "_s + orNA(type);
        QStringList options;
        for (const QJsonValue option :
             property.value(type).toObject().value(u"options"_s).toArray())
            options.append(option.toObject().value(u"name"_s).toString());
        if (!options.isEmpty())
            line += u" (options: "_s + options.join(u", "_s) + u')';
        lines.append(line);
    }
    return lines.join(u'\n');
}

QString formatQuery(const NotionResponse& response, const QString& databaseId)
{
    if (response.results.isEmpty())
        return u"No results found in database: "_s + databaseId;
    QStringList items;
    for (qsizetype i = 0; i < response.results.size(); ++i) {
        const NotionPage page = decodePage(response.results.at(i).toObject());
        QStringList lines{u"%1. **Page ID: %2**"_s.arg(i + 1).arg(orNA(page.id)),
                          u"   URL: "_s + orNA(page.url), u"   Properties:"_s};
        lines.append(propertyLines(page.properties, u"      "_s));
        items.append(lines.join(u'\n'));
    }
    return u"**Database Query Results (%1 pages):**\n\n"_s.arg(items.size()) +
           items.join(u"\n\n"_s) + moreAvailable(response, u"results"_s);
}

QString formatUser(const NotionUser& user)
{
    QStringList lines{u"**Notion User Details:**\n"_s, u"ID: "_s + orNA(user.id),
                      u"Name: "_s + orNA(user.name), u"Type: "_s + orNA(user.type),
                      u"Avatar: "_s + orNA(user.avatarUrl)};
    QString text = lines.join(u'\n');
    if (user.type == u"person"_s)
        text += u"\n\n**Person Details:**\nEmail: "_s + orNA(user.email);
    return text;
}

QString formatUsers(const NotionResponse& response)
{
    if (response.results.isEmpty())
        return u"No users found in workspace"_s;
    QStringList items;
    for (qsizetype i = 0; i < response.results.size(); ++i) {
        const NotionUser user = decodeUser(response.results.at(i).toObject());
        items.append(
            u"%1. **%2**\n   ID: %3\n   Type: %4\n   Avatar: %5\n   Email: %6"_s.arg(i + 1).arg(
                user.name && !user.name->isEmpty() ? *user.name : u"Unnamed User"_s, orNA(user.id),
                orNA(user.type), orNA(user.avatarUrl), orNA(user.email)));
    }
    return u"**Notion Workspace Users (%1 users):**\n\n"_s.arg(items.size()) +
           items.join(u"\n\n"_s) + moreAvailable(response, u"users"_s);
}

QString formatComments(const NotionResponse& response, const QString& blockId)
{
    if (response.results.isEmpty())
        return u"No comments found for block: "_s + blockId;
    QStringList items;
    for (qsizetype i = 0; i < response.results.size(); ++i) {
        const NotionComment comment = decodeComment(response.results.at(i).toObject());
        items.append(u"%1. **Comment ID: %2**\n   Created: %3\n   Last Edited: %4\n"
                     u"   Discussion ID: %5\n   Created By: %6\n   Content: %7"_s.arg(i + 1)
                         .arg(orNA(comment.id), orNA(comment.createdTime),
                              orNA(comment.lastEditedTime), orNA(comment.discussionId),
                              orNA(comment.createdById), joinedPlainText(comment.richText)));
    }
    return u"**Comments for Block '"_s + blockId + u"' (%1 comments):**\n\n"_s.arg(items.size()) +
           items.join(u"\n\n"_s) + moreAvailable(response, u"comments"_s);
}

QString formatNewComment(const NotionComment& comment)
{
    return QStringList{u"**Successfully Created Comment:**\n"_s,
                       u"Comment ID: "_s + orNA(comment.id),
                       u"Discussion ID: "_s + orNA(comment.discussionId),
                       u"Created: "_s + orNA(comment.createdTime),
                       u"Content: "_s + joinedPlainText(comment.richText)}
        .join(u'\n');
}

QString formatAddedBlocks(const QList<NotionBlock>& blocks, const QString& pageId)
{
    if (blocks.isEmpty())
        return u"No blocks were added to page: "_s + pageId;
    QStringList items;
    for (qsizetype i = 0; i < blocks.size(); ++i) {
        const NotionBlock& block = blocks.at(i);
        items.append(u"%1. **Block ID: %2**\n   Type: %3\n   Has Children: %4"_s.arg(i + 1).arg(
            orNA(block.id), orNA(block.type), flag(block.hasChildren)));
    }
    return u"**Successfully Added %1 Blocks to Page:**\n\n"_s.arg(blocks.size()) +
           items.join(u"\n\n"_s);
}

QString formatCreatedPage(const NotionPage& page)
{
    return QStringList{u"**Successfully Created Notion Page:**\n"_s, u"Page ID: "_s + orNA(page.id),
                       u"Title: "_s + shownTitle(page.title),        u"URL: "_s + orNA(page.url),
                       u"Created: "_s + orNA(page.createdTime),      parentLine(page.parent)}
        .join(u'\n');
}

QString formatUpdatedPage(const NotionPage& page, const QStringList& updates)
{
    return QStringList{
        u"**Successfully Updated Notion Page:**\n"_s,    u"Page ID: "_s + orNA(page.id),
        u"Title: "_s + shownTitle(page.title),           u"URL: "_s + orNA(page.url),
        u"Last Edited: "_s + orNA(page.lastEditedTime),  u"Archived: "_s + flag(page.archived),
        u"\nUpdates Applied: "_s + updates.join(u", "_s)}
        .join(u'\n');
}

} // namespace NotionResults

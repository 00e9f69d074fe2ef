#include "NotionFake.h"

#include <QJsonDocument>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

constexpr auto created = "2026-03-02T09:15:00.000Z";
constexpr auto edited = "2026-03-04T16:40:00.000Z";

// IDs compare without their dashes, as the API takes them either way.
QString bare(const QString& id)
{
    return QString(id).remove(u'-').toLower();
}

QByteArray json(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

HttpStub::Answer ok(const QJsonObject& object)
{
    return {200, json(object), {}, false};
}

HttpStub::Answer error(int status, const QString& message)
{
    const QString code = status == 400   ? u"validation_error"_s
                         : status == 401 ? u"unauthorized"_s
                         : status == 404 ? u"object_not_found"_s
                         : status == 409 ? u"conflict_error"_s
                         : status == 429 ? u"rate_limited"_s
                                         : u"internal_server_error"_s;
    return {status,
            json({{u"object"_s, u"error"_s},
                  {u"status"_s, status},
                  {u"code"_s, code},
                  {u"message"_s, message},
                  {u"request_id"_s, u"7f5b1f3c-2c4e-4d37-9d43-6f4a8f0e3b21"_s}}),
            {},
            false};
}

QString cannedMessage(int status)
{
    switch (status) {
    case 400:
        return u"body failed validation: body.parent should be defined, instead was `undefined`."_s;
    case 401:
        return u"API token is invalid."_s;
    case 404:
        return u"Could not find page with ID: 59833787-2cf9-4fdf-8782-e53db20768a5. Make sure the "
               u"relevant pages and databases are shared with your integration."_s;
    case 409:
        return u"Conflict occurred while saving. Please try again."_s;
    case 429:
        return u"You have been rate limited. Please try again in a few minutes."_s;
    default:
        return u"Unexpected error occurred."_s;
    }
}

QJsonArray text(const QString& content)
{
    return {QJsonObject{{u"type"_s, u"text"_s},
                        {u"text"_s, QJsonObject{{u"content"_s, content}, {u"link"_s, {}}}},
                        {u"plain_text"_s, content},
                        {u"href"_s, {}}}};
}

// What the API makes of a rich-text array it was sent: each element with
// its "plain_text".
QJsonArray stored(const QJsonArray& richText)
{
    QJsonArray result;
    for (const QJsonValue element : richText) {
        QJsonObject object = element.toObject();
        const QString content = object.value(u"text"_s).toObject().value(u"content"_s).toString();
        object.insert(u"type"_s, u"text"_s);
        object.insert(u"plain_text"_s, content);
        result.append(object);
    }
    return result;
}

QJsonObject user(const QString& id, const QString& type, const QJsonValue& name,
                 const QJsonObject& details)
{
    QJsonObject object{{u"object"_s, u"user"_s},
                       {u"id"_s, id},
                       {u"type"_s, type},
                       {u"name"_s, name},
                       {u"avatar_url"_s, {}}};
    object.insert(type, details);
    return object;
}

QJsonObject list(const QJsonArray& all, const QString& cursor, qsizetype size, const QString& type)
{
    qsizetype start = 0;
    if (!cursor.isEmpty()) {
        while (start < all.size() &&
               bare(all.at(start).toObject().value(u"id"_s).toString()) != bare(cursor))
            ++start;
    }
    QJsonArray results;
    for (qsizetype i = start; i < std::min(all.size(), start + size); ++i)
        results.append(all.at(i));
    const bool more = start + size < all.size();
    return {{u"object"_s, u"list"_s},
            {u"results"_s, results},
            {u"next_cursor"_s,
             more ? QJsonValue(all.at(start + size).toObject().value(u"id"_s)) : QJsonValue()},
            {u"has_more"_s, more},
            {u"type"_s, type},
            {type, QJsonObject{}}};
}

QString titleOf(const QJsonObject& page)
{
    const QJsonObject properties = page.value(u"properties"_s).toObject();
    for (const QJsonValue property : properties) {
        if (property.toObject().value(u"type"_s) == u"title"_s) {
            QString title;
            for (const QJsonValue element : property.toObject().value(u"title"_s).toArray())
                title += element.toObject().value(u"plain_text"_s).toString();
            return title;
        }
    }
    return {};
}

} // namespace

NotionFake::NotionFake()
{
    m_stub.setResponder([this](const HttpStub::Request& request) { return answer(request); });
    m_users = {user(QString::fromLatin1(personId), u"person"_s, u"Ana Lima"_s,
                    {{u"email"_s, u"ana@example.com"_s}}),
               user(u"0c8d5a2e-55b4-4f7b-9b53-3c8f5c0e9d11"_s, u"person"_s, QJsonValue(),
                    {{u"email"_s, u"ops@example.com"_s}}),
               user(QString::fromLatin1(botId), u"bot"_s, u"Quillmoss"_s,
                    {{u"owner"_s, QJsonObject{{u"type"_s, u"workspace"_s}, {u"workspace"_s, true}}},
                     {u"workspace_name"_s, u"Sales"_s}})};
    const auto options = [](const QStringList& names) {
        QJsonArray array;
        for (const QString& name : names)
            array.append(QJsonObject{
                {u"id"_s, name.left(3)}, {u"name"_s, name}, {u"color"_s, u"default"_s}});
        return QJsonObject{{u"options"_s, array}};
    };
    m_database = {
        {u"object"_s, u"database"_s},
        {u"id"_s, QString::fromLatin1(databaseId)},
        {u"created_time"_s, QString::fromLatin1(created)},
        {u"last_edited_time"_s, QString::fromLatin1(edited)},
        {u"title"_s, text(u"Deals"_s)},
        {u"description"_s, QJsonArray{}},
        {u"url"_s, u"https://www.notion.so/d9824bdc84454327be8b5b47500af6ce"_s},
        {u"archived"_s, false},
        {u"parent"_s, QJsonObject{{u"type"_s, u"workspace"_s}, {u"workspace"_s, true}}},
        {u"properties"_s,
         QJsonObject{
             {u"Name"_s, QJsonObject{{u"id"_s, u"title"_s},
                                     {u"name"_s, u"Name"_s},
                                     {u"type"_s, u"title"_s},
                                     {u"title"_s, QJsonObject{}}}},
             {u"Stage"_s, QJsonObject{{u"id"_s, u"%3AUPp"_s},
                                      {u"name"_s, u"Stage"_s},
                                      {u"type"_s, u"select"_s},
                                      {u"select"_s, options({u"Lead"_s, u"Won"_s})}}},
             {u"Amount"_s, QJsonObject{{u"id"_s, u"Ax%3D"_s},
                                       {u"name"_s, u"Amount"_s},
                                       {u"type"_s, u"number"_s},
                                       {u"number"_s, QJsonObject{{u"format"_s, u"euro"_s}}}}},
             {u"Close date"_s, QJsonObject{{u"id"_s, u"C%5Ed"_s},
                                           {u"name"_s, u"Close date"_s},
                                           {u"type"_s, u"date"_s},
                                           {u"date"_s, QJsonObject{}}}},
         }}};
    const auto deal = [](const QString& id, const QString& name, const QString& stage,
                         double amount) {
        return QJsonObject{
            {u"object"_s, u"page"_s},
            {u"id"_s, id},
            {u"created_time"_s, QString::fromLatin1(created)},
            {u"last_edited_time"_s, QString::fromLatin1(edited)},
            {u"archived"_s, false},
            {u"url"_s, u"https://www.notion.so/"_s + bare(id)},
            {u"parent"_s, QJsonObject{{u"type"_s, u"database_id"_s},
                                      {u"database_id"_s, QString::fromLatin1(databaseId)}}},
            {u"properties"_s,
             QJsonObject{{u"Name"_s, QJsonObject{{u"id"_s, u"title"_s},
                                                 {u"type"_s, u"title"_s},
                                                 {u"title"_s, text(name)}}},
                         {u"Stage"_s, QJsonObject{{u"id"_s, u"%3AUPp"_s},
                                                  {u"type"_s, u"select"_s},
                                                  {u"select"_s, QJsonObject{{u"name"_s, stage}}}}},
                         {u"Amount"_s, QJsonObject{{u"id"_s, u"Ax%3D"_s},
                                                   {u"type"_s, u"number"_s},
                                                   {u"number"_s, amount}}},
                         {u"Close date"_s,
                          QJsonObject{{u"id"_s, u"C%5Ed"_s},
                                      {u"type"_s, u"date"_s},
                                      {u"date"_s, QJsonObject{{u"start"_s, u"2026-04-30"_s},
                                                              {u"end"_s, {}}}}}}}}};
    };
    m_pages = {deal(QString::fromLatin1(acmePageId), u"Acme Corp"_s, u"Lead"_s, 12000),
               deal(QString::fromLatin1(globexPageId), u"Globex"_s, u"Won"_s, 4500.5)};
    QJsonObject notes = deal(QString::fromLatin1(notesPageId), u"Call notes"_s, {}, 0);
    notes.insert(u"parent"_s, QJsonObject{{u"type"_s, u"workspace"_s}, {u"workspace"_s, true}});
    notes.insert(u"properties"_s,
                 QJsonObject{{u"title"_s, QJsonObject{{u"id"_s, u"title"_s},
                                                      {u"type"_s, u"title"_s},
                                                      {u"title"_s, text(u"Call notes"_s)}}}});
    m_pages.append(notes);
    m_comments = {QJsonObject{
        {u"object"_s, u"comment"_s},
        {u"id"_s, QString::fromLatin1(commentId)},
        {u"parent"_s,
         QJsonObject{{u"type"_s, u"page_id"_s}, {u"page_id"_s, QString::fromLatin1(notesPageId)}}},
        {u"discussion_id"_s, QString::fromLatin1(discussionId)},
        {u"created_time"_s, QString::fromLatin1(created)},
        {u"last_edited_time"_s, QString::fromLatin1(edited)},
        {u"created_by"_s,
         QJsonObject{{u"object"_s, u"user"_s}, {u"id"_s, QString::fromLatin1(personId)}}},
        {u"rich_text"_s, text(u"Send the pricing sheet."_s)}}};
}

QString NotionFake::newId()
{
    return u"00000000-0000-4000-8000-%1"_s.arg(m_nextId++, 12, 10, QChar(u'0'));
}

qsizetype NotionFake::indexOfPage(const QString& id) const
{
    for (qsizetype i = 0; i < m_pages.size(); ++i) {
        if (bare(m_pages.at(i).value(u"id"_s).toString()) == bare(id))
            return i;
    }
    return -1;
}

std::optional<QJsonObject> NotionFake::page(const QString& id) const
{
    const qsizetype index = indexOfPage(id);
    return index < 0 ? std::nullopt : std::optional(m_pages.at(index));
}

QList<QJsonObject> NotionFake::pagesIn(const QString& database) const
{
    QList<QJsonObject> pages;
    for (const QJsonObject& each : m_pages) {
        if (bare(each.value(u"parent"_s).toObject().value(u"database_id"_s).toString()) ==
            bare(database))
            pages.append(each);
    }
    return pages;
}

QJsonArray NotionFake::children(const QString& parentId) const
{
    for (const auto& [parent, blocks] : m_children) {
        if (parent == bare(parentId))
            return blocks;
    }
    return {};
}

std::optional<HttpStub::Answer> NotionFake::answer(const HttpStub::Request& request)
{
    if (m_failWith != 0)
        return error(m_failWith, cannedMessage(m_failWith));
    if (request.headers.value("authorization") != "Bearer " + QByteArray(token))
        return error(401, u"API token is invalid."_s);
    if (request.headers.value("notion-version") != "2022-06-28") {
        return error(400, u"Notion-Version header failed validation: Notion-Version header "
                          u"should be defined, instead was `undefined`."_s);
    }
    const QUrl url(QString::fromUtf8(request.path));
    QList<std::pair<QString, QString>> query;
    for (const auto& [key, value] : QUrlQuery(url).queryItems(QUrl::FullyDecoded))
        query.append({key, value});
    QJsonObject body;
    if (!request.body.isEmpty()) {
        const QJsonDocument document = QJsonDocument::fromJson(request.body);
        if (!document.isObject())
            return error(400, u"Error parsing JSON body."_s);
        body = document.object();
    }
    return route(request.method, url.path(), query, body);
}

HttpStub::Answer NotionFake::route(const QByteArray& method, const QString& path,
                                   const QList<std::pair<QString, QString>>& query,
                                   const QJsonObject& body)
{
    const auto item = [&query](const QString& key) {
        for (const auto& [name, value] : query) {
            if (name == key)
                return value;
        }
        return QString();
    };
    const auto size = [](const QString& given) {
        return given.isEmpty() ? qsizetype(100) : given.toLongLong();
    };
    const QStringList parts = path.split(u'/', Qt::SkipEmptyParts);
    if (parts.value(0) != u"v1"_s)
        return error(404, u"Invalid request URL."_s);
    const QString kind = parts.value(1);
    const QString id = parts.value(2);

    if (method == "POST" && path == u"/v1/search"_s) {
        const QString wanted = body.value(u"query"_s).toString();
        const QString object = body.value(u"filter"_s).toObject().value(u"value"_s).toString();
        QJsonArray found;
        if (object != u"page"_s && QStringView(u"Deals").contains(wanted, Qt::CaseInsensitive))
            found.append(m_database);
        if (object != u"database"_s) {
            for (const QJsonObject& each : m_pages) {
                if (titleOf(each).contains(wanted, Qt::CaseInsensitive))
                    found.append(each);
            }
        }
        return ok(list(found, body.value(u"start_cursor"_s).toString(),
                       body.value(u"page_size"_s).toInteger(100), u"page_or_database"_s));
    }
    if (kind == u"pages"_s && method == "POST" && id.isEmpty())
        return createPage(body);
    if (kind == u"pages"_s && method == "PATCH")
        return updatePage(id, body);
    if (kind == u"pages"_s && method == "GET") {
        if (const std::optional<QJsonObject> found = page(id))
            return ok(*found);
        return error(404, u"Could not find page with ID: "_s + id +
                              u". Make sure the relevant pages and databases are shared with "
                              u"your integration."_s);
    }
    if (kind == u"databases"_s) {
        if (bare(id) != bare(QString::fromLatin1(databaseId)))
            return error(404, u"Could not find database with ID: "_s + id +
                                  u". Make sure the relevant pages and databases are shared "
                                  u"with your integration."_s);
        if (method == "GET")
            return ok(m_database);
        QJsonArray pages;
        for (const QJsonObject& each : pagesIn(id))
            pages.append(each);
        return ok(list(pages, body.value(u"start_cursor"_s).toString(),
                       body.value(u"page_size"_s).toInteger(100), u"page_or_database"_s));
    }
    if (kind == u"blocks"_s && parts.value(3) == u"children"_s && method == "PATCH")
        return appendChildren(id, body);
    if (kind == u"comments"_s && method == "POST")
        return createComment(body);
    if (kind == u"comments"_s && method == "GET") {
        const QString block = item(u"block_id"_s);
        if (block.isEmpty())
            return error(400, u"body failed validation: block_id should be defined."_s);
        QJsonArray found;
        for (const QJsonValue comment : m_comments) {
            if (bare(comment.toObject()
                         .value(u"parent"_s)
                         .toObject()
                         .value(u"page_id"_s)
                         .toString()) == bare(block))
                found.append(comment);
        }
        return ok(list(found, item(u"start_cursor"_s), size(item(u"page_size"_s)), u"comment"_s));
    }
    if (kind == u"users"_s && method == "GET") {
        if (id.isEmpty())
            return ok(
                list(m_users, item(u"start_cursor"_s), size(item(u"page_size"_s)), u"user"_s));
        const QString wanted = id == u"me"_s ? QString::fromLatin1(botId) : id;
        for (const QJsonValue each : m_users) {
            if (bare(each.toObject().value(u"id"_s).toString()) == bare(wanted))
                return ok(each.toObject());
        }
        return error(404, u"Could not find user with ID: "_s + id + u'.');
    }
    return error(400, u"Invalid request URL."_s);
}

HttpStub::Answer NotionFake::createPage(const QJsonObject& body)
{
    const QJsonObject parent = body.value(u"parent"_s).toObject();
    QJsonObject storedParent;
    if (parent.contains(u"database_id"_s)) {
        const QString database = parent.value(u"database_id"_s).toString();
        if (bare(database) != bare(QString::fromLatin1(databaseId)))
            return error(404, u"Could not find database with ID: "_s + database + u'.');
        storedParent = {{u"type"_s, u"database_id"_s},
                        {u"database_id"_s, QString::fromLatin1(databaseId)}};
    } else if (parent.contains(u"page_id"_s)) {
        const QString parentPage = parent.value(u"page_id"_s).toString();
        if (indexOfPage(parentPage) < 0)
            return error(404, u"Could not find page with ID: "_s + parentPage + u'.');
        storedParent = {{u"type"_s, u"page_id"_s}, {u"page_id"_s, parentPage}};
    } else {
        return error(400, cannedMessage(400));
    }
    const QJsonArray title = body.value(u"properties"_s).toObject().value(u"title"_s).toArray();
    if (title.isEmpty())
        return error(400, u"body failed validation: body.properties.title should be defined."_s);
    const QString id = newId();
    QJsonObject page{{u"object"_s, u"page"_s},
                     {u"id"_s, id},
                     {u"created_time"_s, QString::fromLatin1(edited)},
                     {u"last_edited_time"_s, QString::fromLatin1(edited)},
                     {u"archived"_s, false},
                     {u"url"_s, u"https://www.notion.so/"_s + bare(id)},
                     {u"parent"_s, storedParent},
                     {u"icon"_s, body.value(u"icon"_s)},
                     {u"cover"_s, body.value(u"cover"_s)},
                     {u"properties"_s,
                      QJsonObject{{storedParent.contains(u"database_id"_s) ? u"Name"_s : u"title"_s,
                                   QJsonObject{{u"id"_s, u"title"_s},
                                               {u"type"_s, u"title"_s},
                                               {u"title"_s, stored(title)}}}}}};
    if (body.contains(u"children"_s)) {
        QJsonArray added;
        if (const std::optional<QString> invalid =
                addBlocks(id, body.value(u"children"_s).toArray(), {}, &added))
            return error(400, *invalid);
    }
    m_pages.append(page);
    return ok(page);
}

HttpStub::Answer NotionFake::updatePage(const QString& id, const QJsonObject& body)
{
    const qsizetype index = indexOfPage(id);
    if (index < 0)
        return error(404, u"Could not find page with ID: "_s + id + u'.');
    QJsonObject& page = m_pages[index];
    for (const QString& key : {u"archived"_s, u"icon"_s, u"cover"_s}) {
        if (body.contains(key))
            page.insert(key, body.value(key));
    }
    QJsonObject properties = page.value(u"properties"_s).toObject();
    const QJsonObject changes = body.value(u"properties"_s).toObject();
    for (auto it = changes.constBegin(); it != changes.constEnd(); ++it) {
        QString name = it.key();
        // The title property answers to its ID, "title", too.
        for (auto existing = properties.constBegin(); existing != properties.constEnd();
             ++existing) {
            if (existing.value().toObject().value(u"id"_s) == it.key())
                name = existing.key();
        }
        if (!properties.contains(name))
            return error(400, u"body failed validation: "_s + name +
                                  u" is not a property that exists."_s);
        QJsonObject property = properties.value(name).toObject();
        const QString type = property.value(u"type"_s).toString();
        const QJsonValue value = it.value().toObject().value(type);
        property.insert(type, value.isArray() ? QJsonValue(stored(value.toArray())) : value);
        properties.insert(name, property);
    }
    page.insert(u"properties"_s, properties);
    page.insert(u"last_edited_time"_s, u"2026-03-05T10:00:00.000Z"_s);
    return ok(page);
}

std::optional<QString> NotionFake::addBlocks(const QString& parentId, const QJsonArray& blocks,
                                             const QString& after, QJsonArray* added)
{
    if (blocks.size() > 100) {
        return u"body failed validation: body.children.length should be ≤ `100`, instead was "
               u"`%1`."_s.arg(blocks.size());
    }
    QJsonArray made;
    for (qsizetype i = 0; i < blocks.size(); ++i) {
        QJsonObject block = blocks.at(i).toObject();
        const QString type = block.value(u"type"_s).toString();
        QJsonObject content = block.value(type).toObject();
        const QJsonArray richText = content.value(u"rich_text"_s).toArray();
        if (richText.size() > 100) {
            return u"body failed validation: body.children[%1].%2.rich_text.length should be "
                   u"≤ `100`, instead was `%3`."_s.arg(i)
                       .arg(type)
                       .arg(richText.size());
        }
        for (qsizetype j = 0; j < richText.size(); ++j) {
            const qsizetype length = richText.at(j)
                                         .toObject()
                                         .value(u"text"_s)
                                         .toObject()
                                         .value(u"content"_s)
                                         .toString()
                                         .size();
            if (length > 2000) {
                return u"body failed validation: body.children[%1].%2.rich_text[%3].text.content"
                       u".length should be ≤ `2000`, instead was `%4`."_s.arg(i)
                           .arg(type)
                           .arg(j)
                           .arg(length);
            }
        }
        if (content.contains(u"rich_text"_s))
            content.insert(u"rich_text"_s, stored(richText));
        block = {{u"object"_s, u"block"_s},
                 {u"id"_s, newId()},
                 {u"parent"_s, QJsonObject{{u"type"_s, u"page_id"_s}, {u"page_id"_s, parentId}}},
                 {u"created_time"_s, QString::fromLatin1(edited)},
                 {u"has_children"_s, false},
                 {u"archived"_s, false},
                 {u"type"_s, type},
                 {type, content}};
        made.append(block);
    }
    qsizetype entry = -1;
    for (qsizetype i = 0; i < m_children.size(); ++i) {
        if (m_children.at(i).first == bare(parentId))
            entry = i;
    }
    if (entry < 0) {
        m_children.append({bare(parentId), {}});
        entry = m_children.size() - 1;
    }
    QJsonArray& existing = m_children[entry].second;
    qsizetype at = existing.size();
    if (!after.isEmpty()) {
        at = -1;
        for (qsizetype i = 0; i < existing.size(); ++i) {
            if (bare(existing.at(i).toObject().value(u"id"_s).toString()) == bare(after))
                at = i + 1;
        }
        if (at < 0)
            return u"Could not find block with ID: "_s + after + u'.';
    }
    for (const QJsonValue block : made)
        existing.insert(at++, block);
    *added = made;
    return std::nullopt;
}

HttpStub::Answer NotionFake::appendChildren(const QString& parentId, const QJsonObject& body)
{
    if (indexOfPage(parentId) < 0)
        return error(404, u"Could not find block with ID: "_s + parentId + u'.');
    QJsonArray added;
    if (const std::optional<QString> invalid =
            addBlocks(parentId, body.value(u"children"_s).toArray(),
                      body.value(u"after"_s).toString(), &added))
        return error(invalid->startsWith(u"Could not"_s) ? 404 : 400, *invalid);
    return ok(list(added, {}, 100, u"block"_s));
}

HttpStub::Answer NotionFake::createComment(const QJsonObject& body)
{
    const QString pageId = body.value(u"parent"_s).toObject().value(u"page_id"_s).toString();
    if (indexOfPage(pageId) < 0)
        return error(404, u"Could not find page with ID: "_s + pageId + u'.');
    const QJsonObject comment{
        {u"object"_s, u"comment"_s},
        {u"id"_s, newId()},
        {u"parent"_s, QJsonObject{{u"type"_s, u"page_id"_s}, {u"page_id"_s, pageId}}},
        {u"discussion_id"_s, newId()},
        {u"created_time"_s, QString::fromLatin1(edited)},
        {u"last_edited_time"_s, QString::fromLatin1(edited)},
        {u"created_by"_s,
         QJsonObject{{u"object"_s, u"user"_s}, {u"id"_s, QString::fromLatin1(botId)}}},
        {u"rich_text"_s, stored(body.value(u"rich_text"_s).toArray())}};
    m_comments.append(comment);
    return ok(comment);
}

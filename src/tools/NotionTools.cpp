#include "tools/NotionTools.h"

#include "core/HttpClient.h"
#include "core/JsonValues.h"
#include "store/KeychainManager.h"
#include "tools/BuiltInToolDefinitions.h"
#include "tools/IntegrationCatalogue.h"
#include "tools/NotionBlocks.h"
#include "tools/NotionResults.h"

#include <QJsonArray>
#include <QLoggingCategory>
#include <QPointer>
#include <QRegularExpression>

#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcNotion, "quillmoss.tools.notion")

namespace {

// Where one call's requests go and with which token; held by the later
// requests of a call, which outlive its invocation.
struct NotionSession
{
    QPointer<HttpClient> http;
    ToolService service;
    QString token;
};

using OnAnswer = std::function<void(const QJsonObject&)>;

void fail(const LocalTool::Done& done, const LocalToolError& error)
{
    done(ToolOutcome::failure(error));
}

void notionFailure(const LocalTool::Done& done, const QString& message)
{
    fail(done, LocalToolError::executionFailed(u"Notion API error: "_s + message));
}

void request(const NotionSession& session, const QByteArray& method, const QString& path,
             const QUrlQuery& query, const std::optional<QJsonObject>& body,
             const LocalTool::Done& done, OnAnswer onAnswer)
{
    std::optional<QUrl> url = session.service.endpoint(path);
    if (!url) {
        fail(done, LocalToolError::executionFailed(u"Invalid Notion API URL"_s));
        return;
    }
    if (!session.http) {
        fail(done, LocalToolError::networkError(u"The request was cancelled."_s));
        return;
    }
    if (!query.isEmpty())
        url->setQuery(query);
    HttpRequest sent = body ? HttpRequest::postJson(*url, *body) : HttpRequest::get(*url);
    sent.method = method;
    sent.contentType = "application/json";
    sent.headers.append({"Notion-Version", NotionTool::apiVersion()});
    sent.acceptingJson()
        .withBearer(session.token)
        .withTimeout(session.service.timeout)
        .withMaxBodySize(session.service.maxBodySize);
    session.http->send(sent, [done, onAnswer = std::move(onAnswer)](const HttpResponse& response) {
        if (!response.answered()) {
            fail(done, transportFailure(response));
            return;
        }
        if (response.status >= 400) {
            notionFailure(done, NotionResults::errorMessage(response.body)
                                    .value_or(u"HTTP "_s + QString::number(response.status)));
            return;
        }
        QString error;
        const std::optional<QJsonObject> answer = parseJsonObject(response.body, &error);
        if (!answer) {
            notionFailure(done, u"unreadable answer ("_s + error + u')');
            return;
        }
        onAnswer(*answer);
    });
}

std::optional<QString> givenString(const QJsonObject& parameters, const QString& name)
{
    const QJsonValue value = parameters.value(name);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

// Notion's IDs are UUIDs, with or without dashes. Anything else would change
// the request's path, so it is refused before it is sent.
bool isNotionId(const QString& id)
{
    static const QRegularExpression form(u"^[A-Za-z0-9-]{1,64}$"_s);
    return form.match(id).hasMatch();
}

// The ID parameter `name`, checked; nothing, and the call failed, otherwise.
std::optional<QString> idParameter(const ToolInvocation& call, const QString& name,
                                   const LocalTool::Done& done)
{
    const std::optional<QString> id = givenString(call.parameters, name);
    if (!id) {
        fail(done, LocalToolError::missingParameter(name));
        return std::nullopt;
    }
    const QString trimmed = id->trimmed();
    if (!isNotionId(trimmed)) {
        fail(done, LocalToolError::invalidParameter(name, u"not a Notion ID"_s));
        return std::nullopt;
    }
    return trimmed;
}

// A page size the API takes: 1 to 100. Nothing when none was given.
std::optional<qint64> pageSize(const QJsonObject& parameters)
{
    const QJsonValue value = parameters.value(u"page_size"_s);
    if (!value.isDouble())
        return std::nullopt;
    return std::clamp<qint64>(value.toInteger(), 1, 100);
}

void copyObject(const QJsonObject& parameters, const QString& name, QJsonObject& body)
{
    if (parameters.value(name).isObject())
        body.insert(name, parameters.value(name));
}

void addPaging(const QJsonObject& parameters, QJsonObject& body)
{
    if (const std::optional<qint64> size = pageSize(parameters))
        body.insert(u"page_size"_s, *size);
    if (const std::optional<QString> cursor = givenString(parameters, u"start_cursor"_s))
        body.insert(u"start_cursor"_s, *cursor);
}

void addPaging(const QJsonObject& parameters, QUrlQuery& query)
{
    if (const std::optional<QString> cursor = givenString(parameters, u"start_cursor"_s))
        query.addQueryItem(u"start_cursor"_s, *cursor);
    if (const std::optional<qint64> size = pageSize(parameters))
        query.addQueryItem(u"page_size"_s, QString::number(*size));
}

QJsonObject titleProperty(const QString& title)
{
    return {{u"title"_s, NotionBlocks::richText(title)}};
}

QJsonObject emojiIcon(const QString& emoji)
{
    return {{u"type"_s, u"emoji"_s}, {u"emoji"_s, emoji}};
}

QJsonObject externalCover(const QString& url)
{
    return {{u"type"_s, u"external"_s}, {u"external"_s, QJsonObject{{u"url"_s, url}}}};
}

QList<NotionBlock> decodeBlocks(const QJsonObject& answer)
{
    QList<NotionBlock> blocks;
    for (const QJsonValue block : NotionResults::decodeList(answer).results)
        blocks.append(NotionResults::decodeBlock(block.toObject()));
    return blocks;
}

// Appends `runs` from `index` on under `parentId`, one request each and in
// order, so that a long content keeps its order; `after` places the first
// run, and each later one follows the run before it.
void appendRuns(const NotionSession& session, const QString& parentId,
                const std::shared_ptr<const QList<QJsonArray>>& runs, qsizetype index,
                std::optional<QString> after, QList<NotionBlock> added, const LocalTool::Done& done,
                const std::function<void(const QList<NotionBlock>&)>& finished)
{
    if (index >= runs->size()) {
        finished(added);
        return;
    }
    QJsonObject body{{u"children"_s, runs->at(index)}};
    if (after)
        body.insert(u"after"_s, *after);
    request(session, "PATCH", u"/v1/blocks/"_s + parentId + u"/children"_s, {}, body, done,
            [=](const QJsonObject& answer) mutable {
                const QList<NotionBlock> blocks = decodeBlocks(answer);
                if (after && !blocks.isEmpty())
                    after = blocks.last().id;
                added.append(blocks);
                appendRuns(session, parentId, runs, index + 1, after, added, done, finished);
            });
}

} // namespace

// --- shared ---------------------------------------------------------------------------------

QJsonObject NotionTool::parameterSchema() const
{
    return BuiltInToolDefinitions::definition(identifier())
        .value_or(QJsonObject{})
        .value(u"parameters"_s)
        .toObject();
}

QString NotionTool::databaseItem()
{
    return IntegrationCatalogue::fieldItemName(u"Notion"_s, u"database_id"_s);
}

void NotionTool::send(const ToolInvocation& call, const QByteArray& method, const QString& path,
                      const QUrlQuery& query, const std::optional<QJsonObject>& body,
                      const Done& done, OnAnswer onAnswer) const
{
    request({&call.http, m_service, call.apiKey.value_or(QString())}, method, path, query, body,
            done, std::move(onAnswer));
}

bool NotionTool::checked(const ToolInvocation& call, const QStringList& required,
                         const Done& done) const
{
    if (!call.apiKey || call.apiKey->isEmpty()) {
        fail(done, LocalToolError::missingAPIKey(name()));
        return false;
    }
    for (const QString& parameter : required) {
        const QJsonValue value = call.parameters.value(parameter);
        if (value.isUndefined() || value.isNull()) {
            fail(done, LocalToolError::missingParameter(parameter));
            return false;
        }
    }
    return true;
}

// --- search ---------------------------------------------------------------------------------

QString NotionSearchTool::identifier() const
{
    return u"notion_search"_s;
}

QString NotionSearchTool::name() const
{
    return u"Notion Search"_s;
}

QString NotionSearchTool::description() const
{
    return u"Search for pages and databases in Notion by title.\n\n"
           u"**Best for:** Finding specific pages or databases when you know part of the "
           u"title.\n"
           u"**Returns:** List of matching pages and databases with their basic information."_s;
}

void NotionSearchTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"query"_s}, done))
        return;
    const QString query = givenString(call.parameters, u"query"_s).value_or(QString());
    QJsonObject body{{u"query"_s, query}};
    copyObject(call.parameters, u"filter"_s, body);
    copyObject(call.parameters, u"sort"_s, body);
    addPaging(call.parameters, body);
    send(call, "POST", u"/v1/search"_s, {}, body, done, [query, done](const QJsonObject& answer) {
        done(ToolOutcome::success(
            NotionResults::formatSearch(NotionResults::decodeList(answer), query)));
    });
}

// --- pages ----------------------------------------------------------------------------------

QString NotionGetPageTool::identifier() const
{
    return u"notion_get_page"_s;
}

QString NotionGetPageTool::name() const
{
    return u"Notion Get Page"_s;
}

QString NotionGetPageTool::description() const
{
    return u"Retrieve detailed information about a specific Notion page by its ID.\n\n"
           u"**Best for:** Reading a page's title, properties and metadata once its ID is "
           u"known.\n"
           u"**Returns:** The page's properties, URL, parent and timestamps."_s;
}

void NotionGetPageTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"page_id"_s}, done))
        return;
    const std::optional<QString> pageId = idParameter(call, u"page_id"_s, done);
    if (!pageId)
        return;
    // The API takes one "filter_properties" item per property ID.
    QUrlQuery query;
    if (const std::optional<QString> filter =
            givenString(call.parameters, u"filter_properties"_s)) {
        for (const QString& property : filter->split(u',', Qt::SkipEmptyParts))
            query.addQueryItem(u"filter_properties"_s, property.trimmed());
    }
    send(call, "GET", u"/v1/pages/"_s + *pageId, query, std::nullopt, done,
         [done](const QJsonObject& answer) {
             done(ToolOutcome::success(
                 NotionResults::formatPage(NotionResults::decodePage(answer))));
         });
}

QString NotionCreatePageTool::identifier() const
{
    return u"notion_create_page"_s;
}

QString NotionCreatePageTool::name() const
{
    return u"Notion Create Page"_s;
}

QString NotionCreatePageTool::description() const
{
    return u"Create a new page in Notion under a specified parent page or in a database.\n\n"
           u"**Best for:** Writing meeting notes, call summaries and action items into the "
           u"workspace.\n"
           u"**Returns:** The new page's ID, title, URL and parent."_s;
}

void NotionCreatePageTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"title"_s}, done))
        return;
    QJsonObject parent;
    if (call.parameters.contains(u"parent_page_id"_s)) {
        const std::optional<QString> id = idParameter(call, u"parent_page_id"_s, done);
        if (!id)
            return;
        parent = {{u"page_id"_s, *id}};
    } else if (call.parameters.contains(u"database_id"_s)) {
        const std::optional<QString> id = idParameter(call, u"database_id"_s, done);
        if (!id)
            return;
        parent = {{u"database_id"_s, *id}};
    } else if (const std::optional<QString> stored = call.keychain.readKey(databaseItem());
               stored && !stored->trimmed().isEmpty()) {
        const QString id = stored->trimmed();
        qCInfo(lcNotion).noquote() << u"🔧 Using stored database ID: "_s + id;
        if (!isNotionId(id))
            return fail(done, LocalToolError::invalidParameter(u"database_id"_s,
                                                               u"the stored default is not a "
                                                               u"Notion ID"_s));
        parent = {{u"database_id"_s, id}};
    } else {
        return fail(done, LocalToolError::executionFailed(
                              u"Either 'parent_page_id' or 'database_id' must be provided, or "
                              u"configure a default database ID in Notion settings"_s));
    }

    QJsonObject body{{u"parent"_s, parent},
                     {u"properties"_s,
                      titleProperty(givenString(call.parameters, u"title"_s).value_or(QString()))}};
    if (const std::optional<QString> emoji = givenString(call.parameters, u"icon_emoji"_s))
        body.insert(u"icon"_s, emojiIcon(*emoji));
    if (const std::optional<QString> cover = givenString(call.parameters, u"cover_url"_s))
        body.insert(u"cover"_s, externalCover(*cover));
    QList<QJsonArray> runs;
    if (call.parameters.value(u"content_blocks"_s).isArray()) {
        QString error;
        const std::optional<QJsonArray> blocks =
            NotionBlocks::blocks(call.parameters.value(u"content_blocks"_s).toArray(), &error);
        if (!blocks)
            return fail(done, LocalToolError::invalidParameter(u"content_blocks"_s, error));
        runs = NotionBlocks::chunks(*blocks);
    }
    // The page takes the first run with it; the rest follow once it exists.
    if (!runs.isEmpty())
        body.insert(u"children"_s, runs.takeFirst());
    const NotionSession session{&call.http, service(), *call.apiKey};
    const auto rest = std::make_shared<const QList<QJsonArray>>(std::move(runs));
    request(session, "POST", u"/v1/pages"_s, {}, body, done,
            [session, rest, done](const QJsonObject& answer) {
                const NotionPage page = NotionResults::decodePage(answer);
                const QString created = NotionResults::formatCreatedPage(page);
                if (rest->isEmpty())
                    return done(ToolOutcome::success(created));
                appendRuns(
                    session, page.id, rest, 0, std::nullopt, {},
                    [done, page](const ToolOutcome& outcome) {
                        // The page is there; say so with the failure.
                        done(ToolOutcome::failure(LocalToolError::executionFailed(
                            outcome.error()->text().section(u"Tool execution failed: "_s, -1) +
                            u" (page "_s + page.id +
                            u" was created without the rest of its content)"_s)));
                    },
                    [done, created](const QList<NotionBlock>&) {
                        done(ToolOutcome::success(created));
                    });
            });
}

QString NotionUpdatePageTool::identifier() const
{
    return u"notion_update_page"_s;
}

QString NotionUpdatePageTool::name() const
{
    return u"Notion Update Page"_s;
}

QString NotionUpdatePageTool::description() const
{
    return u"Update properties of an existing Notion page.\n\n"
           u"**Best for:** Renaming, archiving or restoring a page, changing its icon or cover, "
           u"or setting its properties.\n"
           u"**Returns:** The updated page's details and the list of updates applied."_s;
}

void NotionUpdatePageTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"page_id"_s}, done))
        return;
    const std::optional<QString> pageId = idParameter(call, u"page_id"_s, done);
    if (!pageId)
        return;
    QJsonObject body;
    QStringList updates;
    QJsonObject properties = call.parameters.value(u"properties"_s).toObject();
    if (const std::optional<QString> title = givenString(call.parameters, u"title"_s)) {
        properties.insert(u"title"_s, titleProperty(*title).value(u"title"_s));
        updates.append(u"title"_s);
    }
    if (const QJsonValue archived = call.parameters.value(u"archived"_s); archived.isBool()) {
        body.insert(u"archived"_s, archived);
        updates.append(archived.toBool() ? u"archived"_s : u"unarchived"_s);
    }
    if (const std::optional<QString> emoji = givenString(call.parameters, u"icon_emoji"_s)) {
        body.insert(u"icon"_s, emojiIcon(*emoji));
        updates.append(u"icon"_s);
    }
    if (const std::optional<QString> cover = givenString(call.parameters, u"cover_url"_s)) {
        body.insert(u"cover"_s, externalCover(*cover));
        updates.append(u"cover"_s);
    }
    if (!call.parameters.value(u"properties"_s).toObject().isEmpty())
        updates.append(u"properties"_s);
    if (!properties.isEmpty())
        body.insert(u"properties"_s, properties);
    if (updates.isEmpty()) {
        return fail(done, LocalToolError::executionFailed(
                              u"No updates specified. Please provide at least one field to "
                              u"update."_s));
    }
    send(call, "PATCH", u"/v1/pages/"_s + *pageId, {}, body, done,
         [updates, done](const QJsonObject& answer) {
             done(ToolOutcome::success(
                 NotionResults::formatUpdatedPage(NotionResults::decodePage(answer), updates)));
         });
}

// --- databases ------------------------------------------------------------------------------

QString NotionGetDatabaseTool::identifier() const
{
    return u"notion_get_database"_s;
}

QString NotionGetDatabaseTool::name() const
{
    return u"Notion Get Database"_s;
}

QString NotionGetDatabaseTool::description() const
{
    return u"Retrieve schema and metadata for a specific Notion database by its ID.\n\n"
           u"**Best for:** Learning a database's properties before querying it or adding pages "
           u"to it.\n"
           u"**Returns:** The database's title, URL and its properties schema."_s;
}

void NotionGetDatabaseTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"database_id"_s}, done))
        return;
    const std::optional<QString> databaseId = idParameter(call, u"database_id"_s, done);
    if (!databaseId)
        return;
    send(call, "GET", u"/v1/databases/"_s + *databaseId, {}, std::nullopt, done,
         [done](const QJsonObject& answer) {
             done(ToolOutcome::success(NotionResults::formatDatabase(answer)));
         });
}

QString NotionQueryDatabaseTool::identifier() const
{
    return u"notion_query_database"_s;
}

QString NotionQueryDatabaseTool::name() const
{
    return u"Notion Query Database"_s;
}

QString NotionQueryDatabaseTool::description() const
{
    return u"Query a Notion database to retrieve pages that match specified criteria.\n\n"
           u"**Best for:** Finding deals, contacts or tasks by their properties, filtered and "
           u"sorted.\n"
           u"**Returns:** The matching pages with their properties, and the cursor of the next "
           u"page of results."_s;
}

void NotionQueryDatabaseTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"database_id"_s}, done))
        return;
    const std::optional<QString> databaseId = idParameter(call, u"database_id"_s, done);
    if (!databaseId)
        return;
    QJsonObject body;
    copyObject(call.parameters, u"filter"_s, body);
    if (call.parameters.value(u"sorts"_s).isArray())
        body.insert(u"sorts"_s, call.parameters.value(u"sorts"_s));
    addPaging(call.parameters, body);
    send(call, "POST", u"/v1/databases/"_s + *databaseId + u"/query"_s, {}, body, done,
         [id = *databaseId, done](const QJsonObject& answer) {
             done(ToolOutcome::success(
                 NotionResults::formatQuery(NotionResults::decodeList(answer), id)));
         });
}

// --- users ----------------------------------------------------------------------------------

QString NotionGetUserTool::identifier() const
{
    return u"notion_get_user"_s;
}

QString NotionGetUserTool::name() const
{
    return u"Notion Get User"_s;
}

QString NotionGetUserTool::description() const
{
    return u"Retrieve information about the current bot user or a specific user.\n\n"
           u"**Best for:** Checking which integration is connected, or who a user ID belongs "
           u"to.\n"
           u"**Returns:** The user's name, type, avatar and, for a person, e-mail."_s;
}

void NotionGetUserTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {}, done))
        return;
    QString userId = u"me"_s;
    if (call.parameters.contains(u"user_id"_s)) {
        const std::optional<QString> id = idParameter(call, u"user_id"_s, done);
        if (!id)
            return;
        userId = *id;
    }
    send(call, "GET", u"/v1/users/"_s + userId, {}, std::nullopt, done,
         [done](const QJsonObject& answer) {
             done(ToolOutcome::success(
                 NotionResults::formatUser(NotionResults::decodeUser(answer))));
         });
}

QString NotionListAllUsersTool::identifier() const
{
    return u"notion_list_users"_s;
}

QString NotionListAllUsersTool::name() const
{
    return u"Notion List All Users"_s;
}

QString NotionListAllUsersTool::description() const
{
    return u"List all users in the Notion workspace.\n\n"
           u"**Best for:** Finding the people of the workspace to mention or assign.\n"
           u"**Returns:** Each user's name, ID, type, avatar and e-mail, and the cursor of the "
           u"next page of users."_s;
}

void NotionListAllUsersTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {}, done))
        return;
    QUrlQuery query;
    addPaging(call.parameters, query);
    send(call, "GET", u"/v1/users"_s, query, std::nullopt, done, [done](const QJsonObject& answer) {
        done(ToolOutcome::success(NotionResults::formatUsers(NotionResults::decodeList(answer))));
    });
}

// --- comments -------------------------------------------------------------------------------

QString NotionCreateCommentTool::identifier() const
{
    return u"notion_create_comment"_s;
}

QString NotionCreateCommentTool::name() const
{
    return u"Notion Create Comment"_s;
}

QString NotionCreateCommentTool::description() const
{
    return u"Add a comment to a Notion page for collaboration and feedback.\n\n"
           u"**Best for:** Leaving notes from a call on a deal or account page.\n"
           u"**Returns:** The new comment's ID, discussion and content."_s;
}

void NotionCreateCommentTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"page_id"_s, u"comment_text"_s}, done))
        return;
    const std::optional<QString> pageId = idParameter(call, u"page_id"_s, done);
    if (!pageId)
        return;
    const QJsonObject body{
        {u"parent"_s, QJsonObject{{u"page_id"_s, *pageId}}},
        {u"rich_text"_s, NotionBlocks::richText(
                             givenString(call.parameters, u"comment_text"_s).value_or(QString()))}};
    send(call, "POST", u"/v1/comments"_s, {}, body, done, [done](const QJsonObject& answer) {
        done(ToolOutcome::success(
            NotionResults::formatNewComment(NotionResults::decodeComment(answer))));
    });
}

QString NotionGetCommentsTool::identifier() const
{
    return u"notion_get_comments"_s;
}

QString NotionGetCommentsTool::name() const
{
    return u"Notion Get Comments"_s;
}

QString NotionGetCommentsTool::description() const
{
    return u"Retrieve all comments from a Notion page or block.\n\n"
           u"**Best for:** Reading the discussion on a page before a call.\n"
           u"**Returns:** Each comment's content, author and time, and the cursor of the next "
           u"page of comments."_s;
}

void NotionGetCommentsTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"block_id"_s}, done))
        return;
    const std::optional<QString> blockId = idParameter(call, u"block_id"_s, done);
    if (!blockId)
        return;
    QUrlQuery query;
    query.addQueryItem(u"block_id"_s, *blockId);
    addPaging(call.parameters, query);
    send(call, "GET", u"/v1/comments"_s, query, std::nullopt, done,
         [id = *blockId, done](const QJsonObject& answer) {
             done(ToolOutcome::success(
                 NotionResults::formatComments(NotionResults::decodeList(answer), id)));
         });
}

// --- blocks ---------------------------------------------------------------------------------

QString NotionAddBlockTool::identifier() const
{
    return u"notion_add_block"_s;
}

QString NotionAddBlockTool::name() const
{
    return u"Notion Add Block"_s;
}

QString NotionAddBlockTool::description() const
{
    return u"Add content blocks (paragraphs, lists, etc.) to a Notion page.\n\n"
           u"**Best for:** Appending notes, to-dos and headings to an existing page.\n"
           u"**Returns:** The IDs and types of the blocks added."_s;
}

void NotionAddBlockTool::execute(const ToolInvocation& call, Done done)
{
    if (!checked(call, {u"page_id"_s, u"blocks"_s}, done))
        return;
    const std::optional<QString> pageId = idParameter(call, u"page_id"_s, done);
    if (!pageId)
        return;
    std::optional<QString> after;
    if (call.parameters.contains(u"after_block_id"_s)) {
        after = idParameter(call, u"after_block_id"_s, done);
        if (!after)
            return;
    }
    QString error;
    const std::optional<QJsonArray> blocks =
        NotionBlocks::blocks(call.parameters.value(u"blocks"_s).toArray(), &error);
    if (!blocks)
        return fail(done, LocalToolError::invalidParameter(u"blocks"_s, error));
    const auto runs = std::make_shared<const QList<QJsonArray>>(NotionBlocks::chunks(*blocks));
    appendRuns({&call.http, service(), *call.apiKey}, *pageId, runs, 0, after, {}, done,
               [id = *pageId, done](const QList<NotionBlock>& added) {
                   done(ToolOutcome::success(NotionResults::formatAddedBlocks(added, id)));
               });
}

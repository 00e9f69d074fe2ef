#include "tools/BuiltInToolDefinitions.h"

#include <QHash>
#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace {

struct Property
{
    QString name;
    QString type;
    QString description;
    QJsonObject extra; // "minimum", "default", "items", "enum", …
};

struct Definition
{
    QString identifier;
    QString description;
    QList<Property> properties;
    QStringList required;
    // Three of the definitions refuse keys they do not declare; the others
    // say nothing about them.
    bool closed = false;
};

QJsonObject integerRange(int minimum, int maximum, int fallback)
{
    return {{u"minimum"_s, minimum}, {u"maximum"_s, maximum}, {u"default"_s, fallback}};
}

QJsonObject defaultsTo(int fallback)
{
    return {{u"default"_s, fallback}};
}

QJsonObject itemsOf(const QJsonObject& items)
{
    return {{u"items"_s, items}};
}

const QJsonObject stringItems{{u"type"_s, u"string"_s}};
const QJsonObject objectItems{{u"type"_s, u"object"_s}};

QList<Definition> makeDefinitions()
{
    const auto text = u"string"_s;
    const auto integer = u"integer"_s;
    const auto object = u"object"_s;
    const auto array = u"array"_s;
    const auto boolean = u"boolean"_s;
    return {
        {u"brave_web_search"_s,
         u"Search the web for current information, news, and general knowledge. Use this when you need up-to-date information from the internet."_s,
         {{u"query"_s, text, u"The search query to look for on the web"_s, {}},
          {u"count"_s, integer, u"Number of results to return (1-20, default: 10)"_s,
           integerRange(1, 20, 10)},
          {u"offset"_s,
           integer,
           u"Number of results to skip for pagination (default: 0)"_s,
           {{u"minimum"_s, 0}, {u"default"_s, 0}}}},
         {u"query"_s},
         true},
        {u"brave_local_search"_s,
         u"Search for local businesses, places, restaurants, and services with details like address, phone, hours, and ratings."_s,
         {{u"query"_s,
           text,
           u"Local search query (e.g., 'coffee shops near me', 'restaurants in San Francisco')"_s,
           {}},
          {u"count"_s, integer, u"Number of local results to return (1-20, default: 5)"_s,
           integerRange(1, 20, 5)}},
         {u"query"_s}},
        {u"firecrawl_scrape"_s,
         u"Scrape content from a single URL with advanced options. Best for single page content extraction when you know exactly which page contains the information."_s,
         {{u"url"_s, text, u"The URL to scrape"_s, {}},
          {u"formats"_s, array, u"Content formats to extract (default: ['markdown'])"_s,
           itemsOf({{u"type"_s, u"string"_s},
                    {u"enum"_s, QJsonArray{u"markdown"_s, u"html"_s, u"rawHtml"_s, u"screenshot"_s,
                                           u"links"_s}}})},
          {u"onlyMainContent"_s,
           boolean,
           u"Extract only the main content, filtering out navigation, footers, etc."_s,
           {}},
          {u"waitFor"_s,
           integer,
           u"Time in milliseconds to wait for dynamic content to load"_s,
           {}},
          {u"timeout"_s,
           integer,
           u"Maximum time in milliseconds to wait for the page to load"_s,
           {}}},
         {u"url"_s},
         true},
        {u"firecrawl_map"_s,
         u"Map a website to discover all indexed URLs on the site. Best for discovering URLs on a website before deciding what to scrape."_s,
         {{u"url"_s, text, u"Starting URL for URL discovery"_s, {}},
          {u"search"_s, text, u"Optional search term to filter URLs"_s, {}},
          {u"limit"_s, integer, u"Maximum number of URLs to return"_s, {}}},
         {u"url"_s},
         true},
        {u"firecrawl_search"_s,
         u"Search the web and return clean, formatted content with Firecrawl's advanced search capabilities."_s,
         {{u"query"_s, text, u"The search query to find relevant content"_s, {}},
          {u"limit"_s, integer, u"Maximum number of results to return"_s, defaultsTo(10)}},
         {u"query"_s}},
        {u"notion_search"_s,
         u"Search for pages and databases in Notion by title."_s,
         {{u"query"_s, text, u"Search query to find pages and databases"_s, {}},
          {u"filter"_s,
           object,
           u"Filter criteria (e.g., {\"value\": \"page\", \"property\": \"object\"})"_s,
           {}},
          {u"sort"_s, object, u"Sort criteria"_s, {}},
          {u"page_size"_s, integer, u"Number of results to return (max 100)"_s, defaultsTo(10)}},
         {u"query"_s}},
        {u"notion_get_page"_s,
         u"Retrieve detailed information about a specific Notion page by its ID."_s,
         {{u"page_id"_s, text, u"The ID of the Notion page to retrieve"_s, {}},
          {u"filter_properties"_s, text, u"Comma-separated list of property IDs to filter"_s, {}}},
         {u"page_id"_s}},
        {u"notion_get_database"_s,
         u"Retrieve schema and metadata for a specific Notion database by its ID."_s,
         {{u"database_id"_s, text, u"The ID of the Notion database to retrieve"_s, {}}},
         {u"database_id"_s}},
        {u"notion_query_database"_s,
         u"Query a Notion database to retrieve pages that match specified criteria."_s,
         {{u"database_id"_s, text, u"The ID of the Notion database to query"_s, {}},
          {u"filter"_s, object, u"Filter criteria to apply to the query"_s, {}},
          {u"sorts"_s, array, u"Array of sort criteria objects"_s, {}},
          {u"page_size"_s, integer, u"Number of results to return (max 100)"_s, defaultsTo(10)},
          {u"start_cursor"_s, text, u"Cursor for pagination"_s, {}}},
         {u"database_id"_s}},
        {u"notion_get_user"_s,
         u"Retrieve information about the current bot user or a specific user."_s,
         {{u"user_id"_s,
           text,
           u"Optional: ID of specific user to retrieve (omit for current bot user)"_s,
           {}}},
         {}},
        {u"notion_create_page"_s,
         u"Create a new page in Notion under a specified parent page or in a database."_s,
         {{u"parent_page_id"_s,
           text,
           u"Optional: The ID of the parent page where this new page will be created"_s,
           {}},
          {u"database_id"_s,
           text,
           u"Optional: The ID of the database where this new page will be created (alternative to parent_page_id)"_s,
           {}},
          {u"title"_s, text, u"The title of the new page"_s, {}},
          {u"content_blocks"_s, array, u"Optional: Array of block objects to add as page content"_s,
           itemsOf(objectItems)},
          {u"icon_emoji"_s, text, u"Optional: Emoji to use as page icon (e.g., '📄', '💼')"_s, {}},
          {u"cover_url"_s, text, u"Optional: URL for page cover image"_s, {}}},
         {u"title"_s}},
        {u"notion_update_page"_s,
         u"Update properties of an existing Notion page."_s,
         {{u"page_id"_s, text, u"The ID of the page to update"_s, {}},
          {u"title"_s, text, u"Optional: New title for the page"_s, {}},
          {u"archived"_s, boolean, u"Optional: Set to true to archive, false to unarchive"_s, {}},
          {u"icon_emoji"_s, text, u"Optional: New emoji icon for the page"_s, {}},
          {u"cover_url"_s, text, u"Optional: New cover image URL"_s, {}},
          {u"properties"_s, object, u"Optional: Custom properties to update"_s, {}}},
         {u"page_id"_s}},
        {u"notion_create_comment"_s,
         u"Add a comment to a Notion page for collaboration and feedback."_s,
         {{u"page_id"_s, text, u"The ID of the page to comment on"_s, {}},
          {u"comment_text"_s, text, u"The text content of the comment"_s, {}}},
         {u"page_id"_s, u"comment_text"_s}},
        {u"notion_get_comments"_s,
         u"Retrieve all comments from a Notion page or block."_s,
         {{u"block_id"_s, text, u"The ID of the page or block to get comments from"_s, {}},
          {u"start_cursor"_s, text, u"Cursor for pagination"_s, {}},
          {u"page_size"_s, integer, u"Number of comments to return (max 100)"_s, defaultsTo(10)}},
         {u"block_id"_s}},
        {u"notion_add_block"_s,
         u"Add content blocks (paragraphs, lists, etc.) to a Notion page."_s,
         {{u"page_id"_s, text, u"The ID of the page to add blocks to"_s, {}},
          {u"blocks"_s, array, u"Array of block objects to add"_s, itemsOf(objectItems)},
          {u"after_block_id"_s, text, u"Optional: ID of block to insert new blocks after"_s, {}}},
         {u"page_id"_s, u"blocks"_s}},
        {u"notion_list_users"_s,
         u"List all users in the Notion workspace."_s,
         {{u"start_cursor"_s, text, u"Optional: Cursor for pagination"_s, {}},
          {u"page_size"_s, integer, u"Optional: Number of users to return (max 100)"_s, {}}},
         {}},
        {u"resend_send_email"_s,
         u"Send professional emails using Resend with support for HTML content, scheduling, and advanced delivery options."_s,
         {{u"to"_s, text, u"Recipient email address"_s, {}},
          {u"subject"_s, text, u"Email subject line"_s, {}},
          {u"text"_s, text, u"Plain text email content"_s, {}},
          {u"from"_s,
           text,
           u"Optional: Sender email address (uses configured default if not provided)"_s,
           {}},
          {u"html"_s, text, u"Optional: HTML email content"_s, {}},
          {u"cc"_s, array, u"Optional: CC email addresses"_s, itemsOf(stringItems)},
          {u"bcc"_s, array, u"Optional: BCC email addresses"_s, itemsOf(stringItems)},
          {u"reply_to"_s, array, u"Optional: Reply-to email addresses"_s, itemsOf(stringItems)},
          {u"scheduled_at"_s,
           text,
           u"Optional: Schedule email delivery (natural language format like 'tomorrow at 10am')"_s,
           {}}},
         {u"to"_s, u"subject"_s, u"text"_s}},
        {u"resend_email_templates"_s,
         u"Get pre-built email templates for common sales and business scenarios."_s,
         {{u"template_type"_s,
           text,
           u"Type of email template to retrieve"_s,
           {{u"enum"_s, QJsonArray{u"follow_up"_s, u"meeting"_s, u"proposal"_s, u"thank_you"_s,
                                   u"introduction"_s}}}}},
         {u"template_type"_s}},
    };
}

QJsonObject toJson(const Definition& definition)
{
    QJsonObject properties;
    for (const Property& property : definition.properties) {
        QJsonObject schema = property.extra;
        schema.insert(u"type"_s, property.type);
        schema.insert(u"description"_s, property.description);
        properties.insert(property.name, schema);
    }
    QJsonObject parameters{
        {u"type"_s, u"object"_s},
        {u"properties"_s, properties},
        {u"required"_s, QJsonArray::fromStringList(definition.required)},
    };
    if (definition.closed)
        parameters.insert(u"additionalProperties"_s, false);
    return {
        {u"name"_s, definition.identifier},
        {u"description"_s, definition.description},
        {u"parameters"_s, parameters},
    };
}

const QHash<QString, QJsonObject>& table()
{
    static const QHash<QString, QJsonObject> built = [] {
        QHash<QString, QJsonObject> result;
        for (const Definition& definition : makeDefinitions())
            result.insert(definition.identifier, toJson(definition));
        return result;
    }();
    return built;
}

} // namespace

namespace BuiltInToolDefinitions {

std::optional<QJsonObject> definition(const QString& identifier)
{
    const auto it = table().constFind(identifier);
    if (it == table().constEnd())
        return std::nullopt;
    return *it;
}

} // namespace BuiltInToolDefinitions

#include "tools/IntegrationCatalogue.h"

using namespace Qt::StringLiterals;

namespace IntegrationCatalogue {

QList<IntegrationItem> build()
{
    const auto item = [](QString name, QString category, QString description, QString iconName,
                         QString iconColor, bool enabled, bool comingSoon, AuthType authType,
                         QString placeholder, std::optional<QStringList> tools,
                         std::optional<QList<IntegrationField>> fields) {
        IntegrationItem result;
        result.id = QUuid::createUuid();
        result.name = std::move(name);
        result.description = std::move(description);
        result.iconName = std::move(iconName);
        result.iconColor = std::move(iconColor);
        result.isEnabled = enabled;
        result.category = std::move(category);
        result.isComingSoon = comingSoon;
        result.requiresAPIKey = true;
        result.authType = authType;
        result.apiKeyPlaceholder = std::move(placeholder);
        result.toolIdentifiers = std::move(tools);
        result.additionalFields = std::move(fields);
        return result;
    };
    const auto searchTools = u"Search & AI Tools"_s;
    const auto salesTools = u"Sales & Marketing Tools"_s;
    const auto communication = u"Communication & Collaboration"_s;
    return {
        item(
            u"Brave Search"_s, searchTools,
            u"Privacy-focused search engine with real-time web results and research capabilities."_s,
            u"magnifyingglass.circle.fill"_s, u"orange"_s, true, false, AuthType::apiKey,
            u"Enter your Brave Search API key"_s,
            QStringList{u"brave_web_search"_s, u"brave_local_search"_s}, std::nullopt),
        item(
            u"Firecrawl"_s, searchTools,
            u"Advanced web scraping, crawling, and search capabilities for extracting structured data from websites."_s,
            u"flame.fill"_s, u"orange"_s, false, false, AuthType::apiKey,
            u"Enter your Firecrawl API key"_s,
            QStringList{u"firecrawl_scrape"_s, u"firecrawl_map"_s, u"firecrawl_search"_s},
            std::nullopt),
        item(
            u"Notion"_s, searchTools,
            u"Access and search your Notion workspace including pages, databases, and user information."_s,
            u"doc.text.fill"_s, u"black"_s, false, false, AuthType::apiKey,
            u"Enter your Notion Integration Token"_s,
            QStringList{u"notion_search"_s, u"notion_get_page"_s, u"notion_get_database"_s,
                        u"notion_query_database"_s, u"notion_get_user"_s, u"notion_create_page"_s,
                        u"notion_update_page"_s, u"notion_create_comment"_s,
                        u"notion_get_comments"_s, u"notion_add_block"_s, u"notion_list_users"_s},
            QList<IntegrationField>{{u"database_id"_s, u"Default Database ID"_s,
                                     u"Enter database ID for creating pages"_s, false,
                                     IntegrationField::FieldType::text}}),
        item(
            u"Resend"_s, searchTools,
            u"Send professional emails with HTML support, scheduling, and delivery tracking for sales communications."_s,
            u"envelope.fill"_s, u"blue"_s, false, false, AuthType::apiKey,
            u"Enter your Resend API Key"_s,
            QStringList{u"resend_send_email"_s, u"resend_email_templates"_s},
            QList<IntegrationField>{{u"sender_email"_s, u"Default Sender Email"_s,
                                     u"Enter default sender email address"_s, false,
                                     IntegrationField::FieldType::email}}),
        item(u"HubSpot"_s, salesTools,
             u"Offers tools for lead generation, email marketing, and customer service."_s,
             u"h.circle.fill"_s, u"orange"_s, false, true, AuthType::apiKey,
             u"Enter your HubSpot API key"_s, std::nullopt, std::nullopt),
        // "pipeline management" twice is the catalogue's own wording.
        item(u"Pipedrive"_s, salesTools,
             u"Focuses on sales pipeline management with visual pipeline management."_s,
             u"p.circle.fill"_s, u"green"_s, false, true, AuthType::apiKey,
             u"Enter your Pipedrive API token"_s, std::nullopt, std::nullopt),
        item(u"Slack"_s, communication,
             u"Enables real-time collaboration and updates on CRM activities."_s,
             u"message.circle.fill"_s, u"purple"_s, false, true, AuthType::oauth, QString(),
             std::nullopt, std::nullopt),
        item(u"Gmail/Google Workspace"_s, communication,
             u"Enhances communication and scheduling within the CRM."_s, u"envelope.circle.fill"_s,
             u"red"_s, false, true, AuthType::oauth, QString(), std::nullopt, std::nullopt),
    };
}

QString serviceName(const QString& integrationName)
{
    if (integrationName == u"Brave Search"_s)
        return u"brave-search"_s;
    if (integrationName == u"Firecrawl"_s)
        return u"firecrawl"_s;
    if (integrationName == u"Notion"_s)
        return u"notion"_s;
    if (integrationName == u"Resend"_s)
        return u"resend"_s;
    return integrationName.toLower();
}

QString fieldItemName(const QString& integrationName, const QString& fieldKey)
{
    return serviceName(integrationName) + u'-' + QString(fieldKey).replace(u'_', u'-');
}

QString authTypeName(AuthType type)
{
    switch (type) {
    case AuthType::none:
        return u"none"_s;
    case AuthType::apiKey:
        return u"apiKey"_s;
    case AuthType::oauth:
        return u"oauth"_s;
    case AuthType::basicAuth:
        return u"basicAuth"_s;
    }
    return {};
}

QString fieldTypeName(IntegrationField::FieldType type)
{
    switch (type) {
    case IntegrationField::FieldType::text:
        return u"text"_s;
    case IntegrationField::FieldType::email:
        return u"email"_s;
    case IntegrationField::FieldType::password:
        return u"password"_s;
    }
    return {};
}

} // namespace IntegrationCatalogue

#include "tools/BuiltInTools.h"

#include "tools/BraveSearchTools.h"
#include "tools/FirecrawlTools.h"
#include "tools/LocalToolManager.h"
#include "tools/NotionTools.h"
#include "tools/ResendTools.h"

using namespace Qt::StringLiterals;

BuiltInToolServices BuiltInToolServices::fromEnvironment()
{
    return {
        ToolService::fromEnvironment("QUILLMOSS_BRAVE_BASE_URL", u"https://api.search.brave.com"_s),
        ToolService::fromEnvironment("QUILLMOSS_FIRECRAWL_BASE_URL",
                                     u"https://api.firecrawl.dev"_s),
        ToolService::fromEnvironment("QUILLMOSS_NOTION_BASE_URL", u"https://api.notion.com"_s),
        ToolService::fromEnvironment("QUILLMOSS_RESEND_BASE_URL", u"https://api.resend.com"_s)};
}

void registerBuiltInTools(LocalToolManager& manager, const BuiltInToolServices& services)
{
    manager.registerTool(std::make_shared<BraveWebSearchTool>(services.braveSearch));
    manager.registerTool(std::make_shared<BraveLocalSearchTool>(services.braveSearch));
    manager.registerTool(std::make_shared<FirecrawlScrapeTool>(services.firecrawl));
    manager.registerTool(std::make_shared<FirecrawlMapTool>(services.firecrawl));
    manager.registerTool(std::make_shared<FirecrawlSearchTool>(services.firecrawl));
    manager.registerTool(std::make_shared<NotionSearchTool>(services.notion));
    manager.registerTool(std::make_shared<NotionGetPageTool>(services.notion));
    manager.registerTool(std::make_shared<NotionGetDatabaseTool>(services.notion));
    manager.registerTool(std::make_shared<NotionQueryDatabaseTool>(services.notion));
    manager.registerTool(std::make_shared<NotionGetUserTool>(services.notion));
    manager.registerTool(std::make_shared<NotionCreatePageTool>(services.notion));
    manager.registerTool(std::make_shared<NotionUpdatePageTool>(services.notion));
    manager.registerTool(std::make_shared<NotionCreateCommentTool>(services.notion));
    manager.registerTool(std::make_shared<NotionGetCommentsTool>(services.notion));
    manager.registerTool(std::make_shared<NotionAddBlockTool>(services.notion));
    manager.registerTool(std::make_shared<NotionListAllUsersTool>(services.notion));
    manager.registerTool(std::make_shared<ResendSendEmailTool>(services.resend));
    manager.registerTool(std::make_shared<ResendEmailTemplatesTool>());
}

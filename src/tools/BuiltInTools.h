// The tools that come with the program, registered once when the tool
// manager is made, and where the outside services they call are found.
#pragma once

#include "tools/ToolService.h"

class LocalToolManager;

struct BuiltInToolServices
{
    ToolService braveSearch;
    ToolService firecrawl;
    ToolService notion;
    ToolService resend;

    // QUILLMOSS_BRAVE_BASE_URL, QUILLMOSS_FIRECRAWL_BASE_URL,
    // QUILLMOSS_NOTION_BASE_URL and QUILLMOSS_RESEND_BASE_URL when set, else
    // each service's public API host.
    static BuiltInToolServices fromEnvironment();
};

// Registers one instance of each built-in tool under its identifier, whether
// or not its integration is enabled: the tool-configuration document decides
// what the backend is told of.
void registerBuiltInTools(LocalToolManager& manager, const BuiltInToolServices& services);

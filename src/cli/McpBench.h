// quillmoss bench mcp: tool calls to a remote MCP server over its event
// stream, one after the other, timed from the request to its answer.
#pragma once

#include <QStringList>

class CliContext;

// `options` are the words after "bench mcp".
int runMcpBench(CliContext& context, const QStringList& options);

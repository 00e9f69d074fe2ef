// quillmoss bench chat: the assistant chat under load, one message after the
// other in one call, against the configured backend with the stored sign-in;
// and bench chat-model: the chat's own bookkeeping in this process, measured
// with Google Benchmark.
#pragma once

#include <QStringList>

class CliContext;

// `options` are the words after "bench chat".
int runChatBench(CliContext& context, const QStringList& options);

// Registers the in-process cases ("chat/…") with Google Benchmark.
void registerChatModelBenchmarks();

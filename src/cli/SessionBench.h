// quillmoss bench session: how fast the backend session carries live
// transcription, against the configured backend with the stored sign-in.
#pragma once

#include <QStringList>

class CliContext;

// `options` are the words after "bench session".
int runSessionBench(CliContext& context, const QStringList& options);

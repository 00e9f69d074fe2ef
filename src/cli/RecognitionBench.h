// quillmoss bench recognition: what one run of the speech model costs on this
// machine, for a call's 3-second chunks and for merged 30-second jobs.
#pragma once

#include <QStringList>

class CliContext;

// `options` are the words after "bench recognition".
int runRecognitionBench(CliContext& context, const QStringList& options);

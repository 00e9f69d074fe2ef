// What the benchmarks against a server share: the words of a sales call to
// send, waiting on the event loop while the server answers, and the figures.
#pragma once

#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

class QCommandLineParser;

namespace BenchSupport {

// What a salesperson says, a sentence at a time.
const QStringList& salesCallSentences();

// Runs the event loop until `done` holds or `timeoutMs` passed; false on time-out.
bool waitUntil(const std::function<bool()>& done, int timeoutMs);

// The value below which `share` of the sorted `values` lie (nearest rank); 0 for none.
double percentile(const std::vector<double>& sorted, double share);

// The resident set of this process, in kB (0 where /proc is not there).
qint64 residentKilobytes();

// The "--count" option's value when it is a positive number.
std::optional<int> positiveCount(const QCommandLineParser& parser);

} // namespace BenchSupport

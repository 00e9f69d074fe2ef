// What the benchmarks against the backend share: the words of a sales call to
// send, and waiting on the event loop while the backend answers.
#pragma once

#include <QStringList>

#include <functional>

namespace BenchSupport {

// What a salesperson says, a sentence at a time.
const QStringList& salesCallSentences();

// Runs the event loop until `done` holds or `timeoutMs` passed; false on time-out.
bool waitUntil(const std::function<bool()>& done, int timeoutMs);

} // namespace BenchSupport

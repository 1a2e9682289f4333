// The lines that say in plain words what went wrong: with which file, device or host, why, and what to do.
// They are for the user of the program. A line goes to standard error, behind the message that it explains.
// It has at most 511 bytes (KELogMessage), so a text that may be long goes last. On the main thread.
#ifndef FLOWLANE_EXPLAIN_H
#define FLOWLANE_EXPLAIN_H

#include "base/LogCons.h"
#include "log/KELogging.h"

namespace flowlane {

template <typename... Args>
void Explain(const char* format, const Args&... args) {
    KEOutputLogMessage(kestrelon::logger::Cons, kestrelon::KEWARN, format, args...);
}

} // namespace flowlane

#endif

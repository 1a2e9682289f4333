// What a command's main thread does while its workers run: it prints statistics once per second until the
// work has ended or the user asks for the end.
#ifndef FLOWLANE_STATISTICSLOOP_H
#define FLOWLANE_STATISTICSLOOP_H

#include <functional>

#include "base/PipelineClock.h"
#include "commands/StopRequest.h"

namespace flowlane {

constexpr unsigned cStatisticsInterval = 1000; // ms, of all commands

// Calls printStatistics at once and then once per interval, until it returns true because the work has ended,
// or until the user asks for the end. A request that came before the first call ends the loop without any.
// For the main thread, which stopRequest belongs to.
void PrintStatisticsUntilEnd(StopRequest& stopRequest, const std::function<bool()>& printStatistics,
                             PipelineClock& clock = PipelineClock::System());

} // namespace flowlane

#endif

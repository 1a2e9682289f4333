#include "commands/StatisticsLoop.h"

namespace flowlane {

void PrintStatisticsUntilEnd(StopRequest& stopRequest, const std::function<bool()>& printStatistics,
                             PipelineClock& clock) {
    while (!stopRequest.IsRequested() && !printStatistics()) {
        clock.Sleep(cStatisticsInterval);
    }
}

} // namespace flowlane

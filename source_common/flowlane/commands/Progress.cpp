#include "commands/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "commands/CmdLine.h"
#include "log/KELogging.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;
using std::chrono::nanoseconds;

namespace {

// Minutes and seconds, with hours where there are any. Not negative.
std::string TimeText(nanoseconds time) {
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    const std::int64_t hours = seconds / 3600;
    const std::int64_t minutes = seconds / 60 % 60;
    return hours != 0 ? KEStdStringFormat("{}:{:02}:{:02}", hours, minutes, seconds % 60)
                      : KEStdStringFormat("{}:{:02}", minutes, seconds % 60);
}

} // namespace

Progress::Progress(std::optional<nanoseconds> total)
    : mTotal(total), mIsWatched(gCmdLine.mVerbose && isatty(STDERR_FILENO) == 1) {}

void Progress::Print(nanoseconds position) {
    if (mIsWatched) {
        KEOutputLogMessage(logger::Global, KEINFO, "at {}", ProgressText(mTotal, position));
    }
}

std::string ProgressText(std::optional<nanoseconds> total, nanoseconds position) {
    const nanoseconds reached = std::max(position, nanoseconds::zero());
    if (!total || *total <= nanoseconds::zero()) {
        return TimeText(reached);
    }
    const nanoseconds shown = std::min(reached, *total);
    const auto percent = static_cast<unsigned>(100.0 * static_cast<double>(shown.count()) /
                                               static_cast<double>(total->count()));
    return KEStdStringFormat("{} of {} ({} %)", TimeText(shown), TimeText(*total), percent);
}

} // namespace flowlane

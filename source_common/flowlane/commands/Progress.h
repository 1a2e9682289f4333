// At which time of how much a command is: a line for a user who watches it with -v on a terminal. On the main
// thread.
#ifndef FLOWLANE_PROGRESS_H
#define FLOWLANE_PROGRESS_H

#include <chrono>
#include <optional>
#include <string>

namespace flowlane {

class Progress {
public:
    // total: the time of the whole file; nothing, zero or less when it is not known.
    explicit Progress(std::optional<std::chrono::nanoseconds> total);

    // position: the time from the start of the file to what was sent last. Prints nothing unless -v is given
    // and standard error is a terminal.
    void Print(std::chrono::nanoseconds position);

private:
    std::optional<std::chrono::nanoseconds> mTotal;
    bool mIsWatched = false;
};

// "0:12 of 1:30 (13 %)", or "0:12" without a total. Never more than the total, nor less than 0:00.
std::string ProgressText(std::optional<std::chrono::nanoseconds> total, std::chrono::nanoseconds position);

} // namespace flowlane

#endif

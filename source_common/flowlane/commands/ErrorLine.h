// A line of a command's summary that shows one counter of a record of statistics.
#ifndef FLOWLANE_ERRORLINE_H
#define FLOWLANE_ERRORLINE_H

#include <cstdint>

#include "base/LogCons.h"
#include "log/KELogging.h"

namespace flowlane {

template <typename Statistics>
class ErrorLine {
public:
    // format has one field, for the counter. It is not copied and must outlive the object.
    constexpr ErrorLine(std::uint64_t Statistics::*counter, const char* format)
        : mCounter(counter), mFormat(format) {}

    void Print(const Statistics& stats) const {
        KEOutputLogMessage(kestrelon::logger::Cons, kestrelon::KEINFO, mFormat, stats.*mCounter);
    }

private:
    std::uint64_t Statistics::*mCounter;
    const char* mFormat;
};

} // namespace flowlane

#endif

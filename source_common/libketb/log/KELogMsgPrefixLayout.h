// The parts of the prefix of a log line. They come in the order of the bits below. A plain value: set it
// before other threads log.
#ifndef KESTRELON_KELOGMSGPREFIXLAYOUT_H
#define KESTRELON_KELOGMSGPREFIXLAYOUT_H

#include <cstdint>

namespace kestrelon {

class KELogMsgPrefixLayout {
public:
    enum Options : std::uint32_t {
        TimeStamp = 0x008,  // seconds.microseconds of the monotonic clock
        ProcessId = 0x010,  // [pid]
        ThreadId = 0x020,   // (kernel thread id)
        ModuleName = 0x100, // module:
        LoggerName = 0x200, // logger: (only when the message text is not empty)
        LevelName = 0x400,  // LEVEL: (only when the message text is not empty)
    };

    // True when any of these options is set.
    bool IsOption(std::uint32_t options) const noexcept { return (mOptions & options) != 0; }
    void SetPrefixOptions(std::uint32_t options) noexcept { mOptions |= options; }
    void RemovePrefixOptions(std::uint32_t options) noexcept { mOptions &= ~options; }
    void Clear() noexcept { mOptions = 0; }

    std::uint32_t mOptions = 0;
};

} // namespace kestrelon

#endif

// Why a replay did not start, or ended before its end: the facts from which the user is told.
#ifndef FLOWLANE_REPLAYFAILURE_H
#define FLOWLANE_REPLAYFAILURE_H

#include <cstdint>

#include "kestatus.h"

namespace flowlane {

struct ReplayFailure {
    enum class Cause {
        None,
        DeviceAddress, // the device does not tell its address
        FirstFile,     // the first file does not exist or cannot be opened
        FramePool,     // there is no memory for the frames, or their number is not valid
        NextFile,      // another file of the set cannot be opened
        NoFrames,      // the files have no frame that can be sent
        TimeGoesBack,  // a packet is earlier than the one before
        CutShort,      // the file ends within a block
        Damaged,       // a block has a length that cannot be right
        ReadFailed,    // the system cannot read the file
        SendFailed,    // the device refused a frame
        Other          // memory or threads are short
    };

    Cause cause = Cause::None;
    KESTATUS status = KESTATUS_SUCCESS; // the system's or the device's, where one of them is the cause
    std::uint32_t fileNumber = 0;       // PcapNgFileReader::FilePath gives its name
    // In its file, from 1. The packet that is earlier or was refused, or the last one that was read.
    std::uint64_t packetNumber = 0;
    std::uint64_t unsentFrames = 0; // that were read ahead, and not sent

    // TimeGoesBack, in nanoseconds since 1970
    std::uint64_t previousTime = 0;
    std::uint64_t time = 0;
    bool isBetweenFiles = false; // the packet is the first of its file

    std::uint32_t frameSize = 0; // SendFailed: bytes
};

} // namespace flowlane

#endif

// The breaks of a stream's clock whose packets have been sent: the source's thread notes them, and another
// one asks for them.
#ifndef FLOWLANE_SENTCLOCKBREAKS_H
#define FLOWLANE_SENTCLOCKBREAKS_H

#include <cstdint>
#include <mutex>

#include "streaming/TSPacket.h"

namespace flowlane {

class SentClockBreaks {
public:
    struct Values {
        std::uint64_t count = 0;
        TSClockBreak last;
    };

    // A packet that has been sent.
    void Note(const TSPacket& packet) {
        if (packet.mClockBreak.packetNumber != 0) {
            const std::lock_guard lock(mMutex);
            ++mValues.count;
            mValues.last = packet.mClockBreak;
        }
    }
    void Clear() {
        const std::lock_guard lock(mMutex);
        mValues = {};
    }
    Values Snapshot() const {
        const std::lock_guard lock(mMutex);
        return mValues;
    }

private:
    mutable std::mutex mMutex;
    Values mValues;
};

} // namespace flowlane

#endif

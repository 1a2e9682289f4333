// A queue of packets, first in, first out, linked through the packets themselves: nothing is allocated.
// Does not own the packets. No locking.
#ifndef FLOWLANE_TSPACKETQUEUE_H
#define FLOWLANE_TSPACKETQUEUE_H

#include <cstdint>

#include "streaming/TSPacket.h"

namespace flowlane {

class TSPacketQueue {
public:
    TSPacketQueue() noexcept : mPacketList(&TSPacket::mListEntry) {}

    // The packet must be on no list.
    void Append(TSPacket& packet) noexcept {
        mPacketList.AppendTail(packet);
        ++mPacketCount;
    }
    // Takes the first packet off the queue; null when it is empty.
    TSPacket* RemoveHead() noexcept {
        TSPacket* packet = mPacketList.RemoveHead();
        if (packet) {
            --mPacketCount;
        }
        return packet;
    }
    // Gives packets back to their pool, first in, first out, until only count are left.
    void ReleaseToPoolUntil(std::uint32_t count);

    // Null when the queue is empty.
    TSPacket* Head() const noexcept { return mPacketList.Head(); }
    TSPacket* Tail() const noexcept { return mPacketList.Tail(); }
    // The packet behind one of this queue; null when it is the last.
    const TSPacket* Next(const TSPacket& packet) const noexcept { return mPacketList.Next(packet); }
    std::uint32_t Count() const noexcept { return mPacketCount; }
    bool IsEmpty() const noexcept { return mPacketCount == 0; }

private:
    kestrelon::KEDList<TSPacket> mPacketList;
    std::uint32_t mPacketCount = 0;
};

} // namespace flowlane

#endif

// The frames of a transmit handle that are submitted and not yet sent, as ready-made ring records.
//
// A bounded queue in memory of its own; nothing is allocated after construction. Not for several threads
// at once.
#ifndef QUAYSIDE2_SEGMENT_TXBATCH_H
#define QUAYSIDE2_SEGMENT_TXBATCH_H

#include <memory>

#include "segment/SegmentLayout.h"

namespace quayside2::segment {

class TxBatch {
public:
    static constexpr std::uint32_t cMaxFrames = 64;

    struct Record {
        std::uint64_t wordCount;
        // The time and the number of the frame are 0 until it is sent.
        std::uint64_t words[cMaxRecordBytes / cWordBytes];
    };

    TxBatch() : mRecords(std::make_unique<Record[]>(cMaxFrames)) {}

    bool IsEmpty() const noexcept { return mCount == 0; }
    std::uint32_t FreeFrames() const noexcept { return cMaxFrames - mCount; }

    // Requires a free place and a length of 1 to cMaxTaggedFrameBytes.
    void Add(const std::uint8_t* frame, std::uint32_t length) noexcept;
    // Both require that the batch is not empty.
    Record& Front() noexcept { return mRecords[mFirst]; }
    void PopFront() noexcept {
        mFirst = (mFirst + 1) % cMaxFrames;
        --mCount;
    }

private:
    std::unique_ptr<Record[]> mRecords;
    std::uint32_t mFirst = 0;
    std::uint32_t mCount = 0;
};

} // namespace quayside2::segment

#endif

#include "segment/TxBatch.h"

#include <cstring>

namespace quayside2::segment {

void TxBatch::Add(const std::uint8_t* frame, std::uint32_t length) noexcept {
    Record& record = mRecords[(mFirst + mCount) % cMaxFrames];
    ++mCount;
    record.wordCount = RecordBytes(length) / cWordBytes;
    // The last words first: they get the zeros that fill up the frame.
    record.words[record.wordCount - 3] = 0;
    record.words[record.wordCount - 2] = 0;
    record.words[record.wordCount - 1] = 0;
    record.words[0] = std::uint64_t{cRecordMark} << 32 | length;
    record.words[1] = 0;
    std::memcpy(record.words + cRecordHeaderBytes / cWordBytes, frame, length);
}

} // namespace quayside2::segment

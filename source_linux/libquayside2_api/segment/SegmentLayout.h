// The bytes of a segment's shared memory. Processes of different builds share it.
//
// One file holds a header, the state of each port, and one ring for each port that sends. A ring is an
// endless sequence of records, addressed by positions: byte counts that only grow. A position's place in
// the ring is its remainder by the ring's size. The sender owns its ring; every receiver has a cursor in it.
//
// A record, all in 64-bit words, native byte order, its size a multiple of 16 bytes:
//   word 0      cRecordMark in the upper half, frame length in the lower half
//   word 1      time of sending, nanoseconds since 1970-01-01 00:00:00 UTC
//   words 2...  the frame, filled up with zeros
//   last word   number of the frame, 1 for the first that was ever sent on this port
// So the word before the end of the ring's contents is the number of all frames sent so far.
//
// A ring is divided into blocks. A record never crosses the end of a block: when the rest of a block could
// not hold the longest record, the next record starts with the next block. So the start of a block is always
// the start of a record. A receiver that has been overrun goes on there.
//
// Everything in the file may change at any moment and may be wrong: readers check before they use.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTLAYOUT_H
#define QUAYSIDE2_SEGMENT_SEGMENTLAYOUT_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/EthernetFrame.h"

namespace quayside2::segment {

inline constexpr std::uint32_t cPortCount = 4;
inline constexpr std::uint64_t cRingBytes = 4u << 20;
inline constexpr std::uint64_t cBlockBytes = 64u << 10;

inline constexpr std::uint32_t cMaxFrameBytes = 1514; // without a VLAN tag
inline constexpr std::uint32_t cMaxTaggedFrameBytes = cMaxFrameBytes + cVlanTagBytes;

inline constexpr std::uint64_t cWordBytes = 8;
inline constexpr std::uint64_t cRecordAlignment = 16;
inline constexpr std::uint64_t cRecordHeaderBytes = 2 * cWordBytes;
inline constexpr std::uint32_t cRecordMark = 0x4672616D;

constexpr std::uint64_t RecordBytes(std::uint32_t frameLength) {
    const std::uint64_t bytes = cRecordHeaderBytes + frameLength + cWordBytes;
    return (bytes + cRecordAlignment - 1) / cRecordAlignment * cRecordAlignment;
}

inline constexpr std::uint64_t cMaxRecordBytes = RecordBytes(cMaxTaggedFrameBytes);

constexpr std::uint64_t BlockStart(std::uint64_t position) {
    return position / cBlockBytes * cBlockBytes;
}

// The start of the record behind the one that ends at a position.
constexpr std::uint64_t NextRecordPosition(std::uint64_t end) {
    const std::uint64_t nextBlock = BlockStart(end) + cBlockBytes;
    return nextBlock - end < cMaxRecordBytes ? nextBlock : end;
}

using Word = std::atomic<std::uint64_t>;
using Ring = Word[cRingBytes / cWordBytes];

constexpr std::uint64_t RingIndex(std::uint64_t position) {
    return position % cRingBytes / cWordBytes;
}

// Written once, before the file is used; the magic number last.
struct FileHeader {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t portCount;
    std::uint64_t ringBytes;
    std::uint64_t blockBytes;
    std::uint64_t fileBytes;
};

inline constexpr std::uint64_t cMagic = 0x746E656D67655351; // "QSegment" as bytes of a little-endian machine
inline constexpr std::uint32_t cVersion = 1;

// The port's sender writes it, and all read it. Receivers write the two words of a waiting sender too.
// Words that different processes write are in different cache lines.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct alignas(64) SenderState {
    Word head;    // end of the records that are sent
    Word reclaim; // start of a block: records before it may be overwritten at any moment
    // A sender that waits for receivers stores in roomWanted how far they have to read, and sleeps on
    // roomWord. 0: nobody waits. A receiver that has come so far changes roomWord and wakes it.
    alignas(64) Word roomWanted;
    std::atomic<std::uint32_t> roomWord;
};

// The port's receiver writes it, and all read it. Senders write the two words of a sleeping receiver too.
// Words that different processes write are in different cache lines.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct alignas(64) ReceiverState {
    // Odd while delivery is enabled; every change of it is a new number.
    std::atomic<std::uint32_t> epoch;
    // The receiver sets sleeping to 1 before it sleeps on wakeWord. The sender that sets it back to 0 changes
    // wakeWord and wakes it.
    alignas(64) std::atomic<std::uint32_t> sleeping;
    std::atomic<std::uint32_t> wakeWord;
    // How far each port's ring was read, one cache line each: the end of a record or the start of a block.
    struct alignas(64) Cursor {
        Word position;
    };
    Cursor cursors[cPortCount];
};

struct ControlPages {
    FileHeader header;
    SenderState senders[cPortCount];
    ReceiverState receivers[cPortCount];
};

// The size of the largest page of any machine, so that the rings can be mapped on their own.
inline constexpr std::uint64_t cControlBytes = 64u << 10;
inline constexpr std::uint64_t cFileBytes = cControlBytes + cPortCount * cRingBytes;

inline constexpr FileHeader cExpectedHeader = {cMagic,     cVersion,    cPortCount,
                                               cRingBytes, cBlockBytes, cFileBytes};

// Bytes of the file that are locked; their contents have nothing to do with it. Each port has two. A lock of
// the first: somebody holds the port. A lock of the second: the holder opened it for frames, not just to read
// properties.
inline constexpr std::int64_t cPortLockOffset = 0;
inline constexpr std::int64_t cTrafficLockOffset = cPortLockOffset + cPortCount;
inline constexpr std::int64_t cSetUpLockOffset = cTrafficLockOffset + cPortCount;

// Where the ring of a port starts in the file.
constexpr std::uint64_t RingFileOffset(std::uint32_t port) {
    return cControlBytes + port * cRingBytes;
}

static_assert(Word::is_always_lock_free && sizeof(Word) == cWordBytes);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free && sizeof(std::atomic<std::uint32_t>) == 4);
static_assert(sizeof(Ring) == cRingBytes && sizeof(FileHeader) == 40);
static_assert(cRingBytes % cBlockBytes == 0 && cBlockBytes % cRecordAlignment == 0);
static_assert(sizeof(ControlPages) <= cControlBytes);

} // namespace quayside2::segment

#endif

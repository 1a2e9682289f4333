// Copying between private memory and a ring, word by word.
//
// A receiver may read a record while its sender, who has given it up, writes over it; the receiver notices
// afterwards and forgets what it copied. Word-sized atomic accesses make that legal, and cost little more
// than memcpy.
#ifndef QUAYSIDE2_SEGMENT_RINGWORDS_H
#define QUAYSIDE2_SEGMENT_RINGWORDS_H

#include <cstring>

#include "segment/SegmentLayout.h"

namespace quayside2::segment {

inline void StoreWords(Word* to, const std::uint64_t* from, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        to[i].store(from[i], std::memory_order_relaxed);
    }
}

inline void LoadBytes(std::uint8_t* to, const Word* from, std::size_t bytes) noexcept {
    while (bytes >= cWordBytes) {
        const std::uint64_t word = from->load(std::memory_order_relaxed);
        std::memcpy(to, &word, cWordBytes);
        ++from;
        to += cWordBytes;
        bytes -= cWordBytes;
    }
    if (bytes > 0) {
        const std::uint64_t word = from->load(std::memory_order_relaxed);
        std::memcpy(to, &word, bytes);
    }
}

} // namespace quayside2::segment

#endif

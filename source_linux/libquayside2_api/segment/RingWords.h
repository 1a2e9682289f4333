// Copying between private memory and a ring, word by word.
//
// A receiver may read a record while the sender overwrites it. The receiver notices that afterwards and
// forgets what it copied. Word-sized atomic accesses make that legal, and cost little more than memcpy.
#ifndef QUAYSIDE2_SEGMENT_RINGWORDS_H
#define QUAYSIDE2_SEGMENT_RINGWORDS_H

#include <cstring>

#include "segment/SegmentLayout.h"

namespace quayside2::segment {

// Fills the last word up with zeros. Returns the word behind it.
inline Word* StoreBytes(Word* to, const std::uint8_t* from, std::size_t bytes) noexcept {
    while (bytes >= cWordBytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, from, cWordBytes);
        to->store(word, std::memory_order_relaxed);
        ++to;
        from += cWordBytes;
        bytes -= cWordBytes;
    }
    if (bytes > 0) {
        std::uint64_t word = 0;
        std::memcpy(&word, from, bytes);
        to->store(word, std::memory_order_relaxed);
        ++to;
    }
    return to;
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

// Bytes as the tests of pcap-ng blocks write and compare them.
#ifndef FLOWLANE_TESTS_BYTELIST_H
#define FLOWLANE_TESTS_BYTELIST_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

#include "base/KEBuffer.h"

namespace testsupport {

using ByteList = std::vector<unsigned char>;

inline ByteList Concat(std::initializer_list<ByteList> lists) {
    ByteList all;
    all.reserve(1024);
    for (const ByteList& list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

// Little-endian.
inline ByteList LE16(unsigned value) {
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
}
inline ByteList LE32(std::uint64_t value) {
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
            static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
}
inline ByteList LE64(std::uint64_t value) {
    return Concat({LE32(value), LE32(value >> 32)});
}

// A pcap-ng block: type, length, body, length.
inline ByteList Block(std::uint64_t type, const ByteList& body) {
    const std::size_t length = 12 + body.size();
    return Concat({LE32(type), LE32(length), body, LE32(length)});
}

inline ByteList Text(const char* text) {
    return {text, text + std::strlen(text)};
}

// Bytes that each differ from their neighbours: first, first + 1 and so on.
inline ByteList Counting(std::size_t count, unsigned first = 1) {
    ByteList bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(first + i);
    }
    return bytes;
}

inline kestrelon::KEConstBufferReference View(const ByteList& bytes) {
    return {bytes.data(), bytes.size()};
}
inline ByteList Contents(kestrelon::KEConstBufferReference view) {
    return {view.mData, view.mData + view.mLength};
}
inline ByteList Contents(const kestrelon::KEBufferBlock& buffer) {
    return {buffer.mBuffer, buffer.mBuffer + buffer.mDataLength};
}

// A copy in a heap block of exactly its size, so that the address sanitizer sees a read beyond it.
class ExactCopy {
public:
    explicit ExactCopy(const ByteList& bytes)
        : mBytes(std::make_unique<unsigned char[]>(bytes.size())), mLength(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), mBytes.get());
    }
    kestrelon::KEConstBufferReference View() const { return {mBytes.get(), mLength}; }

private:
    std::unique_ptr<unsigned char[]> mBytes;
    std::size_t mLength;
};

} // namespace testsupport

#endif

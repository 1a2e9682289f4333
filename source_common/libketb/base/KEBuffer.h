// Byte buffers: an owning block and non-owning views. All sizes are bytes. One thread at a time per object.
#ifndef KESTRELON_KEBUFFER_H
#define KESTRELON_KEBUFFER_H

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

namespace kestrelon {

// Memory from the ordinary heap, from any thread. Allocate throws std::bad_alloc when there is none.
struct KEHeapMemAllocator {
    static void* Allocate(std::size_t size) { return ::operator new(size); }
    static void Free(void* memory) noexcept { ::operator delete(memory); }
};

// Owns a buffer of mBufferSize bytes; the first mDataLength of them are in use.
template <typename Allocator>
class KEBufferBlockT {
public:
    KEBufferBlockT() = default;
    // Allocates size uninitialised bytes, none in use. Throws what the allocator throws.
    explicit KEBufferBlockT(std::size_t size)
        : mBuffer(static_cast<unsigned char*>(Allocator::Allocate(size))), mBufferSize(size) {}
    ~KEBufferBlockT() { Allocator::Free(mBuffer); }

    KEBufferBlockT(KEBufferBlockT&& other) noexcept { Swap(other); }
    KEBufferBlockT& operator=(KEBufferBlockT&& other) noexcept {
        KEBufferBlockT taken(std::move(other));
        Swap(taken);
        return *this;
    }
    KEBufferBlockT(const KEBufferBlockT&) = delete;
    KEBufferBlockT& operator=(const KEBufferBlockT&) = delete;

    // Makes room for length more bytes behind the data. A buffer that is too small becomes exactly as large
    // as needed and keeps its data. Throws what the allocator throws; the buffer is unchanged then.
    void ReserveMore(std::size_t length) {
        if (mBufferSize - mDataLength >= length) {
            return;
        }
        KEBufferBlockT larger(mDataLength + length);
        if (mDataLength != 0) {
            std::memcpy(larger.mBuffer, mBuffer, mDataLength);
        }
        larger.mDataLength = mDataLength;
        Swap(larger);
    }

    unsigned char* mBuffer = nullptr;
    std::size_t mBufferSize = 0;
    std::size_t mDataLength = 0;

private:
    void Swap(KEBufferBlockT& other) noexcept {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mBufferSize, other.mBufferSize);
        std::swap(mDataLength, other.mDataLength);
    }
};

using KEBufferBlock = KEBufferBlockT<KEHeapMemAllocator>;

// A view of mLength bytes that belong to somebody else.
template <typename Byte>
struct KEBufferReferenceT {
    Byte* mData = nullptr;
    std::size_t mLength = 0;
};

using KEBufferReference = KEBufferReferenceT<unsigned char>;
using KEConstBufferReference = KEBufferReferenceT<const unsigned char>;

} // namespace kestrelon

#endif

// One option of a pcap-ng block, kept exactly as it stands in a file: code, value length, value, padding. It
// owns its bytes, and moves but does not copy. One thread at a time. Failures are logged to Global.
#ifndef FLOWLANE_PCAPNGOPTION_H
#define FLOWLANE_PCAPNGOPTION_H

#include <cstdint>
#include <type_traits>

#include "PcapNgFormat.h"
#include "base/KEBuffer.h"
#include "base/KEByteOrder.h"
#include "kestatus.h"
#include "log/KELogging.h"

namespace flowlane {

class PcapNgOption {
public:
    // Each replaces what the option held; the value must not lie in this option's own bytes. They throw
    // std::bad_alloc when there is no memory.
    //   KESTATUS_INVALID_PARAMETER  the value is longer than 65535 bytes; the option is unchanged
    [[nodiscard]] KESTATUS CreateOption(std::uint16_t code, kestrelon::KEConstBufferReference value);
    // The characters up to the terminating NUL, which is not stored.
    [[nodiscard]] KESTATUS CreateStringOption(std::uint16_t code, const char* text);
    // The bytes of an integer in the machine's order.
    template <typename T>
    [[nodiscard]] KESTATUS CreateNumericOption(std::uint16_t code, T value) {
        unsigned char bytes[sizeof(T)];
        kestrelon::KEStoreNative<T>(bytes, value);
        return CreateOption(code, {bytes, sizeof bytes});
    }

    //   KESTATUS_INVALID_SIZE    the stored bytes are not those of an integer of this size
    //   KESTATUS_INVALID_LENGTH  the value's length is not this size
    // value is unchanged then.
    template <typename T>
    [[nodiscard]] KESTATUS GetNumericValue(T& value) const {
        static_assert(std::is_unsigned_v<T>);
        const KESTATUS st = CheckNumericValue(sizeof(T), KE_FUNCTION_TAG);
        if (st == KESTATUS_SUCCESS) {
            value = kestrelon::KELoadNative<T>(mData.mBuffer + pcapng::cOptionHeaderSize);
        }
        return st;
    }

    // Appends the option as it stands in a file; the buffer grows as needed. Throws std::bad_alloc.
    [[nodiscard]] KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const;

    // Whether an option has been created; the others are only for one that has.
    bool IsValid() const noexcept { return mData.mBuffer != nullptr; }
    std::uint32_t OptionHeader() const noexcept {
        return kestrelon::KELoadNative<std::uint32_t>(mData.mBuffer);
    }
    std::uint16_t OptionCode() const noexcept {
        return kestrelon::KELoadNative<std::uint16_t>(mData.mBuffer);
    }
    // Of the value in bytes, without padding.
    std::uint16_t OptionLength() const noexcept {
        return kestrelon::KELoadNative<std::uint16_t>(mData.mBuffer + pcapng::cOptionLengthOffset);
    }
    kestrelon::KEConstBufferReference Value() const noexcept {
        return {mData.mBuffer + pcapng::cOptionHeaderSize, OptionLength()};
    }
    // Of the whole option in bytes, with padding; 0 when there is none.
    std::size_t TotalLength() const noexcept { return mData.mDataLength; }

private:
    [[nodiscard]] KESTATUS CheckNumericValue(std::size_t size,
                                             const kestrelon::KELogMsgHeaderTag& function) const;

    kestrelon::KEBufferBlock mData;
};

} // namespace flowlane

#endif

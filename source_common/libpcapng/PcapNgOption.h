// One option of a pcap-ng block, in its file format: code, value length, value, padding. It owns its bytes.
// It can be moved, but not copied. One thread at a time. Failures are logged on Global.
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
    // Each replaces the option. value must not refer to this option's own bytes. They throw std::bad_alloc
    // when there is no memory.
    //   KESTATUS_INVALID_PARAMETER  the value is longer than 65535 bytes; the option is unchanged
    [[nodiscard]] KESTATUS CreateOption(std::uint16_t code, kestrelon::KEConstBufferReference value);
    // The value is the characters of text, without the terminating NUL.
    [[nodiscard]] KESTATUS CreateStringOption(std::uint16_t code, const char* text);
    // The value is the bytes of an integer in the machine's order.
    template <typename T>
    [[nodiscard]] KESTATUS CreateNumericOption(std::uint16_t code, T value) {
        unsigned char bytes[sizeof(T)];
        kestrelon::KEStoreNative<T>(bytes, value);
        return CreateOption(code, {bytes, sizeof bytes});
    }

    // value is unchanged after a failure.
    //   KESTATUS_INVALID_SIZE    the whole option does not have the size that a value of type T needs
    //   KESTATUS_INVALID_LENGTH  the value does not have sizeof(T) bytes
    template <typename T>
    [[nodiscard]] KESTATUS GetNumericValue(T& value) const {
        static_assert(std::is_unsigned_v<T>);
        const KESTATUS st = CheckNumericValue(sizeof(T), KE_FUNCTION_TAG);
        if (st == KESTATUS_SUCCESS) {
            value = kestrelon::KELoadNative<T>(mData.mBuffer + pcapng::cOptionHeaderSize);
        }
        return st;
    }

    // Appends the option in its file format. The buffer grows as needed. Throws std::bad_alloc.
    [[nodiscard]] KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const;

    // True when the option has been created. The other accessors are only for such an option.
    bool IsValid() const noexcept { return mData.mBuffer != nullptr; }
    std::uint32_t OptionHeader() const noexcept {
        return kestrelon::KELoadNative<std::uint32_t>(mData.mBuffer);
    }
    std::uint16_t OptionCode() const noexcept {
        return kestrelon::KELoadNative<std::uint16_t>(mData.mBuffer);
    }
    // Bytes of the value, without padding.
    std::uint16_t OptionLength() const noexcept {
        return kestrelon::KELoadNative<std::uint16_t>(mData.mBuffer + pcapng::cOptionLengthOffset);
    }
    kestrelon::KEConstBufferReference Value() const noexcept {
        return {mData.mBuffer + pcapng::cOptionHeaderSize, OptionLength()};
    }
    // Bytes of the whole option, with padding. 0 when it has not been created.
    std::size_t TotalLength() const noexcept { return mData.mDataLength; }

private:
    [[nodiscard]] KESTATUS CheckNumericValue(std::size_t size,
                                             const kestrelon::KELogMsgHeaderTag& function) const;

    kestrelon::KEBufferBlock mData;
};

} // namespace flowlane

#endif

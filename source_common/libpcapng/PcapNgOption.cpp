#include "PcapNgOption.h"

#include <cstring>

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

KESTATUS PcapNgOption::CreateOption(std::uint16_t code, KEConstBufferReference value) {
    if (value.mLength > cMaxOptionLength) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "data length {} exceeds max. {}",
                           value.mLength, cMaxOptionLength);
        return KESTATUS_INVALID_PARAMETER;
    }
    const auto size = static_cast<std::size_t>(Padded(cOptionHeaderSize + value.mLength));
    if (mData.mBufferSize < size) {
        mData = KEBufferBlock(size);
    }
    std::memset(mData.mBuffer, 0, mData.mBufferSize);
    KEStoreNative<std::uint16_t>(mData.mBuffer, code);
    KEStoreNative<std::uint16_t>(mData.mBuffer + cOptionLengthOffset,
                                 static_cast<std::uint16_t>(value.mLength));
    if (value.mLength != 0) {
        std::memcpy(mData.mBuffer + cOptionHeaderSize, value.mData, value.mLength);
    }
    mData.mDataLength = size;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgOption::CreateStringOption(std::uint16_t code, const char* text) {
    return CreateOption(code, {reinterpret_cast<const unsigned char*>(text), std::strlen(text)});
}

KESTATUS PcapNgOption::CheckNumericValue(std::size_t size, const KELogMsgHeaderTag& function) const {
    const auto requiredSize = static_cast<std::size_t>(Padded(cOptionHeaderSize + size));
    if (mData.mDataLength != requiredSize) {
        KEOutputLogMessage(logger::Global, KEERROR, function, "size mismatch, requiredSize={}, DataLength={}",
                           requiredSize, mData.mDataLength);
        return KESTATUS_INVALID_SIZE;
    }
    if (OptionLength() != size) {
        // The text has one field for two arguments, so the expected length is not shown.
        KEOutputLogMessage(logger::Global, KEERROR, function, "invalid optionLength {}, exp. ",
                           OptionLength(), size);
        return KESTATUS_INVALID_LENGTH;
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgOption::AddToBuffer(KEBufferBlock& buffer) const {
    if (mData.mDataLength != 0) {
        buffer.ReserveMore(mData.mDataLength);
        std::memcpy(buffer.mBuffer + buffer.mDataLength, mData.mBuffer, mData.mDataLength);
        buffer.mDataLength += mData.mDataLength;
    }
    return KESTATUS_SUCCESS;
}

} // namespace flowlane

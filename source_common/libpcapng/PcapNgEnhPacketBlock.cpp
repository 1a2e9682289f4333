#include "PcapNgEnhPacketBlock.h"

#include <algorithm>
#include <cstring>

#include "base/KEByteOrder.h"

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

KESTATUS PcapNgEnhPacketBlock::InitEnhPacketBlock(KEConstBufferReference data, std::uint64_t timestamp,
                                                  std::uint32_t interfaceID, std::uint32_t originalLength) {
    if (data.mLength > cMaxPacketLength) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "packet length {} exceeds max. {}",
                           data.mLength, cMaxPacketLength);
        return KESTATUS_INVALID_PARAMETER;
    }
    mPacketData = data;
    mTimestamp = timestamp;
    mInterfaceID = interfaceID;
    mCapturedLength = static_cast<std::uint32_t>(data.mLength);
    mOriginalLength = originalLength;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgEnhPacketBlock::InitEnhPacketBlock(KEConstBufferReference data, std::uint64_t timestamp,
                                                  std::uint32_t interfaceID) {
    return InitEnhPacketBlock(data, timestamp, interfaceID, static_cast<std::uint32_t>(data.mLength));
}

KESTATUS PcapNgEnhPacketBlock::InitEnhPacketBlock(KEConstBufferReference block) {
    constexpr std::size_t cMinLength = cEnhPacketFixedSize + cBlockTrailerSize;
    KESTATUS st = CheckBlock(block, cMinLength, KE_FUNCTION_TAG);
    if (st == KESTATUS_SUCCESS) {
        st = CheckLengthField(block, KE_FUNCTION_TAG);
    }
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    mInterfaceID = KELoadNative<std::uint32_t>(block.mData + cInterfaceIdOffset);
    mTimestamp = std::uint64_t{KELoadNative<std::uint32_t>(block.mData + cTimestampHighOffset)} << 32 |
                 KELoadNative<std::uint32_t>(block.mData + cTimestampLowOffset);
    mOriginalLength = KELoadNative<std::uint32_t>(block.mData + cOriginalLengthOffset);
    mCapturedLength = KELoadNative<std::uint32_t>(block.mData + cCapturedLengthOffset);
    const std::size_t room = block.mLength - cMinLength;
    mPacketData = {block.mData + cEnhPacketFixedSize, std::min<std::size_t>(mCapturedLength, room)};
    const auto paddedLength = static_cast<std::size_t>(Padded(mCapturedLength));
    if (paddedLength > room) {
        return KESTATUS_SUCCESS; // there is no room for options
    }
    return ParseBlockOptions(block, cEnhPacketFixedSize + paddedLength, KE_FUNCTION_TAG);
}

std::uint64_t PcapNgEnhPacketBlock::BlockLength() const {
    return cEnhPacketFixedSize + cBlockTrailerSize + mPacketData.mLength + TotalOptionsLength();
}

KESTATUS PcapNgEnhPacketBlock::AddToBuffer(KEBufferBlock& buffer) const {
    const std::uint64_t blockLength = BlockLength();
    const std::uint64_t length = Padded(blockLength);
    unsigned char* block = nullptr;
    const KESTATUS st = BeginBlock(buffer, length, block, KE_FUNCTION_TAG);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    KEStoreNative<std::uint32_t>(block + cInterfaceIdOffset, mInterfaceID);
    KEStoreNative<std::uint32_t>(block + cTimestampHighOffset, static_cast<std::uint32_t>(mTimestamp >> 32));
    KEStoreNative<std::uint32_t>(block + cTimestampLowOffset, static_cast<std::uint32_t>(mTimestamp));
    KEStoreNative<std::uint32_t>(block + cCapturedLengthOffset,
                                 static_cast<std::uint32_t>(mPacketData.mLength));
    KEStoreNative<std::uint32_t>(block + cOriginalLengthOffset, mOriginalLength);
    unsigned char* const data = block + cEnhPacketFixedSize;
    if (mPacketData.mLength != 0) {
        std::memcpy(data, mPacketData.mData, mPacketData.mLength);
    }
    const auto padding = static_cast<std::size_t>(length - blockLength);
    std::memset(data + mPacketData.mLength, 0, padding);
    buffer.mDataLength += cEnhPacketFixedSize + mPacketData.mLength + padding;
    return EndBlock(buffer, length, KE_FUNCTION_TAG);
}

} // namespace flowlane

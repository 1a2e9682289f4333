#include "PcapNgInterfaceDescBlock.h"

#include "base/KEByteOrder.h"

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

void PcapNgInterfaceDescBlock::InitInterfaceDescBlock(std::uint16_t linkType,
                                                      std::uint32_t snapLen) noexcept {
    mLinkType = linkType;
    mSnapLen = snapLen;
    RemoveAllOptions();
}

KESTATUS PcapNgInterfaceDescBlock::InitInterfaceDescBlock(KEConstBufferReference block) {
    KESTATUS st = CheckBlock(block, cInterfaceDescFixedSize + cBlockTrailerSize, KE_FUNCTION_TAG);
    if (st == KESTATUS_SUCCESS) {
        st = CheckLengthField(block, KE_FUNCTION_TAG);
    }
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    mLinkType = KELoadNative<std::uint16_t>(block.mData + cLinkTypeOffset);
    mSnapLen = KELoadNative<std::uint32_t>(block.mData + cSnapLengthOffset);
    return ParseBlockOptions(block, cInterfaceDescFixedSize, KE_FUNCTION_TAG);
}

std::uint64_t PcapNgInterfaceDescBlock::BlockLength() const {
    return cInterfaceDescFixedSize + cBlockTrailerSize + TotalOptionsLength();
}

KESTATUS PcapNgInterfaceDescBlock::AddToBuffer(KEBufferBlock& buffer) const {
    const std::uint64_t length = BlockLength();
    unsigned char* block = nullptr;
    const KESTATUS st = BeginBlock(buffer, length, block, KE_FUNCTION_TAG);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    KEStoreNative<std::uint16_t>(block + cLinkTypeOffset, mLinkType);
    KEStoreNative<std::uint16_t>(block + cLinkTypeReservedOffset, 0);
    KEStoreNative<std::uint32_t>(block + cSnapLengthOffset, mSnapLen);
    buffer.mDataLength += cInterfaceDescFixedSize;
    return EndBlock(buffer, length, KE_FUNCTION_TAG);
}

} // namespace flowlane

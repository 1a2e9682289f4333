#include "PcapNgSectionHeaderBlock.h"

#include "base/KEByteOrder.h"

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

void PcapNgSectionHeaderBlock::InitSectionHeaderBlock() noexcept {
    mMajorVersion = cMajorVersion;
    mMinorVersion = cMinorVersion;
    mSectionLength = cUnknownSectionLength;
    RemoveAllOptions();
}

KESTATUS PcapNgSectionHeaderBlock::InitSectionHeaderBlock(KEConstBufferReference block) {
    KESTATUS st = CheckBlock(block, cSectionHeaderFixedSize + cBlockTrailerSize, KE_FUNCTION_TAG);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    const auto magic = KELoadNative<std::uint32_t>(block.mData + cMagicOffset);
    if (magic != cByteOrderMagic) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG,
                           "invalid byte-order magic {:#X}, exp. {:#X}", magic, cByteOrderMagic);
        return KESTATUS_MAGIC_MISMATCH;
    }
    st = CheckLengthField(block, KE_FUNCTION_TAG);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    mMajorVersion = KELoadNative<std::uint16_t>(block.mData + cMajorVersionOffset);
    mMinorVersion = KELoadNative<std::uint16_t>(block.mData + cMinorVersionOffset);
    mSectionLength = KELoadNative<std::uint64_t>(block.mData + cSectionLengthOffset);
    return ParseBlockOptions(block, cSectionHeaderFixedSize, KE_FUNCTION_TAG);
}

std::uint64_t PcapNgSectionHeaderBlock::BlockLength() const {
    return cSectionHeaderFixedSize + cBlockTrailerSize + TotalOptionsLength();
}

KESTATUS PcapNgSectionHeaderBlock::AddToBuffer(KEBufferBlock& buffer) const {
    const std::uint64_t length = BlockLength();
    unsigned char* block = nullptr;
    const KESTATUS st = BeginBlock(buffer, length, block, KE_FUNCTION_TAG);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    KEStoreNative<std::uint32_t>(block + cMagicOffset, cByteOrderMagic);
    KEStoreNative<std::uint16_t>(block + cMajorVersionOffset, mMajorVersion);
    KEStoreNative<std::uint16_t>(block + cMinorVersionOffset, mMinorVersion);
    KEStoreNative<std::uint64_t>(block + cSectionLengthOffset, mSectionLength);
    buffer.mDataLength += cSectionHeaderFixedSize;
    return EndBlock(buffer, length, KE_FUNCTION_TAG);
}

} // namespace flowlane

#include "PcapNgBlockBase.h"

#include <algorithm>
#include <utility>

#include "base/KEByteOrder.h"

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

namespace {

// How many bytes more than their source the options of a block may have: those of one option that overlaps
// the next ones. Without this limit, many such options would take thousands of times the memory of their
// source.
constexpr std::size_t cMaxOverlap = Padded(cOptionHeaderSize + cMaxOptionLength);

} // namespace

void PcapNgBlockBase::AddOption(PcapNgOption&& option) {
    mOptions.push_back(std::move(option));
}

PcapNgOption PcapNgBlockBase::TakeLastOption() noexcept {
    PcapNgOption option;
    if (!mOptions.empty()) {
        option = std::move(mOptions.back());
        mOptions.pop_back();
    }
    return option;
}

std::uint64_t PcapNgBlockBase::TotalOptionsLength() const noexcept {
    std::uint64_t length = cEndOfOptionsSize;
    for (const PcapNgOption& option : mOptions) {
        length += option.TotalLength();
    }
    return length;
}

KESTATUS PcapNgBlockBase::ParseOptionsData(KEConstBufferReference data) {
    const unsigned char* option = data.mData;
    std::size_t remaining = data.mLength;
    std::size_t allowed = data.mLength + cMaxOverlap; // bytes that further options may have
    while (remaining != 0) {
        if (remaining < cOptionHeaderSize) {
            KEOutputLogMessage(logger::Global, KEWARN, KE_FUNCTION_TAG, "ignore incomplete option header");
            return KESTATUS_SUCCESS;
        }
        const auto code = KELoadNative<std::uint16_t>(option);
        const auto length = KELoadNative<std::uint16_t>(option + cOptionLengthOffset);
        // The rounding is done in 16 bits, so that values of 65533 bytes and more have a span of 4.
        const std::size_t span = ((length + 3u) & 0xFFFCu) + cOptionHeaderSize;
        const auto taken = static_cast<std::size_t>(Padded(cOptionHeaderSize + length));
        if (span > remaining || cOptionHeaderSize + length > remaining || taken > allowed) {
            KEOutputLogMessage(logger::Global, KEWARN, KE_FUNCTION_TAG, "ignore incomplete option");
            return KESTATUS_SUCCESS;
        }
        if (code == cOptionEndOfOptions) {
            return KESTATUS_SUCCESS;
        }
        PcapNgOption parsed;
        const KESTATUS st = parsed.CreateOption(code, {option + cOptionHeaderSize, length});
        if (st != KESTATUS_SUCCESS) {
            KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "CreateOption failed, st={}",
                               KEFormatArgKEStatus(st));
            return st;
        }
        AddOption(std::move(parsed));
        option += span;
        remaining -= span;
        allowed -= taken;
    }
    return KESTATUS_SUCCESS;
}

const PcapNgOption* PcapNgBlockBase::LookupOptionByCode(std::uint16_t code) const noexcept {
    const auto found = std::find_if(mOptions.begin(), mOptions.end(), [&](const PcapNgOption& option) {
        return option.IsValid() && option.OptionCode() == code;
    });
    return found != mOptions.end() ? &*found : nullptr;
}

KESTATUS PcapNgBlockBase::BeginBlock(KEBufferBlock& buffer, std::uint64_t length, unsigned char*& block,
                                     const KELogMsgHeaderTag& function) const {
    if (length > cMaxBlockLength) {
        KEOutputLogMessage(logger::Global, KEERROR, function, "total lnegth {} exceeds max. {}", length,
                           cMaxBlockLength);
        return KESTATUS_NOT_POSSIBLE;
    }
    buffer.ReserveMore(static_cast<std::size_t>(length));
    block = buffer.mBuffer + buffer.mDataLength;
    KEStoreNative<std::uint32_t>(block + cBlockTypeOffset, mBlockType);
    KEStoreNative<std::uint32_t>(block + cBlockLengthOffset, static_cast<std::uint32_t>(length));
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgBlockBase::EndBlock(KEBufferBlock& buffer, std::uint64_t length,
                                   const KELogMsgHeaderTag& function) const {
    for (const PcapNgOption& option : mOptions) {
        const KESTATUS st = option.AddToBuffer(buffer);
        if (st != KESTATUS_SUCCESS) {
            KEOutputLogMessage(logger::Global, KEERROR, function, "AddToBuffer failed, st={}",
                               KEFormatArgKEStatus(st));
            return st;
        }
    }
    unsigned char* const end = buffer.mBuffer + buffer.mDataLength;
    KEStoreNative<std::uint32_t>(end, 0);
    KEStoreNative<std::uint32_t>(end + cEndOfOptionsSize, static_cast<std::uint32_t>(length));
    buffer.mDataLength += cEndOfOptionsSize + cBlockTrailerSize;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgBlockBase::CheckBlock(KEConstBufferReference block, std::size_t minLength,
                                     const KELogMsgHeaderTag& function) const {
    if (block.mLength < minLength) {
        KEOutputLogMessage(logger::Global, KEERROR, function, "invalid length {}, min. {}", block.mLength,
                           minLength);
        return KESTATUS_INVALID_LENGTH;
    }
    const auto type = KELoadNative<std::uint32_t>(block.mData + cBlockTypeOffset);
    if (type != mBlockType) {
        KEOutputLogMessage(logger::Global, KEERROR, function, "invalid block type {}", type);
        return KESTATUS_INVALID_TYPE;
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgBlockBase::CheckLengthField(KEConstBufferReference block, const KELogMsgHeaderTag& function) {
    const auto length = KELoadNative<std::uint32_t>(block.mData + cBlockLengthOffset);
    if (length != block.mLength) {
        KEOutputLogMessage(logger::Global, KEERROR, function, "length mismatch got {}, exp. {}",
                           block.mLength, length);
        return KESTATUS_LENGTH_MISMATCH;
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgBlockBase::ParseBlockOptions(KEConstBufferReference block, std::size_t offset,
                                            const KELogMsgHeaderTag& function) {
    const std::size_t length = block.mLength - offset - cBlockTrailerSize;
    if (length == 0) {
        return KESTATUS_SUCCESS;
    }
    const KESTATUS st = ParseOptionsData({block.mData + offset, length});
    if (st != KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Global, KEERROR, function, "ParseOptionsData failed, st={}",
                           KEFormatArgKEStatus(st));
    }
    return st;
}

} // namespace flowlane

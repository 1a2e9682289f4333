// The pcap-ng block of one captured packet. It refers to the packet's bytes and does not own them. They are
// in the caller's buffer: the packet's for a block to be written, the parsed block's for one that was read.
// The block is valid as long as those bytes are.
#ifndef FLOWLANE_PCAPNGENHPACKETBLOCK_H
#define FLOWLANE_PCAPNGENHPACKETBLOCK_H

#include "PcapNgBlockBase.h"

namespace flowlane {

class PcapNgEnhPacketBlock final : public PcapNgBlockBase {
public:
    PcapNgEnhPacketBlock() noexcept : PcapNgBlockBase(pcapng::cEnhPacketBlockType) {}

    // Fills the block for writing. Its options are kept.
    //   timestamp       in units of the interface's resolution
    //   originalLength  bytes of the packet on the wire; the length of data when it is not given
    //   KESTATUS_INVALID_PARAMETER  the data is longer than 0xFFFFFFFF bytes; the block is unchanged
    [[nodiscard]] KESTATUS InitEnhPacketBlock(kestrelon::KEConstBufferReference data, std::uint64_t timestamp,
                                              std::uint32_t interfaceID, std::uint32_t originalLength);
    [[nodiscard]] KESTATUS InitEnhPacketBlock(kestrelon::KEConstBufferReference data, std::uint64_t timestamp,
                                              std::uint32_t interfaceID);
    // Reads one whole block, from its type to its trailing length, and adds its options. The fields are
    // unchanged when one of these checks fails:
    //   KESTATUS_INVALID_LENGTH   the block is too short
    //   KESTATUS_INVALID_TYPE     it is another block
    //   KESTATUS_LENGTH_MISMATCH  its length field is not its length
    // A captured length beyond the end of the block is a success, see IsPacketDataCut.
    [[nodiscard]] KESTATUS InitEnhPacketBlock(kestrelon::KEConstBufferReference block);

    std::uint64_t BlockLength() const override;
    [[nodiscard]] KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const override;

    std::uint64_t Timestamp() const noexcept { return mTimestamp; }
    std::uint32_t InterfaceID() const noexcept { return mInterfaceID; }
    std::uint32_t OriginalLength() const noexcept { return mOriginalLength; }
    kestrelon::KEConstBufferReference PacketData() const noexcept { return mPacketData; }
    // True when less of the packet was captured than was on the wire.
    bool IsPacketDataTruncated() const noexcept { return mCapturedLength < mOriginalLength; }
    // Bytes of the packet data, as the block says.
    std::uint32_t CapturedLength() const noexcept { return mCapturedLength; }
    // True when the captured length is beyond the end of the block. PacketData() ends with the block.
    bool IsPacketDataCut() const noexcept { return mCapturedLength > mPacketData.mLength; }

private:
    std::uint64_t mTimestamp = 0;
    std::uint32_t mInterfaceID = 0;
    std::uint32_t mCapturedLength = 0;
    std::uint32_t mOriginalLength = 0;
    kestrelon::KEConstBufferReference mPacketData;
};

} // namespace flowlane

#endif

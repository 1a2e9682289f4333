// The pcap-ng block that holds one captured packet. It refers to the packet's bytes without owning them: to
// the caller's buffer when it is filled for writing, to the parsed block when it was read. It is valid as
// long as those bytes are.
#ifndef FLOWLANE_PCAPNGENHPACKETBLOCK_H
#define FLOWLANE_PCAPNGENHPACKETBLOCK_H

#include "PcapNgBlockBase.h"

namespace flowlane {

class PcapNgEnhPacketBlock final : public PcapNgBlockBase {
public:
    PcapNgEnhPacketBlock() noexcept : PcapNgBlockBase(pcapng::cEnhPacketBlockType) {}

    // For writing; options stay. timestamp: in units of the interface's resolution; originalLength: of the
    // packet on the wire in bytes, that of the data unless given.
    //   KESTATUS_INVALID_PARAMETER  the data is longer than 0xFFFFFFFF bytes; the block is unchanged
    [[nodiscard]] KESTATUS InitEnhPacketBlock(kestrelon::KEConstBufferReference data, std::uint64_t timestamp,
                                              std::uint32_t interfaceID, std::uint32_t originalLength);
    [[nodiscard]] KESTATUS InitEnhPacketBlock(kestrelon::KEConstBufferReference data, std::uint64_t timestamp,
                                              std::uint32_t interfaceID);
    // Reads one whole block, from its type to its trailing length; its options are added. The fields are
    // unchanged after a failure of these checks:
    //   KESTATUS_INVALID_LENGTH   the block is too short
    //   KESTATUS_INVALID_TYPE     it is another block
    //   KESTATUS_LENGTH_MISMATCH  its length field is not its length
    // A captured length beyond the block is no failure: see IsPacketDataCut.
    [[nodiscard]] KESTATUS InitEnhPacketBlock(kestrelon::KEConstBufferReference block);

    std::uint64_t BlockLength() const override;
    [[nodiscard]] KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const override;

    std::uint64_t Timestamp() const noexcept { return mTimestamp; }
    std::uint32_t InterfaceID() const noexcept { return mInterfaceID; }
    std::uint32_t OriginalLength() const noexcept { return mOriginalLength; }
    kestrelon::KEConstBufferReference PacketData() const noexcept { return mPacketData; }
    // Less of the packet was captured than was on the wire.
    bool IsPacketDataTruncated() const noexcept { return mCapturedLength < mOriginalLength; }
    // Of the packet data in bytes, as the block that was read claims it.
    std::uint32_t CapturedLength() const noexcept { return mCapturedLength; }
    // The block that was read claims more data than it has; PacketData() is what it has.
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

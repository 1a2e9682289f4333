// The pcap-ng block that describes an interface from which packets were captured.
#ifndef FLOWLANE_PCAPNGINTERFACEDESCBLOCK_H
#define FLOWLANE_PCAPNGINTERFACEDESCBLOCK_H

#include "PcapNgBlockBase.h"

namespace flowlane {

class PcapNgInterfaceDescBlock final : public PcapNgBlockBase {
public:
    PcapNgInterfaceDescBlock() noexcept : PcapNgBlockBase(pcapng::cInterfaceDescBlockType) {}

    // For writing, without options. linkType: 1 for Ethernet (LINKTYPE_ of the format); snapLen: the most
    // bytes kept of a packet, 0 for no limit.
    void InitInterfaceDescBlock(std::uint16_t linkType, std::uint32_t snapLen) noexcept;
    // Reads one whole block, from its type to its trailing length; its options are added. The fields are
    // unchanged after a failure of these checks:
    //   KESTATUS_INVALID_LENGTH   the block is too short
    //   KESTATUS_INVALID_TYPE     it is another block
    //   KESTATUS_LENGTH_MISMATCH  its length field is not its length
    [[nodiscard]] KESTATUS InitInterfaceDescBlock(kestrelon::KEConstBufferReference block);

    std::uint64_t BlockLength() const override;
    [[nodiscard]] KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const override;

    std::uint16_t LinkType() const noexcept { return mLinkType; }
    std::uint32_t SnapLen() const noexcept { return mSnapLen; }

private:
    std::uint32_t mSnapLen = 0;
    std::uint16_t mLinkType = 0;
};

} // namespace flowlane

#endif

// The pcap-ng block that describes an interface from which packets were captured.
#ifndef FLOWLANE_PCAPNGINTERFACEDESCBLOCK_H
#define FLOWLANE_PCAPNGINTERFACEDESCBLOCK_H

#include "PcapNgBlockBase.h"

namespace flowlane {

class PcapNgInterfaceDescBlock final : public PcapNgBlockBase {
public:
    PcapNgInterfaceDescBlock() noexcept : PcapNgBlockBase(pcapng::cInterfaceDescBlockType) {}

    // Fills the block for writing, without options.
    //   linkType  a LINKTYPE_ value of the format, such as pcapng::cLinkTypeEthernet
    //   snapLen   how many bytes of a packet are kept at most, 0 for no limit
    void InitInterfaceDescBlock(std::uint16_t linkType, std::uint32_t snapLen) noexcept;
    // Reads one whole block, from its type to its trailing length, and adds its options. The fields are
    // unchanged when one of these checks fails:
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

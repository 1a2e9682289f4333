// The pcap-ng block that begins a section of a file.
#ifndef FLOWLANE_PCAPNGSECTIONHEADERBLOCK_H
#define FLOWLANE_PCAPNGSECTIONHEADERBLOCK_H

#include "PcapNgBlockBase.h"

namespace flowlane {

class PcapNgSectionHeaderBlock final : public PcapNgBlockBase {
public:
    PcapNgSectionHeaderBlock() noexcept : PcapNgBlockBase(pcapng::cSectionHeaderBlockType) {}

    // Fills the block for writing: version 1.0, section length unknown, no options.
    void InitSectionHeaderBlock() noexcept;
    // Reads one whole block, from its type to its trailing length, and adds its options. The fields are
    // unchanged when one of these checks fails:
    //   KESTATUS_INVALID_LENGTH   the block is too short
    //   KESTATUS_INVALID_TYPE     it is another block
    //   KESTATUS_MAGIC_MISMATCH   it has another byte order
    //   KESTATUS_LENGTH_MISMATCH  its length field is not its length
    [[nodiscard]] KESTATUS InitSectionHeaderBlock(kestrelon::KEConstBufferReference block);

    std::uint64_t BlockLength() const override;
    [[nodiscard]] KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const override;

    std::uint16_t MajorVersion() const noexcept { return mMajorVersion; }
    std::uint16_t MinorVersion() const noexcept { return mMinorVersion; }
    // Bytes of the section behind this block, or all ones when that is unknown.
    std::uint64_t SectionLength() const noexcept { return mSectionLength; }

private:
    std::uint16_t mMajorVersion = 0;
    std::uint16_t mMinorVersion = 0;
    std::uint64_t mSectionLength = 0;
};

} // namespace flowlane

#endif

// What the pcap-ng blocks have in common: a type and options. One thread at a time. Failures are logged on
// Global. An operation that finds no memory throws std::bad_alloc.
#ifndef FLOWLANE_PCAPNGBLOCKBASE_H
#define FLOWLANE_PCAPNGBLOCKBASE_H

#include <cstdint>
#include <vector>

#include "PcapNgFormat.h"
#include "PcapNgOption.h"
#include "base/KEBuffer.h"
#include "kestatus.h"
#include "log/KELogging.h"

namespace flowlane {

class PcapNgBlockBase {
public:
    explicit PcapNgBlockBase(std::uint32_t blockType) noexcept : mBlockType(blockType) {}

    // Bytes of the whole block, not yet rounded up to a multiple of 4.
    virtual std::uint64_t BlockLength() const = 0;
    // Appends the whole block in its file format. The buffer grows as needed.
    //   KESTATUS_NOT_POSSIBLE  the block would be longer than 0xFFFFFFFF bytes; nothing is appended
    [[nodiscard]] virtual KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const = 0;

    std::uint32_t BlockType() const noexcept { return mBlockType; }

    // Options are written in the order in which they are added.
    void AddOption(PcapNgOption&& option);
    void RemoveAllOptions() noexcept { mOptions.clear(); }
    // Removes the option that was added last and returns it, or an option that is not valid when there is
    // none. Its place in the list stays allocated, so that adding an option next allocates nothing.
    PcapNgOption TakeLastOption() noexcept;
    // Bytes of all options and of the mark of their end.
    std::uint64_t TotalOptionsLength() const noexcept;
    // Bytes of the block in a file: rounded up to a multiple of 4.
    std::uint64_t TotalBlockLength() const { return pcapng::Padded(BlockLength()); }

    // Adds the options in these bytes, up to the mark of their end. An incomplete option ends the list with a
    // warning, and is a success. The longest values overlap the options behind them. All options together
    // have at most 65540 bytes more than data: an option beyond that ends the list like an incomplete one.
    [[nodiscard]] KESTATUS ParseOptionsData(kestrelon::KEConstBufferReference data);
    // The first option with this code, or null when there is none. It belongs to the block, and is valid
    // until the block's options change.
    const PcapNgOption* LookupOptionByCode(std::uint16_t code) const noexcept;

protected:
    PcapNgBlockBase(PcapNgBlockBase&&) = default;
    PcapNgBlockBase& operator=(PcapNgBlockBase&&) = default;
    ~PcapNgBlockBase() = default; // not virtual: blocks are not deleted through this base

    // Makes room for a block of length bytes behind the buffer's data. block is its place, with type and
    // length already stored.
    //   KESTATUS_NOT_POSSIBLE  length is greater than 0xFFFFFFFF
    [[nodiscard]] KESTATUS BeginBlock(kestrelon::KEBufferBlock& buffer, std::uint64_t length,
                                      unsigned char*& block,
                                      const kestrelon::KELogMsgHeaderTag& function) const;
    // Appends to the buffer the options, the mark of their end and the trailing length.
    [[nodiscard]] KESTATUS EndBlock(kestrelon::KEBufferBlock& buffer, std::uint64_t length,
                                    const kestrelon::KELogMsgHeaderTag& function) const;
    // The checks of length and type, with which all parsers begin.
    [[nodiscard]] KESTATUS CheckBlock(kestrelon::KEConstBufferReference block, std::size_t minLength,
                                      const kestrelon::KELogMsgHeaderTag& function) const;
    [[nodiscard]] static KESTATUS CheckLengthField(kestrelon::KEConstBufferReference block,
                                                   const kestrelon::KELogMsgHeaderTag& function);
    // Parses the options of a block, which begin at offset.
    [[nodiscard]] KESTATUS ParseBlockOptions(kestrelon::KEConstBufferReference block, std::size_t offset,
                                             const kestrelon::KELogMsgHeaderTag& function);

private:
    std::vector<PcapNgOption> mOptions;
    std::uint32_t mBlockType;
};

} // namespace flowlane

#endif

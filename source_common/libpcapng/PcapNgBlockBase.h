// What the pcap-ng blocks have in common: a type and options. One thread at a time. Failures are logged to
// Global; std::bad_alloc leaves an operation that finds no memory.
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

    // Of the whole block in bytes, before it is rounded up to a multiple of 4.
    virtual std::uint64_t BlockLength() const = 0;
    // Appends the whole block as it stands in a file; the buffer grows to what is needed.
    //   KESTATUS_NOT_POSSIBLE  the block would be longer than 0xFFFFFFFF bytes; nothing is appended
    [[nodiscard]] virtual KESTATUS AddToBuffer(kestrelon::KEBufferBlock& buffer) const = 0;

    std::uint32_t BlockType() const noexcept { return mBlockType; }

    // Options are written in the order in which they were added.
    void AddOption(PcapNgOption&& option);
    void RemoveAllOptions() noexcept { mOptions.clear(); }
    // Takes the option out that was added last; one that is not valid when there is none. What it leaves
    // behind has room for another option, so that adding one then allocates nothing.
    PcapNgOption TakeLastOption() noexcept;
    // Of all options and the mark of their end, in bytes.
    std::uint64_t TotalOptionsLength() const noexcept;
    // The length of the block in a file: rounded up to a multiple of 4.
    std::uint64_t TotalBlockLength() const { return pcapng::Padded(BlockLength()); }

    // Adds the options found in these bytes up to the mark of their end. An incomplete one ends the list with
    // a warning, which is no failure. The longest values overlap the options behind them; the options
    // together are never longer than the bytes and 65540 more, since one beyond that ends the list like an
    // incomplete one.
    [[nodiscard]] KESTATUS ParseOptionsData(kestrelon::KEConstBufferReference data);
    // The first option with this code, null when there is none. It stays the block's, until its options
    // change.
    const PcapNgOption* LookupOptionByCode(std::uint16_t code) const noexcept;

protected:
    PcapNgBlockBase(PcapNgBlockBase&&) = default;
    PcapNgBlockBase& operator=(PcapNgBlockBase&&) = default;
    ~PcapNgBlockBase() = default; // nobody owns a block through this base

    // Makes room for a block of this length and gives the place where it is to stand, with its type and
    // length stored.
    //   KESTATUS_NOT_POSSIBLE  it is longer than 0xFFFFFFFF bytes
    [[nodiscard]] KESTATUS BeginBlock(kestrelon::KEBufferBlock& buffer, std::uint64_t length,
                                      unsigned char*& block,
                                      const kestrelon::KELogMsgHeaderTag& function) const;
    // Appends options, the mark of their end and the length behind what stands in the buffer.
    [[nodiscard]] KESTATUS EndBlock(kestrelon::KEBufferBlock& buffer, std::uint64_t length,
                                    const kestrelon::KELogMsgHeaderTag& function) const;
    // The checks that all parsers begin with, except for the length field.
    [[nodiscard]] KESTATUS CheckBlock(kestrelon::KEConstBufferReference block, std::size_t minLength,
                                      const kestrelon::KELogMsgHeaderTag& function) const;
    [[nodiscard]] static KESTATUS CheckLengthField(kestrelon::KEConstBufferReference block,
                                                   const kestrelon::KELogMsgHeaderTag& function);
    // The options of a parsed block stand from offset on.
    [[nodiscard]] KESTATUS ParseBlockOptions(kestrelon::KEConstBufferReference block, std::size_t offset,
                                             const kestrelon::KELogMsgHeaderTag& function);

private:
    std::vector<PcapNgOption> mOptions;
    std::uint32_t mBlockType;
};

} // namespace flowlane

#endif

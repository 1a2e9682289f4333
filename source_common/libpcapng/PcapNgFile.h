// A pcap-ng file, written or read block by block. Writing gathers blocks in a buffer of 4096 bytes. When the
// next block does not fit, it moves them to a larger buffer, which goes to the file when it is full. Behind
// FlushFileBuffer all blocks are with the system. The file is valid at every moment, except for its last
// block when the disk is full or the process is killed during a write.
//
// The object owns the file. It can be moved, but not copied. One thread at a time. Failures are logged on
// Global. An operation that finds no memory throws std::bad_alloc.
#ifndef FLOWLANE_PCAPNGFILE_H
#define FLOWLANE_PCAPNGFILE_H

#include <cstddef>
#include <cstdint>

#include "PcapNgBlockBase.h"
#include "PcapNgInterfaceDescBlock.h"
#include "PcapNgSectionHeaderBlock.h"
#include "PcapNgWriteBuffer.h"
#include "base/KEBuffer.h"
#include "files/KEStdFileStream.h"
#include "kestatus.h"
#include "log/KELogMessage.h"
#include "text/KEUnicode.h"

namespace flowlane {

class PcapNgFile {
public:
    static constexpr std::size_t FileBufferSize = 4096;

    // What is wrong with the block that could not be read.
    enum class ReadFault {
        None,
        CutShort, // the file ends within it
        Damaged,  // its length cannot be right
        System    // the system cannot read it, see SystemError
    };

    PcapNgFile() = default;
    ~PcapNgFile() { CloseFile(); }
    PcapNgFile(PcapNgFile&& other) noexcept;
    PcapNgFile& operator=(PcapNgFile&& other) noexcept;
    PcapNgFile(const PcapNgFile&) = delete;
    PcapNgFile& operator=(const PcapNgFile&) = delete;

    // First closes an open file. An existing file is replaced. On success the headers are in the file. After
    // a failure the file may be open, and the caller closes it.
    [[nodiscard]] KESTATUS OpenForWrite(const kestrelon::T_UNICHAR* path, const PcapNgSectionHeaderBlock& shb,
                                        const PcapNgInterfaceDescBlock& idb);
    // First closes an open file.
    //   KESTATUS_NO_DATA  the file is empty; it is open, and the caller closes it
    [[nodiscard]] KESTATUS OpenForRead(const kestrelon::T_UNICHAR* path);

    // Appends a block. After a failure the block is not part of the file. The blocks gathered before it are
    // kept, and the next block or flush continues to write them where the last write ended.
    //   KESTATUS_WRITE_FILE_FAILED  the buffers are full and could not be written
    [[nodiscard]] KESTATUS WriteBlock(const PcapNgBlockBase& block);
    // Replaces the contents of block by the next whole block, from its type to its trailing length. The
    // buffer grows as needed.
    //   KESTATUS_NO_DATA       the file is at its end, or has less than the header of a block left
    //   KESTATUS_INVALID_FILE  the file ends within the block, or the block's length is not valid
    [[nodiscard]] KESTATUS ReadNextBlock(kestrelon::KEBufferBlock& block);

    // Writes the gathered blocks.
    //   KESTATUS_WRITE_FILE_FAILED  not all of it could be written; the rest is kept
    [[nodiscard]] KESTATUS FlushFileBuffer() noexcept { return FlushFileBuffer(Target::File); }
    // Flushes and closes. Does nothing to a closed file. Gathered blocks that cannot be written are lost, and
    // BlocksLost() is their number. The file then ends with its last whole block.
    void CloseFile();

    bool IsOpen() const noexcept { return mFile.IsOpen(); }
    // When writing, bytes since OpenForWrite, with the gathered blocks. When reading, the size of the file
    // when it was opened.
    std::uint64_t FileSize() const noexcept { return mFileSize; }
    // Blocks that the last CloseFile could not write.
    unsigned BlocksLost() const noexcept { return mBlocksLost; }
    // Why the last ReadNextBlock returned KESTATUS_INVALID_FILE.
    ReadFault LastReadFault() const noexcept { return mReadFault; }
    // The status of the errno with which the last read or write has failed; success when it has not. Closing
    // keeps it.
    [[nodiscard]] KESTATUS SystemError() const noexcept { return mFile.LastError(); }
    bool IsEndOfFile() const noexcept { return mFile.IsEndOfFile(); }
    // Goes back to the start of the file, to read it again.
    [[nodiscard]] KESTATUS RewindFile() noexcept { return mFile.RewindFile(); }

private:
    // How far a flush moves the gathered blocks.
    enum class Target { WriteBuffer, File };

    [[nodiscard]] KESTATUS FlushFileBuffer(Target target) noexcept;
    [[nodiscard]] KESTATUS FailIncomplete(const kestrelon::KELogMsgHeaderTag& function, std::uint64_t length,
                                          std::uint64_t expected) noexcept;
    [[nodiscard]] KESTATUS MeasureFile(std::uint64_t& size) noexcept;
    [[nodiscard]] KESTATUS MeasureRest(std::uint64_t& rest) noexcept;

    kestrelon::KEStdFileStream mFile;
    kestrelon::KEBufferBlock mFileBuffer; // whole blocks
    PcapNgWriteBuffer mWriteBuffer;       // the blocks before them
    std::uint64_t mFileSize = 0;
    unsigned mBlocksLost = 0;
    ReadFault mReadFault = ReadFault::None;
};

} // namespace flowlane

#endif

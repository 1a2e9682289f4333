// A pcap-ng file, written or read block by block. Writing gathers blocks in a buffer of 4096 bytes, which
// goes to the file when the next block would not fit; the file is not buffered otherwise, so that what was
// flushed is with the system and a full disk is noticed at once. A file that was written is valid at every
// moment, but for the last block when the process is killed in the midst of a write.
//
// It owns the file and moves but does not copy. One thread at a time. Failures are logged to Global;
// std::bad_alloc leaves an operation that finds no memory.
#ifndef FLOWLANE_PCAPNGFILE_H
#define FLOWLANE_PCAPNGFILE_H

#include <cstddef>
#include <cstdint>

#include "PcapNgBlockBase.h"
#include "PcapNgInterfaceDescBlock.h"
#include "PcapNgSectionHeaderBlock.h"
#include "base/KEBuffer.h"
#include "files/KEStdFileStream.h"
#include "kestatus.h"
#include "text/KEUnicode.h"

namespace flowlane {

class PcapNgFile {
public:
    static constexpr std::size_t FileBufferSize = 4096;

    PcapNgFile() = default;
    // Closes the file.
    ~PcapNgFile() { CloseFile(); }
    PcapNgFile(PcapNgFile&& other) noexcept;
    PcapNgFile& operator=(PcapNgFile&& other) noexcept;
    PcapNgFile(const PcapNgFile&) = delete;
    PcapNgFile& operator=(const PcapNgFile&) = delete;

    // Closes an open file first. An existing file is replaced. The headers are in the file on success; after
    // a failure the stream may be open, for the caller to close.
    [[nodiscard]] KESTATUS OpenForWrite(const kestrelon::T_UNICHAR* path, const PcapNgSectionHeaderBlock& shb,
                                        const PcapNgInterfaceDescBlock& idb);
    // Closes an open file first.
    //   KESTATUS_NO_DATA  the file is empty; it is open for the caller to close
    [[nodiscard]] KESTATUS OpenForRead(const kestrelon::T_UNICHAR* path);

    // Appends a block. After a failure the block is not part of the file; what was gathered before it is
    // kept, and the next block or flush tries to write that again, from where the last write ended.
    //   KESTATUS_WRITE_FILE_FAILED  the gathered blocks could not be written
    [[nodiscard]] KESTATUS WriteBlock(const PcapNgBlockBase& block);
    // Reads the next block whole, from its type to its trailing length, into block, which is replaced and
    // grows as needed.
    //   KESTATUS_NO_DATA       the end of the file, also when less than a block's header is left
    //   KESTATUS_INVALID_FILE  the file ends in the midst of the block, or the length is none of a block
    [[nodiscard]] KESTATUS ReadNextBlock(kestrelon::KEBufferBlock& block);

    // Writes what is gathered.
    //   KESTATUS_WRITE_FILE_FAILED  not all of it could be written; the rest is kept
    [[nodiscard]] KESTATUS FlushFileBuffer();
    // Flushes and closes; safe on a closed file. Gathered blocks that cannot be written are lost then, and
    // the file is cut behind its last whole block: BlocksLost() tells how many they were.
    void CloseFile();

    bool IsOpen() const noexcept { return mFile.IsOpen(); }
    // Bytes accepted since OpenForWrite, gathered ones included; of a file that is read, its size when
    // opened.
    std::uint64_t FileSize() const noexcept { return mFileSize; }
    // Blocks that the last CloseFile could not write.
    unsigned BlocksLost() const noexcept { return mBlocksLost; }
    bool IsEndOfFile() const noexcept { return mFile.IsEndOfFile(); }
    // Back to the file's start, to read it again.
    [[nodiscard]] KESTATUS RewindFile() noexcept { return mFile.RewindFile(); }

private:
    // A block that a failed write ended in: its bytes in the file, and those that head the buffer.
    struct Unfinished {
        std::size_t written = 0;
        std::size_t rest = 0;
    };

    [[nodiscard]] KESTATUS MeasureFile(std::uint64_t& size) noexcept;
    [[nodiscard]] KESTATUS MeasureRest(std::uint64_t& rest) noexcept;
    void NoteWhereWritingEnded(std::size_t written) noexcept;
    void GiveUpBuffer() noexcept;

    kestrelon::KEStdFileStream mFile;
    kestrelon::KEBufferBlock mFileBuffer; // whole blocks, but for the rest of an unfinished one at its start
    std::uint64_t mFileSize = 0;
    std::uint64_t mBytesOnDisk = 0; // written since OpenForWrite
    Unfinished mUnfinished;
    unsigned mBlocksLost = 0;
};

} // namespace flowlane

#endif

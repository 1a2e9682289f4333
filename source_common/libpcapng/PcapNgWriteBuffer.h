// The blocks of a file that are not with the system yet. Many blocks go to the file with one write. It writes
// whole blocks, so that the file is valid between two writes. After a write that took only a part, it knows
// in which block that write ended.
//
// It does not own the file, which has no buffer of its own. One thread at a time. Failures are logged on
// Global.
#ifndef FLOWLANE_PCAPNGWRITEBUFFER_H
#define FLOWLANE_PCAPNGWRITEBUFFER_H

#include <cstddef>
#include <cstdint>

#include "base/KEBuffer.h"
#include "files/KEStdFileStream.h"
#include "kestatus.h"

namespace flowlane {

class PcapNgWriteBuffer {
public:
    static constexpr std::size_t Size = std::size_t{128} << 10;

    // Begins a file with an empty buffer. Throws std::bad_alloc.
    void Start();

    // Moves whole blocks into the buffer, and empties blocks. When they do not fit, writes what is there
    // first.
    //   KESTATUS_WRITE_FILE_FAILED  what is there could not be written; blocks is unchanged
    [[nodiscard]] KESTATUS Append(kestrelon::KEStdFileStream& file,
                                  kestrelon::KEBufferBlock& blocks) noexcept;
    // Writes what is there.
    //   KESTATUS_WRITE_FILE_FAILED  not all of it could be written; the rest is kept
    [[nodiscard]] KESTATUS Write(kestrelon::KEStdFileStream& file) noexcept;
    // Discards what is there, and cuts the file behind its last whole block. Returns how many blocks the file
    // lacks then, with those of blocks, which were to come next.
    unsigned GiveUp(kestrelon::KEStdFileStream& file, const kestrelon::KEBufferBlock& blocks) noexcept;

private:
    // The block within which a failed write ended: its bytes in the file, and the rest at the start of the
    // buffer.
    struct Unfinished {
        std::size_t written = 0;
        std::size_t rest = 0;
    };

    void NoteWhereWritingEnded(std::size_t written) noexcept;

    kestrelon::KEBufferBlock mBuffer; // whole blocks, behind the rest of an unfinished one
    std::uint64_t mBytesOnDisk = 0;   // written since the start
    Unfinished mUnfinished;
};

} // namespace flowlane

#endif

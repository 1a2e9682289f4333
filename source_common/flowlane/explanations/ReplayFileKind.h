// What kind of file somebody wants to replay, by its first bytes, and the command that makes a file of it
// that can be replayed. Texts for the user. From any thread; what returns a text throws std::bad_alloc.
#ifndef FLOWLANE_REPLAYFILEKIND_H
#define FLOWLANE_REPLAYFILEKIND_H

#include <cstddef>
#include <string>

#include "explanations/FileHead.h"

namespace flowlane {

enum class ReplayFileKind {
    PcapNg, // with this machine's byte order: it can be replayed
    OtherByteOrder,
    ClassicPcap,
    Gzip,
    Zstd,
    Lz4,
    Xz,
    Bzip2,
    Other
};

// This many bytes are enough to know the kind.
constexpr std::size_t cReplayFileHeadSize = 16;
// head: the first bytes of the file, or all of a shorter one.
ReplayFileKind KindOfReplayFile(const FileHead& head) noexcept;

// The program that unpacks a compressed kind; null for the other kinds.
const char* Unpacker(ReplayFileKind kind) noexcept;
// The name for the file that a conversion makes: never the file's own. It ends in ".pcapng", or has lost the
// extension of the compression.
std::string ConvertedFileName(ReplayFileKind kind, const std::string& path);

// The same for a file on the disk, which is looked at without waiting: Other when it cannot be read, or is no
// regular file.
ReplayFileKind LookAtReplayFile(const std::string& path);
// The command that makes a new file of the file at path; its name is not in use. prefix and infix stand
// before the two names. Names that would not fit in a line become FILE and NEW_FILE.
std::string ConversionCommand(ReplayFileKind kind, const std::string& path, const char* prefix,
                              const char* infix = " ");

} // namespace flowlane

#endif

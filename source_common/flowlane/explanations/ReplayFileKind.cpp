#include "explanations/ReplayFileKind.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "explanations/MessageText.h"

namespace flowlane {

using namespace kestrelon;

namespace {

struct Signature {
    std::string_view bytes; // at the start of the file
    ReplayFileKind kind;
};

// The classic pcap files have times in micro- and in nanoseconds, in either byte order.
constexpr Signature cSignatures[] = {
    {{"\xA1\xB2\xC3\xD4", 4}, ReplayFileKind::ClassicPcap},
    {{"\xD4\xC3\xB2\xA1", 4}, ReplayFileKind::ClassicPcap},
    {{"\xA1\xB2\x3C\x4D", 4}, ReplayFileKind::ClassicPcap},
    {{"\x4D\x3C\xB2\xA1", 4}, ReplayFileKind::ClassicPcap},
    {{"\x1F\x8B", 2}, ReplayFileKind::Gzip},
    {{"\x28\xB5\x2F\xFD", 4}, ReplayFileKind::Zstd},
    {{"\x04\x22\x4D\x18", 4}, ReplayFileKind::Lz4},
    {{"\xFD"
      "7zXZ\0",
      6},
     ReplayFileKind::Xz},
    {{"BZh", 3}, ReplayFileKind::Bzip2},
};

constexpr std::string_view cSectionHeader("\x0A\x0D\x0D\x0A", 4);
constexpr std::size_t cMagicOffset = 8; // behind the length of the section header
constexpr std::string_view cLittleEndian("\x4D\x3C\x2B\x1A", 4);
constexpr std::string_view cBigEndian("\x1A\x2B\x3C\x4D", 4);

constexpr std::string_view cExtension = ".pcapng";
constexpr std::size_t cMaxNamesLength = 300; // of both names in a line, in bytes

bool EndsWith(const std::string& text, std::string_view end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The path without the extension of its last component.
std::string WithoutExtension(const std::string& path) {
    const std::size_t name = path.find_last_of('/') + 1; // 0 when there is no folder
    const std::size_t dot = path.find_last_of('.');
    return dot == std::string::npos || dot <= name ? path : path.substr(0, dot);
}

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

// Another name while there is such a file. Gives up in the end: then the name is in use.
std::string UnusedName(const std::string& path) {
    constexpr unsigned cTries = 100;
    std::string name = path;
    for (unsigned number = 2; number < cTries && Exists(name); ++number) {
        const std::string stem = WithoutExtension(path);
        name = stem + "-" + std::to_string(number) + path.substr(stem.size());
    }
    return name;
}

} // namespace

ReplayFileKind KindOfReplayFile(KEConstBufferReference head) noexcept {
    const std::string_view bytes(reinterpret_cast<const char*>(head.mData), head.mLength);
    if (bytes.substr(0, cSectionHeader.size()) == cSectionHeader && bytes.size() >= cMagicOffset) {
        const std::string_view magic = bytes.substr(cMagicOffset, cLittleEndian.size());
        const std::uint32_t one = 1;
        const bool isLittleEndian = *reinterpret_cast<const unsigned char*>(&one) == 1;
        if (magic == (isLittleEndian ? cLittleEndian : cBigEndian)) {
            return ReplayFileKind::PcapNg;
        }
        if (magic == (isLittleEndian ? cBigEndian : cLittleEndian)) {
            return ReplayFileKind::OtherByteOrder;
        }
        return ReplayFileKind::Other;
    }
    for (const Signature& signature : cSignatures) {
        if (bytes.substr(0, signature.bytes.size()) == signature.bytes) {
            return signature.kind;
        }
    }
    return ReplayFileKind::Other;
}

const char* Unpacker(ReplayFileKind kind) noexcept {
    switch (kind) {
    case ReplayFileKind::Gzip:
        return "gzip";
    case ReplayFileKind::Zstd:
        return "zstd";
    case ReplayFileKind::Lz4:
        return "lz4";
    case ReplayFileKind::Xz:
        return "xz";
    case ReplayFileKind::Bzip2:
        return "bzip2";
    case ReplayFileKind::PcapNg:
    case ReplayFileKind::OtherByteOrder:
    case ReplayFileKind::ClassicPcap:
    case ReplayFileKind::Other:
        break;
    }
    return nullptr;
}

std::string ConvertedFileName(ReplayFileKind kind, const std::string& path) {
    if (Unpacker(kind)) {
        for (const std::string_view extension : {".gz", ".zst", ".lz4", ".xz", ".bz2"}) {
            if (EndsWith(path, extension)) {
                return path.substr(0, path.size() - extension.size());
            }
        }
    }
    const std::string stem = WithoutExtension(path);
    return stem + (EndsWith(path, cExtension) ? "-new" : "") + std::string(cExtension);
}

ReplayFileKind LookAtReplayFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        return ReplayFileKind::Other;
    }
    unsigned char head[cReplayFileHeadSize];
    struct stat status {};
    ssize_t length = -1;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        length = read(descriptor, head, sizeof head);
    }
    close(descriptor);
    return length < 0 ? ReplayFileKind::Other : KindOfReplayFile({head, static_cast<std::size_t>(length)});
}

std::string ConversionCommand(ReplayFileKind kind, const std::string& path, const char* prefix,
                              const char* infix) {
    std::string from = ShellPath(path);
    std::string to = ShellPath(UnusedName(ConvertedFileName(kind, path)));
    if (from.size() + to.size() > cMaxNamesLength) {
        from = "FILE";
        to = "NEW_FILE";
    }
    return prefix + from + infix + to;
}

} // namespace flowlane

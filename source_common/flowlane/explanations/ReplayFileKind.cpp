#include "explanations/ReplayFileKind.h"

#include <sys/stat.h>

#include <bit>
#include <string_view>

#include "explanations/MessageText.h"

namespace flowlane {

namespace {

struct Signature {
    std::string_view bytes; // at the start of the file
    ReplayFileKind kind;
};

constexpr Signature cSignatures[] = {
    {{"\x1F\x8B", 2}, ReplayFileKind::Gzip},
    {{"\x28\xB5\x2F\xFD", 4}, ReplayFileKind::Zstd},
    {{"\x04\x22\x4D\x18", 4}, ReplayFileKind::Lz4},
    {{"\xFD"
      "7zXZ\0",
      6},
     ReplayFileKind::Xz},
    {{"BZh", 3}, ReplayFileKind::Bzip2},
};

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

ReplayFileKind KindOfReplayFile(const FileHead& head) noexcept {
    constexpr bool cIsLittleEndian = std::endian::native == std::endian::little;
    if (HasBytes(head, cMagicOffset, cIsLittleEndian ? cLittleEndian : cBigEndian) && IsPcapNg(head)) {
        return ReplayFileKind::PcapNg;
    }
    if (HasBytes(head, cMagicOffset, cIsLittleEndian ? cBigEndian : cLittleEndian) && IsPcapNg(head)) {
        return ReplayFileKind::OtherByteOrder;
    }
    if (IsClassicPcap(head)) {
        return ReplayFileKind::ClassicPcap;
    }
    for (const Signature& signature : cSignatures) {
        if (HasBytes(head, 0, signature.bytes)) {
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
    return KindOfReplayFile(ReadFileHead(path, cReplayFileHeadSize));
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

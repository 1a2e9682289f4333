#include "explanations/ReplayDuration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "PcapNgFormat.h"
#include "PcapNgInterfaceDescBlock.h"
#include "base/KEByteOrder.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::size_t cMaxLook = 256u << 10; // bytes at the start and at the end of a file
constexpr std::uint32_t cNanosecondsPerMicrosecond = 1000;

std::uint32_t Word(const unsigned char* block, std::size_t offset) {
    return KELoadNative<std::uint32_t>(block + offset);
}

std::uint64_t TimeOf(const unsigned char* packet) {
    return std::uint64_t{Word(packet, pcapng::cTimestampHighOffset)} << 32 |
           Word(packet, pcapng::cTimestampLowOffset);
}

bool IsPacket(const unsigned char* block, std::size_t length) {
    return Word(block, pcapng::cBlockTypeOffset) == pcapng::cEnhPacketBlockType &&
           length >= pcapng::cEnhPacketFixedSize + pcapng::cBlockTrailerSize;
}

// Nanoseconds per unit of the interface's times; 0 when its packets cannot be replayed.
std::uint32_t UnitOf(KEConstBufferReference description) {
    PcapNgInterfaceDescBlock block;
    if (block.InitInterfaceDescBlock(description) != KESTATUS_SUCCESS ||
        block.LinkType() != pcapng::cLinkTypeEthernet) {
        return 0;
    }
    const PcapNgOption* const option = block.LookupOptionByCode(pcapng::cOptionTimestampResolution);
    std::uint8_t resolution = pcapng::cResolutionMicroseconds;
    if (option && option->GetNumericValue(resolution) != KESTATUS_SUCCESS) {
        return 0;
    }
    if (resolution == pcapng::cResolutionNanoseconds) {
        return 1;
    }
    return resolution == pcapng::cResolutionMicroseconds ? cNanosecondsPerMicrosecond : 0;
}

enum class End { Start, Tail };

// The first or the last bytes of a regular file; nothing of any other, and when it cannot be read.
std::vector<unsigned char> BytesOf(const std::string& path, End end) {
    std::vector<unsigned char> bytes;
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        return bytes;
    }
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        const auto size = static_cast<std::size_t>(status.st_size);
        bytes.resize(std::min(size, cMaxLook));
        const auto offset = static_cast<off_t>(end == End::Start ? 0 : size - bytes.size());
        const ssize_t length = pread(descriptor, bytes.data(), bytes.size(), offset);
        bytes.resize(length == static_cast<ssize_t>(bytes.size()) ? bytes.size() : 0);
    }
    close(descriptor);
    return bytes;
}

} // namespace

std::optional<RecordingStart> StartOfRecording(KEConstBufferReference head) {
    RecordingStart start;
    for (std::size_t offset = 0; head.mLength - offset >= pcapng::cBlockHeaderSize;) {
        const unsigned char* const block = head.mData + offset;
        const std::size_t length = Word(block, pcapng::cBlockLengthOffset);
        if (length < pcapng::cBlockHeaderSize + pcapng::cBlockTrailerSize || length > head.mLength - offset) {
            return std::nullopt;
        }
        if (Word(block, pcapng::cBlockTypeOffset) == pcapng::cInterfaceDescBlockType) {
            start.nanosecondsPerUnit = UnitOf({block, length});
        } else if (IsPacket(block, length) && start.nanosecondsPerUnit != 0) {
            start.firstTime = TimeOf(block) * start.nanosecondsPerUnit;
            return start;
        }
        offset += length;
    }
    return std::nullopt;
}

std::optional<std::uint64_t> LastTimeOfRecording(KEConstBufferReference tail) {
    for (std::size_t end = tail.mLength; end >= pcapng::cBlockHeaderSize + pcapng::cBlockTrailerSize;) {
        const std::size_t length = Word(tail.mData, end - pcapng::cBlockTrailerSize);
        if (length < pcapng::cBlockHeaderSize + pcapng::cBlockTrailerSize || length > end) {
            return std::nullopt;
        }
        const unsigned char* const block = tail.mData + (end - length);
        if (Word(block, pcapng::cBlockLengthOffset) != length) {
            return std::nullopt;
        }
        if (IsPacket(block, length)) {
            return TimeOf(block);
        }
        end -= length;
    }
    return std::nullopt;
}

std::optional<std::chrono::nanoseconds> DurationOfRecording(const std::string& firstFile,
                                                            const std::string& lastFile) {
    const std::vector<unsigned char> firstHead = BytesOf(firstFile, End::Start);
    const std::vector<unsigned char> lastHead = BytesOf(lastFile, End::Start);
    const std::vector<unsigned char> lastTail = BytesOf(lastFile, End::Tail);
    const auto first = StartOfRecording({firstHead.data(), firstHead.size()});
    const auto last = StartOfRecording({lastHead.data(), lastHead.size()});
    const auto time = LastTimeOfRecording({lastTail.data(), lastTail.size()});
    if (!first || !last || !time) {
        return std::nullopt;
    }
    const std::uint64_t lastTime = *time * last->nanosecondsPerUnit;
    if (lastTime < first->firstTime || lastTime - first->firstTime > INT64_MAX) {
        return std::nullopt;
    }
    return std::chrono::nanoseconds(static_cast<std::int64_t>(lastTime - first->firstTime));
}

} // namespace flowlane

#include "explanations/TransportStreamExplanation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <optional>

#include "explanations/Explain.h"
#include "explanations/FileExplanation.h"
#include "explanations/FileHead.h"
#include "explanations/MessageText.h"
#include "explanations/StatusWords.h"
#include "explanations/TransportStreamLayout.h"
#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

namespace {

using Facts = TransportStreamFacts;

bool IsRegular(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// A name in the current folder that no file has yet: like that of path, but with this extension.
std::string NewFileName(const std::string& path, const char* extension) {
    constexpr std::size_t cMaxStemLength = 52; // with quotes
    std::string stem = path.substr(path.find_last_of('/') + 1);
    stem = stem.substr(0, stem.find_last_of('.'));
    if (stem.empty() || QuotedShellPath(stem).size() > cMaxStemLength) {
        stem = "stream";
    }
    std::string name = stem + extension;
    for (unsigned number = 2; access(name.c_str(), F_OK) == 0 && number < 100; ++number) {
        name = KEStdStringFormat("{}-{}{}", stem, number, extension);
    }
    return name;
}

// The command that makes a stream of plain packets, with one clock that does not go back.
std::string ConvertCommand(const std::string& path) {
    return KEStdStringFormat("ffmpeg -i {} -c copy -f mpegts {}", CommandPath(path),
                             QuotedShellPath(NewFileName(path, ".ts")));
}

// The same as a sentence. A pipe or a device cannot be read again.
std::string RepairHint(const std::string& path) {
    return IsRegular(path) ? " Repair it with: " + ConvertCommand(path) : std::string();
}

// For a clock that jumps, or one of several.
std::string RebaseHint(const std::string& path) {
    return IsRegular(path) ? " Play it with: flowlane ts2av -rc " + CommandPath(path) : std::string();
}

// "+3600.000 s"; ticks: of 90 kHz.
std::string JumpText(std::int64_t ticks) {
    const std::uint64_t milliseconds = (static_cast<std::uint64_t>(ticks < 0 ? -ticks : ticks) + 45) / 90;
    return KEStdStringFormat("{}{}.{:03} s", ticks < 0 ? "-" : "+", milliseconds / 1000, milliseconds % 1000);
}

std::string PacketCount(std::uint64_t count) {
    return KEStdStringFormat("{} {}", count, count == 1 ? "packet" : "packets");
}

bool ExplainOtherKind(const std::string& path, OtherFileKind kind) {
    const char* name = nullptr;
    switch (kind) {
    case OtherFileKind::None:
        return false;
    case OtherFileKind::PcapNg:
        Explain("'{}' is a pcap-ng file, no transport stream. Send it with: flowlane playpcap {}",
                ShortPath(path), CommandPath(path));
        return true;
    case OtherFileKind::Pcap:
        Explain("'{}' is a classic pcap file, no transport stream. Convert it for flowlane playpcap with: "
                "editcap -F pcapng {} {}",
                ShortPath(path), CommandPath(path), QuotedShellPath(NewFileName(path, ".pcapng")));
        return true;
    case OtherFileKind::Mp4:
        name = "an MP4 file";
        break;
    case OtherFileKind::Matroska:
        name = "a Matroska file";
        break;
    case OtherFileKind::Avi:
        name = "an AVI file";
        break;
    case OtherFileKind::ProgramStream:
        name = "an MPEG program stream";
        break;
    }
    Explain("'{}' is {}, no transport stream. Convert it with: {}", ShortPath(path), name,
            ConvertCommand(path));
    return true;
}

bool ExplainLayout(const std::string& path, const TransportStreamLayout& layout) {
    if (layout.packetSize == cTimedPacketSize) {
        Explain("'{}' has packets of 192 bytes with time codes (M2TS) instead of 188. Convert it with: {}",
                ShortPath(path), ConvertCommand(path));
    } else if (layout.packetSize == cCodedPacketSize) {
        Explain("'{}' has packets of 204 bytes with error correction instead of 188. Convert it with: {}",
                ShortPath(path), ConvertCommand(path));
    } else if (layout.offset % cPlainPacketSize != 0) {
        Explain("The packets of '{}' begin at byte {}. Cut what is before them: tail -c +{} {} > {}",
                ShortPath(path), layout.offset, layout.offset + 1, CommandPath(path),
                QuotedShellPath(NewFileName(path, ".ts")));
    } else {
        return false;
    }
    return true;
}

// The file is of another kind, or its packets are at other places than those of a plain transport stream.
bool ExplainOtherFile(const std::string& path, const FileHead& head) {
    if (ExplainOtherKind(path, FindOtherFileKind(head))) {
        return true;
    }
    const std::optional<TransportStreamLayout> layout = FindTransportStreamLayout(head);
    if (layout) {
        return ExplainLayout(path, *layout);
    }
    if (head.size() < cPlainPacketSize) {
        return false;
    }
    Explain(
        "'{}' is no transport stream: its packets do not begin with the sync byte 0x47. Give the name of a "
        ".ts file.",
        ShortPath(path));
    return true;
}

void ExplainNoPackets(const std::string& path, const FileHead& head) {
    if (ExplainUnreadableFile(path) || ExplainOtherFile(path, head)) {
        return;
    }
    if (!head.empty()) {
        Explain(
            "'{}' is shorter than one packet of a transport stream (188 bytes): there is nothing to send.",
            ShortPath(path));
    } else {
        Explain("No packet of a transport stream (188 bytes) came from '{}': there was nothing to send.",
                ShortPath(path));
    }
}

bool IsMostlyInvalid(const Facts& facts) {
    return facts.invalidPackets.count > facts.packetsRead / 2;
}

bool IsNothingToSend(const Facts& facts) {
    const bool isAllInvalid = facts.packetsRead != 0 && facts.invalidPackets.count == facts.packetsRead;
    return isAllInvalid || (facts.isEndSeen && facts.packetsTimed == 0 && facts.forwardPackets.count == 0);
}

void ExplainNothingToSend(const std::string& path, const Facts& facts, const FileHead& head) {
    if (facts.packetsRead == 0) {
        ExplainNoPackets(path, head);
    } else if (IsMostlyInvalid(facts)) {
        Explain("'{}' is no transport stream: its packets do not begin with the sync byte 0x47.",
                ShortPath(path));
    } else {
        Explain("'{}' has {} clock reference (PCR), but two are needed to time its packets.{}",
                ShortPath(path), facts.clockReferences == 0 ? "no" : "only one", RepairHint(path));
    }
}

void ExplainInvalidPackets(const std::string& path, const Facts& facts) {
    Explain("Left out of '{}': {} without the sync byte 0x47, first at byte {}.{}", ShortPath(path),
            PacketCount(facts.invalidPackets.count),
            (facts.invalidPackets.firstPacket - 1) * cPlainPacketSize, RepairHint(path));
}

void ExplainClock(const std::string& path, const Facts& facts) {
    const std::string name = ShortPath(path);
    // Among invalid packets there may be some that only look like clock references.
    const bool hasMoreClocks = facts.hasMoreClocks && facts.invalidPackets.count == 0;
    const char* programs = hasMoreClocks ? " (it has clocks of several programs)" : "";
    if (facts.forwardPackets.count != 0) {
        Explain("Left out of '{}': {} where its clock steps forward by a second or more{}, first at packet "
                "{}.{}",
                name, PacketCount(facts.forwardPackets.count), programs, facts.forwardPackets.firstPacket,
                RebaseHint(path));
    }
    if (facts.unfinishedPackets.count != 0) {
        Explain("Left out of '{}': {}, because {} in a row have no clock reference (PCR), first near packet "
                "{}.{}",
                name, PacketCount(facts.unfinishedPackets.count), facts.bufferedPackets,
                facts.unfinishedPackets.firstPacket, RepairHint(path));
    }
    if (facts.backwardSteps.count != 0) {
        Explain("The clock of '{}' goes back at packet {}{}: from there packets are sent without pacing.{}",
                name, facts.backwardSteps.firstPacket, programs, RebaseHint(path));
    } else if (facts.packetsTimed != 0 && !facts.isClockRunning) {
        Explain("The clock of '{}' {}: its packets are sent without pacing.{}", name,
                facts.hasClockJumped ? "jumps at each clock reference (PCR)" : "stands still",
                RepairHint(path));
    }
}

} // namespace

KESTATUS ExplainTransportStream(const std::string& path, const Facts& facts) {
    const bool isClockWrong =
        facts.backwardSteps.count != 0 || (facts.packetsTimed != 0 && !facts.isClockRunning);
    const bool isNothingToSend = IsNothingToSend(facts);
    if (!isNothingToSend && !isClockWrong && facts.invalidPackets.count == 0 &&
        facts.forwardPackets.count == 0 && facts.unfinishedPackets.count == 0) {
        return KESTATUS_SUCCESS;
    }
    const FileHead head = ReadFileHead(path, cLayoutHeadSize);
    if (IsMostlyInvalid(facts) && ExplainOtherFile(path, head)) {
        return KESTATUS_INVALID_FILE;
    }
    if (isNothingToSend) {
        ExplainNothingToSend(path, facts, head);
        return KESTATUS_INVALID_FILE;
    }
    if (facts.invalidPackets.count != 0) {
        ExplainInvalidPackets(path, facts);
    }
    if (!IsMostlyInvalid(facts)) { // otherwise what looks like a clock is none
        ExplainClock(path, facts);
    }
    return KESTATUS_INVALID_DATA;
}

void ClockJumpWatch::Look(const std::string& path, std::uint64_t jumps, const TSClockBreak& last) {
    const std::uint64_t newJumps = jumps - mTold;
    mTold = jumps;
    if (newJumps == 0) {
        return;
    }
    const std::string howOften =
        newJumps == 1 ? std::string() : KEStdStringFormat(" {} times, the last time", newJumps);
    Explain("The clock of '{}' jumps{} by {} at packet {}. Its pacing goes on from there.", ShortPath(path),
            howOften, JumpText(last.jumpTicks), last.packetNumber);
}

void ExplainReadFailure(const std::string& path, KESTATUS reason) {
    if (reason == KEStatusFromErrno(ESPIPE)) {
        Explain("'{}' is a pipe, which cannot be read again from its start. Leave out the option -l.",
                ShortPath(path));
    } else {
        Explain("'{}' cannot be read any further: {}. Copy the file to another place and try again.",
                ShortPath(path), StatusWords(reason));
    }
}

} // namespace flowlane

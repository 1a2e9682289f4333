#include "explanations/ReplayExplanation.h"

#include <sys/stat.h>

#include <vector>

#include "explanations/CaptureFileNumbers.h"
#include "explanations/DeviceName.h"
#include "explanations/Explain.h"
#include "explanations/FileExplanation.h"
#include "explanations/ReplayFileKind.h"
#include "explanations/ReplayTexts.h"
#include "explanations/StatusWords.h"

namespace flowlane {

using namespace kestrelon;
using Cause = ReplayFailure::Cause;

namespace {

constexpr const char* cConvert = "editcap -F pcapng ";

// The name of the failing file, and its failure.
struct Subject {
    const ReplayFailure& failure;
    std::string path;
    std::string name; // the path, for a line

    std::string Unsent() const { return UnsentText(failure.unsentFrames); }
    std::string Command(const char* prefix, const char* infix = " ") const {
        return ConversionCommand(ReplayFileKind::PcapNg, path, prefix, infix);
    }
};

// --- Files that are no pcap-ng files -------------------------------------------------------------

// Prints nothing and returns false for a pcap-ng file that can be read.
bool ExplainFileKind(const Subject& subject) {
    const ReplayFileKind kind = LookAtReplayFile(subject.path);
    switch (kind) {
    case ReplayFileKind::PcapNg:
        return false;
    case ReplayFileKind::OtherByteOrder:
        Explain("'{}' is a pcap-ng file in the other byte order. Convert it with: {}", subject.name,
                ConversionCommand(kind, subject.path, cConvert));
        return true;
    case ReplayFileKind::ClassicPcap:
        Explain("'{}' is a classic pcap file. Convert it with: {}", subject.name,
                ConversionCommand(kind, subject.path, cConvert));
        return true;
    case ReplayFileKind::Other:
        Explain("'{}' is not a capture file. playpcap replays pcap-ng files.", subject.name);
        return true;
    case ReplayFileKind::Gzip:
    case ReplayFileKind::Zstd:
    case ReplayFileKind::Lz4:
    case ReplayFileKind::Xz:
    case ReplayFileKind::Bzip2:
        break;
    }
    const std::string unpacker = Unpacker(kind);
    Explain("'{}' is compressed with {}. Unpack it with: {}", subject.name, unpacker,
            ConversionCommand(kind, subject.path, (unpacker + " -dc < ").c_str(), " > "));
    return true;
}

// --- Files that cannot be opened -----------------------------------------------------------------

// The described line says that the file does not exist. This one adds what there is instead.
void ExplainMissingFile(const ReplaySettings& settings) {
    const KEStdPath path(settings.fileName);
    const std::string folder = path.ParentPath().c_str();
    const std::string stem = path.Stem().c_str();
    const std::string extension = path.Extension().IsEmpty() ? ".pcapng" : path.Extension().c_str();
    const std::vector<std::uint32_t> numbers = FileNumbersOnDisk(folder, stem, extension);
    KEStdPath single(path);
    KEStdPath classic(folder);
    if (path.Extension().IsEmpty()) {
        static_cast<void>(single.Concat(extension.c_str())); // without it, there is no such file
    }
    if (!numbers.empty()) {
        Explain(
            "There is a set of files of this name, with the numbers {}. Play it with: flowlane playpcap {} "
            "-i {}",
            RangesText(numbers), BareCommandPath(settings.fileName, "FILE"), numbers.front());
    } else if (settings.isSet && single.IsFile()) {
        Explain("'{}' is a single file. Leave out -i to play it.", ShortPath(single.c_str()));
    } else if (classic.Append((stem + ".pcap").c_str()) == KESTATUS_SUCCESS && classic.IsFile()) {
        Explain("There is '{}'. playpcap replays pcap-ng files. Convert it with: {}",
                ShortPath(classic.c_str()),
                ConversionCommand(ReplayFileKind::ClassicPcap, classic.c_str(), cConvert));
    }
}

void ExplainFirstFile(const Subject& subject, const ReplaySettings& settings) {
    if (subject.failure.status == KESTATUS_NOT_PRESENT) {
        ExplainMissingFile(settings);
        return;
    }
    struct stat status {};
    if (ExplainUnreadableFile(subject.path)) {
        return;
    }
    if (stat(subject.path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        Explain("'{}' is a pipe or a device. playpcap replays only regular files.", subject.name);
    } else {
        Explain("'{}' cannot be opened: {}.", subject.name, StatusWords(subject.failure.status));
    }
}

void ExplainNextFile(const Subject& subject) {
    const bool isEmpty = subject.failure.status == KESTATUS_NO_DATA;
    Explain("'{}', the next file of the set, cannot be read: {}{}.", subject.name,
            isEmpty ? "it is empty" : StatusWords(subject.failure.status), subject.Unsent());
}

void ExplainFramePool(const Subject& subject, const ReplaySettings& settings) {
    if (settings.frameCount == 0) {
        Explain("playpcap needs frame buffers. Leave out -fbs 0, or give a larger number.");
    } else if (subject.failure.status == KESTATUS_INVALID_PARAMETER) {
        Explain(
            "-fbs {} is too much: {} frame buffers of {} bytes fill the greatest possible memory of 4 GiB.",
            settings.frameCount, UINT32_MAX / settings.frameSize, settings.frameSize);
    } else {
        Explain(
            "There is not enough memory for {} frame buffers of {} bytes. Give a smaller number with -fbs.",
            settings.frameCount, settings.frameSize);
    }
}

// --- Contents ------------------------------------------------------------------------------------

LeftOutPackets LeftOut(const PcapNgFileReader& reader, const ReplaySettings& settings) {
    LeftOutPackets leftOut{reader.Packets(), {}, settings.frameSize};
    reader.QuerryStatistics(leftOut.statistics);
    return leftOut;
}

// What to do about packets that were left out; empty when nothing helps. path: the file, empty for a set.
std::string CureForLeftOut(const LeftOutPackets& leftOut, const std::string& path) {
    constexpr auto cKind = ReplayFileKind::PcapNg;
    if (leftOut.statistics.errPacketTruncated != 0) {
        return " Capture whole packets, for example with: tcpdump -s 0";
    }
    if (path.empty()) {
        return "";
    }
    if (leftOut.packets.otherTimeUnit != 0) {
        return " Convert the file with: " +
               ConversionCommand(cKind, path, "editcap -F nsecpcap ", " - | editcap -F pcapng - ");
    }
    if (leftOut.packets.obsolete != 0) {
        return " Convert the file with: " + ConversionCommand(cKind, path, cConvert);
    }
    return "";
}

void ExplainNoFrames(const Subject& subject, const PcapNgFileReader& reader, const ReplaySettings& settings) {
    const LeftOutPackets leftOut = LeftOut(reader, settings);
    const std::string subjectName = (settings.isSet ? "The set up to '" : "'") + subject.name + "'";
    if (leftOut.packets.read != 0) {
        Explain("None of the {} packets in {} can be sent: {}.{}", leftOut.packets.read,
                settings.isSet ? "the set up to '" + subject.name + "'" : "'" + subject.name + "'",
                leftOut.Reasons(), CureForLeftOut(leftOut, settings.isSet ? "" : subject.path));
    } else if (!ExplainFileKind(subject)) {
        Explain("{} has no packets.", subjectName);
    }
}

void ExplainTimeGoesBack(const Subject& subject, const PcapNgFileReader& reader) {
    const ReplayFailure& failure = subject.failure;
    if (failure.time >= failure.previousTime) {
        Explain("The unit of time changes at packet {} of '{}'{}. Give all packets one unit with: {}",
                failure.packetNumber, subject.name, subject.Unsent(),
                subject.Command("editcap -F nsecpcap ", " - | editcap -F pcapng - "));
    } else if (failure.isBetweenFiles) {
        Explain("'{}' belongs to an earlier capture: its packet {} is earlier than the last one of '{}'{}. "
                "Move it to another folder.",
                subject.name, failure.packetNumber,
                ShortPath(reader.FilePath(failure.fileNumber - 1).Filename().c_str()), subject.Unsent());
    } else {
        Explain("The time goes back at packet {} of '{}', from {} to {} UTC{}. Sort the packets with: {}",
                failure.packetNumber, subject.name, TimeText(failure.previousTime), TimeText(failure.time),
                subject.Unsent(), subject.Command("reordercap "));
    }
}

void ExplainDamagedFile(const Subject& subject) {
    if (ExplainFileKind(subject)) {
        return;
    }
    const bool isCutShort = subject.failure.cause == Cause::CutShort;
    if (subject.failure.packetNumber == 0) {
        Explain("'{}' {} before its first packet. Nothing of it can be sent.", subject.name,
                isCutShort ? "ends" : "is damaged");
        return;
    }
    Explain("'{}' {} behind packet {}{}. Keep the packets before it with: {}", subject.name,
            isCutShort ? "ends in the middle of the block" : "is damaged", subject.failure.packetNumber,
            subject.Unsent(), subject.Command(cConvert));
}

// --- The device ----------------------------------------------------------------------------------

void ExplainSendFailure(const Subject& subject, const std::string& device) {
    const ReplayFailure& failure = subject.failure;
    if (failure.status == KESTATUS_INVALID_LENGTH) {
        Explain(
            "{} cannot send packet {} of '{}', because its {} bytes are more than the device takes{}. Raise "
            "the MTU of the interface.",
            device, failure.packetNumber, subject.name, failure.frameSize, subject.Unsent());
    } else {
        Explain("{} did not send packet {} of '{}' ({} bytes): {}{}.", device, failure.packetNumber,
                subject.name, failure.frameSize, StatusWords(failure.status), subject.Unsent());
    }
}

} // namespace

void ExplainReplayFailure(const PcapNgFileReader& reader, const ReplaySettings& settings,
                          const QuaysideDevice& device) {
    // The device is asked only behind failures after which the worker thread does not use it.
    const ReplayFailure& failure = reader.Failure();
    const std::string path = reader.FilePath(failure.fileNumber).c_str();
    const Subject subject{failure, path, ShortPath(path)};
    switch (failure.cause) {
    case Cause::None:
        return;
    case Cause::DeviceAddress:
        Explain("{} does not tell its address: {}.", DeviceSubject(device), StatusWords(failure.status));
        return;
    case Cause::FirstFile:
        ExplainFirstFile(subject, settings);
        return;
    case Cause::FramePool:
        ExplainFramePool(subject, settings);
        return;
    case Cause::NextFile:
        ExplainNextFile(subject);
        return;
    case Cause::NoFrames:
        ExplainNoFrames(subject, reader, settings);
        return;
    case Cause::TimeGoesBack:
        ExplainTimeGoesBack(subject, reader);
        return;
    case Cause::CutShort:
    case Cause::Damaged:
        ExplainDamagedFile(subject);
        return;
    case Cause::ReadFailed:
        if (!ExplainUnreadableFile(path)) {
            Explain("'{}' cannot be read behind packet {}: {}{}.", subject.name, failure.packetNumber,
                    StatusWords(failure.status), subject.Unsent());
        }
        return;
    case Cause::SendFailed:
        ExplainSendFailure(subject, DeviceSubject(device));
        return;
    case Cause::Other:
        Explain("The system refuses: {}{}.", StatusWords(failure.status), subject.Unsent());
        return;
    }
}

void ExplainLeftOutPackets(const PcapNgFileReader& reader, const ReplaySettings& settings) {
    const LeftOutPackets leftOut = LeftOut(reader, settings);
    if (leftOut.IsWorthALine()) {
        const std::string path = reader.FilePath(settings.startFileIndex).c_str();
        Explain("{} of {} packets were left out: {}.{}", leftOut.Count(), leftOut.packets.read,
                leftOut.Reasons(), CureForLeftOut(leftOut, settings.isSet ? "" : path));
    }
}

} // namespace flowlane

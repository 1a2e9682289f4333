#include <chrono>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>

#include "base/LogCons.h"
#include "capture/PcapNgFileReader.h"
#include "capture/PcapNgReaderStatistics.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceReports.h"
#include "commands/DeviceSelection.h"
#include "commands/ErrorLine.h"
#include "commands/ErrorStatus.h"
#include "commands/Progress.h"
#include "commands/StatisticsLoop.h"
#include "commands/StopRequest.h"
#include "explanations/ReplayDuration.h"
#include "explanations/ReplayExplanation.h"
#include "explanations/ReplayTexts.h"

namespace flowlane {

using namespace kestrelon;

namespace {

using Statistics = PcapNgFileReader::Statistics;

constexpr ErrorLine<Statistics> cErrorLines[] = {
    ErrorLine(&Statistics::errInvalidFile, "  Invalid file:                     {}"),
    ErrorLine(&Statistics::errReadFileFailed, "  Read file failed:                 {}"),
    ErrorLine(&Statistics::errSendFramesFailed, "  Send frames failed:               {}"),
    ErrorLine(&Statistics::errInvalidSectionHeader, "  Invalid section headers:          {}"),
    ErrorLine(&Statistics::errUnsupportedVersion, "  Unsupported format version:       {}"),
    ErrorLine(&Statistics::errInvalidInterfaceDesc, "  Invalid interface description:    {}"),
    ErrorLine(&Statistics::errInvalidLinkType, "  Invalid link type:                {}"),
    ErrorLine(&Statistics::errInvalidEnhPacket, "  Invalid enhanced packet:          {}"),
    ErrorLine(&Statistics::errPacketTruncated, "  Packet truncated:                 {}"),
    ErrorLine(&Statistics::errInvalidFrameLength, "  Invalid frame length:             {}"),
    ErrorLine(&Statistics::errFrameBufferTooSmall, "  Frame buffer tooo small:          {}"),
    ErrorLine(&Statistics::errInvalidOption, "  Invalid option:                   {}"),
    ErrorLine(&Statistics::errUnsupportedTimestampResolution, "  Unsupported timestamp resolution: {}"),
    ErrorLine(&Statistics::errInvalidTimestamp, "  Invalid timestamp:                {}"),
};
static_assert(std::size(cErrorLines) == PcapNgReaderCounters::cFieldCount - 1); // all but the frames sent

template <typename... Args>
void Print(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Cons, level, format, args...);
}

void PrintFrameCounts(const Statistics& stats) {
    Print(KEINFO, "{} frames successfully sent, {} errors occured", stats.infFramesSent,
          stats.TotalErrorsOccurred());
}

void PrintSummary(const PcapNgFileReader& reader) {
    Statistics stats;
    reader.QuerryStatistics(stats);
    if (stats.TotalErrorsOccurred() == 0) {
        PrintFrameCounts(stats);
        return;
    }
    Print(KEINFO, "Errors occurred!");
    PrintFrameCounts(stats);
    Print(KEINFO, "Details:");
    for (const ErrorLine<Statistics>& line : cErrorLines) {
        line.Print(stats);
    }
}

ReplaySettings SettingsOfReplay() {
    return {gCmdLine.mArgs.front(), gCmdLine.mStartFileIndex, gCmdLine.mStartFileIndexPresent,
            gCmdLine.mFrameCount, gCmdLine.mFrameSize};
}

KESTATUS FailStart(const PcapNgFileReader& reader, const QuaysideDevice& device, KESTATUS st) {
    KEOutputFailure(logger::Cons, "StartFileReader failed, st={}.", st);
    ExplainReplayFailure(reader, SettingsOfReplay(), device);
    return st;
}

// The gravest first.
KESTATUS ExitStatus(const PcapNgFileReader& reader) {
    Statistics stats;
    reader.QuerryStatistics(stats);
    const ReplayedPackets packets = reader.Packets();
    const bool hasFailed = reader.IsInErrorState();
    const LeftOutPackets leftOut{packets, stats, gCmdLine.mFrameSize};
    ErrorStatus status;
    status.NoteIf(hasFailed, reader.FailureStatus());
    status.NoteIf(reader.LostFrames() != 0, KESTATUS_NO_FRAME_SENT);
    status.NoteIf(hasFailed && reader.Failure().unsentFrames != 0, KESTATUS_NO_FRAME_SENT);
    status.NoteIf(stats.TotalErrorsOccurred() != 0 || leftOut.Count() != 0, KESTATUS_INVALID_DATA);
    return status.ExitStatus();
}

// Of the file or the set; nothing when it is not known.
std::optional<std::chrono::nanoseconds> Duration(const PcapNgFileReader& reader) {
    const std::uint32_t first = gCmdLine.mStartFileIndex;
    std::uint32_t last = first;
    while (gCmdLine.mStartFileIndexPresent && reader.FilePath(last + 1).Exists()) {
        ++last;
    }
    const std::string firstPath = reader.FilePath(first).c_str();
    const auto duration = DurationOfRecording(firstPath, reader.FilePath(last).c_str());
    // The last file of a set may have no packet.
    return duration || last == first ? duration
                                     : DurationOfRecording(firstPath, reader.FilePath(last - 1).c_str());
}

// Whether all is sent or the replay has failed.
bool PrintProgress(const PcapNgFileReader& reader, const QuaysideDevice& device, LostFramesReport& lostFrames,
                   Progress& progress) {
    Statistics stats;
    reader.QuerryStatistics(stats);
    PrintFrameCounts(stats);
    progress.Print(reader.Position());
    lostFrames.Print(reader.LostFrames());
    if (reader.AreAllFramesSent()) {
        Print(KEINFO, "Successfully sent frames within PCAPNG file(s)...");
        return true;
    }
    if (reader.CurrentState() == PcapNgFileReader::State::Error) {
        lostFrames.Print(reader.LostFrames());
        FailureReport(device, "PCAPNG file reader has ended, st={}.").Print(reader.FailureStatus());
        Print(KEERROR, "Stop reading from PCAPNG file(s) because an unrecoverable error occurred...");
        ExplainReplayFailure(reader, SettingsOfReplay(), device);
        return true;
    }
    return false;
}

} // namespace

KESTATUS CmdPlayPcap() {
    // Before all else and until the device is closed, so that a signal cuts neither the start nor the end
    // short.
    StopRequest stopRequest;
    KESTATUS st = CheckArgumentsPresent();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    QuaysideDevice device;
    std::string description;
    st = OpenRawTxDevice(device, FriendlyNameOption(), description);
    if (st != KESTATUS_SUCCESS) {
        return ReportFailedOpening(DeviceUse::Send, st);
    }
    ExplainCommandLine(&device);

    Print(KEINFO, "Start PCAPNG file reader on device {}...", description);
    PcapNgFileReader reader;
    reader.SetPreciseTiming(gCmdLine.mPreciseTiming);
    st = reader.StartFileReader(gCmdLine.mArgs.front().c_str(), gCmdLine.mStartFileIndex, device,
                                gCmdLine.mFrameCount, gCmdLine.mFrameSize, gCmdLine.mReplaceSourceMacAddr,
                                gCmdLine.mStartFileIndexPresent, gCmdLine.mRewindFile,
                                [&] { return stopRequest.IsRequested(); });
    if (st != KESTATUS_SUCCESS) {
        return FailStart(reader, device, st);
    }

    Print(KEINFO, "Send frames from PCAPNG file(s), press any key to stop...");
    LostFramesReport lostFrames("Frames not sent because the link was down or busy: {}");
    Progress progress(gCmdLine.mVerbose ? Duration(reader) : std::nullopt);
    PrintStatisticsUntilEnd(stopRequest, [&] { return PrintProgress(reader, device, lostFrames, progress); });

    Print(KEINFO, "Stop PCAPNG file reader...");
    reader.StopFileReader();
    lostFrames.Print(reader.LostFrames());
    PrintSummary(reader);
    if (!reader.IsInErrorState()) {
        ExplainLeftOutPackets(reader, SettingsOfReplay());
    }
    return ExitStatus(reader);
}

} // namespace flowlane

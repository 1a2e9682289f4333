#include <cstdint>
#include <string>
#include <vector>

#include "base/LogCons.h"
#include "capture/FrameReceiver.h"
#include "capture/PcapNgFileWriter.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceSelection.h"
#include "commands/ErrorLine.h"
#include "commands/ErrorStatus.h"
#include "commands/StopRequest.h"
#include "device/RawReceiveHeader.h"
#include "explanations/CaptureExplanation.h"
#include "explanations/DeviceExplanation.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cBytesPerKB = 1000;
constexpr std::uint32_t cBytesPerMB = 1'000'000;

using Statistics = PcapNgFileWriter::Statistics;

// The counters that FramesDropped() adds up.
constexpr ErrorLine<Statistics> cErrorLines[] = {
    ErrorLine(&Statistics::errMissingFrames, "  Missing frames (sequence error): {}"),
    ErrorLine(&Statistics::errPoolUnderflow, "  Frame pool exhausted:            {}"),
    ErrorLine(&Statistics::errWriteFileFailed, "  Write to file failed:            {}"),
    ErrorLine(&Statistics::errInvalidFrameSize, "  Invalid frame header size:       {}"),
    ErrorLine(&Statistics::errInitPacketBlock, "  Invalid packet size:             {}"),
};

KESTATUS CheckArguments() {
    const KESTATUS st = CheckArgumentsPresent();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    if (gCmdLine.mMaxFileSizeKB != 0 && gCmdLine.mMaxFileSizeMB != 0) {
        KEOutputLogMessage(
            logger::Cons, KEERROR,
            "Max pcap-ng file size is specified in kilobytes and memgabytes. Only one of them is allowed.");
        PrintUsageHint();
        return KESTATUS_INVALID_PARAMETER;
    }
    return KESTATUS_SUCCESS;
}

// In bytes, 0 for no limit. The product wraps at 4 GiB.
std::uint64_t MaxFileSizeOption() {
    const std::uint32_t size = gCmdLine.mMaxFileSizeKB != 0 ? gCmdLine.mMaxFileSizeKB * cBytesPerKB
                                                            : gCmdLine.mMaxFileSizeMB * cBytesPerMB;
    return size;
}

void PrintFrameCounts(const Statistics& stats) {
    KEOutputLogMessage(logger::Cons, KEINFO, "{} frames successfully written, {} frames dropped",
                       stats.infFramesWritten, stats.FramesDropped());
}

Statistics StatisticsOf(const PcapNgFileWriter& writer) {
    Statistics stats;
    writer.QuerryStatistics(stats);
    return stats;
}

void PrintSummary(const Statistics& stats) {
    if (stats.FramesDropped() == 0) {
        PrintFrameCounts(stats);
        return;
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Errors occurred!");
    PrintFrameCounts(stats);
    KEOutputLogMessage(logger::Cons, KEINFO, "Details:");
    for (const ErrorLine<Statistics>& line : cErrorLines) {
        line.Print(stats);
    }
}

std::vector<std::uint32_t> EarlierFiles() {
    return MaxFileSizeOption() != 0 ? NumbersOfEarlierCapture(gCmdLine.mArgs.front())
                                    : std::vector<std::uint32_t>();
}

KESTATUS FailStart(const PcapNgFileWriter& writer, KESTATUS st, unsigned frameSize) {
    KEOutputFailure(logger::Cons, "StartFileWriter failed, st={}.", st);
    ExplainFailedCaptureStart(writer, st, gCmdLine.mFrameCount, frameSize);
    return st;
}

// The device cannot be used, which only the log has been told.
KESTATUS FailDevice(const QuaysideDevice& device, const char* what, KESTATUS st) {
    ExplainReceiveFailure(device, what, st);
    return st;
}

// The lines behind those of the receive loop.
void ExplainFailedLoop(const QuaysideDevice& device, const PcapNgFileWriter& writer, KESTATUS failure) {
    if (writer.ThreadStatus() != KESTATUS_SUCCESS) {
        ExplainEndedWriter(writer);
    } else if (failure == KESTATUS_DEVICE_REMOVED) {
        ExplainDeviceFailure(failure, device);
    } else if (failure != KESTATUS_SUCCESS) {
        ExplainReceiveFailure(device, "has stopped receiving", failure);
    }
}

// Prints the summary and what to say about it.
void PrintEnd(const PcapNgFileWriter& writer, WriteFailureWatch& watch, KESTATUS writerFailure) {
    const Statistics stats = StatisticsOf(writer);
    PrintSummary(stats);
    if (writerFailure == KESTATUS_SUCCESS) {
        watch.LookAtEnd(writer);
    }
    ExplainLostFrames(stats, gCmdLine.mFrameCount, gCmdLine.mFrameSize);
}

// The gravest first. Frames behind a failure of the writer count as not written, too.
KESTATUS ExitStatus(const Statistics& stats, KESTATUS writerFailure, KESTATUS failure) {
    ErrorStatus status;
    status.Note(writerFailure);
    status.Note(failure);
    status.NoteIf(stats.errMissingFrames != 0 || stats.errPoolUnderflow != 0, KESTATUS_NO_RESOURCES);
    status.NoteIf(stats.errWriteFileFailed != 0 || stats.errInitPacketBlock != 0, KESTATUS_WRITE_FILE_FAILED);
    status.NoteIf(stats.errInvalidFrameSize != 0 || stats.errInvalidTimestamp != 0, KESTATUS_INVALID_DATA);
    return status.ExitStatus();
}

} // namespace

KESTATUS CmdPcap() {
    // Before all else and until the device is closed, so that a signal cuts neither the start nor the end
    // short.
    StopRequest stopRequest;
    KESTATUS st = CheckArguments();
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    QuaysideDevice device;
    std::string description;
    st = OpenRawRxDevice(device, FriendlyNameOption(), description, QBXRawHeaderType_2);
    if (st != KESTATUS_SUCCESS) {
        return ReportFailedOpening(DeviceUse::Receive, st);
    }
    ExplainCommandLine(&device);

    KEOutputLogMessage(logger::Cons, KEINFO, "Start PCAPNG file writer on device {}...", description);
    const unsigned frameSize = gCmdLine.mFrameSize + static_cast<unsigned>(rawheader::cSize);
    const std::vector<std::uint32_t> earlierFiles = EarlierFiles();
    PcapNgFileWriter writer;
    st = writer.StartFileWriter(gCmdLine.mArgs.front().c_str(), device, gCmdLine.mFrameCount, frameSize,
                                MaxFileSizeOption());
    if (st != KESTATUS_SUCCESS) {
        return FailStart(writer, st, frameSize);
    }
    ExplainEarlierCapture(gCmdLine.mArgs.front(), earlierFiles);

    FrameReceiver receiver(device, writer, frameSize);
    KEOutputLogMessage(logger::Cons, KEINFO, "Enable receiving of raw frames...");
    st = device.EnableRawRx();
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "EnableRawRx failed, st={}.", st);
        return FailDevice(device, "cannot receive", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO,
                       "Write received frames to PCAPNG file, press any key to stop...");
    WriteFailureWatch watch;
    const KESTATUS failure = receiver.WriteReceivedFramesToFile(
        [&] {
            PrintFrameCounts(StatisticsOf(writer));
            watch.Look(writer);
        },
        [&] { return stopRequest.IsRequested(); });
    const KESTATUS writerFailure = writer.ThreadStatus();
    ExplainFailedLoop(device, writer, failure);

    KEOutputLogMessage(logger::Cons, KEINFO, "Disable receiving of raw frames...");
    st = device.DisableRawRx();
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "DisableRawRx failed, st={}.", st);
        return FailDevice(device, "does not stop receiving", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop PCAPNG file writer...");
    writer.StopFileWriter();
    PrintEnd(writer, watch, writerFailure);
    return ExitStatus(StatisticsOf(writer), writerFailure, failure);
}

} // namespace flowlane

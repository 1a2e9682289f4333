#include <memory>

#include "KEPosixTime.h"
#include "base/LogCons.h"
#include "capture/PcapNgFileWriter.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceSelection.h"
#include "commands/StopRequest.h"
#include "device/RawReceiveHeader.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cBytesPerKB = 1000;
constexpr std::uint32_t cBytesPerMB = 1'000'000;
constexpr unsigned cStatisticsInterval = 1000; // ms
constexpr int cReceiveTimeout = 1000;          // ms

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

KESTATUS LogFailedReception(const char* format, KESTATUS st) {
    KEOutputFailure(logger::Cons, format, st);
    return KEOutputFailure(logger::Cons, "WriteReceivedFramesToFile failed, st={}.", st);
}

void PrintFrameCounts(const PcapNgFileWriter::Statistics& stats) {
    KEOutputLogMessage(logger::Cons, KEINFO, "{} frames successfully written, {} frames dropped",
                       stats.infFramesWritten, stats.FramesDropped());
}

void PrintSummary(const PcapNgFileWriter& writer) {
    PcapNgFileWriter::Statistics stats;
    writer.QuerryStatistics(stats);
    if (stats.FramesDropped() == 0) {
        PrintFrameCounts(stats);
        return;
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Errors occurred!");
    PrintFrameCounts(stats);
    KEOutputLogMessage(logger::Cons, KEINFO, "Details:");
    KEOutputLogMessage(logger::Cons, KEINFO, "  Missing frames (sequence error): {}", stats.errMissingFrames);
    KEOutputLogMessage(logger::Cons, KEINFO, "  Frame pool exhausted:            {}", stats.errPoolUnderflow);
    KEOutputLogMessage(logger::Cons, KEINFO, "  Write to file failed:            {}",
                       stats.errWriteFileFailed);
    KEOutputLogMessage(logger::Cons, KEINFO, "  Invalid frame header size:       {}",
                       stats.errInvalidFrameSize);
    KEOutputLogMessage(logger::Cons, KEINFO, "  Invalid packet size:             {}",
                       stats.errInitPacketBlock);
}

// The receive loop and what it works with.
class Capture {
public:
    Capture(QuaysideDevice& device, PcapNgFileWriter& writer, StopRequest& stopRequest, unsigned frameSize)
        : mDevice(device),
          mWriter(writer),
          mStopRequest(stopRequest),
          mFrameSize(frameSize),
          mSpareBuffer(std::make_unique<unsigned char[]>(frameSize)) {}

    // Until the user asks for the end or something fails, which is reported.
    void WriteReceivedFramesToFile();

private:
    KESTATUS TakeReceivedFrames();
    KESTATUS TakeFrame();
    bool IsStatisticsDue();

    QuaysideDevice& mDevice;
    PcapNgFileWriter& mWriter;
    StopRequest& mStopRequest;
    unsigned mFrameSize; // bytes of each frame's buffer, receive header included
    std::unique_ptr<unsigned char[]> mSpareBuffer;
    std::uint32_t mLastStatistics = 0; // ticks
};

void Capture::WriteReceivedFramesToFile() {
    mLastStatistics = KEPosixGetTickCount();
    for (bool hasFailed = false;;) {
        if (IsStatisticsDue()) {
            PcapNgFileWriter::Statistics stats;
            mWriter.QuerryStatistics(stats);
            PrintFrameCounts(stats);
            mLastStatistics = KEPosixGetTickCount();
            if (mStopRequest.IsRequested()) {
                if (!hasFailed) {
                    TakeReceivedFrames(); // what had come before
                }
                return;
            }
        }
        if (hasFailed) {
            return;
        }
        const KESTATUS st = mDevice.WaitForRawFrame(cReceiveTimeout);
        if (st == KESTATUS_SUCCESS) {
            hasFailed = TakeReceivedFrames() != KESTATUS_SUCCESS;
        } else if (st != KESTATUS_TIMEOUT) {
            KEOutputFailure(logger::Cons, "WaitForRawFrame failed, st={}.", st);
            hasFailed = true;
        }
    }
}

bool Capture::IsStatisticsDue() {
    return KEPosixGetTickCount() - mLastStatistics >= cStatisticsInterval;
}

// Until the device has none left, but not beyond the time of the next statistics: under full load there are
// always some left.
KESTATUS Capture::TakeReceivedFrames() {
    KESTATUS st = KESTATUS_SUCCESS;
    while (st == KESTATUS_SUCCESS && !IsStatisticsDue()) {
        st = TakeFrame();
    }
    return st == KESTATUS_NO_DATA ? KESTATUS_SUCCESS : st;
}

KESTATUS Capture::TakeFrame() {
    RawFrame* const frame = mWriter.GetRawFrame();
    unsigned char* const buffer = frame ? frame->mFrameBuffer.mData : mSpareBuffer.get();
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    unsigned length = 0;
    KESTATUS st = mDevice.GetReceivedRawFrame(&type, buffer, mFrameSize, &length);
    if (st != KESTATUS_SUCCESS) {
        if (frame) {
            mWriter.ReleaseRawFrame(frame);
        }
        return st == KESTATUS_NO_DATA ? st : LogFailedReception("GetReceivedRawFrame failed, st={}.", st);
    }
    if (!mWriter.CheckRawFrame(type, {buffer, length})) {
        if (frame) {
            mWriter.ReleaseRawFrame(frame);
        }
        return KESTATUS_SUCCESS;
    }
    if (!frame) {
        KEOutputLogMessage(logger::Global, KEWARN, "Frame pool exhausted, discard the received frame");
        mWriter.PoolUnderflowOccurred();
        return KESTATUS_SUCCESS;
    }
    frame->mFrameSize = length;
    frame->mFrameType = type;
    st = mWriter.WriteRawFrame(frame);
    if (st != KESTATUS_SUCCESS) {
        if (mWriter.ThreadStatus() != KESTATUS_SUCCESS) {
            KEOutputFailure(logger::Cons, "PCAPNG file writer has ended, st={}.", mWriter.ThreadStatus());
        }
        LogFailedReception("WriteRawFrame failed, st={}.", st);
    }
    return st;
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
        return KEOutputFailure(logger::Cons, "Open device failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Start PCAPNG file writer on device {}...", description);
    const unsigned frameSize = gCmdLine.mFrameSize + static_cast<unsigned>(rawheader::cSize);
    PcapNgFileWriter writer;
    st = writer.StartFileWriter(gCmdLine.mArgs.front().c_str(), device, gCmdLine.mFrameCount, frameSize,
                                MaxFileSizeOption());
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartFileWriter failed, st={}.", st);
    }

    Capture capture(device, writer, stopRequest, frameSize);
    KEOutputLogMessage(logger::Cons, KEINFO, "Enable receiving of raw frames...");
    st = device.EnableRawRx();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "EnableRawRx failed, st={}.", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO,
                       "Write received frames to PCAPNG file, press any key to stop...");
    capture.WriteReceivedFramesToFile();

    KEOutputLogMessage(logger::Cons, KEINFO, "Disable receiving of raw frames...");
    st = device.DisableRawRx();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "DisableRawRx failed, st={}.", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop PCAPNG file writer...");
    writer.StopFileWriter();
    PrintSummary(writer);
    return KESTATUS_SUCCESS;
}

} // namespace flowlane

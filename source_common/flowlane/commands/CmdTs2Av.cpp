#include <cstdint>
#include <optional>
#include <string>

#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceReports.h"
#include "commands/DeviceSelection.h"
#include "commands/ErrorStatus.h"
#include "commands/Progress.h"
#include "commands/StatisticsLoop.h"
#include "commands/StopRequest.h"
#include "explanations/DeviceName.h"
#include "explanations/Explain.h"
#include "explanations/FileExplanation.h"
#include "explanations/StatusWords.h"
#include "explanations/TransportStreamExplanation.h"
#include "streaming/AvtpSink.h"
#include "streaming/TSFileDuration.h"
#include "streaming/TSFileSource.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cMaxVlanTCI = 0xFFFF;
constexpr std::uint32_t cVlanIdMask = 0xFFF;
constexpr std::uint32_t cReservedVlanId = 0xFFF;

KESTATUS CheckVlanTCIOption() {
    if (gCmdLine.mVlanTCI > cMaxVlanTCI) {
        KEOutputLogMessage(logger::Cons, KEERROR, "VLAN TCI value {:#X} exceeds max. 0xFFFF.",
                           gCmdLine.mVlanTCI);
        return KESTATUS_INVALID_PARAMETER;
    }
    const std::uint32_t vlanId = gCmdLine.mVlanTCI & cVlanIdMask;
    if (vlanId == cReservedVlanId) {
        // The message has two fields and one argument: the TCI itself is left blank.
        KEOutputLogMessage(logger::Cons, KEERROR,
                           "VLAN ID {:#X} in specified VLAN TCI value {:#X} exceeds max. 0xFFE.", vlanId);
        return KESTATUS_INVALID_PARAMETER;
    }
    return KESTATUS_SUCCESS;
}

KESTATUS CheckArguments(KEEthernetMacAddress& destination) {
    const KESTATUS st = CheckStreamArguments(destination);
    return st == KESTATUS_SUCCESS ? CheckVlanTCIOption() : st;
}

// reason: the status of errno.
KESTATUS ExplainFile(KESTATUS st, KESTATUS reason) {
    const std::string& fileName = gCmdLine.mArgs.front();
    if (!ExplainUnreadableFile(fileName)) {
        ExplainReadFailure(fileName, reason);
    }
    return st;
}

KESTATUS CreateSink(QuaysideDevice& device, const KEEthernetMacAddress& destination, AvtpSink& sink) {
    KEOutputLogMessage(logger::Cons, KEINFO, "Create AVTP sink...");
    const KESTATUS st =
        sink.CreateAvtpSink(device, destination.mMacAddr, static_cast<std::uint16_t>(gCmdLine.mUniqueId),
                            static_cast<std::uint16_t>(gCmdLine.mVlanTCI), 0);
    sink.SetSendFullFrames(gCmdLine.mPreciseTiming);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Cons, "CreateAvtpSink failed, st={}.", st);
        Explain("{} does not tell its address: {}. Use another device.", DeviceSubject(device),
                StatusWords(st));
    }
    return st;
}

KESTATUS CreateSource(AvtpSink& sink, TSFileSource& source) {
    const std::string& fileName = gCmdLine.mArgs.front();
    KEOutputLogMessage(logger::Cons, KEINFO, "Create TS file source for file '{}'...", fileName);
    const KESTATUS st = source.CreateTSFileSource(fileName.c_str(), sink, gCmdLine.mRewindFile,
                                                  TSFileSource::cDefaultNumberOfPackets);
    if (st == KESTATUS_SUCCESS) {
        if (gCmdLine.mPreciseTiming) {
            source.SetPreciseTiming(sink.MaxSourcePacketCount());
        }
        return st;
    }
    KEOutputFailure(logger::Cons, "CreateTSFileSource failed, st={}.", st);
    return st == KESTATUS_NO_MEMORY ? st : ExplainFile(st, st);
}

KESTATUS Start(const std::string& deviceDescription, AvtpSink& sink, TSFileSource& source) {
    KEOutputLogMessage(logger::Cons, KEINFO, "Start AVTP sink on device {}...", deviceDescription);
    KESTATUS st = sink.StartSink();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSink failed, st={}.", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Start TS file source...");
    st = source.StartSource();
    if (st == KESTATUS_SUCCESS) {
        return st;
    }
    KEOutputFailure(logger::Cons, "StartSource failed, st={}.", st);
    if (st == KESTATUS_READ_FILE_FAILED) {
        return ExplainFile(st, source.ReadFailure());
    }
    Explain("The thread that sends '{}' cannot be started: {}.", ShortPath(gCmdLine.mArgs.front()),
            StatusWords(st));
    return st;
}

// What the user is told while the file is sent.
class Reports {
public:
    Reports(const QuaysideDevice& device, const TSFileSource& source, const AvtpSink& sink)
        : mDevice(device), mSource(source), mSink(sink) {}

    // Returns whether the end of the file is reached.
    bool PrintStatistics();
    // Only what is new since the last call.
    void PrintLossesAndFailure();
    // What was lost or left out, at the end. sendFailure: that of the last frames. Returns the exit code.
    KESTATUS PrintFaults(KESTATUS sendFailure);

private:
    void PrintProgress(bool isEndReached);
    void ExplainFailure(KESTATUS failure);

    const QuaysideDevice& mDevice;
    const TSFileSource& mSource;
    const AvtpSink& mSink;
    LostFramesReport mLostFrames = LostFramesReport("Frames not sent because the link was down or busy: {}");
    FailureReport mFailure = FailureReport(mDevice, "TS file source has ended, st={}.");
    bool mIsFailureExplained = false;
    // Only with -v; see TSFileDuration.h.
    const std::optional<TSPacketDuration> mDuration =
        gCmdLine.mVerbose ? FindTSFileDuration(gCmdLine.mArgs.front()) : std::nullopt;
};

bool Reports::PrintStatistics() {
    const AvtpSink::Statistics sinkStats = mSink.QuerryStatistics();
    KEOutputLogMessage(logger::Cons, KEINFO,
                       "TS packets sent: {}, AVTP packets sent: {}, AVTP packets discarded: {}",
                       mSource.QuerryStatistics().infTsPacketsDelivered, sinkStats.infAvtpPacketsSent,
                       sinkStats.errNoResourcesToSent);
    const bool isEndReached = mSource.IsEndOfFileReached(); // read first: a failure until then is known
    PrintProgress(isEndReached && mSource.FailureStatus() == KESTATUS_SUCCESS);
    PrintLossesAndFailure();
    if (isEndReached && mSource.FailureStatus() == KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Cons, KEINFO, "Successfully sent content of TS file...");
    }
    return isEndReached;
}

// A clock that has gone back says neither how long the file is nor, when it is before the start, where it is.
void Reports::PrintProgress(bool isEndReached) {
    const bool isClockGood = mSource.QuerryStatistics().errBackwardSteps == 0;
    const TSPacketDuration position = mSource.Position();
    if (isClockGood) {
        Progress(mDuration).Print(isEndReached ? mDuration.value_or(position) : position);
    } else if (position >= TSPacketDuration::zero()) {
        Progress(std::nullopt).Print(position);
    }
}

void Reports::PrintLossesAndFailure() {
    const KESTATUS failure = mSource.FailureStatus(); // read first: all losses until then are known
    mLostFrames.Print(mSink.LostFrames());
    mFailure.Print(failure);
    if (failure != KESTATUS_SUCCESS && !mIsFailureExplained) {
        mIsFailureExplained = true;
        ExplainFailure(failure);
    }
}

void ExplainSendFailure(const QuaysideDevice& device, KESTATUS failure) {
    Explain("{} cannot send: {}. Check the device and start again.", DeviceSubject(device),
            StatusWords(failure));
}

void Reports::ExplainFailure(KESTATUS failure) {
    if (failure == KESTATUS_READ_FILE_FAILED) {
        ExplainReadFailure(gCmdLine.mArgs.front(), mSource.ReadFailure());
    } else if (failure != KESTATUS_DEVICE_REMOVED) { // FailureReport has explained that
        ExplainSendFailure(mDevice, failure);
    }
}

TransportStreamFacts FactsOf(const TSFileSource::Statistics& stats) {
    return {.packetsRead = stats.infTsPacketsRead,
            .packetsTimed = stats.infTsPacketsTimed,
            .clockReferences = stats.infPCRs,
            .isEndSeen = stats.infEndsOfFile != 0,
            .isClockRunning = stats.infRunningSegments != 0,
            .hasMoreClocks = stats.infOtherPCRs != 0,
            .bufferedPackets = TSFileSource::cDefaultNumberOfPackets,
            .invalidPackets = {stats.errInvalidPackets, stats.infFirstInvalidPacket},
            .forwardPackets = {stats.errForwardStepPackets, stats.infFirstForwardStep},
            .unfinishedPackets = {stats.errUnfinishedPackets, stats.infFirstUnfinished},
            .backwardSteps = {stats.errBackwardSteps, stats.infFirstBackwardStep}};
}

KESTATUS Reports::PrintFaults(KESTATUS sendFailure) {
    ErrorStatus status;
    status.Note(mSource.FailureStatus());
    status.Note(sendFailure);
    status.NoteIf(mSink.LostFrames() != 0, KESTATUS_NO_FRAME_SENT);
    const std::uint64_t discarded = mSink.QuerryStatistics().errNoResourcesToSent;
    if (discarded != 0) {
        status.Note(KESTATUS_NO_FRAME_SENT);
        Explain("{} had no room for AVTP packets {} times and discarded them. Use a faster link or a "
                "stream with a lower rate.",
                DeviceSubject(mDevice), discarded);
    }
    // Behind a failure, what the file lacks is of no interest.
    if (mSource.FailureStatus() == KESTATUS_SUCCESS) {
        status.Note(ExplainTransportStream(gCmdLine.mArgs.front(), FactsOf(mSource.QuerryStatistics())));
    }
    return status.ExitStatus();
}

// Sends the frames that wait in the device's queue: a batch that ends in a full frame is not flushed. A
// failure is reported unless the source has failed before.
KESTATUS SendLastFrames(QuaysideDevice& device, KESTATUS sourceFailure) {
    const KESTATUS st = device.SendRawFrames();
    if (st == KESTATUS_SUCCESS || st == KESTATUS_NO_DATA) {
        return KESTATUS_SUCCESS;
    }
    if (sourceFailure == KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Cons, "SendRawFrames failed, st={}.", st);
        ExplainSendFailure(device, st);
    }
    return st;
}

} // namespace

KESTATUS CmdTs2Av() {
    KEEthernetMacAddress destination;
    KESTATUS st = CheckArguments(destination);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }

    // Before the device, so that it outlives it: a late signal does not cut the closing short.
    StopRequest stopRequest;
    QuaysideDevice device;
    std::string description;
    st = OpenRawTxDevice(device, FriendlyNameOption(), description);
    if (st != KESTATUS_SUCCESS) {
        return ReportFailedOpening(DeviceUse::Send, st);
    }
    ExplainCommandLine(&device);
    AvtpSink sink;
    TSFileSource source;
    st = CreateSink(device, destination, sink);
    if (st == KESTATUS_SUCCESS) {
        st = CreateSource(sink, source);
    }
    if (st == KESTATUS_SUCCESS) {
        st = Start(description, sink, source);
    }
    if (st != KESTATUS_SUCCESS) {
        return st;
    }

    KEOutputLogMessage(logger::Cons, KEINFO,
                       "Send content of file '{}' as AVTP compliant stream, press any key to stop...",
                       gCmdLine.mArgs.front());
    Reports reports(device, source, sink);
    PrintStatisticsUntilEnd(stopRequest, [&] { return reports.PrintStatistics(); });

    KEOutputLogMessage(logger::Cons, KEINFO, "Stop TS file source...");
    source.StopSource();
    const KESTATUS sendFailure = SendLastFrames(device, source.FailureStatus());
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop AVTP sink...");
    sink.StopSink();
    reports.PrintLossesAndFailure();
    return reports.PrintFaults(sendFailure);
}

} // namespace flowlane

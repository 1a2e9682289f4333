#include "KEPosixTime.h"
#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceReports.h"
#include "commands/DeviceSelection.h"
#include "commands/StopRequest.h"
#include "streaming/AvtpSink.h"
#include "streaming/TSFileSource.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cMaxVlanTCI = 0xFFFF;
constexpr std::uint32_t cVlanIdMask = 0xFFF;
constexpr std::uint32_t cReservedVlanId = 0xFFF;
constexpr unsigned cStatisticsInterval = 1000; // ms

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
    KESTATUS st = CheckArgumentsPresent();
    if (st == KESTATUS_SUCCESS) {
        st = ReadMacAddressOption(destination);
    }
    if (st == KESTATUS_SUCCESS) {
        st = CheckUniqueIdOption();
    }
    return st == KESTATUS_SUCCESS ? CheckVlanTCIOption() : st;
}

// Prints the statistics once a second until the file has been sent or the user asks for the end.
void WaitForEnd(const TSFileSource& source, const AvtpSink& sink, LostFramesReport& lostFrames,
                FailureReport& failure, StopRequest& stopRequest) {
    while (!stopRequest.IsRequested()) {
        const AvtpSink::Statistics sinkStats = sink.QuerryStatistics();
        KEOutputLogMessage(logger::Cons, KEINFO,
                           "TS packets sent: {}, AVTP packets sent: {}, AVTP packets discarded: {}",
                           source.QuerryStatistics().infTsPacketsDelivered, sinkStats.infAvtpPacketsSent,
                           sinkStats.errNoResourcesToSent);
        const bool isEndReached = source.IsEndOfFileReached();
        const KESTATUS failureStatus = source.FailureStatus(); // behind it all losses until then are seen
        lostFrames.Print(sink.LostFrames());
        failure.Print(failureStatus);
        if (isEndReached) {
            if (failureStatus == KESTATUS_SUCCESS) {
                KEOutputLogMessage(logger::Cons, KEINFO, "Successfully sent content of TS file...");
            }
            return;
        }
        KEPosixSleep(cStatisticsInterval);
    }
}

// Sends the frames that wait in the device's queue: a batch that ends in a full frame is not flushed. A
// failure is told unless that of the source has been.
void SendLastFrames(QuaysideDevice& device, KESTATUS sourceFailure) {
    const KESTATUS st = device.SendRawFrames();
    if (st != KESTATUS_SUCCESS && st != KESTATUS_NO_DATA && sourceFailure == KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Cons, "SendRawFrames failed, st={}.", st);
    }
}

} // namespace

KESTATUS CmdTs2Av() {
    KEEthernetMacAddress destination;
    KESTATUS st = CheckArguments(destination);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    const std::string& fileName = gCmdLine.mArgs.front();

    // Before the device, so that it outlives it: a late signal does not cut the closing short.
    StopRequest stopRequest;
    QuaysideDevice device;
    std::string description;
    st = OpenRawTxDevice(device, FriendlyNameOption(), description);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "Open device failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Create AVTP sink...");
    AvtpSink sink;
    st = sink.CreateAvtpSink(device, destination.mMacAddr, static_cast<std::uint16_t>(gCmdLine.mUniqueId),
                             static_cast<std::uint16_t>(gCmdLine.mVlanTCI), 0);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateAvtpSink failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Create TS file source for file '{}'...", fileName);
    TSFileSource source;
    st = source.CreateTSFileSource(fileName.c_str(), sink, gCmdLine.mRewindFile,
                                   TSFileSource::cDefaultNumberOfPackets);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateTSFileSource failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Start AVTP sink on device {}...", description);
    st = sink.StartSink();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSink failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Start TS file source...");
    st = source.StartSource();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSource failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO,
                       "Send content of file '{}' as AVTP compliant stream, press any key to stop...",
                       fileName);
    LostFramesReport lostFrames("Frames not sent because the link was down or busy: {}");
    FailureReport failure("TS file source has ended, st={}.");
    WaitForEnd(source, sink, lostFrames, failure, stopRequest);

    KEOutputLogMessage(logger::Cons, KEINFO, "Stop TS file source...");
    source.StopSource();
    SendLastFrames(device, source.FailureStatus());
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop AVTP sink...");
    sink.StopSink();
    lostFrames.Print(sink.LostFrames());
    failure.Print(source.FailureStatus());
    return KESTATUS_SUCCESS;
}

} // namespace flowlane

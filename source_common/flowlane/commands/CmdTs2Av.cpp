#include <cstdint>
#include <string>

#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceReports.h"
#include "commands/DeviceSelection.h"
#include "commands/StatisticsLoop.h"
#include "commands/StopRequest.h"
#include "streaming/AvtpSink.h"
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

KESTATUS Create(QuaysideDevice& device, const KEEthernetMacAddress& destination, AvtpSink& sink,
                TSFileSource& source) {
    KEOutputLogMessage(logger::Cons, KEINFO, "Create AVTP sink...");
    KESTATUS st =
        sink.CreateAvtpSink(device, destination.mMacAddr, static_cast<std::uint16_t>(gCmdLine.mUniqueId),
                            static_cast<std::uint16_t>(gCmdLine.mVlanTCI), 0);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateAvtpSink failed, st={}.", st);
    }
    const std::string& fileName = gCmdLine.mArgs.front();
    KEOutputLogMessage(logger::Cons, KEINFO, "Create TS file source for file '{}'...", fileName);
    st = source.CreateTSFileSource(fileName.c_str(), sink, gCmdLine.mRewindFile,
                                   TSFileSource::cDefaultNumberOfPackets);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateTSFileSource failed, st={}.", st);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS Start(const std::string& deviceDescription, AvtpSink& sink, TSFileSource& source) {
    KEOutputLogMessage(logger::Cons, KEINFO, "Start AVTP sink on device {}...", deviceDescription);
    KESTATUS st = sink.StartSink();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSink failed, st={}.", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Start TS file source...");
    st = source.StartSource();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSource failed, st={}.", st);
    }
    return KESTATUS_SUCCESS;
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

private:
    const QuaysideDevice& mDevice;
    const TSFileSource& mSource;
    const AvtpSink& mSink;
    LostFramesReport mLostFrames = LostFramesReport("Frames not sent because the link was down or busy: {}");
    FailureReport mFailure = FailureReport(mDevice, "TS file source has ended, st={}.");
};

bool Reports::PrintStatistics() {
    const AvtpSink::Statistics sinkStats = mSink.QuerryStatistics();
    KEOutputLogMessage(logger::Cons, KEINFO,
                       "TS packets sent: {}, AVTP packets sent: {}, AVTP packets discarded: {}",
                       mSource.QuerryStatistics().infTsPacketsDelivered, sinkStats.infAvtpPacketsSent,
                       sinkStats.errNoResourcesToSent);
    const bool isEndReached = mSource.IsEndOfFileReached(); // read first: a failure until then is known
    PrintLossesAndFailure();
    if (isEndReached && mSource.FailureStatus() == KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Cons, KEINFO, "Successfully sent content of TS file...");
    }
    return isEndReached;
}

void Reports::PrintLossesAndFailure() {
    const KESTATUS failure = mSource.FailureStatus(); // read first: all losses until then are known
    mLostFrames.Print(mSink.LostFrames());
    mFailure.Print(failure);
}

// Sends the frames that wait in the device's queue: a batch that ends in a full frame is not flushed. A
// failure is reported unless the source has failed before.
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
    st = Create(device, destination, sink, source);
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
    SendLastFrames(device, source.FailureStatus());
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop AVTP sink...");
    sink.StopSink();
    reports.PrintLossesAndFailure();
    return KESTATUS_SUCCESS;
}

} // namespace flowlane

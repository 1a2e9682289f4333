#include <string>
#include <system_error>

#include "KEPosixTime.h"
#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceReports.h"
#include "commands/DeviceSelection.h"
#include "commands/StopRequest.h"
#include "kestatus_util.h"
#include "streaming/AvtpSource.h"
#include "streaming/RtpUdpSink.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cMaxPortNumber = 0xFFFF;
constexpr unsigned cStatisticsInterval = 1000; // ms

KESTATUS CheckPortNumberOption() {
    if (gCmdLine.mPortNumber <= cMaxPortNumber) {
        return KESTATUS_SUCCESS;
    }
    KEOutputLogMessage(logger::Cons, KEERROR, "port number {:#X} exceeds max. 0xFFFF.", gCmdLine.mPortNumber);
    return KESTATUS_INVALID_PARAMETER;
}

KESTATUS CheckArguments(KEEthernetMacAddress& sourceAddress) {
    KESTATUS st = CheckArgumentsPresent();
    if (st == KESTATUS_SUCCESS) {
        st = ReadMacAddressOption(sourceAddress);
    }
    if (st == KESTATUS_SUCCESS) {
        st = CheckUniqueIdOption();
    }
    return st == KESTATUS_SUCCESS ? CheckPortNumberOption() : st;
}

// What a status means; those of an errno have not all a text of their own.
std::string TextOf(KESTATUS st) {
    constexpr KESTATUS cErrnoMask = 0xFFFF;
    if ((st & ~cErrnoMask) == KESTATUS_LINUX_BASE) {
        return std::generic_category().message(static_cast<int>(st & cErrnoMask));
    }
    return KEStatusTextA(st);
}

// Tells of sends that failed since the last call. The datagrams are lost to the receiver, and nothing else
// on the console would say so.
class SendFailureReport {
public:
    void Print(const RtpUdpSink::Statistics& stats) {
        if (stats.errSendFailed != mReported) {
            mReported = stats.errSendFailed;
            KEOutputLogMessage(logger::Cons, KEWARN,
                               "UDP send failures: {}, UDP packets dropped: {}, last failure st={}: {}",
                               stats.errSendFailed, stats.errUdpPacketsDropped,
                               KEFormatArgKEStatus(stats.lastSendFailure), TextOf(stats.lastSendFailure));
        }
    }

private:
    std::uint64_t mReported = 0;
};

// Prints the statistics once a second until the user asks for the end: the stream itself has none.
void WaitForEnd(const AvtpSource& source, const RtpUdpSink& sink, SendFailureReport& sendFailures,
                LostFramesReport& lostFrames, FailureReport& failure, StopRequest& stopRequest) {
    while (!stopRequest.IsRequested()) {
        const AvtpSource::Statistics sourceStats = source.QuerryStatistics();
        const RtpUdpSink::Statistics sinkStats = sink.QuerryStatistics();
        KEOutputLogMessage(logger::Cons, KEINFO,
                           "AVTP packets received: {}, TS packets sent: {}, UDP packets sent: {}",
                           sourceStats.infAvtpPacketsReceived, sourceStats.infTsPacketsDelivered,
                           sinkStats.infUdpPacketsSent);
        const KESTATUS failureStatus = source.FailureStatus(); // behind it all losses until then are seen
        sendFailures.Print(sinkStats);
        lostFrames.Print(source.LostFrames());
        failure.Print(failureStatus);
        KEPosixSleep(cStatisticsInterval);
    }
}

} // namespace

KESTATUS CmdAv2Rtp() {
    KEEthernetMacAddress sourceAddress;
    KESTATUS st = CheckArguments(sourceAddress);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    const std::string& hostName = gCmdLine.mArgs.front();
    const auto port = static_cast<std::uint16_t>(gCmdLine.mPortNumber);

    // Before the device, so that it outlives it: a late signal does not cut the closing short.
    StopRequest stopRequest;
    QuaysideDevice device;
    std::string description;
    st = OpenRawRxDevice(device, FriendlyNameOption(), description, QBXRawHeaderType_None);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "Open device failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Create RTP sink, host name='{}', port={}...", hostName, port);
    RtpUdpSink sink;
    st = sink.CreateRtpUdpSink(hostName.c_str(), port, 0, true);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateRtpUdpSink failed, st={}.", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Host name '{}' resolved to address {}", hostName,
                       sink.SocketAddress());

    KEOutputLogMessage(logger::Cons, KEINFO, "Create AVTP source...");
    AvtpSource source;
    st = source.CreateAvtpSource(device, sink, sourceAddress.mMacAddr,
                                 static_cast<std::uint16_t>(gCmdLine.mUniqueId), gCmdLine.mUniqueIdPresent);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateAvtpSource failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Start RTP sink...");
    st = sink.StartSink();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSink failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Start AVTP source on device {}...", description);
    st = source.StartSource();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSource failed, st={}.", st);
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Receive AVTP compliant stream, press any key to stop...");
    SendFailureReport sendFailures;
    LostFramesReport lostFrames("Received frames lost because reading was too slow: {}");
    FailureReport failure("AVTP source has ended, st={}.");
    WaitForEnd(source, sink, sendFailures, lostFrames, failure, stopRequest);

    KEOutputLogMessage(logger::Cons, KEINFO, "Stop AVTP source...");
    source.StopSource();
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop RTP sink...");
    sink.StopSink();
    sendFailures.Print(sink.QuerryStatistics());
    lostFrames.Print(source.LostFrames());
    failure.Print(source.FailureStatus());
    return KESTATUS_SUCCESS;
}

} // namespace flowlane

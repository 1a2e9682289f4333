#include <cstdint>
#include <string>
#include <utility>

#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "commands/DeviceReports.h"
#include "commands/DeviceSelection.h"
#include "commands/ErrorStatus.h"
#include "commands/StatisticsLoop.h"
#include "commands/StopRequest.h"
#include "explanations/DeviceName.h"
#include "explanations/Explain.h"
#include "explanations/NetworkFailures.h"
#include "explanations/NetworkReception.h"
#include "streaming/AvtpSource.h"
#include "streaming/RtpUdpSink.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cMaxPortNumber = 0xFFFF;

KESTATUS CheckPortNumberOption() {
    if (gCmdLine.mPortNumber <= cMaxPortNumber) {
        return KESTATUS_SUCCESS;
    }
    KEOutputLogMessage(logger::Cons, KEERROR, "port number {:#X} exceeds max. 0xFFFF.", gCmdLine.mPortNumber);
    return KESTATUS_INVALID_PARAMETER;
}

KESTATUS CheckArguments(KEEthernetMacAddress& sourceAddress) {
    const KESTATUS st = CheckStreamArguments(sourceAddress);
    return st == KESTATUS_SUCCESS ? CheckPortNumberOption() : st;
}

KESTATUS Create(QuaysideDevice& device, const KEEthernetMacAddress& sourceAddress, RtpUdpSink& sink,
                AvtpSource& source) {
    const std::string& hostName = gCmdLine.mArgs.front();
    const auto port = static_cast<std::uint16_t>(gCmdLine.mPortNumber);
    KEOutputLogMessage(logger::Cons, KEINFO, "Create RTP sink, host name='{}', port={}...", hostName, port);
    KESTATUS st = sink.CreateRtpUdpSink(hostName.c_str(), port, 0, true);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Cons, "CreateRtpUdpSink failed, st={}.", st);
        Explain("{}", sink.LookupError() != 0 ? WordsForUnknownHost(hostName, sink.LookupError())
                                              : WordsForUnreachableHost(sink.SocketAddress(), st));
        return st;
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Host name '{}' resolved to address {}", hostName,
                       sink.SocketAddress());
    KEOutputLogMessage(logger::Cons, KEINFO, "Create AVTP source...");
    st = source.CreateAvtpSource(device, sink, sourceAddress.mMacAddr,
                                 static_cast<std::uint16_t>(gCmdLine.mUniqueId), gCmdLine.mUniqueIdPresent);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "CreateAvtpSource failed, st={}.", st);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS Start(const std::string& deviceDescription, RtpUdpSink& sink, AvtpSource& source) {
    KEOutputLogMessage(logger::Cons, KEINFO, "Start RTP sink...");
    KESTATUS st = sink.StartSink();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSink failed, st={}.", st);
    }
    KEOutputLogMessage(logger::Cons, KEINFO, "Start AVTP source on device {}...", deviceDescription);
    st = source.StartSource();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Cons, "StartSource failed, st={}.", st);
    }
    return KESTATUS_SUCCESS;
}

// Reports sends that failed since the last call. The datagrams are late or lost to the receiver, and nothing
// else on the console would say so.
class SendFailureReport {
public:
    explicit SendFailureReport(std::string receiver) : mReceiver(std::move(receiver)) {}
    void Print(const RtpUdpSink::Statistics& stats) {
        if (stats.errSendFailed != mFailed || stats.errUdpPacketsDropped != mDropped) {
            mFailed = stats.errSendFailed;
            mDropped = stats.errUdpPacketsDropped;
            Explain("{}", WordsForSendFailures(mReceiver, stats));
        }
    }

private:
    std::string mReceiver;
    std::uint64_t mFailed = 0;
    std::uint64_t mDropped = 0;
};

// What the user is told while the stream is forwarded.
class Reports {
public:
    Reports(const QuaysideDevice& device, const AvtpSource& source, const RtpUdpSink& sink)
        : mDevice(device), mSource(source), mSink(sink), mSendFailures(ReceiverOf(sink)) {}

    void PrintStatistics();
    // Only what is new since the last call.
    void PrintLossesAndFailures(const RtpUdpSink::Statistics& sinkStats);
    // What was wrong with the stream, when source and sink are stopped. Returns the exit status.
    [[nodiscard]] KESTATUS PrintSummary(const std::string& deviceName);

private:
    static std::string ReceiverOf(const RtpUdpSink& sink) {
        return AddressWithPort(sink.SocketAddress(), static_cast<std::uint16_t>(gCmdLine.mPortNumber));
    }

    const QuaysideDevice& mDevice;
    const AvtpSource& mSource;
    const RtpUdpSink& mSink;
    bool mHasRun = false; // not stopped during the start
    SendFailureReport mSendFailures;
    LostFramesReport mLostFrames = LostFramesReport("Received frames lost because reading was too slow: {}");
    FailureReport mFailure = FailureReport(mDevice, "AVTP source has ended, st={}.");
};

void Reports::PrintStatistics() {
    mHasRun = true;
    const AvtpSource::Statistics sourceStats = mSource.QuerryStatistics();
    const RtpUdpSink::Statistics sinkStats = mSink.QuerryStatistics();
    KEOutputLogMessage(
        logger::Cons, KEINFO, "AVTP packets received: {}, TS packets sent: {}, UDP packets sent: {}",
        sourceStats.infAvtpPacketsReceived, sourceStats.infTsPacketsDelivered, sinkStats.infUdpPacketsSent);
    PrintLossesAndFailures(sinkStats);
}

void Reports::PrintLossesAndFailures(const RtpUdpSink::Statistics& sinkStats) {
    const KESTATUS failure = mSource.FailureStatus(); // read first: all losses until then are known
    mSendFailures.Print(sinkStats);
    mLostFrames.Print(mSource.LostFrames());
    mFailure.Print(failure);
}

KESTATUS Reports::PrintSummary(const std::string& deviceName) {
    const AvtpSource::Statistics stats = mSource.QuerryStatistics();
    const RtpUdpSink::Statistics sinkStats = mSink.QuerryStatistics();
    const KESTATUS failure = mSource.FailureStatus();
    PrintLossesAndFailures(sinkStats);
    const std::string nothing =
        mHasRun && failure == KESTATUS_SUCCESS ? WordsForNothingForwarded(stats, deviceName) : "";
    for (const std::string& line : {nothing, WordsForGaps(stats), WordsForDamage(stats)}) {
        if (!line.empty()) {
            Explain("{}", line);
        }
    }
    ErrorStatus errorStatus;
    errorStatus.Note(failure);
    errorStatus.NoteIf(sinkStats.errUdpPacketsDropped != 0 || sinkStats.errUdpPacketsRefused != 0,
                       sinkStats.lastSendFailure);
    errorStatus.NoteIf(mSource.LostFrames() != 0 || stats.errGaps != 0, KESTATUS_NO_RESOURCES);
    errorStatus.NoteIf(stats.errFramesDamaged != 0, KESTATUS_INVALID_DATA);
    return errorStatus.ExitStatus();
}

} // namespace

KESTATUS CmdAv2Rtp() {
    KEEthernetMacAddress sourceAddress;
    KESTATUS st = CheckArguments(sourceAddress);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }

    // Before the device, so that it outlives it: a late signal does not cut the closing short.
    StopRequest stopRequest;
    QuaysideDevice device;
    std::string description;
    st = OpenRawRxDevice(device, FriendlyNameOption(), description, QBXRawHeaderType_None);
    if (st != KESTATUS_SUCCESS) {
        return ReportFailedOpening(DeviceUse::Receive, st);
    }
    ExplainCommandLine(&device);
    RtpUdpSink sink;
    AvtpSource source;
    st = Create(device, sourceAddress, sink, source);
    if (st == KESTATUS_SUCCESS) {
        st = Start(description, sink, source);
    }
    if (st != KESTATUS_SUCCESS) {
        return st;
    }

    KEOutputLogMessage(logger::Cons, KEINFO, "Receive AVTP compliant stream, press any key to stop...");
    Reports reports(device, source, sink);
    PrintStatisticsUntilEnd(stopRequest, [&] {
        reports.PrintStatistics();
        return false; // the stream has no end
    });

    KEOutputLogMessage(logger::Cons, KEINFO, "Stop AVTP source...");
    source.StopSource();
    KEOutputLogMessage(logger::Cons, KEINFO, "Stop RTP sink...");
    sink.StopSink();
    return reports.PrintSummary(DeviceName(device));
}

} // namespace flowlane

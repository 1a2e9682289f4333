#include "commands/CmdLine.h"

#include "base/LogCons.h"
#include "commands/BuildTime.h"
#include "commands/Commands.h"
#include "explanations/CommandLineErrors.h"
#include "explanations/DeviceInspection.h"
#include "explanations/Explain.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr const char* cProgramName = "flowlane";

} // namespace

KESTATUS CmdLine::ParseCommandLine(int argc, const char* const* argv) {
    KECmdLineParserT<char> parser(cProgramName, &mArgs, nullptr);
    DefineCommandLine(parser);
    const KESTATUS st = parser.ParseCommandLine(argc, argv);
    mGivenOptions = parser.Occurrences();
    if (st == KESTATUS_SUCCESS && mShowHelp) {
        mCommand = gCommands.help;
    }
    return st;
}

void CmdLine::ExplainFailure(KESTATUS st) const {
    std::string line;
    if (st == KESTATUS_UNKNOWN_OPTION) {
        line = WordsForUnknownOption(mGivenOptions.back().mWord);
    } else if (st == KESTATUS_MISSING_VALUE) {
        line = WordsForRefusedValue(mGivenOptions.back(), {});
    } else if (st == KESTATUS_INVALID_FORMAT) {
        line = WordsForRefusedValue(mGivenOptions.back(),
                                    DeviceInspection(DeviceInspection::Selection::AsSet).Names());
    }
    if (!line.empty()) {
        Explain("{}", line);
    }
}

void CmdLine::DefineCommandLine(KECmdLineParserT<char>& parser) {
    parser.DefineArgument(mCommand, {false}, nullptr);
    parser.DefineOption(mShowHelp, {"h", "help", false}, nullptr);
    parser.DefineOption(mVerbose, {"v", "verbose", false}, nullptr);
    parser.DefineOption(mRewindFile, {"l", "loop", false}, nullptr);
    parser.DefineOption(mReplaceSourceMacAddr, {"flsm", "force_local_source_mac", false}, nullptr);
    parser.DefineOptionWithValue(mMacAddress, {"m", "mac_address", false}, nullptr);
    parser.DefineOptionWithValue(mFriendlyName, {"n", "friendly_name", false}, nullptr);
    parser.DefineOptionWithValue(mUniqueId, {"u", "unique_id", false}, &mUniqueIdPresent);
    parser.DefineOptionWithValue(mDeviceIndex, {"d", "device_instance", false}, nullptr);
    parser.DefineOptionWithValue(mPortNumber, {"p", "port_number", false}, nullptr);
    parser.DefineOptionWithValue(mFrameCount, {"fbs", "frame_buffer_size", false}, nullptr);
    parser.DefineOptionWithValue(mMaxFileSizeKB, {"maxkb", "max_file_size_KB", false}, nullptr);
    parser.DefineOptionWithValue(mMaxFileSizeMB, {"maxmb", "max_file_size_MB", false}, nullptr);
    parser.DefineOptionWithValue(mVlanTCI, {"vtci", "vlan_tci", false}, nullptr);
    parser.DefineOptionWithValue(mStartFileIndex, {"i", "index", false}, &mStartFileIndexPresent);
    // The options below are not in the help text.
    parser.DefineOption(mErrorStatus, {"es", "error_status", false}, nullptr);
    parser.DefineOption(mPreciseTiming, {"pt", "precise_timing", false}, nullptr);
    parser.DefineOption(mRebaseClock, {"rc", "rebase_clock", false}, nullptr);
}

// NOLINTNEXTLINE(readability-function-size): one text
void PrintHelp() {
    const CmdLine defaults;
    const auto line = [](const char* format, const auto&... args) {
        KEOutputLogMessage(logger::Cons, KEINFO, format, args...);
    };
    line("");
    line("flowlane v{}.{:02}.{} ({} {})", FLOWLANE_VERSION_MAJOR, FLOWLANE_VERSION_MINOR,
         FLOWLANE_VERSION_PATCH, BuildDate(), BuildTimeOfDay());
    line("");
    line("Usage:");
    line("");
    line("  {} {}", cProgramName, gCommands.help);
    line("    Display this help text and exit.");
    line("");
    line("  {} {} <ts-file> [-l] [-m <desination_mac_address>] [-vtci <number>] [-u <unique_id>] "
         "[-d <index> | -n <name>]",
         cProgramName, gCommands.ts2av);
    line("    Open the specified H.264/H.265 TS file and send contents as IEEE P1722 AVTP compliant stream.");
    line("    Option -m defines destination MAC address in the generated Ethernet header.");
    line("    Option -u defines the 16-bit Unique ID field of the StreamID in the generated AVTP header.");
    line("");
    line("  {} {} <destination_host> [-p <port_number>] [-m <source_mac_address>] [-u <unique_id>] "
         "[-d <index> | -n <name>]",
         cProgramName, gCommands.av2rtp);
    line("    Receive an IEEE P1722 AVTP compliant stream, convert it to an RTP/UDP stream, and forward it "
         "to the specified host.");
    line("    Option -m activates filtering by source MAC address in Ethernet header.");
    line("    Option -u activates filtering by 16-bit Unique ID field of the StreamID in the AVTP header.");
    line("");
    line("  {} {} <filename> [-fbs <frames>] [-maxkb <size> | -maxmb <size>] [-d <index> | -n <name>]",
         cProgramName, gCommands.pcap);
    line("    Capture Ethernet frames and write them to a pcap-ng file. Suffix .pcapng will be appended to "
         "the specified filename.");
    line("");
    line("  {} {} <filename> [-l] [-flsm] [-i] [-fbs <frames>] [-d <index> | -n <name>]", cProgramName,
         gCommands.playpcap);
    line("    Replay Ethernet frames from the specified pcap-ng file or a file set.");
    line("    Option -i activates playback of a file set and specifies the index of the first file in the "
         "file set.");
    line("");
    line("Options:");
    line("  -h --help");
    line("    Display this help text and exit.");
    line("  -v --verbose");
    line("    Enable verbose mode.");
    line("  -d --device_instance");
    line("    Zero-based index of the device instance to use, default {}.", defaults.mDeviceIndex);
    line("  -n --friendly_name");
    line("    Friendly name of the device instance to use.");
    line("  -u --unique_id <ID>");
    line("    Unique ID (16 bits) used in the IEEE 802.1Qat StreamID, default {}.", defaults.mUniqueId);
    line("  -m --mac_address <MAC address>");
    line("    Source/destination MAC address specified as string with 12 characters (e.g. '112233445566').");
    line("    Defaults to FF-FF-FF-FF-FF-FF (the broadcast address) if this option is not specified.");
    line("  -vtci --vlan_tci <number>");
    line("    Specifies the VLAN tag control information (TCI) for the sent Ethernet frames, zero for no "
         "VLAN (default).");
    line("  -l --loop");
    line("    Rewind the file to the beginning when end of file is reached.");
    line("  -p --port_number <number>");
    line("    Port number to be used, default {}.", defaults.mPortNumber);
    line("  -fbs --frame_buffer_size <frames>");
    line("    Size of the intermediate buffer in frames, default {} frames.", defaults.mFrameCount);
    line("  -maxkb --max_file_size_KB <size>");
    line("    Max size of a pcap-ng file in kilobytes (1'000 bytes), zero for no limit (default).");
    line("  -maxmb --max_file_size_MB <size>");
    line("    Max size of a pcap-ng file in megabytes (1'000'000 bytes), zero for no limit (default).");
    line("  -flsm --force_local_source_mac");
    line("    In each Ethernet frame, replace the source MAC address with the one of the local device.");
    line("  -i --index");
    line("    Index of the first file in the file set, default {}.", defaults.mStartFileIndex);
    line("");
}

void PrintUsageHint() {
    KEOutputLogMessage(logger::Cons, KEERROR, "For usage information, run {} {}.", cProgramName,
                       gCommands.help);
}

} // namespace flowlane

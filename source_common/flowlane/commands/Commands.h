// The command words, in the order in which they are compared.
#ifndef FLOWLANE_COMMANDS_H
#define FLOWLANE_COMMANDS_H

#include <string>

#include "kestatus.h"

namespace flowlane {

struct Commands {
    std::string help = "help";
    std::string ts2av = "ts2av";
    std::string av2rtp = "av2rtp";
    std::string pcap = "pcap";
    std::string playpcap = "playpcap";
};

extern const Commands gCommands;

// The command drivers. Each runs on the main thread, reads its settings from gCmdLine and returns when its
// input has ended or the user asks for the end. The status is the exit code of the program; what failed has
// been printed.

// Sends a transport stream file as an IEEE 1722 stream, paced by its own clock references.
[[nodiscard]] KESTATUS CmdTs2Av();

// Receives an IEEE 1722 stream and forwards its transport stream as RTP over UDP.
[[nodiscard]] KESTATUS CmdAv2Rtp();

// Captures Ethernet frames to a pcap-ng file or a numbered set of files.
[[nodiscard]] KESTATUS CmdPcap();

// Replays a pcap-ng file or a numbered set of files with the recorded timing.
[[nodiscard]] KESTATUS CmdPlayPcap();

} // namespace flowlane

#endif

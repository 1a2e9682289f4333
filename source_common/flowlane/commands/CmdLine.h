// The settings of a run. The command line is parsed once, before anything else happens; from then on they
// are only read, from any thread. An option writes one member. -u and -i also note that they were given, and
// -h also replaces the command word. All options are also kept as they were given.
#ifndef FLOWLANE_CMDLINE_H
#define FLOWLANE_CMDLINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "explanations/CommandLineOptions.h"
#include "kestatus.h"
#include "text/KEUnicode.h"
#include "values/KECmdLineParser.h"

namespace flowlane {

class CmdLine {
public:
    // Parses the words of the command line into the members. A failure is that of the parser, which has
    // printed it to standard error.
    [[nodiscard]] KESTATUS ParseCommandLine(int argc, const char* const* argv);

    // For a failure of ParseCommandLine: says what was probably meant. Prints to the Cons logger.
    void ExplainFailure(KESTATUS st) const;

    // Defines the command word and the options, which the parser writes into the members. The object must
    // outlive the parser.
    void DefineCommandLine(kestrelon::KECmdLineParserT<char>& parser);

    std::string mCommand;                     // the first positional word
    bool mShowHelp = false;                   // -h
    bool mVerbose = false;                    // -v
    bool mRewindFile = false;                 // -l
    bool mUniqueIdPresent = false;            // -u, whatever its value
    bool mReplaceSourceMacAddr = false;       // -flsm
    bool mStartFileIndexPresent = false;      // -i, whatever its value
    std::vector<std::string> mArgs;           // the positional words after the first
    std::string mMacAddress;                  // -m: destination (ts2av) or source filter (av2rtp)
    kestrelon::KEUnicodeString mFriendlyName; // -n
    std::uint32_t mUniqueId = 0;              // -u
    std::uint32_t mDeviceIndex = 0;           // -d
    std::uint32_t mPortNumber = 5000;         // -p
    std::uint32_t mFrameSize = 1522;          // bytes of one frame buffer; no option sets it
    std::uint32_t mFrameCount = 20000;        // -fbs: number of frame buffers
    std::uint32_t mMaxFileSizeKB = 0;         // -maxkb: units of 1000 bytes, 0: no limit
    std::uint32_t mMaxFileSizeMB = 0;         // -maxmb: units of 1000000 bytes, 0: no limit
    std::uint32_t mVlanTCI = 0;               // -vtci: 0: no VLAN tag
    std::uint32_t mStartFileIndex = 1;        // -i
    bool mErrorStatus = false;                // -es: the exit code says what was lost, see ErrorStatus.h
    bool mPreciseTiming = false;              // -pt: sleep until what is next is due (ts2av, playpcap)
    bool mRebaseClock = false;                // -rc: pacing goes on over breaks of the clock (ts2av)
    std::vector<GivenOption> mGivenOptions;   // in their order; one that was refused is the last
};

extern CmdLine gCmdLine;

// Both print to the Cons logger.

// The help text, with the built-in defaults.
void PrintHelp();
// A line that names the command for help.
void PrintUsageHint();

} // namespace flowlane

#endif

// The settings of a run, filled once from the command line before anything else happens and only read
// afterwards. Each option writes exactly one member.
#ifndef FLOWLANE_CMDLINE_H
#define FLOWLANE_CMDLINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "kestatus.h"
#include "text/KEUnicode.h"
#include "values/KECmdLineParser.h"

namespace flowlane {

class CmdLine {
public:
    // Parses the words of the command line into the members. A problem has been printed to standard error
    // when this returns a failure. -h replaces the command word by "help".
    KESTATUS ParseCommandLine(int argc, const char* const* argv);

    // Tells the parser of the command word and the options, which it writes into the members. The object
    // outlives the parser.
    void DefineCommandLine(kestrelon::KECmdLineParserT<char>& parser);

    std::string mCommand;                     // the first positional word
    bool mShowHelp = false;                   // -h
    bool mVerbose = false;                    // -v
    bool mRewindFile = false;                 // -l
    bool mUniqueIdPresent = false;            // -u was given
    bool mReplaceSourceMacAddr = false;       // -flsm
    bool mStartFileIndexPresent = false;      // -i was given
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
};

extern CmdLine gCmdLine;

// Prints the help text; the defaults it shows are the built-in ones.
void PrintHelp();
// Tells where the help is to be found.
void PrintUsageHint();

} // namespace flowlane

#endif

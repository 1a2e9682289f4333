#include "program/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <exception>
#include <new>

#include "KELinuxLogging.h"
#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/CommandChecks.h"
#include "commands/Commands.h"
#include "explanations/CommandLineErrors.h"
#include "explanations/Explain.h"
#include "program/LogTargetObjects.h"
#include "program/VerboseTarget.h"
#include "quayside2_api.h"

namespace flowlane {

using namespace kestrelon;

namespace {

// Opens the null device for each standard stream that is missing. Otherwise a file that is opened later would
// get its number, and with it the lines for the console.
void OccupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            // The lowest free number is this one, since all below are taken.
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY));
        }
    }
}

// The messages of the stages and the toolbox, which are not printed otherwise.
void ShowGlobalMessages() {
    static VerboseTarget sTarget;
    for (KELogger* const logger : {&logger::Global, &logger::Cons}) {
        static_cast<void>(KEAttachLogTargetToLogger(sTarget, *logger)); // has a free slot
    }
}

KESTATUS RunCommand() {
    if (gCmdLine.mCommand == gCommands.help) {
        PrintHelp();
        return KESTATUS_SUCCESS;
    }
    if (gCmdLine.mCommand == gCommands.ts2av) {
        return CmdTs2Av();
    }
    if (gCmdLine.mCommand == gCommands.av2rtp) {
        return CmdAv2Rtp();
    }
    if (gCmdLine.mCommand == gCommands.pcap) {
        return CmdPcap();
    }
    if (gCmdLine.mCommand == gCommands.playpcap) {
        return CmdPlayPcap();
    }
    KEOutputLogMessage(logger::Cons, KEERROR, "Invalid command {}.", gCmdLine.mCommand);
    PrintUsageHint();
    Explain("{}", WordsForUnknownCommand(gCmdLine.mCommand, gCmdLine.mArgs));
    return KESTATUS_INVALID_COMMAND;
}

std::uint16_t MajorOf(std::uint32_t apiVersion) {
    return static_cast<std::uint16_t>(apiVersion >> 16);
}

std::uint16_t MinorOf(std::uint32_t apiVersion) {
    return static_cast<std::uint16_t>(apiVersion);
}

int Run(int argc, const char* const* argv) {
    // A failure goes to the system log, and the work goes on without.
    static_cast<void>(KELinuxInitLoggingFacility(nullptr, nullptr));
    static_cast<void>(KEAttachLogTargetToLogger(gLogTargets.Console, logger::Cons)); // has a free slot
    KESetLevelForAllLoggers(KEINFO);

    if (!QBX_CheckApiVersion(QBX_API_VERSION_MAJOR, QBX_API_VERSION_MINOR)) {
        KEOutputLogMessage(logger::Cons, KEERROR, "The DLL is incompatible with this application.");
        Explain("The device library has interface version {}.{:02}, and flowlane needs {}.{:02}. Is "
                "LD_LIBRARY_PATH set to another library?",
                MajorOf(QBX_GetApiVersion()), MinorOf(QBX_GetApiVersion()), QBX_API_VERSION_MAJOR,
                QBX_API_VERSION_MINOR);
        return -1;
    }
    const std::uint32_t apiVersion = QBX_GetApiVersion();
    KEOutputLogMessage(logger::Cons, KEINFO, "Quayside library API Version {}.{:02}.", MajorOf(apiVersion),
                       MinorOf(apiVersion));

    KESTATUS st = gCmdLine.ParseCommandLine(argc, argv);
    if (st != KESTATUS_SUCCESS) {
        PrintUsageHint();
        gCmdLine.ExplainFailure(st);
        return static_cast<int>(st);
    }
    if (gCmdLine.mVerbose) {
        KESetLevelForAllLoggers(KEMAXLEVEL);
        ShowGlobalMessages();
    }
    st = RunCommand();
    if (st != KESTATUS_SUCCESS && st != KESTATUS_INVALID_COMMAND) {
        ExplainCommandLine(nullptr); // unless it was explained when the device was open
    }
    return static_cast<int>(st);
}

} // namespace

int RunProgram(int argc, const char* const* argv) {
    OccupyStandardDescriptors();
    // A console that nobody reads any more must not end a recording. Nor must the limit of a file's size:
    // there the write fails.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (const std::bad_alloc&) {
        KEOutputLogMessage(logger::Cons, KEFATAL, "Out of memory.");
        return static_cast<int>(KESTATUS_NO_MEMORY);
    } catch (const std::exception& exception) {
        KEOutputLogMessage(logger::Cons, KEFATAL, "Unexpected failure: {}", exception.what());
        return static_cast<int>(KESTATUS_INTERNAL_ERROR);
    }
}

} // namespace flowlane

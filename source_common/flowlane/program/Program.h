// The whole program, from its first line to its exit code. On the main thread.
#ifndef FLOWLANE_PROGRAM_H
#define FLOWLANE_PROGRAM_H

namespace flowlane {

// Sets up logging, checks the device library, parses the command line and runs the command. Returns the
// status of the command, or -1 when the device library is incompatible. Call it once.
int RunProgram(int argc, const char* const* argv);

} // namespace flowlane

#endif

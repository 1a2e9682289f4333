// The program from its first line to its exit code.
#ifndef FLOWLANE_PROGRAM_H
#define FLOWLANE_PROGRAM_H

namespace flowlane {

// Sets up logging, checks the device library, parses the command line and runs the command. Returns the
// command's status, or -1 when the device library is incompatible. Call it once.
int RunProgram(int argc, const char* const* argv);

} // namespace flowlane

#endif

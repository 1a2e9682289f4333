// Why a file that the user has named cannot be read. Looks at the file once more, after the failure, and
// never waits. On the main thread.
#ifndef FLOWLANE_FILEEXPLANATION_H
#define FLOWLANE_FILEEXPLANATION_H

#include <string>

namespace flowlane {

// Prints one line if the file is missing, not readable, a folder or empty, and returns whether it did. A
// failure of the look itself prints nothing.
bool ExplainUnreadableFile(const std::string& path);

// A path for a line: of a very long one only the end, behind "...".
std::string ShortPath(const std::string& path);

// A whole path as a word of a command, in quotes; FILE when it is too long for a line.
std::string CommandPath(const std::string& path);
// The same with quotes only where the shell needs them, and with a placeholder of the caller.
std::string BareCommandPath(const std::string& path, const char* placeholder);

} // namespace flowlane

#endif

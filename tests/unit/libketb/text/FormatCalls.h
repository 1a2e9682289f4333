// Finds the format strings in a source text of this project, with the number of arguments each gets.
//
// The text is split into tokens, not compiled, so that the rules are simple: a string in the argument list of
// a call is a format when it holds a bracket, or when it is the first string in a call of a function that
// formats. The arguments behind it are what it is filled with. Calls of the printf family are passed over:
// the compiler checks those.
#ifndef FLOWLANE_TESTS_FORMATCALLS_H
#define FLOWLANE_TESTS_FORMATCALLS_H

#include <cstddef>
#include <string>
#include <vector>

namespace testsupport {

struct FormatCall {
    unsigned line;        // of the string's first piece
    std::string function; // as called; the type's name where an object is declared
    std::string format;
    std::size_t arguments;
};

// A string with a bracket that no call takes, so that nobody knows its arguments.
struct StrayFormat {
    unsigned line;
    std::string format;
};

struct FormatCalls {
    std::vector<FormatCall> calls;
    std::vector<StrayFormat> strays;
};

FormatCalls FindFormatCalls(const std::string& source);

} // namespace testsupport

#endif

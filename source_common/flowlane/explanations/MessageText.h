// Names, lists of names and words of commands in messages. No function asks the system for anything. From any
// thread; all throw std::bad_alloc.
#ifndef FLOWLANE_MESSAGETEXT_H
#define FLOWLANE_MESSAGETEXT_H

#include <cstddef>
#include <string>
#include <vector>

namespace flowlane {

constexpr std::size_t cMaxShownBytes = 80;

// A text that a terminal may show: control characters become '?', and what is beyond maxBytes becomes "...".
std::string Printable(const std::string& text, std::size_t maxBytes = cMaxShownBytes);
// The same in '...'.
std::string Quoted(const std::string& text);

// A word that a shell reads as this text: as it stands where that is safe, otherwise in quotes. It has no
// control characters.
std::string ShellWord(const std::string& text);
// The same, with "..." for what is beyond cMaxShownBytes of the text.
std::string ShortShellWord(const std::string& text);
// ShellWord for the path of a file. One that begins with "-" gets "./" in front, so that it is no option.
std::string ShellPath(const std::string& path);
// The same, in quotes also where it needs none.
std::string QuotedShellPath(const std::string& path);

// "a", "a or b", "a, b or c" for the last separator " or ".
std::string JoinedBy(const char* lastSeparator, const std::vector<std::string>& words);
// "a, b, c", of at most maxBytes and the words for the rest: "a, b and 7 more".
std::string JoinedList(const std::vector<std::string>& items, std::size_t maxBytes = 320);

} // namespace flowlane

#endif

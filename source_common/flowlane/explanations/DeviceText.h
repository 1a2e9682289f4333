// Names and lists of names in messages. No function asks the system for anything. All throw std::bad_alloc.
#ifndef FLOWLANE_DEVICETEXT_H
#define FLOWLANE_DEVICETEXT_H

#include <cstddef>
#include <string>
#include <vector>

namespace flowlane::devicetext {

// A text that a terminal may show: control characters become '?', and what is beyond maxBytes becomes "...".
std::string Printable(const std::string& text, std::size_t maxBytes = 80);

// A word that a shell reads as this text: as it stands where that is safe, otherwise in quotes. It has no
// control characters.
std::string ShellWord(const std::string& text);

// "a, b, c", of at most maxBytes and the words for the rest: "a, b and 7 more".
std::string JoinedList(const std::vector<std::string>& items, std::size_t maxBytes = 320);

// The order in which to show names, as indexes: first those that differ from the wanted one in case alone or
// in at most two letters, the nearest first, then all others as they stand.
std::vector<unsigned> NearestFirst(const std::vector<std::string>& names, const std::string& wanted);

} // namespace flowlane::devicetext

#endif

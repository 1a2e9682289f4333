// Finds the word that somebody probably meant. From any thread; all throw std::bad_alloc.
#ifndef FLOWLANE_WORDMATCH_H
#define FLOWLANE_WORDMATCH_H

#include <cstddef>
#include <string>
#include <vector>

namespace flowlane {

// How many characters have to be inserted, left out, replaced or swapped with their neighbour to turn one
// word into the other.
std::size_t WordDistance(const std::string& left, const std::string& right);

// The text without upper case letters of ASCII.
std::string LowerCase(std::string text);

// The candidates that the word may stand for, in their order. Those that differ only in upper and lower case
// come before those that begin with the word or have it as a part between underscores, and these before
// those that are misspelled. Empty when nothing is near.
std::vector<std::string> NearestWords(const std::string& word, const std::vector<std::string>& candidates);

// The order in which to show names, as indexes: first those that differ from the wanted one in case alone or
// in at most two faults, the nearest first, then all others as they stand.
std::vector<unsigned> NearestFirst(const std::vector<std::string>& names, const std::string& wanted);

} // namespace flowlane

#endif

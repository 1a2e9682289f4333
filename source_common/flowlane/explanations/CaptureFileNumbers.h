// Which files of a numbered set are on the disk. From any thread; all throw std::bad_alloc.
#ifndef FLOWLANE_CAPTUREFILENUMBERS_H
#define FLOWLANE_CAPTUREFILENUMBERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace flowlane {

// The number of a file of the set "stem_00001extension", "stem_00002extension", ...; nothing for any other
// name.
std::optional<std::uint32_t> NumberInFileName(const std::string& name, const std::string& stem,
                                              const std::string& extension);

// The numbers that exist, in ascending order. folder is empty for the current one. Looks at a limited number
// of files; a folder that cannot be read has none.
std::vector<std::uint32_t> FileNumbersOnDisk(const std::string& folder, const std::string& stem,
                                             const std::string& extension);

// "1-7, 9, 12-13". Of many ranges only the first, and "..." behind them. numbers is in ascending order.
std::string RangesText(const std::vector<std::uint32_t>& numbers);

} // namespace flowlane

#endif

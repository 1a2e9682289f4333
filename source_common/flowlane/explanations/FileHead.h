// The first bytes of a file, for telling what kind of file it is. On the main thread.
#ifndef FLOWLANE_FILEHEAD_H
#define FLOWLANE_FILEHEAD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace flowlane {

using FileHead = std::vector<std::uint8_t>;

// At most size bytes. Empty when they cannot be read, or when the file is no regular one: it does not wait
// for a pipe or a device. Throws std::bad_alloc.
FileHead ReadFileHead(const std::string& path, std::size_t size);

} // namespace flowlane

#endif

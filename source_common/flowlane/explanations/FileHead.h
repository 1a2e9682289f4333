// The first bytes of a file, and the kinds of files that more than one explanation knows by them.
#ifndef FLOWLANE_FILEHEAD_H
#define FLOWLANE_FILEHEAD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace flowlane {

using FileHead = std::vector<std::uint8_t>;

// At most size bytes. Empty when they cannot be read, or when the file is no regular one: it does not wait
// for a pipe or a device. On the main thread. Throws std::bad_alloc.
FileHead ReadFileHead(const std::string& path, std::size_t size);

// Whether these bytes stand at the offset. This and what follows: from any thread.
bool HasBytes(const FileHead& head, std::size_t offset, std::string_view bytes) noexcept;
// A classic pcap file, with times in micro- or in nanoseconds, in either byte order.
bool IsClassicPcap(const FileHead& head) noexcept;
// A file that begins with a section header block of pcap-ng, whatever follows.
bool IsPcapNg(const FileHead& head) noexcept;

} // namespace flowlane

#endif

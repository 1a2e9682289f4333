#include "explanations/FileHead.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace flowlane {

using namespace std::string_view_literals;

namespace {

// Times in microseconds, then in nanoseconds.
constexpr std::string_view cPcapMarks[] = {
    "\xA1\xB2\xC3\xD4"sv,
    "\xD4\xC3\xB2\xA1"sv,
    "\xA1\xB2\x3C\x4D"sv,
    "\x4D\x3C\xB2\xA1"sv,
};
constexpr std::string_view cSectionHeader = "\x0A\x0D\x0D\x0A"sv;

FileHead ReadBytes(int descriptor, std::size_t size) {
    FileHead head(size);
    std::size_t length = 0;
    while (length < size) {
        const ssize_t count = read(descriptor, head.data() + length, size - length);
        if (count <= 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    head.resize(length);
    return head;
}

} // namespace

FileHead ReadFileHead(const std::string& path, std::size_t size) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        return {};
    }
    FileHead head = ReadBytes(descriptor, size);
    close(descriptor);
    return head;
}

bool HasBytes(const FileHead& head, std::size_t offset, std::string_view bytes) noexcept {
    const std::string_view all(reinterpret_cast<const char*>(head.data()), head.size());
    return all.size() >= offset + bytes.size() && all.substr(offset, bytes.size()) == bytes;
}

bool IsClassicPcap(const FileHead& head) noexcept {
    return std::any_of(std::begin(cPcapMarks), std::end(cPcapMarks),
                       [&](std::string_view mark) { return HasBytes(head, 0, mark); });
}

bool IsPcapNg(const FileHead& head) noexcept {
    return HasBytes(head, 0, cSectionHeader);
}

} // namespace flowlane

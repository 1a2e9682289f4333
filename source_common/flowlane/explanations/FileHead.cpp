#include "explanations/FileHead.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace flowlane {

namespace {

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

} // namespace flowlane

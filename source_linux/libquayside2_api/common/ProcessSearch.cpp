#include "common/ProcessSearch.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <system_error>

namespace quayside2 {

namespace {

namespace fs = std::filesystem;

// The entries of a folder of /proc; none when it may not be read. A process may end meanwhile.
template <typename Visit>
void ForEachEntry(const fs::path& folder, Visit&& visit) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (visit(entry->path())) {
            return;
        }
    }
}

std::string ReadWhole(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool IsNumber(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

using DescriptorCheck = std::function<bool(const std::string& descriptorInfo)>;

bool HasOpen(const fs::path& process, const std::string& target, const DescriptorCheck& isWanted) {
    bool isFound = false;
    ForEachEntry(process / "fd", [&](const fs::path& descriptor) {
        std::error_code error;
        isFound = fs::read_symlink(descriptor, error) == target &&
                  (!isWanted || isWanted(ReadWhole(process / "fdinfo" / descriptor.filename())));
        return isFound;
    });
    return isFound;
}

std::string FindProcess(const std::string& target, const DescriptorCheck& isWanted) {
    std::string found;
    ForEachEntry("/proc", [&](const fs::path& process) {
        const std::string number = process.filename();
        if (!IsNumber(number) || !HasOpen(process, target, isWanted)) {
            return false;
        }
        std::string name = ReadWhole(process / "comm");
        name.resize(std::min(name.size(), name.find_last_not_of('\n') + 1));
        found = name + " (process " + number + ")";
        return true;
    });
    return found;
}

} // namespace

// The line of a lock: "lock: 1: OFDLCK ADVISORY WRITE -1 00:1b:15317 2 2"; the last number may be "EOF".
bool HasLock(const std::string& descriptorInfo, std::int64_t offset) {
    std::istringstream lines(descriptorInfo);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string label, number, kind, mode, type, process, inode, last;
        std::int64_t first = 0;
        if (words >> label >> number >> kind >> mode >> type >> process >> inode >> first >> last &&
            label == "lock:" && kind == "OFDLCK" && type == "WRITE" && first <= offset &&
            (last == "EOF" || std::strtoll(last.c_str(), nullptr, 10) >= offset)) {
            return true;
        }
    }
    return false;
}

std::string ProcessWithOpen(const std::string& target) {
    return FindProcess(target, nullptr);
}

std::string ProcessWithLock(const std::string& path, std::int64_t offset) {
    return FindProcess(path, [offset](const std::string& info) { return HasLock(info, offset); });
}

} // namespace quayside2

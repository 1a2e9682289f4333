#include "explanations/DeviceFileExplanation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>

#include "explanations/Explain.h"
#include "explanations/MessageText.h"
#include "explanations/StatusWords.h"

namespace flowlane {

namespace {

constexpr KESTATUS cNoSpace = KEStatusFromErrno(ENOSPC);
constexpr KESTATUS cReadOnly = KEStatusFromErrno(EROFS);
constexpr std::size_t cMaxPathBytes = 130; // a path may stand twice in a line

std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

// The file of the system's own users; those of a network are numbers, since asking for them may take long.
std::string UserName(unsigned user) {
    std::ifstream file("/etc/passwd");
    return UserNameIn({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()}, user);
}

void ExplainNotAllowed(const std::string& path) {
    const std::string shown = Printable(path, cMaxPathBytes);
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0) {
        const std::string folder = FolderOf(path);
        Explain("You may not make files in '{}'. Root can allow it: chmod 1777 {}",
                Printable(folder, cMaxPathBytes), ShellWord(folder));
        return;
    }
    switch (ObstacleOf(info.st_uid, geteuid(), info.st_mode)) {
    case FileObstacle::OtherOwner:
        if (geteuid() == 0) {
            Explain("'{}' belongs to {}. Remove it: rm {}", shown, UserName(info.st_uid), ShellWord(path));
        } else {
            Explain("'{}' belongs to {}. Have it removed, or set QUAYSIDE2_SEGMENT to another name.", shown,
                    UserName(info.st_uid));
        }
        break;
    case FileObstacle::OthersMayUseIt:
        Explain("Other users may use '{}', so it is refused. Correct that: chmod 600 {}", shown,
                ShellWord(path));
        break;
    case FileObstacle::NoAccess:
        Explain("You may not read and write '{}'. Correct that: chmod 600 {}", shown, ShellWord(path));
        break;
    }
}

void ExplainInvalidFile(const std::string& path) {
    struct stat info = {};
    const bool isFolder = lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    Explain("'{}' is not the shared memory of a segment. Remove it: rm {}{}", Printable(path, cMaxPathBytes),
            isFolder ? "-r " : "", ShellWord(path));
}

} // namespace

FileObstacle ObstacleOf(unsigned owner, unsigned user, unsigned mode) noexcept {
    if (owner != user) {
        return FileObstacle::OtherOwner;
    }
    return (mode & (S_IRWXG | S_IRWXO)) != 0 ? FileObstacle::OthersMayUseIt : FileObstacle::NoAccess;
}

std::string UserNameIn(const std::string& passwords, unsigned user) {
    const std::string number = std::to_string(user);
    std::istringstream lines(passwords);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string name, password, listed;
        if (std::getline(fields, name, ':') && std::getline(fields, password, ':') &&
            std::getline(fields, listed, ':') && listed == number && !name.empty()) {
            return "user '" + Printable(name) + "'";
        }
    }
    return "user " + number;
}

void ExplainDeviceFile(KESTATUS st, const std::string& path) {
    const std::string shown = Printable(path, cMaxPathBytes);
    const std::string folder = FolderOf(path);
    switch (st) {
    case KESTATUS_NOT_ALLOWED:
        ExplainNotAllowed(path);
        break;
    case KESTATUS_INVALID_FILE:
        ExplainInvalidFile(path);
        break;
    case KESTATUS_VERSION_MISMATCH:
        Explain("'{}' is damaged, or another version made it. End the programs that use it, then: rm {}",
                shown, ShellWord(path));
        break;
    case KESTATUS_TIMEOUT:
        Explain("Another process is making '{}' and does not finish. Continue it or end it.", shown);
        break;
    case cNoSpace:
        Explain("'{}' has no room for the shared memory of the lanes, 16.1 MiB. Remove files there, or "
                "enlarge it.",
                Printable(folder, cMaxPathBytes));
        break;
    case cReadOnly:
        Explain("'{}' is read-only. Make it writable: mount -o remount,rw {}",
                Printable(folder, cMaxPathBytes), ShellWord(folder));
        break;
    default:
        Explain("'{}' cannot be used: {}.", shown, StatusWords(st));
    }
}

} // namespace flowlane

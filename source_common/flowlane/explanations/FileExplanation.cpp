#include "explanations/FileExplanation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "explanations/Explain.h"
#include "explanations/MessageText.h"
#include "explanations/StatusWords.h"
#include "kestatus.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::size_t cMaxPathLength = 140; // bytes in a line, which may name it twice
constexpr std::size_t cMaxWordLength = 160; // of a path in a command, with its quotes

// A command with a shortened path would do something else.
std::string WordOrPlaceholder(const std::string& word, const char* placeholder) {
    return word.size() <= cMaxWordLength ? word : placeholder;
}

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

// The folder of a path, without its last component.
std::string FolderOf(const std::string& path) {
    const std::size_t end = path.find_last_of('/');
    if (end == std::string::npos) {
        return ".";
    }
    return end == 0 ? "/" : path.substr(0, end);
}

// Existing files whose names differ from this one in an extension that was left out: "'a.ts' or 'a.pcap'".
std::string FilesWithExtension(const std::string& path) {
    std::string files;
    for (const char* extension : {".ts", ".m2ts", ".mts", ".pcapng", ".pcap"}) {
        if (Exists(path + extension)) {
            files += (files.empty() ? "'" : " or '") + ShortPath(path + extension) + "'";
        }
    }
    return files;
}

void ExplainMissingFile(const std::string& path) {
    const std::string folder = FolderOf(path);
    const std::string similar = FilesWithExtension(path);
    struct stat status {};
    if (path.empty()) {
        Explain("The name of the file is empty. Give the name of a file.");
    } else if (!Exists(folder)) {
        Explain("There is no folder '{}'. Check the path of the file.", ShortPath(folder));
    } else if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
        Explain("'{}' is a link to a file that does not exist.", ShortPath(path));
    } else if (!similar.empty()) {
        Explain("There is no file '{}'. Did you mean {}?", ShortPath(path), similar);
    } else {
        Explain("There is no file '{}'. Check its name, or give its whole path.", ShortPath(path));
    }
}

void ExplainForbiddenFile(const std::string& path, const struct stat* status) {
    if (!status) {
        Explain("You are not allowed to look into the folder '{}'. Ask its owner.",
                ShortPath(FolderOf(path)));
    } else if (status->st_uid == geteuid()) {
        Explain("You are not allowed to read '{}'. Allow it with: chmod u+r {}", ShortPath(path),
                CommandPath(path));
    } else {
        Explain("You are not allowed to read '{}'. Allow it with: sudo chmod a+r {}", ShortPath(path),
                CommandPath(path));
    }
}

void ExplainError(const std::string& path, int error, const struct stat* status) {
    if (error == ENOENT) {
        ExplainMissingFile(path);
    } else if (error == EACCES) {
        ExplainForbiddenFile(path, status);
    } else if (error == ENOTDIR) {
        Explain("A part of the path '{}' is a file, not a folder. Check the path.", ShortPath(path));
    } else if (error == ELOOP) {
        Explain("'{}' is a link that leads back to itself.", ShortPath(path));
    } else {
        Explain("'{}' cannot be read: {}.", ShortPath(path), StatusWords(KEStatusFromErrno(error)));
    }
}

// Its first byte is read, because files of the system have contents and the size 0.
bool ExplainRegularFile(const std::string& path, const struct stat& status) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        ExplainError(path, errno, &status);
        return true;
    }
    char byte = 0;
    const ssize_t count = read(descriptor, &byte, 1);
    const int error = errno;
    close(descriptor);
    if (count < 0) {
        ExplainError(path, error, &status);
    } else if (count == 0) {
        Explain("'{}' is empty: there is nothing to send.", ShortPath(path));
    }
    return count <= 0;
}

} // namespace

bool ExplainUnreadableFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        ExplainError(path, errno, nullptr);
        return true;
    }
    if (S_ISDIR(status.st_mode)) {
        Explain("'{}' is a folder. Give the name of a file in it.", ShortPath(path));
        return true;
    }
    if (S_ISREG(status.st_mode)) {
        return ExplainRegularFile(path, status);
    }
    // Opening a pipe or a device may have effects.
    if (faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
        ExplainError(path, errno, &status);
        return true;
    }
    return false;
}

std::string ShortPath(const std::string& path) {
    if (path.size() <= cMaxPathLength) {
        return path;
    }
    std::size_t start = path.size() - cMaxPathLength;
    while (start < path.size() && (static_cast<unsigned char>(path[start]) & 0xC0) == 0x80) {
        ++start; // not in the middle of a character of UTF-8
    }
    return "..." + path.substr(start);
}

std::string CommandPath(const std::string& path) {
    return WordOrPlaceholder(QuotedShellPath(path), "FILE");
}

std::string BareCommandPath(const std::string& path, const char* placeholder) {
    return WordOrPlaceholder(ShellPath(path), placeholder);
}

} // namespace flowlane

// Operations on the file system that return a status instead of throwing.
//
// A failure is logged on Global with the path and the error number and returned as the status of its errno.
// Any other exception, for example when memory is short, gives KESTATUS_FAILED. The pointers to results may
// be null. From any thread.
#ifndef KESTRELON_KEFILESYSTEM_H
#define KESTRELON_KEFILESYSTEM_H

#include "files/KEStdPath.h"
#include "kestatus.h"

namespace kestrelon {

// Makes the directory and those above it. created: whether one was made, false on failure. An existing
// directory is a success.
[[nodiscard]] KESTATUS KECreateDirectories(const KEStdPath& path, bool* created) noexcept;

// Removes a file or an empty directory. removed: whether there was one. A missing one is a success.
[[nodiscard]] KESTATUS KERemoveFileOrDirectory(const KEStdPath& path, bool* removed) noexcept;

// Removes a file, or a directory with all that is in it. count: the number of entries removed, 0 on failure.
[[nodiscard]] KESTATUS KERemoveDirectoryTree(const KEStdPath& path, unsigned long long* count) noexcept;

// On failure path is unchanged.
[[nodiscard]] KESTATUS KEGetCurrentWorkingDirPath(KEStdPath& path) noexcept;

} // namespace kestrelon

#endif

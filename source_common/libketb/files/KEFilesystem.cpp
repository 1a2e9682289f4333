#include "files/KEFilesystem.h"

#include "files/KEGuardFilesystemOperation.h"

namespace kestrelon {

namespace {

namespace fs = std::filesystem;

// Stores a result where the caller wants one.
template <typename T>
void Give(T* result, T value) noexcept {
    if (result) {
        *result = value;
    }
}

} // namespace

KESTATUS KECreateDirectories(const KEStdPath& path, bool* created) noexcept {
    Give(created, false);
    return KEGuardFilesystemOperation([&] { Give(created, fs::create_directories(path.StdPath())); },
                                      "create_directories({}) failed, err={}", path);
}

KESTATUS KERemoveFileOrDirectory(const KEStdPath& path, bool* removed) noexcept {
    Give(removed, false);
    return KEGuardFilesystemOperation([&] { Give(removed, fs::remove(path.StdPath())); },
                                      "remove({}) failed, err={}", path);
}

KESTATUS KERemoveDirectoryTree(const KEStdPath& path, unsigned long long* count) noexcept {
    Give(count, 0ull);
    return KEGuardFilesystemOperation(
        [&] { Give(count, static_cast<unsigned long long>(fs::remove_all(path.StdPath()))); },
        "remove_all({}) failed, err={}", path);
}

KESTATUS KEGetCurrentWorkingDirPath(KEStdPath& path) noexcept {
    return KEGuardFilesystemOperation([&] { path = KEStdPath(fs::current_path()); },
                                      "current_path failed, err={}");
}

} // namespace kestrelon

#include "KELinuxModuleFileName.h"

#include <libgen.h> // the POSIX basename; <cstring> has another one
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>

#include "kert_debug.h"

namespace kestrelon {

namespace {

constexpr std::size_t cPathSize = 4096;

} // namespace

KESTATUS KELinuxModuleFileName::InitWithProcessId(pid_t pid) noexcept {
    Clear();
    char link[40];
    std::snprintf(link, sizeof link, "/proc/%ld/exe", static_cast<long>(pid));
    char path[cPathSize];
    const ssize_t length = readlink(link, path, sizeof path - 1);
    if (length == -1) {
        const int err = errno;
        KEOutputDebugString("ERROR: %s: readlink failed, err=%d\n", __PRETTY_FUNCTION__, err);
        return KEStatusFromErrno(err);
    }
    path[length] = '\0';
    return InitWithModuleName(path);
}

KESTATUS KELinuxModuleFileName::InitWithModuleName(const char* path) noexcept {
    Clear();
    if (!path) {
        return KESTATUS_INVALID_PARAMETER;
    }
    try {
        mModuleName = path;
    } catch (const std::bad_alloc&) {
        return KESTATUS_NO_MEMORY;
    }
    return InitPathComponents();
}

KESTATUS KELinuxModuleFileName::InitPathComponents() noexcept {
    // Both calls write into their argument, so each gets a copy of its own.
    char copy[cPathSize];
    try {
        std::snprintf(copy, sizeof copy, "%s", mModuleName.c_str());
        mDirectory = dirname(copy);
        std::snprintf(copy, sizeof copy, "%s", mModuleName.c_str());
        mBaseName = basename(copy);
    } catch (const std::bad_alloc&) {
        Clear();
        return KESTATUS_NO_MEMORY;
    }
    return KESTATUS_SUCCESS;
}

void KELinuxModuleFileName::Clear() noexcept {
    mModuleName.clear();
    mDirectory.clear();
    mBaseName.clear();
}

} // namespace kestrelon

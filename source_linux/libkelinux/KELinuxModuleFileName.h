// The file of a running program, and the parts of its path.
#ifndef KESTRELON_KELINUXMODULEFILENAME_H
#define KESTRELON_KELINUXMODULEFILENAME_H

#include <sys/types.h>

#include <string>

#include "kestatus.h"

namespace kestrelon {

// Not thread-safe: one object is used by one thread at a time.
class KELinuxModuleFileName {
public:
    // Asks the kernel for the file of a process. A failure is reported to the system log and gives the status
    // of errno; the object is empty then.
    [[nodiscard]] KESTATUS InitWithProcessId(pid_t pid) noexcept;
    // Takes a path as it is.
    [[nodiscard]] KESTATUS InitWithModuleName(const char* path) noexcept;
    // Takes directory and base name from the path again.
    [[nodiscard]] KESTATUS InitPathComponents() noexcept;

    void Clear() noexcept;
    bool IsValid() const noexcept { return !mModuleName.empty(); }

    const std::string& ModuleName() const noexcept { return mModuleName; } // the full path
    const std::string& Directory() const noexcept { return mDirectory; }   // as dirname returns it
    const std::string& BaseName() const noexcept { return mBaseName; }     // as basename returns it

private:
    std::string mModuleName;
    std::string mDirectory;
    std::string mBaseName;
};

} // namespace kestrelon

#endif

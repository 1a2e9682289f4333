// The boundary between the standard filesystem library, which throws, and the toolbox, which does not.
#ifndef KESTRELON_KEGUARDFILESYSTEMOPERATION_H
#define KESTRELON_KEGUARDFILESYSTEMOPERATION_H

#include <filesystem>

#include "kestatus_util.h"
#include "log/KELogging.h"

namespace kestrelon {

// Runs operation. A filesystem error is logged on Global with message, whose fields are filled with args and
// then the error's number, and returned as a status of the Linux family; any other exception is
// KESTATUS_FAILED. From any thread.
template <typename Operation, typename... Args>
[[nodiscard]] KESTATUS KEGuardFilesystemOperation(Operation&& operation, const char* message,
                                                  const Args&... args) noexcept {
    try {
        operation();
        return KESTATUS_SUCCESS;
    } catch (const std::filesystem::filesystem_error& error) {
        KEOutputLogMessage(logger::Global, KEERROR, message, args..., error.code().value());
        return KEStatusFromStdFilesystemError(error);
    } catch (...) {
        KEOutputLogMessage(logger::Global, KEERROR, "unknown exception");
        return KESTATUS_FAILED;
    }
}

} // namespace kestrelon

#endif

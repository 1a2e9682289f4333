// Calls the standard filesystem library, which throws, for the toolbox, which does not.
#ifndef KESTRELON_KEGUARDFILESYSTEMOPERATION_H
#define KESTRELON_KEGUARDFILESYSTEMOPERATION_H

#include <filesystem>

#include "kestatus_util.h"
#include "log/KELogging.h"

namespace kestrelon {

// Runs operation on the calling thread. A filesystem error is logged on Global and returned as a status of
// the Linux family; the fields of message are filled with args and then the error's number. Any other
// exception is logged and gives KESTATUS_FAILED.
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

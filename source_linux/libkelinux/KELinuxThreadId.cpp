#include "KELinuxThreadId.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace kestrelon {

pid_t KELinuxGetKernelThreadId() noexcept {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

} // namespace kestrelon

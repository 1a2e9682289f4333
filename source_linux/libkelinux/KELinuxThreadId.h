// The kernel's id of the calling thread.
#ifndef KESTRELON_KELINUXTHREADID_H
#define KESTRELON_KELINUXTHREADID_H

#include <sys/types.h>

namespace kestrelon {

// The gettid system call; the number that tools such as ps and top show.
pid_t KELinuxGetKernelThreadId() noexcept;

} // namespace kestrelon

#endif

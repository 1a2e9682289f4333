// The kernel's id of the calling thread.
#ifndef KESTRELON_KELINUXTHREADID_H
#define KESTRELON_KELINUXTHREADID_H

#include <sys/types.h>

namespace kestrelon {

// The number that tools such as ps and top show. From any thread; never fails.
pid_t KELinuxGetKernelThreadId() noexcept;

} // namespace kestrelon

#endif

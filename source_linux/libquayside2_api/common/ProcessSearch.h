// Finds the process that has something open, by what the kernel shows in /proc.
//
// The kernel shows the descriptors of a process to its own user and to root alone, and hides those of a
// program with privileges of its file from its user too. A search looks at every process. It takes some
// milliseconds and never waits.
#ifndef QUAYSIDE2_PROCESSSEARCH_H
#define QUAYSIDE2_PROCESSSEARCH_H

#include <cstdint>
#include <string>

namespace quayside2 {

// The first process with a descriptor of this target, as "name (process 1234)"; empty when the system shows
// none. target: the path of a file, or "socket:[INODE]". A name may have any bytes but zero.
std::string ProcessWithOpen(const std::string& target);

// The same for a descriptor that has a lock (F_OFD_SETLK, for writing) on this byte of the file.
std::string ProcessWithLock(const std::string& path, std::int64_t offset);

// Whether a text of /proc/PID/fdinfo shows such a lock.
bool HasLock(const std::string& descriptorInfo, std::int64_t offset);

} // namespace quayside2

#endif

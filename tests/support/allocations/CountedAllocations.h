// Counts all allocations of the process: by malloc and the functions like it, and by operator new. A test
// that uses it needs an executable of its own.
#ifndef FLOWLANE_TESTS_COUNTEDALLOCATIONS_H
#define FLOWLANE_TESTS_COUNTEDALLOCATIONS_H

#include <cstddef>

namespace testsupport {

// By all threads, since the start of the process.
std::size_t AllocationCount() noexcept;
// The bytes of these allocations, including those that were freed.
std::size_t AllocatedBytes() noexcept;

// While it lives, this number of calls of operator new on this thread succeed, and the next one throws
// std::bad_alloc.
class ScarceMemory {
public:
    explicit ScarceMemory(std::size_t allocations) noexcept;
    ~ScarceMemory();
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;
};

} // namespace testsupport

#endif

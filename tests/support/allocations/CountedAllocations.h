// Counts the allocations of the whole process, by malloc and its kin as by operator new. For a test
// executable of its own.
#ifndef FLOWLANE_TESTS_COUNTEDALLOCATIONS_H
#define FLOWLANE_TESTS_COUNTEDALLOCATIONS_H

#include <cstddef>

namespace testsupport {

// Of all threads, since the start of the process.
std::size_t AllocationCount() noexcept;
// The bytes asked for by them; what was freed since counts too.
std::size_t AllocatedBytes() noexcept;

// While it lives, operator new gives memory so often on this thread and then throws std::bad_alloc, once.
class ScarceMemory {
public:
    explicit ScarceMemory(std::size_t allocations) noexcept;
    ~ScarceMemory();
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;
};

} // namespace testsupport

#endif

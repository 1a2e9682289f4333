// Makes memory run short.
#ifndef FLOWLANE_TESTS_ALLOCATIONFAULT_H
#define FLOWLANE_TESTS_ALLOCATIONFAULT_H

namespace testsupport {

// While it lives, every allocation by new on this thread fails.
class AllocationFault {
public:
    AllocationFault();
    ~AllocationFault();
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
};

} // namespace testsupport

#endif

#include "AllocationFault.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include "OperatorNew.h"

namespace testsupport {

namespace {

thread_local bool sIsFailing = false;

} // namespace

AllocationFault::AllocationFault() {
    sIsFailing = true;
}

AllocationFault::~AllocationFault() {
    sIsFailing = false;
}

} // namespace testsupport

#ifndef FLOWLANE_OPERATOR_NEW_STAYS

void* operator new(std::size_t size) {
    void* const memory = testsupport::sIsFailing ? nullptr : std::malloc(size != 0 ? size : 1);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

#endif

#include "CountedAllocations.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <new>

#include "OperatorNew.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FLOWLANE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define FLOWLANE_SANITIZED 1
#endif
#endif

#ifdef FLOWLANE_SANITIZED
#include <sanitizer/allocator_interface.h>
#endif

namespace {

std::atomic<std::size_t> sAllocations{0};
std::atomic<std::size_t> sBytes{0};

void Count(std::size_t size) noexcept {
    sAllocations.fetch_add(1, std::memory_order_relaxed);
    sBytes.fetch_add(size, std::memory_order_relaxed);
}

constexpr std::size_t cPlenty = std::numeric_limits<std::size_t>::max();
thread_local std::size_t sNewsLeft = cPlenty;

} // namespace

#ifdef FLOWLANE_SANITIZED

// The sanitizers have their own allocation functions, which call a hook for each allocation.
namespace {

void CountMalloc(const volatile void*, std::size_t size) {
    Count(size);
}
void IgnoreFree(const volatile void*) {}

[[maybe_unused]] const int sHooks = __sanitizer_install_malloc_and_free_hooks(&CountMalloc, &IgnoreFree);

} // namespace

#else

// These replace the functions of the C library, which operator new calls too. The C library keeps its own
// ones under a second name.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
    Count(size);
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    Count(count * size);
    return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
    Count(size);
    return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    Count(size);
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    Count(size);
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}
void free(void* memory) {
    __libc_free(memory);
}
}

#endif

#ifndef FLOWLANE_OPERATOR_NEW_STAYS

// Under a sanitizer malloc and free are its own, so these are counted by the hook.
void* operator new(std::size_t size) {
    if (sNewsLeft != cPlenty) {
        if (sNewsLeft == 0) {
            sNewsLeft = cPlenty;
            throw std::bad_alloc();
        }
        --sNewsLeft;
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif

namespace testsupport {

std::size_t AllocationCount() noexcept {
    return sAllocations.load(std::memory_order_relaxed);
}

std::size_t AllocatedBytes() noexcept {
    return sBytes.load(std::memory_order_relaxed);
}

ScarceMemory::ScarceMemory(std::size_t allocations) noexcept {
    sNewsLeft = allocations;
}

ScarceMemory::~ScarceMemory() {
    sNewsLeft = cPlenty;
}

} // namespace testsupport

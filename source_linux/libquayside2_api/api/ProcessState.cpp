#include "api/ProcessState.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>

#include "common/ProcessFile.h"

namespace quayside2 {

namespace {

void PrepareFork() {
    ProcessState& state = ProcessState::Instance();
    state.enumerations.Lock();
    state.devices.Lock();
    ProcessFile::PrepareFork();
}

void ParentAfterFork() {
    ProcessState& state = ProcessState::Instance();
    ProcessFile::ParentAfterFork();
    state.devices.Unlock();
    state.enumerations.Unlock();
}

void ChildAfterFork() {
    ProcessState& state = ProcessState::Instance();
    ProcessFile::ChildAfterFork();
    state.devices.Forget();
    state.devices.Unlock();
    state.enumerations.Forget();
    state.enumerations.Unlock();
}

// Differs between processes and runs; no secret.
std::uint32_t Seed() {
    const auto now = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    const std::uint64_t mixed = (now ^ static_cast<std::uint64_t>(getpid()) << 32) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::uint32_t>(mixed >> 40);
}

} // namespace

ProcessState& ProcessState::Instance() {
    static ProcessState& sState = *[] {
        auto* const state = new ProcessState(Seed());
        // Only a lack of memory can make this fail; a fork then behaves as without handlers.
        static_cast<void>(pthread_atfork(PrepareFork, ParentAfterFork, ChildAfterFork));
        return state;
    }();
    return sState;
}

namespace {

// When the library is loaded: a child that is forked while another thread makes the state would wait for it
// without end.
__attribute__((constructor)) void MakeProcessState() {
    ProcessFile::MakeList();
    ProcessState::Instance();
}

} // namespace

} // namespace quayside2

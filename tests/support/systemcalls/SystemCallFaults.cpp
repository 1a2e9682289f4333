#include "SystemCallFaults.h"

#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>
#include <wordexp.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace testsupport {

namespace {

struct ArmedFault {
    const char* call = nullptr;
    int error = 0;
    unsigned skip = 0;
    bool isDelivered = false;
};

struct VirtualClocks {
    timespec monotonic{};
    timespec realTime{};
    std::int64_t elapsedNs = 0;
    std::vector<timespec> sleeps;
};

thread_local ArmedFault sFault;
thread_local VirtualClocks sClocks;
thread_local VirtualTime* sVirtualTime = nullptr;
thread_local const std::function<int(const timespec&)>* sTimedWait = nullptr;
thread_local std::vector<const char*>* sCallLog = nullptr;

// The error with which this call is to fail, 0 when it is to go through.
int TakeFault(const char* call) {
    if (!sFault.call || sFault.isDelivered || std::strcmp(sFault.call, call) != 0) {
        return 0;
    }
    if (sFault.skip > 0) {
        --sFault.skip;
        return 0;
    }
    sFault.isDelivered = true;
    return sFault.error;
}

void LogCall(const char* call) {
    if (sCallLog) {
        // Set aside meanwhile: growing the list may itself make such calls.
        std::vector<const char*>* log = std::exchange(sCallLog, nullptr);
        log->push_back(call);
        sCallLog = log;
    }
}

constexpr std::int64_t cNsPerSecond = 1000000000;

timespec Later(const timespec& start, std::int64_t ns) {
    const std::int64_t sum = start.tv_nsec + ns;
    return {start.tv_sec + sum / cNsPerSecond, static_cast<long>(sum % cNsPerSecond)};
}

int FailWithErrno(int error) {
    errno = error;
    return -1;
}

} // namespace

SystemCallFault::SystemCallFault(const char* call, int error, unsigned skip) {
    sFault = {call, error, skip, false};
}

SystemCallFault::~SystemCallFault() {
    sFault = {};
}

bool SystemCallFault::IsDelivered() const {
    return sFault.isDelivered;
}

VirtualTime::VirtualTime(timespec monotonic, timespec realTime) {
    sClocks = {monotonic, realTime, 0, {}};
    sVirtualTime = this;
}

VirtualTime::~VirtualTime() {
    sVirtualTime = nullptr;
}

std::int64_t VirtualTime::ElapsedNs() const {
    return sClocks.elapsedNs;
}

std::vector<timespec> VirtualTime::Sleeps() const {
    return sClocks.sleeps;
}

TimedWaitScript::TimedWaitScript(std::function<int(const timespec&)> script) {
    sTimedWait = new std::function<int(const timespec&)>(std::move(script));
}

TimedWaitScript::~TimedWaitScript() {
    delete std::exchange(sTimedWait, nullptr);
}

CallLog::CallLog() {
    sCallLog = new std::vector<const char*>;
}

CallLog::~CallLog() {
    delete std::exchange(sCallLog, nullptr);
}

std::vector<const char*> CallLog::Calls() const {
    return *sCallLog;
}

unsigned CallLog::Count(const char* call) const {
    return static_cast<unsigned>(std::count_if(sCallLog->begin(), sCallLog->end(), [&](const char* logged) {
        return std::strcmp(logged, call) == 0;
    }));
}

} // namespace testsupport

using namespace testsupport;

// Calls that return their error number.
#define WRAP_RETURNING_ERROR(call, parameters, arguments)                                                    \
    extern "C" int __real_##call parameters;                                                                 \
    extern "C" int __wrap_##call parameters;                                                                 \
    int __wrap_##call parameters {                                                                           \
        LogCall(#call);                                                                                      \
        const int error = TakeFault(#call);                                                                  \
        return error != 0 ? error : __real_##call arguments;                                                 \
    }

// The same for calls whose effect is needed even if they are to report an error.
#define WRAP_REPORTING_ERROR(call, parameters, arguments)                                                    \
    extern "C" int __real_##call parameters;                                                                 \
    extern "C" int __wrap_##call parameters;                                                                 \
    int __wrap_##call parameters {                                                                           \
        LogCall(#call);                                                                                      \
        const int result = __real_##call arguments;                                                          \
        const int error = TakeFault(#call);                                                                  \
        return error != 0 ? error : result;                                                                  \
    }

// Calls that return -1 and set errno.
#define WRAP_SETTING_ERRNO(type, call, parameters, arguments)                                                \
    extern "C" type __real_##call parameters;                                                                \
    extern "C" type __wrap_##call parameters;                                                                \
    type __wrap_##call parameters {                                                                          \
        const int error = TakeFault(#call);                                                                  \
        return error != 0 ? FailWithErrno(error) : __real_##call arguments;                                  \
    }

WRAP_RETURNING_ERROR(pthread_create,
                     (pthread_t * thread, const pthread_attr_t* attr, void* (*routine)(void*), void* arg),
                     (thread, attr, routine, arg))
WRAP_RETURNING_ERROR(pthread_join, (pthread_t thread, void** result), (thread, result))
WRAP_RETURNING_ERROR(pthread_mutexattr_init, (pthread_mutexattr_t * attributes), (attributes))
WRAP_RETURNING_ERROR(pthread_mutexattr_settype, (pthread_mutexattr_t * attributes, int type),
                     (attributes, type))
WRAP_RETURNING_ERROR(pthread_mutexattr_destroy, (pthread_mutexattr_t * attributes), (attributes))
WRAP_RETURNING_ERROR(pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
                     (mutex, attributes))
WRAP_RETURNING_ERROR(pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
WRAP_REPORTING_ERROR(pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
WRAP_REPORTING_ERROR(pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex))
WRAP_RETURNING_ERROR(pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex))
WRAP_RETURNING_ERROR(pthread_cond_init, (pthread_cond_t * cond, const pthread_condattr_t* attributes),
                     (cond, attributes))
WRAP_RETURNING_ERROR(pthread_cond_destroy, (pthread_cond_t * cond), (cond))
WRAP_RETURNING_ERROR(pthread_cond_signal, (pthread_cond_t * cond), (cond))
WRAP_RETURNING_ERROR(pthread_cond_broadcast, (pthread_cond_t * cond), (cond))
WRAP_RETURNING_ERROR(pthread_cond_wait, (pthread_cond_t * cond, pthread_mutex_t* mutex), (cond, mutex))
WRAP_RETURNING_ERROR(wordexp, (const char* text, wordexp_t* words, int flags), (text, words, flags))

WRAP_SETTING_ERRNO(int, pipe2, (int descriptors[2], int flags), (descriptors, flags))
WRAP_SETTING_ERRNO(ssize_t, read, (int descriptor, void* data, size_t size), (descriptor, data, size))
WRAP_SETTING_ERRNO(ssize_t, write, (int descriptor, const void* data, size_t size), (descriptor, data, size))
WRAP_SETTING_ERRNO(ssize_t, readlink, (const char* path, char* data, size_t size), (path, data, size))

// The forms of a hardened build: the size of the buffer is not checked here.
extern "C" ssize_t __wrap___read_chk(int descriptor, void* data, size_t size, size_t bufferSize);
ssize_t __wrap___read_chk(int descriptor, void* data, size_t size, size_t /*bufferSize*/) {
    return __wrap_read(descriptor, data, size);
}
extern "C" ssize_t __wrap___readlink_chk(const char* path, char* data, size_t size, size_t bufferSize);
ssize_t __wrap___readlink_chk(const char* path, char* data, size_t size, size_t /*bufferSize*/) {
    return __wrap_readlink(path, data, size);
}

WRAP_SETTING_ERRNO(long, ftell, (std::FILE * file), (file))

extern "C" int __real_fcntl(int descriptor, int command, ...);
extern "C" int __wrap_fcntl(int descriptor, int command, ...);
int __wrap_fcntl(int descriptor, int command, ...) {
    va_list args;
    va_start(args, command);
    void* const argument = va_arg(args, void*); // as wide as any argument of fcntl
    va_end(args);
    const int error = TakeFault("fcntl");
    return error != 0 ? FailWithErrno(error) : __real_fcntl(descriptor, command, argument);
}

extern "C" int __real_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                             const timespec* deadline);
extern "C" int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                             const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* deadline) {
    return sTimedWait ? (*sTimedWait)(*deadline) : __real_pthread_cond_timedwait(cond, mutex, deadline);
}

extern "C" void __real_wordfree(wordexp_t* words);
extern "C" void __wrap_wordfree(wordexp_t* words);
void __wrap_wordfree(wordexp_t* words) {
    LogCall("wordfree");
    __real_wordfree(words);
}

extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time);
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (const int error = TakeFault("clock_gettime")) {
        return FailWithErrno(error);
    }
    if (!sVirtualTime) {
        return __real_clock_gettime(clock, time);
    }
    *time = Later(clock == CLOCK_MONOTONIC ? sClocks.monotonic : sClocks.realTime, sClocks.elapsedNs);
    return 0;
}

extern "C" int __real_pthread_setschedparam(pthread_t thread, int policy, const sched_param* priority);
extern "C" int __wrap_pthread_setschedparam(pthread_t thread, int policy, const sched_param* priority);
int __wrap_pthread_setschedparam(pthread_t thread, int policy, const sched_param* priority) {
    const int error = TakeFault("pthread_setschedparam");
    return error != 0 ? error : __real_pthread_setschedparam(thread, policy, priority);
}

extern "C" int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* remaining);
extern "C" int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* remaining);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* remaining) {
    const int error = TakeFault("clock_nanosleep");
    return error != 0 ? error : __real_clock_nanosleep(clock, flags, time, remaining);
}

extern "C" int __real_nanosleep(const timespec* duration, timespec* remaining);
extern "C" int __wrap_nanosleep(const timespec* duration, timespec* remaining);
int __wrap_nanosleep(const timespec* duration, timespec* remaining) {
    if (const int error = TakeFault("nanosleep")) {
        return FailWithErrno(error);
    }
    if (!sVirtualTime) {
        return __real_nanosleep(duration, remaining);
    }
    sClocks.sleeps.push_back(*duration);
    sClocks.elapsedNs += duration->tv_sec * cNsPerSecond + duration->tv_nsec;
    if (sVirtualTime->mOnSleep) {
        sVirtualTime->mOnSleep(static_cast<unsigned>(sClocks.sleeps.size()));
    }
    return 0;
}

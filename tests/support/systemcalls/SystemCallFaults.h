// Makes system calls of the code under test fail, and sets its clocks by hand. The test executable is linked
// so that the calls listed in CMakeLists.txt come here first; they go on to the real call unless an object
// below says otherwise. Objects affect only their own thread. One object of a kind per thread at a time.
#ifndef FLOWLANE_TESTS_SYSTEMCALLFAULTS_H
#define FLOWLANE_TESTS_SYSTEMCALLFAULTS_H

#include <time.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace testsupport {

// While it lives, the next call of this name on this thread fails with error, after skip calls that go
// through. Later calls go through again. A failing pthread_mutex_lock or pthread_mutex_unlock takes effect
// all the same, so that the pairs stay matched.
class SystemCallFault {
public:
    SystemCallFault(const char* call, int error, unsigned skip = 0);
    ~SystemCallFault();
    SystemCallFault(const SystemCallFault&) = delete;
    SystemCallFault& operator=(const SystemCallFault&) = delete;

    // Whether the failure has been delivered.
    bool IsDelivered() const;
};

// While it lives, this thread's clock_gettime and nanosleep run on virtual time: a sleep advances both
// clocks by its length and returns at once.
class VirtualTime {
public:
    VirtualTime(timespec monotonic, timespec realTime);
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    std::int64_t ElapsedNs() const;         // slept so far
    std::vector<timespec> Sleeps() const;   // what nanosleep was asked for
    std::function<void(unsigned)> mOnSleep; // called after each sleep with the number of sleeps
};

// While it lives, this thread's pthread_cond_timedwait returns what the function says.
class TimedWaitScript {
public:
    explicit TimedWaitScript(std::function<int(const timespec&)> script);
    ~TimedWaitScript();
    TimedWaitScript(const TimedWaitScript&) = delete;
    TimedWaitScript& operator=(const TimedWaitScript&) = delete;
};

// While it lives, the calls of this thread are noted in their order: those of the pthread_ family, wordexp
// and wordfree.
class CallLog {
public:
    CallLog();
    ~CallLog();
    CallLog(const CallLog&) = delete;
    CallLog& operator=(const CallLog&) = delete;

    std::vector<const char*> Calls() const;
    unsigned Count(const char* call) const;
};

} // namespace testsupport

#endif

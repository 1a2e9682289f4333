// Replaces a few calls of the C library for the code under test: the printf family fails on request, lines
// for the system log are kept, and sleeping can be replaced. For one thread.
#ifndef FLOWLANE_TESTS_LIBRARYCALLFAULTS_H
#define FLOWLANE_TESTS_LIBRARYCALLFAULTS_H

#include <unistd.h>

#include <string>
#include <vector>

namespace testsupport {

// While it lives, every vsnprintf and vswprintf of the code under test fails with this errno.
class PrintfFault {
public:
    explicit PrintfFault(int err);
    ~PrintfFault();
    PrintfFault(const PrintfFault&) = delete;
    PrintfFault& operator=(const PrintfFault&) = delete;

    unsigned Failures() const; // calls that have failed so far
};

struct SystemLogLine {
    int priority;
    std::string text;
};

// Takes the lines written to the system log so far. Nothing reaches the real one.
std::vector<SystemLogLine> TakeSystemLog();

// Called in place of usleep when it is not null.
extern void (*gUsleepFunction)(useconds_t microseconds);

} // namespace testsupport

#endif

// Another program, started by a test and ended with it.
#ifndef FLOWLANE_TESTS_CHILDPROCESS_H
#define FLOWLANE_TESTS_CHILDPROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace testsupport {

class ChildProcess {
public:
    // Starts a program with this process's environment; arguments without the program's own name. Its
    // standard output can be read here.
    ChildProcess(const std::string& path, const std::vector<std::string>& arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess(); // kills it if it still runs

    pid_t Id() const { return mId; }
    // The next line of its output without the line end; empty at the end of the output.
    std::string ReadLine();
    void Signal(int number) const;
    // Waits for its end, after a generous time limit kills it. Returns the exit code, or minus the number of
    // the signal that ended it.
    int Wait();
    // True while it has not ended.
    bool IsRunning();

private:
    pid_t mId = -1;
    int mOutput = -1;
    bool mEnded = false;
    int mResult = 0;
};

} // namespace testsupport

#endif

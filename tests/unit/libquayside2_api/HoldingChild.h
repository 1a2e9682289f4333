// A forked child of a test that does something with devices and then holds still.
#ifndef FLOWLANE_TESTS_HOLDINGCHILD_H
#define FLOWLANE_TESTS_HOLDINGCHILD_H

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

namespace testsupport {

class HoldingChild {
public:
    // Forks, and returns when the child has done doFirst, which has to be true. Afterwards the child sleeps
    // until it is killed.
    explicit HoldingChild(const std::function<bool()>& doFirst) {
        int ends[2] = {};
        EXPECT_EQ(pipe(ends), 0);
        mId = fork();
        if (mId == 0) {
            alarm(60); // should the parent die
            const char answer = doFirst() ? 'y' : 'n';
            static_cast<void>(!write(ends[1], &answer, 1));
            for (;;) {
                pause();
            }
        }
        close(ends[1]);
        char answer = 0;
        EXPECT_EQ(read(ends[0], &answer, 1), 1);
        EXPECT_EQ(answer, 'y');
        close(ends[0]);
    }
    ~HoldingChild() { Kill(); }
    HoldingChild(const HoldingChild&) = delete;
    HoldingChild& operator=(const HoldingChild&) = delete;

    pid_t Id() const { return mId; }
    void Kill() {
        if (mId > 0) {
            kill(mId, SIGKILL);
            waitpid(mId, nullptr, 0);
            mId = -1;
        }
    }

private:
    pid_t mId = -1;
};

} // namespace testsupport

#endif

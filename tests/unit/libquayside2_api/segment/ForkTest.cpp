// The library in a child that is forked while other threads use it.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "SanitizedBuild.h"
#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class ForkTest : public SegmentFixture {
protected:
    // Runs a check in a forked child; its result is the child's.
    static bool InChild(const std::function<bool()>& check) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(check() ? 0 : 1);
        }
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
};

TEST_F(ForkTest, InheritedEnumerationsAreInvalid) {
    const Enumeration list;
    EXPECT_TRUE(InChild([&] {
        QBXDeviceHandle device = 0;
        return QBX_OpenControlDevice(list.handle, 2, &device) == KESTATUS_INVALID_HANDLE &&
               QBX_CloseEnumeration(list.handle) == KESTATUS_INVALID_HANDLE;
    }));
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenControlDevice(list.handle, 2, &device), KESTATUS_SUCCESS) << "the parent's goes on";
    QBX_CloseDevice(device);
}

TEST_F(ForkTest, WorksWhileAnotherThreadWaits) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    std::thread waiter([&] { EXPECT_EQ(QBX_WaitForRawFrame(rx, -1), KESTATUS_NOT_ENABLED); });
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(InChild([&] { return QBX_DisableRawRx(rx) == KESTATUS_INVALID_HANDLE; }));
    }
    EXPECT_EQ(QBX_DisableRawRx(rx), KESTATUS_SUCCESS);
    waiter.join();
}

// Whatever the other threads have locked at the moment of the fork, the child can use the library.
TEST_F(ForkTest, WorksWhileOtherThreadsOpenAndClose) {
    if (cSanitizedBuild) {
        GTEST_SKIP() << "a sanitizer's allocator may stay locked in a forked child";
    }
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (unsigned lane = 1; lane <= 3; ++lane) {
        threads.emplace_back([&isOver, lane] {
            while (!isOver) {
                EXPECT_EQ(TryOpenTx(lane), KESTATUS_SUCCESS);
                EXPECT_EQ(TryOpenRx(lane), KESTATUS_SUCCESS);
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(InChild([] {
            alarm(60); // ends a child that waits for a lock which nobody holds there
            return TryOpenTx(4) == KESTATUS_SUCCESS;
        })) << i;
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(TryOpenTx(4), KESTATUS_SUCCESS);
}

} // namespace

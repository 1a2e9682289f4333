// A forked child has none of its parent's handles and keeps none of its ports.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "SanitizedBuild.h"
#include "SegmentFixture.h"

namespace {

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

TEST_F(ForkTest, InheritedHandlesAreInvalid) {
    const QBXDeviceHandle tx = OpenTx(1);
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const Enumeration list;
    EXPECT_TRUE(InChild([&] {
        QBXDeviceHandle device = 0;
        return QBX_SendRawFrames(tx) == KESTATUS_INVALID_HANDLE &&
               QBX_CloseDevice(tx) == KESTATUS_INVALID_HANDLE &&
               QBX_WaitForRawFrame(rx, -1) == KESTATUS_INVALID_HANDLE &&
               QBX_OpenControlDevice(list.handle, 2, &device) == KESTATUS_INVALID_HANDLE &&
               QBX_CloseEnumeration(list.handle) == KESTATUS_INVALID_HANDLE;
    }));
    // The parent's go on as before.
    Send(tx, MakeFrame(60, 1));
    const auto received = Receive(rx);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->sequence, 0u);
}

TEST_F(ForkTest, TheParentsPortsStayTaken) {
    const QBXDeviceHandle tx = OpenTx(1);
    EXPECT_NE(tx, 0u);
    EXPECT_TRUE(InChild([] { return TryOpenTx(1) == KESTATUS_IN_USE && TryOpenTx(2) == KESTATUS_SUCCESS; }));
}

TEST_F(ForkTest, AChildKeepsNoLock) {
    const QBXDeviceHandle tx = OpenTx(1);
    int toChild[2];
    int toParent[2];
    ASSERT_EQ(pipe(toChild), 0);
    ASSERT_EQ(pipe(toParent), 0);
    const pid_t child = fork();
    if (child == 0) {
        char byte = 0;
        const bool ok = write(toParent[1], &byte, 1) == 1 && read(toChild[0], &byte, 1) == 1;
        _exit(ok ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(read(toParent[0], &byte, 1), 1);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpenTx(1), KESTATUS_SUCCESS) << "while the child lives";
    ASSERT_EQ(write(toChild[1], &byte, 1), 1);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (const int end : {toChild[0], toChild[1], toParent[0], toParent[1]}) {
        close(end);
    }
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
    if (cAddressSanitizedBuild) {
        GTEST_SKIP() << "the address sanitizer's allocator may stay locked in a forked child";
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

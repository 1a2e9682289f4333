// Descriptors in a child that is forked while another thread opens one.
#include "common/ProcessFile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using quayside2::ProcessFile;

// Also before the first call of the library: its fork handlers are there from the time it is loaded.
TEST(ProcessFileTest, AForkWaitsForAThreadThatOpensADescriptor) {
    std::atomic<bool> isLocked{false};
    std::atomic<bool> isForked{false};
    std::thread opener([&] {
        ProcessFile::PrepareFork(); // takes the lock as an opening does
        isLocked = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ProcessFile::ParentAfterFork();
        while (!isForked) { // for the thread sanitizer: a child must not see a thread that has ended
            std::this_thread::yield();
        }
    });
    while (!isLocked) {
        std::this_thread::yield();
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(20); // ends a child that waits for a lock which nobody holds there
        ProcessFile file;
        _exit(file.Open("/dev/null", O_RDONLY, 0) == 0 ? 0 : 1);
    }
    isForked = true;
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    opener.join();
}

} // namespace

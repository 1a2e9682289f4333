// Which process has a file open, or a lock on it, by what the kernel shows.
#include "common/ProcessSearch.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

using namespace quayside2;

TEST(ProcessSearchTest, ALockIsReadFromTheKernelsText) {
    const std::string head = "pos:\t0\nflags:\t02100002\nmnt_id:\t30\nino:\t15317\n";
    const std::string line = "lock:\t1: OFDLCK ADVISORY  WRITE -1 00:1b:15317 2 4\n";
    EXPECT_FALSE(HasLock("", 0));
    EXPECT_FALSE(HasLock(head, 0));
    EXPECT_FALSE(HasLock(head + line, 1));
    EXPECT_TRUE(HasLock(head + line, 2));
    EXPECT_TRUE(HasLock(head + line, 4));
    EXPECT_FALSE(HasLock(head + line, 5));
    const std::string second = "lock:\t2: OFDLCK ADVISORY  WRITE -1 00:1b:15317 7 EOF\n";
    EXPECT_FALSE(HasLock(head + line + second, 6));
    EXPECT_TRUE(HasLock(head + line + second, 1'000'000'000'000));
    EXPECT_FALSE(HasLock("lock:\t1: OFDLCK ADVISORY  READ -1 00:1b:15317 2 2\n", 2));
    EXPECT_FALSE(HasLock("lock:\t1: POSIX  ADVISORY  WRITE 17 00:1b:15317 2 2\n", 2));
    EXPECT_FALSE(HasLock("lock:\t1: OFDLCK ADVISORY  WRITE\n", 2));
}

TEST(ProcessSearchTest, FindsThisProcess) {
    char path[] = "/tmp/flowlane-process-search-XXXXXX";
    const int file = mkostemp(path, O_CLOEXEC);
    ASSERT_GE(file, 0);
    const std::string expected = "(process " + std::to_string(getpid()) + ")";
    EXPECT_NE(ProcessWithOpen(path).find(expected), std::string::npos);
    EXPECT_EQ(ProcessWithLock(path, 3), "");
    flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 3;
    lock.l_len = 1;
    ASSERT_EQ(fcntl(file, F_OFD_SETLK, &lock), 0);
    EXPECT_EQ(ProcessWithLock(path, 2), "");
    EXPECT_NE(ProcessWithLock(path, 3).find(expected), std::string::npos);
    close(file);
    EXPECT_EQ(ProcessWithOpen(path), "");
    unlink(path);
}

} // namespace

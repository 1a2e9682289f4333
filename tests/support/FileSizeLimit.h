// A full disk: files that stop growing.
#ifndef FLOWLANE_TESTS_FILESIZELIMIT_H
#define FLOWLANE_TESTS_FILESIZELIMIT_H

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>

namespace testsupport {

// While it lives, no file of the process grows beyond so many bytes; a write beyond them fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) {
        mOldHandler = std::signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &mOld), 0);
        rlimit limit = mOld;
        limit.rlim_cur = size;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &mOld);
        std::signal(SIGXFSZ, mOldHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mOld{};
    void (*mOldHandler)(int);
};

} // namespace testsupport

#endif

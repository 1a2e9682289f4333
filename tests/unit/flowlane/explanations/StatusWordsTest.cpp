// A status in plain words: the system's for an errno, the toolbox's for any other.

#include "explanations/StatusWords.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "kestatus.h"

namespace flowlane {
namespace {

TEST(StatusWordsTest, AreTheSystemsForAnErrno) {
    EXPECT_EQ(StatusWords(KEStatusFromErrno(ECONNREFUSED)), "Connection refused");
    EXPECT_EQ(StatusWords(KESTATUS_LINUX_ENOENT), "No such file or directory");
}

TEST(StatusWordsTest, AreTheToolboxsWithoutFullStopForAnyOther) {
    EXPECT_EQ(StatusWords(KESTATUS_IN_USE), "The requested resource is currently in use");
}

} // namespace
} // namespace flowlane

// Why a segment's file cannot be used, by its status and by what it is.

#include "explanations/DeviceFileExplanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "base/LogCons.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

class DeviceFileExplanationTest : public testing::Test {
protected:
    void ExpectLine(KESTATUS st, const std::string& path, const std::string& line) {
        mLog.Clear();
        ExplainDeviceFile(st, path);
        EXPECT_THAT(mLog.Texts(), testing::ElementsAre(line));
    }

    TemporaryFolder mFolder;
    const std::string mFile = mFolder.Path() + "/segment";
    LogCapture mLog{logger::Cons};
};

} // namespace

TEST_F(DeviceFileExplanationTest, TheObstacleIsTheOwnerBeforeTheMode) {
    EXPECT_EQ(ObstacleOf(1000, 1001, 0600), FileObstacle::OtherOwner);
    EXPECT_EQ(ObstacleOf(1000, 1001, 0666), FileObstacle::OtherOwner);
    EXPECT_EQ(ObstacleOf(1000, 1000, 0640), FileObstacle::OthersMayUseIt);
    EXPECT_EQ(ObstacleOf(1000, 1000, 0601), FileObstacle::OthersMayUseIt);
    EXPECT_EQ(ObstacleOf(1000, 1000, 0400), FileObstacle::NoAccess);
}

TEST_F(DeviceFileExplanationTest, AUserHasANameOrANumber) {
    const std::string passwords =
        "root:x:0:0:root:/root:/bin/sh\n\nbroken\nann:x:1000:1000::/home/ann:\n:x:7:7:::\n";
    EXPECT_EQ(UserNameIn(passwords, 0), "user 'root'");
    EXPECT_EQ(UserNameIn(passwords, 1000), "user 'ann'");
    EXPECT_EQ(UserNameIn(passwords, 7), "user 7");
    EXPECT_EQ(UserNameIn(passwords, 100), "user 100");
    EXPECT_EQ(UserNameIn("", 100), "user 100");
}

TEST_F(DeviceFileExplanationTest, EachStatusHasItsLine) {
    const std::string quoted = "'" + mFile + "'";
    ExpectLine(KESTATUS_INVALID_FILE, mFile,
               quoted + " is not the shared memory of a segment. Remove it: rm " + mFile);
    ExpectLine(KESTATUS_INVALID_FILE, mFolder.Path(),
               "'" + mFolder.Path() + "' is not the shared memory of a segment. Remove it: rm -r " +
                   mFolder.Path());
    ExpectLine(KESTATUS_VERSION_MISMATCH, mFile,
               quoted + " is damaged, or another version made it. End the programs that use it, then: rm " +
                   mFile);
    ExpectLine(KESTATUS_TIMEOUT, mFile,
               "Another process is making " + quoted + " and does not finish. Continue it or end it.");
    ExpectLine(KEStatusFromErrno(ENOSPC), "/dev/shm/x",
               "'/dev/shm' has no room for the shared memory of the lanes, 16.1 MiB. Remove files there, or "
               "enlarge it.");
    ExpectLine(KEStatusFromErrno(EROFS), "/my shm/x",
               "'/my shm' is read-only. Make it writable: mount -o remount,rw '/my shm'");
    ExpectLine(KEStatusFromErrno(ENOTDIR), mFile, quoted + " cannot be used: Not a directory.");
    ExpectLine(KESTATUS_WRITE_FILE_FAILED, mFile, quoted + " cannot be used: A file write operation failed.");
}

TEST_F(DeviceFileExplanationTest, WhatIsNotAllowedIsSeenFromTheFile) {
    const std::string quoted = "'" + mFile + "'";
    ExpectLine(KESTATUS_NOT_ALLOWED, mFile,
               "You may not make files in '" + mFolder.Path() + "'. Root can allow it: chmod 1777 " +
                   mFolder.Path());
    std::ofstream(mFile).close();
    ASSERT_EQ(chmod(mFile.c_str(), 0666), 0);
    ExpectLine(KESTATUS_NOT_ALLOWED, mFile,
               "Other users may use " + quoted + ", so it is refused. Correct that: chmod 600 " + mFile);
    ASSERT_EQ(chmod(mFile.c_str(), 0), 0);
    ExpectLine(KESTATUS_NOT_ALLOWED, mFile,
               "You may not read and write " + quoted + ". Correct that: chmod 600 " + mFile);
}

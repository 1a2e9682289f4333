// The owning file descriptor.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "KELinuxFileDescriptor.h"
#include "LogExpect.h"
#include "TemporaryFolder.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

class FileDescriptorTest : public testing::Test {
protected:
    LogCapture mLog;
    TemporaryFolder mDirectory;
    KELinuxFileDescriptor mFile;
};

TEST_F(FileDescriptorTest, IsInvalidAtFirst) {
    EXPECT_EQ(KELinuxFileDescriptor::InvalidHandleValue, -1);
    EXPECT_EQ(mFile.GetHandle(), -1);
    EXPECT_FALSE(mFile.IsValidHandle());
}

TEST_F(FileDescriptorTest, OpensFiles) {
    const std::string path = mDirectory / "file";
    const mode_t mask = umask(0);
    ASSERT_EQ(mFile.OpenFile(path.c_str(), O_WRONLY | O_CREAT, 0640), KESTATUS_SUCCESS);
    umask(mask);
    EXPECT_TRUE(mFile.IsValidHandle());
    EXPECT_EQ(write(mFile.GetHandle(), "text", 4), 4);
    EXPECT_EQ(fcntl(mFile.GetHandle(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777u, 0640u);

    ASSERT_EQ(mFile.OpenFile(path.c_str(), O_RDONLY), KESTATUS_SUCCESS);
    EXPECT_EQ(fcntl(mFile.GetHandle(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    char text[5] = {};
    EXPECT_EQ(read(mFile.GetHandle(), text, 4), 4);
    EXPECT_STREQ(text, "text");
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(FileDescriptorTest, AFailedOpenLeavesItInvalidAndTheOldOneClosed) {
    ASSERT_EQ(mFile.OpenFile("/dev/null", O_RDONLY), KESTATUS_SUCCESS);
    const int old = mFile.GetHandle();
    EXPECT_EQ(mFile.OpenFile((mDirectory / "missing").c_str(), O_RDONLY), KESTATUS{0xE0010002});
    EXPECT_EQ(mFile.GetHandle(), -1);
    EXPECT_FALSE(IsOpen(old));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KELinuxFileDescriptor::OpenFile", "open failed, err=2")));
    EXPECT_EQ(mFile.OpenFile(mDirectory.Path().c_str(), O_WRONLY), KESTATUS{0xE0010015}); // EISDIR
}

TEST_F(FileDescriptorTest, AFailingCloseIsLoggedAndStillInvalidates) {
    ASSERT_EQ(mFile.OpenFile("/dev/null", O_RDONLY), KESTATUS_SUCCESS);
    ASSERT_EQ(close(mFile.GetHandle()), 0); // behind its back
    mFile.CloseHandle();
    EXPECT_EQ(mFile.GetHandle(), -1);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KELinuxCloseFileDescriptor", "close failed, errno=9")));
}

TEST_F(FileDescriptorTest, TheCloseFunctionMarksTheDescriptor) {
    int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int opened = descriptor;
    KELinuxCloseFileDescriptor(descriptor);
    EXPECT_EQ(descriptor, -1);
    EXPECT_FALSE(IsOpen(opened));
    KELinuxCloseFileDescriptor(descriptor);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    descriptor = opened;
    KELinuxCloseFileDescriptor(descriptor);
    EXPECT_EQ(descriptor, -1);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "close failed, errno=9"), 1u);
}

TEST_F(FileDescriptorTest, OwnsItsDescriptor) {
    int descriptor = -1;
    {
        KELinuxFileDescriptor file;
        ASSERT_EQ(file.OpenFile("/dev/null", O_RDONLY), KESTATUS_SUCCESS);
        descriptor = file.GetHandle();
        KELinuxFileDescriptor taker(std::move(file));
        EXPECT_EQ(taker.GetHandle(), descriptor);
        EXPECT_FALSE(file.IsValidHandle()); // NOLINT: moving invalidates
        EXPECT_TRUE(IsOpen(descriptor));
    }
    EXPECT_FALSE(IsOpen(descriptor));
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

} // namespace

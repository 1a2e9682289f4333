// Making and removing files and directories.
#include "files/KEFilesystem.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "TemporaryFolder.h"

using namespace kestrelon;
using testsupport::LogCapture;
using testsupport::TemporaryFolder;

namespace {

class FilesystemTest : public testing::Test {
protected:
    TemporaryFolder mFolder;
    LogCapture mLog;
};

TEST_F(FilesystemTest, CreateDirectories) {
    const KEStdPath path(mFolder / "a/b/c");
    bool created = false;
    EXPECT_EQ(KECreateDirectories(path, &created), KESTATUS_SUCCESS);
    EXPECT_TRUE(created);
    EXPECT_TRUE(path.IsDirectory());
    EXPECT_EQ(KECreateDirectories(path, &created), KESTATUS_SUCCESS);
    EXPECT_FALSE(created) << "it was there";
    EXPECT_EQ(KECreateDirectories(KEStdPath(mFolder / "d"), nullptr), KESTATUS_SUCCESS);
    EXPECT_TRUE(KEStdPath(mFolder / "d").IsDirectory());
    EXPECT_TRUE(mLog.Messages().empty());
}

TEST_F(FilesystemTest, CreateDirectoriesBelowAFile) {
    mFolder.MakeFile("file");
    const std::string path = mFolder / "file/sub";
    bool created = true;
    EXPECT_EQ(KECreateDirectories(KEStdPath(path), &created), KESTATUS_LINUX_ENOTDIR);
    EXPECT_FALSE(created);
    EXPECT_EQ(mLog.Texts(), std::vector<std::string>{"create_directories(" + path + ") failed, err=20"});
    EXPECT_EQ(mLog.Messages()[0].level, KEERROR);
}

TEST_F(FilesystemTest, RemoveAFileOrAnEmptyDirectory) {
    mFolder.MakeFile("file");
    mFolder.MakeDirectory("dir");
    for (const char* entry : {"file", "dir"}) {
        const KEStdPath path(mFolder / entry);
        bool removed = false;
        EXPECT_EQ(KERemoveFileOrDirectory(path, &removed), KESTATUS_SUCCESS);
        EXPECT_TRUE(removed);
        EXPECT_FALSE(path.Exists());
        EXPECT_EQ(KERemoveFileOrDirectory(path, &removed), KESTATUS_SUCCESS);
        EXPECT_FALSE(removed) << "there was none any more";
        EXPECT_EQ(KERemoveFileOrDirectory(path, nullptr), KESTATUS_SUCCESS);
    }
    EXPECT_TRUE(mLog.Messages().empty());
}

TEST_F(FilesystemTest, RemoveADirectoryThatIsNotEmpty) {
    mFolder.MakeDirectory("dir/sub");
    const std::string path = mFolder / "dir";
    bool removed = true;
    EXPECT_EQ(KERemoveFileOrDirectory(KEStdPath(path), &removed), 0xE0010027u); // ENOTEMPTY
    EXPECT_FALSE(removed);
    EXPECT_TRUE(KEStdPath(path).Exists());
    EXPECT_EQ(mLog.Texts(), std::vector<std::string>{"remove(" + path + ") failed, err=39"});
}

TEST_F(FilesystemTest, RemoveATree) {
    mFolder.MakeDirectory("dir/sub/deep");
    mFolder.MakeFile("dir/file");
    mFolder.MakeFile("dir/sub/file");
    const KEStdPath path(mFolder / "dir");
    unsigned long long count = 99;
    EXPECT_EQ(KERemoveDirectoryTree(path, &count), KESTATUS_SUCCESS);
    EXPECT_EQ(count, 5u);
    EXPECT_FALSE(path.Exists());
    EXPECT_EQ(KERemoveDirectoryTree(path, &count), KESTATUS_SUCCESS);
    EXPECT_EQ(count, 0u);
    mFolder.MakeFile("file");
    EXPECT_EQ(KERemoveDirectoryTree(KEStdPath(mFolder / "file"), nullptr), KESTATUS_SUCCESS);
    EXPECT_FALSE(KEStdPath(mFolder / "file").Exists());
    EXPECT_TRUE(mLog.Messages().empty());
}

TEST_F(FilesystemTest, RemoveATreeWithAnImpossibleName) {
    const std::string path = mFolder / std::string(300, 'x');
    unsigned long long count = 99;
    EXPECT_EQ(KERemoveDirectoryTree(KEStdPath(path), &count), 0xE0010024u); // ENAMETOOLONG
    EXPECT_EQ(count, 0u);
    ASSERT_EQ(mLog.Texts().size(), 1u);
    EXPECT_EQ(mLog.Texts()[0], "remove_all(" + path + ") failed, err=36");
}

// The directory that a process works in can vanish; a child process tries it.
[[noreturn]] void AskInAVanishedDirectory(const std::string& directory) {
    LogCapture log;
    KEStdPath path("old");
    EXPECT_EQ(chdir(directory.c_str()), 0);
    EXPECT_EQ(KEGetCurrentWorkingDirPath(path), KESTATUS_SUCCESS);
    EXPECT_EQ(path, KEStdPath(directory));
    EXPECT_EQ(rmdir(directory.c_str()), 0);
    EXPECT_EQ(KEGetCurrentWorkingDirPath(path), KESTATUS_LINUX_ENOENT);
    EXPECT_EQ(path, KEStdPath(directory)) << "unchanged";
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"current_path failed, err=2"});
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST_F(FilesystemTest, CurrentWorkingDirectory) {
    mFolder.MakeDirectory("here");
    EXPECT_EXIT(AskInAVanishedDirectory(mFolder / "here"), testing::ExitedWithCode(0), "");
}

} // namespace

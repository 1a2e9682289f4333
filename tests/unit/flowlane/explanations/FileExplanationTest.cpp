// Why a file cannot be read: missing, a folder, empty, forbidden. Whoever runs the tests may be root, who may
// read everything; a test of the program shows the lines for an ordinary user.

#include "explanations/FileExplanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "base/LogCons.h"

namespace flowlane {
namespace {

using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

class FileExplanationTest : public testing::Test {
protected:
    std::string Make(const std::string& name, const std::string& content) const {
        mFolder.Write(name, content);
        return mFolder / name;
    }

    const TemporaryFolder mFolder;
    LogCapture mLog{kestrelon::logger::Cons};
};

TEST_F(FileExplanationTest, SaysNothingAboutAFileThatCanBeRead) {
    EXPECT_FALSE(ExplainUnreadableFile(Make("file", "x")));
    EXPECT_FALSE(ExplainUnreadableFile("/proc/self/status")); // its size is 0
    EXPECT_FALSE(ExplainUnreadableFile("/dev/null"));
    EXPECT_THAT(mLog.Texts(), IsEmpty());
}

TEST_F(FileExplanationTest, DoesNotWaitForAPipe) {
    const std::string path = mFolder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(ExplainUnreadableFile(path));
    EXPECT_THAT(mLog.Texts(), IsEmpty());
}

TEST_F(FileExplanationTest, NamesAMissingFile) {
    const std::string path = mFolder / "file";
    EXPECT_TRUE(ExplainUnreadableFile(path));
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{
                                     kestrelon::KEWARN, "There is no file '" + path +
                                                            "'. Check its name, or give its whole path."}));
}

TEST_F(FileExplanationTest, OffersTheFileWithTheExtension) {
    const std::string path = mFolder / "file";
    Make("file.ts", "x");
    EXPECT_TRUE(ExplainUnreadableFile(path));
    Make("file.pcapng", "x");
    EXPECT_TRUE(ExplainUnreadableFile(path));
    const std::string start = "There is no file '" + path + "'. Did you mean '" + path + ".ts'";
    EXPECT_THAT(mLog.Texts(), ElementsAre(start + "?", start + " or '" + path + ".pcapng'?"));
}

TEST_F(FileExplanationTest, NamesTheFolderThatIsMissing) {
    EXPECT_TRUE(ExplainUnreadableFile(mFolder / "folder/file"));
    EXPECT_THAT(mLog.Texts(), ElementsAre("There is no folder '" + (mFolder / "folder") +
                                          "'. Check the path of the file."));
}

TEST_F(FileExplanationTest, NamesAFolderAnEmptyFileAndAnEmptyName) {
    const std::string empty = Make("empty", "");
    EXPECT_TRUE(ExplainUnreadableFile(mFolder / ""));
    EXPECT_TRUE(ExplainUnreadableFile(empty));
    EXPECT_TRUE(ExplainUnreadableFile(empty + "/file"));
    EXPECT_TRUE(ExplainUnreadableFile(""));
    EXPECT_THAT(
        mLog.Texts(),
        ElementsAre("'" + (mFolder / "") + "' is a folder. Give the name of a file in it.",
                    "'" + empty + "' is empty: there is nothing to send.",
                    "A part of the path '" + empty + "/file' is a file, not a folder. Check the path.",
                    "The name of the file is empty. Give the name of a file."));
}

TEST_F(FileExplanationTest, TellsLinksThatLeadNowhere) {
    const std::string broken = mFolder / "broken";
    const std::string circle = mFolder / "circle";
    ASSERT_EQ(symlink("nothing", broken.c_str()), 0);
    ASSERT_EQ(symlink("circle", circle.c_str()), 0);
    EXPECT_TRUE(ExplainUnreadableFile(broken));
    EXPECT_TRUE(ExplainUnreadableFile(circle));
    EXPECT_THAT(mLog.Texts(), ElementsAre("'" + broken + "' is a link to a file that does not exist.",
                                          "'" + circle + "' is a link that leads back to itself."));
}

TEST_F(FileExplanationTest, NamesAnyOtherError) {
    const std::string path(5000, 'x');
    EXPECT_TRUE(ExplainUnreadableFile(path));
    EXPECT_THAT(mLog.Texts(),
                ElementsAre("'..." + std::string(140, 'x') + "' cannot be read: File name too long."));
}

TEST(ShortPathTest, CutsBetweenCharacters) {
    EXPECT_EQ(ShortPath(std::string(140, 'x')), std::string(140, 'x'));
    std::string path = "x"; // then characters of two bytes
    for (int i = 0; i < 70; ++i) {
        path += "\u00e4";
    }
    EXPECT_EQ(ShortPath(path), "..." + path.substr(1));
    EXPECT_EQ(ShortPath(path + "y"), "..." + path.substr(3) + "y");
}

TEST(CommandPathTest, FitsInALine) {
    EXPECT_EQ(CommandPath("a.ts"), "'a.ts'");
    EXPECT_EQ(CommandPath("it's.ts"), "'it'\\''s.ts'");
    EXPECT_EQ(CommandPath(std::string(158, 'x')), "'" + std::string(158, 'x') + "'");
    EXPECT_EQ(CommandPath(std::string(100, '\'')), "FILE");
    EXPECT_EQ(CommandPath(std::string(159, 'x')), "FILE");
    EXPECT_EQ(BareCommandPath(std::string(160, 'x'), "FOLDER"), std::string(160, 'x'));
    EXPECT_EQ(BareCommandPath(std::string(161, 'x'), "FOLDER"), "FOLDER");
}

} // namespace
} // namespace flowlane

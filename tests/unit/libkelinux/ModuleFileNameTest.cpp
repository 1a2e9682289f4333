// The file of a running program and the parts of its path.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "KELinuxModuleFileName.h"
#include "LogCapture.h"
#include "SystemCallFaults.h"
#include "kert_debug.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct PathCase {
    const char* path;
    const char* directory;
    const char* baseName;
};

class ModuleFileNameTest : public testing::TestWithParam<PathCase> {};

TEST_P(ModuleFileNameTest, SplitsPaths) {
    KELinuxModuleFileName name;
    EXPECT_EQ(name.InitWithModuleName(GetParam().path), KESTATUS_SUCCESS);
    EXPECT_EQ(name.ModuleName(), GetParam().path);
    EXPECT_EQ(name.Directory(), GetParam().directory);
    EXPECT_EQ(name.BaseName(), GetParam().baseName);
    EXPECT_EQ(name.InitPathComponents(), KESTATUS_SUCCESS) << "again, with the same result";
    EXPECT_EQ(name.Directory(), GetParam().directory);
    EXPECT_EQ(name.BaseName(), GetParam().baseName);
}

INSTANTIATE_TEST_SUITE_P(Paths, ModuleFileNameTest,
                         testing::Values(PathCase{"/usr/local/bin/tool", "/usr/local/bin", "tool"},
                                         PathCase{"tool", ".", "tool"}, PathCase{"/tool", "/", "tool"},
                                         PathCase{"bin/tool", "bin", "tool"},
                                         PathCase{"/usr/bin/", "/usr", "bin"}, PathCase{"/", "/", "/"},
                                         PathCase{"", ".", "."}, PathCase{"..", ".", ".."},
                                         PathCase{"/opt/a b/c.d", "/opt/a b", "c.d"}));

TEST(ModuleFileNameTest, FindsTheFileOfThisProcess) {
    const DebugOutputCapture diagnostics;
    KELinuxModuleFileName name;
    EXPECT_FALSE(name.IsValid());
    ASSERT_EQ(name.InitWithProcessId(getpid()), KESTATUS_SUCCESS);
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_TRUE(name.IsValid());
    EXPECT_EQ(name.ModuleName(), self.string());
    EXPECT_EQ(name.Directory(), self.parent_path().string());
    EXPECT_EQ(name.BaseName(), "unit_libkelinux");
    EXPECT_THAT(diagnostics.Messages(), IsEmpty());
    name.Clear();
    EXPECT_FALSE(name.IsValid());
    EXPECT_EQ(name.ModuleName(), "");
    EXPECT_EQ(name.Directory(), "");
    EXPECT_EQ(name.BaseName(), "");
}

TEST(ModuleFileNameTest, AProcessThatIsNotThereIsReported) {
    const DebugOutputCapture diagnostics;
    KELinuxModuleFileName name;
    ASSERT_EQ(name.InitWithModuleName("/usr/bin/tool"), KESTATUS_SUCCESS);
    const pid_t gone = fork();
    if (gone == 0) {
        _exit(0);
    }
    ASSERT_EQ(waitpid(gone, nullptr, 0), gone);
    EXPECT_EQ(name.InitWithProcessId(gone), KESTATUS{0xE0010002});
    EXPECT_FALSE(name.IsValid());
    EXPECT_EQ(name.Directory(), "");
    EXPECT_EQ(name.BaseName(), "");
    EXPECT_THAT(diagnostics.Messages(),
                ElementsAre("ERROR: KESTATUS kestrelon::KELinuxModuleFileName::InitWithProcessId(pid_t): "
                            "readlink failed, err=2\n"));
}

TEST(ModuleFileNameTest, OtherFailuresAreReportedToo) {
    const DebugOutputCapture diagnostics;
    KELinuxModuleFileName name;
    const SystemCallFault fault("readlink", EACCES);
    EXPECT_EQ(name.InitWithProcessId(getpid()), KESTATUS{0xE001000D});
    ASSERT_EQ(diagnostics.Messages().size(), 1u);
    EXPECT_THAT(diagnostics.Messages()[0], testing::EndsWith("readlink failed, err=13\n"));
}

TEST(ModuleFileNameTest, ANullPathIsRefused) {
    KELinuxModuleFileName name;
    ASSERT_EQ(name.InitWithModuleName("/usr/bin/tool"), KESTATUS_SUCCESS);
    EXPECT_EQ(name.InitWithModuleName(nullptr), KESTATUS_INVALID_PARAMETER);
    EXPECT_FALSE(name.IsValid());
}

TEST(ModuleFileNameTest, ALongPathIsCutOnlyForItsParts) {
    const std::string path = "/" + std::string(3000, 'd') + "/" + std::string(3000, 'f');
    KELinuxModuleFileName name;
    ASSERT_EQ(name.InitWithModuleName(path.c_str()), KESTATUS_SUCCESS);
    EXPECT_EQ(name.ModuleName(), path);
    EXPECT_EQ(name.Directory(), "/" + std::string(3000, 'd'));
    EXPECT_EQ(name.BaseName(), std::string(4095 - 3002, 'f'));
}

} // namespace

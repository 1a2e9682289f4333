// Paths: their parts, changes and queries, and the exceptions of the standard library.
#include "files/KEStdPath.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "files/KEGuardFilesystemOperation.h"

using namespace kestrelon;
using testsupport::LogCapture;
using testsupport::TemporaryFolder;

namespace {

TEST(StdPathTest, Construction) {
    EXPECT_STREQ(KEStdPath("a/b").c_str(), "a/b");
    EXPECT_STREQ(KEStdPath(std::string("a/b")).c_str(), "a/b");
    EXPECT_STREQ(KEStdPath(std::filesystem::path("a/b")).c_str(), "a/b");
    EXPECT_TRUE(KEStdPath().IsEmpty());
    EXPECT_TRUE(KEStdPath("").IsEmpty());
    EXPECT_TRUE(KEStdPath(static_cast<const char*>(nullptr)).IsEmpty());
    EXPECT_FALSE(KEStdPath(".").IsEmpty());
    EXPECT_EQ(KEStdPath("x").StdPath(), std::filesystem::path("x"));
    EXPECT_TRUE(KEStdPath("a") == KEStdPath("a"));
    EXPECT_FALSE(KEStdPath("a") == KEStdPath("b"));
}

TEST(StdPathTest, Parts) {
    const struct {
        const char* path;
        const char* rootDirectory = "";
        const char* relativePath = "";
        const char* parentPath = "";
        const char* filename = "";
        const char* stem = "";
        const char* extension = "";
    } cases[] = {
        {.path = "/dir/sub/file.tar.gz",
         .rootDirectory = "/",
         .relativePath = "dir/sub/file.tar.gz",
         .parentPath = "/dir/sub",
         .filename = "file.tar.gz",
         .stem = "file.tar",
         .extension = ".gz"},
        {.path = "dir/file",
         .relativePath = "dir/file",
         .parentPath = "dir",
         .filename = "file",
         .stem = "file"},
        {.path = "file.cap",
         .relativePath = "file.cap",
         .filename = "file.cap",
         .stem = "file",
         .extension = ".cap"},
        {.path = ".cap", .relativePath = ".cap", .filename = ".cap", .stem = ".cap"},
        {.path = "a.", .relativePath = "a.", .filename = "a.", .stem = "a", .extension = "."},
        {.path = "dir/", .relativePath = "dir/", .parentPath = "dir"},
        {.path = "/", .rootDirectory = "/", .parentPath = "/"},
        {.path = ""},
        {.path = "..", .relativePath = "..", .filename = "..", .stem = ".."},
        {.path = "d.x/f", .relativePath = "d.x/f", .parentPath = "d.x", .filename = "f", .stem = "f"},
    };
    for (const auto& test : cases) {
        const KEStdPath path(test.path);
        EXPECT_STREQ(path.RootName().c_str(), "") << test.path;
        EXPECT_STREQ(path.RootDirectory().c_str(), test.rootDirectory) << test.path;
        EXPECT_STREQ(path.RootPath().c_str(), test.rootDirectory) << test.path;
        EXPECT_STREQ(path.RelativePath().c_str(), test.relativePath) << test.path;
        EXPECT_STREQ(path.ParentPath().c_str(), test.parentPath) << test.path;
        EXPECT_STREQ(path.Filename().c_str(), test.filename) << test.path;
        EXPECT_STREQ(path.Stem().c_str(), test.stem) << test.path;
        EXPECT_STREQ(path.Extension().c_str(), test.extension) << test.path;
        EXPECT_STREQ(path.c_str(), test.path) << "unchanged";
    }
}

TEST(StdPathTest, ANullTextAddsNothing) {
    KEStdPath path("a");
    EXPECT_EQ(path.Concat(nullptr), KESTATUS_SUCCESS);
    EXPECT_STREQ(path.c_str(), "a");
    EXPECT_EQ(path.Append(nullptr), KESTATUS_SUCCESS);
    EXPECT_STREQ(path.c_str(), "a/");
}

TEST(StdPathTest, Append) {
    const struct {
        const char* path;
        const char* element;
        const char* result;
    } cases[] = {
        {"a", "b", "a/b"}, {"a/", "b", "a/b"}, {"", "b", "b"},
        {"a", "", "a/"},   {"a", "/b", "/b"},  {"/", "b", "/b"},
    };
    for (const auto& test : cases) {
        KEStdPath path(test.path);
        EXPECT_EQ(path.Append(test.element), KESTATUS_SUCCESS);
        EXPECT_STREQ(path.c_str(), test.result);
    }
}

TEST(StdPathTest, Concat) {
    KEStdPath path("dir/file");
    EXPECT_EQ(path.Concat("_0001"), KESTATUS_SUCCESS);
    EXPECT_EQ(path.Concat(""), KESTATUS_SUCCESS);
    EXPECT_EQ(path.Concat(".pcapng"), KESTATUS_SUCCESS);
    EXPECT_STREQ(path.c_str(), "dir/file_0001.pcapng");
    EXPECT_EQ(path.Concat("/x"), KESTATUS_SUCCESS);
    EXPECT_STREQ(path.c_str(), "dir/file_0001.pcapng/x");
}

TEST(StdPathTest, QueriesOfTheFileSystem) {
    const TemporaryFolder folder;
    folder.MakeFile("file");
    folder.MakeDirectory("dir");
    std::filesystem::create_symlink(folder / "file", folder / "link");
    std::filesystem::create_symlink(folder / "nowhere", folder / "broken");
    const struct {
        std::string path;
        bool exists;
        bool isDirectory;
        bool isFile;
    } cases[] = {
        {folder / "file", true, false, true},
        {folder / "dir", true, true, false},
        {folder / "link", true, false, true},
        {folder / "broken", false, false, false},
        {folder / "missing", false, false, false},
        {folder / "file/x", false, false, false},
        {"/dev/null", true, false, false},
        {"", false, false, false},
        {std::string(5000, 'x'), false, false, false}, // too long a name: an error, and so a no
    };
    const LogCapture log;
    for (const auto& test : cases) {
        const KEStdPath path(test.path);
        EXPECT_EQ(path.Exists(), test.exists) << test.path;
        EXPECT_EQ(path.IsDirectory(), test.isDirectory) << test.path;
        EXPECT_EQ(path.IsFile(), test.isFile) << test.path;
    }
    EXPECT_TRUE(log.Messages().empty());
}

TEST(StdPathTest, Equivalence) {
    const TemporaryFolder folder;
    folder.MakeFile("file");
    folder.MakeFile("other");
    std::filesystem::create_symlink(folder / "file", folder / "link");
    const KEStdPath file(folder / "file");
    EXPECT_TRUE(file.IsEquivalentTo(KEStdPath(folder / "link")));
    EXPECT_TRUE(file.IsEquivalentTo(KEStdPath(folder / "./file")));
    EXPECT_FALSE(file.IsEquivalentTo(KEStdPath(folder / "other")));
    EXPECT_FALSE(file.IsEquivalentTo(KEStdPath(folder / "missing")));
    EXPECT_FALSE(KEStdPath(folder / "missing").IsEquivalentTo(KEStdPath(folder / "missing")));
}

TEST(StdPathTest, CanonicalPath) {
    const TemporaryFolder folder;
    folder.MakeDirectory("dir");
    folder.MakeFile("file");
    std::filesystem::create_symlink(folder / "dir", folder / "link");
    KEStdPath path(folder / "link/../dir/./../file");
    EXPECT_EQ(path.MakeCanonicalPath(), KESTATUS_SUCCESS);
    EXPECT_EQ(path, KEStdPath(folder / "file"));
    KEStdPath result("old");
    EXPECT_EQ(KEMakeCanonicalPath(result, KEStdPath(folder / "link")), KESTATUS_SUCCESS);
    EXPECT_EQ(result, KEStdPath(folder / "dir"));
}

TEST(StdPathTest, CanonicalPathOfWhatIsMissing) {
    const LogCapture log;
    const TemporaryFolder folder;
    const std::string missing = folder / "missing";
    KEStdPath path(missing);
    EXPECT_EQ(path.MakeCanonicalPath(), KESTATUS_LINUX_ENOENT);
    EXPECT_EQ(path, KEStdPath(missing)) << "unchanged";
    KEStdPath result("old");
    EXPECT_EQ(KEMakeCanonicalPath(result, path), KESTATUS_LINUX_ENOENT);
    EXPECT_EQ(result, KEStdPath("old"));
    EXPECT_EQ(log.Count(KEERROR, "canonical(" + missing + ") failed, err=2"), 2u);
}

TEST(StdPathTest, AbsolutePath) {
    const std::string here = std::filesystem::current_path().string();
    KEStdPath path("not/existing");
    EXPECT_EQ(path.MakeAbsolutePath(), KESTATUS_SUCCESS);
    EXPECT_EQ(path, KEStdPath(here + "/not/existing"));
    KEStdPath result;
    EXPECT_EQ(KEMakeAbsolutePath(result, KEStdPath("/a/b")), KESTATUS_SUCCESS);
    EXPECT_EQ(result, KEStdPath("/a/b"));
}

TEST(StdPathTest, AbsolutePathOfNothingFails) {
    const LogCapture log;
    KEStdPath result("old");
    EXPECT_EQ(KEMakeAbsolutePath(result, KEStdPath("")), KESTATUS_LINUX_EINVAL);
    EXPECT_EQ(result, KEStdPath("old"));
    EXPECT_EQ(log.Count(KEERROR, "absolute() failed, err=22"), 1u);
}

TEST(GuardFilesystemOperationTest, OtherExceptionsFail) {
    const LogCapture log;
    EXPECT_EQ(KEGuardFilesystemOperation([] { throw std::bad_alloc(); }, "x({}) failed, err={}", "p"),
              0xE0000001u);
    EXPECT_EQ(KEGuardFilesystemOperation([] { throw 5; }, "x failed, err={}"), 0xE0000001u);
    EXPECT_EQ(log.Count(KEERROR, "unknown exception"), 2u);
    EXPECT_EQ(log.Messages().size(), 2u);
}

TEST(GuardFilesystemOperationTest, FilesystemErrorsAreMappedWhateverTheirCategory) {
    const LogCapture log;
    const auto fail = [] {
        throw std::filesystem::filesystem_error("what", std::error_code(ENOSPC, std::generic_category()));
    };
    EXPECT_EQ(KEGuardFilesystemOperation(fail, "x({}) failed, err={}", KEStdPath("p")),
              KESTATUS_LINUX_ENOSPC);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"x(p) failed, err=28"});
}

} // namespace

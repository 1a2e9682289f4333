// A folder of its own for a test, removed with all it holds when the test ends.
#ifndef FLOWLANE_TESTS_TEMPORARYFOLDER_H
#define FLOWLANE_TESTS_TEMPORARYFOLDER_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace testsupport {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = testing::TempDir() + "flowlane-test.XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        mPath = std::filesystem::canonical(name);
    }
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(mPath, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The path of an entry, existing or not.
    std::string operator/(const std::string& entry) const { return (mPath / entry).string(); }
    std::string Path() const { return mPath.string(); }
    void MakeFile(const std::string& entry) const { std::ofstream(mPath / entry) << "content"; }
    bool Exists(const std::string& entry) const { return std::filesystem::exists(mPath / entry); }
    // A file's content, "<none>" when there is no such file.
    std::string Read(const std::string& entry) const {
        std::ifstream file(mPath / entry, std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "<none>";
    }
    void Write(const std::string& entry, const std::string& content) const {
        std::ofstream(mPath / entry, std::ios::binary) << content;
    }
    // A file that takes no byte: a link, so that nothing happens to the device itself.
    std::string FullDisk(const std::string& entry) const {
        std::filesystem::create_symlink("/dev/full", mPath / entry);
        return *this / entry;
    }
    void MakeDirectory(const std::string& entry) const { std::filesystem::create_directories(mPath / entry); }

private:
    std::filesystem::path mPath;
};

} // namespace testsupport

#endif

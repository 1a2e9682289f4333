// A folder of its own for a test, removed with all it holds when the test ends.
#ifndef FLOWLANE_TESTS_TEMPORARYFOLDER_H
#define FLOWLANE_TESTS_TEMPORARYFOLDER_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace testsupport {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = testing::TempDir() + "libketb.XXXXXX";
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
    void MakeDirectory(const std::string& entry) const { std::filesystem::create_directories(mPath / entry); }

private:
    std::filesystem::path mPath;
};

} // namespace testsupport

#endif

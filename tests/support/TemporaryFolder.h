// A new folder for a test, in the system's folder for temporary files (TMPDIR). It is removed with its
// contents when the object goes away.
#ifndef FLOWLANE_TESTS_TEMPORARYFOLDER_H
#define FLOWLANE_TESTS_TEMPORARYFOLDER_H

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace testsupport {

class TemporaryFolder {
public:
    // Throws when there can be none.
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "flowlane-test.XXXXXX";
        if (!mkdtemp(name.data())) {
            throw std::system_error(errno, std::generic_category(), name);
        }
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
    void MakeFile(const std::string& entry) const { Write(entry, "content"); }
    bool Exists(const std::string& entry) const { return std::filesystem::exists(mPath / entry); }
    // A file's content, "<none>" when there is no such file.
    std::string Read(const std::string& entry) const {
        std::ifstream file(mPath / entry, std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "<none>";
    }
    void Write(const std::string& entry, const std::string& content) const {
        std::ofstream(mPath / entry, std::ios::binary) << content;
    }
    // The path of a file that cannot take a byte. It is a link, so that removing it leaves the device alone.
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

// A directory of its own for one test, removed with all that is in it.
#ifndef FLOWLANE_TESTS_TEMPDIRECTORY_H
#define FLOWLANE_TESTS_TEMPDIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace testsupport {

class TempDirectory {
public:
    TempDirectory() {
        char name[] = "/tmp/ketb_file_XXXXXX";
        mPath = mkdtemp(name);
    }
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path() const { return mPath; }
    std::string File(const std::string& name) const { return mPath + "/" + name; }
    bool Exists(const std::string& name) const { return std::filesystem::exists(File(name)); }

    // The file's content, "<none>" when there is no such file.
    std::string Read(const std::string& name) const {
        std::ifstream file(File(name), std::ios::binary);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "<none>";
    }
    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(File(name), std::ios::binary) << content;
    }
    // A file that takes no byte: a link, so that nothing happens to the device itself.
    std::string FullDisk(const std::string& name) const {
        std::filesystem::create_symlink("/dev/full", File(name));
        return File(name);
    }

private:
    std::string mPath;
};

} // namespace testsupport

#endif

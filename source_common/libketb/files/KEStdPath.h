// A path of the file system: the standard library's, without its exceptions.
#ifndef KESTRELON_KESTDPATH_H
#define KESTRELON_KESTDPATH_H

#include <filesystem>
#include <string>
#include <utility>

#include "kestatus.h"
#include "text/KEFormatter.h"

namespace kestrelon {

// A plain value. A null text gives an empty path. When memory is short, so does any constructor and any part
// of a path.
class KEStdPath {
public:
    KEStdPath() noexcept = default;
    explicit KEStdPath(const std::string& path) noexcept : KEStdPath(path.c_str()) {}
    explicit KEStdPath(const char* path) noexcept;
    explicit KEStdPath(std::filesystem::path path) noexcept : mPath(std::move(path)) {}

    const char* c_str() const noexcept { return mPath.c_str(); }
    const std::filesystem::path& StdPath() const noexcept { return mPath; }
    bool IsEmpty() const noexcept { return mPath.empty(); }

    // Ask the file system; links are followed. False when it cannot be asked.
    bool Exists() const noexcept;
    bool IsDirectory() const noexcept;
    bool IsFile() const noexcept; // a regular file
    bool IsEquivalentTo(const KEStdPath& other) const noexcept;

    // The parts of the path as the standard library decomposes it.
    KEStdPath RootName() const noexcept;
    KEStdPath RootDirectory() const noexcept;
    KEStdPath RootPath() const noexcept;
    KEStdPath RelativePath() const noexcept;
    KEStdPath ParentPath() const noexcept;
    KEStdPath Filename() const noexcept;
    KEStdPath Stem() const noexcept;
    KEStdPath Extension() const noexcept;

    // Append adds an element behind a separator; an absolute one replaces the path. Concat adds text as it
    // is. Null counts as "".
    //   KESTATUS_FAILED  memory is short; the path is unchanged
    [[nodiscard]] KESTATUS Append(const char* element) noexcept;
    [[nodiscard]] KESTATUS Concat(const char* text) noexcept;

    // Change the path in place; on failure it is unchanged. Statuses as below.
    [[nodiscard]] KESTATUS MakeCanonicalPath() noexcept;
    [[nodiscard]] KESTATUS MakeAbsolutePath() noexcept;

    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const noexcept {
        return fmt.FmtString(c_str(), spec);
    }

    friend bool operator==(const KEStdPath&, const KEStdPath&) noexcept = default;

private:
    std::filesystem::path mPath;
};

// The absolute path without links, "." and ".."; the path must exist. A failure is logged on Global and gives
// the status of its errno, or KESTATUS_FAILED; result is unchanged then. result may be path itself.
[[nodiscard]] KESTATUS KEMakeCanonicalPath(KEStdPath& result, const KEStdPath& path) noexcept;
// The path behind the working directory, unless it is absolute already. It need not exist. Failures as above.
[[nodiscard]] KESTATUS KEMakeAbsolutePath(KEStdPath& result, const KEStdPath& path) noexcept;

} // namespace kestrelon

#endif

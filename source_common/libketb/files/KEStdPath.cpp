#include "files/KEStdPath.h"

#include <exception>
#include <system_error>
#include <utility>

#include "files/KEGuardFilesystemOperation.h"

namespace kestrelon {

namespace {

namespace fs = std::filesystem;

template <typename MakePath>
KEStdPath PathOrEmpty(MakePath makePath) noexcept {
    try {
        return KEStdPath(makePath());
    } catch (const std::exception&) {
        return KEStdPath();
    }
}

// Changes a copy of path, so that a failure leaves it as it was.
template <typename Change>
KESTATUS ChangePath(fs::path& path, Change change) noexcept {
    return KEGuardFilesystemOperation(
        [&] {
            fs::path changed = path;
            change(changed);
            path.swap(changed);
        },
        "changing path {} failed, err={}", path.c_str());
}

} // namespace

KEStdPath::KEStdPath(const char* path) noexcept
    : KEStdPath(PathOrEmpty([path] { return fs::path(path ? path : ""); })) {}

bool KEStdPath::Exists() const noexcept {
    std::error_code error;
    return fs::exists(mPath, error);
}

bool KEStdPath::IsDirectory() const noexcept {
    std::error_code error;
    return fs::is_directory(mPath, error);
}

bool KEStdPath::IsFile() const noexcept {
    std::error_code error;
    return fs::is_regular_file(mPath, error);
}

bool KEStdPath::IsEquivalentTo(const KEStdPath& other) const noexcept {
    std::error_code error;
    return fs::equivalent(mPath, other.mPath, error);
}

KEStdPath KEStdPath::RootName() const noexcept {
    return PathOrEmpty([this] { return mPath.root_name(); });
}

KEStdPath KEStdPath::RootDirectory() const noexcept {
    return PathOrEmpty([this] { return mPath.root_directory(); });
}

KEStdPath KEStdPath::RootPath() const noexcept {
    return PathOrEmpty([this] { return mPath.root_path(); });
}

KEStdPath KEStdPath::RelativePath() const noexcept {
    return PathOrEmpty([this] { return mPath.relative_path(); });
}

KEStdPath KEStdPath::ParentPath() const noexcept {
    return PathOrEmpty([this] { return mPath.parent_path(); });
}

KEStdPath KEStdPath::Filename() const noexcept {
    return PathOrEmpty([this] { return mPath.filename(); });
}

KEStdPath KEStdPath::Stem() const noexcept {
    return PathOrEmpty([this] { return mPath.stem(); });
}

KEStdPath KEStdPath::Extension() const noexcept {
    return PathOrEmpty([this] { return mPath.extension(); });
}

KESTATUS KEStdPath::Append(const char* element) noexcept {
    return ChangePath(mPath, [element](fs::path& path) { path /= element ? element : ""; });
}

KESTATUS KEStdPath::Concat(const char* text) noexcept {
    return ChangePath(mPath, [text](fs::path& path) { path += text ? text : ""; });
}

KESTATUS KEStdPath::MakeCanonicalPath() noexcept {
    return KEMakeCanonicalPath(*this, *this);
}

KESTATUS KEStdPath::MakeAbsolutePath() noexcept {
    return KEMakeAbsolutePath(*this, *this);
}

KESTATUS KEMakeCanonicalPath(KEStdPath& result, const KEStdPath& path) noexcept {
    return KEGuardFilesystemOperation([&] { result = KEStdPath(fs::canonical(path.StdPath())); },
                                      "canonical({}) failed, err={}", path);
}

KESTATUS KEMakeAbsolutePath(KEStdPath& result, const KEStdPath& path) noexcept {
    return KEGuardFilesystemOperation([&] { result = KEStdPath(fs::absolute(path.StdPath())); },
                                      "absolute({}) failed, err={}", path);
}

} // namespace kestrelon

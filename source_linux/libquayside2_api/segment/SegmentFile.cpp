#include "segment/SegmentFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/ProcessSearch.h"
#include "segment/SegmentLayout.h"

namespace quayside2::segment {

namespace {

constexpr std::size_t cMaxNameLength = 64;
constexpr int cOpenFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
constexpr mode_t cFileMode = S_IRUSR | S_IWUSR;
constexpr mode_t cOthersMode = S_IRWXG | S_IRWXO;
// How often to look whether another process has finished its set-up, once a millisecond.
constexpr int cSetUpTries = 2000;
// How often to look whether a port that is held for its properties is free again, once a millisecond.
constexpr int cBriefUseTries = 200;
// How often to start again because the file was removed while it was being opened.
constexpr int cOpenTries = 100;
constexpr std::uint64_t cStatBlockBytes = 512;
constexpr std::uint64_t cReservePiece = 256u << 10;

KESTATUS StatusOfOpenError(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
        return KESTATUS_NOT_ALLOWED;
    case ELOOP:  // a symbolic link
    case EISDIR: // a folder
    case ENXIO:  // a socket or a device that is not there
    case ENODEV:
        return KESTATUS_INVALID_FILE;
    default:
        return KEStatusFromErrno(error);
    }
}

flock LockOf(short type, std::int64_t offset, std::int64_t bytes = 1) {
    flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = bytes;
    return lock;
}

// Takes or frees a lock without waiting.
int SetLock(int descriptor, short type, std::int64_t offset, std::int64_t bytes = 1) {
    flock lock = LockOf(type, offset, bytes);
    while (fcntl(descriptor, F_OFD_SETLK, &lock) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

bool IsConflict(int error) {
    return error == EAGAIN || error == EACCES;
}

void SleepMillisecond() {
    constexpr timespec cMillisecond = {0, 1000000};
    nanosleep(&cMillisecond, nullptr);
}

KESTATUS TakeSetUpLock(int descriptor) {
    for (int tries = 0; tries < cSetUpTries; ++tries) {
        const int error = SetLock(descriptor, F_WRLCK, cSetUpLockOffset);
        if (error == 0) {
            return KESTATUS_SUCCESS;
        }
        if (!IsConflict(error)) {
            return KEStatusFromErrno(error);
        }
        SleepMillisecond();
    }
    return KESTATUS_TIMEOUT;
}

// Reserves the file's memory, so that touching it can never fail later. It does that piece by piece: a signal
// undoes the piece at hand, and a process with a fast timer would never come to the end of a large one. The
// file gets its size first, so that it is known to be unfinished while only a part is reserved.
int Reserve(int descriptor) {
    if (ftruncate(descriptor, static_cast<off_t>(cFileBytes)) != 0) {
        return errno;
    }
    for (std::uint64_t offset = 0; offset < cFileBytes;) {
        const std::uint64_t bytes = std::min(cReservePiece, cFileBytes - offset);
        const int error = posix_fallocate(descriptor, static_cast<off_t>(offset), static_cast<off_t>(bytes));
        if (error == 0) {
            offset += bytes;
        } else if (error != EINTR) {
            return error;
        }
    }
    return 0;
}

// Whether a segment could be made in the folder of this path. Makes nothing.
KESTATUS CheckFolder(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        return StatusOfOpenError(errno);
    }
    struct statvfs info = {};
    if (statvfs(folder.c_str(), &info) != 0) {
        return KEStatusFromErrno(errno);
    }
    // A file system without a limit reports 0 in all.
    const bool isFull = info.f_blocks != 0 && info.f_bavail < (cFileBytes - 1) / info.f_frsize + 1;
    const bool hasNoPlace = info.f_files != 0 && info.f_favail == 0;
    return isFull || hasNoPlace ? KEStatusFromErrno(ENOSPC) : KESTATUS_SUCCESS;
}

bool WriteAll(int descriptor, const void* data, std::size_t size, off_t offset) {
    return pwrite(descriptor, data, size, offset) == static_cast<ssize_t>(size);
}

} // namespace

bool IsValidSegmentName(std::string_view name) noexcept {
    if (name.empty() || name.size() > cMaxNameLength) {
        return false;
    }
    constexpr std::string_view cAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";
    return name.find_first_not_of(cAllowed) == std::string_view::npos;
}

std::string SegmentPath(std::string_view directory, std::string_view name) {
    std::string path(directory);
    path += "/quayside2-";
    path += std::to_string(geteuid());
    path += '-';
    path += name;
    return path;
}

KESTATUS SegmentFile::Open(const std::string& path) {
    for (int tries = 0; tries < cOpenTries; ++tries) {
        KESTATUS st = OpenExisting(path);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        bool removed = false;
        st = SetUp(path, removed);
        if (!removed) {
            if (st != KESTATUS_SUCCESS) {
                mFile.Close();
            }
            return st;
        }
    }
    mFile.Close();
    return KESTATUS_BUSY;
}

// Opens the file or creates an empty one. It takes two steps: a sticky folder may refuse O_CREAT on another
// user's file with a status that would hide the reason.
KESTATUS SegmentFile::OpenExisting(const std::string& path) {
    for (int tries = 0; tries < cOpenTries; ++tries) {
        int error = mFile.Open(path.c_str(), cOpenFlags, 0);
        if (error == 0) {
            return CheckKind();
        }
        if (error != ENOENT) {
            return StatusOfOpenError(error);
        }
        error = mFile.Open(path.c_str(), cOpenFlags | O_CREAT | O_EXCL, cFileMode);
        if (error == 0) {
            // The mask of the process may have taken bits away that we need.
            return fchmod(mFile.Descriptor(), cFileMode) == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(errno);
        }
        if (error != EEXIST) {
            return StatusOfOpenError(error);
        }
    }
    return KESTATUS_BUSY;
}

KESTATUS SegmentFile::CheckKind() const {
    struct stat info = {};
    if (fstat(mFile.Descriptor(), &info) != 0) {
        return KEStatusFromErrno(errno);
    }
    // A file with a second name may have another purpose.
    if (!S_ISREG(info.st_mode) || info.st_nlink > 1) {
        return KESTATUS_INVALID_FILE;
    }
    if (info.st_uid != geteuid() || (info.st_mode & cOthersMode) != 0) {
        return KESTATUS_NOT_ALLOWED;
    }
    return KESTATUS_SUCCESS;
}

// Completes the file, under the set-up lock. removed: its name was taken away meanwhile, by a failed set-up
// or by the user, so another file has to be opened.
KESTATUS SegmentFile::SetUp(const std::string& path, bool& removed) {
    const int descriptor = mFile.Descriptor();
    KESTATUS st = TakeSetUpLock(descriptor);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    struct stat info = {};
    if (fstat(descriptor, &info) != 0) {
        return KEStatusFromErrno(errno);
    }
    removed = info.st_nlink == 0;
    if (removed) {
        return KESTATUS_BUSY;
    }
    bool empty = false;
    st = CheckHeader(empty);
    if (st == KESTATUS_SUCCESS && empty) {
        st = Initialise();
        if (st != KESTATUS_SUCCESS) {
            RemoveUnfinished(path);
        }
    }
    // The library makes no file with holes, but such a file can be used when they are filled.
    if (st == KESTATUS_SUCCESS && !empty &&
        static_cast<std::uint64_t>(info.st_blocks) * cStatBlockBytes < cFileBytes) {
        const int error = Reserve(descriptor);
        st = error == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(error);
    }
    static_cast<void>(SetLock(descriptor, F_UNLCK, cSetUpLockOffset));
    return st;
}

// Takes the file's name away, unless another file has it by now.
void SegmentFile::RemoveUnfinished(const std::string& path) const noexcept {
    struct stat own = {};
    struct stat named = {};
    if (fstat(mFile.Descriptor(), &own) == 0 && lstat(path.c_str(), &named) == 0 &&
        own.st_dev == named.st_dev && own.st_ino == named.st_ino) {
        unlink(path.c_str());
    }
}

// empty: the file was never completed and is free to be initialised.
KESTATUS SegmentFile::CheckHeader(bool& empty) const {
    const int descriptor = mFile.Descriptor();
    struct stat info = {};
    if (fstat(descriptor, &info) != 0) {
        return KEStatusFromErrno(errno);
    }
    FileHeader header = {};
    const ssize_t read = pread(descriptor, &header, sizeof header, 0);
    if (read < 0) {
        return KEStatusFromErrno(errno);
    }
    const auto size = static_cast<std::uint64_t>(info.st_size);
    if (size == 0 || (size == cFileBytes && header.magic == 0)) {
        empty = true;
        return KESTATUS_SUCCESS;
    }
    if (read < static_cast<ssize_t>(sizeof header.magic) || header.magic != cMagic) {
        return KESTATUS_INVALID_FILE;
    }
    if (std::memcmp(&header, &cExpectedHeader, sizeof header) != 0 || size != cFileBytes) {
        return KESTATUS_VERSION_MISMATCH;
    }
    return KESTATUS_SUCCESS;
}

// The magic number comes last; it makes the file complete.
KESTATUS SegmentFile::Initialise() {
    const int descriptor = mFile.Descriptor();
    const int error = Reserve(descriptor);
    if (error != 0) {
        return KEStatusFromErrno(error);
    }
    FileHeader header = cExpectedHeader;
    header.magic = 0;
    if (!WriteAll(descriptor, &header, sizeof header, 0) ||
        !WriteAll(descriptor, &cMagic, sizeof cMagic, offsetof(FileHeader, magic))) {
        return KESTATUS_WRITE_FILE_FAILED;
    }
    return KESTATUS_SUCCESS;
}

// A child that was forked just now may have its copy of the descriptor still open. The locks must not live as
// long as that.
SegmentFile::~SegmentFile() {
    if (mFile.IsOpen()) {
        static_cast<void>(SetLock(mFile.Descriptor(), F_UNLCK, 0, cSetUpLockOffset + 1));
    }
}

KESTATUS SegmentFile::LockPort(std::uint32_t port, PortUse use) {
    const int descriptor = mFile.Descriptor();
    const std::int64_t trafficOffset = cTrafficLockOffset + port;
    int error = SetLock(descriptor, F_WRLCK, cPortLockOffset + port);
    for (int tries = 0; IsConflict(error) && tries < cBriefUseTries && !IsLocked(trafficOffset); ++tries) {
        SleepMillisecond();
        error = SetLock(descriptor, F_WRLCK, cPortLockOffset + port);
    }
    if (error == 0 && use == PortUse::Traffic) {
        error = SetLock(descriptor, F_WRLCK, trafficOffset);
    }
    if (IsConflict(error)) {
        return KESTATUS_IN_USE;
    }
    return error == 0 ? KESTATUS_SUCCESS : KEStatusFromErrno(error);
}

bool SegmentFile::IsPortHeld(std::uint32_t port) const noexcept {
    return IsLocked(cPortLockOffset + port);
}

KESTATUS SegmentFile::LookAtPort(const std::string& path, std::uint32_t port, bool& isBusy) {
    isBusy = false;
    SegmentFile segment;
    const int error = segment.mFile.Open(path.c_str(), cOpenFlags, 0);
    if (error != 0) {
        return error == ENOENT ? CheckFolder(path) : StatusOfOpenError(error);
    }
    KESTATUS st = segment.CheckKind();
    if (st == KESTATUS_SUCCESS) {
        st = segment.WaitUntilMade();
    }
    if (st == KESTATUS_SUCCESS) {
        isBusy = segment.IsLocked(cTrafficLockOffset + port);
    }
    return st;
}

std::string SegmentFile::PortHolder(const std::string& path, std::uint32_t port) {
    return ProcessWithLock(path, cPortLockOffset + port);
}

// Checks the header; while another process is making the file, waits for it as Open does.
KESTATUS SegmentFile::WaitUntilMade() const {
    for (int tries = 0; tries < cSetUpTries; ++tries) {
        const bool isBeingMade = IsLocked(cSetUpLockOffset);
        bool empty = false;
        const KESTATUS st = CheckHeader(empty);
        if (st != KESTATUS_SUCCESS || !empty || !isBeingMade) {
            return st;
        }
        SleepMillisecond();
    }
    return KESTATUS_TIMEOUT;
}

bool SegmentFile::IsLocked(std::int64_t offset) const noexcept {
    flock lock = LockOf(F_WRLCK, offset);
    // When the kernel does not answer, assume a holder: that costs time, not frames.
    return fcntl(mFile.Descriptor(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

} // namespace quayside2::segment

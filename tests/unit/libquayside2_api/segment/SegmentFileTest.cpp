// The segment's file: made, found, completed, and refused when it is not what it should be.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "segment/SegmentFile.h"
#include "segment/SegmentLayout.h"

namespace {

using namespace quayside2::segment;

// Reservations of more bytes are interrupted; after some of them there is no space, so that nothing hangs.
off_t gLongestReservation = std::numeric_limits<off_t>::max();
int gInterruptions = 0;

// While it is set, sleeping takes no time and is counted, in nanoseconds.
bool gIsTimeVirtual = false;
std::int64_t gSlept = 0;

} // namespace

// In place of the system's own.
extern "C" int nanosleep(const timespec* time, timespec* rest) {
    if (gIsTimeVirtual) {
        gSlept += time->tv_sec * 1'000'000'000 + time->tv_nsec;
        return 0;
    }
    return static_cast<int>(syscall(SYS_nanosleep, time, rest));
}

extern "C" int posix_fallocate(int file, off_t offset, off_t bytes) {
    if (bytes > gLongestReservation) {
        return ++gInterruptions < 100 ? EINTR : ENOSPC;
    }
    return syscall(SYS_fallocate, file, 0, offset, bytes) == 0 ? 0 : errno;
}

namespace {

class SegmentFileTest : public testing::Test {
protected:
    SegmentFileTest() {
        std::string folder = "/dev/shm/quayside2-test-XXXXXX";
        EXPECT_NE(mkdtemp(folder.data()), nullptr);
        mFolder = folder;
        mPath = SegmentPath(mFolder, "x");
    }
    ~SegmentFileTest() override {
        unlink(mPath.c_str());
        rmdir(mPath.c_str());
        unlink((mFolder + "/target").c_str());
        EXPECT_EQ(rmdir(mFolder.c_str()), 0) << "something else was left behind";
    }

    KESTATUS Open() const {
        SegmentFile file;
        return file.Open(mPath);
    }
    // Puts a file of this size and header in place.
    void Put(std::uint64_t size, const FileHeader& header, mode_t mode = 0600) const {
        const int file = open(mPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
        ASSERT_GE(file, 0);
        ASSERT_EQ(fchmod(file, mode), 0);
        const std::size_t bytes = std::min<std::uint64_t>(size, sizeof header);
        ASSERT_EQ(pwrite(file, &header, bytes, 0), static_cast<ssize_t>(bytes));
        ASSERT_EQ(ftruncate(file, static_cast<off_t>(size)), 0);
        close(file);
    }
    FileHeader ReadHeader() const {
        FileHeader header = {};
        const int file = open(mPath.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(pread(file, &header, sizeof header, 0), static_cast<ssize_t>(sizeof header));
        close(file);
        return header;
    }
    bool Exists() const { return access(mPath.c_str(), F_OK) == 0; }
    void ExpectComplete() const {
        const FileHeader header = ReadHeader();
        EXPECT_EQ(std::memcmp(&header, &cExpectedHeader, sizeof header), 0);
        struct stat info = {};
        ASSERT_EQ(stat(mPath.c_str(), &info), 0);
        EXPECT_EQ(static_cast<std::uint64_t>(info.st_size), cFileBytes);
        EXPECT_GE(static_cast<std::uint64_t>(info.st_blocks) * 512, cFileBytes) << "memory not reserved";
        EXPECT_EQ(info.st_mode & 07777, 0600u);
    }

    std::string mFolder;
    std::string mPath;
};

TEST_F(SegmentFileTest, IsMadeOnceAndFoundAgain) {
    EXPECT_EQ(Open(), KESTATUS_SUCCESS);
    ExpectComplete();
    struct stat first = {};
    stat(mPath.c_str(), &first);
    EXPECT_EQ(Open(), KESTATUS_SUCCESS);
    struct stat second = {};
    stat(mPath.c_str(), &second);
    EXPECT_EQ(first.st_ino, second.st_ino);
}

TEST_F(SegmentFileTest, TheProcessMaskDoesNotMatter) {
    for (const mode_t mask : {0777u, 0u}) {
        const mode_t old = umask(mask);
        EXPECT_EQ(Open(), KESTATUS_SUCCESS);
        umask(old);
        ExpectComplete();
        unlink(mPath.c_str());
    }
}

TEST_F(SegmentFileTest, AnEmptyFileIsCompleted) {
    Put(0, {});
    EXPECT_EQ(Open(), KESTATUS_SUCCESS);
    ExpectComplete();
}

TEST_F(SegmentFileTest, AHalfMadeFileIsCompleted) {
    FileHeader header = cExpectedHeader;
    header.magic = 0;
    for (const FileHeader& half : {FileHeader{}, header}) {
        Put(cFileBytes, half);
        EXPECT_EQ(Open(), KESTATUS_SUCCESS);
        ExpectComplete();
    }
}

TEST_F(SegmentFileTest, HolesAreFilled) {
    Put(cFileBytes, cExpectedHeader);
    EXPECT_EQ(Open(), KESTATUS_SUCCESS);
    ExpectComplete();
}

TEST_F(SegmentFileTest, OtherContentsAreRefusedAndKept) {
    FileHeader garbage;
    std::memset(&garbage, 0x5A, sizeof garbage);
    FileHeader version = cExpectedHeader;
    ++version.version;
    FileHeader ports = cExpectedHeader;
    ++ports.portCount;
    FileHeader ring = cExpectedHeader;
    ring.ringBytes *= 2;
    FileHeader block = cExpectedHeader;
    block.blockBytes /= 2;
    FileHeader size = cExpectedHeader;
    ++size.fileBytes;
    struct Row {
        const char* what;
        std::uint64_t size;
        FileHeader header;
        KESTATUS status;
    };
    for (const Row& row : {
             Row{"garbage", cFileBytes, garbage, KESTATUS_INVALID_FILE},
             Row{"short garbage", 100, garbage, KESTATUS_INVALID_FILE},
             Row{"3 bytes", 3, garbage, KESTATUS_INVALID_FILE},
             Row{"zeros of another size", 4096, {}, KESTATUS_INVALID_FILE},
             Row{"other version", cFileBytes, version, KESTATUS_VERSION_MISMATCH},
             Row{"other number of ports", cFileBytes, ports, KESTATUS_VERSION_MISMATCH},
             Row{"other ring size", cFileBytes, ring, KESTATUS_VERSION_MISMATCH},
             Row{"other block size", cFileBytes, block, KESTATUS_VERSION_MISMATCH},
             Row{"other file size in the header", cFileBytes, size, KESTATUS_VERSION_MISMATCH},
             Row{"truncated", cFileBytes - 1, cExpectedHeader, KESTATUS_VERSION_MISMATCH},
             Row{"truncated in the header", 12, cExpectedHeader, KESTATUS_VERSION_MISMATCH},
             Row{"too long", cFileBytes + 4096, cExpectedHeader, KESTATUS_VERSION_MISMATCH},
         }) {
        Put(row.size, row.header);
        EXPECT_EQ(Open(), row.status) << row.what;
        struct stat info = {};
        ASSERT_EQ(stat(mPath.c_str(), &info), 0) << row.what;
        EXPECT_EQ(static_cast<std::uint64_t>(info.st_size), row.size) << row.what;
    }
}

TEST_F(SegmentFileTest, OtherKindsOfFilesAreRefused) {
    ASSERT_EQ(mkdir(mPath.c_str(), 0700), 0);
    EXPECT_EQ(Open(), KESTATUS_INVALID_FILE);
    rmdir(mPath.c_str());
    ASSERT_EQ(mkfifo(mPath.c_str(), 0600), 0);
    EXPECT_EQ(Open(), KESTATUS_INVALID_FILE);
    unlink(mPath.c_str());
    const std::string target = mFolder + "/target";
    ASSERT_EQ(symlink(target.c_str(), mPath.c_str()), 0);
    EXPECT_EQ(Open(), KESTATUS_INVALID_FILE) << "a link to nothing";
    EXPECT_NE(access(target.c_str(), F_OK), 0) << "made through the link";
    unlink(mPath.c_str());
    ASSERT_EQ(Open(), KESTATUS_SUCCESS);
    ASSERT_EQ(rename(mPath.c_str(), target.c_str()), 0);
    ASSERT_EQ(symlink(target.c_str(), mPath.c_str()), 0);
    EXPECT_EQ(Open(), KESTATUS_INVALID_FILE) << "a link to a good segment";
}

TEST_F(SegmentFileTest, AFileOthersCanUseIsRefused) {
    for (const mode_t mode : {0660u, 0604u, 0666u, 0610u}) {
        Put(cFileBytes, cExpectedHeader, mode);
        EXPECT_EQ(Open(), KESTATUS_NOT_ALLOWED) << mode;
    }
}

TEST_F(SegmentFileTest, AFileOfAnotherUserIsRefused) {
    Put(cFileBytes, cExpectedHeader);
    constexpr uid_t cOther = 12345;
    ASSERT_EQ(chown(mPath.c_str(), cOther, cOther), 0) << "this test needs the right to give files away";
    EXPECT_EQ(Open(), KESTATUS_NOT_ALLOWED);
    Put(0, {});
    EXPECT_EQ(chown(mPath.c_str(), cOther, cOther), 0);
    EXPECT_EQ(Open(), KESTATUS_NOT_ALLOWED) << "not even an empty one";
}

TEST_F(SegmentFileTest, AFolderThatDoesNotExist) {
    SegmentFile file;
    EXPECT_EQ(file.Open(mFolder + "/nothing/here"), KESTATUS_LINUX_ENOENT);
}

TEST_F(SegmentFileTest, ASetUpThatDoesNotEndTimesOut) {
    Put(0, {});
    const int other = open(mPath.c_str(), O_RDWR | O_CLOEXEC);
    flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = cSetUpLockOffset;
    lock.l_len = 1;
    ASSERT_EQ(fcntl(other, F_OFD_SETLK, &lock), 0);
    gIsTimeVirtual = true;
    gSlept = 0;
    EXPECT_EQ(Open(), KESTATUS_TIMEOUT);
    EXPECT_EQ(gSlept, 2'000'000'000) << "nanoseconds";
    gSlept = 0;
    bool isBusy = false;
    EXPECT_EQ(SegmentFile::LookAtPort(mPath, 1, isBusy), KESTATUS_TIMEOUT);
    EXPECT_EQ(gSlept, 2'000'000'000) << "nanoseconds";
    gIsTimeVirtual = false;
    close(other); // as when the process is killed
    EXPECT_EQ(Open(), KESTATUS_SUCCESS);
    ExpectComplete();
}

TEST_F(SegmentFileTest, AFileRemovedDuringSetUpIsNotUsed) {
    Put(0, {});
    const int other = open(mPath.c_str(), O_RDWR | O_CLOEXEC);
    flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = cSetUpLockOffset;
    lock.l_len = 1;
    ASSERT_EQ(fcntl(other, F_OFD_SETLK, &lock), 0);
    SegmentFile file;
    KESTATUS st = KESTATUS_PENDING;
    std::thread opener([&] { st = file.Open(mPath); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // it waits for the set-up to end
    unlink(mPath.c_str());
    close(other);
    opener.join();
    EXPECT_EQ(st, KESTATUS_SUCCESS);
    struct stat byName = {};
    struct stat byDescriptor = {};
    ASSERT_EQ(stat(mPath.c_str(), &byName), 0);
    ASSERT_EQ(fstat(file.Descriptor(), &byDescriptor), 0);
    EXPECT_EQ(byName.st_ino, byDescriptor.st_ino);
    ExpectComplete();
}

TEST_F(SegmentFileTest, ManyAtOnceGetTheSameFile) {
    for (int round = 0; round < 10; ++round) {
        std::vector<std::unique_ptr<SegmentFile>> files;
        std::vector<std::thread> threads;
        std::atomic<int> opened{0};
        for (int i = 0; i < 8; ++i) {
            files.push_back(std::make_unique<SegmentFile>());
            threads.emplace_back(
                [&, file = files.back().get()] { opened += file->Open(mPath) == KESTATUS_SUCCESS ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(opened.load(), 8);
        for (const auto& file : files) {
            struct stat byName = {};
            struct stat byDescriptor = {};
            ASSERT_EQ(stat(mPath.c_str(), &byName), 0);
            ASSERT_EQ(fstat(file->Descriptor(), &byDescriptor), 0);
            EXPECT_EQ(byName.st_ino, byDescriptor.st_ino);
        }
        ExpectComplete();
        unlink(mPath.c_str());
    }
}

TEST_F(SegmentFileTest, PortLocks) {
    using PortUse = SegmentFile::PortUse;
    for (const PortUse use : {PortUse::Traffic, PortUse::Properties}) {
        SegmentFile one;
        SegmentFile two;
        ASSERT_EQ(one.Open(mPath), KESTATUS_SUCCESS);
        ASSERT_EQ(two.Open(mPath), KESTATUS_SUCCESS);
        EXPECT_FALSE(one.IsPortHeld(0));
        EXPECT_EQ(one.LockPort(0, use), KESTATUS_SUCCESS);
        EXPECT_FALSE(one.IsPortHeld(0)) << "its own does not count";
        EXPECT_TRUE(two.IsPortHeld(0));
        EXPECT_FALSE(two.IsPortHeld(1));
        EXPECT_EQ(two.LockPort(0, PortUse::Traffic), KESTATUS_IN_USE);
        EXPECT_EQ(two.LockPort(0, PortUse::Properties), KESTATUS_IN_USE);
        EXPECT_EQ(two.LockPort(1, use), KESTATUS_SUCCESS);
        EXPECT_TRUE(one.IsPortHeld(1));
        {
            SegmentFile three;
            ASSERT_EQ(three.Open(mPath), KESTATUS_SUCCESS);
            EXPECT_EQ(three.LockPort(3, use), KESTATUS_SUCCESS);
            EXPECT_TRUE(one.IsPortHeld(3));
        }
        EXPECT_FALSE(one.IsPortHeld(3));
        EXPECT_TRUE(two.IsPortHeld(0)) << "closing another file of the process frees nothing";
    }
}

TEST_F(SegmentFileTest, APortHeldForItsPropertiesIsWaitedFor) {
    using PortUse = SegmentFile::PortUse;
    auto holder = std::make_unique<SegmentFile>();
    ASSERT_EQ(holder->Open(mPath), KESTATUS_SUCCESS);
    ASSERT_EQ(holder->LockPort(2, PortUse::Properties), KESTATUS_SUCCESS);
    SegmentFile other;
    ASSERT_EQ(other.Open(mPath), KESTATUS_SUCCESS);
    KESTATUS st = KESTATUS_PENDING;
    std::thread opener([&] { st = other.LockPort(2, PortUse::Traffic); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    holder.reset();
    opener.join();
    EXPECT_EQ(st, KESTATUS_SUCCESS);
}

// On kernels that let a signal end a reservation, only those of a moment come to their end.
TEST_F(SegmentFileTest, SignalsDoNotHoldASetUpUpForEver) {
    gLongestReservation = 1u << 20;
    const KESTATUS st = Open();
    gLongestReservation = std::numeric_limits<off_t>::max();
    EXPECT_EQ(st, KESTATUS_SUCCESS);
    ExpectComplete();
}

TEST_F(SegmentFileTest, LookingAtAPortMakesAndTakesNothing) {
    bool isBusy = true;
    EXPECT_EQ(SegmentFile::LookAtPort(mPath, 1, isBusy), KESTATUS_SUCCESS);
    EXPECT_FALSE(isBusy);
    EXPECT_FALSE(Exists());
    SegmentFile holder;
    ASSERT_EQ(holder.Open(mPath), KESTATUS_SUCCESS);
    ASSERT_EQ(holder.LockPort(1, SegmentFile::PortUse::Traffic), KESTATUS_SUCCESS);
    EXPECT_EQ(SegmentFile::LookAtPort(mPath, 1, isBusy), KESTATUS_SUCCESS);
    EXPECT_TRUE(isBusy);
    EXPECT_EQ(SegmentFile::LookAtPort(mPath, 2, isBusy), KESTATUS_SUCCESS);
    EXPECT_FALSE(isBusy);
    EXPECT_EQ(SegmentFile::LookAtPort(mFolder + "/none/x", 1, isBusy), KEStatusFromErrno(ENOENT));
}

} // namespace

#include "common/ProcessFile.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <utility>

namespace quayside2 {

namespace {

// A device has at most this many descriptors.
constexpr int cPlacesPerDevice = 3;
// As many devices as a handle table holds, and some more that are being opened.
constexpr int cPlaces = cPlacesPerDevice * (256 + 64);

struct OpenDescriptors {
    std::mutex mutex;
    int descriptors[cPlaces]; // -1: free

    OpenDescriptors() noexcept {
        for (int& descriptor : descriptors) {
            descriptor = -1;
        }
    }
};

// Never destroyed: a device may be closed while the process ends.
OpenDescriptors& List() {
    static auto& sList = *new OpenDescriptors;
    return sList;
}

} // namespace

ProcessFile::ProcessFile(ProcessFile&& other) noexcept : mPlace(std::exchange(other.mPlace, -1)) {}

ProcessFile& ProcessFile::operator=(ProcessFile&& other) noexcept {
    if (this != &other) {
        Close();
        mPlace = std::exchange(other.mPlace, -1);
    }
    return *this;
}

// Keeps the descriptor that open() returns.
template <typename Opener>
int ProcessFile::Take(Opener&& open) {
    Close();
    OpenDescriptors& list = List();
    const std::lock_guard lock(list.mutex);
    int place = 0;
    while (place < cPlaces && list.descriptors[place] >= 0) {
        ++place;
    }
    if (place == cPlaces) {
        return ENFILE;
    }
    int descriptor = -1;
    do {
        descriptor = open();
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return errno;
    }
    list.descriptors[place] = descriptor;
    mPlace = place;
    return 0;
}

int ProcessFile::Open(const char* path, int flags, mode_t mode) {
    return Take([&] { return open(path, flags | O_CLOEXEC, mode); });
}

int ProcessFile::OpenSocket(int domain, int type, int protocol) {
    return Take([&] { return socket(domain, type | SOCK_CLOEXEC, protocol); });
}

int ProcessFile::OpenEvent() {
    return Take([] { return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); });
}

void ProcessFile::Close() noexcept {
    if (mPlace < 0) {
        return;
    }
    OpenDescriptors& list = List();
    const std::lock_guard lock(list.mutex);
    int& descriptor = list.descriptors[std::exchange(mPlace, -1)];
    close(std::exchange(descriptor, -1));
}

int ProcessFile::Descriptor() const noexcept {
    // The place is this object's own while it is open, so it is read without the lock.
    return mPlace < 0 ? -1 : List().descriptors[mPlace];
}

void ProcessFile::MakeList() {
    List();
}

void ProcessFile::PrepareFork() {
    List().mutex.lock();
}

void ProcessFile::ParentAfterFork() {
    List().mutex.unlock();
}

void ProcessFile::ChildAfterFork() {
    OpenDescriptors& list = List();
    for (int& descriptor : list.descriptors) {
        if (descriptor >= 0) {
            close(std::exchange(descriptor, -1));
        }
    }
    list.mutex.unlock();
}

} // namespace quayside2

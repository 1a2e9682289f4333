// A file descriptor that belongs to this process alone.
//
// Exec closes it, and a child made by fork closes its copy at once. Otherwise the lock of a descriptor would
// live on in a child that does not know of it. From any thread.
#ifndef QUAYSIDE2_PROCESSFILE_H
#define QUAYSIDE2_PROCESSFILE_H

#include <sys/types.h>

#include "kestatus.h"

namespace quayside2 {

class ProcessFile {
public:
    ProcessFile() = default;
    ProcessFile(const ProcessFile&) = delete;
    ProcessFile& operator=(const ProcessFile&) = delete;
    ProcessFile(ProcessFile&& other) noexcept;
    ProcessFile& operator=(ProcessFile&& other) noexcept;
    ~ProcessFile() { Close(); }

    // open(2); O_CLOEXEC is added to flags. A file that is still open is closed first. Returns 0 or an errno
    // value. ENFILE also means that this process has no place to remember another descriptor.
    [[nodiscard]] int Open(const char* path, int flags, mode_t mode);
    // socket(2); SOCK_CLOEXEC is added to type. Otherwise as Open.
    [[nodiscard]] int OpenSocket(int domain, int type, int protocol);
    // eventfd(2) that never blocks. Otherwise as Open.
    [[nodiscard]] int OpenEvent();
    void Close() noexcept;

    bool IsOpen() const noexcept { return mPlace >= 0; }
    int Descriptor() const noexcept;

    // Makes the list of open descriptors, so that no fork can meet its making.
    static void MakeList();
    // The handlers of a fork. Between Prepare and the other two no descriptor is opened or closed.
    static void PrepareFork();
    static void ParentAfterFork();
    static void ChildAfterFork(); // closes every descriptor; only calls that are safe in such a child

private:
    template <typename Opener>
    int Take(Opener&& open);

    int mPlace = -1; // in the list of open descriptors
};

} // namespace quayside2

#endif

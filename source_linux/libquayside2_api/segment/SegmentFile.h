// The file of a segment: found or made, checked, and its locks.
//
// A lock of the file guards its set-up: two processes may start at once. When one is killed half-way, the
// next one completes the file. From one thread at a time.
#ifndef QUAYSIDE2_SEGMENT_SEGMENTFILE_H
#define QUAYSIDE2_SEGMENT_SEGMENTFILE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "common/ProcessFile.h"
#include "kestatus.h"

namespace quayside2::segment {

// Where segments live.
inline constexpr const char* cSegmentDirectory = "/dev/shm";

// Letters, digits, '-', '_' and '.', 1 to 64 of them.
bool IsValidSegmentName(std::string_view name) noexcept;

// The path of the calling user's segment of a valid name.
std::string SegmentPath(std::string_view directory, std::string_view name);

class SegmentFile {
public:
    SegmentFile() = default;
    SegmentFile(const SegmentFile&) = delete;
    SegmentFile& operator=(const SegmentFile&) = delete;
    ~SegmentFile(); // frees its ports

    // Opens the segment, which is made when there is none; a failure leaves no new file behind.
    //   KESTATUS_NOT_ALLOWED       it belongs to another user, others may use it, or access is refused
    //   KESTATUS_INVALID_FILE      there is something that is no segment: link, folder, other contents
    //   KESTATUS_VERSION_MISMATCH  it was made by a library of another version
    //   KESTATUS_TIMEOUT           another process is setting it up and does not finish
    //   KESTATUS_LINUX_ENOSPC and others of the Linux family
    [[nodiscard]] KESTATUS Open(const std::string& path);

    int Descriptor() const noexcept { return mFile.Descriptor(); }

    // Takes a port for this object, until it is destroyed or the process dies. KESTATUS_IN_USE when another
    // object, in this or another process, has it. A holder that has it for its properties alone is waited
    // for, 200 ms at most: programs that start together read the properties of all ports, and would otherwise
    // be in each other's way.
    enum class PortUse { Properties, Traffic };
    [[nodiscard]] KESTATUS LockPort(std::uint32_t port, PortUse use);
    // Whether another object has a port. From any thread.
    bool IsPortHeld(std::uint32_t port) const noexcept;
    // Whether somebody has a port of the segment at this path for its traffic. Makes and takes nothing.
    // Statuses as Open.
    [[nodiscard]] static KESTATUS LookAtPort(const std::string& path, std::uint32_t port, bool& isBusy);

    // The process that has a port of the segment at this path, as ProcessSearch gives it; empty when it is
    // not known.
    static std::string PortHolder(const std::string& path, std::uint32_t port);

private:
    [[nodiscard]] KESTATUS OpenExisting(const std::string& path);
    [[nodiscard]] KESTATUS SetUp(const std::string& path, bool& removed);
    [[nodiscard]] KESTATUS CheckKind() const;
    [[nodiscard]] KESTATUS CheckHeader(bool& empty) const;
    [[nodiscard]] KESTATUS WaitUntilMade() const;
    [[nodiscard]] KESTATUS Initialise();
    void RemoveUnfinished(const std::string& path) const noexcept;
    bool IsLocked(std::int64_t offset) const noexcept;

    ProcessFile mFile;
};

} // namespace quayside2::segment

#endif

// Short ways to use devices through the C interface, whatever kind they are, and the frames of these tests.
#ifndef FLOWLANE_TESTS_DEVICECALLS_H
#define FLOWLANE_TESTS_DEVICECALLS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quayside2_api.h"

namespace testsupport {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t cBatchFrames = 64;
// Milliseconds; anything that works takes less.
constexpr int cGenerousTime = 10000;

// A frame of this length with EtherType 0x88B5 whose other bytes depend on the number.
Bytes MakeFrame(std::size_t length, std::uint32_t number);
// The same with a tag of 4 bytes, which counts to the length.
Bytes MakeTaggedFrame(std::size_t length, std::uint32_t number, const Bytes& tag = {0x81, 0x00, 0x20, 0x05});

// What a handle with the receive header delivers.
struct Item {
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    Bytes frame;            // empty for an idle item
    std::uint64_t time = 0; // nanoseconds since 1970
    std::uint32_t sequence = 0;
};

KESTATUS Submit(QBXDeviceHandle device, const Bytes& frame);
// Submits a frame and sends the batch, which both have to succeed.
void Send(QBXDeviceHandle device, const Bytes& frame);
// Submits frames of 60 bytes with the numbers 0 to 63: a full batch.
void SubmitBatch(QBXDeviceHandle device);

// The item that is ready on a handle with the receive header, frame or idle item. The buffer has room for the
// header and a frame of maxFrameBytes.
std::optional<Item> TakeItem(QBXDeviceHandle device, std::size_t maxFrameBytes = 2048);
// The same; waits a generous time when nothing is ready.
std::optional<Item> ReceiveItem(QBXDeviceHandle device, std::size_t maxFrameBytes = 2048);
// The next frame; waits in the same way. Idle items before it are left out.
std::optional<Item> Receive(QBXDeviceHandle device, std::size_t maxFrameBytes = 2048);
// The status of taking an item into a buffer that is large enough.
KESTATUS Get(QBXDeviceHandle device);

// QBX_PROPERTY_LOST_FRAMES, which has to be there.
std::uint64_t LostFrames(QBXDeviceHandle device);
// A text property, which has to be there.
std::string ReadText(QBXDeviceHandle device, std::uint32_t property);

// Nanoseconds since 1970.
std::uint64_t TimeOfDayNow();
// Processor time of this process so far, in nanoseconds.
std::uint64_t ProcessorTime();

// An enumeration that closes itself.
class Enumeration {
public:
    Enumeration() { status = QBX_EnumerateDevices(QBXDeviceType_any, &handle, &count); }
    ~Enumeration() { QBX_CloseEnumeration(handle); }
    Enumeration(const Enumeration&) = delete;
    Enumeration& operator=(const Enumeration&) = delete;

    QBXEnumerationHandle handle = 0;
    std::uint32_t count = 0;
    KESTATUS status;
};

// What a device is opened for.
enum class Use { Control, Tx, Rx, BareRx };

// Opens the device of an index of a new enumeration.
KESTATUS Open(std::uint32_t index, Use use, QBXDeviceHandle& device);
// Tries to open and returns the status. An opened device is closed again.
KESTATUS TryOpen(std::uint32_t index, Use use);

// Devices that are closed at the end of a test if they are still open.
class OpenDevices {
public:
    OpenDevices() = default;
    ~OpenDevices();
    OpenDevices(const OpenDevices&) = delete;
    OpenDevices& operator=(const OpenDevices&) = delete;

    // Opens a device, which has to succeed.
    QBXDeviceHandle Open(std::uint32_t index, Use use);

private:
    std::vector<QBXDeviceHandle> mDevices;
};

// Sets an environment variable, or removes it when value is null, until the end of its life.
class EnvironmentChange {
public:
    EnvironmentChange(const char* name, const char* value);
    ~EnvironmentChange();
    EnvironmentChange(const EnvironmentChange&) = delete;
    EnvironmentChange& operator=(const EnvironmentChange&) = delete;

private:
    const char* mName;
    std::optional<std::string> mOld;
};

// A segment of the test's own, which QUAYSIDE2_SEGMENT names. Its file is removed at the end.
class OwnSegment {
public:
    OwnSegment();
    ~OwnSegment();
    OwnSegment(const OwnSegment&) = delete;
    OwnSegment& operator=(const OwnSegment&) = delete;

    const std::string& Name() const { return mName; }
    std::string FilePath() const;

private:
    std::string mName;
    EnvironmentChange mChange;
};

} // namespace testsupport

#endif

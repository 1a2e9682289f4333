// A segment of the test's own, and short ways to use devices.
#ifndef FLOWLANE_TESTS_SEGMENTFIXTURE_H
#define FLOWLANE_TESTS_SEGMENTFIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quayside2_api.h"

using Bytes = std::vector<std::uint8_t>;

// A frame of this length whose bytes depend on the tag.
Bytes MakeFrame(std::size_t length, std::uint8_t tag);

struct Received {
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    Bytes frame; // empty for an idle item
    std::uint64_t Time() const { return seconds * 1000000000u + nanoseconds; }
    std::uint64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    std::uint32_t sequence = 0;
};

// Sets QUAYSIDE2_SEGMENT to a name that no other test uses, and removes the file at the end. Only the lanes
// are listed, whatever interfaces the machine has.
class SegmentFixture : public testing::Test {
protected:
    SegmentFixture();
    ~SegmentFixture() override;

    const std::string& SegmentName() const { return mName; }
    std::string SegmentFilePath() const;

    // Open by lane number, 1 to 4. The handles are closed at the end of the test if they are still open.
    QBXDeviceHandle OpenTx(unsigned lane);
    QBXDeviceHandle OpenRx(unsigned lane, QBXRawHeaderType type = QBXRawHeaderType_2);
    QBXDeviceHandle OpenEnabledRx(unsigned lane, QBXRawHeaderType type = QBXRawHeaderType_2);
    QBXDeviceHandle OpenControl(unsigned lane);
    // Tries to open and returns the status; an opened device is closed again.
    static KESTATUS TryOpenTx(unsigned lane);
    static KESTATUS TryOpenRx(unsigned lane);
    static KESTATUS TryOpenControl(unsigned lane);

    static void Send(QBXDeviceHandle device, const Bytes& frame);
    // The next frame of a handle with the receive header, waited for at most ten seconds. Idle items before
    // it are passed over.
    static std::optional<Received> Receive(QBXDeviceHandle device);
    // What is ready on such a handle, frame or idle item.
    static std::optional<Received> TakeItem(QBXDeviceHandle device);
    // QBX_PROPERTY_LOST_FRAMES, which has to be known.
    static std::uint64_t LostFrames(QBXDeviceHandle device);
    static KESTATUS Get(QBXDeviceHandle device);

private:
    QBXDeviceHandle Keep(QBXDeviceHandle device);

    std::string mName;
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

#endif

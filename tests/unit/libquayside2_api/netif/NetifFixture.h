// Network interfaces of the test's own, in the network namespace that the test program runs in, and a packet
// socket as independent peer.
#ifndef FLOWLANE_TESTS_NETIFFIXTURE_H
#define FLOWLANE_TESTS_NETIFFIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quayside2_api.h"

using Bytes = std::vector<std::uint8_t>;

// A frame of this length with EtherType 0x88B5 whose other bytes depend on the number.
Bytes MakeFrame(std::size_t length, std::uint32_t number);
// The same with a tag of 4 bytes, which counts to the length.
Bytes MakeTaggedFrame(std::size_t length, std::uint32_t number, const Bytes& tag = {0x81, 0x00, 0x20, 0x05});

// Runs a command of the shell, which has to succeed.
void Shell(const std::string& command);
// The same; what it prints.
std::string ShellOutput(const std::string& command);

// Makes the two interfaces flw0 and flw1, the ends of a link, and waits until it carries frames.
void MakeLink();
// Sets an interface up and waits until it carries frames; the other end is up.
void SetLinkUp(const std::string& interface);

// Nanoseconds since 1970.
std::uint64_t TimeOfDayNow();

// Processor time of this process so far, in nanoseconds.
std::uint64_t ProcessorTime();

// A packet socket on an interface, used directly.
class PeerSocket {
public:
    explicit PeerSocket(const char* interface);
    ~PeerSocket();
    PeerSocket(const PeerSocket&) = delete;
    PeerSocket& operator=(const PeerSocket&) = delete;

    void Send(const Bytes& frame) const;
    // The next frame that comes from outside within a generous time, its outer tag put back; nullopt when
    // none does.
    std::optional<Bytes> Receive() const;
    // Whether nothing has come.
    bool IsEmpty() const;

private:
    int mSocket;
    int mIndex;
};

struct ReceivedItem {
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    Bytes frame;
    std::uint64_t time = 0; // nanoseconds since 1970
    std::uint32_t sequence = 0;
};

// Two interfaces, flw0 and flw1, that are the two ends of a link and up.
class NetifFixture : public testing::Test {
protected:
    NetifFixture();
    ~NetifFixture() override;

    // By name; the handles are closed at the end of the test.
    QBXDeviceHandle OpenTx(const char* name);
    QBXDeviceHandle OpenRx(const char* name, QBXRawHeaderType type = QBXRawHeaderType_2);
    QBXDeviceHandle OpenEnabledRx(const char* name, QBXRawHeaderType type = QBXRawHeaderType_2);
    QBXDeviceHandle OpenControl(const char* name);
    // Tries to open and returns the status; an opened device is closed again.
    static KESTATUS TryOpenTx(const char* name);
    static KESTATUS TryOpenRx(const char* name);

    static KESTATUS Submit(QBXDeviceHandle device, const Bytes& frame);
    static void Send(QBXDeviceHandle device, const Bytes& frame);
    // The next item of a handle with the receive header, waited for at most ten seconds; the buffer has so
    // many bytes.
    static std::optional<ReceivedItem> Receive(QBXDeviceHandle device, std::size_t bufferSize = 70000);
    static std::uint64_t LostFrames(QBXDeviceHandle device);
    static std::string State(const char* name);

private:
    QBXDeviceHandle Keep(QBXDeviceHandle device);

    std::string mSegment; // of the lanes, which are listed too
    std::vector<QBXDeviceHandle> mDevices;
};

#endif

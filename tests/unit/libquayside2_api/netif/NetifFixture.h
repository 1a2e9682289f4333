// Network interfaces of the test's own, in the network namespace that the test program runs in, and a packet
// socket as independent peer.
#ifndef FLOWLANE_TESTS_NETIFFIXTURE_H
#define FLOWLANE_TESTS_NETIFFIXTURE_H

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "DeviceCalls.h"

namespace testsupport {

// Runs a command of the shell, which has to succeed.
void Shell(const std::string& command);
// The same; what it prints.
std::string ShellOutput(const std::string& command);

// Makes the two interfaces flw0 and flw1, the ends of a link, and waits until it carries frames.
void MakeLink();
// Sets an interface up and waits until it carries frames; the other end is up.
void SetLinkUp(const std::string& interface);

// The link that MakeLink makes, until the end of its life.
class OwnLink {
public:
    OwnLink() { MakeLink(); }
    ~OwnLink();
    OwnLink(const OwnLink&) = delete;
    OwnLink& operator=(const OwnLink&) = delete;
};

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

// Two interfaces, flw0 and flw1, that are the two ends of a link and up. All devices are listed.
class NetifFixture : public testing::Test {
protected:
    // By name; the handles are closed at the end of the test.
    QBXDeviceHandle OpenTx(const char* name);
    QBXDeviceHandle OpenRx(const char* name, Use use = Use::Rx);
    QBXDeviceHandle OpenEnabledRx(const char* name, Use use = Use::Rx);
    QBXDeviceHandle OpenControl(const char* name);
    // Tries to open and returns the status; an opened device is closed again.
    static KESTATUS TryOpenTx(const char* name);
    static KESTATUS TryOpenRx(const char* name);
    static std::string State(const char* name);

private:
    const OwnSegment mSegment; // of the lanes, which are listed too
    const EnvironmentChange mAll{"QUAYSIDE2_DEVICES", nullptr};
    const OwnLink mLink;
    OpenDevices mDevices;
};

} // namespace testsupport

#endif

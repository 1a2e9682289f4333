#include "netif/NetifFixture.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace testsupport {

namespace {

// The index of a device in an enumeration.
std::uint32_t IndexOf(const char* wanted) {
    const Enumeration list;
    EXPECT_EQ(list.status, KESTATUS_SUCCESS);
    for (std::uint32_t index = 0; index < list.count; ++index) {
        QBXDeviceHandle device = 0;
        EXPECT_EQ(QBX_OpenControlDevice(list.handle, index, &device), KESTATUS_SUCCESS);
        const std::string name = ReadText(device, QBX_PROPERTY_FRIENDLY_NAME);
        QBX_CloseDevice(device);
        if (name == wanted) {
            return index;
        }
    }
    ADD_FAILURE() << "no device " << wanted;
    return UINT32_MAX;
}

} // namespace

void Shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command; // NOLINT(cert-env33-c): the test's own text
}

std::string ShellOutput(const std::string& command) {
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r"); // NOLINT(cert-env33-c): the test's own text
    char part[4096];
    for (std::size_t size = 0; (size = std::fread(part, 1, sizeof part, pipe)) != 0;) {
        output.append(part, size);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

void MakeLink() {
    Shell("ip link add flw0 type veth peer name flw1 && ip link set flw1 up");
    SetLinkUp("flw0");
}

OwnLink::~OwnLink() {
    Shell("if [ -e /proc/sys/net/ipv4/conf/flw0 ]; then ip link del flw0; fi");
}

// The kernel takes up a carrier a moment later, and loses frames until then.
void SetLinkUp(const std::string& interface) {
    Shell("ip link set " + interface +
          " up && for i in $(seq 1000); do ip -o link show type veth up | grep -vq 'state UP' || exit 0; "
          "sleep 0.01; done; exit 1");
}

PeerSocket::PeerSocket(const char* interface)
    : mSocket(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)),
      mIndex(static_cast<int>(if_nametoindex(interface))) {
    const int one = 1;
    EXPECT_EQ(setsockopt(mSocket, SOL_PACKET, PACKET_AUXDATA, &one, sizeof one), 0);
    const int roomy = 8 << 20;
    setsockopt(mSocket, SOL_SOCKET, SO_RCVBUFFORCE, &roomy, sizeof roomy);
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = mIndex;
    EXPECT_EQ(bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

PeerSocket::~PeerSocket() {
    close(mSocket);
}

void PeerSocket::Send(const Bytes& frame) const {
    ASSERT_EQ(send(mSocket, frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()))
        << std::strerror(errno);
}

bool PeerSocket::IsEmpty() const {
    char byte = 0;
    return recv(mSocket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

std::optional<Bytes> PeerSocket::Receive() const {
    for (;;) {
        pollfd waitedFor = {mSocket, POLLIN, 0};
        if (poll(&waitedFor, 1, cGenerousTime) != 1) {
            return std::nullopt;
        }
        Bytes frame(70000);
        iovec part = {frame.data(), frame.size()};
        sockaddr_ll from = {};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))] = {};
        msghdr message = {};
        message.msg_name = &from;
        message.msg_namelen = sizeof from;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t length = recvmsg(mSocket, &message, 0);
        if (length < 0) {
            return std::nullopt;
        }
        if (from.sll_pkttype == PACKET_OUTGOING) {
            continue;
        }
        frame.resize(static_cast<std::size_t>(length));
        tpacket_auxdata tag = {};
        if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
            std::memcpy(&tag, CMSG_DATA(header), sizeof tag);
        }
        if ((tag.tp_status & TP_STATUS_VLAN_VALID) != 0) {
            frame.insert(frame.begin() + 12, {static_cast<std::uint8_t>(tag.tp_vlan_tpid >> 8),
                                              static_cast<std::uint8_t>(tag.tp_vlan_tpid),
                                              static_cast<std::uint8_t>(tag.tp_vlan_tci >> 8),
                                              static_cast<std::uint8_t>(tag.tp_vlan_tci)});
        }
        return frame;
    }
}

QBXDeviceHandle NetifFixture::OpenTx(const char* name) {
    return mDevices.Open(IndexOf(name), Use::Tx);
}

QBXDeviceHandle NetifFixture::OpenRx(const char* name, Use use) {
    return mDevices.Open(IndexOf(name), use);
}

QBXDeviceHandle NetifFixture::OpenEnabledRx(const char* name, Use use) {
    const QBXDeviceHandle device = OpenRx(name, use);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    return device;
}

QBXDeviceHandle NetifFixture::OpenControl(const char* name) {
    return mDevices.Open(IndexOf(name), Use::Control);
}

KESTATUS NetifFixture::TryOpenTx(const char* name) {
    return TryOpen(IndexOf(name), Use::Tx);
}

KESTATUS NetifFixture::TryOpenRx(const char* name) {
    return TryOpen(IndexOf(name), Use::Rx);
}

std::string NetifFixture::State(const char* name) {
    OpenDevices devices;
    return ReadText(devices.Open(IndexOf(name), Use::Control), QBX_PROPERTY_STATE);
}

} // namespace testsupport

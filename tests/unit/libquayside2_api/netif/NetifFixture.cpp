#include "netif/NetifFixture.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int cGenerousTime = 10000; // ms

// The index of a device in an enumeration.
std::uint32_t IndexOf(QBXEnumerationHandle list, std::uint32_t count, const char* wanted) {
    for (std::uint32_t index = 0; index < count; ++index) {
        QBXDeviceHandle device = 0;
        char name[QBX_PROPERTY_STRING_SIZE] = "";
        EXPECT_EQ(QBX_OpenControlDevice(list, index, &device), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, name, sizeof name),
                  KESTATUS_SUCCESS);
        QBX_CloseDevice(device);
        if (std::strcmp(name, wanted) == 0) {
            return index;
        }
    }
    ADD_FAILURE() << "no device " << wanted;
    return UINT32_MAX;
}

enum class Use { Tx, RxWithHeader, RxBare, Control };

KESTATUS Open(const char* name, Use use, QBXDeviceHandle& device) {
    QBXEnumerationHandle list = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &list, &count), KESTATUS_SUCCESS);
    const std::uint32_t index = IndexOf(list, count, name);
    KESTATUS st = KESTATUS_FAILED;
    switch (use) {
    case Use::Tx:
        st = QBX_OpenRawTxDevice(list, index, 0, QBXRawHeaderType_None, &device, 0);
        break;
    case Use::RxWithHeader:
        st = QBX_OpenRawRxDevice(list, index, 0, QBXRawHeaderType_2, &device, 0);
        break;
    case Use::RxBare:
        st = QBX_OpenRawRxDevice(list, index, 0, QBXRawHeaderType_None, &device, 0);
        break;
    case Use::Control:
        st = QBX_OpenControlDevice(list, index, &device);
        break;
    }
    EXPECT_EQ(st == KESTATUS_SUCCESS, device != 0);
    QBX_CloseEnumeration(list);
    return st;
}

QBXDeviceHandle OpenSurely(const char* name, Use use) {
    QBXDeviceHandle device = 0;
    EXPECT_EQ(Open(name, use, device), KESTATUS_SUCCESS);
    return device;
}

KESTATUS TryOpen(const char* name, Use use) {
    QBXDeviceHandle device = 0;
    const KESTATUS st = Open(name, use, device);
    QBX_CloseDevice(device);
    return st;
}

std::uint64_t ReadClock(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

} // namespace

Bytes MakeFrame(std::size_t length, std::uint32_t number) {
    Bytes frame(length);
    for (std::size_t i = 0; i < length; ++i) {
        frame[i] = static_cast<std::uint8_t>(number * 31u + i * 7u);
    }
    if (length >= 14) {
        frame[0] = 0x02;
        frame[6] = 0x02;
        frame[12] = 0x88;
        frame[13] = 0xB5;
    }
    return frame;
}

Bytes MakeTaggedFrame(std::size_t length, std::uint32_t number, const Bytes& tag) {
    Bytes frame = MakeFrame(length - tag.size(), number);
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

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

// The kernel takes up a carrier a moment later, and loses frames until then.
void SetLinkUp(const std::string& interface) {
    Shell("ip link set " + interface +
          " up && for i in $(seq 1000); do ip -o link show type veth up | grep -vq 'state UP' || exit 0; "
          "sleep 0.01; done; exit 1");
}

std::uint64_t TimeOfDayNow() {
    return ReadClock(CLOCK_REALTIME);
}

std::uint64_t ProcessorTime() {
    return ReadClock(CLOCK_PROCESS_CPUTIME_ID);
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

NetifFixture::NetifFixture() {
    mSegment = "unit-netif-" + std::to_string(getpid());
    setenv("QUAYSIDE2_SEGMENT", mSegment.c_str(), 1);
    unsetenv("QUAYSIDE2_DEVICES");
    MakeLink();
}

NetifFixture::~NetifFixture() {
    for (const QBXDeviceHandle device : mDevices) {
        QBX_CloseDevice(device);
    }
    unlink(("/dev/shm/quayside2-" + std::to_string(geteuid()) + "-" + mSegment).c_str());
    Shell("if [ -e /proc/sys/net/ipv4/conf/flw0 ]; then ip link del flw0; fi");
}

QBXDeviceHandle NetifFixture::Keep(QBXDeviceHandle device) {
    mDevices.push_back(device);
    return device;
}

QBXDeviceHandle NetifFixture::OpenTx(const char* name) {
    return Keep(OpenSurely(name, Use::Tx));
}

QBXDeviceHandle NetifFixture::OpenRx(const char* name, QBXRawHeaderType type) {
    return Keep(OpenSurely(name, type == QBXRawHeaderType_2 ? Use::RxWithHeader : Use::RxBare));
}

QBXDeviceHandle NetifFixture::OpenEnabledRx(const char* name, QBXRawHeaderType type) {
    const QBXDeviceHandle device = OpenRx(name, type);
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_SUCCESS);
    return device;
}

QBXDeviceHandle NetifFixture::OpenControl(const char* name) {
    return Keep(OpenSurely(name, Use::Control));
}

KESTATUS NetifFixture::TryOpenTx(const char* name) {
    return TryOpen(name, Use::Tx);
}

KESTATUS NetifFixture::TryOpenRx(const char* name) {
    return TryOpen(name, Use::RxWithHeader);
}

KESTATUS NetifFixture::Submit(QBXDeviceHandle device, const Bytes& frame) {
    return QBX_SubmitRawFrame(device, frame.data(), static_cast<std::uint32_t>(frame.size()), nullptr);
}

void NetifFixture::Send(QBXDeviceHandle device, const Bytes& frame) {
    ASSERT_EQ(Submit(device, frame), KESTATUS_SUCCESS);
    ASSERT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
}

std::optional<ReceivedItem> NetifFixture::Receive(QBXDeviceHandle device, std::size_t bufferSize) {
    Bytes buffer(bufferSize);
    std::uint32_t length = 0;
    ReceivedItem item;
    const auto take = [&] {
        return QBX_GetReceivedRawFrame(device, &item.type, buffer.data(),
                                       static_cast<std::uint32_t>(buffer.size()), &length);
    };
    KESTATUS st = take(); // a report of lost frames is not waited for
    if (st == KESTATUS_NO_DATA && QBX_WaitForRawFrame(device, cGenerousTime) == KESTATUS_SUCCESS) {
        st = take();
    }
    if (st != KESTATUS_SUCCESS || length < QBX_RAW_HEADER_2_SIZE) {
        return std::nullopt;
    }
    std::uint64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    std::memcpy(&seconds, buffer.data() + QBX_RAW_HEADER_2_SECONDS_OFFSET, 8);
    std::memcpy(&nanoseconds, buffer.data() + QBX_RAW_HEADER_2_NANOSECONDS_OFFSET, 4);
    std::memcpy(&item.sequence, buffer.data() + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, 4);
    EXPECT_LT(nanoseconds, 1'000'000'000u);
    item.time = seconds * 1'000'000'000 + nanoseconds;
    item.frame.assign(buffer.begin() + QBX_RAW_HEADER_2_SIZE, buffer.begin() + length);
    return item;
}

std::uint64_t NetifFixture::LostFrames(QBXDeviceHandle device) {
    std::uint64_t lost = UINT64_MAX;
    std::uint32_t size = 0;
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_LOST_FRAMES, &lost, sizeof lost, &size),
              KESTATUS_SUCCESS);
    EXPECT_EQ(size, sizeof lost);
    return lost;
}

std::string NetifFixture::State(const char* name) {
    const QBXDeviceHandle device = OpenSurely(name, Use::Control);
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_STATE, text, sizeof text), KESTATUS_SUCCESS);
    QBX_CloseDevice(device);
    return text;
}

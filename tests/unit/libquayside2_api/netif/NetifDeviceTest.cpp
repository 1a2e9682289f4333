// Network interfaces as instances: how they are listed, who may hold them, what they need.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <thread>

#include "HoldingChild.h"
#include "WaitUntil.h"
#include "netif/NetifFixture.h"

namespace {

using namespace testsupport;

class NetifDeviceTest : public NetifFixture {};

struct Listed {
    std::string name;
    std::string product;
    std::array<std::uint8_t, 6> macAddress{};
};

// What an enumeration lists after the lanes.
std::vector<Listed> ListInterfaces() {
    QBXEnumerationHandle list = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &list, &count), KESTATUS_SUCCESS);
    std::vector<Listed> found;
    for (std::uint32_t index = 4; index < count; ++index) {
        QBXDeviceHandle device = 0;
        EXPECT_EQ(QBX_OpenControlDevice(list, index, &device), KESTATUS_SUCCESS);
        Listed one;
        char text[QBX_PROPERTY_STRING_SIZE] = "";
        QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, text, sizeof text);
        one.name = text;
        QBX_GetDevicePropertyString(device, QBX_PROPERTY_PRODUCT_STRING, text, sizeof text);
        one.product = text;
        QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, one.macAddress.data(), 6, nullptr);
        QBX_CloseDevice(device);
        found.push_back(one);
    }
    QBX_CloseEnumeration(list);
    return found;
}

std::string Names() {
    std::string names;
    for (const Listed& one : ListInterfaces()) {
        names += (names.empty() ? "" : " ") + one.name;
    }
    return names;
}

TEST_F(NetifDeviceTest, ByInterfaceIndexAndTheLoopbackLast) {
    Shell("ip link add flwbr type bridge && ip link add flwa type veth peer name flwb");
    const std::string expected = ShellOutput("ip -o link | sed 's/^\\([0-9]*\\): \\([^:@]*\\).*/\\1 \\2/' | "
                                             "sort -n | awk '$2 != \"lo\" {printf \"%s \", $2}'");
    EXPECT_NE(expected.find("flwa"), std::string::npos);
    EXPECT_EQ(Names(), expected + "lo");
    Shell("ip link del flwbr && ip link del flwa");
}

// A tap interface that says it carries frames of this type (ARPHRD), as long as the result is kept.
std::unique_ptr<std::FILE, int (*)(std::FILE*)> MakeTap(const std::string& name, int type) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> tap(std::fopen("/dev/net/tun", "r+e"), &std::fclose);
    EXPECT_TRUE(tap);
    ifreq request = {};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    EXPECT_EQ(ioctl(fileno(tap.get()), TUNSETIFF, &request), 0);
    EXPECT_EQ(ioctl(fileno(tap.get()), TUNSETLINK, type), 0);
    return tap;
}

TEST_F(NetifDeviceTest, OnlyWhatCarriesEthernetFrames) {
    if (access("/dev/net/tun", R_OK | W_OK) != 0) {
        GTEST_SKIP() << "this user may not make the other kind";
    }
    const auto ethernet = MakeTap("flwtap", ARPHRD_ETHER);
    const auto other = MakeTap("flwring", ARPHRD_FDDI);
    Shell("ip tuntap add flwtun mode tun");
    const std::string names = " " + Names() + " ";
    EXPECT_NE(names.find(" flwtap "), std::string::npos);
    EXPECT_EQ(names.find(" flwring "), std::string::npos);
    EXPECT_EQ(names.find(" flwtun "), std::string::npos);
    Shell("ip link del flwtun");
}

TEST_F(NetifDeviceTest, PropertiesOfAnInterface) {
    Shell("ip link set flw0 down && ip link set flw0 address 02:13:57:9b:df:f0");
    bool isSeen = false;
    for (const Listed& one : ListInterfaces()) {
        if (one.name == "flw0") {
            isSeen = true;
            EXPECT_EQ(one.product, "veth");
            EXPECT_EQ(one.macAddress, (std::array<std::uint8_t, 6>{0x02, 0x13, 0x57, 0x9B, 0xDF, 0xF0}));
        }
        if (one.name == "lo") {
            EXPECT_EQ(one.product, "Loopback interface");
            EXPECT_EQ(one.macAddress, (std::array<std::uint8_t, 6>{}));
        }
    }
    EXPECT_TRUE(isSeen);
}

TEST_F(NetifDeviceTest, DevicesVariableMixesLanesAndInterfaces) {
    setenv("QUAYSIDE2_DEVICES", "flw1,lane-2,lo", 1);
    QBXEnumerationHandle list = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &list, &count), KESTATUS_SUCCESS);
    EXPECT_EQ(count, 3u);
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenControlDevice(list, 0, &device), KESTATUS_SUCCESS);
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, text, sizeof text);
    EXPECT_STREQ(text, "flw1");
    QBX_CloseDevice(device);
    QBX_CloseEnumeration(list);
    unsetenv("QUAYSIDE2_DEVICES");
}

TEST_F(NetifDeviceTest, OneSenderAndOneReceiver) {
    const QBXDeviceHandle sender = OpenTx("flw0");
    EXPECT_EQ(TryOpenTx("flw0"), KESTATUS_IN_USE);
    const QBXDeviceHandle receiver = OpenRx("flw0");
    EXPECT_EQ(TryOpenRx("flw0"), KESTATUS_IN_USE);
    EXPECT_EQ(TryOpenTx("flw1"), KESTATUS_SUCCESS);
    OpenControl("flw0");
    OpenControl("flw0");
    QBX_CloseDevice(sender);
    EXPECT_EQ(TryOpenTx("flw0"), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpenRx("flw0"), KESTATUS_IN_USE);
    QBX_CloseDevice(receiver);
    EXPECT_EQ(TryOpenRx("flw0"), KESTATUS_SUCCESS);
}

TEST_F(NetifDeviceTest, States) {
    EXPECT_EQ(State("flw0"), "free");
    const QBXDeviceHandle sender = OpenTx("flw0");
    EXPECT_EQ(State("flw0"), "in use (sending)");
    const QBXDeviceHandle receiver = OpenRx("flw0");
    EXPECT_EQ(State("flw0"), "in use");
    QBX_CloseDevice(sender);
    EXPECT_EQ(State("flw0"), "in use (receiving)");
    QBX_CloseDevice(receiver);
    EXPECT_EQ(State("flw0"), "free");
    EXPECT_EQ(State("lo"), "free");
    Shell("ip link set flw0 down");
    EXPECT_EQ(State("flw0"), "link down");
    EXPECT_EQ(State("lane-1"), "free");
    const QBXDeviceHandle control = OpenControl("flw0");
    Shell("ip link del flw0");
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(control, QBX_PROPERTY_STATE, text, sizeof text), KESTATUS_SUCCESS);
    EXPECT_STREQ(text, "removed");
}

TEST_F(NetifDeviceTest, ARawHandleTellsWhenItsLinkIsDownOrItsInterfaceGone) {
    const QBXDeviceHandle sender = OpenTx("flw0");
    const QBXDeviceHandle receiver = OpenEnabledRx("flw0");
    for (const QBXDeviceHandle device : {sender, receiver}) {
        EXPECT_EQ(ReadText(device, QBX_PROPERTY_STATE), "in use");
    }
    Shell("ip link set flw1 down"); // flw0 has no carrier, which the kernel shows a moment later
    for (const QBXDeviceHandle device : {sender, receiver}) {
        const auto state = [&] { return ReadText(device, QBX_PROPERTY_STATE); };
        EXPECT_TRUE(WaitUntil([&] { return state() == "link down"; }, state));
    }
    Shell("ip link del flw0");
    for (const QBXDeviceHandle device : {sender, receiver}) {
        EXPECT_EQ(ReadText(device, QBX_PROPERTY_STATE), "removed");
    }
}

TEST_F(NetifDeviceTest, TheHolderIsThatOfItsDirection) {
    const HoldingChild child([this] {
        OpenTx("flw0");
        return !HasFailure();
    });
    const QBXDeviceHandle control = OpenControl("flw0");
    const std::string holder = ReadText(control, QBX_PROPERTY_TX_HOLDER);
    EXPECT_NE(holder.find(" (process " + std::to_string(child.Id()) + ")"), std::string::npos) << holder;
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(control, QBX_PROPERTY_RX_HOLDER, text, sizeof text),
              KESTATUS_NOT_FOUND);
    EXPECT_EQ(QBX_GetDevicePropertyString(control, QBX_PROPERTY_FILE, text, sizeof text), KESTATUS_NOT_FOUND);
}

// Any program may take the name that says who holds an interface.
TEST_F(NetifDeviceTest, ANameThatSomebodyElseHasIsInUse) {
    const auto bindName = [](const std::string& name) {
        const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        EXPECT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), size), 0);
        // Connected to itself it refuses what others send.
        EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), size), 0);
        return socket;
    };
    const std::string index = std::to_string(if_nametoindex("flw0"));
    const int holder = bindName("quayside2-interface-" + index + "-transmit");
    EXPECT_EQ(TryOpenTx("flw0"), KESTATUS_IN_USE);
    EXPECT_EQ(State("flw0"), "in use (sending)");
    EXPECT_EQ(TryOpenRx("flw0"), KESTATUS_SUCCESS);
    close(holder);
    EXPECT_EQ(TryOpenTx("flw0"), KESTATUS_SUCCESS);
}

// Without a descriptor to ask with, nobody can say that an interface is free.
TEST_F(NetifDeviceTest, TheStateCannotBeAskedForWithoutADescriptor) {
    const QBXDeviceHandle device = OpenControl("flw0");
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_STATE, text, sizeof text),
              KEStatusFromErrno(EMFILE));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(State("flw0"), "free");
}

TEST_F(NetifDeviceTest, AnInterfaceThatGoesWhileItIsOpen) {
    const QBXDeviceHandle device = OpenRx("flw0");
    Shell("ip link del flw0");
    EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_DEVICE_REMOVED);
}

TEST_F(NetifDeviceTest, AnInterfaceThatIsGoneCannotBeOpened) {
    QBXEnumerationHandle list = 0;
    std::uint32_t count = 0;
    setenv("QUAYSIDE2_DEVICES", "flw0", 1);
    ASSERT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &list, &count), KESTATUS_SUCCESS);
    unsetenv("QUAYSIDE2_DEVICES");
    ASSERT_EQ(count, 1u);
    Shell("ip link del flw0");
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenRawTxDevice(list, 0, 0, QBXRawHeaderType_None, &device, 0), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(device, 0u);
    EXPECT_EQ(QBX_OpenRawRxDevice(list, 0, 0, QBXRawHeaderType_2, &device, 0), KESTATUS_DEVICE_REMOVED);
    EXPECT_EQ(device, 0u);
    QBX_CloseEnumeration(list);
}

// Runs body in a child process, which ends with its result.
template <typename Body>
int InChild(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Takes every privilege from the calling thread but CAP_NET_RAW, or that too.
void DropPrivileges(bool keepNetRaw) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    data[0].effective = data[0].permitted = keepNetRaw ? 1u << CAP_NET_RAW : 0;
    syscall(SYS_capset, &header, data);
}

TEST_F(NetifDeviceTest, WithoutThePrivilege) {
    const int failed = InChild([] {
        DropPrivileges(false);
        return TryOpenTx("flw0") == KESTATUS_ADMIN_PRIVILEGES_REQUIRED &&
                       TryOpenRx("flw0") == KESTATUS_ADMIN_PRIVILEGES_REQUIRED &&
                       State("flw0") == "no privilege" && State("lane-1") == "free" && !HasFailure()
                   ? 0
                   : 1;
    });
    EXPECT_EQ(failed, 0);
}

TEST_F(NetifDeviceTest, NoOtherPrivilegeIsNeeded) {
    const int failed = InChild([this] {
        DropPrivileges(true);
        const QBXDeviceHandle receiver = OpenEnabledRx("flw1");
        const QBXDeviceHandle sender = OpenTx("flw0");
        Send(sender, MakeFrame(60, 1));
        return Receive(receiver) && State("flw1") == "in use (receiving)" && !HasFailure() ? 0 : 1;
    });
    EXPECT_EQ(failed, 0);
}

TEST_F(NetifDeviceTest, AKilledHolderFreesItsInterface) {
    HoldingChild child([this] {
        OpenTx("flw0");
        OpenEnabledRx("flw0");
        return !HasFailure();
    });
    EXPECT_EQ(State("flw0"), "in use");
    child.Kill();
    EXPECT_EQ(State("flw0"), "free");
    EXPECT_NE(ShellOutput("ip -d link show flw0").find("promiscuity 0"), std::string::npos);
}

TEST_F(NetifDeviceTest, AForkedChildDoesNotKeepAnInterfacePromiscuous) {
    const QBXDeviceHandle receiver = OpenEnabledRx("flw0");
    const HoldingChild child([] { return true; });
    QBX_CloseDevice(receiver);
    EXPECT_NE(ShellOutput("ip -d link show flw0").find("promiscuity 0"), std::string::npos);
    EXPECT_EQ(State("flw0"), "free");
}

} // namespace

#include "netif/NetifBackend.h"

#include <ifaddrs.h>
#include <linux/if_arp.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "netif/InterfaceLock.h"
#include "netif/NetifQuery.h"
#include "netif/NetifRxDevice.h"
#include "netif/NetifTxDevice.h"

namespace quayside2::netif {

namespace {

// An interface opened for its properties only. Many may do that at once.
class NetifControlDevice : public Device {
public:
    NetifControlDevice(const DeviceProperties& properties, unsigned interfaceIndex)
        : mProperties(properties), mInterfaceIndex(interfaceIndex) {}
    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    KESTATUS GetState(std::string& state) const override;
    KESTATUS GetHolder(OpenMode::Kind use, std::string& holder) const override;

private:
    const DeviceProperties mProperties;
    const unsigned mInterfaceIndex;
};

KESTATUS NetifControlDevice::GetState(std::string& state) const {
    ProcessFile socket;
    int error = socket.OpenSocket(AF_PACKET, SOCK_RAW, 0);
    const bool isPrivileged = error == 0;
    if (error == EPERM || error == EACCES) {
        error = socket.OpenSocket(AF_UNIX, SOCK_DGRAM, 0); // any socket can ask
    }
    if (error != 0) {
        return StatusForError(error);
    }
    bool isLinkUp = false;
    KESTATUS st = QueryIsLinkUp(socket.Descriptor(), mInterfaceIndex, isLinkUp);
    if (st == KESTATUS_DEVICE_REMOVED) {
        state = "removed";
        return KESTATUS_SUCCESS;
    }
    using Direction = InterfaceLock::Direction;
    bool isReceiving = false;
    bool isSending = false;
    if (st == KESTATUS_SUCCESS) {
        st = InterfaceLock::Ask(mInterfaceIndex, Direction::Receive, isReceiving);
    }
    if (st == KESTATUS_SUCCESS) {
        st = InterfaceLock::Ask(mInterfaceIndex, Direction::Transmit, isSending);
    }
    if (isReceiving || isSending) {
        state = isReceiving && isSending ? "in use" : isReceiving ? "in use (receiving)" : "in use (sending)";
    } else {
        state = !isPrivileged ? "no privilege" : isLinkUp ? "free" : "link down";
    }
    return st;
}

KESTATUS NetifControlDevice::GetHolder(OpenMode::Kind use, std::string& holder) const {
    using Direction = InterfaceLock::Direction;
    holder = InterfaceLock::Holder(mInterfaceIndex,
                                   use == OpenMode::Kind::RawTx ? Direction::Transmit : Direction::Receive);
    return holder.empty() ? KESTATUS_NOT_FOUND : KESTATUS_SUCCESS;
}

template <typename OpenedDevice, typename... Arguments>
KESTATUS OpenAs(std::unique_ptr<Device>& device, Arguments&&... arguments) {
    auto opened = std::make_unique<OpenedDevice>(arguments...);
    const KESTATUS st = opened->Open();
    if (st == KESTATUS_SUCCESS) {
        device = std::move(opened);
    }
    return st;
}

class NetifInstance : public DeviceInstance {
public:
    NetifInstance(DeviceProperties properties, unsigned interfaceIndex)
        : mProperties(std::move(properties)), mInterfaceIndex(interfaceIndex) {}

    const DeviceProperties& Properties() const noexcept override { return mProperties; }

    KESTATUS Open(const OpenMode& mode, std::unique_ptr<Device>& device) const override {
        switch (mode.kind) {
        case OpenMode::Kind::RawTx:
            return OpenAs<NetifTxDevice>(device, mProperties, mInterfaceIndex);
        case OpenMode::Kind::RawRx:
            return OpenAs<NetifRxDevice>(device, mProperties, mInterfaceIndex, mode.receiveHeader);
        case OpenMode::Kind::Control:
            break;
        }
        device = std::make_unique<NetifControlDevice>(mProperties, mInterfaceIndex);
        return KESTATUS_SUCCESS;
    }

private:
    const DeviceProperties mProperties;
    const unsigned mInterfaceIndex;
};

// An interface as the kernel lists it.
struct Listed {
    bool isLoopback;
    unsigned index;
    DeviceProperties properties;
};

std::vector<Listed> ListInterfaces(const ifaddrs* first) {
    std::vector<Listed> found;
    for (const ifaddrs* entry = first; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_PACKET) {
            continue;
        }
        const auto& address = *reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
        const bool isLoopback = address.sll_hatype == ARPHRD_LOOPBACK;
        if (!isLoopback && address.sll_hatype != ARPHRD_ETHER) {
            continue;
        }
        Listed listed = {isLoopback, static_cast<unsigned>(address.sll_ifindex), {}};
        listed.properties.friendlyName = entry->ifa_name;
        std::memcpy(listed.properties.macAddress.data(), address.sll_addr,
                    std::min<std::size_t>(address.sll_halen, listed.properties.macAddress.size()));
        found.push_back(std::move(listed));
    }
    std::sort(found.begin(), found.end(), [](const Listed& a, const Listed& b) {
        return a.isLoopback != b.isLoopback ? b.isLoopback : a.index < b.index;
    });
    return found;
}

} // namespace

KESTATUS NetifBackend::Enumerate(DeviceInstances& instances) const {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        return KESTATUS_SUCCESS;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, freeifaddrs);
    ProcessFile socket;
    // Without a socket the kernel cannot be asked for drivers, and the products have their general names.
    static_cast<void>(socket.OpenSocket(AF_UNIX, SOCK_DGRAM, 0));
    for (Listed& listed : ListInterfaces(list.get())) {
        std::string driver = QueryDriver(socket.Descriptor(), listed.properties.friendlyName);
        if (driver.empty()) {
            driver = listed.isLoopback ? "Loopback interface" : "Ethernet interface";
        }
        listed.properties.product = std::move(driver);
        instances.push_back(std::make_shared<NetifInstance>(std::move(listed.properties), listed.index));
    }
    return KESTATUS_SUCCESS;
}

} // namespace quayside2::netif

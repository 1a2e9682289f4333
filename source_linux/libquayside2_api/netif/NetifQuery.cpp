#include "netif/NetifQuery.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "common/ProcessFile.h"

namespace quayside2::netif {

namespace {

// Calls ioctl(request) for the interface of this index. Returns 0 or an errno value.
int AskByIndex(int socket, unsigned index, unsigned long request, ifreq& answer) noexcept {
    answer = {};
    answer.ifr_ifindex = static_cast<int>(index);
    if (ioctl(socket, SIOCGIFNAME, &answer) != 0) {
        return errno;
    }
    return ioctl(socket, request, &answer) == 0 ? 0 : errno;
}

// The text in a field that may be filled to its end.
template <std::size_t Size>
std::string_view FieldText(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

} // namespace

KESTATUS StatusForError(int error) noexcept {
    switch (error) {
    case 0:
        return KESTATUS_SUCCESS;
    case ENODEV:
    case ENXIO:
        return KESTATUS_DEVICE_REMOVED;
    case EPERM:
    case EACCES:
        return KESTATUS_ADMIN_PRIVILEGES_REQUIRED;
    case ENOMEM:
        return KESTATUS_NO_MEMORY;
    default:
        return KEStatusFromErrno(error);
    }
}

KESTATUS QueryMtu(int socket, unsigned index, std::uint32_t& mtu) noexcept {
    ifreq answer;
    const int error = AskByIndex(socket, index, SIOCGIFMTU, answer);
    if (error == 0) {
        mtu = static_cast<std::uint32_t>(std::max(answer.ifr_mtu, 0));
    }
    return StatusForError(error);
}

KESTATUS QueryIsLinkUp(int socket, unsigned index, bool& isUp) noexcept {
    ifreq answer;
    const int error = AskByIndex(socket, index, SIOCGIFFLAGS, answer);
    if (error == 0) {
        isUp = (answer.ifr_flags & IFF_UP) != 0 && (answer.ifr_flags & IFF_RUNNING) != 0;
    }
    return StatusForError(error);
}

KESTATUS QueryStateInUse(unsigned index, std::string& state) {
    ProcessFile socket; // the handle's own may be closed meanwhile
    const int error = socket.OpenSocket(AF_UNIX, SOCK_DGRAM, 0);
    if (error != 0) {
        return StatusForError(error);
    }
    bool isLinkUp = false;
    const KESTATUS st = QueryIsLinkUp(socket.Descriptor(), index, isLinkUp);
    if (st == KESTATUS_DEVICE_REMOVED) {
        state = "removed";
        return KESTATUS_SUCCESS;
    }
    state = isLinkUp ? "in use" : "link down";
    return st;
}

std::string QueryDriver(int socket, const std::string& name) {
    ethtool_drvinfo info = {};
    info.cmd = ETHTOOL_GDRVINFO;
    ifreq request = {};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    request.ifr_data = reinterpret_cast<char*>(&info);
    if (ioctl(socket, SIOCETHTOOL, &request) != 0) {
        return {};
    }
    std::string text(FieldText(info.driver));
    const std::string_view bus = FieldText(info.bus_info);
    if (!text.empty() && !bus.empty() && bus != "N/A") {
        text.append(" (").append(bus).append(")");
    }
    return text;
}

} // namespace quayside2::netif

#include "explanations/NetworkFailures.h"

#include <netdb.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <iterator>

#include "explanations/MessageText.h"
#include "explanations/StatusWords.h"

namespace flowlane {

namespace {

constexpr std::size_t cMaxPortDigits = 5;

bool IsPort(const std::string& text) {
    return !text.empty() && text.size() <= cMaxPortDigits &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
}

struct HostAndPort {
    std::string host;
    std::string port; // empty when there is none
};

// Takes "scheme://host:port/path", "host:port" and "[address]:port" apart.
HostAndPort Split(std::string text) {
    const std::size_t scheme = text.find("://");
    if (scheme != std::string::npos) {
        text.erase(0, scheme + 3);
        text = text.substr(text.find('@') == 0 ? 1 : 0);
        text = text.substr(0, text.find('/'));
    }
    const bool isBracketed = !text.empty() && text[0] == '[' && text.find(']') != std::string::npos;
    const std::size_t end = isBracketed ? text.find(']') + 1 : text.find(':');
    HostAndPort result = {text.substr(0, end), ""};
    if (end < text.size() && text[end] == ':' && IsPort(text.substr(end + 1))) {
        result.port = text.substr(end + 1);
    } else if (!isBracketed) {
        result.host = text;
    }
    if (isBracketed) {
        result.host = result.host.substr(1, result.host.size() - 2);
    }
    return result;
}

struct Reason {
    int error;
    const char* words;
};

// What the system's text leaves open.
constexpr Reason cConnectReasons[] = {
    {ENETUNREACH, "There is no route to it; the routes are listed by: ip route"},
    {EHOSTUNREACH, "There is no route to it; the routes are listed by: ip route"},
    {EACCES, "Is it a broadcast address? av2rtp sends to one host or to a multicast group."},
    {EINVAL, "Does the address need its interface, as in fe80::1%eth0?"},
};
constexpr Reason cSendReasons[] = {
    {ECONNREFUSED, ": nobody listens there"},
    {ENETUNREACH, ": there is no route"},
    {EHOSTUNREACH, ": the host does not answer"},
    {EPERM, ": a firewall forbids it"},
    {EMSGSIZE, ": the network takes no packets of this size"},
};

template <std::size_t Count>
const char* FindReason(const Reason (&reasons)[Count], KESTATUS st) {
    const auto* const found = std::find_if(std::begin(reasons), std::end(reasons), [&](const Reason& reason) {
        return KEStatusFromErrno(reason.error) == st;
    });
    return found != std::end(reasons) ? found->words : "";
}

std::string SendReason(KESTATUS st) {
    if (st == KESTATUS_TIMEOUT || st == KESTATUS_WOULD_BLOCK) {
        return "the network takes them too slowly";
    }
    return StatusWords(st) + FindReason(cSendReasons, st);
}

} // namespace

std::string WordsForUnknownHost(const std::string& host, int lookupError) {
    const HostAndPort parts = Split(host);
    if (!parts.host.empty() && parts.host != host) {
        return "The host stands alone" + (parts.port.empty() ? std::string() : ", the port behind -p") +
               ": flowlane av2rtp " + ShortShellWord(parts.host) +
               (parts.port.empty() ? "" : " -p " + parts.port);
    }
    const std::string reason = std::string(" (") + gai_strerror(lookupError) + ").";
    if (lookupError == EAI_AGAIN) {
        return "The name server gives no answer for the host " + Quoted(host) + reason +
               " Try again, or give the host's IP address.";
    }
    return "The host " + Quoted(host) + " is not known" + reason +
           " Check the name, or give the host's IP address.";
}

std::string WordsForUnreachableHost(const std::string& address, KESTATUS st) {
    const std::string hint = FindReason(cConnectReasons, st);
    return "Sending to " + (address.empty() ? "the host" : address) + " is not possible: " + StatusWords(st) +
           "." + (hint.empty() ? "" : " " + hint);
}

std::string AddressWithPort(const std::string& address, std::uint16_t port) {
    const bool isIPv6 = address.find(':') != std::string::npos;
    return (isIPv6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

std::string WordsForSendFailures(const std::string& receiver, const RtpUdpSink::Statistics& stats) {
    const std::uint64_t triedAgain =
        stats.errSendFailed - std::min(stats.errSendFailed, stats.errUdpPacketsDropped);
    return "UDP packets that could not be sent to " + receiver + ": " + std::to_string(triedAgain) +
           " tried again, " + std::to_string(stats.errUdpPacketsDropped) + " given up (" +
           SendReason(stats.lastSendFailure) + ")";
}

} // namespace flowlane

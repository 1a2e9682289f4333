// Why a stream does not get to its receiver in the network. Each function returns a line for the user.
#ifndef FLOWLANE_NETWORKFAILURES_H
#define FLOWLANE_NETWORKFAILURES_H

#include <cstdint>
#include <string>

#include "kestatus.h"
#include "streaming/RtpUdpSink.h"

namespace flowlane {

// For a host that cannot be resolved. host: as the user has given it. lookupError: of getaddrinfo.
std::string WordsForUnknownHost(const std::string& host, int lookupError);

// For a host to which no socket can be connected. address: of the host, numeric.
std::string WordsForUnreachableHost(const std::string& address, KESTATUS st);

// "192.0.2.1:5004", "[2001:db8::1]:5004".
std::string AddressWithPort(const std::string& address, std::uint16_t port);

// Datagrams that could not be sent, and whether they were tried again. receiver: address with port.
std::string WordsForSendFailures(const std::string& receiver, const RtpUdpSink::Statistics& stats);

} // namespace flowlane

#endif

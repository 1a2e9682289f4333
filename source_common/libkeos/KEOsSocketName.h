// The names of a socket address: its host or its service as a text.
//
// flags: NI_..., for example NI_NUMERICHOST. Without the numeric ones a lookup may ask name servers and
// blocks for as long as they take. A lookup that fails gives KESTATUS_INVALID_ADDRESS; the log has the
// reason. KESTATUS_NO_MEMORY when memory is short. name changes only on success. From any thread.
#ifndef KESTRELON_KEOSSOCKETNAME_H
#define KESTRELON_KEOSSOCKETNAME_H

#include <sys/socket.h>

#include <string>

#include "kestatus.h"

namespace kestrelon {

// length: of the address in bytes.
[[nodiscard]] KESTATUS KEOsGetSocketHostName(const sockaddr& address, socklen_t length, std::string& name,
                                             int flags) noexcept;
[[nodiscard]] KESTATUS KEOsGetSocketServiceName(const sockaddr& address, socklen_t length, std::string& name,
                                                int flags) noexcept;

} // namespace kestrelon

#endif

// An Ethernet MAC address that can be read from text and printed.
#ifndef KESTRELON_KEETHERNETMACADDRESS_H
#define KESTRELON_KEETHERNETMACADDRESS_H

#include <cstddef>

#include "kestatus.h"
#include "text/KEFormatter.h"
#include "values/TNetAddress.h"

namespace kestrelon {

// A plain value.
class KEEthernetMacAddress {
public:
    static constexpr std::size_t cSize = 6;

    bool IsZero() const noexcept;
    bool IsBroadcast() const noexcept;

    // Reads the first 12 characters as six pairs of hexadecimal digits without separators; the rest is
    // ignored. Failures are logged on Global. Instantiated for char and wchar_t.
    //   KESTATUS_INVALID_LENGTH  fewer than 12 characters, or a null pointer; the address is unchanged
    //   KESTATUS_INVALID_FORMAT  a character that is no hexadecimal digit; the pairs before it are stored
    template <typename charT>
    [[nodiscard]] KESTATUS InitFromString(const charT* text);

    // Six pairs of digits separated by "-"; upper case for the type X.
    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec& spec) const;

    TNET_EthernetMacAddress mMacAddr{};
};
static_assert(sizeof(KEEthernetMacAddress) == KEEthernetMacAddress::cSize);

extern template KESTATUS KEEthernetMacAddress::InitFromString<char>(const char* text);
extern template KESTATUS KEEthernetMacAddress::InitFromString<wchar_t>(const wchar_t* text);

} // namespace kestrelon

#endif

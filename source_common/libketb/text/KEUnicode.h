// The platform's character type for names that a user sees, and strings of it. On Linux it is char.
#ifndef KESTRELON_KEUNICODE_H
#define KESTRELON_KEUNICODE_H

#include <string>

namespace kestrelon {

using T_UNICHAR = char;
using KEUnicodeString = std::basic_string<T_UNICHAR>;

} // namespace kestrelon

#endif

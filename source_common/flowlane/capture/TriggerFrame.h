// The dummy Ethernet frame that stands for an external trigger in a file: addresses that no real frame has,
// an IEEE 802.3 length field, a magic number and the event data. The fields of the header and the magic
// number are big-endian, the event data are as the device gives them.
//
// A capture writes a length field of 14, the true length of the payload. A replay skips only dummy frames
// whose length field is 10, the length of the event data alone. So the trigger frames of this program's own
// captures are replayed like other frames. Both values are kept: files and replays stay as they have always
// been.
#ifndef FLOWLANE_TRIGGERFRAME_H
#define FLOWLANE_TRIGGERFRAME_H

#include <cstddef>
#include <cstdint>

#include "base/KEBuffer.h"

namespace flowlane::triggerframe {

constexpr std::uint32_t cMagic = 0x1234C000;
constexpr std::size_t cMagicOffset = 14; // 32 bits
constexpr std::size_t cEventDataOffset = 18;
constexpr std::size_t cSize = 28;

constexpr std::uint16_t cWrittenPayloadSize = 14;
constexpr std::uint16_t cSkippedPayloadSize = 10;

// Writes the frame of an event into frame, which has cSize bytes. Event data beyond 10 bytes are left out,
// and missing ones are zeros.
void Write(unsigned char* frame, kestrelon::KEConstBufferReference eventData) noexcept;

// True for a dummy frame that a replay skips.
bool IsSkipped(kestrelon::KEConstBufferReference frame) noexcept;

} // namespace flowlane::triggerframe

#endif

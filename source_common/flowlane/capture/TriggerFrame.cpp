#include "capture/TriggerFrame.h"

#include <algorithm>
#include <cstring>

#include "base/KEByteOrder.h"
#include "device/EthernetFormat.h"
#include "device/RawReceiveHeader.h"

namespace flowlane::triggerframe {

using namespace kestrelon;
using namespace ethernet;

namespace {

constexpr unsigned char cAddresses[2 * cMacAddressSize] = {0,    0,    0,    0,    0,    0,
                                                           0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

static_assert(cMagicOffset == cEthHeaderSize);
static_assert(cSize == cEthHeaderSize + cWrittenPayloadSize);
static_assert(cSize == cEventDataOffset + rawheader::cEventDataSize);
static_assert(cSkippedPayloadSize == rawheader::cEventDataSize);

} // namespace

void Write(unsigned char* frame, KEConstBufferReference eventData) noexcept {
    std::memset(frame, 0, cSize);
    std::memcpy(frame, cAddresses, sizeof cAddresses);
    KEStoreBE16(frame + cEthTypeOffset, cWrittenPayloadSize);
    KEStoreBE32(frame + cMagicOffset, cMagic);
    std::memcpy(frame + cEventDataOffset, eventData.mData,
                std::min(eventData.mLength, rawheader::cEventDataSize));
}

bool IsSkipped(KEConstBufferReference frame) noexcept {
    return frame.mLength >= cEthHeaderSize && std::memcmp(frame.mData, cAddresses, sizeof cAddresses) == 0 &&
           KELoadBE16(frame.mData + cEthTypeOffset) == cSkippedPayloadSize;
}

} // namespace flowlane::triggerframe

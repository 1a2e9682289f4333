// An opened device as the handle layer sees it, whatever back end it comes from.
//
// Owned by the handle table; created by DeviceInstance::Open, destroyed after the last call on its handle
// has returned. All operations but Finish and the destructor may be called from several threads at once.
// The default of each operation is the answer of a handle that was opened for something else.
#ifndef QUAYSIDE2_DEVICE_H
#define QUAYSIDE2_DEVICE_H

#include <array>
#include <cstdint>
#include <string>

#include "quayside2_api.h"

namespace quayside2 {

// What does not change while an instance exists.
struct DeviceProperties {
    std::string friendlyName; // at most 255 bytes
    std::string product;      // at most 255 bytes
    std::array<std::uint8_t, 6> macAddress{};
};

// What an instance is opened for.
struct OpenMode {
    enum class Kind { Control, RawTx, RawRx };
    Kind kind = Kind::Control;
    bool receiveHeader = false; // RawRx: each frame is preceded by the receive header of type 2
};

class Device {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device() = default;

    virtual const DeviceProperties& Properties() const noexcept = 0;
    // QBX_PROPERTY_STATE and QBX_PROPERTY_LOST_FRAMES of quayside2_api.h.
    virtual KESTATUS GetState(std::string&) const { return KESTATUS_NOT_FOUND; }
    virtual KESTATUS GetLostFrames(std::uint64_t&) { return KESTATUS_NOT_FOUND; }

    // The functions of the same names in quayside2_api.h. Pointers that must not be null are not.
    virtual KESTATUS EnableRawRx() { return KESTATUS_WRONG_DIRECTION; }
    virtual KESTATUS DisableRawRx() { return KESTATUS_WRONG_DIRECTION; }
    virtual KESTATUS WaitForRawFrame(std::int32_t) { return KESTATUS_WRONG_DIRECTION; }
    virtual KESTATUS GetReceivedRawFrame(QBXRawFrameType&, std::uint8_t*, std::uint32_t, std::uint32_t&) {
        return KESTATUS_WRONG_DIRECTION;
    }
    virtual KESTATUS CheckSubmitRawFrame(std::uint32_t) { return KESTATUS_WRONG_DIRECTION; }
    virtual KESTATUS WaitForTxResources(std::uint32_t, std::int32_t) { return KESTATUS_WRONG_DIRECTION; }
    virtual KESTATUS SubmitRawFrame(const std::uint8_t*, std::uint32_t) { return KESTATUS_WRONG_DIRECTION; }
    virtual KESTATUS SendRawFrames() { return KESTATUS_WRONG_DIRECTION; }

    // The handle is being closed: every call that waits on this device returns soon, a receive wait with
    // KESTATUS_INVALID_HANDLE. Calls may still be running.
    virtual void Shutdown() noexcept {}
    // The last call before the destructor, nothing else is running: sends what was submitted, within the
    // time limit of SendRawFrames.
    virtual void Finish() noexcept {}
};

} // namespace quayside2

#endif

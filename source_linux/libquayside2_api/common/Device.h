// An opened device as the handle layer sees it, whatever back end it comes from: the contract of every back
// end. Arguments and results are those of the functions of the same names in quayside2_api.h; here stands
// what a back end has to keep beyond that. Pointers that must not be null have been checked.
//
// Who calls: DeviceInstance::Open makes the device, the handle table owns it. All operations but Finish and
// the destructor may be called by several threads at once, also while another thread waits in one of them. A
// waiting thread therefore holds no lock that another operation needs.
//
// Close: the handle layer calls Shutdown while other calls may still run, waits until they have returned, and
// then calls Finish and the destructor.
//
// Fork: a forked child never calls a device of its parent, and must not keep anything of it alive. Hold
// descriptors in a ProcessFile, and exclude mappings from the child (MADV_DONTFORK). State that belongs to
// the process, with its locks, is made anew in the child (pthread_atfork).
//
// Removal: when the device has gone, what it received before is still delivered. From then on the operations
// that need it return KESTATUS_DEVICE_REMOVED, at the latest a quarter of a second after the removal. The
// status is final: another device of the same name is another instance.
//
// Losses: no frame is lost without a trace. A receiver shows each loss as a gap in the sequence numbers
// (ReceiveDelivery), and a sender counts the frames that it could not send. GetLostFrames has the totals.
//
// Exceptions: operations that are not noexcept may throw std::bad_alloc, which the handle layer turns into
// KESTATUS_NO_MEMORY.
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

// The default of each operation is the answer of a handle that was opened for something else:
// KESTATUS_NOT_FOUND for a property, KESTATUS_WRONG_DIRECTION for the rest.
class Device {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device() = default;

    virtual const DeviceProperties& Properties() const noexcept = 0;

    // The word of QBX_PROPERTY_STATE. A control handle of a device that cannot be opened at all gives the
    // status that opening it would give. Changes nothing and takes nothing.
    [[nodiscard]] virtual KESTATUS GetState(std::string& state) const = 0;
    // Control handles: the process that keeps others from opening the device for this use (RawTx or RawRx),
    // as "name (process 1234)". KESTATUS_NOT_FOUND when nobody does, or the system does not show who.
    [[nodiscard]] virtual KESTATUS GetHolder(OpenMode::Kind use, std::string& holder) const;
    // Control handles: the path of the file that the device is in. KESTATUS_NOT_FOUND when it is in none.
    [[nodiscard]] virtual KESTATUS GetFile(std::string& path) const;
    // Raw handles: frames lost since the handle was opened, over all enablings. Never waits.
    [[nodiscard]] virtual KESTATUS GetLostFrames(std::uint64_t& count);

    // Receive handles. The frames of one enabling are delivered in the order of their reception by
    // ReceiveDelivery, which has the rules for lengths, headers, numbers and idle items.

    // Starts delivery; a success without effect when it runs already. What was received before is never
    // delivered, not even what an earlier enabling left. Sequence numbers begin with 0.
    [[nodiscard]] virtual KESTATUS EnableRawRx();
    // Stops delivery, discards what was not taken and wakes every waiting thread, which gets
    // KESTATUS_NOT_ENABLED even when another thread enables again at once. A success without effect when
    // delivery does not run.
    [[nodiscard]] virtual KESTATUS DisableRawRx();
    // Sleeps until a frame is ready, at most timeoutMs milliseconds. 0 only looks; a negative number is no
    // limit. Takes nothing, and needs no processor time worth mentioning. A frame ends the wait soon, at the
    // latest when the back end would have delivered it anyway.
    //   KESTATUS_TIMEOUT         no frame came in time
    //   KESTATUS_NOT_ENABLED     delivery does not run, or was stopped since the call
    //   KESTATUS_INVALID_HANDLE  after Shutdown
    //   KESTATUS_DEVICE_REMOVED  the device is gone and all its frames have been taken
    [[nodiscard]] virtual KESTATUS WaitForRawFrame(std::int32_t timeoutMs);
    // Takes the next item. Never waits. Statuses: those of quayside2_api.h, and KESTATUS_INVALID_HANDLE after
    // Shutdown. type and receivedLength change on success only.
    [[nodiscard]] virtual KESTATUS GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                                       std::uint32_t bufferSize,
                                                       std::uint32_t& receivedLength);

    // Transmit handles. TransmitDevice has the rules for lengths and for the batch; a back end that derives
    // from it keeps them.

    // Whether a frame of length bytes would find a place in the batch. Never waits. The length is looked at
    // first: KESTATUS_INVALID_LENGTH also when the batch is full, otherwise KESTATUS_NO_SPACE.
    [[nodiscard]] virtual KESTATUS CheckSubmitRawFrame(std::uint32_t length);
    // Waits until the batch has count free places, at most timeoutMs milliseconds; a negative number is no
    // limit. Makes places by sending, and loses nothing: what finds no room in time stays in the batch. Sends
    // nothing when there are as many places already.
    //   KESTATUS_TIMEOUT            no room in time
    //   KESTATUS_INVALID_PARAMETER  count is 0 or above the size of the batch
    //   KESTATUS_INVALID_HANDLE     Shutdown ended the wait
    //   KESTATUS_DEVICE_REMOVED     the device is gone; the batch is empty
    [[nodiscard]] virtual KESTATUS WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs);
    // Copies a frame of length bytes into the batch. Never waits. Statuses as CheckSubmitRawFrame, and
    // KESTATUS_INVALID_LENGTH for one that needs a VLAN tag to be so long and has none.
    [[nodiscard]] virtual KESTATUS SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length);
    // Sends the batch in the order of submission. Waits for room for one second at most in all; what found
    // none by then is sent at the cost of receivers that are too slow, or lost and counted. The batch is
    // empty afterwards.
    //   KESTATUS_NO_DATA         the batch was empty
    //   KESTATUS_DEVICE_REMOVED  the device is gone; what was in the batch is lost and counted
    //   others                   the system refuses a frame, which is lost and counted; the rest is sent
    [[nodiscard]] virtual KESTATUS SendRawFrames();

    // The handle is being closed: every call that waits on this device returns soon, a receive wait with
    // KESTATUS_INVALID_HANDLE. Calls may still be running. Never waits.
    virtual void Shutdown() noexcept {}
    // The last call before the destructor, nothing else is running: sends what was submitted, within the
    // time limit of SendRawFrames.
    virtual void Finish() noexcept {}
};

} // namespace quayside2

#endif

// A device opened to send, of any back end: the batch of submitted frames, and the rules by which frames are
// taken into it and leave it. A back end derives from it and writes SendBatch.
//
// From any thread; one lock makes submitting and sending exclusive. A waiting thread holds no lock.
#ifndef QUAYSIDE2_TRANSMITDEVICE_H
#define QUAYSIDE2_TRANSMITDEVICE_H

#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/Device.h"
#include "common/FrameBatch.h"

namespace quayside2 {

class TransmitDevice : public Device {
public:
    const DeviceProperties& Properties() const noexcept final { return mProperties; }
    [[nodiscard]] KESTATUS CheckSubmitRawFrame(std::uint32_t length) final;
    [[nodiscard]] KESTATUS SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length) final;
    [[nodiscard]] KESTATUS WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs) final;
    [[nodiscard]] KESTATUS SendRawFrames() final;
    // Says that the handle is being closed. A back end whose waiting threads have to be woken overrides it,
    // calls it first and wakes them then.
    void Shutdown() noexcept override;
    void Finish() noexcept final;

protected:
    using Lock = std::unique_lock<std::mutex>;

    // What becomes of frames for which there was no room until the deadline.
    enum class AtDeadline {
        Keep,  // they stay in the batch
        Remove // they leave the batch all the same: the back end sends them at others' cost or loses them
    };
    // How one call sends.
    struct SendTerms {
        std::uint32_t enoughPlaces; // with so many free places in the batch it does not wait any longer
        std::int64_t deadline;      // steady clock, nanoseconds; cNever: none
        AtDeadline atDeadline;
    };

    explicit TransmitDevice(const DeviceProperties& properties) : mProperties(properties) {}

    // Sends the frames of the batch, the oldest first, and removes each from the batch when it is sent or
    // lost. Waits for room as the terms say; meanwhile it lets the lock go, and other threads submit and
    // send. Frames that are lost are counted by the back end and are no failure.
    //   KESTATUS_DEVICE_REMOVED  the device is gone; the batch is empty
    //   others                   the system refuses a frame, which is lost; the rest is sent
    [[nodiscard]] virtual KESTATUS SendBatch(Lock& lock, const SendTerms& terms) = 0;
    // Asks the link again for its longest frame, because a frame is longer than it was, and calls
    // SetMaxUntaggedBytes. The default is for a link whose longest frame never changes. Called with the lock.
    //   KESTATUS_DEVICE_REMOVED  the device is gone
    [[nodiscard]] virtual KESTATUS UpdateMaxFrame() { return KESTATUS_SUCCESS; }

    // Whether a wait by these terms ends now, on the steady clock.
    bool IsOver(const SendTerms& terms, std::int64_t now) const noexcept;

    // All that follows needs the lock, or an object that nobody else has yet.

    // The longest frame without a VLAN tag; a tagged one may have 4 bytes more. The first call makes the
    // batch's places and throws std::bad_alloc.
    void SetMaxUntaggedBytes(std::uint32_t bytes);
    FrameBatch& Batch() noexcept { return mBatch; }

private:
    std::uint32_t MaxTaggedBytes() const noexcept;
    [[nodiscard]] KESTATUS CheckLength(std::uint32_t length);
    [[nodiscard]] KESTATUS MakePlace(std::uint32_t length);

    const DeviceProperties mProperties;
    std::atomic<bool> mIsShutdown{false};
    std::mutex mMutex; // everything below
    FrameBatch mBatch;
    std::uint32_t mMaxUntaggedBytes = 0;
};

} // namespace quayside2

#endif

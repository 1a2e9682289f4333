// An interface opened to send.
//
// From any thread; one lock makes submitting and sending exclusive. A waiting thread holds no lock.
#ifndef QUAYSIDE2_NETIF_NETIFTXDEVICE_H
#define QUAYSIDE2_NETIF_NETIFTXDEVICE_H

#include <atomic>
#include <mutex>

#include "common/Device.h"
#include "netif/InterfaceLock.h"
#include "netif/TransmitBatch.h"

namespace quayside2::netif {

class NetifTxDevice : public Device {
public:
    NetifTxDevice(const DeviceProperties& properties, unsigned interfaceIndex)
        : mProperties(properties), mInterfaceIndex(interfaceIndex) {}

    // Takes the interface. Once, before anything else.
    //   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  CAP_NET_RAW is missing
    //   KESTATUS_IN_USE                     somebody sends on the interface
    //   KESTATUS_DEVICE_REMOVED             the interface is gone
    KESTATUS Open();

    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    KESTATUS GetLostFrames(std::uint64_t& count) override;
    KESTATUS CheckSubmitRawFrame(std::uint32_t length) override;
    KESTATUS WaitForTxResources(std::uint32_t count, std::int32_t timeoutMs) override;
    KESTATUS SubmitRawFrame(const std::uint8_t* frame, std::uint32_t length) override;
    KESTATUS SendRawFrames() override;
    void Shutdown() noexcept override;
    void Finish() noexcept override;

private:
    using Lock = std::unique_lock<std::mutex>;
    // What happens to frames that could not be handed over until the deadline.
    enum class AtDeadline { Keep, Lose };

    KESTATUS UpdateMtu();
    KESTATUS CheckLength(std::uint32_t length);
    KESTATUS SendBatch(Lock& lock, std::uint32_t enough, std::int64_t deadline, AtDeadline atDeadline);
    KESTATUS LoseUnsendable(int error);
    void SleepForRoom(Lock& lock, int error, std::int64_t nanoseconds);
    void LoseFirst(std::uint32_t count) noexcept;

    const DeviceProperties mProperties;
    const unsigned mInterfaceIndex;
    InterfaceLock mLock;
    ProcessFile mSocket;
    std::atomic<bool> mShutdown{false};
    std::atomic<std::uint64_t> mLostFrames{0};

    std::mutex mMutex; // everything below
    TransmitBatch mBatch;
    std::uint32_t mMaxUntaggedBytes = 0; // of a frame that has no VLAN tag
    bool mIsLosing = false;              // the last frame was lost since the link was down or full
};

} // namespace quayside2::netif

#endif

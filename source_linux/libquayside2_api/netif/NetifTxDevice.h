// An interface opened to send: the batch goes to the kernel by sendmmsg(2).
#ifndef QUAYSIDE2_NETIF_NETIFTXDEVICE_H
#define QUAYSIDE2_NETIF_NETIFTXDEVICE_H

#include <atomic>
#include <string>

#include "common/TransmitDevice.h"
#include "netif/InterfaceLock.h"

namespace quayside2::netif {

class NetifTxDevice : public TransmitDevice {
public:
    NetifTxDevice(const DeviceProperties& properties, unsigned interfaceIndex)
        : TransmitDevice(properties), mInterfaceIndex(interfaceIndex) {}

    // Takes the interface. Once, before anything else.
    //   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  CAP_NET_RAW is missing
    //   KESTATUS_IN_USE                     somebody sends on the interface
    //   KESTATUS_DEVICE_REMOVED             the interface is gone
    [[nodiscard]] KESTATUS Open();

    [[nodiscard]] KESTATUS GetState(std::string& state) const override;
    [[nodiscard]] KESTATUS GetLostFrames(std::uint64_t& count) override;

protected:
    [[nodiscard]] KESTATUS SendBatch(Lock& lock, const SendTerms& terms) override;
    [[nodiscard]] KESTATUS UpdateMaxFrame() override;

private:
    // One call of SendBatch on its way.
    struct Progress {
        bool isLinkUp;
        std::int64_t refusedSince; // when the first frame was refused first; cNever: it was not
    };
    int SendToKernel(Progress& progress) noexcept;
    bool AwaitRoom(Lock& lock, const SendTerms& terms, int error, Progress& progress);
    void SleepForRoom(Lock& lock, int error, std::int64_t nanoseconds);
    [[nodiscard]] KESTATUS LoseUnsendable(int error);
    void LoseFirst(std::uint32_t count) noexcept;

    const unsigned mInterfaceIndex;
    InterfaceLock mLock;
    ProcessFile mSocket;
    std::atomic<std::uint64_t> mLostFrames{0};
    bool mIsLosing = false; // the last frame was lost since the link was down or full; with the lock held
};

} // namespace quayside2::netif

#endif

// An interface opened to receive.
//
// From any thread; one lock makes taking frames exclusive. A waiting thread holds no lock.
#ifndef QUAYSIDE2_NETIF_NETIFRXDEVICE_H
#define QUAYSIDE2_NETIF_NETIFRXDEVICE_H

#include <memory>
#include <mutex>
#include <string>

#include "common/Device.h"
#include "common/ReceiveDelivery.h"
#include "netif/InterfaceLock.h"
#include "netif/PacketReceiver.h"

namespace quayside2::netif {

class NetifRxDevice : public Device {
public:
    NetifRxDevice(const DeviceProperties& properties, unsigned interfaceIndex, bool receiveHeader)
        : mProperties(properties),
          mInterfaceIndex(interfaceIndex),
          mHasReceiveHeader(receiveHeader),
          mDelivery(receiveHeader) {}

    // Takes the interface and the memory. Once, before anything else.
    //   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  CAP_NET_RAW is missing
    //   KESTATUS_IN_USE                     somebody receives from the interface
    //   KESTATUS_DEVICE_REMOVED             the interface is gone
    [[nodiscard]] KESTATUS Open();

    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    [[nodiscard]] KESTATUS GetState(std::string& state) const override;
    [[nodiscard]] KESTATUS GetLostFrames(std::uint64_t& count) override;
    [[nodiscard]] KESTATUS EnableRawRx() override;
    [[nodiscard]] KESTATUS DisableRawRx() override;
    [[nodiscard]] KESTATUS WaitForRawFrame(std::int32_t timeoutMs) override;
    [[nodiscard]] KESTATUS GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                               std::uint32_t bufferSize,
                                               std::uint32_t& receivedLength) override;
    void Shutdown() noexcept override;

private:
    [[nodiscard]] KESTATUS State() const noexcept;
    [[nodiscard]] KESTATUS WaitState(const std::shared_ptr<PacketReceiver>& receiver);
    [[nodiscard]] KESTATUS MakeReceiver();
    void CountDrops() noexcept;

    const DeviceProperties mProperties;
    const unsigned mInterfaceIndex;
    const bool mHasReceiveHeader;
    InterfaceLock mLock;

    std::mutex mMutex; // everything below
    // Made anew for each enabling, so that nothing old is ever delivered; the first one when the device is
    // opened. Shared with the threads that wait.
    std::shared_ptr<PacketReceiver> mReceiver;
    bool mIsEnabled = false;
    bool mIsShutdown = false;
    ReceiveDelivery mDelivery;
};

} // namespace quayside2::netif

#endif

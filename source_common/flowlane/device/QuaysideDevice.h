// An opened device: owns a handle of the device library and closes it at the end. Each operation calls the
// library function of the same name with that handle and returns its status unchanged. quayside2_api.h
// describes arguments, statuses and blocking. Without an open device the handle is 0.
//
// Threads: the owner opens and closes. Several threads may call the other operations at once.
#ifndef FLOWLANE_QUAYSIDEDEVICE_H
#define FLOWLANE_QUAYSIDEDEVICE_H

#include "device/QuaysideEnumerator.h"
#include "quayside2_api.h"

namespace flowlane {

class QuaysideDevice {
public:
    QuaysideDevice() = default;
    ~QuaysideDevice();
    QuaysideDevice(const QuaysideDevice&) = delete;
    QuaysideDevice& operator=(const QuaysideDevice&) = delete;

    // Each first closes a device that is still open.
    [[nodiscard]] KESTATUS OpenControlDevice(const QuaysideEnumerator& enumerator, unsigned index);
    [[nodiscard]] KESTATUS OpenRawTxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                           unsigned reserved1, QBXRawHeaderType headerType,
                                           unsigned reserved2);
    [[nodiscard]] KESTATUS OpenRawRxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                           unsigned reserved1, QBXRawHeaderType headerType,
                                           unsigned reserved2);
    // No device is open afterwards, whatever the status.
    [[nodiscard]] KESTATUS CloseDevice();

    [[nodiscard]] KESTATUS GetDevicePropertyString(unsigned id, char* buffer, unsigned size) const;
    [[nodiscard]] KESTATUS GetDevicePropertyBinary(unsigned id, void* buffer, unsigned size,
                                                   unsigned* returnedSize) const;

    [[nodiscard]] KESTATUS EnableRawRx();
    [[nodiscard]] KESTATUS DisableRawRx();
    [[nodiscard]] KESTATUS WaitForRawFrame(int timeoutMs);
    [[nodiscard]] KESTATUS GetReceivedRawFrame(QBXRawFrameType* type, void* buffer, unsigned bufferSize,
                                               unsigned* receivedLength);

    [[nodiscard]] KESTATUS CheckSubmitRawFrame(unsigned length);
    [[nodiscard]] KESTATUS WaitForTxResources(unsigned count, int timeoutMs);
    [[nodiscard]] KESTATUS SubmitRawFrame(const void* frame, unsigned length, unsigned* reserved);
    [[nodiscard]] KESTATUS SendRawFrames();

    // 0 when no device is open.
    QBXDeviceHandle Handle() const noexcept { return mHandle; }

private:
    void CloseIfOpen();
    [[nodiscard]] KESTATUS Keep(QBXDeviceHandle handle, KESTATUS st);

    QBXDeviceHandle mHandle = 0;
};

} // namespace flowlane

#endif

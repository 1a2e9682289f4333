// An opened device: owns a handle of the device library and closes it at the end. Each operation is the
// library function of the same name on that handle and returns its status unchanged; arguments, statuses
// and blocking are described in quayside2_api.h. Without an open device the handle passed is 0.
//
// Threads: opening and closing are for the owner; the other operations may be called by several threads
// at once, as the library says.
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

    // Opening closes a device that is still open first.
    [[nodiscard]] KESTATUS OpenControlDevice(const QuaysideEnumerator& enumerator, unsigned index);
    [[nodiscard]] KESTATUS OpenRawTxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                           unsigned reserved1, QBXRawHeaderType headerType,
                                           unsigned reserved2);
    [[nodiscard]] KESTATUS OpenRawRxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                           unsigned reserved1, QBXRawHeaderType headerType,
                                           unsigned reserved2);
    // Afterwards no device is open, whatever the status.
    [[nodiscard]] KESTATUS CloseDevice();

    [[nodiscard]] KESTATUS GetDevicePropertyString(unsigned id, char* buffer, unsigned size);
    [[nodiscard]] KESTATUS GetDevicePropertyBinary(unsigned id, void* buffer, unsigned size,
                                                   unsigned* returnedSize);

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

#include "device/QuaysideDevice.h"

#include <utility>

namespace flowlane {

QuaysideDevice::~QuaysideDevice() {
    CloseIfOpen();
}

void QuaysideDevice::CloseIfOpen() {
    if (mHandle != 0) {
        static_cast<void>(CloseDevice()); // the handle is given up whatever the status
    }
}

// A call that failed may have left any value in handle.
KESTATUS QuaysideDevice::Keep(QBXDeviceHandle handle, KESTATUS st) {
    if (st == KESTATUS_SUCCESS) {
        mHandle = handle;
    }
    return st;
}

KESTATUS QuaysideDevice::OpenControlDevice(const QuaysideEnumerator& enumerator, unsigned index) {
    CloseIfOpen();
    QBXDeviceHandle handle = 0;
    const KESTATUS st = QBX_OpenControlDevice(enumerator.Handle(), index, &handle);
    return Keep(handle, st);
}

KESTATUS QuaysideDevice::OpenRawTxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                         unsigned reserved1, QBXRawHeaderType headerType,
                                         unsigned reserved2) {
    CloseIfOpen();
    QBXDeviceHandle handle = 0;
    const KESTATUS st =
        QBX_OpenRawTxDevice(enumerator.Handle(), index, reserved1, headerType, &handle, reserved2);
    return Keep(handle, st);
}

KESTATUS QuaysideDevice::OpenRawRxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                         unsigned reserved1, QBXRawHeaderType headerType,
                                         unsigned reserved2) {
    CloseIfOpen();
    QBXDeviceHandle handle = 0;
    const KESTATUS st =
        QBX_OpenRawRxDevice(enumerator.Handle(), index, reserved1, headerType, &handle, reserved2);
    return Keep(handle, st);
}

KESTATUS QuaysideDevice::CloseDevice() {
    return QBX_CloseDevice(std::exchange(mHandle, 0));
}

KESTATUS QuaysideDevice::GetDevicePropertyString(unsigned id, char* buffer, unsigned size) const {
    return QBX_GetDevicePropertyString(mHandle, id, buffer, size);
}

KESTATUS QuaysideDevice::GetDevicePropertyBinary(unsigned id, void* buffer, unsigned size,
                                                 unsigned* returnedSize) const {
    return QBX_GetDevicePropertyBinary(mHandle, id, buffer, size, returnedSize);
}

KESTATUS QuaysideDevice::EnableRawRx() {
    return QBX_EnableRawRx(mHandle);
}

KESTATUS QuaysideDevice::DisableRawRx() {
    return QBX_DisableRawRx(mHandle);
}

KESTATUS QuaysideDevice::WaitForRawFrame(int timeoutMs) {
    return QBX_WaitForRawFrame(mHandle, timeoutMs);
}

KESTATUS QuaysideDevice::GetReceivedRawFrame(QBXRawFrameType* type, void* buffer, unsigned bufferSize,
                                             unsigned* receivedLength) {
    return QBX_GetReceivedRawFrame(mHandle, type, buffer, bufferSize, receivedLength);
}

KESTATUS QuaysideDevice::CheckSubmitRawFrame(unsigned length) {
    return QBX_CheckSubmitRawFrame(mHandle, length);
}

KESTATUS QuaysideDevice::WaitForTxResources(unsigned count, int timeoutMs) {
    return QBX_WaitForTxResources(mHandle, count, timeoutMs);
}

KESTATUS QuaysideDevice::SubmitRawFrame(const void* frame, unsigned length, unsigned* reserved) {
    return QBX_SubmitRawFrame(mHandle, frame, length, reserved);
}

KESTATUS QuaysideDevice::SendRawFrames() {
    return QBX_SendRawFrames(mHandle);
}

} // namespace flowlane

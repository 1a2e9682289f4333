#include "QuaysideDevice.h"

#include <utility>

namespace flowlane {

QuaysideDevice::~QuaysideDevice() {
    CloseIfOpen();
}

void QuaysideDevice::CloseIfOpen() {
    if (mHandle != 0) {
        CloseDevice();
    }
}

KESTATUS QuaysideDevice::OpenControlDevice(const QuaysideEnumerator& enumerator, unsigned index) {
    CloseIfOpen();
    return QBX_OpenControlDevice(enumerator.Handle(), index, &mHandle);
}

KESTATUS QuaysideDevice::OpenRawTxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                         unsigned reserved1, QBXRawHeaderType headerType,
                                         unsigned reserved2) {
    CloseIfOpen();
    return QBX_OpenRawTxDevice(enumerator.Handle(), index, reserved1, headerType, &mHandle, reserved2);
}

KESTATUS QuaysideDevice::OpenRawRxDevice(const QuaysideEnumerator& enumerator, unsigned index,
                                         unsigned reserved1, QBXRawHeaderType headerType,
                                         unsigned reserved2) {
    CloseIfOpen();
    return QBX_OpenRawRxDevice(enumerator.Handle(), index, reserved1, headerType, &mHandle, reserved2);
}

KESTATUS QuaysideDevice::CloseDevice() {
    return QBX_CloseDevice(std::exchange(mHandle, 0));
}

KESTATUS QuaysideDevice::GetDevicePropertyString(unsigned id, char* buffer, unsigned size) {
    return QBX_GetDevicePropertyString(mHandle, id, buffer, size);
}

KESTATUS QuaysideDevice::GetDevicePropertyBinary(unsigned id, void* buffer, unsigned size,
                                                 unsigned* returnedSize) {
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

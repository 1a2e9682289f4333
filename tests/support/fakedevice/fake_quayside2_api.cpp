// The C functions of the fake device.

#include "FakeDevice.h"

using testsupport::FakeDevice;
using testsupport::Qbx;

extern "C" {

bool QBX_CheckApiVersion(uint32_t major, uint32_t minor) {
    return FakeDevice::Instance().CheckApiVersion(major, minor);
}

uint32_t QBX_GetApiVersion() {
    return FakeDevice::Instance().GetApiVersion();
}

KESTATUS QBX_EnumerateDevices(QBXDeviceType type, QBXEnumerationHandle* enumeration, uint32_t* count) {
    return FakeDevice::Instance().EnumerateDevices(type, enumeration, count);
}

KESTATUS QBX_CloseEnumeration(QBXEnumerationHandle enumeration) {
    return FakeDevice::Instance().CloseEnumeration(enumeration);
}

KESTATUS QBX_OpenControlDevice(QBXEnumerationHandle enumeration, uint32_t index, QBXDeviceHandle* device) {
    return FakeDevice::Instance().Open(Qbx::OpenControlDevice, enumeration, index, 0, QBXRawHeaderType_None,
                                       device, 0);
}

KESTATUS QBX_OpenRawTxDevice(QBXEnumerationHandle enumeration, uint32_t index, uint32_t reserved1,
                             QBXRawHeaderType headerType, QBXDeviceHandle* device, uint32_t reserved2) {
    return FakeDevice::Instance().Open(Qbx::OpenRawTxDevice, enumeration, index, reserved1, headerType,
                                       device, reserved2);
}

KESTATUS QBX_OpenRawRxDevice(QBXEnumerationHandle enumeration, uint32_t index, uint32_t reserved1,
                             QBXRawHeaderType headerType, QBXDeviceHandle* device, uint32_t reserved2) {
    return FakeDevice::Instance().Open(Qbx::OpenRawRxDevice, enumeration, index, reserved1, headerType,
                                       device, reserved2);
}

KESTATUS QBX_CloseDevice(QBXDeviceHandle device) {
    return FakeDevice::Instance().CloseDevice(device);
}

KESTATUS QBX_GetDevicePropertyString(QBXDeviceHandle device, uint32_t property, char* buffer, uint32_t size) {
    return FakeDevice::Instance().GetDevicePropertyString(device, property, buffer, size);
}

KESTATUS QBX_GetDevicePropertyBinary(QBXDeviceHandle device, uint32_t property, void* buffer, uint32_t size,
                                     uint32_t* returnedSize) {
    return FakeDevice::Instance().GetDevicePropertyBinary(device, property, buffer, size, returnedSize);
}

KESTATUS QBX_EnableRawRx(QBXDeviceHandle device) {
    return FakeDevice::Instance().SetRxEnabled(Qbx::EnableRawRx, device, true);
}

KESTATUS QBX_DisableRawRx(QBXDeviceHandle device) {
    return FakeDevice::Instance().SetRxEnabled(Qbx::DisableRawRx, device, false);
}

KESTATUS QBX_WaitForRawFrame(QBXDeviceHandle device, int32_t timeoutMs) {
    return FakeDevice::Instance().WaitForRawFrame(device, timeoutMs);
}

KESTATUS QBX_GetReceivedRawFrame(QBXDeviceHandle device, QBXRawFrameType* type, void* buffer,
                                 uint32_t bufferSize, uint32_t* receivedLength) {
    return FakeDevice::Instance().GetReceivedRawFrame(device, type, buffer, bufferSize, receivedLength);
}

KESTATUS QBX_CheckSubmitRawFrame(QBXDeviceHandle device, uint32_t length) {
    return FakeDevice::Instance().Answer(Qbx::CheckSubmitRawFrame, device, {device, length});
}

KESTATUS QBX_WaitForTxResources(QBXDeviceHandle device, uint32_t count, int32_t timeoutMs) {
    return FakeDevice::Instance().Answer(Qbx::WaitForTxResources, device, {device, count, timeoutMs});
}

KESTATUS QBX_SubmitRawFrame(QBXDeviceHandle device, const void* frame, uint32_t length, uint32_t* reserved) {
    return FakeDevice::Instance().SubmitRawFrame(device, frame, length, reserved);
}

KESTATUS QBX_SendRawFrames(QBXDeviceHandle device) {
    return FakeDevice::Instance().SendRawFrames(device);
}
}

// A device library that takes every frame and does nothing, has nothing to receive, and has one device.

#include <cstring>

#include "quayside2_api.h"

extern "C" {

bool QBX_CheckApiVersion(uint32_t, uint32_t) {
    return true;
}
uint32_t QBX_GetApiVersion() {
    return QBX_API_VERSION_MAJOR << 16 | QBX_API_VERSION_MINOR;
}
KESTATUS QBX_EnumerateDevices(QBXDeviceType, QBXEnumerationHandle* enumeration, uint32_t* count) {
    *enumeration = 1;
    *count = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_CloseEnumeration(QBXEnumerationHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_OpenControlDevice(QBXEnumerationHandle, uint32_t, QBXDeviceHandle* device) {
    *device = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_OpenRawTxDevice(QBXEnumerationHandle, uint32_t, uint32_t, QBXRawHeaderType,
                             QBXDeviceHandle* device, uint32_t) {
    *device = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_OpenRawRxDevice(QBXEnumerationHandle, uint32_t, uint32_t, QBXRawHeaderType,
                             QBXDeviceHandle* device, uint32_t) {
    *device = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_CloseDevice(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_GetDevicePropertyString(QBXDeviceHandle, uint32_t, char* buffer, uint32_t) {
    *buffer = 0;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_GetDevicePropertyBinary(QBXDeviceHandle, uint32_t property, void* buffer, uint32_t size,
                                     uint32_t* returnedSize) {
    if (property != QBX_PROPERTY_MAC_ADDRESS) {
        return KESTATUS_NOT_FOUND;
    }
    std::memset(buffer, 2, size);
    *returnedSize = size;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_EnableRawRx(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_DisableRawRx(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_WaitForRawFrame(QBXDeviceHandle, int32_t) {
    return KESTATUS_TIMEOUT;
}
KESTATUS QBX_GetReceivedRawFrame(QBXDeviceHandle, QBXRawFrameType*, void*, uint32_t, uint32_t*) {
    return KESTATUS_NO_DATA;
}
KESTATUS QBX_CheckSubmitRawFrame(QBXDeviceHandle, uint32_t) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_WaitForTxResources(QBXDeviceHandle, uint32_t, int32_t) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_SubmitRawFrame(QBXDeviceHandle, const void*, uint32_t, uint32_t*) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_SendRawFrames(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
}

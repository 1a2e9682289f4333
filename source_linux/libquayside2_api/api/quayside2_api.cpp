// The C entry points: they check arguments and handles, and let no exception out.
#include "quayside2_api.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "api/DeviceList.h"
#include "api/ProcessState.h"

using quayside2::Device;
using quayside2::DeviceInstances;
using quayside2::OpenMode;
using quayside2::ProcessState;

namespace {

// Runs an operation and turns what it throws into a status.
template <typename Operation>
KESTATUS Guarded(Operation&& operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return KESTATUS_NO_MEMORY;
    } catch (...) {
        return KESTATUS_INTERNAL_ERROR;
    }
}

// Runs an operation on the device of a handle.
template <typename Operation>
KESTATUS WithDevice(QBXDeviceHandle handle, Operation&& operation) noexcept {
    return Guarded([&]() -> KESTATUS {
        const auto device = ProcessState::Instance().devices.Find(handle);
        return device ? operation(*device) : KESTATUS_INVALID_HANDLE;
    });
}

KESTATUS OpenDevice(QBXEnumerationHandle enumeration, std::uint32_t index, const OpenMode& mode,
                    QBXDeviceHandle* handle) {
    ProcessState& state = ProcessState::Instance();
    const auto instances = state.enumerations.Find(enumeration);
    if (!instances) {
        return KESTATUS_INVALID_HANDLE;
    }
    if (index >= instances->size()) {
        return KESTATUS_INVALID_INDEX;
    }
    std::unique_ptr<Device> device;
    const KESTATUS st = (*instances)[index]->Open(mode, device);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    const QBXDeviceHandle opened = state.devices.Insert(std::move(device));
    if (opened == 0) {
        return KESTATUS_NO_RESOURCES;
    }
    *handle = opened;
    return KESTATUS_SUCCESS;
}

KESTATUS ReadTextProperty(const Device& device, std::uint32_t property, std::string& text) {
    switch (property) {
    case QBX_PROPERTY_PRODUCT_STRING:
        text = device.Properties().product;
        return KESTATUS_SUCCESS;
    case QBX_PROPERTY_FRIENDLY_NAME:
        text = device.Properties().friendlyName;
        return KESTATUS_SUCCESS;
    case QBX_PROPERTY_STATE:
        return device.GetState(text);
    case QBX_PROPERTY_TX_HOLDER:
        return device.GetHolder(OpenMode::Kind::RawTx, text);
    case QBX_PROPERTY_RX_HOLDER:
        return device.GetHolder(OpenMode::Kind::RawRx, text);
    case QBX_PROPERTY_FILE:
        return device.GetFile(text);
    default:
        return KESTATUS_NOT_FOUND;
    }
}

KESTATUS CopyBinaryProperty(const void* value, std::uint32_t valueSize, void* buffer, std::uint32_t size,
                            std::uint32_t* returnedSize) {
    if (returnedSize) {
        *returnedSize = valueSize;
    }
    if (size < valueSize) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, value, valueSize);
    return KESTATUS_SUCCESS;
}

} // namespace

bool QBX_CheckApiVersion(uint32_t major, uint32_t minor) {
    return major == QBX_API_VERSION_MAJOR && minor <= QBX_API_VERSION_MINOR;
}

uint32_t QBX_GetApiVersion(void) {
    return QBX_API_VERSION_MAJOR << 16 | QBX_API_VERSION_MINOR;
}

KESTATUS QBX_EnumerateDevices(QBXDeviceType type, QBXEnumerationHandle* enumeration, uint32_t* count) {
    if (!enumeration || !count) {
        return KESTATUS_INVALID_PARAMETER;
    }
    *enumeration = 0;
    *count = 0;
    if (type != QBXDeviceType_any) {
        return KESTATUS_INVALID_TYPE;
    }
    return Guarded([&]() -> KESTATUS {
        auto instances = std::make_unique<DeviceInstances>();
        const KESTATUS st = quayside2::ListDevices(*instances);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        const auto found = static_cast<std::uint32_t>(instances->size());
        const QBXEnumerationHandle handle =
            ProcessState::Instance().enumerations.Insert(std::move(instances));
        if (handle == 0) {
            return KESTATUS_NO_RESOURCES;
        }
        *enumeration = handle;
        *count = found;
        return KESTATUS_SUCCESS;
    });
}

KESTATUS QBX_CloseEnumeration(QBXEnumerationHandle enumeration) {
    return Guarded([&]() -> KESTATUS {
        const auto instances =
            ProcessState::Instance().enumerations.Remove(enumeration, [](const DeviceInstances&) {});
        return instances ? KESTATUS_SUCCESS : KESTATUS_INVALID_HANDLE;
    });
}

KESTATUS QBX_OpenControlDevice(QBXEnumerationHandle enumeration, uint32_t index, QBXDeviceHandle* device) {
    if (!device) {
        return KESTATUS_INVALID_PARAMETER;
    }
    *device = 0;
    return Guarded([&] { return OpenDevice(enumeration, index, {OpenMode::Kind::Control, false}, device); });
}

KESTATUS QBX_OpenRawTxDevice(QBXEnumerationHandle enumeration, uint32_t index, uint32_t reserved1,
                             QBXRawHeaderType headerType, QBXDeviceHandle* device, uint32_t reserved2) {
    if (!device) {
        return KESTATUS_INVALID_PARAMETER;
    }
    *device = 0;
    if (reserved1 != 0 || reserved2 != 0) {
        return KESTATUS_INVALID_PARAMETER;
    }
    if (headerType != QBXRawHeaderType_None) {
        return KESTATUS_NOT_SUPPORTED;
    }
    return Guarded([&] { return OpenDevice(enumeration, index, {OpenMode::Kind::RawTx, false}, device); });
}

KESTATUS QBX_OpenRawRxDevice(QBXEnumerationHandle enumeration, uint32_t index, uint32_t reserved1,
                             QBXRawHeaderType headerType, QBXDeviceHandle* device, uint32_t reserved2) {
    if (!device) {
        return KESTATUS_INVALID_PARAMETER;
    }
    *device = 0;
    if (reserved1 != 0 || reserved2 != 0) {
        return KESTATUS_INVALID_PARAMETER;
    }
    if (headerType != QBXRawHeaderType_None && headerType != QBXRawHeaderType_2) {
        return KESTATUS_NOT_SUPPORTED;
    }
    const OpenMode mode{OpenMode::Kind::RawRx, headerType == QBXRawHeaderType_2};
    return Guarded([&] { return OpenDevice(enumeration, index, mode, device); });
}

KESTATUS QBX_CloseDevice(QBXDeviceHandle device) {
    return Guarded([&]() -> KESTATUS {
        const auto closed =
            ProcessState::Instance().devices.Remove(device, [](Device& used) { used.Shutdown(); });
        if (!closed) {
            return KESTATUS_INVALID_HANDLE;
        }
        closed->Finish();
        return KESTATUS_SUCCESS;
    });
}

KESTATUS QBX_GetDevicePropertyString(QBXDeviceHandle device, uint32_t property, char* buffer, uint32_t size) {
    return WithDevice(device, [&](const Device& opened) -> KESTATUS {
        if (!buffer) {
            return KESTATUS_INVALID_PARAMETER;
        }
        std::string text;
        const KESTATUS st = ReadTextProperty(opened, property, text);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        if (size == 0) {
            return KESTATUS_BUFFER_TOO_SMALL;
        }
        const std::size_t copied = std::min<std::size_t>(text.size(), size - 1);
        std::memcpy(buffer, text.data(), copied);
        buffer[copied] = '\0';
        return copied == text.size() ? KESTATUS_SUCCESS : KESTATUS_BUFFER_TOO_SMALL;
    });
}

KESTATUS QBX_GetDevicePropertyBinary(QBXDeviceHandle device, uint32_t property, void* buffer, uint32_t size,
                                     uint32_t* returnedSize) {
    return WithDevice(device, [&](Device& opened) -> KESTATUS {
        if (!buffer) {
            return KESTATUS_INVALID_PARAMETER;
        }
        switch (property) {
        case QBX_PROPERTY_MAC_ADDRESS: {
            const auto& address = opened.Properties().macAddress;
            return CopyBinaryProperty(address.data(), static_cast<std::uint32_t>(address.size()), buffer,
                                      size, returnedSize);
        }
        case QBX_PROPERTY_LOST_FRAMES: {
            std::uint64_t count = 0;
            const KESTATUS st = opened.GetLostFrames(count);
            return st == KESTATUS_SUCCESS
                       ? CopyBinaryProperty(&count, sizeof count, buffer, size, returnedSize)
                       : st;
        }
        default:
            return KESTATUS_NOT_FOUND;
        }
    });
}

KESTATUS QBX_EnableRawRx(QBXDeviceHandle device) {
    return WithDevice(device, [](Device& opened) { return opened.EnableRawRx(); });
}

KESTATUS QBX_DisableRawRx(QBXDeviceHandle device) {
    return WithDevice(device, [](Device& opened) { return opened.DisableRawRx(); });
}

KESTATUS QBX_WaitForRawFrame(QBXDeviceHandle device, int32_t timeoutMs) {
    return WithDevice(device, [&](Device& opened) { return opened.WaitForRawFrame(timeoutMs); });
}

KESTATUS QBX_GetReceivedRawFrame(QBXDeviceHandle device, QBXRawFrameType* type, void* buffer,
                                 uint32_t bufferSize, uint32_t* receivedLength) {
    return WithDevice(device, [&](Device& opened) -> KESTATUS {
        if (!buffer || !receivedLength) {
            return KESTATUS_INVALID_PARAMETER;
        }
        QBXRawFrameType received = QBXRawFrameType_Unknown;
        *receivedLength = 0;
        const KESTATUS st = opened.GetReceivedRawFrame(received, static_cast<std::uint8_t*>(buffer),
                                                       bufferSize, *receivedLength);
        if (type) {
            *type = received;
        }
        return st;
    });
}

KESTATUS QBX_CheckSubmitRawFrame(QBXDeviceHandle device, uint32_t length) {
    return WithDevice(device, [&](Device& opened) { return opened.CheckSubmitRawFrame(length); });
}

KESTATUS QBX_WaitForTxResources(QBXDeviceHandle device, uint32_t count, int32_t timeoutMs) {
    return WithDevice(device, [&](Device& opened) { return opened.WaitForTxResources(count, timeoutMs); });
}

KESTATUS QBX_SubmitRawFrame(QBXDeviceHandle device, const void* frame, uint32_t length, uint32_t* reserved) {
    return WithDevice(device, [&](Device& opened) -> KESTATUS {
        if (!frame || reserved) {
            return KESTATUS_INVALID_PARAMETER;
        }
        return opened.SubmitRawFrame(static_cast<const std::uint8_t*>(frame), length);
    });
}

KESTATUS QBX_SendRawFrames(QBXDeviceHandle device) {
    return WithDevice(device, [](Device& opened) { return opened.SendRawFrames(); });
}

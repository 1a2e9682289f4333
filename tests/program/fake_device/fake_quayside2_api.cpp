// A device library whose answers a test writes into the environment variable FAKE_QBX, loaded in place of
// the real one: comma-separated NAME=VALUE, NAME a function without its QBX_ prefix and VALUE the status
// it answers each time, in hexadecimal. Also: "compatible=0" (version check), "devices=N" (default 2),
// "mac_size=N" (bytes of the MAC address property, default 6), "names=A:B" (friendly names by index,
// default fake-1:fake-2), "NAME@INDEX=VALUE" (an open call for this index only), "NAME_ms=N" (the function
// takes so long), "any_property=1" (every binary property is there, in the size that was asked for),
// "overlaps=1" (calls that overlap on a handle are told on standard error; DisableRawRx may overlap with
// others), "holds=1" (frames leave with SendRawFrames, and those that are left when the device is closed are
// lost), "lost_frames=N" (QBX_PROPERTY_LOST_FRAMES is 1000 at first and N more each time), "state=WORD"
// (QBX_PROPERTY_STATE, which is not there otherwise), "breaks_reading=PATH" (from the first frame on, reading
// this file that the process has open fails). Frames that are sent are appended to the file FAKE_QBX_FRAMES,
// each after its length as 4 bytes in native order.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "quayside2_api.h"

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        if (end != start) {
            parts.push_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return parts;
}

const std::map<std::string, std::string>& Script() {
    static const std::map<std::string, std::string> sScript = [] {
        std::map<std::string, std::string> script;
        const char* text = std::getenv("FAKE_QBX");
        for (const std::string& part : Split(text ? text : "", ',')) {
            const std::size_t equals = part.find('=');
            script[part.substr(0, equals)] = part.substr(equals + 1);
        }
        return script;
    }();
    return sScript;
}

std::string Text(const std::string& name, const std::string& fallback) {
    const auto found = Script().find(name);
    return found != Script().end() ? found->second : fallback;
}

std::uint32_t Number(const std::string& name, std::uint32_t fallback) {
    const std::string text = Text(name, "");
    return text.empty() ? fallback : static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 0));
}

void TakeTime(const char* function) {
    std::this_thread::sleep_for(std::chrono::milliseconds(Number(std::string(function) + "_ms", 0)));
}

// A call on a device handle, for as long as it takes.
class DeviceCall {
public:
    explicit DeviceCall(const char* function) {
        if (sCalls.fetch_add(1) != 0 && Number("overlaps", 0) != 0) {
            std::fprintf(stderr, "QBX_%s overlaps with another call\n", function);
        }
        TakeTime(function);
    }
    ~DeviceCall() { sCalls.fetch_sub(1); }
    DeviceCall(const DeviceCall&) = delete;
    DeviceCall& operator=(const DeviceCall&) = delete;

private:
    static inline std::atomic<int> sCalls{0};
};

std::vector<std::string> sHeldFrames;

void WriteFrame(const std::string& frame) {
    const char* path = std::getenv("FAKE_QBX_FRAMES");
    std::FILE* file = path ? std::fopen(path, "ab") : nullptr;
    if (file) {
        const auto length = static_cast<std::uint32_t>(frame.size());
        std::fwrite(&length, sizeof length, 1, file);
        std::fwrite(frame.data(), 1, frame.size(), file);
        std::fclose(file);
    }
}

// Reading the first page of a process gives EIO: it is never mapped.
void BreakReading(const std::string& path) {
    constexpr int cMaxDescriptor = 100;
    const int unreadable = open("/proc/self/mem", O_RDONLY);
    for (int descriptor = 0; descriptor <= cMaxDescriptor; ++descriptor) {
        char target[4096] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        if (readlink(link.c_str(), target, sizeof target - 1) > 0 && path == target) {
            dup2(unreadable, descriptor);
        }
    }
    close(unreadable);
}

KESTATUS Open(const char* function, std::uint32_t index, QBXDeviceHandle* device) {
    TakeTime(function);
    const KESTATUS st =
        Number(std::string(function) + "@" + std::to_string(index), Number(function, KESTATUS_SUCCESS));
    *device = index + 1;
    return st;
}

} // namespace

extern "C" {

bool QBX_CheckApiVersion(std::uint32_t, std::uint32_t) {
    return Number("compatible", 1) != 0;
}

std::uint32_t QBX_GetApiVersion() {
    return Number("GetApiVersion", 2u << 16 | 20u);
}

KESTATUS QBX_EnumerateDevices(QBXDeviceType, QBXEnumerationHandle* enumeration, std::uint32_t* count) {
    *enumeration = 1;
    *count = Number("devices", 2);
    return Number("EnumerateDevices", KESTATUS_SUCCESS);
}

KESTATUS QBX_CloseEnumeration(QBXEnumerationHandle) {
    return KESTATUS_SUCCESS;
}

KESTATUS QBX_OpenControlDevice(QBXEnumerationHandle, std::uint32_t index, QBXDeviceHandle* device) {
    return Open("OpenControlDevice", index, device);
}

KESTATUS QBX_OpenRawTxDevice(QBXEnumerationHandle, std::uint32_t index, std::uint32_t, QBXRawHeaderType,
                             QBXDeviceHandle* device, std::uint32_t) {
    return Open("OpenRawTxDevice", index, device);
}

KESTATUS QBX_OpenRawRxDevice(QBXEnumerationHandle, std::uint32_t index, std::uint32_t, QBXRawHeaderType,
                             QBXDeviceHandle* device, std::uint32_t) {
    return Open("OpenRawRxDevice", index, device);
}

KESTATUS QBX_CloseDevice(QBXDeviceHandle) {
    const DeviceCall call("CloseDevice");
    return KESTATUS_SUCCESS;
}

KESTATUS QBX_GetDevicePropertyString(QBXDeviceHandle device, std::uint32_t property, char* buffer,
                                     std::uint32_t size) {
    const std::string state = Text("state", "");
    if (property == QBX_PROPERTY_STATE && !state.empty()) {
        std::snprintf(buffer, size, "%s", state.c_str());
        return KESTATUS_SUCCESS;
    }
    if (property != QBX_PROPERTY_FRIENDLY_NAME) {
        return KESTATUS_NOT_FOUND;
    }
    const std::vector<std::string> names = Split(Text("names", "fake-1:fake-2"), ':');
    std::snprintf(buffer, size, "%s", device <= names.size() ? names[device - 1].c_str() : "");
    return Number("GetDevicePropertyString@" + std::to_string(device - 1),
                  Number("GetDevicePropertyString", KESTATUS_SUCCESS));
}

KESTATUS QBX_GetDevicePropertyBinary(QBXDeviceHandle, std::uint32_t property, void* buffer,
                                     std::uint32_t size, std::uint32_t* returnedSize) {
    const DeviceCall call("GetDevicePropertyBinary");
    const std::uint32_t lostFrames = Number("lost_frames", 0);
    if (property == QBX_PROPERTY_LOST_FRAMES && lostFrames != 0) {
        static std::uint64_t sLost = 1000;
        std::memcpy(buffer, &sLost, std::min<std::size_t>(size, sizeof sLost));
        *returnedSize = sizeof sLost;
        sLost += lostFrames;
        return KESTATUS_SUCCESS;
    }
    static const std::uint8_t sMac[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    if (Number("any_property", 0) != 0) {
        std::memset(buffer, 2, size);
        *returnedSize = size;
        return KESTATUS_SUCCESS;
    }
    std::memcpy(buffer, sMac, std::min<std::size_t>(size, sizeof sMac));
    *returnedSize = Number("mac_size", sizeof sMac);
    return Number("GetDevicePropertyBinary", KESTATUS_SUCCESS);
}

KESTATUS QBX_EnableRawRx(QBXDeviceHandle) {
    return Number("EnableRawRx", KESTATUS_SUCCESS);
}

KESTATUS QBX_DisableRawRx(QBXDeviceHandle) {
    return Number("DisableRawRx", KESTATUS_SUCCESS);
}

KESTATUS QBX_WaitForRawFrame(QBXDeviceHandle, std::int32_t) {
    const DeviceCall call("WaitForRawFrame");
    return Number("WaitForRawFrame", KESTATUS_TIMEOUT);
}

KESTATUS QBX_GetReceivedRawFrame(QBXDeviceHandle, QBXRawFrameType*, void*, std::uint32_t, std::uint32_t*) {
    const DeviceCall call("GetReceivedRawFrame");
    return Number("GetReceivedRawFrame", KESTATUS_NO_DATA);
}

KESTATUS QBX_CheckSubmitRawFrame(QBXDeviceHandle, std::uint32_t) {
    const DeviceCall call("CheckSubmitRawFrame");
    return Number("CheckSubmitRawFrame", KESTATUS_SUCCESS);
}

KESTATUS QBX_WaitForTxResources(QBXDeviceHandle, std::uint32_t, std::int32_t) {
    const DeviceCall call("WaitForTxResources");
    return Number("WaitForTxResources", KESTATUS_SUCCESS);
}

KESTATUS QBX_SubmitRawFrame(QBXDeviceHandle, const void* frame, std::uint32_t length, std::uint32_t*) {
    const DeviceCall call("SubmitRawFrame");
    const std::string brokenFile = Text("breaks_reading", "");
    if (!brokenFile.empty()) {
        BreakReading(brokenFile);
    }
    const KESTATUS st = Number("SubmitRawFrame", KESTATUS_SUCCESS);
    if (st == KESTATUS_SUCCESS) {
        const std::string bytes(static_cast<const char*>(frame), length);
        if (Number("holds", 0) != 0) {
            sHeldFrames.push_back(bytes);
        } else {
            WriteFrame(bytes);
        }
    }
    return st;
}

KESTATUS QBX_SendRawFrames(QBXDeviceHandle) {
    const DeviceCall call("SendRawFrames");
    for (const std::string& frame : sHeldFrames) {
        WriteFrame(frame);
    }
    sHeldFrames.clear();
    return Number("SendRawFrames", KESTATUS_SUCCESS);
}

} // extern "C"

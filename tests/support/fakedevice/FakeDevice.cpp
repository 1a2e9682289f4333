#include "FakeDevice.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace testsupport {

namespace {

constexpr const char* cNames[] = {
    "CheckApiVersion",         "GetApiVersion",           "EnumerateDevices",    "CloseEnumeration",
    "OpenControlDevice",       "OpenRawTxDevice",         "OpenRawRxDevice",     "CloseDevice",
    "GetDevicePropertyString", "GetDevicePropertyBinary", "EnableRawRx",         "DisableRawRx",
    "WaitForRawFrame",         "GetReceivedRawFrame",     "CheckSubmitRawFrame", "WaitForTxResources",
    "SubmitRawFrame",          "SendRawFrames",
};
static_assert(std::size(cNames) == static_cast<std::size_t>(Qbx::Count));

std::size_t Index(Qbx function) {
    return static_cast<std::size_t>(function);
}

} // namespace

const char* QbxName(Qbx function) noexcept {
    return cNames[Index(function)];
}

FakeDevice& FakeDevice::Instance() {
    static FakeDevice sInstance;
    return sInstance;
}

void FakeDevice::Reset() {
    const std::lock_guard lock(mMutex);
    mInstances.assign(1, FakeInstance{});
    for (std::deque<KESTATUS>& queued : mQueued) {
        queued.clear();
    }
    mDefaults.fill(KESTATUS_SUCCESS);
    mCallCounts.fill(0);
    mApiVersion = 2u << 16 | 20u;
    mIsCompatible = true;
    mIsRecording = true;
    mIsReservedUsed = false;
    mIsFrameTypeAsked = false;
    mExcessLength = 0;
    mCalls.clear();
    mSubmitted.clear();
    mSubmittedCount = 0;
    mOnSend = nullptr;
    mSentCount = 0;
    mLostFrames.reset();
    mReceived.clear();
    mNextEnumeration = cFirstEnumeration;
    mNextDevice = cFirstDevice;
    mEnumerations.clear();
    mDevices.clear();
    mRxChanged.notify_all();
}

// --- the script and what happened ----------------------------------------------------------------

void FakeDevice::SetInstances(std::vector<FakeInstance> instances) {
    const std::lock_guard lock(mMutex);
    mInstances = std::move(instances);
}

void FakeDevice::Queue(Qbx function, const std::vector<KESTATUS>& statuses) {
    const std::lock_guard lock(mMutex);
    std::deque<KESTATUS>& queued = mQueued[Index(function)];
    queued.insert(queued.end(), statuses.begin(), statuses.end());
}

void FakeDevice::SetDefault(Qbx function, KESTATUS status) {
    const std::lock_guard lock(mMutex);
    mDefaults[Index(function)] = status;
}

void FakeDevice::SetApiVersion(std::uint32_t version, bool isCompatible) {
    const std::lock_guard lock(mMutex);
    mApiVersion = version;
    mIsCompatible = isCompatible;
}

void FakeDevice::QueueReceivedFrame(FakeFrame frame, QBXRawFrameType type) {
    const std::lock_guard lock(mMutex);
    mReceived.push_back({std::move(frame), type});
    mRxChanged.notify_all();
}

void FakeDevice::SetLostFrames(std::uint64_t lost, std::uint32_t size) {
    const std::lock_guard lock(mMutex);
    mLostFrames = lost;
    mLostFramesSize = size;
}

void FakeDevice::SetExcessLength(std::uint32_t bytes) {
    const std::lock_guard lock(mMutex);
    mExcessLength = bytes;
}

void FakeDevice::SetRecording(bool isRecording) {
    const std::lock_guard lock(mMutex);
    mIsRecording = isRecording;
}

std::vector<std::string> FakeDevice::Calls() const {
    const std::lock_guard lock(mMutex);
    return mCalls;
}

void FakeDevice::ClearCalls() {
    const std::lock_guard lock(mMutex);
    mCalls.clear();
}

std::size_t FakeDevice::CallCount(Qbx function) const {
    const std::lock_guard lock(mMutex);
    return mCallCounts[Index(function)];
}

std::vector<FakeFrame> FakeDevice::SubmittedFrames() const {
    const std::lock_guard lock(mMutex);
    return mSubmitted;
}

std::size_t FakeDevice::SentFrameCount() const {
    const std::lock_guard lock(mMutex);
    return mSentCount;
}

bool FakeDevice::IsReservedUsed() const {
    const std::lock_guard lock(mMutex);
    return mIsReservedUsed;
}

bool FakeDevice::IsFrameTypeAsked() const {
    const std::lock_guard lock(mMutex);
    return mIsFrameTypeAsked;
}

std::size_t FakeDevice::OpenDeviceCount() const {
    const std::lock_guard lock(mMutex);
    return mDevices.size();
}

std::size_t FakeDevice::OpenEnumerationCount() const {
    const std::lock_guard lock(mMutex);
    return mEnumerations.size();
}

void FakeDevice::Record(Qbx function, std::initializer_list<std::int64_t> arguments) {
    ++mCallCounts[Index(function)];
    if (!mIsRecording) {
        return;
    }
    std::string call = std::string(QbxName(function)) + "(";
    const char* separator = "";
    for (const std::int64_t argument : arguments) {
        call += separator + std::to_string(argument);
        separator = ", ";
    }
    mCalls.push_back(call + ")");
}

std::optional<KESTATUS> FakeDevice::ScriptedStatus(Qbx function) {
    KESTATUS status = mDefaults[Index(function)];
    std::deque<KESTATUS>& queued = mQueued[Index(function)];
    if (!queued.empty()) {
        status = queued.front();
        queued.pop_front();
    }
    return status == KESTATUS_SUCCESS ? std::nullopt : std::optional(status);
}

FakeDevice::OpenDevice* FakeDevice::Find(QBXDeviceHandle device) {
    const auto found = mDevices.find(device);
    return found == mDevices.end() ? nullptr : &found->second;
}

// --- the functions -------------------------------------------------------------------------------

bool FakeDevice::CheckApiVersion(std::uint32_t major, std::uint32_t minor) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::CheckApiVersion, {major, minor});
    return mIsCompatible;
}

std::uint32_t FakeDevice::GetApiVersion() {
    const std::lock_guard lock(mMutex);
    Record(Qbx::GetApiVersion, {});
    return mApiVersion;
}

KESTATUS FakeDevice::EnumerateDevices(QBXDeviceType type, QBXEnumerationHandle* enumeration,
                                      std::uint32_t* count) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::EnumerateDevices, {type});
    *enumeration = cNoHandle;
    *count = cNoHandle;
    if (const auto status = ScriptedStatus(Qbx::EnumerateDevices)) {
        return *status;
    }
    *enumeration = mNextEnumeration++;
    *count = static_cast<std::uint32_t>(mInstances.size());
    mEnumerations[*enumeration] = true;
    return KESTATUS_SUCCESS;
}

KESTATUS FakeDevice::CloseEnumeration(QBXEnumerationHandle enumeration) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::CloseEnumeration, {enumeration});
    const bool wasOpen = mEnumerations.erase(enumeration) != 0;
    if (const auto status = ScriptedStatus(Qbx::CloseEnumeration)) {
        return *status;
    }
    return wasOpen ? KESTATUS_SUCCESS : KESTATUS_INVALID_HANDLE;
}

KESTATUS FakeDevice::Open(Qbx function, QBXEnumerationHandle enumeration, std::uint32_t index,
                          std::uint32_t reserved1, QBXRawHeaderType headerType, QBXDeviceHandle* device,
                          std::uint32_t reserved2) {
    const std::lock_guard lock(mMutex);
    if (function == Qbx::OpenControlDevice) {
        Record(function, {enumeration, index});
    } else {
        Record(function, {enumeration, index, reserved1, headerType, reserved2});
    }
    *device = cNoHandle;
    if (const auto status = ScriptedStatus(function)) {
        return *status;
    }
    if (!mEnumerations.contains(enumeration)) {
        return KESTATUS_INVALID_HANDLE;
    }
    if (index >= mInstances.size()) {
        return KESTATUS_INVALID_INDEX;
    }
    if (mInstances[index].openStatus != KESTATUS_SUCCESS) {
        return mInstances[index].openStatus;
    }
    *device = mNextDevice++;
    mDevices[*device] = {index, false};
    return KESTATUS_SUCCESS;
}

KESTATUS FakeDevice::CloseDevice(QBXDeviceHandle device) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::CloseDevice, {device});
    const bool wasOpen = mDevices.erase(device) != 0;
    mRxChanged.notify_all();
    if (const auto status = ScriptedStatus(Qbx::CloseDevice)) {
        return *status;
    }
    return wasOpen ? KESTATUS_SUCCESS : KESTATUS_INVALID_HANDLE;
}

KESTATUS FakeDevice::GetDevicePropertyString(QBXDeviceHandle device, std::uint32_t property, char* buffer,
                                             std::uint32_t size) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::GetDevicePropertyString, {device, property, size});
    if (const auto status = ScriptedStatus(Qbx::GetDevicePropertyString)) {
        return *status;
    }
    const OpenDevice* found = Find(device);
    if (!found) {
        return KESTATUS_INVALID_HANDLE;
    }
    const FakeInstance& instance = InstanceOf(*found);
    std::map<std::uint32_t, std::string> texts = instance.otherTexts;
    texts[QBX_PROPERTY_FRIENDLY_NAME] = instance.friendlyName;
    texts[QBX_PROPERTY_PRODUCT_STRING] = instance.product;
    if (texts.count(property) == 0) {
        return KESTATUS_NOT_FOUND;
    }
    const std::string& text = texts[property];
    std::snprintf(buffer, size, "%s", text.c_str());
    return text.size() < size ? KESTATUS_SUCCESS : KESTATUS_BUFFER_TOO_SMALL;
}

KESTATUS FakeDevice::GetDevicePropertyBinary(QBXDeviceHandle device, std::uint32_t property, void* buffer,
                                             std::uint32_t size, std::uint32_t* returnedSize) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::GetDevicePropertyBinary, {device, property, size});
    if (const auto status = ScriptedStatus(Qbx::GetDevicePropertyBinary)) {
        return *status;
    }
    const OpenDevice* found = Find(device);
    if (!found) {
        return KESTATUS_INVALID_HANDLE;
    }
    const auto answer = [&](const void* value, std::size_t valueSize) {
        std::copy_n(static_cast<const std::uint8_t*>(value), std::min<std::size_t>(size, valueSize),
                    static_cast<std::uint8_t*>(buffer));
        if (returnedSize) {
            *returnedSize = static_cast<std::uint32_t>(valueSize);
        }
        return KESTATUS_SUCCESS;
    };
    if (property == QBX_PROPERTY_MAC_ADDRESS) {
        const std::vector<std::uint8_t>& address = InstanceOf(*found).macAddress;
        return answer(address.data(), address.size());
    }
    if (property == QBX_PROPERTY_LOST_FRAMES && mLostFrames) {
        return answer(&*mLostFrames, mLostFramesSize);
    }
    return KESTATUS_NOT_FOUND;
}

KESTATUS FakeDevice::SetRxEnabled(Qbx function, QBXDeviceHandle device, bool isEnabled) {
    const std::lock_guard lock(mMutex);
    Record(function, {device});
    if (const auto status = ScriptedStatus(function)) {
        return *status;
    }
    OpenDevice* found = Find(device);
    if (!found) {
        return KESTATUS_INVALID_HANDLE;
    }
    found->isRxEnabled = isEnabled;
    if (!isEnabled) {
        mReceived.clear();
    }
    mRxChanged.notify_all();
    return KESTATUS_SUCCESS;
}

KESTATUS FakeDevice::WaitForRawFrame(QBXDeviceHandle device, std::int32_t timeoutMs) {
    std::unique_lock lock(mMutex);
    Record(Qbx::WaitForRawFrame, {device, timeoutMs});
    if (const auto status = ScriptedStatus(Qbx::WaitForRawFrame)) {
        return *status;
    }
    KESTATUS status = KESTATUS_TIMEOUT;
    const auto isAnswered = [&] {
        const OpenDevice* found = Find(device);
        if (!found) {
            status = KESTATUS_INVALID_HANDLE;
        } else if (!found->isRxEnabled) {
            status = KESTATUS_NOT_ENABLED;
        } else if (!mReceived.empty()) {
            status = KESTATUS_SUCCESS;
        } else {
            return false;
        }
        return true;
    };
    if (timeoutMs < 0) {
        mRxChanged.wait(lock, isAnswered);
    } else {
        mRxChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), isAnswered);
    }
    return status;
}

KESTATUS FakeDevice::GetReceivedRawFrame(QBXDeviceHandle device, QBXRawFrameType* type, void* buffer,
                                         std::uint32_t bufferSize, std::uint32_t* receivedLength) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::GetReceivedRawFrame, {device, bufferSize});
    if (const auto status = ScriptedStatus(Qbx::GetReceivedRawFrame)) {
        return *status;
    }
    mIsFrameTypeAsked = mIsFrameTypeAsked || type;
    const OpenDevice* found = Find(device);
    if (!found) {
        return KESTATUS_INVALID_HANDLE;
    }
    if (!found->isRxEnabled) {
        return KESTATUS_NOT_ENABLED;
    }
    if (mReceived.empty()) {
        return KESTATUS_NO_DATA;
    }
    const ReceivedFrame frame = std::move(mReceived.front());
    mReceived.pop_front();
    if (frame.bytes.size() > bufferSize) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    std::copy(frame.bytes.begin(), frame.bytes.end(), static_cast<std::uint8_t*>(buffer));
    *receivedLength = static_cast<std::uint32_t>(frame.bytes.size()) + mExcessLength;
    if (type) {
        *type = frame.type;
    }
    return KESTATUS_SUCCESS;
}

KESTATUS FakeDevice::Answer(Qbx function, QBXDeviceHandle device,
                            std::initializer_list<std::int64_t> arguments) {
    const std::lock_guard lock(mMutex);
    Record(function, arguments);
    if (const auto status = ScriptedStatus(function)) {
        return *status;
    }
    return Find(device) ? KESTATUS_SUCCESS : KESTATUS_INVALID_HANDLE;
}

KESTATUS FakeDevice::SubmitRawFrame(QBXDeviceHandle device, const void* frame, std::uint32_t length,
                                    const std::uint32_t* reserved) {
    const std::lock_guard lock(mMutex);
    Record(Qbx::SubmitRawFrame, {device, length});
    mIsReservedUsed = mIsReservedUsed || reserved;
    if (const auto status = ScriptedStatus(Qbx::SubmitRawFrame)) {
        return *status;
    }
    if (!Find(device)) {
        return KESTATUS_INVALID_HANDLE;
    }
    ++mSubmittedCount;
    if (mIsRecording) {
        const auto* bytes = static_cast<const std::uint8_t*>(frame);
        mSubmitted.emplace_back(bytes, bytes + length);
    }
    return KESTATUS_SUCCESS;
}

void FakeDevice::SetOnSend(std::function<void(std::size_t)> onSend) {
    const std::lock_guard lock(mMutex);
    mOnSend = std::move(onSend);
}

KESTATUS FakeDevice::SendRawFrames(QBXDeviceHandle device) {
    std::unique_lock lock(mMutex);
    Record(Qbx::SendRawFrames, {device});
    if (const auto status = ScriptedStatus(Qbx::SendRawFrames)) {
        return *status;
    }
    if (!Find(device)) {
        return KESTATUS_INVALID_HANDLE;
    }
    mSentCount = mSubmittedCount;
    const std::size_t sentCount = mSentCount;
    const std::function<void(std::size_t)> onSend = mOnSend;
    lock.unlock();
    if (onSend) {
        onSend(sentCount);
    }
    return KESTATUS_SUCCESS;
}

} // namespace testsupport

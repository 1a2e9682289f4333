// A scripted stand-in for the device library, linked in its place: it answers the 18 QBX_ functions with the
// statuses that a test queued, and records the calls. What is not scripted works: devices open and close,
// frames are submitted, sent and received.
//
// One for the whole process; a test begins with Reset(). From any thread.
#ifndef FLOWLANE_TESTS_FAKEDEVICE_H
#define FLOWLANE_TESTS_FAKEDEVICE_H

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "quayside2_api.h"

namespace testsupport {

// The functions without their prefix.
enum class Qbx {
    CheckApiVersion,
    GetApiVersion,
    EnumerateDevices,
    CloseEnumeration,
    OpenControlDevice,
    OpenRawTxDevice,
    OpenRawRxDevice,
    CloseDevice,
    GetDevicePropertyString,
    GetDevicePropertyBinary,
    EnableRawRx,
    DisableRawRx,
    WaitForRawFrame,
    GetReceivedRawFrame,
    CheckSubmitRawFrame,
    WaitForTxResources,
    SubmitRawFrame,
    SendRawFrames,
    Count
};
const char* QbxName(Qbx function) noexcept;

using FakeFrame = std::vector<std::uint8_t>;

// One device that the fake offers.
struct FakeInstance {
    std::string friendlyName = "fake-1";
    std::string product = "Scripted fake device";
    std::vector<std::uint8_t> macAddress = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}; // of whatever length
    KESTATUS openStatus = KESTATUS_SUCCESS;          // of every way to open it, when nothing is queued
    std::map<std::uint32_t, std::string> otherTexts; // text properties besides name and product
};

class FakeDevice {
public:
    // Enumeration handles count from 1, device handles from 101 after a Reset.
    static constexpr std::uint32_t cFirstEnumeration = 1;
    static constexpr std::uint32_t cFirstDevice = 101;
    // What a failing call leaves in its results, as other libraries may do.
    static constexpr std::uint32_t cNoHandle = 999;

    static FakeDevice& Instance();

    // One instance, nothing scripted, nothing recorded, all handles closed.
    void Reset();

    // --- the script --------------------------------------------------------------------------------

    void SetInstances(std::vector<FakeInstance> instances);
    // The next calls of the function answer these statuses, one each, and do nothing unless it is success.
    void Queue(Qbx function, const std::vector<KESTATUS>& statuses);
    // What it answers when nothing is queued; KESTATUS_SUCCESS to let it work.
    void SetDefault(Qbx function, KESTATUS status);
    // What QBX_GetApiVersion answers, and what QBX_CheckApiVersion does when it is told.
    void SetApiVersion(std::uint32_t version, bool isCompatible = true);
    // For the next receive: the bytes as the caller gets them, receive header included.
    void QueueReceivedFrame(FakeFrame frame, QBXRawFrameType type = QBXRawFrameType_Data);

    // Received lengths are told as so many bytes more than they are.
    void SetExcessLength(std::uint32_t bytes);
    // What QBX_PROPERTY_LOST_FRAMES answers from now on, of size bytes; until then KESTATUS_NOT_FOUND.
    void SetLostFrames(std::uint64_t lost, std::uint32_t size = sizeof(std::uint64_t));

    // Called by each SendRawFrames that works, with the number of frames sent so far. Not with a mutex held.
    void SetOnSend(std::function<void(std::size_t)> onSend);

    // Without recording calls and frames are only counted, which allocates nothing.
    void SetRecording(bool isRecording);

    // --- what happened -----------------------------------------------------------------------------

    // The calls in order, as "CheckSubmitRawFrame(101, 1390)": the input arguments in decimal, texts and
    // buffers left out.
    std::vector<std::string> Calls() const;
    void ClearCalls();
    std::size_t CallCount(Qbx function) const;
    // Frames that were submitted with success, and those of them that SendRawFrames has sent.
    std::vector<FakeFrame> SubmittedFrames() const;
    std::size_t SentFrameCount() const;
    // True when a SubmitRawFrame passed something else than null as its last argument.
    bool IsReservedUsed() const;
    // True when a GetReceivedRawFrame asked for the frame's type.
    bool IsFrameTypeAsked() const;
    std::size_t OpenDeviceCount() const;
    std::size_t OpenEnumerationCount() const;

    // --- the functions -----------------------------------------------------------------------------

    bool CheckApiVersion(std::uint32_t major, std::uint32_t minor);
    std::uint32_t GetApiVersion();
    KESTATUS EnumerateDevices(QBXDeviceType type, QBXEnumerationHandle* enumeration, std::uint32_t* count);
    KESTATUS CloseEnumeration(QBXEnumerationHandle enumeration);
    // A control device has only the first two arguments.
    KESTATUS Open(Qbx function, QBXEnumerationHandle enumeration, std::uint32_t index,
                  std::uint32_t reserved1, QBXRawHeaderType headerType, QBXDeviceHandle* device,
                  std::uint32_t reserved2);
    KESTATUS CloseDevice(QBXDeviceHandle device);
    KESTATUS GetDevicePropertyString(QBXDeviceHandle device, std::uint32_t property, char* buffer,
                                     std::uint32_t size);
    KESTATUS GetDevicePropertyBinary(QBXDeviceHandle device, std::uint32_t property, void* buffer,
                                     std::uint32_t size, std::uint32_t* returnedSize);
    KESTATUS SetRxEnabled(Qbx function, QBXDeviceHandle device, bool isEnabled);
    KESTATUS WaitForRawFrame(QBXDeviceHandle device, std::int32_t timeoutMs);
    KESTATUS GetReceivedRawFrame(QBXDeviceHandle device, QBXRawFrameType* type, void* buffer,
                                 std::uint32_t bufferSize, std::uint32_t* receivedLength);
    // CheckSubmitRawFrame and WaitForTxResources, which do nothing beyond their status.
    KESTATUS Answer(Qbx function, QBXDeviceHandle device, std::initializer_list<std::int64_t> arguments);
    KESTATUS SubmitRawFrame(QBXDeviceHandle device, const void* frame, std::uint32_t length,
                            const std::uint32_t* reserved);
    KESTATUS SendRawFrames(QBXDeviceHandle device);

private:
    struct OpenDevice {
        std::size_t instance;
        bool isRxEnabled;
    };
    struct ReceivedFrame {
        FakeFrame bytes;
        QBXRawFrameType type;
    };

    // Everything below with the mutex held.
    void Record(Qbx function, std::initializer_list<std::int64_t> arguments);
    std::optional<KESTATUS> ScriptedStatus(Qbx function); // of a failure, none when the function is to work
    OpenDevice* Find(QBXDeviceHandle device);
    const FakeInstance& InstanceOf(const OpenDevice& device) const { return mInstances[device.instance]; }

    mutable std::mutex mMutex;
    std::condition_variable mRxChanged;
    std::vector<FakeInstance> mInstances{FakeInstance{}};
    std::array<std::deque<KESTATUS>, static_cast<std::size_t>(Qbx::Count)> mQueued;
    std::array<KESTATUS, static_cast<std::size_t>(Qbx::Count)> mDefaults{};
    std::array<std::size_t, static_cast<std::size_t>(Qbx::Count)> mCallCounts{};
    std::uint32_t mApiVersion = 2u << 16 | 20u;
    bool mIsCompatible = true;
    bool mIsRecording = true;
    bool mIsReservedUsed = false;
    bool mIsFrameTypeAsked = false;
    std::vector<std::string> mCalls;
    std::vector<FakeFrame> mSubmitted;
    std::size_t mSubmittedCount = 0;
    std::size_t mSentCount = 0;
    std::function<void(std::size_t)> mOnSend;
    std::optional<std::uint64_t> mLostFrames;
    std::uint32_t mLostFramesSize = 0; // bytes
    std::deque<ReceivedFrame> mReceived;
    std::uint32_t mExcessLength = 0; // bytes
    std::uint32_t mNextEnumeration = cFirstEnumeration;
    std::uint32_t mNextDevice = cFirstDevice;
    std::map<QBXEnumerationHandle, bool> mEnumerations;
    std::map<QBXDeviceHandle, OpenDevice> mDevices;
};

} // namespace testsupport

#endif

#include "capture/PcapNgFileWriter.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <mutex>
#include <utility>

#include "base/KEByteOrder.h"
#include "base/LogCons.h"
#include "device/RawReceiveHeader.h"
#include "files/KEStdFileStream.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint64_t cNanosecondsPerSecond = 1'000'000'000;
constexpr unsigned cMacAddressSize = 6;
constexpr KETimeoutInterval cWithoutLimit = -1;

// The frame that stands for an external trigger: an Ethernet header with an IEEE 802.3 length field, then the
// magic number, both big-endian, and the event data as they came.
constexpr std::size_t cTriggerSourceOffset = 6;
constexpr std::size_t cTriggerLengthOffset = 12;
constexpr std::size_t cTriggerMagicOffset = 14;
constexpr std::size_t cTriggerEventOffset = 18;
constexpr std::size_t cTriggerFrameSize = 28;
constexpr std::uint16_t cTriggerPayloadSize = 14;

template <typename... Args>
void Log(KELogLevel level, const char* format, const Args&... args) {
    KEOutputLogMessage(logger::Global, level, format, args...);
}

} // namespace

PcapNgFileWriter::PcapNgFileWriter() noexcept : mPendingFrames(&RawFrame::mListEntry) {}

PcapNgFileWriter::~PcapNgFileWriter() {
    StopFileWriter();
}

// --- Start and stop ------------------------------------------------------------------------------

KESTATUS PcapNgFileWriter::StartFileWriter(const T_UNICHAR* fileName, QuaysideDevice& device,
                                           unsigned frameCount, unsigned frameSize,
                                           std::uint64_t maxFileSize) {
    if (mIsStarted) {
        Log(KEERROR, "already started");
        return KESTATUS_ALREADY_DONE;
    }
    KESTATUS st = KESTATUS_NO_MEMORY;
    try {
        mSectionHeaderBlock.InitSectionHeaderBlock();
        st = InitInterfaceDescription(device);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        mFramesDropped = 0;
        mFramesDroppedUnrecorded = 0;
        mSequenceNumber = 0;
        mSequenceNumberValid = false;
        ResetStatistics();
        PreparePacketBlock();
        mFileBaseName = fileName;
        mMaxFileSize = maxFileSize;
        mFileNumber = 0;
        st = OpenFirstFileAndStart(frameCount, frameSize);
    } catch (const std::bad_alloc&) {
        KEOutputFailure(logger::Global, "StartFileWriter failed, st={}", st);
    }
    if (st != KESTATUS_SUCCESS) {
        mFile.CloseFile(); // it holds no packets
        mFramePool.FreeFramePool();
        return st;
    }
    mIsStarted = true;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileWriter::InitInterfaceDescription(QuaysideDevice& device) {
    mIfDescriptionBlock.InitInterfaceDescBlock(pcapng::cLinkTypeEthernet, 0);
    AddStringOption(device, QBX_PROPERTY_FRIENDLY_NAME, pcapng::cOptionInterfaceName,
                    "GetDevicePropertyString(friendly name) failed, st={}",
                    "CreateStringOption(device name) failed, st={}");
    AddStringOption(device, QBX_PROPERTY_PRODUCT_STRING, pcapng::cOptionInterfaceDescription,
                    "GetDevicePropertyString(product string) failed, st={}",
                    "CreateStringOption(description) failed, st={}");
    AddMacAddressOption(device);
    PcapNgOption resolution;
    const KESTATUS st = resolution.CreateNumericOption<std::uint8_t>(pcapng::cOptionTimestampResolution,
                                                                     pcapng::cResolutionNanoseconds);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "CreateNumericOption(timestamp) failed, st={}", st);
    }
    mIfDescriptionBlock.AddOption(std::move(resolution));
    return KESTATUS_SUCCESS;
}

// A property that is missing leaves its option out.
void PcapNgFileWriter::AddStringOption(QuaysideDevice& device, unsigned property, std::uint16_t code,
                                       const char* propertyFailed, const char* optionFailed) {
    char text[QBX_PROPERTY_STRING_SIZE] = {};
    KESTATUS st = device.GetDevicePropertyString(property, text, sizeof text);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, propertyFailed, st);
        return;
    }
    text[sizeof text - 1] = '\0';
    PcapNgOption option;
    st = option.CreateStringOption(code, text);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, optionFailed, st);
        return;
    }
    mIfDescriptionBlock.AddOption(std::move(option));
}

void PcapNgFileWriter::AddMacAddressOption(QuaysideDevice& device) {
    unsigned char address[cMacAddressSize] = {};
    unsigned size = 0;
    KESTATUS st = device.GetDevicePropertyBinary(QBX_PROPERTY_MAC_ADDRESS, address, sizeof address, &size);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "GetDevicePropertyBinary(MAC address) failed, st={}", st);
        return;
    }
    if (size != cMacAddressSize) {
        Log(KEERROR, "MAC address size mismatch, got {}, exp. {}", size, cMacAddressSize);
        return;
    }
    PcapNgOption option;
    st = option.CreateOption(pcapng::cOptionMacAddress, {address, sizeof address});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "CreateOption(MAC address) failed, st={}", st);
        return;
    }
    mIfDescriptionBlock.AddOption(std::move(option));
}

KESTATUS PcapNgFileWriter::OpenFirstFileAndStart(unsigned frameCount, unsigned frameSize) {
    KESTATUS st = OpenFile(CreateNextFileName());
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "OpenForWrite failed, st={}", st);
    }
    try {
        st = mFramePool.AllocateFramePool(frameCount, frameSize);
    } catch (const std::bad_alloc&) {
        st = KESTATUS_NO_MEMORY;
    }
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "AllocateFramePool failed, st={}", st);
    }
    st = mPendingFrames.InitQueue();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "InitQueue failed, st={}", st);
    }
    st = mThread.CreateThread(this);
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "CreateThread failed, st={}", st);
}

void PcapNgFileWriter::StopFileWriter() {
    if (!mIsStarted) {
        return;
    }
    mIsStarted = false;
    mThread.RequestTermination();
    mPendingFrames.DisableWait();
    mPendingFrames.QueueEvent();
    mThread.WaitForTerminationAndDestroy(cWithoutLimit);
    // Frames that a thread which ended early has left.
    while (RawFrame* const frame = mPendingFrames.GetItem()) {
        mStats.Add(&Statistics::errWriteFileFailed);
        mFramePool.PutRawFrame(frame);
    }
    CloseFile();
    mFramePool.FreeFramePool();
}

// Packets that were taken for written turn out to be lost when the disk has no room for the last of them.
void PcapNgFileWriter::CloseFile() {
    mFile.CloseFile();
    const std::uint64_t lost = mFile.BlocksLost();
    mStats.Subtract(&Statistics::infFramesWritten, lost);
    mStats.Add(&Statistics::errWriteFileFailed, lost);
    mFramesDroppedUnrecorded += lost;
}

std::string PcapNgFileWriter::CreateNextFileName() {
    std::string name = mFileBaseName;
    if (mMaxFileSize != 0) {
        ++mFileNumber;
        name += KEStdStringFormat("_{:05}", mFileNumber);
    }
    return name + ".pcapng";
}

KESTATUS PcapNgFileWriter::OpenNextFile() {
    CloseFile();
    const std::string path = CreateNextFileName();
    const KESTATUS st = OpenFile(path);
    if (st != KESTATUS_SUCCESS) {
        Log(KEERROR, "OpenForWrite(file='{}') failed, st={}", path, KEFormatArgKEStatus(st));
    }
    return st;
}

// A file that did not get its headers is removed: nothing can read it, and the replay of a set would fail
// there.
KESTATUS PcapNgFileWriter::OpenFile(const std::string& path) {
    const KESTATUS st = mFile.OpenForWrite(path.c_str(), mSectionHeaderBlock, mIfDescriptionBlock);
    if (st != KESTATUS_SUCCESS && mFile.IsOpen()) {
        mFile.CloseFile();
        KEStdFileRemove(path.c_str());
    }
    return st;
}

// Makes room for the option of a packet behind a gap, so that none is needed when there is a gap.
void PcapNgFileWriter::PreparePacketBlock() {
    mPacketBlock.RemoveAllOptions();
    static_cast<void>(mDropCount.CreateNumericOption<std::uint64_t>(pcapng::cOptionDropCount, 0));
    mPacketBlock.AddOption(std::move(mDropCount));
    mDropCount = mPacketBlock.TakeLastOption();
}

// --- The receive loop's side ---------------------------------------------------------------------

RawFrame* PcapNgFileWriter::GetRawFrame() noexcept {
    const std::lock_guard lock(mMutex);
    return mFramePool.GetRawFrame();
}

void PcapNgFileWriter::ReleaseRawFrame(RawFrame* frame) noexcept {
    const std::lock_guard lock(mMutex);
    mFramePool.PutRawFrame(frame);
}

void PcapNgFileWriter::PoolUnderflowOccurred() noexcept {
    ++mFramesDropped;
    mStats.Add(&Statistics::errPoolUnderflow);
}

bool PcapNgFileWriter::CheckRawFrame(QBXRawFrameType type, KEConstBufferReference frame) {
    if (frame.mLength < rawheader::cSize) {
        Log(KEWARN, "invalid frame size {}", frame.mLength);
        ++mFramesDropped;
        mStats.Add(&Statistics::errInvalidFrameSize);
        return false;
    }
    const auto sequenceNumber = KELoadNative<std::uint32_t>(frame.mData + rawheader::cSequenceNumberOffset);
    if (!mSequenceNumberValid) {
        mSequenceNumberValid = true;
    } else if (sequenceNumber != mSequenceNumber) {
        Log(KEWARN, "sequence number mismatch, got {}, exp. {}", sequenceNumber, mSequenceNumber);
        const std::uint32_t gap = sequenceNumber - mSequenceNumber;
        mFramesDropped += gap;
        mStats.Add(&Statistics::errMissingFrames, gap);
    }
    mSequenceNumber = sequenceNumber + 1;
    if (type == QBXRawFrameType_Data || type == QBXRawFrameType_ExternalTrigger) {
        return true;
    }
    mStats.Add(&Statistics::infIgnoredFrames);
    return false;
}

KESTATUS PcapNgFileWriter::WriteRawFrame(RawFrame* frame) {
    const std::lock_guard lock(mMutex);
    const KESTATUS threadStatus = ThreadStatus();
    if (threadStatus != KESTATUS_SUCCESS) {
        Log(KEERROR, "internal thread terminates with status {}", KEFormatArgKEStatus(threadStatus));
        mFramePool.PutRawFrame(frame);
        return KESTATUS_NOT_POSSIBLE;
    }
    frame->mFramesDropped = std::exchange(mFramesDropped, 0);
    return mPendingFrames.PutItem(*frame);
}

KESTATUS PcapNgFileWriter::ThreadStatus() const noexcept {
    return mThread.HasEnded() ? mThread.StatusCode() : KESTATUS_SUCCESS;
}

// --- The writer thread ---------------------------------------------------------------------------

void PcapNgFileWriter::ThreadRoutine() {
    mThread.SetState(KEOsWorkerThreadState::Running, KESTATUS_SUCCESS);
    const KESTATUS st = WriteUntilStopped();
    mThread.SetState(KEOsWorkerThreadState::Stopping, st);
}

KESTATUS PcapNgFileWriter::WriteUntilStopped() {
    while (!mThread.IsTerminationRequested()) {
        mPendingFrames.WaitOnQueue(cWithoutLimit);
        const KESTATUS st = WriteAllFramesToFile();
        if (st != KESTATUS_SUCCESS) {
            Log(KEFATAL, "WriteAllFramesToFile failed, st={}, terminate thread", KEFormatArgKEStatus(st));
            return st;
        }
    }
    static_cast<void>(WriteAllFramesToFile());
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileWriter::WriteAllFramesToFile() {
    for (;;) {
        RawFrame* frame = nullptr;
        {
            const std::lock_guard lock(mMutex);
            frame = mPendingFrames.GetItem();
        }
        if (!frame) {
            return KESTATUS_SUCCESS;
        }
        WriteFrameToFile(*frame);
        ReleaseRawFrame(frame);
        if (mMaxFileSize != 0 && mFile.FileSize() > mMaxFileSize) {
            KESTATUS st = KESTATUS_NO_MEMORY;
            try {
                st = OpenNextFile();
            } catch (const std::bad_alloc&) {
                KEOutputFailure(logger::Global, "OpenNextFile failed, st={}", st);
            }
            if (st != KESTATUS_SUCCESS) {
                return st;
            }
        }
    }
}

void PcapNgFileWriter::WriteFrameToFile(const RawFrame& frame) {
    mFramesDroppedUnrecorded += frame.mFramesDropped;
    const KEConstBufferReference received = frame.FrameData();
    if (received.mLength < rawheader::cSize) {
        KEOutputFailure(logger::Global, "InitEnhPacketBlock failed, st={}.", KESTATUS_INVALID_LENGTH);
        ++mFramesDroppedUnrecorded;
        mStats.Add(&Statistics::errInitPacketBlock);
        return;
    }
    const std::uint64_t timestamp = TimestampOf(frame);
    const KEConstBufferReference payload = {received.mData + rawheader::cSize,
                                            received.mLength - rawheader::cSize};
    unsigned char trigger[cTriggerFrameSize] = {};
    KEConstBufferReference data = payload;
    if (frame.mFrameType == QBXRawFrameType_ExternalTrigger) {
        std::memset(trigger + cTriggerSourceOffset, 0xFF, cMacAddressSize);
        KEStoreBE16(trigger + cTriggerLengthOffset, cTriggerPayloadSize);
        KEStoreBE32(trigger + cTriggerMagicOffset, TriggerEthernetFrameMagic);
        std::memcpy(trigger + cTriggerEventOffset, payload.mData,
                    std::min(payload.mLength, rawheader::cEventDataSize));
        data = {trigger, sizeof trigger};
    } else if (frame.mFrameType != QBXRawFrameType_Data) {
        return;
    }
    KESTATUS st = KESTATUS_NO_MEMORY;
    try {
        st = WritePacket(data, timestamp);
    } catch (const std::bad_alloc&) {
        // The next packet may be smaller.
    }
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "WriteBlock failed, st={}.", st);
        ++mFramesDroppedUnrecorded;
        mStats.Add(&Statistics::errWriteFileFailed);
    }
}

std::uint64_t PcapNgFileWriter::TimestampOf(const RawFrame& frame) {
    const unsigned char* const header = frame.FrameData().mData;
    const auto seconds = KELoadNative<std::uint64_t>(header + rawheader::cSecondsOffset);
    if (seconds == rawheader::cInvalidSeconds) {
        KEOutputLogMessage(logger::Cons, KEWARN, "Ignore invalid timestamp, set timestamp to zero.");
        mStats.Add(&Statistics::errInvalidTimestamp);
        return 0;
    }
    return seconds * cNanosecondsPerSecond +
           KELoadNative<std::uint32_t>(header + rawheader::cNanosecondsOffset);
}

KESTATUS PcapNgFileWriter::WritePacket(KEConstBufferReference data, std::uint64_t timestamp) {
    KESTATUS st =
        mPacketBlock.InitEnhPacketBlock(data, timestamp, 0, static_cast<std::uint32_t>(data.mLength));
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitEnhPacketBlock failed, st={}.", st);
        ++mFramesDroppedUnrecorded;
        mStats.Add(&Statistics::errInitPacketBlock);
        return KESTATUS_SUCCESS;
    }
    // That of the packet before, to be used again.
    if (PcapNgOption last = mPacketBlock.TakeLastOption(); last.IsValid()) {
        mDropCount = std::move(last);
    }
    if (mFramesDroppedUnrecorded != 0) {
        st =
            mDropCount.CreateNumericOption<std::uint64_t>(pcapng::cOptionDropCount, mFramesDroppedUnrecorded);
        if (st != KESTATUS_SUCCESS) {
            KEOutputFailure(logger::Global, "CreateNumericOption(drop count) failed, st={}", st);
        } else {
            mPacketBlock.AddOption(std::move(mDropCount));
        }
    }
    st = mFile.WriteBlock(mPacketBlock);
    if (st == KESTATUS_SUCCESS) {
        mFramesDroppedUnrecorded = 0;
        mStats.Add(&Statistics::infFramesWritten);
    }
    return st;
}

} // namespace flowlane

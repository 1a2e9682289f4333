#include "capture/PcapNgPacketWriter.h"

#include <new>
#include <utility>

#include "base/KEByteOrder.h"
#include "base/LogCons.h"
#include "capture/CaptureFileName.h"
#include "capture/TriggerFrame.h"
#include "device/DeviceMacAddress.h"
#include "device/RawReceiveHeader.h"
#include "files/KEStdFileStream.h"
#include "log/KELogging.h"
#include "values/TNetAddress.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint64_t cNanosecondsPerSecond = 1'000'000'000;
constexpr std::uint32_t cInterfaceID = 0; // the only interface of a file

} // namespace

// --- The blocks that a file begins with ----------------------------------------------------------

KESTATUS PcapNgPacketWriter::InitBlocks(QuaysideDevice& device) {
    mSectionHeaderBlock.InitSectionHeaderBlock();
    mIfDescriptionBlock.InitInterfaceDescBlock(pcapng::cLinkTypeEthernet, pcapng::cSnapLengthUnlimited);
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

// A property that cannot be read leaves its option out.
void PcapNgPacketWriter::AddStringOption(QuaysideDevice& device, unsigned property, std::uint16_t code,
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

void PcapNgPacketWriter::AddMacAddressOption(QuaysideDevice& device) {
    TNET_EthernetMacAddress address{};
    KESTATUS st = ReadDeviceMacAddress(device, address, "GetDevicePropertyBinary(MAC address) failed, st={}",
                                       "MAC address size mismatch, got {}, exp. {}");
    if (st != KESTATUS_SUCCESS) {
        return;
    }
    PcapNgOption option;
    st = option.CreateOption(pcapng::cOptionMacAddress, {address.mac, sizeof address.mac});
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "CreateOption(MAC address) failed, st={}", st);
        return;
    }
    mIfDescriptionBlock.AddOption(std::move(option));
}

// --- Files ---------------------------------------------------------------------------------------

KESTATUS PcapNgPacketWriter::OpenFirstFile(const T_UNICHAR* fileName, std::uint64_t maxFileSize) {
    mFramesDropped = 0;
    PreparePacketBlock();
    mFileBaseName = fileName;
    mMaxFileSize = maxFileSize;
    mFileNumber = 0;
    const KESTATUS st = OpenFile(CreateNextFileName());
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "OpenForWrite failed, st={}", st);
}

KESTATUS PcapNgPacketWriter::OpenNextFile() {
    CloseFile();
    const std::string path = CreateNextFileName();
    const KESTATUS st = OpenFile(path);
    if (st != KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Global, KEERROR, "OpenForWrite(file='{}') failed, st={}", path,
                           KEFormatArgKEStatus(st));
    }
    return st;
}

std::string PcapNgPacketWriter::CreateNextFileName() {
    ++mFileNumber;
    return FileName();
}

std::string PcapNgPacketWriter::FileName() const {
    if (mMaxFileSize == 0) {
        return mFileBaseName + cCaptureFileExtension;
    }
    return CaptureFileName(mFileBaseName.c_str(), mFileNumber, cCaptureFileExtension);
}

// A file without its headers is removed: nothing can read it, and the replay of a set would fail there.
KESTATUS PcapNgPacketWriter::OpenFile(const std::string& path) {
    const KESTATUS st = mFile.OpenForWrite(path.c_str(), mSectionHeaderBlock, mIfDescriptionBlock);
    PublishWriteStatus(mFile.SystemError() != KESTATUS_SUCCESS ? mFile.SystemError() : st);
    if (st != KESTATUS_SUCCESS && mFile.IsOpen()) {
        mFile.CloseFile();
        KEStdFileRemove(path.c_str());
    }
    return st;
}

void PcapNgPacketWriter::PublishWriteStatus(KESTATUS st) noexcept {
    mWriteStatus.store(st, std::memory_order_relaxed);
}

void PcapNgPacketWriter::FlushFile() noexcept {
    // Nothing is lost yet after a failure. If it lasts, the next packets or the closing of the file report
    // it.
    static_cast<void>(mFile.FlushFileBuffer());
}

void PcapNgPacketWriter::CloseFile() {
    mFile.CloseFile();
    const std::uint64_t lost = mFile.BlocksLost();
    if (lost != 0) {
        PublishWriteStatus(mFile.SystemError());
    }
    mStats.Subtract(&PcapNgWriterStatistics::infFramesWritten, lost);
    mStats.Add(&PcapNgWriterStatistics::errWriteFileFailed, lost);
    mFramesDropped += lost;
}

// --- Packets -------------------------------------------------------------------------------------

// Allocates the memory of the drop count option now, so that a packet behind a gap allocates nothing.
void PcapNgPacketWriter::PreparePacketBlock() {
    mPacketBlock.RemoveAllOptions();
    static_cast<void>(mDropCount.CreateNumericOption<std::uint64_t>(pcapng::cOptionDropCount, 0));
    mPacketBlock.AddOption(std::move(mDropCount));
    mDropCount = mPacketBlock.TakeLastOption();
}

void PcapNgPacketWriter::WriteFrameToFile(const RawFrame& frame) {
    mFramesDropped += frame.mFramesDropped;
    const KEConstBufferReference received = frame.FrameData();
    if (received.mLength < rawheader::cSize) {
        KEOutputFailure(logger::Global, "InitEnhPacketBlock failed, st={}.", KESTATUS_INVALID_LENGTH);
        ++mFramesDropped;
        mStats.Add(&PcapNgWriterStatistics::errInitPacketBlock);
        return;
    }
    const std::uint64_t timestamp = TimestampOf(frame);
    KEConstBufferReference data = {received.mData + rawheader::cSize, received.mLength - rawheader::cSize};
    unsigned char trigger[triggerframe::cSize];
    if (frame.mFrameType == QBXRawFrameType_ExternalTrigger) {
        triggerframe::Write(trigger, data);
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
    PublishWriteStatus(mFile.SystemError());
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "WriteBlock failed, st={}.", st);
        ++mFramesDropped;
        mStats.Add(&PcapNgWriterStatistics::errWriteFileFailed);
    }
}

std::uint64_t PcapNgPacketWriter::TimestampOf(const RawFrame& frame) {
    const unsigned char* const header = frame.FrameData().mData;
    const auto seconds = KELoadNative<std::uint64_t>(header + rawheader::cSecondsOffset);
    if (seconds == rawheader::cInvalidSeconds) {
        KEOutputLogMessage(logger::Cons, KEWARN, "Ignore invalid timestamp, set timestamp to zero.");
        mStats.Add(&PcapNgWriterStatistics::errInvalidTimestamp);
        return 0;
    }
    return seconds * cNanosecondsPerSecond +
           KELoadNative<std::uint32_t>(header + rawheader::cNanosecondsOffset);
}

// A frame that cannot be made a packet is logged and counted here, and is a success: the caller counts every
// failure as one to write the file, and would count this frame a second time.
KESTATUS PcapNgPacketWriter::WritePacket(KEConstBufferReference data, std::uint64_t timestamp) {
    KESTATUS st = mPacketBlock.InitEnhPacketBlock(data, timestamp, cInterfaceID,
                                                  static_cast<std::uint32_t>(data.mLength));
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "InitEnhPacketBlock failed, st={}.", st);
        ++mFramesDropped;
        mStats.Add(&PcapNgWriterStatistics::errInitPacketBlock);
        return KESTATUS_SUCCESS;
    }
    // The option of the previous packet is used again.
    if (PcapNgOption last = mPacketBlock.TakeLastOption(); last.IsValid()) {
        mDropCount = std::move(last);
    }
    if (mFramesDropped != 0) {
        AddDropCount();
    }
    st = mFile.WriteBlock(mPacketBlock);
    if (st == KESTATUS_SUCCESS) {
        mFramesDropped = 0;
        mStats.Add(&PcapNgWriterStatistics::infFramesWritten);
    }
    return st;
}

void PcapNgPacketWriter::AddDropCount() {
    const KESTATUS st =
        mDropCount.CreateNumericOption<std::uint64_t>(pcapng::cOptionDropCount, mFramesDropped);
    if (st != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Global, "CreateNumericOption(drop count) failed, st={}", st);
        return;
    }
    mPacketBlock.AddOption(std::move(mDropCount));
}

} // namespace flowlane

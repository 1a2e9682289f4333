// Writes received frames as packets into the file of a recording, or into the files of a set. Each file
// begins with a section header and the description of the device that the frames come from. A packet that
// cannot be written is counted, and the next packet that is written carries the number of those lost before
// it.
//
// One thread at a time, but WriteStatus and FileName are for any. Failures are logged on Global, an invalid
// time on Cons.
#ifndef FLOWLANE_PCAPNGPACKETWRITER_H
#define FLOWLANE_PCAPNGPACKETWRITER_H

#include <atomic>
#include <cstdint>
#include <string>

#include "PcapNgEnhPacketBlock.h"
#include "PcapNgFile.h"
#include "PcapNgInterfaceDescBlock.h"
#include "PcapNgOption.h"
#include "PcapNgSectionHeaderBlock.h"
#include "base/KEBuffer.h"
#include "capture/PcapNgWriterStatistics.h"
#include "capture/RawFrame.h"
#include "device/QuaysideDevice.h"
#include "kestatus.h"
#include "text/KEUnicode.h"

namespace flowlane {

class PcapNgPacketWriter {
public:
    // stats gets the packets written and lost. It is not owned and outlives the writer.
    explicit PcapNgPacketWriter(PcapNgWriterCounters& stats) noexcept : mStats(stats) {}

    // Makes the blocks with which every file begins. A device property that cannot be read is left out. All
    // three throw std::bad_alloc.
    [[nodiscard]] KESTATUS InitBlocks(QuaysideDevice& device);
    // fileName and maxFileSize as in PcapNgFileWriter::StartFileWriter. A file that cannot be given its
    // blocks is removed. The status is that of the system.
    [[nodiscard]] KESTATUS OpenFirstFile(const kestrelon::T_UNICHAR* fileName, std::uint64_t maxFileSize);
    [[nodiscard]] KESTATUS OpenNextFile();

    // The frame begins with its receive header.
    void WriteFrameToFile(const RawFrame& frame);
    // Writes what is gathered to the file. What cannot be written is kept, and tried again later.
    void FlushFile() noexcept;
    // True when the last packet has taken the file of a set beyond its size.
    bool IsFileFull() const noexcept { return mMaxFileSize != 0 && mFile.FileSize() > mMaxFileSize; }
    // Success while writing works; else why the file cannot be opened or written, the status of an errno
    // where there is one.
    [[nodiscard]] KESTATUS WriteStatus() const noexcept {
        return mWriteStatus.load(std::memory_order_relaxed);
    }
    // The file that is written or could not be opened. Throws std::bad_alloc.
    std::string FileName() const;
    // Writes what is still gathered. Packets that cannot be written then count as lost, no longer as written.
    void CloseFile();

private:
    void AddStringOption(QuaysideDevice& device, unsigned property, std::uint16_t code,
                         const char* propertyFailed, const char* optionFailed);
    void AddMacAddressOption(QuaysideDevice& device);
    void PreparePacketBlock();
    std::string CreateNextFileName();
    void PublishWriteStatus(KESTATUS st) noexcept;
    [[nodiscard]] KESTATUS OpenFile(const std::string& path);
    std::uint64_t TimestampOf(const RawFrame& frame);
    [[nodiscard]] KESTATUS WritePacket(kestrelon::KEConstBufferReference data, std::uint64_t timestamp);
    void AddDropCount();

    PcapNgWriterCounters& mStats;
    std::string mFileBaseName;
    std::uint64_t mMaxFileSize = 0;            // bytes, 0 for no limit
    std::atomic<std::uint32_t> mFileNumber{0}; // of the current file of a set
    std::atomic<KESTATUS> mWriteStatus{KESTATUS_SUCCESS};
    PcapNgSectionHeaderBlock mSectionHeaderBlock;
    PcapNgInterfaceDescBlock mIfDescriptionBlock;
    PcapNgFile mFile;
    PcapNgEnhPacketBlock mPacketBlock;
    PcapNgOption mDropCount;          // while it is not the packet block's
    std::uint64_t mFramesDropped = 0; // since the last packet written, see PcapNgFileWriter
};

} // namespace flowlane

#endif

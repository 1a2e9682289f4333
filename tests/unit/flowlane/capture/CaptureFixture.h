// A writer that is fed with received frames through the receive loop's own code, and what is in its files
// afterwards.
#ifndef FLOWLANE_TESTS_CAPTUREFIXTURE_H
#define FLOWLANE_TESTS_CAPTUREFIXTURE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ByteList.h"
#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "capture/FrameReceiver.h"
#include "capture/PcapNgFileWriter.h"

namespace testsupport {

// A packet as it stands in a file.
struct CapturedPacket {
    ByteList data;
    std::uint64_t timestamp = 0;
    std::uint32_t originalLength = 0;
    std::uint32_t interfaceID = 0;
    std::optional<std::uint64_t> dropCount;
};

struct CapturedFile {
    flowlane::PcapNgInterfaceDescBlock interface;
    std::vector<CapturedPacket> packets;
};

// Reads a file, which has to be valid to its end.
CapturedFile ReadCapturedFile(const std::string& path);

constexpr std::uint64_t cReceiveSeconds = 1'700'000'000;
constexpr std::uint64_t cReceiveNanoseconds = cReceiveSeconds * 1'000'000'000;

// A received frame: its receive header, and then length bytes that are the low byte of its sequence number.
// Its time is cReceiveSeconds and as many nanoseconds as its sequence number.
ByteList ReceivedFrame(std::uint32_t sequenceNumber, std::size_t length = 60);

class CaptureTest : public FakeDeviceTest {
protected:
    static constexpr unsigned cFrameSize = 1538;

    CaptureTest();

    KESTATUS Start(std::uint64_t maxFileSize = 0, unsigned frameCount = 100) {
        return mWriter.StartFileWriter(mBase.c_str(), mDevice, frameCount, cFrameSize, maxFileSize);
    }
    // Has the device receive a frame, and takes it. False when the writer had no free frame for it.
    bool Take(const ByteList& received, QBXRawFrameType type = QBXRawFrameType_Data);
    // Waits until the thread has written so many packets.
    void WaitUntilWritten(std::uint64_t count) const;
    // Waits until the thread has ended by itself, and returns its status.
    KESTATUS WaitForThreadStatus() const;

    flowlane::PcapNgFileWriter::Statistics Statistics() const;
    CapturedFile SingleFile() const { return ReadCapturedFile(mBase + ".pcapng"); }
    // The path of a file of a set.
    std::string NameOf(unsigned number) const;
    // In alphabetical order.
    std::vector<std::string> FilesOnDisk() const;

    TemporaryFolder mFolder;
    std::string mBase = mFolder / "capture";
    LogCapture mLog;
    flowlane::PcapNgFileWriter mWriter;
    flowlane::FrameReceiver mReceiver{mDevice, mWriter, cFrameSize};
};

} // namespace testsupport

#endif

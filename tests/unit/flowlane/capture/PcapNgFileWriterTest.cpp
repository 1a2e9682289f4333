// The writer fed as the receive loop does it, and what stands in the files afterwards.

#include "capture/PcapNgFileWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "base/KEByteOrder.h"
#include "base/LogCons.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

constexpr std::uint64_t cSeconds = 1'700'000'000;

// A packet as it stands in a file.
struct Packet {
    Bytes data;
    std::uint64_t timestamp = 0;
    std::uint32_t originalLength = 0;
    std::uint32_t interfaceID = 0;
    std::optional<std::uint64_t> dropCount;
};

struct FileContents {
    PcapNgInterfaceDescBlock interface;
    std::vector<Packet> packets;
};

// Reads a file that has to be valid to its end.
FileContents ReadFile(const std::string& path) {
    FileContents contents;
    PcapNgFile file;
    EXPECT_EQ(file.OpenForRead(path.c_str()), KESTATUS_SUCCESS) << path;
    KEBufferBlock block;
    const auto view = [&] { return KEConstBufferReference{block.mBuffer, block.mDataLength}; };
    PcapNgSectionHeaderBlock section;
    EXPECT_EQ(file.ReadNextBlock(block), KESTATUS_SUCCESS);
    EXPECT_EQ(section.InitSectionHeaderBlock(view()), KESTATUS_SUCCESS);
    EXPECT_EQ(file.ReadNextBlock(block), KESTATUS_SUCCESS);
    EXPECT_EQ(contents.interface.InitInterfaceDescBlock(view()), KESTATUS_SUCCESS);
    KESTATUS st = file.ReadNextBlock(block);
    for (; st == KESTATUS_SUCCESS; st = file.ReadNextBlock(block)) {
        PcapNgEnhPacketBlock packet;
        EXPECT_EQ(packet.InitEnhPacketBlock(view()), KESTATUS_SUCCESS);
        Packet read;
        read.data.assign(packet.PacketData().mData, packet.PacketData().mData + packet.PacketData().mLength);
        read.timestamp = packet.Timestamp();
        read.originalLength = packet.OriginalLength();
        read.interfaceID = packet.InterfaceID();
        if (const PcapNgOption* const option = packet.LookupOptionByCode(4)) {
            std::uint64_t count = 0;
            EXPECT_EQ(option->GetNumericValue(count), KESTATUS_SUCCESS);
            read.dropCount = count;
        }
        contents.packets.push_back(std::move(read));
    }
    EXPECT_EQ(st, KESTATUS_NO_DATA);
    return contents;
}

// A received frame: its header, and behind it bytes that tell the number.
Bytes Received(std::uint32_t sequenceNumber, std::size_t length = 60) {
    Bytes bytes(16 + length, static_cast<unsigned char>(sequenceNumber));
    KEStoreNative<std::uint64_t>(bytes.data(), cSeconds);
    KEStoreNative<std::uint32_t>(bytes.data() + 8, sequenceNumber);
    KEStoreNative<std::uint32_t>(bytes.data() + 12, sequenceNumber);
    return bytes;
}

class PcapNgFileWriterTest : public FakeDeviceTest {
protected:
    PcapNgFileWriterTest() { OpenToReceive(QBXRawHeaderType_2); }

    KESTATUS Start(std::uint64_t maxFileSize = 0, unsigned frameCount = 100) {
        return mWriter.StartFileWriter(mBase.c_str(), mDevice, frameCount, 1538, maxFileSize);
    }

    // What the receive loop does with a frame. False when there was no free frame to take it.
    bool Take(const Bytes& received, QBXRawFrameType type = QBXRawFrameType_Data) {
        RawFrame* const frame = mWriter.GetRawFrame();
        if (!mWriter.CheckRawFrame(type, {received.data(), received.size()})) {
            if (frame) {
                mWriter.ReleaseRawFrame(frame);
            }
            return true;
        }
        if (!frame) {
            mWriter.PoolUnderflowOccurred();
            return false;
        }
        std::memcpy(frame->mFrameBuffer.mData, received.data(), received.size());
        frame->mFrameSize = static_cast<std::uint32_t>(received.size());
        frame->mFrameType = type;
        EXPECT_EQ(mWriter.WriteRawFrame(frame), KESTATUS_SUCCESS);
        return true;
    }
    // Until the thread has written so many packets.
    void WaitUntilWritten(std::uint64_t count) const {
        for (int i = 0; i < 60000 && Statistics().infFramesWritten < count; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_EQ(Statistics().infFramesWritten, count);
    }

    PcapNgFileWriter::Statistics Statistics() const {
        PcapNgFileWriter::Statistics stats;
        mWriter.QuerryStatistics(stats);
        return stats;
    }
    std::string NameOf(unsigned number) const {
        return mBase + KEStdStringFormat("_{:05}", number) + ".pcapng";
    }
    std::vector<std::string> FilesOnDisk() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mFolder.Path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    TemporaryFolder mFolder;
    std::string mBase = mFolder / "capture";
    LogCapture mLog;
    PcapNgFileWriter mWriter;
};

// --- Start ---------------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, FileIsThereFromTheStart) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture.pcapng"));
    // 32 + 20 + options: name 4+8, product 4+20, address 4+8, resolution 4+4, end 4
    EXPECT_EQ(std::filesystem::file_size(mBase + ".pcapng"), 32u + 20 + 12 + 24 + 12 + 8 + 4);
    mWriter.StopFileWriter();
    const FileContents contents = ReadFile(mBase + ".pcapng");
    EXPECT_EQ(contents.interface.LinkType(), 1);
    EXPECT_EQ(contents.interface.SnapLen(), 0u);
    const auto option = [&](std::uint16_t code) {
        const PcapNgOption* const found = contents.interface.LookupOptionByCode(code);
        EXPECT_NE(found, nullptr) << code;
        return found ? std::string(found->Value().mData, found->Value().mData + found->OptionLength()) : "";
    };
    EXPECT_EQ(option(2), "fake-1");
    EXPECT_EQ(option(3), "Scripted fake device");
    EXPECT_EQ(option(6), std::string("\x00\x11\x22\x33\x44\x55", 6));
    EXPECT_EQ(option(9), "\x09");
    EXPECT_THAT(contents.packets, IsEmpty());
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileWriterTest, MissingPropertyLeavesItsOptionOut) {
    mFake.Queue(Qbx::GetDevicePropertyString, {KESTATUS_NOT_FOUND, KESTATUS_DEVICE_REMOVED});
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_NOT_SUPPORTED});
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    mWriter.StopFileWriter();
    EXPECT_EQ(mLog.CountContaining(KEERROR, "GetDevicePropertyString(friendly name) failed, st=0xe0000039("),
              1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "GetDevicePropertyString(product string) failed, st="), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "GetDevicePropertyBinary(MAC address) failed, st=0xe0000030("),
              1u);
    const FileContents contents = ReadFile(mBase + ".pcapng");
    for (const std::uint16_t code : std::vector<std::uint16_t>{2, 3, 6}) {
        EXPECT_EQ(contents.interface.LookupOptionByCode(code), nullptr);
    }
    EXPECT_NE(contents.interface.LookupOptionByCode(9), nullptr);
}

TEST_F(PcapNgFileWriterTest, AddressOfAnotherSizeIsLeftOut) {
    FakeInstance instance;
    instance.macAddress = {1, 2, 3, 4, 5};
    mFake.SetInstances({instance});
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    mWriter.StopFileWriter();
    EXPECT_EQ(mLog.Count(KEERROR, "MAC address size mismatch, got 5, exp. 6"), 1u);
    EXPECT_EQ(ReadFile(mBase + ".pcapng").interface.LookupOptionByCode(6), nullptr);
}

TEST_F(PcapNgFileWriterTest, FirstFileThatCannotBeOpened) {
    mBase = mFolder / "missing/capture";
    EXPECT_EQ(Start(), 0xE0010002);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "OpenForWrite failed, st=0xe0010002(KESTATUS_LINUX_ENOENT)"), 1u);
    EXPECT_EQ(Statistics().infFramesWritten, 0u);
    mBase = mFolder / "capture";
    EXPECT_EQ(Start(), KESTATUS_SUCCESS); // usable again
}

TEST_F(PcapNgFileWriterTest, PoolThatCannotBeMade) {
    EXPECT_EQ(Start(0, 0xFFFFFFFF), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "AllocateFramePool failed, st=0xe0000041("), 1u);
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
}

TEST_F(PcapNgFileWriterTest, StartedOnce) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(Start(1), KESTATUS_ALREADY_DONE); // nothing changes
    EXPECT_EQ(mLog.Count(KEERROR, "already started"), 1u);
    ASSERT_TRUE(Take(Received(1)));
    mWriter.StopFileWriter();
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture.pcapng"));
    EXPECT_EQ(ReadFile(mBase + ".pcapng").packets.size(), 1u);
    mWriter.StopFileWriter();
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
}

TEST_F(PcapNgFileWriterTest, StopWithoutStart) {
    mWriter.StopFileWriter();
    EXPECT_EQ(mWriter.GetRawFrame(), nullptr);
}

// --- Packets -------------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, FramesBecomePackets) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    for (const std::uint32_t number : {0xFFFFFFFEu, 0xFFFFFFFFu, 0u, 1u}) { // a wrap is no gap
        ASSERT_TRUE(Take(Received(number, 60 + number % 4)));
    }
    mWriter.StopFileWriter();
    const FileContents contents = ReadFile(mBase + ".pcapng");
    ASSERT_EQ(contents.packets.size(), 4u);
    std::uint32_t number = 0xFFFFFFFE;
    for (const Packet& packet : contents.packets) {
        EXPECT_EQ(packet.data, Bytes(60 + number % 4, static_cast<unsigned char>(number)));
        EXPECT_EQ(packet.timestamp, cSeconds * 1'000'000'000 + number);
        EXPECT_EQ(packet.originalLength, packet.data.size());
        EXPECT_EQ(packet.interfaceID, 0u);
        EXPECT_EQ(packet.dropCount, std::nullopt);
        ++number;
    }
    EXPECT_EQ(Statistics().infFramesWritten, 4u);
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileWriterTest, GapStandsWithThePacketBehindIt) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    for (const std::uint32_t number : {7u, 8u, 11u, 12u}) {
        ASSERT_TRUE(Take(Received(number)));
    }
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().errMissingFrames, 2u);
    EXPECT_EQ(mLog.Count(KEWARN, "sequence number mismatch, got 11, exp. 9"), 1u);
    const FileContents contents = ReadFile(mBase + ".pcapng");
    ASSERT_EQ(contents.packets.size(), 4u);
    EXPECT_EQ(contents.packets[0].dropCount, std::nullopt);
    EXPECT_EQ(contents.packets[1].dropCount, std::nullopt);
    EXPECT_EQ(contents.packets[2].dropCount, 2u);
    EXPECT_EQ(contents.packets[3].dropCount, std::nullopt);
}

// However far the thread is behind.
TEST_F(PcapNgFileWriterTest, EveryGapStandsWithItsPacket) {
    ASSERT_EQ(Start(0, 5000), KESTATUS_SUCCESS);
    for (std::uint32_t i = 0; i < 4000; ++i) {
        ASSERT_TRUE(Take(Received(i * 3 / 2))); // every third number is missing
    }
    mWriter.StopFileWriter();
    const FileContents contents = ReadFile(mBase + ".pcapng");
    ASSERT_EQ(contents.packets.size(), 4000u);
    for (std::uint32_t i = 0; i < 4000; ++i) {
        const bool isBehindGap = i != 0 && i * 3 / 2 != (i - 1) * 3 / 2 + 1;
        ASSERT_EQ(contents.packets[i].dropCount.value_or(0), isBehindGap ? 1u : 0u) << i;
    }
    EXPECT_EQ(Statistics().errMissingFrames, 1999u);
}

TEST_F(PcapNgFileWriterTest, RepeatedNumberIsAGapOfAllNumbers) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(Received(5)));
    ASSERT_TRUE(Take(Received(5)));
    EXPECT_EQ(Statistics().errMissingFrames, 0xFFFFFFFFu);
}

TEST_F(PcapNgFileWriterTest, ShortFramesAreDropped) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(Received(1)));
    for (const std::size_t length : {0u, 12u, 15u}) {
        ASSERT_TRUE(Take(Bytes(length, 0xAA)));
    }
    ASSERT_TRUE(Take(Received(2))); // they have no number
    ASSERT_TRUE(Take(Received(3, 0)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().errInvalidFrameSize, 3u);
    EXPECT_EQ(Statistics().errMissingFrames, 0u);
    EXPECT_EQ(Statistics().FramesDropped(), 3u);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{KEWARN, "invalid frame size 0"},
                                             CapturedMessage{KEWARN, "invalid frame size 12"},
                                             CapturedMessage{KEWARN, "invalid frame size 15"}));
    const FileContents contents = ReadFile(mBase + ".pcapng");
    ASSERT_EQ(contents.packets.size(), 3u);
    EXPECT_EQ(contents.packets[1].dropCount, 3u);
    EXPECT_THAT(contents.packets[2].data, IsEmpty());
}

TEST_F(PcapNgFileWriterTest, OtherKindsAreIgnoredButCounted) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(Received(1)));
    ASSERT_TRUE(Take(Received(2), QBXRawFrameType_Idle));
    ASSERT_TRUE(Take(Received(3), QBXRawFrameType_Unknown));
    ASSERT_TRUE(Take(Received(4)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().infIgnoredFrames, 2u);
    EXPECT_EQ(Statistics().infFramesWritten, 2u);
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    EXPECT_EQ(ReadFile(mBase + ".pcapng").packets[1].dropCount, std::nullopt);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileWriterTest, FrameWithoutAValidTime) {
    const LogCapture console(logger::Cons);
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    Bytes received = Received(1);
    KEStoreNative<std::uint64_t>(received.data(), 0xFFFFFFFFFFFFFFFF);
    ASSERT_TRUE(Take(received));
    received = Received(2);
    KEStoreNative<std::uint64_t>(received.data(), 0xFFFFFFFFFFFFFFFE); // odd, but a time: it wraps
    ASSERT_TRUE(Take(received));
    mWriter.StopFileWriter();
    EXPECT_THAT(console.Messages(),
                ElementsAre(CapturedMessage{KEWARN, "Ignore invalid timestamp, set timestamp to zero."}));
    EXPECT_EQ(Statistics().errInvalidTimestamp, 1u);
    EXPECT_EQ(Statistics().infFramesWritten, 2u);
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    const FileContents contents = ReadFile(mBase + ".pcapng");
    EXPECT_EQ(contents.packets[0].timestamp, 0u);
    EXPECT_EQ(contents.packets[1].timestamp, 0xFFFFFFFFFFFFFFFE * 1'000'000'000 + 2);
}

TEST_F(PcapNgFileWriterTest, TriggerBecomesAFrameOf28Bytes) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    Bytes received = Received(1, 10);
    for (unsigned char i = 0; i < 10; ++i) {
        received[16u + i] = static_cast<unsigned char>(0xA0 + i);
    }
    ASSERT_TRUE(Take(received, QBXRawFrameType_ExternalTrigger));
    received.resize(16 + 3);
    KEStoreNative<std::uint32_t>(received.data() + 12, 2);
    ASSERT_TRUE(Take(received, QBXRawFrameType_ExternalTrigger));
    mWriter.StopFileWriter();
    const FileContents contents = ReadFile(mBase + ".pcapng");
    ASSERT_EQ(contents.packets.size(), 2u);
    const Bytes head = {0,    0,    0,    0,    0,    0,    0xFF, 0xFF, 0xFF,
                        0xFF, 0xFF, 0xFF, 0x00, 0x0E, 0x12, 0x34, 0xC0, 0x00};
    Bytes expected = head;
    expected.insert(expected.end(), {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9});
    EXPECT_EQ(contents.packets[0].data, expected);
    EXPECT_EQ(contents.packets[0].originalLength, 28u);
    EXPECT_EQ(contents.packets[0].timestamp, cSeconds * 1'000'000'000 + 1);
    expected = head;
    expected.insert(expected.end(), {0xA0, 0xA1, 0xA2, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(contents.packets[1].data, expected);
    EXPECT_EQ(PcapNgFileWriter::TriggerEthernetFrameMagic, 0x1234C000u);
}

TEST_F(PcapNgFileWriterTest, FrameHandedOverWithoutAHeader) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    RawFrame* const frame = mWriter.GetRawFrame();
    frame->mFrameSize = 15;
    frame->mFrameType = QBXRawFrameType_Data;
    EXPECT_EQ(mWriter.WriteRawFrame(frame), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(Received(1)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().errInitPacketBlock, 1u);
    EXPECT_EQ(
        mLog.CountContaining(KEERROR, "InitEnhPacketBlock failed, st=0xe0000042(KESTATUS_INVALID_LENGTH)."),
        1u);
    EXPECT_EQ(ReadFile(mBase + ".pcapng").packets.at(0).dropCount, 1u);
}

TEST_F(PcapNgFileWriterTest, FrameOfAnotherKindHandedOverIsNotWritten) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    RawFrame* const frame = mWriter.GetRawFrame();
    frame->mFrameSize = 60;
    frame->mFrameType = QBXRawFrameType_Idle;
    EXPECT_EQ(mWriter.WriteRawFrame(frame), KESTATUS_SUCCESS);
    mWriter.StopFileWriter();
    EXPECT_THAT(ReadFile(mBase + ".pcapng").packets, IsEmpty());
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty()); // the frame is back in the pool
}

// --- The pool ------------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, EmptyPoolDropsFrames) {
    ASSERT_EQ(Start(0, 2), KESTATUS_SUCCESS);
    RawFrame* const held[] = {mWriter.GetRawFrame(), mWriter.GetRawFrame()};
    EXPECT_EQ(mWriter.GetRawFrame(), nullptr);
    for (std::uint32_t number = 1; number <= 3; ++number) {
        EXPECT_FALSE(Take(Received(number)));
    }
    EXPECT_EQ(Statistics().errPoolUnderflow, 3u);
    EXPECT_EQ(Statistics().errMissingFrames, 0u);
    for (RawFrame* const frame : held) {
        mWriter.ReleaseRawFrame(frame);
    }
    ASSERT_TRUE(Take(Received(4)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().FramesDropped(), 3u);
    EXPECT_EQ(ReadFile(mBase + ".pcapng").packets.at(0).dropCount, 3u);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, "outstanding"), 0u);
}

TEST_F(PcapNgFileWriterTest, EachFrameIsWrittenOrCounted) {
    ASSERT_EQ(Start(0, 1), KESTATUS_SUCCESS);
    constexpr std::uint32_t cFrames = 20000;
    for (std::uint32_t number = 0; number < cFrames; ++number) {
        Take(Received(number));
    }
    mWriter.StopFileWriter();
    const FileContents contents = ReadFile(mBase + ".pcapng");
    std::uint64_t drops = 0;
    std::uint64_t next = 0;
    for (const Packet& packet : contents.packets) {
        drops += packet.dropCount.value_or(0);
        next += packet.dropCount.value_or(0);
        ASSERT_EQ(packet.timestamp, cSeconds * 1'000'000'000 + next); // the count is that of its own gap
        ++next;
    }
    EXPECT_EQ(Statistics().infFramesWritten, contents.packets.size());
    EXPECT_EQ(contents.packets.size() + Statistics().errPoolUnderflow, cFrames);
    EXPECT_LE(drops, Statistics().errPoolUnderflow);
}

// --- File sets -----------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, FileEndsWithThePacketThatTakesItBeyondTheLimit) {
    // The headers take 112 bytes, each packet 100.
    ASSERT_EQ(Start(1012), KESTATUS_SUCCESS);
    for (std::uint32_t number = 0; number < 21; ++number) {
        ASSERT_TRUE(Take(Received(number, 64)));
    }
    mWriter.StopFileWriter();
    // 112 + 9 x 100 is the limit, the tenth goes beyond it.
    EXPECT_THAT(FilesOnDisk(),
                ElementsAre("capture_00001.pcapng", "capture_00002.pcapng", "capture_00003.pcapng"));
    std::uint32_t number = 0;
    for (const auto& [file, count] : {std::pair{1u, 10u}, {2u, 10u}, {3u, 1u}}) {
        const FileContents contents = ReadFile(NameOf(file));
        ASSERT_EQ(contents.packets.size(), count);
        for (const Packet& packet : contents.packets) {
            EXPECT_EQ(packet.timestamp, cSeconds * 1'000'000'000 + number++);
        }
        EXPECT_NE(contents.interface.LookupOptionByCode(2), nullptr);
    }
}

TEST_F(PcapNgFileWriterTest, NextFileIsOpenedAtOnce) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS); // less than the headers: a packet in each file
    ASSERT_TRUE(Take(Received(0)));
    ASSERT_TRUE(Take(Received(1)));
    mWriter.StopFileWriter();
    EXPECT_THAT(FilesOnDisk(),
                ElementsAre("capture_00001.pcapng", "capture_00002.pcapng", "capture_00003.pcapng"));
    EXPECT_EQ(ReadFile(NameOf(1)).packets.size(), 1u);
    EXPECT_EQ(ReadFile(NameOf(2)).packets.size(), 1u);
    EXPECT_THAT(ReadFile(NameOf(3)).packets, IsEmpty());
}

TEST_F(PcapNgFileWriterTest, NumbersBeginAnewWithEachStart) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
        EXPECT_EQ(Statistics().infFramesWritten, 0u);
        ASSERT_TRUE(Take(Received(77))); // any first number will do
        mWriter.StopFileWriter();
        EXPECT_EQ(Statistics().infFramesWritten, 1u);
        EXPECT_EQ(Statistics().errMissingFrames, 0u);
    }
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture_00001.pcapng", "capture_00002.pcapng"));
}

TEST_F(PcapNgFileWriterTest, NextFileThatCannotBeOpenedEndsTheWriter) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
    ASSERT_EQ(mkdir(NameOf(2).c_str(), 0700), 0);
    ASSERT_TRUE(Take(Received(0)));
    for (int i = 0; i < 60000 && mWriter.ThreadStatus() == KESTATUS_SUCCESS; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(mWriter.ThreadStatus(), 0xE0010015);
    EXPECT_EQ(mLog.Count(KEERROR, "OpenForWrite(file='" + NameOf(2) +
                                      "') failed, st=0xe0010015(KESTATUS_LINUX_EISDIR)"),
              1u);
    EXPECT_EQ(mLog.Count(KEFATAL,
                         "WriteAllFramesToFile failed, st=0xe0010015(KESTATUS_LINUX_EISDIR), terminate "
                         "thread"),
              1u);
    mLog.Clear();
    RawFrame* const frame = mWriter.GetRawFrame();
    frame->mFrameSize = 60;
    EXPECT_EQ(mWriter.WriteRawFrame(frame), KESTATUS_NOT_POSSIBLE); // and it is back in the pool
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(CapturedMessage{
                    KEERROR, "internal thread terminates with status 0xe0010015(KESTATUS_LINUX_EISDIR)"}));
    mLog.Clear();
    mWriter.StopFileWriter();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    EXPECT_EQ(Statistics().infFramesWritten, 1u);
    EXPECT_EQ(ReadFile(NameOf(1)).packets.size(), 1u);
}

// The next file is a pipe, and opening it takes until somebody reads from it: the frames wait meanwhile.
TEST_F(PcapNgFileWriterTest, FramesLeftByAWriterThatHasEndedAreCounted) {
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
    ASSERT_EQ(mkfifo(NameOf(2).c_str(), 0600), 0);
    ASSERT_EQ(mkdir(NameOf(3).c_str(), 0700), 0);
    for (std::uint32_t number = 0; number < 5; ++number) {
        ASSERT_TRUE(Take(Received(number)));
    }
    const int reader = open(NameOf(2).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    for (int i = 0; i < 60000 && mWriter.ThreadStatus() == KESTATUS_SUCCESS; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(mWriter.ThreadStatus(), 0xE0010015);
    mWriter.StopFileWriter();
    close(reader);
    EXPECT_EQ(Statistics().infFramesWritten, 2u);
    EXPECT_EQ(Statistics().errWriteFileFailed, 3u);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, "outstanding"), 0u); // they are back in the pool
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
}

TEST_F(PcapNgFileWriterTest, StatisticsAreReset) {
    const LogCapture console(logger::Cons);
    ASSERT_EQ(Start(0, 2), KESTATUS_SUCCESS);
    Bytes received = Received(1);
    KEStoreNative<std::uint64_t>(received.data(), 0xFFFFFFFFFFFFFFFF);
    ASSERT_TRUE(Take(received));
    WaitUntilWritten(1);
    ASSERT_TRUE(Take(Received(2), QBXRawFrameType_Idle));
    ASSERT_TRUE(Take(Received(4), QBXRawFrameType_Idle));
    ASSERT_TRUE(Take(Bytes(3, 0)));
    mWriter.PoolUnderflowOccurred();
    const auto values = [&] {
        std::vector<std::uint64_t> counters(sizeof(PcapNgFileWriter::Statistics) / sizeof(std::uint64_t));
        const PcapNgFileWriter::Statistics stats = Statistics();
        std::memcpy(counters.data(), &stats, sizeof stats);
        return counters;
    };
    // Nothing that was not written and no block that could not be built.
    EXPECT_THAT(values(), ElementsAre(1, 2, 1, 1, 0, 1, 0, 1));
    mWriter.ResetStatistics();
    EXPECT_THAT(values(), testing::Each(0));
}

// --- A full disk ---------------------------------------------------------------------------------

// No file grows beyond so many bytes while it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) {
        mOldHandler = std::signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &mOld), 0);
        rlimit limit = mOld;
        limit.rlim_cur = size;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &mOld);
        std::signal(SIGXFSZ, mOldHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mOld{};
    void (*mOldHandler)(int);
};

TEST_F(PcapNgFileWriterTest, FileWithoutItsHeadersIsRemoved) {
    {
        const FileSizeLimit limit(50); // the headers take 112 bytes
        EXPECT_EQ(Start(), KESTATUS_WRITE_FILE_FAILED);
    }
    EXPECT_THAT(FilesOnDisk(), IsEmpty());
    ASSERT_EQ(Start(1), KESTATUS_SUCCESS);
    {
        const FileSizeLimit limit(50);
        ASSERT_TRUE(Take(Received(0)));
        for (int i = 0; i < 60000 && mWriter.ThreadStatus() == KESTATUS_SUCCESS; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    EXPECT_EQ(mWriter.ThreadStatus(), KESTATUS_WRITE_FILE_FAILED);
    mWriter.StopFileWriter();
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture_00001.pcapng"));
    EXPECT_EQ(Statistics().errWriteFileFailed, 1u);
    EXPECT_THAT(ReadFile(NameOf(1)).packets, IsEmpty());
}

// What is in the way of a file is not.
TEST_F(PcapNgFileWriterTest, FolderInThePlaceOfAFileStays) {
    ASSERT_EQ(mkdir((mBase + ".pcapng").c_str(), 0700), 0);
    EXPECT_EQ(Start(), 0xE0010015);
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture.pcapng"));
}

TEST_F(PcapNgFileWriterTest, FullDiskLosesNothingUncounted) {
    ASSERT_EQ(Start(0, 3000), KESTATUS_SUCCESS);
    {
        const FileSizeLimit limit(50'000);
        for (std::uint32_t number = 0; number < 2000; ++number) {
            ASSERT_TRUE(Take(Received(number, 64)));
        }
        mWriter.StopFileWriter();
    }
    const FileContents contents = ReadFile(mBase + ".pcapng"); // valid to its end
    EXPECT_EQ(contents.packets.size(), (50'000u - 112) / 100);
    EXPECT_EQ(Statistics().infFramesWritten, contents.packets.size());
    EXPECT_EQ(Statistics().errWriteFileFailed, 2000 - contents.packets.size());
    EXPECT_GT(mLog.CountContaining(KEERROR, "WriteBlock failed, st=0xe0000092(KESTATUS_WRITE_FILE_FAILED)."),
              0u);
}

TEST_F(PcapNgFileWriterTest, DiskThatWasFullForAWhile) {
    ASSERT_EQ(Start(0, 3000), KESTATUS_SUCCESS);
    std::uint32_t number = 0;
    {
        const FileSizeLimit limit(1000);
        for (; number < 100; ++number) {
            ASSERT_TRUE(Take(Received(number, 64)));
        }
        for (int i = 0; i < 60000 && Statistics().infFramesWritten + Statistics().errWriteFileFailed < 100;
             ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    for (; number < 200; ++number) {
        ASSERT_TRUE(Take(Received(number, 64)));
    }
    mWriter.StopFileWriter();
    const FileContents contents = ReadFile(mBase + ".pcapng");
    EXPECT_EQ(Statistics().infFramesWritten, contents.packets.size());
    EXPECT_EQ(Statistics().infFramesWritten + Statistics().errWriteFileFailed, 200u);
    EXPECT_GT(Statistics().errWriteFileFailed, 0u);
    std::uint64_t next = 0;
    for (const Packet& packet : contents.packets) {
        next += packet.dropCount.value_or(0);
        ASSERT_EQ(packet.timestamp, cSeconds * 1'000'000'000 + next); // the file tells where they are missing
        ++next;
    }
    EXPECT_EQ(next, 200u);
}

} // namespace

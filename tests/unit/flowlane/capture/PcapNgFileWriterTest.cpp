// What the writer makes of the frames that it gets: the packets, their drop counts, and the statistics.

#include "capture/PcapNgFileWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <optional>

#include "CaptureFixture.h"
#include "WaitUntil.h"
#include "base/KEByteOrder.h"
#include "base/LogCons.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using PcapNgFileWriterTest = CaptureTest;

// --- Start ---------------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, FileIsThereFromTheStart) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture.pcapng"));
    // 32 + 20 + options: name 4+8, product 4+20, address 4+8, resolution 4+4, end 4
    EXPECT_EQ(std::filesystem::file_size(mBase + ".pcapng"), 32u + 20 + 12 + 24 + 12 + 8 + 4);
    mWriter.StopFileWriter();
    const CapturedFile contents = SingleFile();
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
    const CapturedFile contents = SingleFile();
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
    EXPECT_EQ(SingleFile().interface.LookupOptionByCode(6), nullptr);
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
    ASSERT_TRUE(Take(ReceivedFrame(1)));
    mWriter.StopFileWriter();
    EXPECT_THAT(FilesOnDisk(), ElementsAre("capture.pcapng"));
    EXPECT_EQ(SingleFile().packets.size(), 1u);
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
        ASSERT_TRUE(Take(ReceivedFrame(number, 60 + number % 4)));
    }
    mWriter.StopFileWriter();
    const CapturedFile contents = SingleFile();
    ASSERT_EQ(contents.packets.size(), 4u);
    std::uint32_t number = 0xFFFFFFFE;
    for (const CapturedPacket& packet : contents.packets) {
        EXPECT_EQ(packet.data, ByteList(60 + number % 4, static_cast<unsigned char>(number)));
        EXPECT_EQ(packet.timestamp, cReceiveNanoseconds + number);
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
        ASSERT_TRUE(Take(ReceivedFrame(number)));
    }
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().errMissingFrames, 2u);
    EXPECT_EQ(mLog.Count(KEWARN, "sequence number mismatch, got 11, exp. 9"), 1u);
    const CapturedFile contents = SingleFile();
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
        ASSERT_TRUE(Take(ReceivedFrame(i * 3 / 2))); // every third number is missing
    }
    mWriter.StopFileWriter();
    const CapturedFile contents = SingleFile();
    ASSERT_EQ(contents.packets.size(), 4000u);
    for (std::uint32_t i = 0; i < 4000; ++i) {
        const bool isBehindGap = i != 0 && i * 3 / 2 != (i - 1) * 3 / 2 + 1;
        ASSERT_EQ(contents.packets[i].dropCount.value_or(0), isBehindGap ? 1u : 0u) << i;
    }
    EXPECT_EQ(Statistics().errMissingFrames, 1999u);
}

TEST_F(PcapNgFileWriterTest, RepeatedNumberIsAGapOfAllNumbers) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(ReceivedFrame(5)));
    ASSERT_TRUE(Take(ReceivedFrame(5)));
    EXPECT_EQ(Statistics().errMissingFrames, 0xFFFFFFFFu);
}

TEST_F(PcapNgFileWriterTest, ShortFramesAreDropped) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(ReceivedFrame(1)));
    for (const std::size_t length : {0u, 12u, 15u}) {
        ASSERT_TRUE(Take(ByteList(length, 0xAA)));
    }
    ASSERT_TRUE(Take(ReceivedFrame(2))); // they have no number
    ASSERT_TRUE(Take(ReceivedFrame(3, 0)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().errInvalidFrameSize, 3u);
    EXPECT_EQ(Statistics().errMissingFrames, 0u);
    EXPECT_EQ(Statistics().FramesDropped(), 3u);
    EXPECT_THAT(mLog.Messages(), ElementsAre(CapturedMessage{KEWARN, "invalid frame size 0"},
                                             CapturedMessage{KEWARN, "invalid frame size 12"},
                                             CapturedMessage{KEWARN, "invalid frame size 15"}));
    const CapturedFile contents = SingleFile();
    ASSERT_EQ(contents.packets.size(), 3u);
    EXPECT_EQ(contents.packets[1].dropCount, 3u);
    EXPECT_THAT(contents.packets[2].data, IsEmpty());
}

TEST_F(PcapNgFileWriterTest, OtherKindsAreIgnoredButCounted) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(Take(ReceivedFrame(1)));
    ASSERT_TRUE(Take(ReceivedFrame(2), QBXRawFrameType_Idle));
    ASSERT_TRUE(Take(ReceivedFrame(3), QBXRawFrameType_Unknown));
    ASSERT_TRUE(Take(ReceivedFrame(4)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().infIgnoredFrames, 2u);
    EXPECT_EQ(Statistics().infFramesWritten, 2u);
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    EXPECT_EQ(SingleFile().packets[1].dropCount, std::nullopt);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileWriterTest, FrameWithoutAValidTime) {
    const LogCapture console(logger::Cons);
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ByteList received = ReceivedFrame(1);
    KEStoreNative<std::uint64_t>(received.data(), 0xFFFFFFFFFFFFFFFF);
    ASSERT_TRUE(Take(received));
    received = ReceivedFrame(2);
    KEStoreNative<std::uint64_t>(received.data(), 0xFFFFFFFFFFFFFFFE); // odd, but a time: it wraps
    ASSERT_TRUE(Take(received));
    mWriter.StopFileWriter();
    EXPECT_THAT(console.Messages(),
                ElementsAre(CapturedMessage{KEWARN, "Ignore invalid timestamp, set timestamp to zero."}));
    EXPECT_EQ(Statistics().errInvalidTimestamp, 1u);
    EXPECT_EQ(Statistics().infFramesWritten, 2u);
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    const CapturedFile contents = SingleFile();
    EXPECT_EQ(contents.packets[0].timestamp, 0u);
    EXPECT_EQ(contents.packets[1].timestamp, 0xFFFFFFFFFFFFFFFE * 1'000'000'000 + 2);
}

TEST_F(PcapNgFileWriterTest, TriggerBecomesAFrameOf28Bytes) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ByteList received = ReceivedFrame(1, 10);
    for (unsigned char i = 0; i < 10; ++i) {
        received[16u + i] = static_cast<unsigned char>(0xA0 + i);
    }
    ASSERT_TRUE(Take(received, QBXRawFrameType_ExternalTrigger));
    received.resize(16 + 3);
    KEStoreNative<std::uint32_t>(received.data() + 12, 2);
    ASSERT_TRUE(Take(received, QBXRawFrameType_ExternalTrigger));
    mWriter.StopFileWriter();
    const CapturedFile contents = SingleFile();
    ASSERT_EQ(contents.packets.size(), 2u);
    const ByteList head = {0,    0,    0,    0,    0,    0,    0xFF, 0xFF, 0xFF,
                           0xFF, 0xFF, 0xFF, 0x00, 0x0E, 0x12, 0x34, 0xC0, 0x00};
    ByteList expected = head;
    expected.insert(expected.end(), {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9});
    EXPECT_EQ(contents.packets[0].data, expected);
    EXPECT_EQ(contents.packets[0].originalLength, 28u);
    EXPECT_EQ(contents.packets[0].timestamp, cReceiveNanoseconds + 1);
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
    ASSERT_TRUE(Take(ReceivedFrame(1)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().errInitPacketBlock, 1u);
    EXPECT_EQ(
        mLog.CountContaining(KEERROR, "InitEnhPacketBlock failed, st=0xe0000042(KESTATUS_INVALID_LENGTH)."),
        1u);
    EXPECT_EQ(SingleFile().packets.at(0).dropCount, 1u);
}

TEST_F(PcapNgFileWriterTest, FrameOfAnotherKindHandedOverIsNotWritten) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    RawFrame* const frame = mWriter.GetRawFrame();
    frame->mFrameSize = 60;
    frame->mFrameType = QBXRawFrameType_Idle;
    EXPECT_EQ(mWriter.WriteRawFrame(frame), KESTATUS_SUCCESS);
    mWriter.StopFileWriter();
    EXPECT_THAT(SingleFile().packets, IsEmpty());
    EXPECT_EQ(Statistics().FramesDropped(), 0u);
    EXPECT_THAT(mLog.Messages(), IsEmpty()); // the frame is back in the pool
}

// --- The pool ------------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, EmptyPoolDropsFrames) {
    ASSERT_EQ(Start(0, 2), KESTATUS_SUCCESS);
    RawFrame* const held[] = {mWriter.GetRawFrame(), mWriter.GetRawFrame()};
    EXPECT_EQ(mWriter.GetRawFrame(), nullptr);
    for (std::uint32_t number = 1; number <= 3; ++number) {
        EXPECT_FALSE(Take(ReceivedFrame(number)));
    }
    EXPECT_EQ(Statistics().errPoolUnderflow, 3u);
    EXPECT_EQ(Statistics().errMissingFrames, 0u);
    for (RawFrame* const frame : held) {
        mWriter.ReleaseRawFrame(frame);
    }
    ASSERT_TRUE(Take(ReceivedFrame(4)));
    mWriter.StopFileWriter();
    EXPECT_EQ(Statistics().FramesDropped(), 3u);
    EXPECT_EQ(SingleFile().packets.at(0).dropCount, 3u);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, "outstanding"), 0u);
}

TEST_F(PcapNgFileWriterTest, EachFrameIsWrittenOrCounted) {
    ASSERT_EQ(Start(0, 1), KESTATUS_SUCCESS);
    constexpr std::uint32_t cFrames = 20000;
    for (std::uint32_t number = 0; number < cFrames; ++number) {
        Take(ReceivedFrame(number));
    }
    mWriter.StopFileWriter();
    const CapturedFile contents = SingleFile();
    std::uint64_t drops = 0;
    std::uint64_t next = 0;
    for (const CapturedPacket& packet : contents.packets) {
        drops += packet.dropCount.value_or(0);
        next += packet.dropCount.value_or(0);
        ASSERT_EQ(packet.timestamp, cReceiveNanoseconds + next); // the count is that of its own gap
        ++next;
    }
    EXPECT_EQ(Statistics().infFramesWritten, contents.packets.size());
    EXPECT_EQ(contents.packets.size() + Statistics().errPoolUnderflow, cFrames);
    EXPECT_LE(drops, Statistics().errPoolUnderflow);
}

// --- Batches -------------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, WhatHasComeIsInTheFileSoon) {
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    const std::uintmax_t headers = std::filesystem::file_size(mBase + ".pcapng");
    const auto size = [&] { return std::filesystem::file_size(mBase + ".pcapng"); };
    ASSERT_TRUE(Take(ReceivedFrame(0)));
    ASSERT_TRUE(WaitUntil([&] { return size() == headers + 96; }, size));
    ASSERT_TRUE(Take(ReceivedFrame(1)));
    ASSERT_TRUE(WaitUntil([&] { return size() == headers + 2 * 96; }, size));
}

// A batch passes on what it has gathered when that is a part of the pool, and at its end.
TEST_F(PcapNgFileWriterTest, ABatchKeepsFewFramesBack) {
    ASSERT_EQ(Start(0, 64), KESTATUS_SUCCESS);
    std::optional<PcapNgFileWriter::Batch> batch(mWriter);
    for (std::uint32_t number = 0; number < 7; ++number) {
        ASSERT_TRUE(Take(ReceivedFrame(number)));
    }
    WaitUntilWritten(4); // a sixteenth of the pool
    batch.reset();
    WaitUntilWritten(7);
}

TEST_F(PcapNgFileWriterTest, ABatchOfASmallPoolKeepsNoFrameBack) {
    ASSERT_EQ(Start(0, 31), KESTATUS_SUCCESS);
    const PcapNgFileWriter::Batch batch(mWriter);
    ASSERT_TRUE(Take(ReceivedFrame(0)));
    WaitUntilWritten(1);
}

TEST_F(PcapNgFileWriterTest, EachFrameOfABatchIsWrittenOrCounted) {
    ASSERT_EQ(Start(0, 40), KESTATUS_SUCCESS);
    constexpr std::uint32_t cFrames = 20000;
    {
        const PcapNgFileWriter::Batch batch(mWriter);
        for (std::uint32_t number = 0; number < cFrames; ++number) {
            Take(ReceivedFrame(number));
        }
    }
    mWriter.StopFileWriter();
    const std::vector<CapturedPacket> packets = SingleFile().packets;
    std::uint64_t next = 0;
    for (const CapturedPacket& packet : packets) {
        next += packet.dropCount.value_or(0);
        ASSERT_EQ(packet.timestamp, cReceiveNanoseconds + next);
        ++next;
    }
    EXPECT_EQ(packets.size() + Statistics().errPoolUnderflow, cFrames);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, "outstanding"), 0u);
}

// --- Statistics ----------------------------------------------------------------------------------

TEST_F(PcapNgFileWriterTest, StatisticsAreReset) {
    const LogCapture console(logger::Cons);
    ASSERT_EQ(Start(0, 2), KESTATUS_SUCCESS);
    ByteList received = ReceivedFrame(1);
    KEStoreNative<std::uint64_t>(received.data(), 0xFFFFFFFFFFFFFFFF);
    ASSERT_TRUE(Take(received));
    WaitUntilWritten(1);
    ASSERT_TRUE(Take(ReceivedFrame(2), QBXRawFrameType_Idle));
    ASSERT_TRUE(Take(ReceivedFrame(4), QBXRawFrameType_Idle));
    ASSERT_TRUE(Take(ByteList(3, 0)));
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
    mWriter.StopFileWriter(); // the thread has written to the console, whose capture ends here
}

} // namespace

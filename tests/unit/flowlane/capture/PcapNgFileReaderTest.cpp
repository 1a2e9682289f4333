// What the reader makes of every kind of block in every state, when it sends the packets, and how it goes
// from file to file. Time is virtual.

#include "capture/PcapNgFileReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "AllocationGate.h"
#include "ByteList.h"
#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "base/LogCons.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

using State = PcapNgFileReader::State;
using Statistics = PcapNgFileReader::Statistics;

// --- Blocks --------------------------------------------------------------------------------------

ByteList Section(unsigned major = 1, unsigned minor = 0, std::uint64_t magic = 0x1A2B3C4D) {
    return Block(0x0A0D0D0A, Concat({LE32(magic), LE16(major), LE16(minor), LE64(~std::uint64_t{0})}));
}

ByteList Interface(const ByteList& options = {}, unsigned linkType = 1) {
    return Block(1, Concat({LE16(linkType), LE16(0), LE32(0), options}));
}

ByteList Resolution(unsigned char value) {
    return {9, 0, 1, 0, value, 0, 0, 0};
}

ByteList PacketOf(const ByteList& data, std::uint64_t timestamp, std::size_t originalLength,
                  std::uint64_t claimedLength) {
    return Block(6, Concat({LE32(0), LE32(timestamp >> 32), LE32(timestamp), LE32(claimedLength),
                            LE32(originalLength), data, ByteList((4 - data.size() % 4) % 4, 0)}));
}

ByteList FrameBytes(unsigned id, std::size_t length = 60) {
    return ByteList(length, static_cast<unsigned char>(id));
}

// A packet of 60 bytes that tell its number.
ByteList Packet(unsigned id, std::uint64_t timestamp = 0) {
    return PacketOf(FrameBytes(id), timestamp, 60, 60);
}

ByteList TriggerPacket(unsigned length) {
    return PacketOf(
        Concat({ByteList(6, 0), ByteList(6, 0xFF), {0, static_cast<unsigned char>(length)}, ByteList(46, 0)}),
        0, 60, 60);
}

// --- Fixture -------------------------------------------------------------------------------------

class PcapNgFileReaderTest : public FakeDeviceTest {
protected:
    PcapNgFileReaderTest() { OpenToSend(); }

    void Write(const std::string& name, const ByteList& bytes) const {
        std::ofstream file(mFolder / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    KESTATUS Start(const std::string& name = "file.pcapng") {
        return mReader.StartFileReader((mFolder / name).c_str(), mStartFileIndex, mDevice, mFrameCount, 1522,
                                       mReplaceSrcMacAddr, mReadFileSet, mLoopMode);
    }
    // Until the thread has ended by itself.
    void WaitForEnd() {
        ASSERT_TRUE(WaitUntil([&] { return mReader.AreAllFramesSent() || mReader.IsInErrorState(); }));
        mReader.StopFileReader();
    }
    // Replays a file to its end.
    void Replay(const ByteList& bytes) {
        Write("file.pcapng", bytes);
        ASSERT_EQ(Start(), KESTATUS_SUCCESS);
        WaitForEnd();
    }

    // The numbers of the packets sent, by their last bytes.
    std::vector<unsigned> SentPackets() const {
        std::vector<unsigned> ids;
        for (const FakeFrame& frame : mFake.SubmittedFrames()) {
            ids.push_back(frame.back());
        }
        return ids;
    }
    Statistics Stats() const {
        Statistics stats;
        mReader.QuerryStatistics(stats);
        return stats;
    }

    TemporaryFolder mFolder;
    LogCapture mLog;
    VirtualClock mClock;
    PcapNgFileReader mReader{mClock};
    unsigned mStartFileIndex = 1;
    unsigned mFrameCount = 100;
    bool mReplaceSrcMacAddr = false;
    bool mReadFileSet = false;
    bool mLoopMode = false;
};

// --- States and blocks ---------------------------------------------------------------------------

struct CellRow {
    const char* name;
    ByteList block;
    // The state after the block, from ExpSectionHeader, ExpInterfaceDesc and ReadPacket.
    State after[3];
    std::uint64_t Statistics::*counter; // raised where isCounted says so; null: none
    bool isCounted[3];
    bool isSent; // in ReadPacket
    KELogLevel level;
    const char* line; // part of it; null: none
};

const State cSection = State::ExpSectionHeader;
const State cInterface = State::ExpInterfaceDesc;
const State cPacket = State::ReadPacket;

class PcapNgStateTest : public PcapNgFileReaderTest, public testing::WithParamInterface<CellRow> {};

TEST_P(PcapNgStateTest, EachCell) {
    const CellRow& row = GetParam();
    for (unsigned from = 0; from < 3; ++from) {
        SCOPED_TRACE(PcapNgFileReader::StrForState(static_cast<State>(from)));
        OpenToSend();
        mLog.Clear();
        const ByteList before = from == 0   ? ByteList{}
                                : from == 1 ? Section()
                                            : Concat({Section(), Interface()});
        // Which of these packets are sent tells the state: 201 only in ReadPacket, 202 not in
        // ExpSectionHeader.
        const ByteList behind =
            Concat({Packet(201), Interface(), Packet(202), Section(), Interface(), Packet(203)});
        Replay(Concat({before, row.block, behind}));

        std::vector<unsigned> expected;
        if (from == 2 && row.isSent) {
            expected.push_back(7);
        }
        if (row.after[from] == cPacket) {
            expected.push_back(201);
        }
        if (row.after[from] != cSection) {
            expected.push_back(202);
        }
        expected.push_back(203);
        EXPECT_EQ(SentPackets(), expected);
        EXPECT_EQ(Stats().infFramesSent, expected.size());
        EXPECT_EQ(Stats().TotalErrorsOccurred(), row.counter && row.isCounted[from] ? 1u : 0u);
        if (row.counter) {
            EXPECT_EQ(Stats().*row.counter, row.isCounted[from] ? 1u : 0u);
        }
        if (row.line) {
            EXPECT_EQ(mLog.CountContaining(row.level, row.line), row.isCounted[from] ? 1u : 0u);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cells, PcapNgStateTest,
    testing::Values(
        CellRow{
            "Section", Section(), {cInterface, cInterface, cInterface}, nullptr, {}, false, KEERROR, nullptr},
        CellRow{"SectionVersion20",
                Section(2, 0),
                {cSection, cSection, cSection},
                &Statistics::errUnsupportedVersion,
                {true, true, true},
                false,
                KEWARN,
                "ignore section with unsupported version 2.0"},
        CellRow{"SectionVersion11",
                Section(1, 1),
                {cSection, cSection, cSection},
                &Statistics::errUnsupportedVersion,
                {true, true, true},
                false,
                KEWARN,
                "ignore section with unsupported version 1.1"},
        CellRow{"SectionBigEndian",
                Section(1, 0, 0x4D3C2B1A),
                {cSection, cSection, cSection},
                &Statistics::errInvalidSectionHeader,
                {true, true, true},
                false,
                KEERROR,
                "InitSectionHeaderBlock failed, st=0x"},
        CellRow{"SectionTooShort",
                Block(0x0A0D0D0A, ByteList(12, 0)),
                {cSection, cSection, cSection},
                &Statistics::errInvalidSectionHeader,
                {true, true, true},
                false,
                KEERROR,
                "InitSectionHeaderBlock failed, st=0xe0000042("},
        CellRow{"Interface", Interface(), {cSection, cPacket, cPacket}, nullptr, {}, false, KEERROR, nullptr},
        CellRow{"InterfaceMicroseconds",
                Interface(Resolution(6)),
                {cSection, cPacket, cPacket},
                nullptr,
                {},
                false,
                KEERROR,
                nullptr},
        CellRow{"InterfaceNanoseconds",
                Interface(Resolution(9)),
                {cSection, cPacket, cPacket},
                nullptr,
                {},
                false,
                KEERROR,
                nullptr},
        CellRow{"InterfaceOtherLink",
                Interface({}, 101),
                {cSection, cInterface, cInterface},
                &Statistics::errInvalidLinkType,
                {false, true, true},
                false,
                KEWARN,
                "ignore invalid linkType 101"},
        CellRow{"InterfaceMilliseconds",
                Interface(Resolution(3)),
                {cSection, cInterface, cInterface},
                &Statistics::errUnsupportedTimestampResolution,
                {false, true, true},
                false,
                KEWARN,
                "unsupported timestamp resolution 3"},
        CellRow{"InterfaceBinaryResolution",
                Interface(Resolution(0x89)),
                {cSection, cInterface, cInterface},
                &Statistics::errUnsupportedTimestampResolution,
                {false, true, true},
                false,
                KEWARN,
                "unsupported timestamp resolution 137"},
        CellRow{"InterfaceOddResolution",
                Interface({9, 0, 2, 0, 9, 0, 0, 0}),
                {cSection, cPacket, cPacket},
                &Statistics::errInvalidOption,
                {false, true, true},
                false,
                KEWARN,
                "GetNumericValue failed, st=0xe0000042(KESTATUS_INVALID_LENGTH) (ignore option)"},
        CellRow{"InterfaceTooShort",
                Block(1, {1, 0, 0, 0}),
                {cSection, cInterface, cInterface},
                &Statistics::errInvalidInterfaceDesc,
                {false, true, true},
                false,
                KEERROR,
                "InitInterfaceDescBlock failed, st=0xe0000042("},
        CellRow{"Packet", Packet(7), {cSection, cInterface, cPacket}, nullptr, {}, true, KEERROR, nullptr},
        CellRow{"PacketTooShort",
                Block(6, ByteList(16, 0)),
                {cSection, cInterface, cPacket},
                &Statistics::errInvalidEnhPacket,
                {false, false, true},
                false,
                KEERROR,
                "InitEnhPacketBlock failed, st=0xe0000042("},
        CellRow{"PacketBeyondItsBlock",
                PacketOf(FrameBytes(7), 0, 61, 61),
                {cSection, cInterface, cPacket},
                &Statistics::errInvalidEnhPacket,
                {false, false, true},
                false,
                KEWARN,
                "ignore packet with more data than its block"},
        CellRow{"PacketHugeLength",
                PacketOf(FrameBytes(7), 0, 60, 0xFFFFFFFF),
                {cSection, cInterface, cPacket},
                &Statistics::errFrameBufferTooSmall,
                {false, false, true},
                false,
                KEWARN,
                "franme buffer too small, got 1522, req. 4294967295"},
        CellRow{"PacketBeyondItsBlockOf1522",
                PacketOf(FrameBytes(7), 0, 1522, 1522),
                {cSection, cInterface, cPacket},
                &Statistics::errInvalidEnhPacket,
                {false, false, true},
                false,
                KEWARN,
                "ignore packet with more data than its block"},
        CellRow{"PacketBeyondItsBlockOf1523",
                PacketOf(FrameBytes(7), 0, 1523, 1523),
                {cSection, cInterface, cPacket},
                &Statistics::errFrameBufferTooSmall,
                {false, false, true},
                false,
                KEWARN,
                "franme buffer too small, got 1522, req. 1523"},
        CellRow{"PacketBeyondItsBlockTruncated",
                PacketOf(FrameBytes(7), 0, 6000, 5000),
                {cSection, cInterface, cPacket},
                &Statistics::errPacketTruncated,
                {false, false, true},
                false,
                KEWARN,
                "ignore truncated packet"},
        CellRow{"PacketBeyondItsBlockOf13",
                PacketOf({}, 0, 13, 13),
                {cSection, cInterface, cPacket},
                &Statistics::errInvalidFrameLength,
                {false, false, true},
                false,
                KEWARN,
                "ignore frame with invalid length 13"},
        CellRow{"PacketBeyondItsBlockWithoutAHeader",
                PacketOf({}, 0, 60, 60),
                {cSection, cInterface, cPacket},
                &Statistics::errInvalidEnhPacket,
                {false, false, true},
                false,
                KEWARN,
                "ignore packet with more data than its block"},
        CellRow{"PacketTruncated",
                PacketOf(FrameBytes(7), 0, 61, 60),
                {cSection, cInterface, cPacket},
                &Statistics::errPacketTruncated,
                {false, false, true},
                false,
                KEWARN,
                "ignore truncated packet"},
        CellRow{"PacketOf13",
                PacketOf(FrameBytes(7, 13), 0, 13, 13),
                {cSection, cInterface, cPacket},
                &Statistics::errInvalidFrameLength,
                {false, false, true},
                false,
                KEWARN,
                "ignore frame with invalid length 13"},
        CellRow{"PacketOf14",
                PacketOf(FrameBytes(7, 14), 0, 14, 14),
                {cSection, cInterface, cPacket},
                nullptr,
                {},
                true,
                KEERROR,
                nullptr},
        CellRow{"PacketOf1522",
                PacketOf(FrameBytes(7, 1522), 0, 1522, 1522),
                {cSection, cInterface, cPacket},
                nullptr,
                {},
                true,
                KEERROR,
                nullptr},
        CellRow{"PacketOf1523",
                PacketOf(FrameBytes(7, 1523), 0, 1523, 1523),
                {cSection, cInterface, cPacket},
                &Statistics::errFrameBufferTooSmall,
                {false, false, true},
                false,
                KEWARN,
                "franme buffer too small, got 1522, req. 1523"},
        CellRow{"OriginalLengthSmaller",
                PacketOf(FrameBytes(7), 0, 59, 60),
                {cSection, cInterface, cPacket},
                nullptr,
                {},
                true,
                KEERROR,
                nullptr},
        CellRow{"SimplePacketBlock",
                Block(3, ByteList(64, 0)),
                {cSection, cInterface, cPacket},
                nullptr,
                {},
                false,
                KEERROR,
                nullptr},
        CellRow{"StatisticsBlock",
                Block(5, ByteList(12, 0)),
                {cSection, cInterface, cPacket},
                nullptr,
                {},
                false,
                KEERROR,
                nullptr},
        CellRow{"UnknownBlock",
                Block(0x80001234, {}),
                {cSection, cInterface, cPacket},
                nullptr,
                {},
                false,
                KEERROR,
                nullptr}),
    [](const auto& row) { return row.param.name; });

TEST_F(PcapNgFileReaderTest, TriggerFramesOfAnotherLengthFieldAreReplayed) {
    Replay(Concat({Section(), Interface(), TriggerPacket(10), Packet(1), TriggerPacket(14)}));
    ASSERT_EQ(mFake.SubmittedFrames().size(), 2u);
    EXPECT_EQ(mFake.SubmittedFrames()[1][13], 14);
    EXPECT_EQ(mLog.Count(KEINFO, "ignore dummy Ethernet frame for external trigger event"), 1u);
    EXPECT_EQ(Stats().TotalErrorsOccurred(), 0u);
}

// What stands behind the data of a packet does not make it a trigger.
TEST_F(PcapNgFileReaderTest, PacketCutWithinItsHeaderIsNoTriggerFrame) {
    ByteList packet = PacketOf(Concat({ByteList(6, 0), ByteList(6, 0xFF)}), 0, 60, 60);
    packet[packet.size() - 4] = 0; // the trailing length, which is not looked at
    packet[packet.size() - 3] = 10;
    Replay(Concat({Section(), Interface(), packet, Packet(1)}));
    EXPECT_EQ(Stats().errInvalidEnhPacket, 1u);
    EXPECT_EQ(mLog.CountContaining(KEINFO, "trigger"), 0u);
}

TEST_F(PcapNgFileReaderTest, StatesAreTold) {
    Replay(Concat({Section(), Interface(), Packet(1)}));
    std::vector<std::string> changes;
    for (const CapturedMessage& message : mLog.Messages()) {
        if (message.level == KEVERBOSE) {
            changes.push_back(message.text);
        }
    }
    EXPECT_THAT(changes, ElementsAre("ExpSectionHeader --> ExpInterfaceDesc",
                                     "ExpInterfaceDesc --> ReadPacket", "ReadPacket --> Done"));
    EXPECT_EQ(mLog.Count(KEINFO, "all frames are sent, stop thread"), 1u);
    EXPECT_STREQ(PcapNgFileReader::StrForState(static_cast<State>(5)), "???");
    EXPECT_STREQ(PcapNgFileReader::StrForState(State::Error), "Error");
    EXPECT_EQ(static_cast<unsigned>(State::Error), 4u);
}

// --- Times ---------------------------------------------------------------------------------------

// Steps through virtual time in the thread's rounds of 10 ms.
class PcapNgTimeTest : public PcapNgFileReaderTest {
protected:
    PcapNgTimeTest() { mClock.AllowSleeps(0); }

    // How many frames have been sent after each round whose number is in the list; round 1 is 10 ms after the
    // start.
    void ExpectSent(const std::vector<std::pair<unsigned, std::size_t>>& counts) {
        for (const auto& [round, count] : counts) {
            while (mRound < round) {
                mClock.AllowSleeps(1);
                ++mRound;
                ASSERT_TRUE(WaitUntil([&] { return mClock.Sleeps() == mRound; }));
                const unsigned stoodStill = mClock.StoodStill();
                ASSERT_TRUE(WaitUntil(
                    [&] { return mClock.StoodStill() > stoodStill || mReader.AreAllFramesSent(); }));
            }
            EXPECT_EQ(mFake.SubmittedFrames().size(), count) << "round " << round;
            EXPECT_EQ(mFake.SentFrameCount(), count) << "round " << round;
        }
    }

    unsigned mRound = 0;
};

TEST_F(PcapNgTimeTest, MicrosecondsAreTheDefault) {
    // Due 500 ms after the start, 100 ms later, a microsecond after that, and the same again.
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 7), Packet(2, 100007), Packet(3, 100008),
                                 Packet(4, 100008), Packet(5, 110007)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{49, 0}, {50, 1}, {59, 1}, {60, 2}, {61, 5}});
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 3, 4, 5}));
}

TEST_F(PcapNgTimeTest, Nanoseconds) {
    const std::uint64_t start = 1'700'000'000'123'456'789;
    Write("file.pcapng",
          Concat({Section(), Interface(Resolution(9)), Packet(1, start), Packet(2, start + 10'000'000),
                  Packet(3, start + 10'000'001), Packet(4, start + 40'000'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{49, 0}, {50, 1}, {51, 2}, {52, 3}, {53, 3}, {54, 4}});
}

TEST_F(PcapNgTimeTest, ResolutionOfTheLastInterfaceCounts) {
    Write("file.pcapng",
          Concat({Section(), Interface(Resolution(9)), Interface(), Packet(1, 0), Packet(2, 20'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {51, 1}, {52, 2}});
}

TEST_F(PcapNgTimeTest, SkippedPacketThatIsTooLongAdvancesTheTime) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 0),
                                 PacketOf(FrameBytes(9, 2000), 50'000, 2000, 2000), Packet(2, 60'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {55, 1}, {56, 2}});
}

TEST_F(PcapNgTimeTest, OtherSkippedPacketsDoNot) {
    // Their times are before those of the others, which would end the replay.
    Write("file.pcapng",
          Concat({Section(), Interface(), Packet(1, 100'000), PacketOf(FrameBytes(9), 50, 99, 60),
                  PacketOf(FrameBytes(9, 5), 50, 5, 5), TriggerPacket(10), Packet(2, 120'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {51, 1}, {52, 2}});
}

TEST_F(PcapNgTimeTest, LateRoundShiftsNothing) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 0), Packet(2, 5'000), Packet(3, 20'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {51, 2}, {52, 3}}); // the second went 5 ms late, the third is in time
}

TEST_F(PcapNgTimeTest, NextPassBegins100MsAfterTheLastPacketWasDue) {
    mLoopMode = true;
    mFrameCount = 2;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 500), Packet(2, 30'500)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ExpectSent({{50, 1}, {52, 1}, {53, 2}, {62, 2}, {63, 3}, {65, 3}, {66, 4}, {75, 4}, {76, 5}, {79, 6}});
    mReader.StopFileReader();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 1, 2, 1, 2}));
}

TEST_F(PcapNgTimeTest, FilesOfASetKeepTheTime) {
    mReadFileSet = true;
    mLoopMode = true;
    mFrameCount = 3;
    mStartFileIndex = 3;
    Write("file_00003.pcapng", Concat({Section(), Interface(), Packet(1, 1000), Packet(2, 21'000)}));
    Write("file_00004.pcapng", Concat({Section(), Interface(Resolution(9)), Packet(3, 30'000'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    // The difference of the two files' times is taken in units of the second: 30 000 000 - 21 000 ns.
    ExpectSent({{50, 1}, {52, 2}, {54, 2}, {55, 3}, {64, 3}, {65, 4}, {67, 5}});
    mReader.StopFileReader();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 3, 1, 2}));
}

TEST_F(PcapNgFileReaderTest, TimeThatGoesBackEndsTheReplay) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 100), Packet(2, 99), Packet(3, 200)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    ASSERT_TRUE(
        WaitUntil([&] { return mLog.Count(KEWARN, "unrecoverable error occurred, stop thread") == 1; }));
    mReader.StopFileReader();
    EXPECT_EQ(mReader.CurrentState(), State::Error);
    EXPECT_THAT(SentPackets(), IsEmpty()); // what was not due yet is not sent
    EXPECT_EQ(Stats().errInvalidTimestamp, 1u);
    EXPECT_EQ(mLog.Count(KEERROR, "invalid timestamp lies before timestamp of last packet"), 1u);
    EXPECT_FALSE(mReader.AreAllFramesSent());
}

// Of a packet after the first, which is sent: it is due at the end of all time.
TEST_F(PcapNgFileReaderTest, TimesBeyondTheRangeAreNeverDue) {
    // The first frame's, and what is left from there.
    const auto first = static_cast<std::uint64_t>(
        (VirtualClock::cStart + std::chrono::milliseconds(500)).time_since_epoch().count());
    const std::uint64_t room = INT64_MAX - first;
    struct Row {
        unsigned char resolution;
        std::uint64_t timestamp;
    };
    for (const Row& row : {Row{9, room - 50'000'000}, // the next pass begins 100 ms later
                           Row{9, room}, Row{9, room + 1}, Row{9, std::uint64_t{1} << 63}, Row{9, UINT64_MAX},
                           Row{6, room / 1000}, Row{6, room / 1000 + 1},
                           Row{6, 9'300'000'000'000'000},  // negative as nanoseconds
                           Row{6, UINT64_MAX / 1000 + 1},  // a few nanoseconds when it wraps
                           Row{6, std::uint64_t{1} << 63}, // none at all
                           Row{6, UINT64_MAX}}) {
        SCOPED_TRACE(testing::Message() << +row.resolution << ", " << row.timestamp);
        for (const bool isLoop : {false, true}) {
            mLoopMode = isLoop;
            VirtualClock clock;
            PcapNgFileReader reader(clock);
            Write("file.pcapng", Concat({Section(), Interface(Resolution(row.resolution)), Packet(1, 0),
                                         Packet(2, row.timestamp), Packet(3, row.timestamp)}));
            ASSERT_EQ(reader.StartFileReader((mFolder / "file.pcapng").c_str(), 1, mDevice, 10, 1522, false,
                                             false, isLoop),
                      KESTATUS_SUCCESS);
            ASSERT_TRUE(WaitUntil([&] { return clock.Sleeps() > 1000; })); // 10 seconds
            Statistics stats;
            reader.QuerryStatistics(stats);
            EXPECT_EQ(stats.infFramesSent, 1u);
            EXPECT_EQ(stats.TotalErrorsOccurred(), 0u);
            EXPECT_FALSE(reader.IsInErrorState());
            reader.StopFileReader();
        }
    }
}

// --- Long files ----------------------------------------------------------------------------------

// Many blocks that are skipped.
ByteList OtherBlocks(std::size_t count) {
    const ByteList block = Block(5, {});
    ByteList all(count * block.size());
    for (std::size_t i = 0; i < count; ++i) {
        std::copy(block.begin(), block.end(), all.begin() + static_cast<std::ptrdiff_t>(i * block.size()));
    }
    return all;
}
constexpr std::size_t cManyBlocks = 600'000; // takes more than one look for the end, and not too many

TEST_F(PcapNgFileReaderTest, UserMayEndTheSearchForTheFirstFrame) {
    Write("file.pcapng", Concat({Section(), Interface(), OtherBlocks(cManyBlocks), Packet(1)}));
    unsigned asked = 0;
    ASSERT_EQ(mReader.StartFileReader((mFolder / "file.pcapng").c_str(), 1, mDevice, 10, 1522, false, false,
                                      false,
                                      [&] {
                                          ++asked;
                                          return true;
                                      }),
              KESTATUS_SUCCESS);
    EXPECT_EQ(asked, 1u);
    WaitForEnd(); // the thread reads on
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
}

TEST_F(PcapNgFileReaderTest, LongFileIsReplayedAndRefusedAsAShortOne) {
    unsigned asked = 0;
    const auto start = [&] {
        return mReader.StartFileReader((mFolder / "file.pcapng").c_str(), 1, mDevice, 10, 1522, false, false,
                                       false, [&] { return ++asked > 1000; });
    };
    Write("file.pcapng", Concat({Section(), Interface(), OtherBlocks(cManyBlocks)}));
    EXPECT_EQ(start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.Count(KEERROR, "file does not contain any valid frames"), 1u);
    EXPECT_EQ(asked, 2u);
    Write("file.pcapng", Concat({Section(), Interface(), OtherBlocks(cManyBlocks), Packet(1)}));
    EXPECT_EQ(start(), KESTATUS_SUCCESS);
    EXPECT_EQ(asked, 4u);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
    EXPECT_EQ(Stats().TotalErrorsOccurred(), 0u);
}

// Not as many passes as it takes to fill the pool.
TEST_F(PcapNgFileReaderTest, StartOfALoopEndsWithTheFirstFrames) {
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), OtherBlocks(cManyBlocks)}));
    GatedClock clock(0); // holds the thread back
    PcapNgFileReader reader(clock);
    ASSERT_EQ(
        reader.StartFileReader((mFolder / "file.pcapng").c_str(), 1, mDevice, 1000, 1522, false, false, true),
        KESTATUS_SUCCESS);
    EXPECT_EQ(mLog.Count(KEVERBOSE, "ReadPacket --> ExpSectionHeader"), 0u);
    clock.mGate.Open();
    reader.StopFileReader();
}

// --- Start and stop ------------------------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, FileThatDoesNotExist) {
    const LogCapture console(logger::Cons);
    EXPECT_EQ(Start("missing"), KESTATUS_NOT_PRESENT);
    EXPECT_THAT(
        console.Messages(),
        ElementsAre(CapturedMessage{KEERROR, "File '" + mFolder / "missing.pcapng" + "' does not exist."}));
    mReadFileSet = true;
    mStartFileIndex = 123456;
    EXPECT_EQ(Start("sub/file.x"), KESTATUS_NOT_PRESENT);
    EXPECT_EQ(console.Count(KEERROR, "File '" + mFolder / "sub/file_123456.x" + "' does not exist."), 1u);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PcapNgFileReaderTest, ExtensionIsAppendedWhenThereIsNone) {
    const ByteList file = Concat({Section(), Interface(), Packet(1)});
    Write("a.pcapng", file);
    Write("b.v2", file);
    for (const char* const name : {"a", "a.pcapng", "b.v2"}) {
        ASSERT_EQ(Start(name), KESTATUS_SUCCESS);
        WaitForEnd();
    }
    EXPECT_EQ(Start("b"), KESTATUS_NOT_PRESENT);
    EXPECT_EQ(mFake.SubmittedFrames().size(), 3u);
}

TEST_F(PcapNgFileReaderTest, DeviceWithoutAnAddress) {
    mFake.Queue(Qbx::GetDevicePropertyBinary, {KESTATUS_NOT_FOUND});
    EXPECT_EQ(Start(), KESTATUS_NOT_FOUND);
    FakeInstance instance;
    instance.macAddress = {1, 2, 3, 4, 5};
    mFake.SetInstances({instance});
    EXPECT_EQ(Start(), KESTATUS_LENGTH_MISMATCH);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(CapturedMessage{KEERROR, "GetDevicePropertyBinary failed, st=0xe0000039(KESTATUS_NOT_"
                                             "FOUND)"},
                    CapturedMessage{KEERROR, "MAC address size mismatch, got 5, exp. 6"}));
}

TEST_F(PcapNgFileReaderTest, FailedStartLeavesNothingBehind) {
    Write("file.pcapng", {});
    EXPECT_EQ(Start(), KESTATUS_NO_DATA);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "OpenForRead failed, st=0xe0000024("), 1u);
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), {6, 0, 0, 0, 100, 0, 0, 0}}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "ReadNextBlock failed, st="), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "FillSendQueue failed, st="), 1u);
    EXPECT_EQ(Stats().errReadFileFailed, 1u);
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1)}));
    mFrameCount = 0;
    EXPECT_EQ(Start(), KESTATUS_INVALID_PARAMETER);
    mFrameCount = 0xFFFFFFFF;
    EXPECT_EQ(Start(), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "AllocateFramePool failed, st=0xe0000041("), 2u);
    mFrameCount = 10;
    EXPECT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(Start(), KESTATUS_ALREADY_DONE);
    EXPECT_EQ(mLog.Count(KEERROR, "already started"), 1u);
    WaitForEnd();
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u); // no frame is missing from the pool
}

TEST_F(PcapNgFileReaderTest, FilesWithoutFrames) {
    Write("file.pcapng", Concat({Section(), Interface()}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.Count(KEERROR, "file does not contain any valid frames"), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, "OpenNextFile failed, st="), 1u);
    EXPECT_EQ(Stats().errInvalidFile, 1u);
    mReadFileSet = true;
    Write("file_00001.pcapng", Concat({Section(), Interface()}));
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
    EXPECT_EQ(mLog.Count(KEERROR, "file(s) does not contain any valid frames"), 1u);
    mLoopMode = true;
    EXPECT_EQ(Start(), KESTATUS_INVALID_FILE);
}

TEST_F(PcapNgFileReaderTest, LoopEndsWhenThereAreNoFramesAnyMore) {
    mLoopMode = true;
    mFrameCount = 1;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    std::filesystem::resize_file(mFolder / "file.pcapng", 48); // the headers alone
    ASSERT_TRUE(WaitUntil([&] { return mReader.IsInErrorState(); }));
    mReader.StopFileReader();
    EXPECT_EQ(Stats().errInvalidFile, 1u);
}

TEST_F(PcapNgFileReaderTest, SetEndsWhereANumberIsMissing) {
    mReadFileSet = true;
    for (const unsigned number : {1u, 2u, 4u}) {
        Write(KEStdStringFormat("file_{:05}.pcapng", number),
              Concat({Section(), Interface(), Packet(number)}));
    }
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2}));
    mStartFileIndex = 4;
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 4}));
}

TEST_F(PcapNgFileReaderTest, EmptyFileWithinASetEndsTheReplay) {
    mReadFileSet = true;
    mFrameCount = 1;
    Write("file_00001.pcapng", Concat({Section(), Interface(), Packet(1)}));
    Write("file_00002.pcapng", {});
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
    EXPECT_TRUE(mReader.IsInErrorState());
    EXPECT_EQ(Stats().errInvalidFile, 1u);
    EXPECT_EQ(
        mLog.CountContaining(KEERROR, "FillSendQueue failed, st=0xe0000024(KESTATUS_NO_DATA), stop thread"),
        1u);
}

TEST_F(PcapNgFileReaderTest, FileCutWhileItIsReplayed) {
    mFrameCount = 1;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), ByteList(9000, 0)}));
    // The zeros are no blocks: the length 0 ends the replay when it is reached.
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1}));
    EXPECT_EQ(Stats().errReadFileFailed, 1u);
    EXPECT_TRUE(mReader.IsInErrorState());
}

TEST_F(PcapNgFileReaderTest, StopLeavesFramesThatAreNotDue) {
    mClock.AllowSleeps(0);
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), Packet(2)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    mReader.StopFileReader();
    mReader.StopFileReader();
    EXPECT_THAT(SentPackets(), IsEmpty());
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u);
}

TEST_F(PcapNgFileReaderTest, SourceAddressIsReplaced) {
    mReplaceSrcMacAddr = true;
    Replay(Concat({Section(), Interface(), Packet(9), PacketOf(FrameBytes(8, 14), 0, 14, 14)}));
    FakeFrame expected(60, 9);
    std::copy_n(std::vector<unsigned char>{0, 0x11, 0x22, 0x33, 0x44, 0x55}.begin(), 6, expected.begin() + 6);
    FakeFrame second(14, 8);
    std::copy_n(expected.begin() + 6, 6, second.begin() + 6);
    EXPECT_THAT(mFake.SubmittedFrames(), ElementsAre(expected, second));
}

// --- Statistics ----------------------------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, StatisticsAreReset) {
    Replay(Concat({Section(2), Section(1, 0, 0), Section(), Interface({}, 2), Interface(Resolution(3)),
                   Block(1, {}), Interface({9, 0, 2, 0, 9, 0, 0, 0}), Block(6, {}),
                   PacketOf(FrameBytes(7), 0, 61, 60), PacketOf(FrameBytes(7, 13), 0, 13, 13),
                   PacketOf(FrameBytes(7, 1523), 0, 1523, 1523), Packet(1, 100), Packet(2, 99)}));
    const auto values = [&] {
        std::vector<std::uint64_t> counters(sizeof(Statistics) / sizeof(std::uint64_t));
        const Statistics stats = Stats();
        std::memcpy(counters.data(), &stats, sizeof stats);
        return counters;
    };
    // Nothing sent, and no failures to read or send; one of each of the others.
    EXPECT_THAT(values(), ElementsAre(0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    mReader.ResetStatistics();
    EXPECT_THAT(values(), testing::Each(0));
}

TEST_F(PcapNgFileReaderTest, AllIsReadBeforeAllIsSent) {
    mClock.AllowSleeps(0);
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1)}));
    EXPECT_FALSE(mReader.AreAllFilesRead());
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_TRUE(mReader.AreAllFilesRead());
    EXPECT_FALSE(mReader.AreAllFramesSent());
    mClock.AllowSleeps(100);
    WaitForEnd();
    EXPECT_TRUE(mReader.AreAllFilesRead());
    EXPECT_TRUE(mReader.AreAllFramesSent());
    mFrameCount = 1;
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), Packet(2)}));
    mClock.AllowSleeps(0);
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_FALSE(mReader.AreAllFilesRead());
}

// --- Frames that the device has lost -------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, LostFramesAreAskedForOnceASecond) {
    mClock.AllowSleeps(0);
    mFake.SetLostFrames(1000); // of others, before
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1, 0), Packet(2, 3'000'000)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(mReader.LostFrames(), 0u);
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 2u); // the first is for the address
    mFake.SetLostFrames(1003);
    mClock.AllowSleeps(150);
    ASSERT_TRUE(WaitUntil([&] { return mClock.Sleeps() == 150; }));
    ASSERT_TRUE(WaitUntil([&] { return mReader.LostFrames() == 3; }));
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 3u);
    mClock.AllowSleeps(1000);
    ASSERT_TRUE(WaitUntil([&] { return mReader.AreAllFramesSent(); })); // after 3.5 seconds
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 5u);
    mFake.SetLostFrames(1010);
    EXPECT_EQ(mReader.LostFrames(), 3u);
    mReader.StopFileReader();
    EXPECT_EQ(mReader.LostFrames(), 10u); // the last ones too
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 6u);
    // Another start counts anew.
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    EXPECT_EQ(mReader.LostFrames(), 0u);
}

TEST_F(PcapNgFileReaderTest, LostFramesAreKnownWhenSendingHasFailed) {
    mClock.AllowSleeps(0);
    mFake.SetLostFrames(0);
    mFake.Queue(Qbx::SubmitRawFrame, {KESTATUS_INVALID_LENGTH});
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    mFake.SetLostFrames(4);
    mClock.AllowSleeps(100);
    ASSERT_TRUE(WaitUntil([&] { return mReader.IsInErrorState(); }));
    EXPECT_EQ(mReader.LostFrames(), 4u);
}

TEST_F(PcapNgFileReaderTest, LibraryThatDoesNotCountLostFramesIsAskedOnce) {
    Replay(Concat({Section(), Interface(), Packet(1, 0), Packet(2, 3'000'000)}));
    EXPECT_EQ(mFake.CallCount(Qbx::GetDevicePropertyBinary), 2u); // the first is for the address
    EXPECT_EQ(mReader.LostFrames(), 0u);
}

// --- The device ----------------------------------------------------------------------------------

TEST_F(PcapNgFileReaderTest, FullBatchIsSentFirst) {
    mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_SUCCESS, KESTATUS_NO_SPACE});
    Write("file.pcapng", Concat({Section(), Interface(), Packet(1), Packet(2), Packet(3)}));
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
    std::vector<std::string> calls;
    for (const std::string& call : mFake.Calls()) {
        if (call.find("Submit") != std::string::npos || call.find("SendRaw") != std::string::npos) {
            calls.push_back(call.substr(0, call.find('(')));
        }
    }
    EXPECT_THAT(calls,
                ElementsAre("CheckSubmitRawFrame", "SubmitRawFrame", "CheckSubmitRawFrame", "SendRawFrames",
                            "SubmitRawFrame", "CheckSubmitRawFrame", "SubmitRawFrame", "SendRawFrames"));
    EXPECT_EQ(SentPackets(), (std::vector<unsigned>{1, 2, 3}));
}

struct DeviceFailure {
    const char* name;
    Qbx function;
    std::vector<KESTATUS> statuses;
    std::size_t submitted; // before the end
    std::vector<const char*> lines;
};

class PcapNgDeviceFailureTest : public PcapNgFileReaderTest,
                                public testing::WithParamInterface<DeviceFailure> {};

TEST_P(PcapNgDeviceFailureTest, EndsTheReplay) {
    const DeviceFailure& row = GetParam();
    mFake.Queue(row.function, row.statuses);
    if (row.function == Qbx::SendRawFrames && row.submitted == 1) {
        mFake.Queue(Qbx::CheckSubmitRawFrame, {KESTATUS_SUCCESS, KESTATUS_NO_SPACE});
    }
    Replay(Concat({Section(), Interface(), Packet(1), Packet(2)}));
    EXPECT_TRUE(mReader.IsInErrorState());
    EXPECT_EQ(mFake.SubmittedFrames().size(), row.submitted);
    EXPECT_EQ(Stats().infFramesSent, row.submitted);
    EXPECT_EQ(Stats().errSendFramesFailed, 1u);
    for (const char* const line : row.lines) {
        EXPECT_EQ(mLog.CountContaining(KEERROR, line), 1u) << line;
    }
    EXPECT_EQ(mLog.CountContaining(KEERROR, "SendFrames failed, st="), 1u);
    EXPECT_EQ(mLog.CountContaining(KEERROR, ", stop thread"), 1u);
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, PcapNgDeviceFailureTest,
    testing::Values(DeviceFailure{"Check",
                                  Qbx::CheckSubmitRawFrame,
                                  {KESTATUS_SUCCESS, KESTATUS_NO_RESOURCES},
                                  1,
                                  {"CheckSubmitRawFrame failed, st=0xe0000021(",
                                   "SubmitFrame failed, st=0xe0000021("}},
                    DeviceFailure{"Submit",
                                  Qbx::SubmitRawFrame,
                                  {KESTATUS_DEVICE_REMOVED},
                                  0,
                                  {"SubmitRawFrame failed, st=", "SubmitFrame failed, st="}},
                    DeviceFailure{"Send",
                                  Qbx::SendRawFrames,
                                  {KESTATUS_NO_DATA},
                                  2,
                                  {"SendRawFrames failed, st=0xe0000024(KESTATUS_NO_DATA)"}},
                    DeviceFailure{"SendFullBatch",
                                  Qbx::SendRawFrames,
                                  {KESTATUS_DEVICE_REMOVED},
                                  1,
                                  {"SendRawFrames failed, st=", "SubmitFrame failed, st="}}),
    [](const auto& row) { return row.param.name; });

} // namespace

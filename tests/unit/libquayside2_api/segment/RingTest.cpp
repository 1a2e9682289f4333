// One ring, one sender, one reader, in ordinary memory.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "segment/RingReader.h"
#include "segment/RingWriter.h"

namespace {

using namespace quayside2::segment;

class RingTest : public testing::Test {
protected:
    struct Memory {
        Ring ring{};
        SenderState sender{};
        Word cursor{0};
    };

    static constexpr std::uint64_t cTime = 5;

    // Appends a frame of this length whose bytes are the tag, giving up what is in the way.
    static void Append(RingWriter& writer, std::uint32_t length, std::uint8_t tag) {
        const std::vector<std::uint8_t> frame(length, tag);
        if (writer.ReclaimWanted() > writer.Reclaimed()) {
            writer.Reclaim(writer.ReclaimWanted());
        }
        writer.Append(frame.data(), length);
    }
    static void Send(RingWriter& writer, std::uint32_t length, std::uint8_t tag) {
        Append(writer, length, tag);
        writer.Publish(cTime);
    }
    // Takes the next frame; checks that all its bytes are the same and returns that byte, -1 for none.
    static int Take(RingReader& reader, std::uint32_t& lost) {
        if (!reader.Peek()) {
            return -1;
        }
        std::vector<std::uint8_t> frame(reader.Length());
        lost = reader.TakeLoss();
        if (!reader.Take(frame.data())) {
            return -2;
        }
        for (const std::uint8_t byte : frame) {
            EXPECT_EQ(byte, frame[0]);
        }
        return frame[0];
    }

    std::unique_ptr<Memory> mMemory = std::make_unique<Memory>();
    RingReader mReader{mMemory->ring, mMemory->sender, mMemory->cursor};
};

TEST_F(RingTest, RecordSizes) {
    EXPECT_EQ(RecordBytes(14), 48u);
    EXPECT_EQ(RecordBytes(24), 48u);
    EXPECT_EQ(RecordBytes(25), 64u);
    EXPECT_EQ(RecordBytes(1518), cMaxRecordBytes);
    EXPECT_EQ(NextRecordPosition(0), 0u);
    EXPECT_EQ(NextRecordPosition(cBlockBytes - cMaxRecordBytes), cBlockBytes - cMaxRecordBytes);
    EXPECT_EQ(NextRecordPosition(cBlockBytes - cMaxRecordBytes + 16), cBlockBytes);
    EXPECT_EQ(NextRecordPosition(cBlockBytes), cBlockBytes);
}

TEST_F(RingTest, NothingIsSeenBeforeItIsPublished) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    EXPECT_FALSE(writer.HasUnsent());
    Append(writer, 60, 1);
    EXPECT_TRUE(writer.HasUnsent());
    EXPECT_FALSE(mReader.HasData());
    EXPECT_FALSE(mReader.Peek());
    writer.Publish(cTime);
    EXPECT_FALSE(writer.HasUnsent());
    EXPECT_TRUE(mReader.HasData());
    EXPECT_TRUE(mReader.Peek());
    EXPECT_EQ(mReader.Length(), 60u);
    EXPECT_EQ(mReader.Time(), cTime);
}

TEST_F(RingTest, EveryLengthAroundTheRingSeveralTimes) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    std::mt19937 random(1);
    for (std::uint32_t i = 0; i < 30000; ++i) { // about 23 MB
        const auto length = static_cast<std::uint32_t>(14 + random() % 1505);
        Send(writer, length, static_cast<std::uint8_t>(i));
        std::uint32_t lost = 9;
        ASSERT_TRUE(mReader.Peek());
        ASSERT_EQ(mReader.Length(), length);
        ASSERT_EQ(Take(mReader, lost), static_cast<std::uint8_t>(i));
        ASSERT_EQ(lost, 0u);
        ASSERT_EQ(mMemory->cursor.load(), writer.SentEnd());
    }
    EXPECT_GT(writer.SentEnd(), 4 * cRingBytes);
}

TEST_F(RingTest, AReaderStartsAtTheEndAndCountsFromThere) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    for (std::uint8_t i = 0; i < 10; ++i) {
        Send(writer, 60, i);
    }
    mReader.Start();
    EXPECT_FALSE(mReader.Peek());
    Send(writer, 60, 10);
    std::uint32_t lost = 9;
    EXPECT_EQ(Take(mReader, lost), 10);
    EXPECT_EQ(lost, 0u);
}

TEST_F(RingTest, AnOverrunReaderGoesOnWithTheOldestAndKnowsItsLoss) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    std::uint32_t lost = 9;
    Send(writer, 1500, 0);
    EXPECT_EQ(Take(mReader, lost), 0);
    std::uint32_t sent = 0;
    while (writer.SentEnd() < 3 * cRingBytes) {
        Send(writer, 1500, static_cast<std::uint8_t>(++sent));
    }
    std::uint32_t next = 0;
    std::uint32_t taken = 0;
    while (mReader.Peek()) {
        const int tag = Take(mReader, lost);
        ASSERT_GE(tag, 0);
        next += lost + 1;
        ASSERT_EQ(tag, static_cast<std::uint8_t>(next));
        ASSERT_TRUE(lost == 0 || taken == 0) << "one gap only";
        ++taken;
    }
    EXPECT_EQ(next, sent);
    EXPECT_GT(taken, (cRingBytes - 2 * cBlockBytes) / RecordBytes(1500)) << "not more is lost than must be";
}

TEST_F(RingTest, ARecordOverwrittenAfterThePeekIsNotTaken) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    Send(writer, 1500, 1);
    ASSERT_TRUE(mReader.Peek());
    std::uint32_t sent = 1;
    for (;;) {
        Append(writer, 1500, static_cast<std::uint8_t>(++sent));
        if (writer.Reclaimed() != 0) {
            break; // written over, not yet published
        }
        writer.Publish(cTime);
    }
    std::vector<std::uint8_t> frame(1500);
    std::uint32_t lost = 0;
    EXPECT_EQ(mReader.TakeLoss(), 0u);
    EXPECT_FALSE(mReader.Take(frame.data()));
    writer.Publish(cTime);
    const int tag = Take(mReader, lost);
    EXPECT_EQ(tag, static_cast<std::uint8_t>(lost + 1));
    EXPECT_GT(lost, 0u);
}

TEST_F(RingTest, ANewSenderGoesOnWhereTheLastOneEnded) {
    mReader.Start();
    std::uint32_t lost = 9;
    for (std::uint8_t i = 0; i < 200; ++i) {
        RingWriter writer(mMemory->ring, mMemory->sender);
        Send(writer, 1000, i);
        Append(writer, 1000, 0xFF); // never published, as when it is killed
    }
    for (std::uint8_t i = 0; i < 200; ++i) {
        EXPECT_EQ(Take(mReader, lost), i);
        EXPECT_EQ(lost, 0u);
    }
    EXPECT_FALSE(mReader.Peek());
}

TEST_F(RingTest, SkippingCountsLikeTaking) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    Send(writer, 1000, 1);
    Send(writer, 60, 2);
    std::uint32_t lost = 9;
    ASSERT_TRUE(mReader.Peek());
    EXPECT_EQ(mReader.TakeLoss(), 0u);
    EXPECT_TRUE(mReader.Skip());
    EXPECT_EQ(Take(mReader, lost), 2);
    EXPECT_EQ(lost, 0u);
}

TEST_F(RingTest, PassingOverIsCountedForEachFrame) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    Send(writer, 60, 1);
    Send(writer, 60, 2);
    std::uint32_t lost = 0;
    ASSERT_TRUE(mReader.Peek());
    EXPECT_EQ(mReader.PassedOver(), 0u);
    mReader.PassOver();
    mReader.PassOver();
    ASSERT_TRUE(mReader.Peek());
    EXPECT_EQ(mReader.PassedOver(), 2u);
    EXPECT_EQ(Take(mReader, lost), 1);
    ASSERT_TRUE(mReader.Peek());
    EXPECT_EQ(mReader.PassedOver(), 0u);
}

TEST_F(RingTest, AReaderWakesASenderOnlyFromWhereItWants) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    Send(writer, 60, 1);
    Send(writer, 60, 2);
    std::uint32_t lost = 0;
    mMemory->sender.roomWanted.store(writer.SentEnd());
    EXPECT_EQ(Take(mReader, lost), 1);
    EXPECT_EQ(mMemory->sender.roomWord.load(), 0u);
    EXPECT_EQ(Take(mReader, lost), 2);
    EXPECT_EQ(mMemory->sender.roomWord.load(), 1u);
    EXPECT_EQ(mMemory->sender.roomWanted.load(), 0u);
    mReader.ReleaseSender();
    EXPECT_EQ(mMemory->sender.roomWord.load(), 1u) << "nobody waits";
    mMemory->sender.roomWanted.store(~std::uint64_t{0});
    mReader.ReleaseSender();
    EXPECT_EQ(mMemory->sender.roomWord.load(), 2u);
}

} // namespace

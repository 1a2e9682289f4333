// Rings whose shared memory holds nonsense: no crash, no endless loop, no frame that was not sent whole.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "segment/RingReader.h"
#include "segment/RingWriter.h"

namespace {

using namespace quayside2::segment;
using quayside2::cMinFrameBytes;

constexpr std::uint64_t cNonsense[] = {1,
                                       8,
                                       15,
                                       cBlockBytes,
                                       cBlockBytes - 16,
                                       cRingBytes + 8,
                                       1ull << 59,
                                       1ull << 60,
                                       1ull << 63,
                                       ~std::uint64_t{0},
                                       ~std::uint64_t{0} - 7,
                                       ~std::uint64_t{0} - 15,
                                       ~std::uint64_t{0} - cMaxRecordBytes};

class RingDamageTest : public testing::Test {
protected:
    struct Memory {
        Ring ring{};
        SenderState sender{};
        Word cursor{0};
    };

    static void Send(RingWriter& writer, std::uint8_t tag) {
        const std::vector<std::uint8_t> frame(100, tag);
        if (writer.ReclaimWanted() > writer.Reclaimed()) {
            writer.Reclaim(writer.ReclaimWanted());
        }
        writer.Append(frame.data(), 100);
        writer.Publish(1);
    }
    // Takes at most a hundred frames; returns how many there were.
    unsigned Drain() {
        unsigned frames = 0;
        std::uint8_t buffer[cMaxTaggedFrameBytes];
        for (unsigned i = 0; i < 100 && mReader.Peek(); ++i) {
            EXPECT_GE(mReader.Length(), cMinFrameBytes);
            EXPECT_LE(mReader.Length(), cMaxTaggedFrameBytes);
            mLost = mReader.TakeLoss();
            frames += mReader.Take(buffer) ? 1 : 0;
        }
        return frames;
    }
    // After whatever happened, a frame sent now must arrive, and the loss be seen.
    void ExpectRecovery(bool expectLoss) {
        Drain();
        RingWriter writer(mMemory->ring, mMemory->sender);
        mReader.HasData();
        Drain(); // a sender that starts afresh may look like damage once more
        Send(writer, 0x77);
        ASSERT_TRUE(mReader.Peek());
        std::uint8_t buffer[cMaxTaggedFrameBytes];
        ASSERT_EQ(mReader.Length(), 100u);
        const std::uint32_t lost = mReader.TakeLoss();
        ASSERT_TRUE(mReader.Take(buffer));
        EXPECT_EQ(buffer[0], 0x77);
        if (expectLoss) {
            EXPECT_GT(lost, 0u);
        }
        EXPECT_FALSE(mReader.Peek());
    }

    std::unique_ptr<Memory> mMemory = std::make_unique<Memory>();
    RingReader mReader{mMemory->ring, mMemory->sender, mMemory->cursor};
    std::uint32_t mLost = 0;
};

TEST_F(RingDamageTest, Heads) {
    for (const std::uint64_t head : cNonsense) {
        mMemory = std::make_unique<Memory>();
        RingReader reader(mMemory->ring, mMemory->sender, mMemory->cursor);
        RingWriter writer(mMemory->ring, mMemory->sender);
        reader.Start();
        Send(writer, 1);
        mMemory->sender.head.store(head);
        std::uint8_t buffer[cMaxTaggedFrameBytes];
        for (int i = 0; i < 100 && reader.Peek(); ++i) {
            reader.Take(buffer);
        }
        EXPECT_FALSE(reader.Peek()) << head;
    }
}

TEST_F(RingDamageTest, StartingAtADamagedHead) {
    for (const std::uint64_t head : cNonsense) {
        mMemory->sender.head.store(head);
        mReader.Start();
        Drain();
    }
    ExpectRecovery(false);
}

TEST_F(RingDamageTest, DamagedRecordHeaders) {
    struct Row {
        std::uint64_t mark;
        std::uint64_t length;
    };
    for (const Row& row : {Row{0, 100}, Row{cRecordMark ^ 1, 100}, Row{cRecordMark, 0}, Row{cRecordMark, 13},
                           Row{cRecordMark, 1519}, Row{cRecordMark, 0xFFFFFFFF}, Row{cRecordMark, 1000}}) {
        RingWriter writer(mMemory->ring, mMemory->sender);
        mReader.Start();
        const std::uint64_t position = NextRecordPosition(writer.End());
        Send(writer, 1);
        mMemory->ring[RingIndex(position)].store(row.mark << 32 | row.length);
        EXPECT_FALSE(mReader.Peek()) << row.mark << ' ' << row.length;
        EXPECT_FALSE(mReader.HasData()) << "it must not look at the damage for ever";
        ExpectRecovery(true);
    }
}

TEST_F(RingDamageTest, TheFramesSkippedWithADamagedOneAreCounted) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    for (std::uint8_t i = 0; i < 5; ++i) {
        Send(writer, i);
    }
    mMemory->ring[0].store(0);
    EXPECT_EQ(Drain(), 0u);
    Send(writer, 9);
    EXPECT_EQ(Drain(), 1u);
    EXPECT_EQ(mLost, 5u);
}

TEST_F(RingDamageTest, ReclaimPositions) {
    for (const std::uint64_t reclaim : cNonsense) {
        RingWriter writer(mMemory->ring, mMemory->sender);
        mReader.Start();
        Send(writer, 1);
        mMemory->sender.reclaim.store(reclaim);
        Drain();
        EXPECT_FALSE(mReader.Peek()) << reclaim;
        ExpectRecovery(false);
    }
}

TEST_F(RingDamageTest, NumbersThatGoBack) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    mReader.Start();
    Send(writer, 1);
    Send(writer, 2);
    EXPECT_EQ(Drain(), 2u);
    mMemory->ring[RingIndex(writer.End() - cWordBytes)].store(0);
    RingWriter next(mMemory->ring, mMemory->sender);
    Send(next, 3);
    EXPECT_EQ(Drain(), 1u);
    EXPECT_EQ(mLost, 1u) << "unknown, but seen";
}

TEST_F(RingDamageTest, ASenderFindsItsWayOutOfAnyState) {
    for (const std::uint64_t head : cNonsense) {
        for (const std::uint64_t reclaim : cNonsense) {
            mMemory->sender.head.store(head);
            mMemory->sender.reclaim.store(reclaim);
            RingWriter writer(mMemory->ring, mMemory->sender);
            EXPECT_EQ(writer.End() % cRecordAlignment, 0u);
            EXPECT_LE(writer.Reclaimed(), writer.End());
            mReader.Start();
            for (std::uint8_t i = 0; i < 50; ++i) {
                Send(writer, i);
            }
            EXPECT_EQ(Drain(), 50u) << head << ' ' << reclaim;
            EXPECT_EQ(mLost, 0u);
        }
    }
}

// As when the count is overwritten at each look.
TEST_F(RingDamageTest, ACountThatIsBeingOverwrittenIsNotBelieved) {
    RingWriter writer(mMemory->ring, mMemory->sender);
    Send(writer, 1);
    Send(writer, 2);
    const std::uint64_t end = writer.End();
    mMemory->sender.reclaim.store(cBlockBytes);
    mMemory->ring[RingIndex(end - cWordBytes)].store(0); // of another lap
    mReader.Start();
    mMemory->sender.reclaim.store(0);
    mMemory->ring[RingIndex(end - cWordBytes)].store(2);
    for (std::uint8_t i = 0; i < 10; ++i) {
        Send(writer, i);
    }
    ASSERT_TRUE(mReader.Peek());
    EXPECT_EQ(mReader.TakeLoss(), 1u) << "unknown, but seen";
    EXPECT_EQ(Drain(), 10u);
    EXPECT_EQ(mLost, 0u);
}

// Everything random, many times over: the address sanitizer watches.
TEST_F(RingDamageTest, RandomMemory) {
    std::mt19937_64 random(20);
    for (int round = 0; round < 300; ++round) {
        for (int i = 0; i < 2000; ++i) {
            mMemory->ring[random() % std::size(mMemory->ring)].store(
                random() % 2 == 0 ? random() : std::uint64_t{cRecordMark} << 32 | random() % 2000);
        }
        const std::uint64_t shift = random() % 40;
        mMemory->sender.head.store(random() % 2 == 0 ? random() >> shift : random() >> shift & ~15ull);
        mMemory->sender.reclaim.store(random() >> (random() % 64) & (random() % 2 == 0 ? ~0ull : ~0xFFFFull));
        if (round % 3 == 0) {
            mReader.Start();
        }
        Drain();
        if (round % 10 == 0) {
            ExpectRecovery(false);
        }
    }
}

} // namespace

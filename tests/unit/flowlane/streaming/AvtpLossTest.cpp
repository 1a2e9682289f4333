// A stream whose frames are dropped, doubled and put out of order at random on their way: what the AVTP
// source forwards is compared with what a plain model of the stream says must come out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "FakeDevice.h"
#include "LogCapture.h"
#include "WaitUntil.h"
#include "streaming/AvtpFrameBuilder.h"
#include "streaming/AvtpSource.h"
#include "streaming/KeepingSink.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

constexpr unsigned cHeaders = 14 + 24 + 8;
constexpr unsigned cBlockBytes = 24;

// Packets are told apart by any part of them, so that a mixed one would be seen.
std::uint8_t UniqueByte(unsigned packet, unsigned place) {
    if (place == 0) {
        return 0x47;
    }
    const std::uint32_t mixed = (packet * 2654435761u) ^ (place * 40503u);
    return static_cast<std::uint8_t>((mixed * 2246822519u) >> 24);
}

FrameBytes UniquePacket(unsigned packet) {
    FrameBytes bytes(cPacketBytes);
    for (unsigned place = 0; place < cPacketBytes; ++place) {
        bytes[place] = UniqueByte(packet, place);
    }
    return bytes;
}

// A frame by its data blocks, which are numbered from the start of the stream, eight to a packet.
struct Frame {
    unsigned number;
    unsigned firstBlock;
    unsigned blocks;

    FrameBytes Bytes() const {
        AvtpFrameSpec spec;
        spec.sequenceNumber = static_cast<std::uint8_t>(number);
        spec.dataBlockCount = static_cast<std::uint8_t>(firstBlock);
        spec.blocks = blocks;
        FrameBytes bytes = AvtpFrame(spec);
        for (unsigned i = 0; i < blocks * cBlockBytes; ++i) {
            const unsigned place = firstBlock * cBlockBytes + i;
            const unsigned inPacket = place % 192;
            if (inPacket >= 4) {
                bytes[cHeaders + i] = UniqueByte(place / 192, inPacket - 4);
            }
        }
        return bytes;
    }
};

// What has to come out, by the packets' numbers: those whose eight blocks stand in one frame or in frames
// that arrived one right after the other.
std::vector<unsigned> ExpectedPackets(const std::vector<Frame>& arrived) {
    std::vector<unsigned> packets;
    unsigned blocksOfPacket = 0; // in a row from its first
    for (std::size_t i = 0; i < arrived.size(); ++i) {
        if (i != 0 && arrived[i].number != arrived[i - 1].number + 1) {
            blocksOfPacket = 0;
        }
        for (unsigned block = arrived[i].firstBlock; block < arrived[i].firstBlock + arrived[i].blocks;
             ++block) {
            if (block % 8 == 0) {
                blocksOfPacket = 1;
            } else if (blocksOfPacket != 0) {
                ++blocksOfPacket;
            }
            if (blocksOfPacket == 8) {
                packets.push_back(block / 8);
                blocksOfPacket = 0;
            }
        }
    }
    return packets;
}

struct Loss {
    const char* name;
    unsigned seed;
    unsigned minBlocks; // of a frame
    unsigned maxBlocks;
    unsigned step; // block counts are multiples of this
    double dropped;
    double doubled;
    double swapped; // with the frame before
};

void PrintTo(const Loss& loss, std::ostream* stream) {
    *stream << loss.name;
}

class AvtpLossTest : public testing::TestWithParam<Loss> {
protected:
    static constexpr unsigned cFrames = 3000;

    std::vector<Frame> ArrivingFrames() {
        const Loss& loss = GetParam();
        std::mt19937 random(loss.seed);
        // The standard's distributions differ from library to library, this does not.
        const auto isChosen = [&](double share) {
            return static_cast<double>(random()) < share * 4294967296.0;
        };
        const unsigned choices = (loss.maxBlocks - loss.minBlocks) / loss.step + 1;
        std::vector<Frame> frames;
        frames.reserve(2u * cFrames);
        unsigned block = 0;
        for (unsigned number = 0; number < cFrames; ++number) {
            const unsigned blocks = loss.minBlocks + static_cast<unsigned>(random() % choices) * loss.step;
            const Frame frame = {number, block, blocks};
            block += blocks;
            if (isChosen(loss.dropped)) {
                continue;
            }
            frames.push_back(frame);
            if (isChosen(loss.doubled)) {
                frames.push_back(frame);
            }
            if (frames.size() > 1 && isChosen(loss.swapped)) {
                std::swap(frames.back(), frames[frames.size() - 2]);
            }
        }
        mPackets = block / 8;
        return frames;
    }

    unsigned mPackets = 0; // that were sent whole
};

TEST_P(AvtpLossTest, ForwardsWholePacketsAndResumesWithTheNextFrame) {
    FakeDevice& fake = FakeDevice::Instance();
    fake.Reset();
    const LogCapture log;
    QuaysideEnumerator enumerator;
    unsigned count = 0;
    ASSERT_EQ(enumerator.EnumerateDevices(QBXDeviceType_any, count), KESTATUS_SUCCESS);
    QuaysideDevice device;
    ASSERT_EQ(device.OpenRawRxDevice(enumerator, 0, 0, QBXRawHeaderType_None, 0), KESTATUS_SUCCESS);
    KeepingSink sink;
    AvtpSource source;
    ASSERT_EQ(source.CreateAvtpSource(device, sink, {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}, 0, false),
              KESTATUS_SUCCESS);

    const std::vector<Frame> arriving = ArrivingFrames();
    for (const Frame& frame : arriving) {
        fake.QueueReceivedFrame(frame.Bytes());
    }
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    const auto taken = [&] { return fake.CallCount(Qbx::GetReceivedRawFrame); };
    EXPECT_TRUE(WaitUntil([&] { return taken() > arriving.size(); }, taken));
    source.StopSource();

    EXPECT_EQ(source.QuerryStatistics().infAvtpPacketsReceived, arriving.size());
    const std::vector<unsigned> expected = ExpectedPackets(arriving);
    ASSERT_EQ(sink.mPackets.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(sink.mPackets[i], UniquePacket(expected[i])) << "packet " << i;
    }
    std::size_t jumps = 0;
    for (std::size_t i = 1; i < arriving.size(); ++i) {
        jumps += arriving[i].number != arriving[i - 1].number + 1 ? 1u : 0u;
    }
    EXPECT_EQ(log.CountContaining(KEWARN, "sequence number mismatch"), jumps);
    if (jumps == 0) {
        EXPECT_EQ(expected.size(), mPackets);
    } else {
        // The loss was a real one, and something did arrive.
        EXPECT_GT(jumps, cFrames / 200);
        EXPECT_GT(expected.size(), mPackets / 20);
    }
}

INSTANTIATE_TEST_SUITE_P(Lossy, AvtpLossTest,
                         testing::Values(Loss{"NothingLost", 1, 8, 56, 8, 0, 0, 0},
                                         Loss{"NothingLostAnyCut", 2, 1, 61, 1, 0, 0, 0},
                                         Loss{"WholePacketsDropped", 3, 8, 56, 8, 0.05, 0, 0},
                                         Loss{"AnyCutDropped", 4, 1, 61, 1, 0.05, 0, 0},
                                         Loss{"SmallPieces", 5, 1, 7, 1, 0.02, 0, 0},
                                         Loss{"FullFramesDoubled", 6, 56, 56, 8, 0, 0.1, 0},
                                         Loss{"AnyCutSwapped", 7, 1, 61, 1, 0, 0, 0.1},
                                         Loss{"AllOfIt", 8, 1, 61, 1, 0.1, 0.1, 0.1},
                                         Loss{"HalfLost", 9, 1, 61, 1, 0.5, 0.2, 0.2},
                                         Loss{"WholePacketsAllOfIt", 10, 8, 56, 8, 0.2, 0.2, 0.2}),
                         [](const auto& row) { return row.param.name; });

} // namespace

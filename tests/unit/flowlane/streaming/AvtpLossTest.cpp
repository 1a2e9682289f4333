// A stream whose frames are dropped, doubled and swapped at random on their way. What the AVTP source
// forwards is compared with a plain model of the stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <vector>

#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "WaitUntil.h"
#include "streaming/AvtpFrameBuilder.h"
#include "streaming/AvtpSource.h"
#include "streaming/RecordingSink.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

constexpr unsigned cHeaders = 14 + 24 + 8;
constexpr unsigned cBlockBytes = 24;

// The bytes of a packet differ everywhere from those of the others, so that a mixed packet would be seen.
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

// A frame of data blocks, which are numbered from the start of the stream, eight per packet.
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

// The numbers of the packets that must come out: those whose eight blocks are in one frame, or in frames that
// arrived one directly after the other.
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
    unsigned step;      // block counts are multiples of this
    double dropped = 0; // the share of the frames
    double doubled = 0;
    double swapped = 0; // with the frame before
};

void PrintTo(const Loss& loss, std::ostream* stream) {
    *stream << loss.name;
}

class AvtpLossTest : public FakeDeviceTest, public testing::WithParamInterface<Loss> {
protected:
    static constexpr unsigned cFrames = 3000;

    std::vector<Frame> ArrivingFrames() {
        const Loss& loss = GetParam();
        std::mt19937 random(loss.seed);
        // The distributions of the standard differ from library to library; this does not.
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
    OpenToReceive();
    const LogCapture log;
    RecordingSink sink;
    AvtpSource source;
    ASSERT_EQ(source.CreateAvtpSource(mDevice, sink, {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}, 0, false),
              KESTATUS_SUCCESS);

    const std::vector<Frame> arriving = ArrivingFrames();
    for (const Frame& frame : arriving) {
        mFake.QueueReceivedFrame(frame.Bytes());
    }
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    const auto taken = [&] { return mFake.CallCount(Qbx::GetReceivedRawFrame); };
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
    EXPECT_EQ(source.QuerryStatistics().errGaps, jumps);
    if (jumps == 0) {
        EXPECT_EQ(expected.size(), mPackets);
    } else {
        // The loss was a real one, and something did arrive.
        EXPECT_GT(jumps, cFrames / 200);
        EXPECT_GT(expected.size(), mPackets / 20);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lossy, AvtpLossTest,
    testing::Values(
        Loss{.name = "NothingLost", .seed = 1, .minBlocks = 8, .maxBlocks = 56, .step = 8},
        Loss{.name = "NothingLostAnyCut", .seed = 2, .minBlocks = 1, .maxBlocks = 61, .step = 1},
        Loss{.name = "WholePacketsDropped",
             .seed = 3,
             .minBlocks = 8,
             .maxBlocks = 56,
             .step = 8,
             .dropped = 0.05},
        Loss{.name = "AnyCutDropped", .seed = 4, .minBlocks = 1, .maxBlocks = 61, .step = 1, .dropped = 0.05},
        Loss{.name = "SmallPieces", .seed = 5, .minBlocks = 1, .maxBlocks = 7, .step = 1, .dropped = 0.02},
        Loss{.name = "FullFramesDoubled",
             .seed = 6,
             .minBlocks = 56,
             .maxBlocks = 56,
             .step = 8,
             .doubled = 0.1},
        Loss{.name = "AnyCutSwapped", .seed = 7, .minBlocks = 1, .maxBlocks = 61, .step = 1, .swapped = 0.1},
        Loss{.name = "AllOfIt",
             .seed = 8,
             .minBlocks = 1,
             .maxBlocks = 61,
             .step = 1,
             .dropped = 0.1,
             .doubled = 0.1,
             .swapped = 0.1},
        Loss{.name = "HalfLost",
             .seed = 9,
             .minBlocks = 1,
             .maxBlocks = 61,
             .step = 1,
             .dropped = 0.5,
             .doubled = 0.2,
             .swapped = 0.2},
        Loss{.name = "WholePacketsAllOfIt",
             .seed = 10,
             .minBlocks = 8,
             .maxBlocks = 56,
             .step = 8,
             .dropped = 0.2,
             .doubled = 0.2,
             .swapped = 0.2}),
    [](const auto& row) { return row.param.name; });

} // namespace

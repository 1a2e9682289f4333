// Files that are cut at any byte, and files with any values in their length fields: the replay always ends,
// and sends only whole packets of the file, in their order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "ByteList.h"
#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "base/KEByteOrder.h"
#include "capture/PcapNgFileReader.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

const ByteList cOptions =
    Concat({LE16(2), LE16(3), {'a', 'b', 'c', 0}, LE16(9), LE16(1), {9, 0, 0, 0}, LE32(0)});

ByteList Packet(unsigned id, unsigned length) {
    return Block(6, Concat({LE32(0),
                            LE64(0),
                            LE32(length),
                            LE32(length),
                            ByteList(length, static_cast<unsigned char>(id)),
                            ByteList((4 - length % 4) % 4, 0),
                            {4, 0, 8, 0, 1, 0, 0, 0, 0, 0, 0, 0},
                            LE32(0)}));
}

// The blocks of a valid file, three of them packets.
std::vector<ByteList> ValidBlocks() {
    const ByteList section =
        Block(0x0A0D0D0A, Concat({LE32(0x1A2B3C4D), LE16(1), LE16(0), LE64(~std::uint64_t{0}), LE32(0)}));
    const ByteList interface = Block(1, Concat({LE16(1), LE16(0), LE32(0), cOptions}));
    return {section,       interface, Packet(1, 60), Block(5, ByteList(20, 0)),
            Packet(2, 61), section,   interface,     Packet(3, 15)};
}

class PcapNgHostileFileTest : public FakeDeviceTest {
protected:
    struct Result {
        KESTATUS start = KESTATUS_SUCCESS;
        bool isError = false;
        std::vector<FakeFrame> frames;
        PcapNgFileReader::Statistics stats;
    };

    Result Replay(const ByteList& bytes) {
        OpenToSend();
        const std::string path = mFolder / "file.pcapng";
        mFolder.Write("file.pcapng", {bytes.begin(), bytes.end()});
        VirtualClock clock;
        PcapNgFileReader reader(clock);
        Result result;
        // One frame, so that it reads on only when that has been sent.
        result.start = reader.StartFileReader(path.c_str(), 1, mDevice, 1, 1522, false, false, false);
        if (result.start == KESTATUS_SUCCESS) {
            EXPECT_TRUE(WaitUntil([&] { return reader.AreAllFramesSent() || reader.IsInErrorState(); }));
            result.isError = reader.IsInErrorState();
            reader.StopFileReader();
        }
        reader.QuerryStatistics(result.stats);
        result.frames = mFake.SubmittedFrames();
        return result;
    }

    const LogCapture mLog{logger::Global, KEFATAL}; // the others are many
    TemporaryFolder mFolder;
};

TEST_F(PcapNgHostileFileTest, EveryTruncation) {
    const std::vector<ByteList> blocks = ValidBlocks();
    ByteList whole;
    std::vector<std::size_t> ends;
    std::vector<std::size_t> packetEnds;
    for (const ByteList& block : blocks) {
        whole = Concat({whole, block});
        ends.push_back(whole.size());
        if (block[0] == 6) {
            packetEnds.push_back(whole.size());
        }
    }
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        const Result result = Replay({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
        std::size_t packets = 0;
        std::size_t lastEnd = 0;
        for (const std::size_t end : packetEnds) {
            packets += end <= length ? 1u : 0u;
        }
        for (const std::size_t end : ends) {
            lastEnd = end <= length ? end : lastEnd;
        }
        const bool endsWithinABlock = length - lastEnd >= 8; // less is no block's header
        ASSERT_EQ(result.frames.size(), packets);
        if (packets == 0) {
            ASSERT_EQ(result.start, length == 0 ? KESTATUS_NO_DATA : KESTATUS_INVALID_FILE);
        } else {
            ASSERT_EQ(result.start, KESTATUS_SUCCESS);
            ASSERT_EQ(result.isError, endsWithinABlock);
            ASSERT_EQ(result.stats.errReadFileFailed, endsWithinABlock ? 1u : 0u);
        }
    }
}

TEST_F(PcapNgHostileFileTest, EveryLengthField) {
    const std::vector<ByteList> blocks = ValidBlocks();
    unsigned files = 0;
    for (std::size_t changed = 0; changed < blocks.size(); ++changed) {
        std::vector<std::pair<std::size_t, unsigned>> fields = {{4, 4}, {blocks[changed].size() - 4, 4}};
        if (blocks[changed][0] == 6) {
            fields.insert(fields.end(), {{20, 4}, {24, 4}, {blocks[changed].size() - 18, 2}});
        } else if (blocks[changed][0] == 1) {
            fields.insert(fields.end(), {{18, 2}, {26, 2}});
        }
        for (const auto& [place, width] : fields) {
            const std::uint32_t old = width == 4
                                          ? KELoadNative<std::uint32_t>(blocks[changed].data() + place)
                                          : KELoadNative<std::uint16_t>(blocks[changed].data() + place);
            for (const std::uint32_t value : {0u, 4u, 7u, 8u, old - 4, old - 3, old - 2, old - 1, old + 1,
                                              old + 2, old + 3, old + 4, 0x7FFFFFFFu, 0xFFFFFFFFu, 0xFFFDu}) {
                SCOPED_TRACE(testing::Message()
                             << "block " << changed << ", place " << place << ", " << value);
                ByteList bytes;
                for (std::size_t i = 0; i < blocks.size(); ++i) {
                    ByteList block = blocks[i];
                    if (i == changed) {
                        const ByteList field = width == 4 ? LE32(value) : LE16(value);
                        std::copy(field.begin(), field.end(),
                                  block.begin() + static_cast<std::ptrdiff_t>(place));
                    }
                    bytes = Concat({bytes, block});
                }
                const Result result = Replay(bytes);
                ++files;
                // In their order, and unchanged but for one with another length.
                unsigned last = 0;
                for (const FakeFrame& frame : result.frames) {
                    ASSERT_GE(frame.size(), 14u);
                    ASSERT_GT(frame[0], last);
                    ASSERT_LE(frame[0], 3u);
                    last = frame[0];
                }
                // Missing packets are counted.
                if (result.start == KESTATUS_SUCCESS && result.frames.size() < 3) {
                    ASSERT_GT(result.stats.TotalErrorsOccurred(), 0u);
                }
            }
        }
    }
    EXPECT_GT(files, 300u);
}

} // namespace

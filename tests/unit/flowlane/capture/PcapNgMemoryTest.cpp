// The memory that a file takes when it is parsed and replayed is bounded by its size, whatever its contents.
// A capture that finds no memory does not start.

#include <gtest/gtest.h>

#include <string>

#include "ByteList.h"
#include "CountedAllocations.h"
#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "OperatorNew.h"
#include "TemporaryFolder.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "capture/PcapNgFileReader.h"
#include "capture/PcapNgFileWriter.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

constexpr std::size_t cOverlap = 65540; // of one option of the longest value

// So many bytes of one option after the other.
ByteList Repeated(const ByteList& option, std::size_t size) {
    ByteList bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = option[i % option.size()];
    }
    return bytes;
}
// Each has a value of 65535 bytes but a span of 4, so that it overlaps the next.
ByteList Overlapping(std::size_t size) {
    return Repeated({2, 0, 0xFF, 0xFF}, size);
}

ByteList Section(const ByteList& options) {
    return Block(0x0A0D0D0A, Concat({LE32(0x1A2B3C4D), LE16(1), LE16(0), LE64(~std::uint64_t{0}), options}));
}
ByteList Interface(const ByteList& options) {
    return Block(1, Concat({LE16(1), LE16(0), LE32(0), options}));
}
ByteList Packet(const ByteList& options) {
    return Block(6, Concat({LE32(0), LE64(0), LE32(60), LE32(60), ByteList(60, 7), options}));
}

class PcapNgMemoryTest : public FakeDeviceTest, public testing::WithParamInterface<std::size_t> {
protected:
    const LogCapture mLog{logger::Global, KEFATAL}; // the others are kept, which takes memory
};

template <typename BlockClass>
std::size_t BytesToParse(KESTATUS (BlockClass::*parse)(KEConstBufferReference), const ByteList& bytes) {
    BlockClass block;
    const std::size_t before = AllocatedBytes();
    EXPECT_EQ((block.*parse)(View(bytes)), KESTATUS_SUCCESS);
    EXPECT_LE(block.TotalOptionsLength(), bytes.size() + cOverlap + 4);
    EXPECT_GT(block.TotalOptionsLength(), bytes.size() / 2);
    return AllocatedBytes() - before;
}

TEST_P(PcapNgMemoryTest, OptionsThatOverlap) {
    const ByteList options = Overlapping(GetParam());
    const std::size_t limit = 2 * GetParam() + cOverlap;
    EXPECT_LE(BytesToParse(&PcapNgSectionHeaderBlock::InitSectionHeaderBlock, Section(options)), limit);
    EXPECT_LE(BytesToParse(&PcapNgInterfaceDescBlock::InitInterfaceDescBlock, Interface(options)), limit);
    EXPECT_LE(BytesToParse(&PcapNgEnhPacketBlock::InitEnhPacketBlock, Packet(options)), limit);
}

TEST_P(PcapNgMemoryTest, OptionsWithoutAValue) {
    const ByteList options = Repeated({2, 0, 0, 0}, GetParam());
    EXPECT_LE(BytesToParse(&PcapNgInterfaceDescBlock::InitInterfaceDescBlock, Interface(options)),
              24 * GetParam());
}

TEST_P(PcapNgMemoryTest, ReplayOfAFile) {
    OpenToSend();
    const TemporaryFolder folder;
    const ByteList options = Overlapping(GetParam());
    const ByteList bytes = Concat({Section(options), Interface(options), Packet(options)});
    folder.Write("file.pcapng", {bytes.begin(), bytes.end()});
    const std::size_t before = AllocatedBytes();
    VirtualClock clock;
    PcapNgFileReader reader(clock);
    ASSERT_EQ(
        reader.StartFileReader((folder / "file.pcapng").c_str(), 1, mDevice, 10, 1522, false, false, false),
        KESTATUS_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return reader.AreAllFramesSent() || reader.IsInErrorState(); }));
    reader.StopFileReader();
    EXPECT_LE(AllocatedBytes() - before, 4 * bytes.size() + 4 * cOverlap);
    EXPECT_EQ(mFake.SentFrameCount(), 1u); // and the packet is sent
}

INSTANTIATE_TEST_SUITE_P(Sizes, PcapNgMemoryTest, testing::Values(100'000, 1'000'000));

using PcapNgScarceMemoryTest = FakeDeviceTest;

// Memory runs short at each of its allocations in turn: the start fails with that status and leaves a writer
// that can be started.
TEST_F(PcapNgScarceMemoryTest, StartOfTheWriter) {
    FLOWLANE_NEEDS_OPERATOR_NEW();
    OpenToReceive(QBXRawHeaderType_2);
    mFake.SetRecording(false);
    const LogCapture log(logger::Global, KEFATAL);
    const TemporaryFolder folder;
    const std::string name = folder / "a name that is too long for the place of a short one";
    PcapNgFileWriter writer;
    const auto start = [&](std::size_t allocations) {
        const ScarceMemory scarce(allocations);
        return writer.StartFileWriter(name.c_str(), mDevice, 10, 1538, 0);
    };
    std::size_t failures = 0;
    KESTATUS st = KESTATUS_SUCCESS;
    while ((st = start(failures)) == KESTATUS_NO_MEMORY && failures < 100) {
        EXPECT_EQ(writer.GetRawFrame(), nullptr);
        ++failures;
    }
    ASSERT_EQ(st, KESTATUS_SUCCESS);
    EXPECT_GT(failures, 5u);
    RawFrame* const frame = writer.GetRawFrame();
    ASSERT_NE(frame, nullptr) << "after " << failures; // a success has frames
    writer.ReleaseRawFrame(frame);
    writer.StopFileWriter();
    EXPECT_EQ(log.CountContaining(KEFATAL, ""), 0u);
}

} // namespace

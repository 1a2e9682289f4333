#include "ReplayFixture.h"

#include "WaitUntil.h"

namespace testsupport {

void ReplayTest::WaitForEnd() {
    ASSERT_TRUE(WaitUntil([&] { return mReader.AreAllFramesSent() || mReader.IsInErrorState(); },
                          [&] { return mLog.Messages(); }));
    mReader.StopFileReader();
}

void ReplayTest::Replay(const ByteList& bytes) {
    Write("file.pcapng", bytes);
    ASSERT_EQ(Start(), KESTATUS_SUCCESS);
    WaitForEnd();
}

std::vector<unsigned> ReplayTest::SentPackets() const {
    std::vector<unsigned> numbers;
    for (const FakeFrame& frame : mFake.SubmittedFrames()) {
        numbers.push_back(frame.back());
    }
    return numbers;
}

ReplayTest::Statistics ReplayTest::Stats() const {
    Statistics stats;
    mReader.QuerryStatistics(stats);
    return stats;
}

} // namespace testsupport

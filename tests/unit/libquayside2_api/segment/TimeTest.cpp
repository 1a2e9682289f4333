// The times of frames that were stamped and sent by several senders, by ones that were held up, and by ones
// whose clock was set back.
#include <optional>

#include "SegmentFixture.h"
#include "common/Clock.h"
#include "segment/RingWriter.h"
#include "segment/SegmentPort.h"

namespace {

using namespace testsupport;

using quayside2::TimeOfDay;

constexpr std::uint64_t cSecond = 1'000'000'000;
constexpr std::uint64_t cHour = 3600 * cSecond;

// Sends with times that the test says.
class StampingSender {
public:
    StampingSender(const std::string& path, unsigned lane) {
        EXPECT_EQ(mPort.Open(path, lane - 1, quayside2::segment::SegmentPort::Rings::Own), KESTATUS_SUCCESS);
        mWriter.emplace(mPort.OwnRing(), mPort.OwnSender());
    }
    void Send(std::uint64_t time) {
        const Bytes frame = MakeFrame(60, 1);
        if (mWriter->ReclaimWanted() > mWriter->Reclaimed()) {
            mWriter->Reclaim(mWriter->ReclaimWanted());
        }
        mWriter->Append(frame.data(), 60);
        mWriter->Publish(time);
    }

private:
    quayside2::segment::SegmentPort mPort;
    std::optional<quayside2::segment::RingWriter> mWriter;
};

class TimeTest : public SegmentFixture {
protected:
    static std::uint64_t TimeOfNext(QBXDeviceHandle rx) {
        const auto received = Receive(rx);
        return received ? received->time : 0;
    }
};

TEST_F(TimeTest, AFrameThatComesLateHasTheTimeOfTheOneBeforeIt) {
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    StampingSender one(SegmentFilePath(), 1);
    StampingSender other(SegmentFilePath(), 2);
    const std::uint64_t now = TimeOfDay();
    one.Send(now);
    EXPECT_EQ(TimeOfNext(rx), now);
    for (const std::uint64_t late : {std::uint64_t{1}, cSecond / 1000, cSecond, cHour}) {
        other.Send(now - late); // stamped, then held up while the other one sent
        EXPECT_EQ(TimeOfNext(rx), now) << late;
    }
    one.Send(now + 1);
    EXPECT_EQ(TimeOfNext(rx), now + 1);
}

TEST_F(TimeTest, AClockThatIsSetBackShows) {
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    StampingSender one(SegmentFilePath(), 1);
    StampingSender other(SegmentFilePath(), 2);
    const std::uint64_t now = TimeOfDay();
    one.Send(now + cHour); // before the clock was set back by an hour
    EXPECT_EQ(TimeOfNext(rx), now + cHour);
    one.Send(now);
    EXPECT_EQ(TimeOfNext(rx), now);
    other.Send(now + 1);
    EXPECT_EQ(TimeOfNext(rx), now + 1);
    other.Send(now);
    EXPECT_EQ(TimeOfNext(rx), now + 1) << "late again";
}

TEST_F(TimeTest, EnablingForgetsTheLastTime) {
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    StampingSender one(SegmentFilePath(), 1);
    const std::uint64_t now = TimeOfDay();
    one.Send(now);
    EXPECT_EQ(TimeOfNext(rx), now);
    QBX_DisableRawRx(rx);
    QBX_EnableRawRx(rx);
    one.Send(now - 1);
    EXPECT_EQ(TimeOfNext(rx), now - 1);
}

// A frame whose time is far ahead does not wait until that time has come.
TEST_F(TimeTest, AClockThatIsAheadHoldsNoFrameUpForEver) {
    constexpr std::uint32_t cEnough = 400000; // frames of the shortest kind in two rings, and more
    const QBXDeviceHandle rx = OpenEnabledRx(4);
    StampingSender ahead(SegmentFilePath(), 1);
    StampingSender right(SegmentFilePath(), 2);
    const std::uint64_t now = TimeOfDay();
    ahead.Send(now + cHour);
    std::uint32_t frames = 0;
    std::uint64_t time = 0;
    while (time < now + cHour && frames < cEnough) {
        right.Send(now);
        time = TimeOfNext(rx);
        ++frames;
    }
    EXPECT_LT(frames, cEnough);
    EXPECT_EQ(TimeOfNext(rx), now) << "the others go on with theirs";
}

} // namespace

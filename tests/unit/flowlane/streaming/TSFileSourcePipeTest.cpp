// The file source when its file is a pipe: it waits for data, and can be stopped all the same.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "TemporaryFolder.h"
#include "streaming/TSFileSourceFixture.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;

using TSFileSourcePipeTest = TSFileSourceTest;

namespace {

// A pipe that the test writes into.
class TestPipe {
public:
    TestPipe() {
        EXPECT_EQ(mkfifo(mPath.c_str(), 0600), 0);
        mWriter = open(mPath.c_str(), O_RDWR); // does not wait for a reader
        EXPECT_GE(mWriter, 0);
    }
    ~TestPipe() { Close(); }
    TestPipe(const TestPipe&) = delete;
    TestPipe& operator=(const TestPipe&) = delete;

    const char* Path() const { return mPath.c_str(); }
    void Write(const std::vector<std::uint8_t>& bytes) const {
        EXPECT_EQ(write(mWriter, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // The reader finds the end of the file.
    void Close() {
        if (mWriter >= 0) {
            close(mWriter);
            mWriter = -1;
        }
    }

private:
    const TemporaryFolder mFolder;
    const std::string mPath = mFolder / "pipe";
    int mWriter = -1;
};

} // namespace

// The packets are timed from the moment at which the first reference was read, not from the start.
TEST_F(TSFileSourcePipeTest, TheTimeBaseIsTheClockWhenTheFirstPCRIsRead) {
    TestPipe pipe;
    ASSERT_EQ(Create(pipe.Path(), false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mClock.Sleep(70);
    pipe.Write(TSStream().PCR(0).Bad().Bytes());
    ASSERT_TRUE(WaitUntil([&] { return mLog.Count(KEWARN, "ignore invalid TS packet") == 1; }));
    mClock.Sleep(30);
    pipe.Write(TSStream().Plain(2).PCR(900).Bytes());
    pipe.Close();
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    ASSERT_EQ(mSink.mDeliveries.size(), 3u);
    EXPECT_EQ(mSink.mDeliveries.front().deliverTime, cStart + 570 * cMs);
}

TEST_F(TSFileSourcePipeTest, APipeThatStaysSilentIsWaitedForAndStaysStoppable) {
    const TestPipe pipe;
    TSFileSource source; // in real time
    ASSERT_EQ(source.CreateTSFileSource(pipe.Path(), mSink, false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(source.StartSource(), KESTATUS_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(source.IsEndOfFileReached());
    source.StopSource();
    EXPECT_EQ(source.FailureStatus(), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), ElementsAre());
}

// The rest of the frame may never come.
TEST_F(TSFileSourcePipeTest, WithPreciseTimingAPartOfAFrameLeavesWithoutMoreData) {
    const TestPipe pipe;
    mSource.SetPreciseTiming(7);
    ASSERT_EQ(Create(pipe.Path(), false, 100), KESTATUS_SUCCESS);
    pipe.Write(TSStream().PCR(0).Plain(2).PCR(360).Bytes()); // 4 steps of 1 ms
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    mClock.Sleep(509);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(mSink.mDeliverCalls.load(), 0u); // the first packet was due 9 ms before
    mClock.Sleep(1);
    EXPECT_TRUE(WaitUntil([&] { return mSink.mDeliverCalls.load() == 3; }));
    mSource.StopSource();
    EXPECT_THAT(mSink.mBatches, ElementsAre(3u));
}

// The writer cuts the stream anywhere.
TEST_F(TSFileSourcePipeTest, AllPacketsOfAPipeArePlayed) {
    TestPipe pipe;
    ASSERT_EQ(Create(pipe.Path(), false, 100), KESTATUS_SUCCESS);
    ASSERT_EQ(mSource.StartSource(), KESTATUS_SUCCESS);
    const std::vector<std::uint8_t> bytes = cTenPackets.Bytes();
    for (std::size_t start = 0; start < bytes.size(); start += 150) {
        const std::size_t end = std::min(start + 150, bytes.size());
        pipe.Write({bytes.begin() + static_cast<std::ptrdiff_t>(start),
                    bytes.begin() + static_cast<std::ptrdiff_t>(end)});
        std::this_thread::sleep_for(std::chrono::milliseconds(start % 4 == 0 ? 15 : 0));
    }
    pipe.Close();
    ASSERT_TRUE(WaitForMessage("stop thread"));
    mSource.StopSource();
    EXPECT_THAT(Ordinals(), ElementsAre(0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u));
    EXPECT_TRUE(mSource.IsEndOfFileReached());
}

// The pipe holds a part of a packet. Reading the rest waits, and a signal makes the read fail.
TEST_F(TSFileSourcePipeTest, AStartThatFailsGivesThePacketsBack) {
    const TestPipe pipe;
    pipe.Write(TSStream().PCR(0).Plain(3).PCR(900).Plain(2).PartialPacket(100).Bytes());
    struct sigaction action {};
    struct sigaction oldAction {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &oldAction), 0);

    {
        TSFileSource source(mClock);
        ASSERT_EQ(source.CreateTSFileSource(pipe.Path(), mSink, false, 100), KESTATUS_SUCCESS);
        std::atomic<bool> isOver{false};
        std::thread interrupter([&isOver, reader = pthread_self()] {
            while (!isOver.load()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                pthread_kill(reader, SIGUSR1);
            }
        });
        EXPECT_EQ(source.StartSource(), KESTATUS_READ_FILE_FAILED);
        EXPECT_EQ(source.ReadFailure(), KEStatusFromErrno(EINTR));
        isOver.store(true);
        interrupter.join();
        EXPECT_EQ(source.DeliverPackets(TSPacketTimePoint::max()), KESTATUS_SUCCESS);
    }
    EXPECT_TRUE(mSink.mDeliveries.empty());
    // No message about packets that were not given back.
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(
            CapturedMessage{KEERROR, "ReadFromFile failed"},
            CapturedMessage{KEERROR, "FillDeliverQueue failed, st=0xe0000091(KESTATUS_READ_FILE_FAILED)"}));
    sigaction(SIGUSR1, &oldAction, nullptr);
}

TEST_F(TSFileSourcePipeTest, APipeCannotBeReadAgain) {
    TestPipe pipe;
    ASSERT_EQ(Create(pipe.Path(), true, 100), KESTATUS_SUCCESS);
    pipe.Write(cTenPackets.Bytes());
    pipe.Close();
    EXPECT_EQ(mSource.StartSource(), KESTATUS_READ_FILE_FAILED);
    EXPECT_EQ(mSource.ReadFailure(), KEStatusFromErrno(ESPIPE));
}

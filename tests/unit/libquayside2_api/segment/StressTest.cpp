// Whole processes that send and receive checked frames while they are killed, stopped and continued.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <random>
#include <thread>

#include "ChildProcess.h"
#include "SanitizedBuild.h"
#include "SegmentFixture.h"

namespace {

using namespace testsupport;

constexpr std::uint32_t cSeed = 20261120;

class StressTest : public SegmentFixture {
protected:
    struct Summary {
        unsigned long long frames = 0;
        unsigned long long missing = 0;
        unsigned long long runs = 0;
        unsigned long long errors = 0;
    };
    // Reads and checks the last line of lane-check.
    static Summary Finish(ChildProcess& check) {
        Summary summary;
        const std::string line = check.ReadLine();
        EXPECT_EQ(std::sscanf(line.c_str(), "%llu frames, %llu missing, %llu runs, %llu errors", // NOLINT
                              &summary.frames, &summary.missing, &summary.runs, &summary.errors),
                  4)
            << line;
        EXPECT_EQ(summary.errors, 0u) << line;
        EXPECT_EQ(check.Wait(), 0);
        return summary;
    }
    static void SleepFor(unsigned long milliseconds) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
};

TEST_F(StressTest, ManyFramesBetweenTwoProcesses) {
    constexpr unsigned cFrames = cSanitizedBuild ? 100000 : 300000;
    ChildProcess check(LANE_CHECK_PATH, {"-n", "lane-2", "-e", std::to_string(cFrames - 1), "-t", "120"});
    ASSERT_EQ(check.ReadLine(), "ready");
    ChildProcess send(LANE_SEND_PATH, {"-n", "lane-1", "-c", std::to_string(cFrames)});
    const Summary summary = Finish(check);
    EXPECT_EQ(summary.frames, cFrames);
    EXPECT_EQ(summary.missing, 0u);
    EXPECT_EQ(send.Wait(), 0);
}

TEST_F(StressTest, TwoReceiversGetEverythingAndThePaceOfTheSlower) {
    constexpr unsigned cFrames = cSanitizedBuild ? 50000 : 100000;
    const std::string last = std::to_string(cFrames - 1);
    ChildProcess first(LANE_CHECK_PATH, {"-n", "lane-2", "-e", last, "-t", "120"});
    ChildProcess second(LANE_CHECK_PATH, {"-n", "lane-3", "-e", last, "-t", "120"});
    ASSERT_EQ(first.ReadLine(), "ready");
    ASSERT_EQ(second.ReadLine(), "ready");
    ChildProcess send(LANE_SEND_PATH, {"-n", "lane-4", "-c", std::to_string(cFrames), "-b", "64"});
    for (ChildProcess* const check : {&first, &second}) {
        const Summary summary = Finish(*check);
        EXPECT_EQ(summary.frames, cFrames);
        EXPECT_EQ(summary.missing, 0u);
    }
    EXPECT_EQ(send.Wait(), 0);
}

TEST_F(StressTest, SendersKilledAtRandomMoments) {
    constexpr unsigned cRounds = 50;
    std::printf("seed %u\n", cSeed);
    std::mt19937 random(cSeed);
    ChildProcess check(LANE_CHECK_PATH, {"-n", "lane-2", "-t", "130"});
    ASSERT_EQ(check.ReadLine(), "ready");
    for (unsigned round = 0; round < cRounds; ++round) {
        // Runs differ in size of the batches, so that death comes in every phase of sending.
        ChildProcess send(LANE_SEND_PATH, {"-n", "lane-1", "-c", "0", "-i", std::to_string(round + 1), "-b",
                                           std::to_string(1 + random() % 64)});
        ASSERT_EQ(send.ReadLine(), "ready");
        SleepFor(random() % 40);
        send.Signal(SIGKILL);
        EXPECT_EQ(send.Wait(), -SIGKILL);
    }
    ChildProcess last(LANE_SEND_PATH, {"-n", "lane-1", "-c", "1000", "-i", "1000"});
    EXPECT_EQ(last.Wait(), 0);
    SleepFor(100);
    check.Signal(SIGTERM);
    const Summary summary = Finish(check);
    EXPECT_GT(summary.runs, 1u);
    EXPECT_GT(summary.frames, 1000u);
    EXPECT_EQ(summary.missing, 0u) << "what was sent was delivered";
}

TEST_F(StressTest, ReceiversKilledAtRandomMoments) {
    constexpr unsigned cRounds = 50;
    std::printf("seed %u\n", cSeed);
    std::mt19937 random(cSeed);
    ChildProcess send(LANE_SEND_PATH, {"-n", "lane-1", "-c", "0", "-b", "64"});
    ASSERT_EQ(send.ReadLine(), "ready");
    for (unsigned round = 0; round < cRounds; ++round) {
        ChildProcess check(LANE_CHECK_PATH, {"-n", "lane-2", "-t", "130"});
        ASSERT_EQ(check.ReadLine(), "ready");
        SleepFor(random() % 40);
        check.Signal(SIGKILL);
        EXPECT_EQ(check.Wait(), -SIGKILL);
        ASSERT_TRUE(send.IsRunning());
    }
    ChildProcess check(LANE_CHECK_PATH, {"-n", "lane-2", "-t", "1"});
    ASSERT_EQ(check.ReadLine(), "ready");
    const Summary summary = Finish(check);
    EXPECT_GT(summary.frames, 1000u) << "the sender still sends";
    EXPECT_EQ(summary.missing, 0u);
}

TEST_F(StressTest, AStoppedReceiverHoldsNobodyUpAndSeesItsLoss) {
    ChildProcess stopped(LANE_CHECK_PATH, {"-n", "lane-2", "-t", "130"});
    ChildProcess running(LANE_CHECK_PATH, {"-n", "lane-3", "-t", "130"});
    ASSERT_EQ(stopped.ReadLine(), "ready");
    ASSERT_EQ(running.ReadLine(), "ready");
    ChildProcess send(LANE_SEND_PATH, {"-n", "lane-1", "-c", "0", "-b", "64"});
    ASSERT_EQ(send.ReadLine(), "ready");
    for (int round = 0; round < 3; ++round) {
        SleepFor(100);
        stopped.Signal(SIGSTOP);
        SleepFor(300);
        stopped.Signal(SIGCONT);
    }
    SleepFor(300);
    send.Signal(SIGKILL);
    send.Wait();
    SleepFor(200);
    stopped.Signal(SIGTERM);
    running.Signal(SIGTERM);
    const Summary ofStopped = Finish(stopped);
    const Summary ofRunning = Finish(running);
    EXPECT_GT(ofStopped.missing, 0u);
    EXPECT_GT(ofStopped.frames, 1000u);
    EXPECT_EQ(ofRunning.missing, 0u) << "the other one loses nothing";
    EXPECT_EQ(ofStopped.frames + ofStopped.missing, ofRunning.frames);
    // Were the sender held up for all of the 0.9 s, the ring alone would be far less than this.
    EXPECT_GT(ofRunning.frames, 30000u);
}

TEST_F(StressTest, AStoppedSenderHoldsNobodyUp) {
    ChildProcess check(LANE_CHECK_PATH, {"-n", "lane-4", "-t", "130"});
    ASSERT_EQ(check.ReadLine(), "ready");
    std::printf("seed %u\n", cSeed);
    std::mt19937 random(cSeed);
    ChildProcess stopped(LANE_SEND_PATH, {"-n", "lane-1", "-c", "0", "-b", "64"});
    ASSERT_EQ(stopped.ReadLine(), "ready");
    for (int round = 0; round < 20; ++round) {
        SleepFor(random() % 20);
        stopped.Signal(SIGSTOP);
        SleepFor(random() % 20);
        stopped.Signal(SIGCONT);
    }
    stopped.Signal(SIGSTOP);
    SleepFor(200);
    check.Signal(SIGTERM);
    EXPECT_EQ(Finish(check).missing, 0u);
    // Everybody else goes on while the stopped one holds its port.
    ChildProcess second(LANE_CHECK_PATH, {"-n", "lane-2", "-e", "999", "-t", "130"});
    ASSERT_EQ(second.ReadLine(), "ready");
    ChildProcess other(LANE_SEND_PATH, {"-n", "lane-3", "-c", "1000"});
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(Finish(second).frames, 1000u);
}

} // namespace

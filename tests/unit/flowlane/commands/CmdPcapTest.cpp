// What the capture command logs on Global, where its user does not see it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <thread>

#include "FakeDevice.h"
#include "LogCapture.h"
#include "TemporaryFolder.h"
#include "WaitUntil.h"
#include "base/KEByteOrder.h"
#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/Commands.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

TEST(CmdPcapTest, EachFrameWithoutAPoolFrameIsLogged) {
    FakeDevice& fake = FakeDevice::Instance();
    fake.Reset();
    const TemporaryFolder folder;
    gCmdLine = CmdLine();
    gCmdLine.mArgs = {folder / "file"};
    gCmdLine.mFrameCount = 0;
    LogCapture log;
    const LogCapture console(logger::Cons);
    constexpr std::uint32_t cFrames = 7;
    for (std::uint32_t number = 0; number < cFrames; ++number) {
        FakeFrame frame(16 + 60, 7);
        KEStoreNative<std::uint32_t>(frame.data() + 12, number);
        fake.QueueReceivedFrame(frame);
    }
    const char* const line = "Frame pool exhausted, discard the received frame";
    std::atomic<bool> hasEnded{false};
    std::thread user([&] {
        EXPECT_TRUE(WaitUntil([&] { return log.Count(KEWARN, line) == cFrames || hasEnded; }));
        if (!hasEnded) {
            kill(getpid(), SIGTERM);
        }
    });
    EXPECT_EQ(CmdPcap(), KESTATUS_SUCCESS);
    hasEnded = true;
    user.join();
    gCmdLine = CmdLine();
    EXPECT_EQ(log.Count(KEWARN, line), cFrames);
    EXPECT_GE(console.Count(KEINFO, "0 frames successfully written, 7 frames dropped"), 2u);
    EXPECT_EQ(console.Count(KEINFO, "  Frame pool exhausted:            7"), 1u);
}

} // namespace

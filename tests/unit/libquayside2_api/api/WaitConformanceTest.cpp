// Threads that wait for a frame: time limits, what wakes them and how soon, what waiting costs.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "api/ConformanceFixture.h"

namespace testsupport {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct Woken {
    KESTATUS st;
    steady_clock::duration delay; // from the action on
};

// Waits a generous time on another thread, lets it fall asleep, and then acts.
template <typename Action>
Woken WaitUntil(QBXDeviceHandle device, Action&& action) {
    std::atomic<KESTATUS> st{KESTATUS_PENDING};
    steady_clock::time_point woken;
    std::thread waiter([&] {
        const KESTATUS result = QBX_WaitForRawFrame(device, cGenerousTime);
        woken = steady_clock::now();
        st = result;
    });
    std::this_thread::sleep_for(milliseconds(20)); // so that it sleeps; otherwise it meets the action awake
    EXPECT_EQ(st, KESTATUS_PENDING) << "it did not wait";
    const auto start = steady_clock::now();
    action();
    waiter.join();
    return {st, woken - start};
}

} // namespace

TEST_P(WaitConformance, TimesOut) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    for (const int limit : {0, 1, 30, 250}) {
        const auto start = steady_clock::now();
        EXPECT_EQ(QBX_WaitForRawFrame(rx, limit), KESTATUS_TIMEOUT);
        EXPECT_GE(steady_clock::now() - start, milliseconds(limit));
    }
}

TEST_P(WaitConformance, EndsWithAFrameAndTakesNothing) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    EXPECT_EQ(WaitUntil(rx, [&] { Send(tx, MakeFrame(60, 1)); }).st, KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_WaitForRawFrame(rx, -1), KESTATUS_SUCCESS);
    ExpectNext(rx, MakeFrame(60, 1), 0);
}

TEST_P(WaitConformance, EndsWithDisabling) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    EXPECT_EQ(WaitUntil(rx, [&] { QBX_DisableRawRx(rx); }).st, KESTATUS_NOT_ENABLED);
}

TEST_P(WaitConformance, EndsWithDisablingThoughItIsEnabledAgainAtOnce) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const auto restart = [&] {
        QBX_DisableRawRx(rx);
        QBX_EnableRawRx(rx);
    };
    EXPECT_EQ(WaitUntil(rx, restart).st, KESTATUS_NOT_ENABLED);
    ExpectNothingElse(OpenTx(), rx, 0);
}

TEST_P(WaitConformance, EndsWithClosing) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    EXPECT_EQ(WaitUntil(rx, [&] { EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS); }).st,
              KESTATUS_INVALID_HANDLE);
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_SUCCESS);
}

// A waiting receiver also looks up by itself now and then; being woken is much sooner than that. One round
// that nothing holds up is enough.
TEST_P(WaitConformance, EndsSoon) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    const auto shortestDelay = [&](auto&& action) {
        steady_clock::duration shortest = std::chrono::hours(1);
        for (int round = 0; round < 8; ++round) {
            EXPECT_EQ(QBX_EnableRawRx(rx), KESTATUS_SUCCESS);
            shortest = std::min(shortest, WaitUntil(rx, action).delay);
            while (Get(rx) == KESTATUS_SUCCESS) {
            }
        }
        return shortest;
    };
    EXPECT_LT(shortestDelay([&] { Send(tx, MakeFrame(60, 1)); }), milliseconds(40));
    EXPECT_LT(shortestDelay([&] { QBX_DisableRawRx(rx); }), milliseconds(40));
}

// The limit is far above what it should be; it finds a loop that does not sleep.
TEST_P(WaitConformance, CostsNoProcessorTime) {
    for (const Use use : {Use::Rx, Use::BareRx}) {
        const QBXDeviceHandle rx = OpenEnabledRx(use);
        const std::uint64_t before = ProcessorTime();
        EXPECT_EQ(QBX_WaitForRawFrame(rx, 600), KESTATUS_TIMEOUT);
        EXPECT_LT(ProcessorTime() - before, 100'000'000u);
        QBX_CloseDevice(rx);
    }
}

} // namespace testsupport

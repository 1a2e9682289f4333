// Somebody writes nonsense into the shared memory while it is in use: no crash, no endless call, and all is
// well when that ends. The address sanitizer watches.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <random>
#include <thread>

#include "SegmentFixture.h"
#include "segment/SegmentLayout.h"

namespace {

using namespace testsupport;

using namespace quayside2::segment;

class LiveDamageTest : public SegmentFixture {
protected:
    // The whole file, writable; made by opening a lane once.
    void Map() {
        EXPECT_EQ(TryOpenControl(1), KESTATUS_SUCCESS);
        const int file = open(SegmentFilePath().c_str(), O_RDWR | O_CLOEXEC);
        void* const memory = mmap(nullptr, cFileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ASSERT_NE(memory, MAP_FAILED);
        close(file);
        mMemory = static_cast<std::uint8_t*>(memory);
    }
    ~LiveDamageTest() override {
        if (mMemory) {
            munmap(mMemory, cFileBytes);
        }
    }
    ControlPages& Control() const { return *reinterpret_cast<ControlPages*>(mMemory); }
    Word& WordAt(std::uint64_t offset) const { return *reinterpret_cast<Word*>(mMemory + offset); }

    void ExpectTraffic() {
        const QBXDeviceHandle rx = OpenEnabledRx(2);
        const QBXDeviceHandle tx = OpenTx(1);
        for (std::uint32_t i = 0; i < 100; ++i) {
            Send(tx, MakeFrame(100, static_cast<std::uint8_t>(i)));
            const auto received = Receive(rx);
            ASSERT_TRUE(received) << i;
            ASSERT_EQ(received->frame, MakeFrame(100, static_cast<std::uint8_t>(i)));
        }
        EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    }

    std::uint8_t* mMemory = nullptr;
};

TEST_F(LiveDamageTest, WhileFramesAreSentAndReceived) {
    Map();
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    const QBXDeviceHandle tx = OpenTx(1);
    std::atomic<bool> isOver{false};
    std::thread receiver([&] {
        while (!isOver) {
            QBX_WaitForRawFrame(rx, 10);
            while (!isOver && Get(rx) == KESTATUS_SUCCESS) {
            }
        }
    });
    std::atomic<std::int64_t> longest{0}; // milliseconds in one call
    std::thread sender([&] {
        const Bytes frame = MakeFrame(1000, 1);
        while (!isOver) {
            if (QBX_SubmitRawFrame(tx, frame.data(), 1000, nullptr) == KESTATUS_NO_SPACE) {
                const auto before = std::chrono::steady_clock::now();
                EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_SUCCESS);
                const auto taken = std::chrono::steady_clock::now() - before;
                longest = std::max<std::int64_t>(
                    longest, std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
            }
        }
    });
    std::mt19937_64 random(7);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    const std::uint64_t words = sizeof(ControlPages) / cWordBytes;
    const std::uint64_t firstWord = offsetof(ControlPages, senders) / cWordBytes;
    while (std::chrono::steady_clock::now() < until) {
        const std::uint64_t value = random() >> (random() % 64);
        WordAt((firstWord + random() % (words - firstWord)) * cWordBytes).store(value);
        for (int i = 0; i < 10; ++i) {
            WordAt(cControlBytes + random() % (cPortCount * cRingBytes) / cWordBytes * cWordBytes)
                .store(value);
        }
    }
    isOver = true;
    sender.join();
    receiver.join();
    EXPECT_LT(longest.load(), 10000);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS);
    ExpectTraffic();
}

// The numbers of enablings and wake-ups begin again at 0.
TEST_F(LiveDamageTest, CountersThatBeginAgain) {
    Map();
    for (ReceiverState& receiver : Control().receivers) {
        receiver.epoch.store(0xFFFFFFFD);
        receiver.wakeWord.store(0xFFFFFFFE);
    }
    for (SenderState& sender : Control().senders) {
        sender.roomWord.store(0xFFFFFFFE);
    }
    for (int round = 0; round < 5; ++round) {
        ExpectTraffic();
    }
    EXPECT_LT(Control().receivers[1].epoch.load(), 100u) << "it has not begun again";
}

} // namespace

// System calls that fail when the test says so: this program has its own sendmmsg, setsockopt, eventfd and
// getifaddrs, which the library meets before those of the system.
#include <dlfcn.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

#include "netif/NetifFixture.h"

namespace {

using namespace testsupport;

// What a call answers instead of doing its work: an errno value, 0 to do it. Set while no call is made.
std::function<int()> gSendError;                           // NOLINT(cert-err58-cpp)
std::function<int(const tpacket_req3&)> gReceiveRingError; // NOLINT(cert-err58-cpp)
std::atomic<int> gEventError{0};
std::atomic<int> gListError{0};

int Fail(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" {

int sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags) {
    const int error = gSendError ? gSendError() : 0;
    return error != 0 ? Fail(error) : static_cast<int>(syscall(SYS_sendmmsg, socket, messages, count, flags));
}

int setsockopt(int socket, int level, int name, const void* value, socklen_t size) noexcept {
    const bool isRing = level == SOL_PACKET && name == PACKET_RX_RING;
    const int error =
        isRing && gReceiveRingError ? gReceiveRingError(*static_cast<const tpacket_req3*>(value)) : 0;
    return error != 0 ? Fail(error)
                      : static_cast<int>(syscall(SYS_setsockopt, socket, level, name, value, size));
}

int eventfd(unsigned value, int flags) noexcept {
    return gEventError != 0 ? Fail(gEventError) : static_cast<int>(syscall(SYS_eventfd2, value, flags));
}

int getifaddrs(ifaddrs** list) noexcept {
    using Function = int(ifaddrs**);
    static auto* const sReal = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "getifaddrs"));
    return gListError != 0 ? Fail(gListError) : sReal(list);
}
}

namespace {

class NetifFaultTest : public NetifFixture {
protected:
    ~NetifFaultTest() override {
        gSendError = nullptr;
        gReceiveRingError = nullptr;
        gEventError = 0;
        gListError = 0;
    }
    // Each answer once, then the work is done.
    static void FailSends(std::vector<int> errors) {
        gSendError = [errors = std::move(errors), next = std::size_t{0}]() mutable {
            return next < errors.size() ? errors[next++] : 0;
        };
    }
    // The frames of a batch but the first ones, which were lost.
    static void ExpectBatch(const PeerSocket& peer, std::uint64_t lost = 0) {
        for (auto number = static_cast<std::uint32_t>(lost); number < 64; ++number) {
            ASSERT_EQ(peer.Receive(), MakeFrame(60, number));
        }
    }
};

TEST_F(NetifFaultTest, WhatPassesByItselfLosesNothing) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    for (const int error : {EINTR, EAGAIN, ENOBUFS, ENOMEM, ENETDOWN}) {
        // Refused frames are lost after 5 ms. A machine that held this process up for so long tries again.
        bool isHeldUp = true;
        for (int round = 0; round < 50 && isHeldUp; ++round) {
            const std::uint64_t lostBefore = LostFrames(device);
            const auto before = std::chrono::steady_clock::now();
            FailSends({error, error});
            SubmitBatch(device);
            EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS) << error;
            isHeldUp = std::chrono::steady_clock::now() - before >= std::chrono::milliseconds(5);
            const std::uint64_t lost = LostFrames(device) - lostBefore;
            EXPECT_TRUE(lost == 0 || isHeldUp) << error << ": " << lost << " lost";
            ExpectBatch(peer, lost);
        }
        EXPECT_FALSE(isHeldUp) << error << ": the machine held every round up";
    }
}

// A busy link has taken its time already; the refusal that follows has all of its own.
TEST_F(NetifFaultTest, ARefusalLateInABatchIsTriedAsLongAsAnEarlyOne) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    const auto busyUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
    int refusals = 0;
    gSendError = [&] {
        if (std::chrono::steady_clock::now() < busyUntil) {
            return EAGAIN;
        }
        return refusals++ == 0 ? ENOBUFS : 0;
    };
    SubmitBatch(device);
    EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    EXPECT_EQ(LostFrames(device), 0u);
    ExpectBatch(peer);
}

TEST_F(NetifFaultTest, ALastingRefusalCostsItsTimeOnce) {
    const QBXDeviceHandle device = OpenTx("flw0");
    gSendError = [] { return ENOBUFS; };
    const auto before = std::chrono::steady_clock::now();
    for (int round = 0; round < 20; ++round) {
        SubmitBatch(device);
        EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_SUCCESS);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(3))
        << "6 s when each one waits";
    EXPECT_EQ(LostFrames(device), 20u * 64);
}

TEST_F(NetifFaultTest, WaitingWithoutTimeKeepsRefusedFrames) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    SubmitBatch(device);
    for (const int error : {EAGAIN, ENOBUFS}) {
        gSendError = [error] { return error; };
        EXPECT_EQ(QBX_WaitForTxResources(device, 1, 0), KESTATUS_TIMEOUT) << error;
    }
    EXPECT_EQ(LostFrames(device), 0u);
    gSendError = nullptr;
    EXPECT_EQ(QBX_WaitForTxResources(device, 1, 0), KESTATUS_SUCCESS);
    ExpectBatch(peer);
}

TEST_F(NetifFaultTest, WhatCannotPassIsItsOwnStatus) {
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenTx("flw0");
    FailSends({EPERM});
    SubmitBatch(device);
    EXPECT_EQ(QBX_SendRawFrames(device), KEStatusFromErrno(EPERM)) << "no privilege would help";
    EXPECT_EQ(LostFrames(device), 1u);
    for (std::uint32_t number = 1; number < 64; ++number) {
        ASSERT_EQ(peer.Receive(), MakeFrame(60, number));
    }
}

TEST_F(NetifFaultTest, AReceiveRingAsLargeAsThereIsMemoryFor) {
    std::vector<std::uint64_t> tried;
    constexpr std::uint64_t cThereIs = 8u << 20;
    gReceiveRingError = [&](const tpacket_req3& request) {
        tried.push_back(std::uint64_t{request.tp_block_size} * request.tp_block_nr);
        return tried.back() > cThereIs ? ENOMEM : 0;
    };
    const PeerSocket peer("flw1");
    const QBXDeviceHandle device = OpenEnabledRx("flw0");
    EXPECT_EQ(tried, (std::vector<std::uint64_t>{64u << 20, 32u << 20, 16u << 20, 8u << 20}));
    peer.Send(MakeFrame(100, 1));
    const auto received = Receive(device);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(100, 1));
}

TEST_F(NetifFaultTest, WithoutMemoryForAReceiveRing) {
    gReceiveRingError = [](const tpacket_req3&) { return ENOMEM; };
    EXPECT_EQ(TryOpenRx("flw0"), KESTATUS_NO_MEMORY);
    gReceiveRingError = nullptr;
    gEventError = EMFILE;
    EXPECT_EQ(TryOpenRx("flw0"), KEStatusFromErrno(EMFILE));
    gEventError = 0;
    EXPECT_EQ(TryOpenRx("flw0"), KESTATUS_SUCCESS) << "nothing is left behind";
}

TEST_F(NetifFaultTest, WithoutAListOfInterfacesThereAreTheLanes) {
    gListError = EACCES;
    QBXEnumerationHandle list = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &list, &count), KESTATUS_SUCCESS);
    EXPECT_EQ(count, 4u);
    QBX_CloseEnumeration(list);
}

} // namespace

// One holder for each port: inside a process, between processes, and after a holder's death.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include "ChildProcess.h"
#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class PortTest : public SegmentFixture {};

const char* const cKinds[] = {"control", "tx", "rx"};

TEST_F(PortTest, OneHolderOfAnyKindInsideAProcess) {
    for (const std::string holder : cKinds) {
        const QBXDeviceHandle device = holder == "tx"   ? OpenTx(1)
                                       : holder == "rx" ? OpenRx(1)
                                                        : OpenControl(1);
        EXPECT_EQ(TryOpenTx(1), KESTATUS_IN_USE) << holder;
        EXPECT_EQ(TryOpenRx(1), KESTATUS_IN_USE) << holder;
        EXPECT_EQ(TryOpenControl(1), KESTATUS_IN_USE) << holder;
        for (const unsigned other : {2u, 3u, 4u}) {
            EXPECT_EQ(TryOpenTx(other), KESTATUS_SUCCESS) << holder;
        }
        EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
        EXPECT_EQ(TryOpenControl(1), KESTATUS_SUCCESS) << holder;
    }
}

TEST_F(PortTest, OneHolderBetweenProcesses) {
    for (const std::string holder : cKinds) {
        ChildProcess other(LANE_PROBE_PATH, {"hold", "1", holder});
        ASSERT_EQ(other.ReadLine(), "ready");
        EXPECT_EQ(TryOpenTx(1), KESTATUS_IN_USE) << holder;
        EXPECT_EQ(TryOpenRx(1), KESTATUS_IN_USE) << holder;
        EXPECT_EQ(TryOpenControl(1), KESTATUS_IN_USE) << holder;
        EXPECT_EQ(TryOpenRx(2), KESTATUS_SUCCESS) << holder;
    }
    const QBXDeviceHandle device = OpenControl(1);
    ChildProcess refused(LANE_PROBE_PATH, {"try", "1", "tx"});
    EXPECT_EQ(refused.ReadLine(), "0xe0000006");
    EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
    ChildProcess accepted(LANE_PROBE_PATH, {"try", "1", "tx"});
    EXPECT_EQ(accepted.ReadLine(), "0x00000000");
    EXPECT_EQ(accepted.Wait(), 0);
}

TEST_F(PortTest, AKilledHolderOfThePropertiesFreesItsPortAtOnce) {
    ChildProcess other(LANE_PROBE_PATH, {"hold", "1", "control"});
    ASSERT_EQ(other.ReadLine(), "ready");
    other.Signal(SIGKILL);
    EXPECT_EQ(other.Wait(), -SIGKILL);
    EXPECT_EQ(TryOpenTx(1), KESTATUS_SUCCESS);
}

TEST_F(PortTest, AStoppedHolderKeepsItsPort) {
    ChildProcess other(LANE_PROBE_PATH, {"hold", "1", "rx"});
    ASSERT_EQ(other.ReadLine(), "ready");
    other.Signal(SIGSTOP);
    EXPECT_EQ(TryOpenTx(1), KESTATUS_IN_USE);
    EXPECT_EQ(TryOpenTx(2), KESTATUS_SUCCESS);
}

TEST_F(PortTest, ASenderKilledBeforeSendingLeavesNoTrace) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    ChildProcess other(LANE_PROBE_PATH, {"fill", "1"});
    ASSERT_EQ(other.ReadLine(), "ready");
    other.Signal(SIGKILL);
    other.Wait();
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
    const QBXDeviceHandle tx = OpenTx(1);
    Send(tx, MakeFrame(90, 1));
    const auto received = Receive(rx);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->frame, MakeFrame(90, 1));
    EXPECT_EQ(received->sequence, 0u);
}

TEST_F(PortTest, WhatWasSentBeforeTheSenderDiedIsStillReceived) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    {
        ChildProcess sender(LANE_SEND_PATH, {"-n", "lane-1", "-c", "100"});
        EXPECT_EQ(sender.Wait(), 0);
    }
    const QBXDeviceHandle tx = OpenTx(1); // a new holder must not disturb them
    Send(tx, MakeFrame(90, 1));
    for (std::uint32_t i = 0; i <= 100; ++i) {
        const auto received = Receive(rx);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->sequence, i);
    }
}

TEST_F(PortTest, AKilledReceiverHoldsNobodyUp) {
    {
        ChildProcess receiver(LANE_PROBE_PATH, {"hold", "2", "rx"});
        ASSERT_EQ(receiver.ReadLine(), "ready");
        receiver.Signal(SIGKILL);
        receiver.Wait();
    }
    ChildProcess sender(LANE_SEND_PATH, {"-n", "lane-1", "-c", "20000", "-l", "1514"});
    EXPECT_EQ(sender.ReadLine(), "ready");
    EXPECT_EQ(sender.ReadLine(), "20000 frames sent");
    EXPECT_EQ(sender.Wait(), 0);
}

// Each of them opens every lane for a moment to read its name.
TEST_F(PortTest, ProgramsThatStartTogetherFindTheirLanes) {
    for (int round = 0; round < 10; ++round) {
        std::vector<std::unique_ptr<ChildProcess>> programs;
        for (const char* lane : {"lane-1", "lane-2", "lane-3", "lane-4"}) {
            programs.push_back(std::make_unique<ChildProcess>(
                LANE_SEND_PATH, std::vector<std::string>{"-n", lane, "-c", "1"}));
        }
        for (const auto& program : programs) {
            EXPECT_EQ(program->Wait(), 0);
        }
    }
}

TEST_F(PortTest, TheFileIsPrivate) {
    EXPECT_EQ(TryOpenControl(1), KESTATUS_SUCCESS);
    struct stat info = {};
    ASSERT_EQ(stat(SegmentFilePath().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_uid, geteuid());
    EXPECT_GE(info.st_blocks * 512, info.st_size) << "its memory is not reserved";
}

TEST_F(PortTest, SegmentsAreApart) {
    const QBXDeviceHandle rx = OpenEnabledRx(2);
    {
        const std::string otherName = SegmentName() + "-other";
        const EnvironmentChange change("QUAYSIDE2_SEGMENT", otherName.c_str());
        ChildProcess sender(LANE_SEND_PATH, {"-n", "lane-1", "-c", "10"});
        EXPECT_EQ(sender.Wait(), 0);
        EXPECT_EQ(unlink((SegmentFilePath() + "-other").c_str()), 0);
    }
    EXPECT_EQ(QBX_WaitForRawFrame(rx, 0), KESTATUS_TIMEOUT);
}

TEST_F(PortTest, LaneDumpWritesACaptureFile) {
    const std::string path = testing::TempDir() + SegmentName() + ".pcap";
    ChildProcess dump(LANE_DUMP_PATH, {"-n", "lane-2", "-o", path, "-c", "3"});
    ASSERT_EQ(dump.ReadLine(), "ready");
    ChildProcess sender(LANE_SEND_PATH, {"-d", "0", "-c", "3", "-l", "100"});
    EXPECT_EQ(sender.Wait(), 0);
    EXPECT_EQ(dump.ReadLine(), "3 frames, 0 missing");
    EXPECT_EQ(dump.Wait(), 0);
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 24 + 3 * (16 + 100));
    unlink(path.c_str());
    ChildProcess none(LANE_DUMP_PATH, {"-n", "lane-9", "-o", path});
    EXPECT_EQ(none.Wait(), 1);
}

// Descriptors and mappings of the segment that a process has, as a shell command that prints their number.
std::string CountOpen(const std::string& process, const std::string& segment) {
    return "ls -l /proc/" + process + "/fd | cat - /proc/" + process + "/maps | grep -c '" + segment + "'";
}

TEST_F(PortTest, NothingStaysOpenOrMappedAfterClosing) {
    const std::vector<QBXDeviceHandle> devices = {OpenTx(1), OpenEnabledRx(2), OpenControl(3)};
    const auto count = [this] {
        ChildProcess own("/bin/sh", {"-c", CountOpen(std::to_string(getpid()), SegmentName())});
        return std::stoi(own.ReadLine());
    };
    EXPECT_GT(count(), 3) << "the count counts nothing";
    for (const QBXDeviceHandle device : devices) {
        EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(count(), 0);
}

// The last place is missing when the port is held already.
TEST_F(PortTest, APortIsFreeAgainWhenThereIsNoHandleForIt) {
    std::vector<QBXDeviceHandle> devices;
    {
        const EnvironmentChange inspect("QUAYSIDE2_INSPECT", "1"); // takes nothing
        const Enumeration list;
        QBXDeviceHandle device = 0;
        while (devices.size() < 1000 && QBX_OpenControlDevice(list.handle, 0, &device) == KESTATUS_SUCCESS) {
            devices.push_back(device);
        }
    }
    EXPECT_EQ(devices.size(), 256u);
    EXPECT_EQ(TryOpenTx(1), KESTATUS_NO_RESOURCES);
    EXPECT_EQ(TryOpenRx(1), KESTATUS_NO_RESOURCES);
    ASSERT_FALSE(devices.empty());
    EXPECT_EQ(QBX_CloseDevice(devices.back()), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpenTx(1), KESTATUS_SUCCESS);
    for (const QBXDeviceHandle device : devices) {
        QBX_CloseDevice(device);
    }
}

// A set-up takes some milliseconds; death comes in every phase of it.
TEST_F(PortTest, AProgramKilledWhileItMakesTheSegment) {
    for (int round = 0; round < 40; ++round) {
        unlink(SegmentFilePath().c_str());
        {
            ChildProcess maker(LANE_PROBE_PATH, {"hold", "1", "tx"});
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (access(SegmentFilePath().c_str(), F_OK) != 0 && std::chrono::steady_clock::now() < until) {
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
            maker.Signal(SIGKILL);
            maker.Wait();
        }
        ASSERT_EQ(TryOpenTx(1), KESTATUS_SUCCESS) << round;
    }
}

} // namespace

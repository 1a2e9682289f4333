// Handles and their holders: directions, properties, one holder each, death, fork, exec, closing under use.
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "HoldingChild.h"
#include "api/ConformanceFixture.h"

namespace testsupport {

namespace {

// Open descriptors of this process, or only those that a program started by exec would get.
std::vector<std::string> OpenDescriptors(bool onlyInherited) {
    std::vector<std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string name = entry.path().filename();
        const int flags = fcntl(std::stoi(name), F_GETFD);
        if (flags >= 0 && (!onlyInherited || (flags & FD_CLOEXEC) == 0)) {
            open.push_back(name);
        }
    }
    return open;
}

} // namespace

TEST_P(HandleConformance, WrongDirection) {
    const QBXDeviceHandle tx = OpenTx();
    const QBXDeviceHandle rx = OpenEnabledRx();
    std::uint8_t buffer[2048] = {};
    std::uint32_t length = 0;
    const auto expectNoReceiver = [&](QBXDeviceHandle device) {
        EXPECT_EQ(QBX_EnableRawRx(device), KESTATUS_WRONG_DIRECTION);
        EXPECT_EQ(QBX_DisableRawRx(device), KESTATUS_WRONG_DIRECTION);
        EXPECT_EQ(QBX_WaitForRawFrame(device, 0), KESTATUS_WRONG_DIRECTION);
        EXPECT_EQ(QBX_GetReceivedRawFrame(device, nullptr, buffer, sizeof buffer, &length),
                  KESTATUS_WRONG_DIRECTION);
    };
    const auto expectNoSender = [&](QBXDeviceHandle device) {
        EXPECT_EQ(QBX_CheckSubmitRawFrame(device, 60), KESTATUS_WRONG_DIRECTION);
        EXPECT_EQ(QBX_WaitForTxResources(device, 1, 0), KESTATUS_WRONG_DIRECTION);
        EXPECT_EQ(QBX_SubmitRawFrame(device, buffer, 60, nullptr), KESTATUS_WRONG_DIRECTION);
        EXPECT_EQ(QBX_SendRawFrames(device), KESTATUS_WRONG_DIRECTION);
    };
    expectNoReceiver(tx);
    expectNoSender(rx);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    const QBXDeviceHandle control = OpenControl(cSender);
    expectNoReceiver(control);
    expectNoSender(control);
}

TEST_P(HandleConformance, EveryKindOfHandleReadsTheProperties) {
    const QBXDeviceHandle control = OpenControl(cSender);
    const std::string name = ReadText(control, QBX_PROPERTY_FRIENDLY_NAME);
    const std::string product = ReadText(control, QBX_PROPERTY_PRODUCT_STRING);
    EXPECT_FALSE(name.empty());
    EXPECT_FALSE(product.empty());
    EXPECT_EQ(QBX_CloseDevice(control), KESTATUS_SUCCESS);
    const QBXDeviceHandle tx = OpenTx();
    EXPECT_EQ(ReadText(tx, QBX_PROPERTY_FRIENDLY_NAME), name);
    EXPECT_EQ(ReadText(tx, QBX_PROPERTY_PRODUCT_STRING), product);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    OpenDevices devices;
    const QBXDeviceHandle rx = devices.Open(cSender, Use::Rx);
    EXPECT_EQ(ReadText(rx, QBX_PROPERTY_FRIENDLY_NAME), name);
    EXPECT_EQ(ReadText(rx, QBX_PROPERTY_PRODUCT_STRING), product);
}

TEST_P(HandleConformance, EveryKindOfHandleHasAStateAndRawOnesHaveLosses) {
    const auto statusOfLosses = [](QBXDeviceHandle device) {
        std::uint64_t count = 0;
        return QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_LOST_FRAMES, &count, sizeof count, nullptr);
    };
    const QBXDeviceHandle tx = OpenTx();
    for (const QBXDeviceHandle device : {tx, OpenRx()}) {
        EXPECT_EQ(ReadText(device, QBX_PROPERTY_STATE), "in use");
        EXPECT_EQ(statusOfLosses(device), KESTATUS_SUCCESS);
        std::uint64_t count = 0;
        std::uint32_t size = 0;
        EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_LOST_FRAMES, &count, 7, &size),
                  KESTATUS_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 8u);
    }
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    const QBXDeviceHandle control = OpenControl(cSender);
    EXPECT_EQ(ReadText(control, QBX_PROPERTY_STATE), "free");
    EXPECT_EQ(statusOfLosses(control), KESTATUS_NOT_FOUND);
}

TEST_P(HandleConformance, TheHolderIsShownWithoutTakingTheDevice) {
    const EnvironmentChange inspect("QUAYSIDE2_INSPECT", "1");
    const auto holder = [this](std::uint32_t place, std::uint32_t property) -> std::string {
        const QBXDeviceHandle device = OpenControl(place);
        char text[QBX_PROPERTY_STRING_SIZE] = "";
        const KESTATUS st = QBX_GetDevicePropertyString(device, property, text, sizeof text);
        QBX_CloseDevice(device);
        EXPECT_TRUE(st == KESTATUS_SUCCESS || st == KESTATUS_NOT_FOUND);
        return st == KESTATUS_SUCCESS ? text : "nobody";
    };
    EXPECT_EQ(holder(cSender, QBX_PROPERTY_TX_HOLDER), "nobody");
    EXPECT_EQ(holder(cReceiver, QBX_PROPERTY_RX_HOLDER), "nobody");
    HoldingChild child([] {
        prctl(PR_SET_NAME, "a (b) c");
        QBXDeviceHandle tx = 0;
        return Open(cSender, Use::Tx, tx) == KESTATUS_SUCCESS;
    });
    EXPECT_EQ(holder(cSender, QBX_PROPERTY_TX_HOLDER),
              "a (b) c (process " + std::to_string(child.Id()) + ")");
    EXPECT_EQ(holder(cReceiver, QBX_PROPERTY_RX_HOLDER), "nobody");
    OpenRx(Use::BareRx);
    EXPECT_NE(holder(cReceiver, QBX_PROPERTY_RX_HOLDER).find("(process " + std::to_string(getpid()) + ")"),
              std::string::npos);
    child.Kill();
    EXPECT_EQ(holder(cSender, QBX_PROPERTY_TX_HOLDER), "nobody");
}

TEST_P(HandleConformance, RawHandlesDoNotTellHoldersAndFiles) {
    const QBXDeviceHandle tx = OpenTx();
    for (const std::uint32_t property : {QBX_PROPERTY_TX_HOLDER, QBX_PROPERTY_RX_HOLDER, QBX_PROPERTY_FILE}) {
        char text[QBX_PROPERTY_STRING_SIZE] = "";
        EXPECT_EQ(QBX_GetDevicePropertyString(tx, property, text, sizeof text), KESTATUS_NOT_FOUND);
    }
}

TEST_P(HandleConformance, OneHolderForEachDirection) {
    const QBXDeviceHandle tx = OpenTx();
    const QBXDeviceHandle rx = OpenRx();
    EXPECT_EQ(TryOpen(cSender, Use::Tx), KESTATUS_IN_USE);
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_IN_USE);
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpen(cSender, Use::Tx), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_IN_USE);
    EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_SUCCESS);
}

TEST_P(HandleConformance, AKilledHolderFreesItsDevicesAtOnce) {
    HoldingChild child([] {
        QBXDeviceHandle tx = 0;
        QBXDeviceHandle rx = 0;
        return Open(cSender, Use::Tx, tx) == KESTATUS_SUCCESS &&
               Open(cReceiver, Use::Rx, rx) == KESTATUS_SUCCESS && QBX_EnableRawRx(rx) == KESTATUS_SUCCESS;
    });
    EXPECT_EQ(TryOpen(cSender, Use::Tx), KESTATUS_IN_USE);
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_IN_USE);
    child.Kill();
    EXPECT_EQ(TryOpen(cSender, Use::Tx), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_SUCCESS);
}

// It has nothing of its parent's devices, and keeps nothing of them alive.
TEST_P(HandleConformance, AForkedChildHasAndKeepsNothing) {
    const QBXDeviceHandle tx = OpenTx();
    const QBXDeviceHandle rx = OpenEnabledRx();
    const HoldingChild child([&] {
        return QBX_SendRawFrames(tx) == KESTATUS_INVALID_HANDLE &&
               QBX_EnableRawRx(rx) == KESTATUS_INVALID_HANDLE &&
               QBX_WaitForRawFrame(rx, -1) == KESTATUS_INVALID_HANDLE &&
               QBX_CloseDevice(tx) == KESTATUS_INVALID_HANDLE && TryOpen(cSender, Use::Tx) == KESTATUS_IN_USE;
    });
    ExpectNothingElse(tx, rx, 0); // the parent's go on as before
    EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS);
    EXPECT_EQ(TryOpen(cSender, Use::Tx), KESTATUS_SUCCESS) << "while the child lives";
    EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_SUCCESS) << "while the child lives";
}

TEST_P(HandleConformance, NothingStaysOpenAcrossExec) {
    const auto inherited = OpenDescriptors(true);
    const auto all = OpenDescriptors(false);
    OpenTx();
    OpenEnabledRx();
    EXPECT_GT(OpenDescriptors(false).size(), all.size() + 1) << "the count counts nothing";
    EXPECT_EQ(OpenDescriptors(true), inherited);
}

TEST_P(HandleConformance, NothingStaysOpenAfterClosing) {
    const auto before = OpenDescriptors(false);
    for (int round = 0; round < 3; ++round) {
        const QBXDeviceHandle rx = OpenEnabledRx();
        const QBXDeviceHandle tx = OpenTx();
        QBX_DisableRawRx(rx);
        QBX_EnableRawRx(rx);
        EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_IN_USE);
        EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
        EXPECT_EQ(TryOpen(cSender, Use::Control), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(OpenDescriptors(false), before);
}

// Handles are closed while other threads use them in every way.
TEST_P(HandleConformance, ClosingUnderUse) {
    for (int round = 0; round < 10; ++round) {
        const QBXDeviceHandle tx = OpenTx();
        const QBXDeviceHandle rx = OpenEnabledRx();
        std::thread sender([tx] {
            const Bytes frame = MakeFrame(1000, 1);
            KESTATUS st = KESTATUS_SUCCESS;
            while (st != KESTATUS_INVALID_HANDLE) {
                st = Submit(tx, frame);
                if (st == KESTATUS_NO_SPACE) {
                    st = QBX_WaitForTxResources(tx, 1, -1);
                }
            }
        });
        std::thread receiver([rx] {
            KESTATUS st = KESTATUS_SUCCESS;
            while (st != KESTATUS_INVALID_HANDLE) {
                st = QBX_WaitForRawFrame(rx, -1);
                Get(rx);
            }
        });
        std::thread switcher([rx] {
            KESTATUS st = KESTATUS_SUCCESS;
            while (st != KESTATUS_INVALID_HANDLE) {
                QBX_DisableRawRx(rx);
                st = QBX_EnableRawRx(rx);
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        EXPECT_EQ(QBX_CloseDevice(tx), KESTATUS_SUCCESS);
        EXPECT_EQ(QBX_CloseDevice(rx), KESTATUS_SUCCESS);
        sender.join();
        receiver.join();
        switcher.join();
        EXPECT_EQ(TryOpen(cSender, Use::Tx), KESTATUS_SUCCESS);
        EXPECT_EQ(TryOpen(cReceiver, Use::Rx), KESTATUS_SUCCESS);
    }
}

// Sending, receiving, enabling and disabling from several threads at once; for the sanitizers.
TEST_P(HandleConformance, ManyThreads) {
    const QBXDeviceHandle rx = OpenEnabledRx();
    const QBXDeviceHandle tx = OpenTx();
    std::vector<std::thread> threads;
    threads.reserve(6);
    for (std::uint32_t i = 0; i < 2; ++i) {
        threads.emplace_back([tx, i] {
            const Bytes frame = MakeFrame(100, i);
            for (int number = 0; number < 1000; ++number) {
                Submit(tx, frame);
                QBX_SendRawFrames(tx);
            }
        });
        threads.emplace_back([rx] {
            for (int round = 0; round < 100; ++round) {
                QBX_WaitForRawFrame(rx, 5);
                while (Get(rx) == KESTATUS_SUCCESS) {
                }
            }
        });
    }
    threads.emplace_back([rx] {
        for (int round = 0; round < 10; ++round) {
            QBX_DisableRawRx(rx);
            QBX_EnableRawRx(rx);
        }
    });
    threads.emplace_back([tx, rx] {
        for (int round = 0; round < 50; ++round) {
            EXPECT_LE(LostFrames(tx) + LostFrames(rx), 10000u);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(LostFrames(tx), 0u);
}

} // namespace testsupport

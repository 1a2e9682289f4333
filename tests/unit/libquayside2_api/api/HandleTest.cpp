// Every function's answer to handles that are not, or no longer, valid, and to null pointers.
#include <functional>
#include <thread>

#include "SegmentFixture.h"
#include "api/HandleTable.h"

namespace {

using namespace testsupport;

using quayside2::HandleTable;

class HandleTest : public SegmentFixture {};

struct DeviceCall {
    const char* name;
    std::function<KESTATUS(QBXDeviceHandle)> call;
};

// Every function that takes a device handle, with arguments that are right otherwise.
const std::vector<DeviceCall>& DeviceCalls() {
    static char sBuffer[2048];
    static std::uint32_t sLength;
    static const Bytes sFrame = MakeFrame(60, 1);
    static const std::vector<DeviceCall> sCalls = {
        {"GetDevicePropertyString",
         [](QBXDeviceHandle h) {
             return QBX_GetDevicePropertyString(h, QBX_PROPERTY_FRIENDLY_NAME, sBuffer, 256);
         }},
        {"GetDevicePropertyBinary",
         [](QBXDeviceHandle h) {
             return QBX_GetDevicePropertyBinary(h, QBX_PROPERTY_MAC_ADDRESS, sBuffer, 6, &sLength);
         }},
        {"EnableRawRx", [](QBXDeviceHandle h) { return QBX_EnableRawRx(h); }},
        {"DisableRawRx", [](QBXDeviceHandle h) { return QBX_DisableRawRx(h); }},
        {"WaitForRawFrame", [](QBXDeviceHandle h) { return QBX_WaitForRawFrame(h, 0); }},
        {"GetReceivedRawFrame",
         [](QBXDeviceHandle h) {
             return QBX_GetReceivedRawFrame(h, nullptr, sBuffer, sizeof sBuffer, &sLength);
         }},
        {"CheckSubmitRawFrame", [](QBXDeviceHandle h) { return QBX_CheckSubmitRawFrame(h, 60); }},
        {"WaitForTxResources", [](QBXDeviceHandle h) { return QBX_WaitForTxResources(h, 1, 0); }},
        {"SubmitRawFrame",
         [](QBXDeviceHandle h) { return QBX_SubmitRawFrame(h, sFrame.data(), 60, nullptr); }},
        {"SendRawFrames", [](QBXDeviceHandle h) { return QBX_SendRawFrames(h); }},
        {"CloseDevice", [](QBXDeviceHandle h) { return QBX_CloseDevice(h); }},
    };
    return sCalls;
}

void ExpectInvalid(QBXDeviceHandle handle, const std::string& what) {
    for (const DeviceCall& call : DeviceCalls()) {
        EXPECT_EQ(call.call(handle), KESTATUS_INVALID_HANDLE) << call.name << ", " << what;
    }
}

void ExpectInvalidEnumeration(QBXEnumerationHandle handle, const std::string& what) {
    QBXDeviceHandle device = 77;
    EXPECT_EQ(QBX_OpenControlDevice(handle, 0, &device), KESTATUS_INVALID_HANDLE) << what;
    EXPECT_EQ(device, 0u);
    EXPECT_EQ(QBX_OpenRawTxDevice(handle, 0, 0, QBXRawHeaderType_None, &device, 0), KESTATUS_INVALID_HANDLE)
        << what;
    EXPECT_EQ(QBX_OpenRawRxDevice(handle, 0, 0, QBXRawHeaderType_2, &device, 0), KESTATUS_INVALID_HANDLE)
        << what;
    EXPECT_EQ(QBX_CloseEnumeration(handle), KESTATUS_INVALID_HANDLE) << what;
}

TEST_F(HandleTest, ZeroAndInventedHandles) {
    for (const std::uint32_t handle : {0u, 1u, 0xFFFFFFFFu, 0x80000000u, 0x12345678u}) {
        ExpectInvalid(handle, std::to_string(handle));
        ExpectInvalidEnumeration(handle, std::to_string(handle));
    }
}

TEST_F(HandleTest, ClosedHandles) {
    for (const QBXDeviceHandle handle : {OpenTx(1), OpenRx(2), OpenControl(3)}) {
        ASSERT_NE(handle, 0u);
        EXPECT_EQ(QBX_CloseDevice(handle), KESTATUS_SUCCESS);
        ExpectInvalid(handle, "closed");
    }
    QBXEnumerationHandle enumeration = 0;
    std::uint32_t count = 0;
    ASSERT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &enumeration, &count), KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CloseEnumeration(enumeration), KESTATUS_SUCCESS);
    ExpectInvalidEnumeration(enumeration, "closed");
}

TEST_F(HandleTest, ClosedHandlesStayInvalidWhenOthersAreOpened) {
    const QBXDeviceHandle old = OpenTx(1);
    EXPECT_EQ(QBX_CloseDevice(old), KESTATUS_SUCCESS);
    for (int i = 0; i < 1000; ++i) { // more than there are places for handles
        const QBXDeviceHandle device = OpenControl(1);
        ASSERT_NE(device, old);
        EXPECT_EQ(QBX_SendRawFrames(old), KESTATUS_INVALID_HANDLE);
        ASSERT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
    }
}

TEST_F(HandleTest, HandlesOfTheOtherKind) {
    const Enumeration list;
    ExpectInvalid(list.handle, "an enumeration");
    const QBXDeviceHandle device = OpenTx(1);
    ExpectInvalidEnumeration(device, "a device");
    EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
}

TEST_F(HandleTest, NeighboursOfAValidHandle) {
    const QBXDeviceHandle device = OpenControl(1);
    for (unsigned bit = 0; bit < 32; ++bit) {
        ExpectInvalid(device ^ (1u << bit), "bit " + std::to_string(bit));
    }
}

TEST_F(HandleTest, NullPointers) {
    std::uint32_t count = 0;
    QBXEnumerationHandle enumeration = 0;
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, nullptr, &count), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &enumeration, nullptr), KESTATUS_INVALID_PARAMETER);
    const Enumeration list;
    EXPECT_EQ(QBX_OpenControlDevice(list.handle, 0, nullptr), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_OpenRawTxDevice(list.handle, 0, 0, QBXRawHeaderType_None, nullptr, 0),
              KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_OpenRawRxDevice(list.handle, 0, 0, QBXRawHeaderType_2, nullptr, 0),
              KESTATUS_INVALID_PARAMETER);
    const QBXDeviceHandle rx = OpenEnabledRx(1);
    std::uint8_t buffer[64];
    std::uint32_t length = 0;
    EXPECT_EQ(QBX_GetReceivedRawFrame(rx, nullptr, nullptr, 64, &length), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_GetReceivedRawFrame(rx, nullptr, buffer, 64, nullptr), KESTATUS_INVALID_PARAMETER);
    const QBXDeviceHandle tx = OpenTx(2);
    EXPECT_EQ(QBX_SubmitRawFrame(tx, nullptr, 60, nullptr), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_SubmitRawFrame(tx, buffer, 60, &length), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_SendRawFrames(tx), KESTATUS_NO_DATA) << "nothing of that was submitted";
    EXPECT_EQ(device, 0u);
}

TEST_F(HandleTest, HeaderTypesAndReservedArguments) {
    const Enumeration list;
    QBXDeviceHandle device = 0;
    for (const std::uint32_t type : {1u, 2u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(QBX_OpenRawTxDevice(list.handle, 0, 0, static_cast<QBXRawHeaderType>(type), &device, 0),
                  KESTATUS_NOT_SUPPORTED);
    }
    for (const std::uint32_t type : {1u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(QBX_OpenRawRxDevice(list.handle, 0, 0, static_cast<QBXRawHeaderType>(type), &device, 0),
                  KESTATUS_NOT_SUPPORTED);
    }
    EXPECT_EQ(QBX_OpenRawTxDevice(list.handle, 0, 1, QBXRawHeaderType_None, &device, 0),
              KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_OpenRawTxDevice(list.handle, 0, 0, QBXRawHeaderType_None, &device, 1),
              KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_OpenRawRxDevice(list.handle, 0, 1, QBXRawHeaderType_2, &device, 0),
              KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_OpenRawRxDevice(list.handle, 0, 0, QBXRawHeaderType_2, &device, 1),
              KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(device, 0u);
    EXPECT_EQ(TryOpenTx(1), KESTATUS_SUCCESS) << "a refused open must not hold the port";
}

using Table = HandleTable<int, 3>;

TEST(HandleTableTest, FullTableAndReuse) {
    Table table(0);
    std::vector<std::uint32_t> handles;
    for (std::uint32_t i = 0; i < Table::cCapacity; ++i) {
        handles.push_back(table.Insert(std::make_unique<int>(static_cast<int>(i))));
        ASSERT_NE(handles.back(), 0u);
    }
    EXPECT_EQ(table.Insert(std::make_unique<int>(1)), 0u);
    EXPECT_EQ(*table.Find(handles[5]), 5);
    EXPECT_NE(table.Remove(handles[5], [](int&) {}), nullptr);
    EXPECT_EQ(table.Remove(handles[5], [](int&) {}), nullptr);
    const std::uint32_t again = table.Insert(std::make_unique<int>(500));
    EXPECT_NE(again, 0u);
    EXPECT_NE(again, handles[5]);
    EXPECT_FALSE(table.Find(handles[5]));
    EXPECT_EQ(*table.Find(again), 500);
}

TEST(HandleTableTest, GenerationsWrapWithoutAZeroHandle) {
    Table table(0xFFFFF);
    std::uint32_t last = 0;
    for (std::uint32_t i = 0; i < 3 * Table::cCapacity; ++i) {
        const std::uint32_t handle = table.Insert(std::make_unique<int>(1));
        EXPECT_NE(handle, 0u);
        EXPECT_NE(handle, last);
        last = handle;
        EXPECT_TRUE(table.Find(handle));
        EXPECT_NE(table.Remove(handle, [](int&) {}), nullptr);
        EXPECT_FALSE(table.Find(handle));
    }
}

TEST(HandleTableTest, RemoveWaitsForUsers) {
    Table table(1);
    const std::uint32_t handle = table.Insert(std::make_unique<int>(7));
    std::atomic<bool> woken{false};
    std::atomic<bool> removed{false};
    std::thread remover;
    {
        const auto pin = table.Find(handle);
        remover = std::thread([&] {
            const auto object = table.Remove(handle, [&](int&) { woken.store(true); });
            removed.store(object != nullptr);
        });
        while (!woken.load()) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(table.Find(handle));
        EXPECT_FALSE(removed.load());
        EXPECT_EQ(*pin, 7) << "a pinned object lives";
    }
    remover.join();
    EXPECT_TRUE(removed.load());
}

} // namespace

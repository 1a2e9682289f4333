// Listing devices: the four lanes, and the environment that names the segment and narrows the list.
#include <gmock/gmock.h>

#include <unistd.h>

#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class EnumerationTest : public SegmentFixture {};

// The friendly names in the order of an enumeration, separated by blanks.
std::string ListedNames() {
    const Enumeration list;
    EXPECT_EQ(list.status, KESTATUS_SUCCESS);
    std::string names;
    for (std::uint32_t index = 0; index < list.count; ++index) {
        QBXDeviceHandle device = 0;
        EXPECT_EQ(QBX_OpenControlDevice(list.handle, index, &device), KESTATUS_SUCCESS);
        char name[QBX_PROPERTY_STRING_SIZE] = "";
        EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, name, sizeof name),
                  KESTATUS_SUCCESS);
        QBX_CloseDevice(device);
        names += names.empty() ? name : std::string(" ") + name;
    }
    return names;
}

// The interfaces of the machine follow.
TEST_F(EnumerationTest, ListsTheFourLanesFirst) {
    for (const char* all : {static_cast<const char*>(nullptr), ""}) {
        const EnvironmentChange change("QUAYSIDE2_DEVICES", all);
        EXPECT_THAT(ListedNames() + " ", testing::StartsWith("lane-1 lane-2 lane-3 lane-4 "));
    }
}

TEST_F(EnumerationTest, DevicesVariableNarrowsAndOrders) {
    struct Row {
        const char* value;
        const char* names;
    };
    for (const Row& row : {
             Row{"lane-3", "lane-3"},
             Row{"lane-3,lane-1", "lane-3 lane-1"},
             Row{" lane-4 ,\tlane-2", "lane-4 lane-2"},
             Row{"unknown,lane-2,eth99", "lane-2"},
             Row{"lane-2,lane-2,lane-1,lane-2", "lane-2 lane-1"},
             Row{"LANE-1", ""},
             Row{"lane-", ""},
             Row{"lane-11", ""},
             Row{"nothing", ""},
             Row{",,", ""},
             Row{",lane-1,", "lane-1"},
         }) {
        const EnvironmentChange change("QUAYSIDE2_DEVICES", row.value);
        EXPECT_EQ(ListedNames(), row.names) << "'" << row.value << "'";
    }
}

TEST_F(EnumerationTest, IndexOutsideTheListIsRefused) {
    const EnvironmentChange change("QUAYSIDE2_DEVICES", "lane-2,lane-1");
    const Enumeration list;
    ASSERT_EQ(list.count, 2u);
    for (const std::uint32_t index : {2u, 3u, 4u, 0xFFFFFFFFu}) {
        QBXDeviceHandle device = 77;
        EXPECT_EQ(QBX_OpenControlDevice(list.handle, index, &device), KESTATUS_INVALID_INDEX);
        EXPECT_EQ(device, 0u);
        device = 77;
        EXPECT_EQ(QBX_OpenRawTxDevice(list.handle, index, 0, QBXRawHeaderType_None, &device, 0),
                  KESTATUS_INVALID_INDEX);
        EXPECT_EQ(device, 0u);
        device = 77;
        EXPECT_EQ(QBX_OpenRawRxDevice(list.handle, index, 0, QBXRawHeaderType_2, &device, 0),
                  KESTATUS_INVALID_INDEX);
        EXPECT_EQ(device, 0u);
    }
}

TEST_F(EnumerationTest, OtherDeviceTypesAreRefused) {
    for (const std::int32_t type : {0, 1, 2, -2, 0x7FFFFFFF}) {
        QBXEnumerationHandle handle = 77;
        std::uint32_t count = 77;
        EXPECT_EQ(QBX_EnumerateDevices(static_cast<QBXDeviceType>(type), &handle, &count),
                  KESTATUS_INVALID_TYPE);
        EXPECT_EQ(handle, 0u);
        EXPECT_EQ(count, 0u);
    }
}

TEST_F(EnumerationTest, SegmentNamesAreChecked) {
    const std::string longest(64, 'x');
    for (const char* name : {"a", "A-Z_0.9", ".", "..", "default", longest.c_str()}) {
        const EnvironmentChange change("QUAYSIDE2_SEGMENT", name);
        const Enumeration list;
        EXPECT_EQ(list.status, KESTATUS_SUCCESS) << name;
        EXPECT_EQ(list.count, 4u) << name;
    }
    const std::string tooLong(65, 'x');
    for (const char* name : {"a/b", "/", "../x", "a b", "a\n", "\xC3\xA4", "a:b", "*", tooLong.c_str()}) {
        const EnvironmentChange change("QUAYSIDE2_SEGMENT", name);
        const Enumeration list;
        EXPECT_EQ(list.status, KESTATUS_INVALID_PARAMETER) << name;
        EXPECT_EQ(list.handle, 0u) << name;
        EXPECT_EQ(list.count, 0u) << name;
    }
}

TEST_F(EnumerationTest, AnEmptySegmentNameIsTheDefault) {
    const EnvironmentChange change("QUAYSIDE2_SEGMENT", "");
    EXPECT_EQ(Enumeration().status, KESTATUS_SUCCESS);
}

// Listing alone must not create anything.
TEST_F(EnumerationTest, ListingLeavesNoFile) {
    EXPECT_EQ(Enumeration().count, 4u);
    EXPECT_NE(access(SegmentFilePath().c_str(), F_OK), 0);
}

TEST_F(EnumerationTest, AnEnumerationKeepsItsSegment) {
    const Enumeration list;
    const QBXDeviceHandle held = OpenControl(1);
    EXPECT_NE(held, 0u);
    const EnvironmentChange change("QUAYSIDE2_SEGMENT", (SegmentName() + "-other").c_str());
    QBXDeviceHandle device = 0;
    EXPECT_EQ(QBX_OpenControlDevice(list.handle, 0, &device), KESTATUS_IN_USE);
}

TEST_F(EnumerationTest, DevicesOutliveTheirEnumeration) {
    QBXDeviceHandle device = 0;
    {
        const Enumeration list;
        ASSERT_EQ(QBX_OpenControlDevice(list.handle, 0, &device), KESTATUS_SUCCESS);
    }
    char name[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, name, sizeof name),
              KESTATUS_SUCCESS);
    EXPECT_EQ(QBX_CloseDevice(device), KESTATUS_SUCCESS);
}

TEST_F(EnumerationTest, TooManyEnumerationsAreRefusedAndOneClosedIsEnough) {
    std::vector<QBXEnumerationHandle> handles;
    KESTATUS st = KESTATUS_SUCCESS;
    QBXEnumerationHandle handle = 0;
    std::uint32_t count = 0;
    while (handles.size() < 10000 &&
           (st = QBX_EnumerateDevices(QBXDeviceType_any, &handle, &count)) == KESTATUS_SUCCESS) {
        handles.push_back(handle);
    }
    EXPECT_EQ(st, KESTATUS_NO_RESOURCES);
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_GE(handles.size(), 64u);
    ASSERT_FALSE(handles.empty());
    EXPECT_EQ(QBX_CloseEnumeration(handles.back()), KESTATUS_SUCCESS);
    handles.pop_back();
    EXPECT_EQ(QBX_EnumerateDevices(QBXDeviceType_any, &handle, &count), KESTATUS_SUCCESS);
    handles.push_back(handle);
    for (const QBXEnumerationHandle open : handles) {
        EXPECT_EQ(QBX_CloseEnumeration(open), KESTATUS_SUCCESS);
    }
}

} // namespace

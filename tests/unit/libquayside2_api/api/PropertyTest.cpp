// What a device tells of itself.
#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "SegmentFixture.h"

namespace {

using namespace testsupport;

class PropertyTest : public SegmentFixture {};

TEST_F(PropertyTest, EachLaneHasItsNameProductAndAddress) {
    for (unsigned lane = 1; lane <= 4; ++lane) {
        const QBXDeviceHandle device = OpenControl(lane);
        char text[QBX_PROPERTY_STRING_SIZE] = "";
        EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, text, sizeof text),
                  KESTATUS_SUCCESS);
        EXPECT_EQ(text, "lane-" + std::to_string(lane));
        EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_PRODUCT_STRING, text, sizeof text),
                  KESTATUS_SUCCESS);
        EXPECT_STREQ(text, "Virtual Ethernet segment");
        std::array<std::uint8_t, 6> address{};
        std::uint32_t size = 0;
        EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, address.data(), 6, &size),
                  KESTATUS_SUCCESS);
        EXPECT_EQ(size, 6u);
        const auto last = static_cast<std::uint8_t>(lane);
        EXPECT_EQ(address, (std::array<std::uint8_t, 6>{0x02, 0x51, 0x42, 0x58, 0x00, last}));
    }
}

TEST_F(PropertyTest, AShortTextBufferGetsWhatFits) {
    const QBXDeviceHandle device = OpenControl(1);
    struct Row {
        std::uint32_t size;
        KESTATUS status;
        const char* text;
    };
    for (const Row& row : {Row{7, KESTATUS_SUCCESS, "lane-1"}, Row{6, KESTATUS_BUFFER_TOO_SMALL, "lane-"},
                           Row{1, KESTATUS_BUFFER_TOO_SMALL, ""}}) {
        char text[8] = "#######";
        EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, text, row.size),
                  row.status);
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(text[row.size], row.size == 7 ? '\0' : '#') << "written beyond the buffer";
    }
    char text[2] = "#";
    EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, text, 0),
              KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(text[0], '#');
}

TEST_F(PropertyTest, AShortBinaryBufferIsLeftAlone) {
    const QBXDeviceHandle device = OpenControl(1);
    std::array<std::uint8_t, 8> address{};
    std::uint32_t size = 0;
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, address.data(), 5, &size),
              KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(address, (std::array<std::uint8_t, 8>{}));
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, address.data(), 5, nullptr),
              KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, address.data(), 8, nullptr),
              KESTATUS_SUCCESS);
    EXPECT_EQ(address, (std::array<std::uint8_t, 8>{0x02, 0x51, 0x42, 0x58, 0x00, 0x01, 0, 0}));
}

TEST_F(PropertyTest, UnknownPropertiesAndWrongKinds) {
    const QBXDeviceHandle device = OpenControl(1);
    char buffer[QBX_PROPERTY_STRING_SIZE] = "";
    for (const std::uint32_t property : {0u, 0x8110u, 0x8119u, 0xFFFFFFFFu}) {
        EXPECT_EQ(QBX_GetDevicePropertyString(device, property, buffer, sizeof buffer), KESTATUS_NOT_FOUND);
    }
    for (const std::uint32_t property : {0u, 0x8118u, 0x0106u, 0xFFFFFFFFu}) {
        EXPECT_EQ(QBX_GetDevicePropertyBinary(device, property, buffer, sizeof buffer, nullptr),
                  KESTATUS_NOT_FOUND);
    }
    EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_FRIENDLY_NAME, nullptr, 256),
              KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(QBX_GetDevicePropertyBinary(device, QBX_PROPERTY_MAC_ADDRESS, nullptr, 6, nullptr),
              KESTATUS_INVALID_PARAMETER);
}

TEST_F(PropertyTest, TheFileOfALaneIsItsSegment) {
    EXPECT_EQ(ReadText(OpenControl(1), QBX_PROPERTY_FILE), SegmentFilePath());
    const EnvironmentChange inspect("QUAYSIDE2_INSPECT", "1");
    EXPECT_EQ(ReadText(OpenControl(2), QBX_PROPERTY_FILE), SegmentFilePath());
}

// Another program at another lane of the same file is not the holder.
TEST_F(PropertyTest, TheHolderOfALaneIsThatOfItsOwnPort) {
    const EnvironmentChange inspect("QUAYSIDE2_INSPECT", "1");
    std::vector<std::unique_ptr<ChildProcess>> holders;
    for (const char* const lane : {"1", "3", "4"}) {
        holders.push_back(
            std::make_unique<ChildProcess>(LANE_PROBE_PATH, std::vector<std::string>{"hold", lane, "rx"}));
        ASSERT_EQ(holders.back()->ReadLine(), "ready");
    }
    const auto expected = [&](std::size_t holder) {
        return "lane-probe (process " + std::to_string(holders[holder]->Id()) + ")";
    };
    EXPECT_EQ(ReadText(OpenControl(1), QBX_PROPERTY_TX_HOLDER), expected(0));
    EXPECT_EQ(ReadText(OpenControl(3), QBX_PROPERTY_RX_HOLDER), expected(1));
    EXPECT_EQ(ReadText(OpenControl(4), QBX_PROPERTY_TX_HOLDER), expected(2));
    char text[QBX_PROPERTY_STRING_SIZE] = "";
    EXPECT_EQ(QBX_GetDevicePropertyString(OpenControl(2), QBX_PROPERTY_TX_HOLDER, text, sizeof text),
              KESTATUS_NOT_FOUND);
}

// What is no segment, or nobody's to use, is not free.
TEST_F(PropertyTest, TheStateOfALaneThatCannotBeOpenedIsTheStatusOfOpeningIt) {
    const std::string path = SegmentFilePath();
    struct Row {
        const char* what;
        const char* command; // $0 is the path
        KESTATUS status;
    };
    for (const Row& row : {
             Row{"nothing", ":", KESTATUS_SUCCESS},
             Row{"empty", "touch $0 && chmod 600 $0", KESTATUS_SUCCESS},
             Row{"a folder", "mkdir $0", KESTATUS_INVALID_FILE},
             Row{"a link", "ln -s /dev/null $0", KESTATUS_INVALID_FILE},
             Row{"a pipe", "mkfifo -m 600 $0", KESTATUS_INVALID_FILE},
             Row{"others may use it", "touch $0 && chmod 666 $0", KESTATUS_NOT_ALLOWED},
             Row{"a second name", "touch $0 && chmod 600 $0 && ln $0 $0-other", KESTATUS_INVALID_FILE},
             Row{"another's contents", "echo 12345678 >$0 && chmod 600 $0", KESTATUS_INVALID_FILE},
             Row{"cut short", "printf QSegment >$0 && chmod 600 $0", KESTATUS_VERSION_MISMATCH},
         }) {
        const std::string folderCommand = "sh -c '" + std::string(row.command) + "' '" + path + "'";
        ASSERT_EQ(std::system(folderCommand.c_str()), 0) << row.what; // NOLINT(cert-env33-c)
        {
            const EnvironmentChange inspect("QUAYSIDE2_INSPECT", "1");
            const QBXDeviceHandle device = OpenControl(1);
            char text[QBX_PROPERTY_STRING_SIZE] = "";
            EXPECT_EQ(QBX_GetDevicePropertyString(device, QBX_PROPERTY_STATE, text, sizeof text), row.status)
                << row.what;
            EXPECT_STREQ(text, row.status == KESTATUS_SUCCESS ? "free" : "") << row.what;
            QBX_CloseDevice(device);
        }
        EXPECT_EQ(TryOpenControl(1), row.status) << row.what;
        ASSERT_EQ(std::system(("rm -rf '" + path + "' '" + path + "-other'").c_str()), 0); // NOLINT
    }
}

} // namespace

// Versions, and what the library file shows to the linker.
#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>

#include "SegmentFixture.h"

namespace {

using namespace testsupport;

std::string OutputOf(const std::string& command) {
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r"); // NOLINT(cert-env33-c)
    if (!pipe) {
        return {};
    }
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, count);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

TEST(Interface, VersionIs2Point20) {
    EXPECT_EQ(QBX_GetApiVersion(), 0x00020014u);
    EXPECT_EQ(QBX_GetApiVersion(), QBX_API_VERSION_MAJOR << 16 | QBX_API_VERSION_MINOR);
}

TEST(Interface, CompatibleVersions) {
    struct Row {
        std::uint32_t majorVersion;
        std::uint32_t minorVersion;
        bool compatible;
    };
    for (const Row& row :
         {Row{2, 20, true}, Row{2, 0, true}, Row{2, 19, true}, Row{2, 21, false}, Row{1, 20, false},
          Row{3, 0, false}, Row{0, 0, false}, Row{2, 0xFFFFFFFF, false}, Row{0x10002, 20, false}}) {
        EXPECT_EQ(QBX_CheckApiVersion(row.majorVersion, row.minorVersion), row.compatible)
            << row.majorVersion << '.' << row.minorVersion;
    }
}

TEST(Interface, TheHeaderLeavesNoHelpersBehind) {
#if defined(QBX_ENUM_U32) || defined(QBX_ENUM_I32)
    FAIL();
#endif
}

TEST(Interface, ExportsExactlyTheFunctions) {
    std::istringstream lines(OutputOf("nm -D --defined-only '" LIBRARY_PATH "'"));
    std::vector<std::string> names;
    for (std::string address, kind, name; lines >> address >> kind >> name;) {
        EXPECT_EQ(kind, "T") << name;
        names.push_back(name);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre(
                           "QBX_CheckApiVersion", "QBX_GetApiVersion", "QBX_EnumerateDevices",
                           "QBX_CloseEnumeration", "QBX_OpenControlDevice", "QBX_OpenRawTxDevice",
                           "QBX_OpenRawRxDevice", "QBX_CloseDevice", "QBX_GetDevicePropertyString",
                           "QBX_GetDevicePropertyBinary", "QBX_EnableRawRx", "QBX_DisableRawRx",
                           "QBX_WaitForRawFrame", "QBX_GetReceivedRawFrame", "QBX_CheckSubmitRawFrame",
                           "QBX_WaitForTxResources", "QBX_SubmitRawFrame", "QBX_SendRawFrames"));
}

TEST(Interface, SonameHasNoVersion) {
    EXPECT_THAT(OutputOf("readelf -d '" LIBRARY_PATH "'"),
                testing::HasSubstr("Library soname: [libquayside2_api.so]"));
}

} // namespace

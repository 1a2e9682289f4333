// What each option of the command line writes into the settings.

#include "commands/CmdLine.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace flowlane {
namespace {

KESTATUS Parse(CmdLine& cmdLine, std::vector<const char*> words) {
    words.insert(words.begin(), "flowlane");
    return cmdLine.ParseCommandLine(static_cast<int>(words.size()), words.data());
}

// All members as one text, so that a test sees every member that an option writes.
std::string Describe(const CmdLine& c) {
    std::string text;
    const auto add = [&text](const char* name, const std::string& value) {
        text += std::string(name) + "=" + value + " ";
    };
    add("command", c.mCommand);
    add("help", std::to_string(c.mShowHelp));
    add("verbose", std::to_string(c.mVerbose));
    add("rewind", std::to_string(c.mRewindFile));
    add("idPresent", std::to_string(c.mUniqueIdPresent));
    add("replaceMac", std::to_string(c.mReplaceSourceMacAddr));
    add("indexPresent", std::to_string(c.mStartFileIndexPresent));
    for (const std::string& arg : c.mArgs) {
        add("arg", arg);
    }
    add("mac", c.mMacAddress);
    add("name", c.mFriendlyName);
    add("id", std::to_string(c.mUniqueId));
    add("device", std::to_string(c.mDeviceIndex));
    add("port", std::to_string(c.mPortNumber));
    add("frameSize", std::to_string(c.mFrameSize));
    add("frameCount", std::to_string(c.mFrameCount));
    add("maxKB", std::to_string(c.mMaxFileSizeKB));
    add("maxMB", std::to_string(c.mMaxFileSizeMB));
    add("tci", std::to_string(c.mVlanTCI));
    add("index", std::to_string(c.mStartFileIndex));
    add("errorStatus", std::to_string(c.mErrorStatus));
    add("preciseTiming", std::to_string(c.mPreciseTiming));
    add("rebaseClock", std::to_string(c.mRebaseClock));
    return text;
}

TEST(CmdLineTest, HasItsDefaultsWithoutWords) {
    CmdLine c;
    EXPECT_EQ(Parse(c, {}), KESTATUS_SUCCESS);
    EXPECT_EQ(c.mCommand, "");
    EXPECT_FALSE(c.mShowHelp);
    EXPECT_FALSE(c.mVerbose);
    EXPECT_FALSE(c.mRewindFile);
    EXPECT_FALSE(c.mUniqueIdPresent);
    EXPECT_FALSE(c.mReplaceSourceMacAddr);
    EXPECT_FALSE(c.mStartFileIndexPresent);
    EXPECT_TRUE(c.mArgs.empty());
    EXPECT_EQ(c.mMacAddress, "");
    EXPECT_EQ(c.mFriendlyName, "");
    EXPECT_EQ(c.mUniqueId, 0u);
    EXPECT_EQ(c.mDeviceIndex, 0u);
    EXPECT_EQ(c.mPortNumber, 5000u);
    EXPECT_EQ(c.mFrameSize, 1522u);
    EXPECT_EQ(c.mFrameCount, 20000u);
    EXPECT_EQ(c.mMaxFileSizeKB, 0u);
    EXPECT_EQ(c.mMaxFileSizeMB, 0u);
    EXPECT_EQ(c.mVlanTCI, 0u);
    EXPECT_EQ(c.mStartFileIndex, 1u);
    EXPECT_FALSE(c.mErrorStatus);
    EXPECT_FALSE(c.mPreciseTiming);
    EXPECT_FALSE(c.mRebaseClock);
}

struct OptionCase {
    std::vector<const char*> words;
    std::function<void(CmdLine&)> expected; // applied to a default object
};

class CmdLineOptionTest : public testing::TestWithParam<OptionCase> {};

TEST_P(CmdLineOptionTest, WritesItsMemberAlone) {
    CmdLine c;
    ASSERT_EQ(Parse(c, GetParam().words), KESTATUS_SUCCESS);
    CmdLine expected;
    GetParam().expected(expected);
    EXPECT_EQ(Describe(c), Describe(expected));
}

INSTANTIATE_TEST_SUITE_P(
    Table, CmdLineOptionTest,
    testing::Values(OptionCase{{"ts2av"}, [](CmdLine& c) { c.mCommand = "ts2av"; }},
                    OptionCase{{"a", "b", "c"},
                               [](CmdLine& c) {
                                   c.mCommand = "a";
                                   c.mArgs = {"b", "c"};
                               }},
                    OptionCase{{"-h"},
                               [](CmdLine& c) {
                                   c.mShowHelp = true;
                                   c.mCommand = "help";
                               }},
                    OptionCase{{"ts2av", "--help", "file"},
                               [](CmdLine& c) {
                                   c.mShowHelp = true;
                                   c.mCommand = "help";
                                   c.mArgs = {"file"};
                               }},
                    OptionCase{{"-v"}, [](CmdLine& c) { c.mVerbose = true; }},
                    OptionCase{{"--verbose"}, [](CmdLine& c) { c.mVerbose = true; }},
                    OptionCase{{"-l"}, [](CmdLine& c) { c.mRewindFile = true; }},
                    OptionCase{{"--loop"}, [](CmdLine& c) { c.mRewindFile = true; }},
                    OptionCase{{"-flsm"}, [](CmdLine& c) { c.mReplaceSourceMacAddr = true; }},
                    OptionCase{{"--force_local_source_mac"},
                               [](CmdLine& c) { c.mReplaceSourceMacAddr = true; }},
                    OptionCase{{"-m", "0a1b2c3d4e5f"}, [](CmdLine& c) { c.mMacAddress = "0a1b2c3d4e5f"; }},
                    OptionCase{{"--mac_address", "x"}, [](CmdLine& c) { c.mMacAddress = "x"; }},
                    OptionCase{{"-n", "lane-1"}, [](CmdLine& c) { c.mFriendlyName = "lane-1"; }},
                    OptionCase{{"--friendly_name", "-d"}, [](CmdLine& c) { c.mFriendlyName = "-d"; }},
                    OptionCase{{"-u", "0"}, [](CmdLine& c) { c.mUniqueIdPresent = true; }},
                    OptionCase{{"--unique_id", "0x1234"},
                               [](CmdLine& c) {
                                   c.mUniqueIdPresent = true;
                                   c.mUniqueId = 0x1234;
                               }},
                    OptionCase{{"-d", "3"}, [](CmdLine& c) { c.mDeviceIndex = 3; }},
                    OptionCase{{"--device_instance", "4"}, [](CmdLine& c) { c.mDeviceIndex = 4; }},
                    OptionCase{{"-p", "5004"}, [](CmdLine& c) { c.mPortNumber = 5004; }},
                    OptionCase{{"--port_number", "65536"}, [](CmdLine& c) { c.mPortNumber = 65536; }},
                    OptionCase{{"-fbs", "100"}, [](CmdLine& c) { c.mFrameCount = 100; }},
                    OptionCase{{"--frame_buffer_size", "0"}, [](CmdLine& c) { c.mFrameCount = 0; }},
                    OptionCase{{"-maxkb", "010"}, [](CmdLine& c) { c.mMaxFileSizeKB = 10; }},
                    OptionCase{{"--max_file_size_KB", "12abc"}, [](CmdLine& c) { c.mMaxFileSizeKB = 12; }},
                    OptionCase{{"-maxmb", "4294967295"}, [](CmdLine& c) { c.mMaxFileSizeMB = 4294967295u; }},
                    OptionCase{{"--max_file_size_MB", "4294967296"}, [](CmdLine&) {}},
                    OptionCase{{"-vtci", "0x6002"}, [](CmdLine& c) { c.mVlanTCI = 0x6002; }},
                    OptionCase{{"--vlan_tci", "-1"}, [](CmdLine& c) { c.mVlanTCI = 0xFFFFFFFF; }},
                    OptionCase{{"-i", "1"}, [](CmdLine& c) { c.mStartFileIndexPresent = true; }},
                    OptionCase{{"--index", "7"},
                               [](CmdLine& c) {
                                   c.mStartFileIndexPresent = true;
                                   c.mStartFileIndex = 7;
                               }},
                    OptionCase{{"-es"}, [](CmdLine& c) { c.mErrorStatus = true; }},
                    OptionCase{{"--error_status"}, [](CmdLine& c) { c.mErrorStatus = true; }},
                    OptionCase{{"-pt"}, [](CmdLine& c) { c.mPreciseTiming = true; }},
                    OptionCase{{"--precise_timing"}, [](CmdLine& c) { c.mPreciseTiming = true; }},
                    OptionCase{{"-rc"}, [](CmdLine& c) { c.mRebaseClock = true; }},
                    OptionCase{{"--rebase_clock"}, [](CmdLine& c) { c.mRebaseClock = true; }},
                    // An option that is given twice has its later value.
                    OptionCase{{"-d", "1", "--device_instance", "2"}, [](CmdLine& c) { c.mDeviceIndex = 2; }},
                    // Words that are no options although they begin with a hyphen.
                    OptionCase{{"-", "--", "-5", "--5"}, [](CmdLine& c) {
                                   c.mCommand = "-";
                                   c.mArgs = {"--", "-5", "--5"};
                               }}));

TEST(CmdLineTest, KeepsTheOptionsAsTheyWereGiven) {
    CmdLine c;
    ASSERT_EQ(Parse(c, {"pcap", "--port_number", "5k", "file", "-v"}), KESTATUS_SUCCESS);
    ASSERT_EQ(c.mGivenOptions.size(), 2u);
    EXPECT_EQ(c.mGivenOptions[0].mWord, "--port_number");
    EXPECT_EQ(c.mGivenOptions[0].mShortName, "p");
    EXPECT_EQ(c.mGivenOptions[0].mValue, "5k");
    EXPECT_EQ(c.mGivenOptions[1].mWord, "-v");
}

TEST(CmdLineTest, DefinesItsOptionsForAnyParser) {
    CmdLine c;
    kestrelon::KECmdLineParserT<char> parser("other", &c.mArgs, nullptr);
    c.DefineCommandLine(parser);
    const char* const words[] = {"other", "pcap", "file", "-u", "5", "-h"};
    ASSERT_EQ(parser.ParseCommandLine(6, words), KESTATUS_SUCCESS);
    EXPECT_EQ(c.mCommand, "pcap"); // -h is for ParseCommandLine
    EXPECT_TRUE(c.mShowHelp);
    EXPECT_EQ(c.mUniqueId, 5u);
    EXPECT_TRUE(c.mUniqueIdPresent);
    EXPECT_EQ(c.mArgs, std::vector<std::string>{"file"});
}

TEST(CmdLineTest, KeepsTheCommandWordWhenParsingFails) {
    CmdLine c;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Parse(c, {"ts2av", "-h", "-x"}), KESTATUS_UNKNOWN_OPTION);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "flowlane: Unknown option -x.\n");
    EXPECT_EQ(c.mCommand, "ts2av");
}

} // namespace
} // namespace flowlane

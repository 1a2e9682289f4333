// What explanations know about commands and options agrees with the command line itself.

#include "explanations/CommandLineOptions.h"

#include <gtest/gtest.h>

#include <string>

#include "commands/CmdLine.h"
#include "commands/Commands.h"

namespace flowlane {
namespace {

// Parses the name with no word behind it: a switch is fine, any other option misses its value.
KESTATUS ParseAlone(const std::string& name) {
    CmdLine cmdLine;
    kestrelon::KECmdLineParserT<char> parser("flowlane", &cmdLine.mArgs, nullptr, [](const char*) {});
    cmdLine.DefineCommandLine(parser);
    const char* const words[] = {"flowlane", name.c_str()};
    return parser.ParseCommandLine(2, words);
}

TEST(CommandLineOptionsTest, EachIsAnOptionOfTheCommandLine) {
    for (const CommandLineOption& option : CommandLineOptions()) {
        const bool isSwitch = option.kind == OptionKind::Switch;
        for (const std::string& name :
             {std::string("-") + option.shortName, std::string("--") + option.longName}) {
            EXPECT_EQ(ParseAlone(name), isSwitch ? KESTATUS_SUCCESS : KESTATUS_MISSING_VALUE) << name;
            EXPECT_EQ(FindOptionWithDashes(name), &option);
        }
        EXPECT_EQ(FindOption(option.shortName), &option);
        EXPECT_EQ(std::string(option.takes).empty(), isSwitch) << option.shortName;
    }
}

TEST(CommandLineOptionsTest, EachOptionOfTheCommandLineIsKnown) {
    CmdLine cmdLine;
    kestrelon::KECmdLineParserT<char> parser("flowlane", &cmdLine.mArgs, nullptr);
    cmdLine.DefineCommandLine(parser);
    EXPECT_EQ(parser.OptionCount(), CommandLineOptions().size());
}

TEST(CommandLineOptionsTest, WhatNoOptionIsCalledIsNotFound) {
    EXPECT_FALSE(FindOption(""));
    EXPECT_FALSE(FindOption("help"));
    EXPECT_FALSE(FindOptionWithDashes("p"));
    EXPECT_FALSE(FindOptionWithDashes("--p"));
    EXPECT_FALSE(FindOptionWithDashes("-port_number"));
}

TEST(CommandLineOptionsTest, CommandsAreThoseOfTheProgram) {
    const Commands commands;
    EXPECT_EQ(CommandWords(), (std::vector<std::string>{commands.ts2av, commands.av2rtp, commands.pcap,
                                                        commands.playpcap, commands.help}));
}

TEST(CommandLineOptionsTest, OptionsBelongToCommands) {
    EXPECT_TRUE(IsUsedBy(*FindOption("v"), "pcap"));
    EXPECT_TRUE(IsUsedBy(*FindOption("p"), "av2rtp"));
    EXPECT_FALSE(IsUsedBy(*FindOption("p"), "ts2av"));
    EXPECT_TRUE(IsUsedBy(*FindOption("maxkb"), "pcap"));
    EXPECT_FALSE(IsUsedBy(*FindOption("maxkb"), "playpcap"));
    EXPECT_TRUE(IsUsedBy(*FindOption("l"), "playpcap"));
    EXPECT_FALSE(IsUsedBy(*FindOption("l"), "pcap"));
}

TEST(CommandLineOptionsTest, NumbersAreReadLikeByTheParser) {
    EXPECT_EQ(NumberRead("010"), 10u);
    EXPECT_EQ(NumberRead("0x10"), 16u);
    EXPECT_EQ(NumberRead("5k"), 5u);
    EXPECT_EQ(NumberRead("-1"), 0xFFFFFFFFu);
    EXPECT_EQ(NumberRead("4294967297"), 1u);
    EXPECT_EQ(NumberRead("k"), 0u);
}

TEST(CommandLineOptionsTest, MacAddressesAreReadInTheUsualForms) {
    for (const char* text : {"025142580001", "02-51-42-58-00-01", "02:51:42:58:00:01", "2:51:42:58:0:1",
                             "0251.4258.0001", "0x025142580001", "02 51 42 58 00 01"}) {
        EXPECT_EQ(MacAddressDigits(text), "025142580001") << text;
    }
    EXPECT_EQ(MacAddressDigits("AA:bb:CC:dd:EE:ff"), "AAbbCCddEEff");
    for (const char* text :
         {"", "-", "x", "02514258000", "0251425800011", "02:51:42:58:00", "02:51:42:58:00:0g",
          "02:51:42:58:00:01:", "192.168.178.001", "10.0.0.1", "::1", "0x", "5004"}) {
        EXPECT_EQ(MacAddressDigits(text), "") << text;
    }
}

} // namespace
} // namespace flowlane

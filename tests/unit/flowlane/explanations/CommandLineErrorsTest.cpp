// The line behind a command line that was refused.

#include "explanations/CommandLineErrors.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace flowlane {
namespace {

constexpr const char* cAllCommands = "The commands are: ts2av, av2rtp, pcap, playpcap, help.";

TEST(CommandLineErrorsTest, UnknownCommand) {
    struct Case {
        const char* command;
        const char* line;
    };
    for (const Case& test : {Case{"", cAllCommands},
                             {"nonsense", cAllCommands},
                             {"-5", cAllCommands},
                             {"{}", cAllCommands},
                             {"HELP", "Did you mean 'help'?"},
                             {"Ts2av", "Did you mean 'ts2av'?"},
                             {"playcap", "Did you mean 'playpcap'?"},
                             {"play", "Did you mean 'playpcap'?"},
                             {"pcpa", "Did you mean 'pcap'?"},
                             {"av2rpt", "Did you mean 'av2rtp'?"},
                             {"tsav", "Did you mean 'ts2av'?"},
                             {"capture", "Did you mean 'pcap'?"},
                             {"version", "The version is shown by: flowlane help"},
                             {"list", "The devices are listed by: quayside2-devices"},
                             {"my.ts", "A command comes first: flowlane ts2av my.ts"},
                             {"it's.ts", "A command comes first: flowlane ts2av 'it'\\''s.ts'"},
                             {"a.PCAPNG", "A command comes first: flowlane playpcap a.PCAPNG"}}) {
        EXPECT_EQ(WordsForUnknownCommand(test.command, {}), test.line) << test.command;
    }
    EXPECT_EQ(WordsForUnknownCommand("my.ts", {"ts2av"}), "The command comes first: flowlane ts2av my.ts");
}

TEST(CommandLineErrorsTest, MissingArgument) {
    EXPECT_EQ(WordsForMissingArgument("ts2av"),
              "ts2av takes the name of a file, for example: flowlane ts2av my.ts");
    EXPECT_EQ(WordsForMissingArgument("pcap"),
              "pcap takes the name of a file, for example: flowlane pcap record");
    EXPECT_EQ(WordsForMissingArgument("playpcap"),
              "playpcap takes the name of a file, for example: flowlane playpcap record.pcapng");
    EXPECT_EQ(WordsForMissingArgument("av2rtp"),
              "av2rtp takes the host that gets the stream, for example: flowlane av2rtp 192.0.2.1");
}

TEST(CommandLineErrorsTest, UnknownOption) {
    struct Case {
        const char* word;
        const char* line;
    };
    for (const Case& test :
         {Case{"-x", ""},
          {"--nonsense", ""},
          {"-verbose", "Did you mean '--verbose'?"},
          {"--v", "Did you mean '-v'?"},
          {"--maxkb", "Did you mean '-maxkb'?"},
          {"-maxxb", "Did you mean '-maxkb' or '-maxmb'?"},
          {"-P", "Did you mean '-p'?"},
          {"--Port_Number", "Did you mean '--port_number'?"},
          {"--port", "Did you mean '--port_number'?"},
          {"--port-number", "Did you mean '--port_number'?"},
          {"--prot_number", "Did you mean '--port_number'?"},
          {"--frame-buffer-size", "Did you mean '--frame_buffer_size'?"},
          {"--port=5004", "The value is a word of its own: --port_number 5004"},
          {"--port_number=5004", "The value is a word of its own: --port_number 5004"},
          {"-p=", "The value is a word of its own: -p "},
          {"-fbs=5", "The value is a word of its own: -fbs 5"},
          {"-p5004", "The value is a word of its own: -p 5004"},
          {"-vtci0x6002", "The value is a word of its own: -vtci 0x6002"},
          {"-nlane-1", "The value is a word of its own: -n lane-1"},
          {"-nlane 1", "The value is a word of its own: -n 'lane 1'"},
          {"-v1", "'-v' takes no value."},
          {"--help=1", "'--help' takes no value."},
          {"--nonsense=1", ""},
          {"--max=1", "Did you mean '-maxkb', '--max_file_size_KB', '-maxmb' or '--max_file_size_MB'?"},
          {"-vl", "Each option is a word of its own: -v -l"},
          {"-V", "The version is shown by: flowlane help"},
          {"--version", "The version is shown by: flowlane help"},
          {"--list", "The devices are listed by: quayside2-devices"},
          {"--interface", "A device is chosen with -n and its name, or with -d and its index."},
          {"-w",
           "The file name stands behind the command without an option, for example: flowlane pcap record"},
          {"--host",
           "The host stands behind the command without an option, for example: flowlane av2rtp 192.0.2.1"}}) {
        EXPECT_EQ(WordsForUnknownOption(test.word), test.line) << test.word;
    }
}

TEST(CommandLineErrorsTest, RefusedValueTellsWhatTheOptionTakes) {
    EXPECT_EQ(WordsForRefusedValue({"-p", "p", "abc"}, {}), "-p takes a number from 0 to 65535.");
    EXPECT_EQ(WordsForRefusedValue({"--port_number", "p", ""}, {""}),
              "--port_number takes a number from 0 to 65535.");
    EXPECT_EQ(WordsForRefusedValue({"-n", "n", ""}, {"lane-1"}),
              "-n takes the name of a device. The devices are listed by: quayside2-devices");
    EXPECT_EQ(WordsForRefusedValue({"-x", "", ""}, {}), "");
}

TEST(CommandLineErrorsTest, NameOfADeviceGoesWithItsOption) {
    EXPECT_EQ(WordsForRefusedValue({"-i", "i", "eth0"}, {"lane-1", "eth0"}),
              "'eth0' is the name of a device. A name goes with -n: -n eth0");
}

TEST(CommandLineErrorsTest, MacAddressIsRewritten) {
    EXPECT_EQ(WordsForRefusedMacAddress("02-51-42-58-00-01"),
              "-m takes 12 hexadecimal digits: -m 025142580001");
    EXPECT_EQ(WordsForRefusedMacAddress("02514258000"),
              "-m takes 12 hexadecimal digits, for example: -m 025142580001");
}

} // namespace
} // namespace flowlane

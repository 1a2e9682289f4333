// What is said about words and options that a command does not use as its user probably meant.

#include "explanations/CommandLineNotes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace flowlane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const DevicesSeen cDevices = {{"lane-1", "lane-2", "eth0", ""}, "lane-1"};

std::vector<std::string> OptionNotes(const char* command, const std::vector<GivenOption>& options) {
    return NotesOnOptions({command, {}, options});
}

std::vector<std::string> ArgumentNotes(const char* command, const std::vector<std::string>& arguments,
                                       const std::vector<GivenOption>& options = {}) {
    return NotesOnArguments({command, arguments, options}, cDevices);
}

TEST(CommandLineNotesTest, PlainNumbersAreFine) {
    for (const char* text :
         {"0", "5", "010", "65535", "0x1F", "0XFFFF", "+5", "000000000000000000000000005"}) {
        EXPECT_THAT(OptionNotes("av2rtp", {{"-p", "p", text}}), IsEmpty()) << text;
    }
    EXPECT_THAT(OptionNotes("pcap", {{"-fbs", "fbs", "4294967295"}}), IsEmpty());
    EXPECT_THAT(OptionNotes("pcap", {{"-fbs", "fbs", "0x00000000000000000000FFFFFFFF"}}), IsEmpty());
}

TEST(CommandLineNotesTest, OtherNumbersAreSaidAsTheyAreRead) {
    EXPECT_THAT(OptionNotes("av2rtp", {{"-p", "p", "5k"}}), ElementsAre("-p 5k is read as 5."));
    EXPECT_THAT(OptionNotes("av2rtp", {{"--port_number", "p", "5.5"}}),
                ElementsAre("--port_number 5.5 is read as 5."));
    EXPECT_THAT(OptionNotes("pcap", {{"-maxkb", "maxkb", "5k"}}), ElementsAre("-maxkb 5k is read as 5 kB."));
    EXPECT_THAT(OptionNotes("pcap", {{"-fbs", "fbs", "0x"}}), ElementsAre("-fbs 0x is read as 0 frames."));
    EXPECT_THAT(OptionNotes("ts2av", {{"-u", "u", "4294967296"}}),
                ElementsAre("-u 4294967296 is read as 0."));
    EXPECT_THAT(OptionNotes("ts2av", {{"-d", "d", "0x100000001"}}),
                ElementsAre("-d 0x100000001 is read as 1."));
    EXPECT_THAT(OptionNotes("ts2av", {{"-d", "d", "99999999999999999999999"}}),
                ElementsAre("-d 99999999999999999999999 is read as 4294967295."));
}

TEST(CommandLineNotesTest, TooLargeNumbersAreSaidWithTheirLimit) {
    EXPECT_THAT(OptionNotes("av2rtp", {{"-p", "p", "65536"}}),
                ElementsAre("-p takes a number from 0 to 65535."));
    EXPECT_THAT(OptionNotes("av2rtp", {{"-p", "p", "-5"}}),
                ElementsAre("-p -5 is read as 4294967291. -p takes a number from 0 to 65535."));
}

TEST(CommandLineNotesTest, OnlyTheLastValueOfAnOptionCounts) {
    EXPECT_THAT(OptionNotes("av2rtp", {{"-p", "p", "5k"}, {"--port_number", "p", "5"}}), IsEmpty());
}

TEST(CommandLineNotesTest, FileSizeThatWrapsIsSaid) {
    EXPECT_THAT(OptionNotes("pcap", {{"-maxmb", "maxmb", "4294"}}), IsEmpty());
    EXPECT_THAT(OptionNotes("pcap", {{"-maxkb", "maxkb", "4294967"}}), IsEmpty());
    EXPECT_THAT(
        OptionNotes("pcap", {{"-maxmb", "maxmb", "5000"}}),
        ElementsAre("-maxmb 5000 gives a limit of 705032704 bytes. The largest possible value is 4294."));
    EXPECT_THAT(OptionNotes("pcap", {{"-maxkb", "maxkb", "536870912"}}),
                ElementsAre("-maxkb 536870912 gives no limit. The largest possible value is 4294967."));
}

TEST(CommandLineNotesTest, OptionThatTheCommandDoesNotUse) {
    EXPECT_THAT(OptionNotes("pcap", {{"-p", "p", "5k"}}), ElementsAre("-p is not used by pcap."));
    EXPECT_THAT(
        OptionNotes("pcap", {{"-p", "p", "5"}, {"--loop", "l", ""}, {"-p", "p", "6"}, {"-u", "u", "1"}}),
        ElementsAre("-p, --loop and -u are not used by pcap."));
    EXPECT_THAT(OptionNotes("pcap", {{"-v", "v", ""}, {"-es", "es", ""}, {"-n", "n", "lane-1"}}), IsEmpty());
}

TEST(CommandLineNotesTest, NameAndIndexExcludeEachOther) {
    EXPECT_THAT(OptionNotes("pcap", {{"-n", "n", "lane-1"}, {"-d", "d", "1"}}),
                ElementsAre("-d is ignored: -n chooses the device."));
}

TEST(CommandLineNotesTest, EmptyTextIsNoOption) {
    EXPECT_THAT(OptionNotes("pcap", {{"-n", "n", ""}}),
                ElementsAre("The name behind -n is empty. The device with index 0 is used."));
    EXPECT_THAT(OptionNotes("pcap", {{"-d", "d", "2"}, {"-n", "n", ""}}),
                ElementsAre("The name behind -n is empty. The device with index 2 is used."));
    EXPECT_THAT(OptionNotes("pcap", {{"-n", "n", ""}, {"-n", "n", "lane-1"}}), IsEmpty());
    EXPECT_THAT(OptionNotes("ts2av", {{"-m", "m", ""}}),
                ElementsAre("The address behind -m is empty. The broadcast address is used."));
    EXPECT_THAT(OptionNotes("av2rtp", {{"-m", "m", ""}}),
                ElementsAre("The address behind -m is empty. Every sender is accepted."));
    EXPECT_THAT(OptionNotes("pcap", {{"-m", "m", ""}}), ElementsAre("-m is not used by pcap."));
}

TEST(CommandLineNotesTest, OptionThatBecomesAValue) {
    EXPECT_THAT(OptionNotes("pcap", {{"-n", "n", "-d"}}), ElementsAre("'-d' is taken as the value of -n."));
    EXPECT_THAT(OptionNotes("ts2av", {{"--mac_address", "m", "--loop"}}),
                ElementsAre("'--loop' is taken as the value of --mac_address."));
    EXPECT_THAT(OptionNotes("pcap", {{"-n", "n", "-eth"}}), IsEmpty());
}

TEST(CommandLineNotesTest, RestOfAnAddressIsIgnored) {
    EXPECT_THAT(OptionNotes("ts2av", {{"-m", "m", "02514258000199"}}),
                ElementsAre("-m 02514258000199 is read as 025142580001."));
    EXPECT_THAT(OptionNotes("ts2av", {{"-m", "m", "025142580001"}}), IsEmpty());
    EXPECT_THAT(OptionNotes("ts2av", {{"-m", "m", "02-51-42-58-00-01"}}), IsEmpty()); // it was refused
}

TEST(CommandLineNotesTest, FirstArgumentThatNamesADevice) {
    EXPECT_THAT(
        ArgumentNotes("pcap", {"eth0"}),
        ElementsAre("'eth0' is taken as the file name. To use the device of this name give a file name "
                    "and: -n eth0"));
    EXPECT_THAT(ArgumentNotes("av2rtp", {"eth0"}),
                ElementsAre("'eth0' is taken as the host. To use the device of this name give a host and: "
                            "-n eth0"));
    EXPECT_THAT(ArgumentNotes("pcap", {"eth0"}, {{"-n", "n", "eth0"}}), IsEmpty());
    EXPECT_THAT(ArgumentNotes("pcap", {"eth1"}), IsEmpty());
    EXPECT_THAT(ArgumentNotes("pcap", {""}), IsEmpty());
}

TEST(CommandLineNotesTest, SurplusWord) {
    EXPECT_THAT(ArgumentNotes("ts2av", {"my.ts", "lane-2"}),
                ElementsAre("'lane-2' is ignored. A device is chosen with: -n lane-2. The device used is "
                            "'lane-1'."));
    EXPECT_THAT(ArgumentNotes("ts2av", {"my.ts", "lane-2"}, {{"-d", "d", "0"}}),
                ElementsAre("'lane-2' is ignored. The device used is 'lane-1'."));
    EXPECT_THAT(ArgumentNotes("pcap", {"file", "1"}),
                ElementsAre("'1' is ignored. A device is chosen with: -d 1. The device used is 'lane-1'."));
    EXPECT_THAT(ArgumentNotes("av2rtp", {"127.0.0.1", "5004"}),
                ElementsAre("'5004' is ignored. The port is given with: -p 5004"));
    EXPECT_THAT(ArgumentNotes("av2rtp", {"127.0.0.1", "5004"}, {{"-p", "p", "1"}, {"-n", "n", "x"}}),
                ElementsAre("'5004' is ignored: av2rtp takes one host."));
    EXPECT_THAT(ArgumentNotes("ts2av", {"my.ts", "02:51:42:58:00:02"}),
                ElementsAre("'02:51:42:58:00:02' is ignored. A MAC address is given with: -m 025142580002"));
    EXPECT_THAT(ArgumentNotes("pcap", {"my", "file"}),
                ElementsAre("'file' is ignored: pcap takes one file name. The device used is 'lane-1'."));
}

TEST(CommandLineNotesTest, DeviceUsedIsNamedOnce) {
    EXPECT_THAT(ArgumentNotes("av2rtp", {"a", "5004", "b", "c"}),
                ElementsAre("'5004' is ignored. The port is given with: -p 5004",
                            "'b' is ignored: av2rtp takes one host. The device used is 'lane-1'.",
                            "'c' is ignored: av2rtp takes one host."));
}

TEST(CommandLineNotesTest, NoDeviceIsOpen) {
    EXPECT_THAT(NotesOnArguments({"pcap", {"my", "file"}, {}}, {}),
                ElementsAre("'file' is ignored: pcap takes one file name."));
}

TEST(CommandLineNotesTest, ManyWordsAreCounted) {
    EXPECT_THAT(ArgumentNotes("pcap", {"a", "b", "c", "d", "e", "f"}, {{"-d", "d", "0"}}),
                ElementsAre("'b' is ignored: pcap takes one file name.",
                            "'c' is ignored: pcap takes one file name.",
                            "'d' is ignored: pcap takes one file name.", "Further words are ignored: 2"));
}

TEST(CommandLineNotesTest, DevicesAreOnlyNeededForWordsThatMayNameOne) {
    EXPECT_FALSE(NeedsDeviceNames({"pcap", {}, {}}));
    EXPECT_FALSE(NeedsDeviceNames({"ts2av", {"my.ts"}, {}}));
    EXPECT_FALSE(NeedsDeviceNames({"ts2av", {"a/b"}, {}}));
    EXPECT_FALSE(NeedsDeviceNames({"av2rtp", {"::1"}, {}}));
    EXPECT_FALSE(NeedsDeviceNames({"pcap", {"eth0"}, {{"-n", "n", "eth0"}}}));
    EXPECT_TRUE(NeedsDeviceNames({"pcap", {"eth0"}, {}}));
    EXPECT_TRUE(NeedsDeviceNames({"pcap", {"a/b", "c"}, {{"-n", "n", "eth0"}}}));
}

} // namespace
} // namespace flowlane

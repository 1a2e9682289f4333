"""Scenarios for the lines on the command line and of av2rtp: the line, and the function that makes the mistake."""

import rtp
import tsfile
from lanes import LANE_1, LANE_2
from mistakes import RUNNING, fake, fake_environment, until, words
from test_av2rtp_explanations import frame, receive

STATISTICS = "AVTP packets received: "


def given(*args):
    """ts2av with these words, behind which it ends at once."""
    return lambda case: words("ts2av", "my.ts", *args)


def command(*args):
    return lambda case: words(*args)


def read_statistics(program):
    """What has come before is in the third line."""
    for _ in range(3):
        program.read_until(STATISTICS)


def forward(*args):
    """av2rtp with a short stream."""
    def make(case):
        case.file("short.ts", tsfile.stream(seconds=0.1, rate=200))

        def send(program):
            assert case.segment.run("ts2av", "short.ts", "-n", LANE_1).returncode == 0
            read_statistics(program)
        return until(RUNNING, case.segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2, *args, act=send)
    return make


def nobody_listens(case):
    return forward("-p", rtp.closed_port("127.0.0.1"))(case)


def av2rtp_with(script):
    return lambda case: until(RUNNING, fake_environment(script), "av2rtp", "127.0.0.1", act=read_statistics)


def capture(*args):
    return lambda case: until(RUNNING, case.segment.env, "pcap", "file", *args)


SCENARIOS = {
    # All commands and the command line
    "The commands are: TEXT.": command("nonsense"),
    "Did you mean 'WORD'?": command("ts2avx"),
    "Did you mean 'WORD' or 'OTHER'?": given("-maxxb"),
    "The command comes first: flowlane COMMAND WORD": command("record", "pcap"),
    "A command comes first: flowlane COMMAND FILE": command("my.ts"),
    "The version is shown by: flowlane help": given("--version"),
    "The devices are listed by: quayside2-devices": given("--list"),
    "A device is chosen with -n and its name, or with -d and its index.": given("--interface"),
    "The file name stands behind the command without an option, for example: flowlane pcap record": given("-w"),
    "The host stands behind the command without an option, for example: flowlane av2rtp 192.0.2.1": given("--host"),
    "COMMAND takes the name of a file, for example: flowlane COMMAND FILE": command("pcap"),
    "av2rtp takes the host that gets the stream, for example: flowlane av2rtp 192.0.2.1": command("av2rtp"),
    "'OPTION' takes no value.": given("--help=1"),
    "The value is a word of its own: OPTION VALUE": given("-p5004"),
    "Each option is a word of its own: TEXT": given("-vl"),
    "OPTION takes a number from 0 to N.": given("-u", "x"),
    "OPTION takes a number of frames, for example: -fbs N": given("-fbs", "x"),
    "OPTION takes a number of kilobytes from 0 to N.": given("-maxkb"),
    "OPTION takes a number of megabytes from 0 to N.": given("-maxmb"),
    "OPTION takes the index of a device. The devices are listed by: quayside2-devices": given("-d", "x"),
    "OPTION takes the name of a device. The devices are listed by: quayside2-devices": given("-n"),
    "OPTION takes the number of the first file of a set, for example: -i N": given("-i", "x"),
    "OPTION takes 12 hexadecimal digits, for example: -m ADDRESS": given("-m", "x"),
    "-m takes 12 hexadecimal digits: -m ADDRESS": given("-m", "02:51:42:58:00:01"),
    "'DEVICE' is the name of a device. A name goes with -n: -n DEVICE": given("-d", "fake-2"),
    "OPTION is not used by COMMAND.": given("-p", "5"),
    "OPTION and OTHER are not used by COMMAND.": given("-p", "5", "-fbs", "5"),
    "OPTION VALUE is read as TEXT.": given("-u", "5k"),
    "OPTION VALUE is read as N. OPTION takes a number from 0 to M.": given("-u", "-5"),
    "OPTION VALUE gives a limit of N bytes. The largest possible value is M.": capture("-maxmb", "5000"),
    "OPTION VALUE gives no limit. The largest possible value is M.": capture("-maxkb", "536870912"),
    "'WORD' is taken as the value of OPTION.": given("-n", "-d"),
    "The name behind -n is empty. The device with index N is used.": given("-n", ""),
    "The address behind -m is empty. The broadcast address is used.": given("-m", ""),
    "The address behind -m is empty. Every sender is accepted.": command("av2rtp", "127.0.0.1", "-m", ""),
    "-d is ignored: -n chooses the device.": given("-n", "fake-1", "-d", "1"),
    "'WORD' is taken as the file name. To use the device of this name give a file name and: -n DEVICE":
        command("ts2av", "fake-2"),
    "'WORD' is taken as the host. To use the device of this name give a host and: -n DEVICE":
        lambda case: case.lanes("av2rtp", LANE_2),
    "'WORD' is ignored. A device is chosen with: -n DEVICE. The device used is 'OTHER'.": given("fake-2"),
    "'WORD' is ignored. A device is chosen with: -d N. The device used is 'OTHER'.": given("1"),
    "'WORD' is ignored. The device used is 'DEVICE'.": given("fake-1", "-d", "1"),
    "'WORD' is ignored. A MAC address is given with: -m ADDRESS": given("025142580002"),
    "'WORD' is ignored. The port is given with: -p PORT": command("av2rtp", "127.0.0.1", "5004"),
    "'WORD' is ignored: COMMAND takes one file name. The device used is 'DEVICE'.": given("b.ts"),
    "'WORD' is ignored: av2rtp takes one host.": command("av2rtp", "127.0.0.1", "b", "-n", "fake-1"),
    "Further words are ignored: N": given("a", "b", "c", "d", "e"),
    "The device library has interface version VALUE, and flowlane needs VALUE. Is LD_LIBRARY_PATH set to another "
    "library?":
        lambda case: fake("help", script="compatible=0,GetApiVersion=0x00010005"),
    # av2rtp
    "The host stands alone, the port behind -p: flowlane av2rtp HOST -p PORT": command("av2rtp", "127.0.0.1:5004"),
    "The host stands alone: flowlane av2rtp HOST": command("av2rtp", "[::1]"),
    "The host 'HOST' is not known (REASON). Check the name, or give the host's IP address.":
        lambda case: fake("av2rtp", "a" * 64),
    "Sending to ADDRESS is not possible: REASON. There is no route to it; the routes are listed by: ip route":
        lambda case: fake("av2rtp", "192.0.2.1"),
    "Sending to ADDRESS is not possible: REASON. Is it a broadcast address? av2rtp sends to one host or to a multicast "
    "group.": lambda case: fake("av2rtp", "127.255.255.255"),
    "Sending to ADDRESS is not possible: REASON. Does the address need its interface, as in fe80::1%eth0?":
        lambda case: fake("av2rtp", "fe80::1"),
    "UDP packets that could not be sent to ADDRESS: N tried again, M given up (REASON)": nobody_listens,
    "No frame has come to the device 'DEVICE'. Check the sender, or choose another device with -n.":
        lambda case: until(STATISTICS, case.segment.env, "av2rtp", "127.0.0.1", "-n", LANE_2, times=2),
    "No stream for this receiver has come to the device 'DEVICE'. Of N frames: TEXT.": forward("-m", "025142580003"),
    "The received stream has N gaps: frames were lost on the way, the sender has started again, or streams are mixed "
    "(choose one with -m or -u).": lambda case: receive(case.segment, case.folder, [frame(1), frame(5)])[0],
    "N damaged frames were left out of the stream.":
        lambda case: receive(case.segment, case.folder, [frame(198, excess=1), frame(199, excess=1)])[0],
    "Received frames lost because reading was too slow: N": av2rtp_with("lost_frames=1"),
    "AVTP source has ended, st=VALUE.": av2rtp_with("WaitForRawFrame=0xE0000031"),
}

"""Scenarios for the lines on the files of ts2av, playpcap and pcap, and on sending, replaying and capturing: the line,
and the function that makes the mistake."""

import gzip
import os
import signal
import struct
import threading

import tsfile
from lanes import Running, wait_for
from mistakes import RUNNING, WITHOUT_RIGHTS, fake, fake_environment, fake_with_prefix, until
from pcapng import SECTION, START, packet
from test_pcap_explanations import Capturing, limit_file_size, send
from test_playpcap_explanations import big_endian_file, file_of, interface, packets
from test_ts2av_explanations import stream_with_pcrs

SECOND = tsfile.CLOCK
SHORT_STREAM = tsfile.stream(seconds=0.5, rate=200)


def ts2av(path, content=None, *options, script=""):
    """With a file of this content, when there is one."""
    def make(case):
        if content is not None:
            case.file(path, content)
        return fake("ts2av", path, *options, script=script)
    return make


def playpcap(content, *options, name="file.pcapng", script="devices=1"):
    def make(case):
        case.file(name, content)
        return fake("playpcap", name, *options, script=script)
    return make


def replay_of_set(*contents):
    def make(case):
        for number, content in enumerate(contents, 1):
            case.file(f"set_{number:05}.pcapng", content)
        return fake("playpcap", "set", "-i", "1", "-fbs", "1", script="devices=1")
    return make


def pcap(*options):
    """A capture that cannot start."""
    return lambda case: fake("pcap", "file", *options, script="devices=1")


def pcrs_with_step(step):
    return stream_with_pcrs({i: SECOND + i * 900 + (step if i >= 50 else 0) for i in range(0, 101, 10)}, 101)


# Its packets leave together.
ONLY_JUMPS = stream_with_pcrs({0: 0, 10: 2 * SECOND, 20: 0}, 30)


def with_packets_of_another_size(before, after):
    return b"".join(bytes(before) + one + bytes(after) for one in tsfile.packets(SHORT_STREAM))


def with_invalid_packet():
    all_packets = tsfile.packets(SHORT_STREAM)
    all_packets[33] = bytes(188)
    return b"".join(all_packets)


def missing_link(case):
    os.symlink("nowhere.ts", "a.ts")
    return fake("ts2av", "a.ts")


def link_to_itself(case):
    os.symlink("a.ts", "a.ts")
    return fake("ts2av", "a.ts")


def folder_as_file(case):
    os.mkdir("folder")
    return fake("ts2av", "folder")


def path_through_a_file(case):
    return fake("ts2av", case.file("file") + "/a.ts")


def without_an_extension(case):
    case.file("a.ts", b"x")
    return fake("ts2av", "a")


def file_without_rights(case):
    case.file("a.ts", b"x", mode=0)
    return fake_with_prefix(WITHOUT_RIGHTS, "ts2av", "a.ts")


def closed_folder(case):
    os.mkdir("closed", mode=0)
    return fake_with_prefix(WITHOUT_RIGHTS, "ts2av", "closed/a.ts")


def pipe(content):
    def make(case):
        os.mkfifo("pipe")
        threading.Thread(target=lambda: (case.folder / "pipe").write_bytes(content), daemon=True).start()
        return fake("ts2av", "pipe")
    return make


def loop_of_a_pipe(case):
    reader, writer = os.pipe()
    os.write(writer, SHORT_STREAM)
    os.close(writer)
    lines = fake_with_prefix([], "ts2av", f"/dev/fd/{reader}", "-l", pass_fds=(reader,))
    os.close(reader)
    return lines


def broken_reading(case):
    path = case.folder / case.file("a.ts", SHORT_STREAM)
    with Running(fake_environment(f"breaks_reading={path}"), "ts2av", "a.ts", "-l") as program:
        return [program.read_error(), program.read_error()]


def set_with_other_numbers(case):
    for number in (3, 4, 6):
        case.file(f"set_{number:05}.pcapng", file_of(1))
    return fake("playpcap", "set", script="devices=1")


def classic_file_without_extension(case):
    case.file("file.pcap")
    return fake("playpcap", "file", script="devices=1")


def device_as_file(case):
    os.symlink("/dev/zero", "file.pcapng")
    return fake("playpcap", "file.pcapng", script="devices=1")


def capture_in_a_folder(case):
    os.mkdir("file.pcapng")
    return fake("pcap", "file", script="devices=1")


def capture_on_a_full_disk(case):
    os.symlink("/dev/full", "file.pcapng")
    return fake("pcap", "file", script="devices=1")


def capture_over_a_protected_file(case):
    case.file("file.pcapng", mode=0o444)
    return fake_with_prefix(WITHOUT_RIGHTS, "pcap", "file", script="devices=1")


def capture_in_a_protected_folder(case):
    os.mkdir("folder", mode=0o555)
    return fake_with_prefix(WITHOUT_RIGHTS, "pcap", "folder/file", script="devices=1")


def capture_over_an_earlier_one(case):
    case.file("file_00001.pcapng")
    script = "devices=1,WaitForRawFrame=0xE0000003,WaitForRawFrame_ms=100"
    return until(RUNNING, fake_environment(script), "pcap", "file", "-maxmb", "1")


def capture_with_full_next_file(case):
    os.symlink("/dev/full", "file_00002.pcapng")
    with Capturing(case.segment, "file", "-maxkb", "10") as program:
        def has_ended():
            send(case.segment, 20, "-l", "1000")
            return program.process.poll() is not None
        wait_for(has_ended, "the end of the capture")
        program.wait_for_end()
    return program.stderr.splitlines()


def writing_that_fails(case):
    """For a while, when it can be written again."""
    with Capturing(case.segment, "file") as program:
        limit_file_size(program, 100000)
        send(case.segment, 1000, "-l", "500")
        lines = [program.read_error()]
        limit_file_size(program, 10**9)
        program.read_until("successfully written")
        send(case.segment, 100, "-l", "500")
        lines.append(program.read_error())
    return lines


def frames_that_are_lost_at_the_end(case):
    with Capturing(case.segment, "file") as program:
        limit_file_size(program, 500)
        send(case.segment, 3, "-l", "500")
        program.read_until("3 frames successfully written")
    return program.stderr.splitlines()


def too_few_buffers(case):
    with Capturing(case.segment, "file", "-fbs", "0") as program:
        send(case.segment, 1000, "-l", "100")
        program.read_until("1000 frames dropped")
    return program.stderr.splitlines()


def frames_that_come_while_the_machine_is_busy(case):
    with Capturing(case.segment, "file") as program:
        program.process.send_signal(signal.SIGSTOP)
        send(case.segment, 100000, "-l", "300")
        program.process.send_signal(signal.SIGCONT)
        send(case.segment, 1000, "-l", "300", "-r", "2000")
        program.read_until("successfully written")
    return program.stderr.splitlines()


SCENARIOS = {
    # Files of ts2av
    "The name of the file is empty. Give the name of a file.": ts2av(""),
    "There is no folder 'FOLDER'. Check the path of the file.": ts2av("no/a.ts"),
    "There is no file 'FILE'. Check its name, or give its whole path.": ts2av("a.ts"),
    "There is no file 'FILE'. Did you mean 'OTHER'?": without_an_extension,
    "'FILE' is a link to a file that does not exist.": missing_link,
    "'FILE' is a link that leads back to itself.": link_to_itself,
    "A part of the path 'FILE' is a file, not a folder. Check the path.": path_through_a_file,
    "'FILE' is a folder. Give the name of a file in it.": folder_as_file,
    "You are not allowed to read 'FILE'. Allow it with: COMMANDLINE": file_without_rights,
    "You are not allowed to look into the folder 'FOLDER'. Ask its owner.": closed_folder,
    "'FILE' cannot be read: REASON.": ts2av("x" * 300),
    "'FILE' is empty: there is nothing to send.": ts2av("a.ts", b""),
    "'FILE' is shorter than one packet of a transport stream (188 bytes): there is nothing to send.":
        ts2av("a.ts", b"\x47"),
    "No packet of a transport stream (188 bytes) came from 'FILE': there was nothing to send.": pipe(b""),
    "'FILE' is TEXT, no transport stream. Convert it with: COMMANDLINE": ts2av("a.mp4", b"\0\0\0\x20ftypisom" * 500),
    "'FILE' is a pcap-ng file, no transport stream. Send it with: flowlane playpcap 'FILE'":
        ts2av("a.pcapng", b"\x0a\x0d\x0d\x0a" + bytes(5000)),
    "'FILE' is a classic pcap file, no transport stream. Convert it for flowlane playpcap with: COMMANDLINE":
        ts2av("a.pcap", b"\xd4\xc3\xb2\xa1" + bytes(5000)),
    "'FILE' is no transport stream: its packets do not begin with the sync byte 0x47. Give the name of a .ts file.":
        ts2av("a.txt", b"text" * 500),
    "'FILE' is no transport stream: its packets do not begin with the sync byte 0x47.": pipe(bytes(1880)),
    "'FILE' has packets of 192 bytes with time codes (M2TS) instead of 188. Convert it with: COMMANDLINE":
        ts2av("a.ts", with_packets_of_another_size(4, 0)),
    "'FILE' has packets of 204 bytes with error correction instead of 188. Convert it with: COMMANDLINE":
        ts2av("a.ts", with_packets_of_another_size(0, 16)),
    "The packets of 'FILE' begin at byte N. Cut what is before them: COMMANDLINE":
        ts2av("a.ts", b"hello" + SHORT_STREAM),
    "'FILE' has no clock reference (PCR), but two are needed to time its packets. Repair it with: COMMANDLINE":
        ts2av("a.ts", tsfile.packet(0) * 3),
    "'FILE' has only one clock reference (PCR), but two are needed to time its packets. Repair it with: COMMANDLINE":
        ts2av("a.ts", tsfile.packet(0, pcr=900) + tsfile.packet(1)),
    "Left out of 'FILE': N packets without the sync byte 0x47, first at byte M. Repair it with: COMMANDLINE":
        ts2av("a.ts", with_invalid_packet()[:188 * 50] + bytes(188) + with_invalid_packet()[188 * 50:]),
    "Left out of 'FILE': N packets where its clock steps forward by a second or more, first at packet M. Play it with: "
    "flowlane ts2av -rc 'FILE'": ts2av("a.ts", pcrs_with_step(2 * SECOND)),
    "Left out of 'FILE': N packets, because M in a row have no clock reference (PCR), first near packet K. Repair it "
    "with: COMMANDLINE": ts2av("a.ts", stream_with_pcrs({0: 0, 10: 900, 10020: 1800, 10030: 2700}, 10031)),
    "The clock of 'FILE' goes back at packet N: from there packets are sent without pacing. Play it with: "
    "flowlane ts2av -rc 'FILE'": ts2av("a.ts", pcrs_with_step(-SECOND)),
    "The clock of 'FILE' jumps by TIME at packet N. Its pacing goes on from there.":
        ts2av("a.ts", pcrs_with_step(-SECOND), "-rc"),
    "The clock of 'FILE' jumps N times, the last time by TIME at packet M. Its pacing goes on from there.":
        ts2av("a.ts", ONLY_JUMPS, "-rc"),
    "The clock of 'FILE' jumps at each clock reference (PCR): its packets are sent without pacing. Repair it with: "
    "COMMANDLINE": ts2av("a.ts", ONLY_JUMPS, "-rc"),
    "The clock of 'FILE' stands still: its packets are sent without pacing. Repair it with: COMMANDLINE":
        ts2av("a.ts", stream_with_pcrs({0: 900, 10: 900, 20: 900}, 21)),
    "'FILE' is a pipe, which cannot be read again from its start. Leave out the option -l.": loop_of_a_pipe,
    "'FILE' cannot be read any further: REASON. Copy the file to another place and try again.": broken_reading,
    # Sending with ts2av
    "Frames not sent because the link was down or busy: N": ts2av("a.ts", SHORT_STREAM, script="lost_frames=1"),
    "Device 'DEVICE' had no room for AVTP packets N times and discarded them. Use a faster link or a stream with a "
    "lower rate.": ts2av("a.ts", SHORT_STREAM, script="CheckSubmitRawFrame=0xE0000021,WaitForTxResources=0"),
    "Device 'DEVICE' cannot send: REASON. Check the device and start again.":
        ts2av("a.ts", SHORT_STREAM, script="SendRawFrames=0xE0000031"),
    "Device 'DEVICE' does not tell its address: REASON. Use another device.":
        ts2av("a.ts", SHORT_STREAM, script="mac_size=5"),
    "TS file source has ended, st=VALUE.": ts2av("a.ts", SHORT_STREAM, script="SendRawFrames=0xE0000031"),
    # Files of playpcap
    "File 'FILE' does not exist.": lambda case: fake("playpcap", "file", script="devices=1"),
    "There is a set of files of this name, with the numbers TEXT. Play it with: flowlane playpcap NAME -i N":
        set_with_other_numbers,
    "'FILE' is a single file. Leave out -i to play it.": playpcap(file_of(1), "-i", "1"),
    "There is 'FILE'. playpcap replays pcap-ng files. Convert it with: COMMANDLINE": classic_file_without_extension,
    "'FILE' is a pipe or a device. playpcap replays only regular files.": device_as_file,
    "'FILE' is a pcap-ng file in the other byte order. Convert it with: COMMANDLINE": playpcap(big_endian_file(3)),
    "'FILE' is a classic pcap file. Convert it with: COMMANDLINE":
        playpcap(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1) + bytes(100)),
    "'FILE' is compressed with NAME. Unpack it with: COMMANDLINE": playpcap(gzip.compress(file_of(2))),
    "'FILE' is not a capture file. playpcap replays pcap-ng files.": playpcap(b"This is a text, and no capture.\n"),
    "'FILE' has no packets.": playpcap(file_of(0)),
    "The set up to 'FILE' has no packets.": replay_of_set(file_of(0)),
    "None of the N packets in 'FILE' can be sent: TEXT.": playpcap(SECTION + interface(link_type=113) + packets(5)),
    "None of the N packets in the set up to 'FILE' can be sent: TEXT.":
        replay_of_set(SECTION + interface(link_type=113) + packets(5)),
    "N of M packets were left out: TEXT.": playpcap(file_of(2) + packet(bytes(2000), START + 6000)),
    "playpcap needs frame buffers. Leave out -fbs 0, or give a larger number.": playpcap(file_of(1), "-fbs", "0"),
    "-fbs N is too much: M frame buffers of K bytes fill the greatest possible memory of 4 GiB.":
        playpcap(file_of(1), "-fbs", "2821924"),
    # Replay
    "Stop reading from PCAPNG file(s) because an unrecoverable error occurred...":
        playpcap(file_of(3) + packets(1, START - 10**9)),
    "PCAPNG file reader has ended, st=VALUE.": playpcap(file_of(3), script="CheckSubmitRawFrame=0xE0000042"),
    "The time goes back at packet N of 'FILE', from TIME to TIME UTC. Sort the packets with: COMMANDLINE":
        playpcap(file_of(3) + packets(1, START - 10**9), "-fbs", "1"),
    "The time goes back at packet N of 'FILE', from TIME to TIME UTC; M frames that were read ahead were not sent. "
    "Sort the packets with: COMMANDLINE": playpcap(file_of(150) + packets(50, START - 10**9)),
    "The unit of time changes at packet N of 'FILE'; M frames that were read ahead were not sent. Give all packets one "
    "unit with: COMMANDLINE":
        playpcap(file_of(2) + interface(resolution=6) +
                 packet(bytes(60), START // 1000 + 50).replace(struct.pack("<II", 6, 92) + bytes(4),
                                                               struct.pack("<III", 6, 92, 1), 1)),
    "'FILE' belongs to an earlier capture: its packet N is earlier than the last one of 'OTHER'. Move it to another "
    "folder.": replay_of_set(file_of(2), file_of(2, START - 10**9)),
    "'FILE', the next file of the set, cannot be read: REASON.": replay_of_set(file_of(3), b""),
    "'FILE' ends in the middle of the block behind packet N. Keep the packets before it with: COMMANDLINE":
        playpcap(file_of(4)[:-4], "-fbs", "1"),
    "'FILE' is damaged behind packet N. Keep the packets before it with: COMMANDLINE":
        playpcap(file_of(3) + struct.pack("<II", 6, 3) + bytes(84), "-fbs", "1"),
    "'FILE' ends before its first packet. Nothing of it can be sent.": playpcap(file_of(1)[:-4]),
    "'FILE' is damaged before its first packet. Nothing of it can be sent.":
        playpcap(file_of(0) + struct.pack("<II", 6, 3) + bytes(84)),
    "Device 'DEVICE' does not tell its address: REASON.": playpcap(file_of(2), script="mac_size=8"),
    "Device 'DEVICE' cannot send packet N of 'FILE', because its M bytes are more than the device takes. Raise the MTU "
    "of the interface.": playpcap(file_of(1), script="CheckSubmitRawFrame=0xE0000042"),
    "Device 'DEVICE' did not send packet N of 'FILE' (M bytes): REASON.":
        playpcap(file_of(2), script="SubmitRawFrame=0xE0000031"),
    # pcap
    "There is no folder 'FOLDER'. Make it with: mkdir -p FOLDER": lambda case: fake("pcap", "no/file"),
    "'FILE' is a folder. Choose another name for the capture.": capture_in_a_folder,
    "You are not allowed to write the existing file 'FILE'. Choose another name.": capture_over_a_protected_file,
    "You are not allowed to make files in the folder 'FOLDER'. Choose another folder.": capture_in_a_protected_folder,
    "'FILE' cannot be written: REASON.": capture_on_a_full_disk,
    "'NAME' has files of an earlier capture, with the numbers TEXT. New files replace them; those that are left may "
    "follow the new ones in a replay.": capture_over_an_earlier_one,
    "Frames are being lost: 'FILE' cannot be written, because REASON.": writing_that_fails,
    "Writing to 'FILE' works again; N frames were lost.": writing_that_fails,
    "N frames were lost: 'FILE' could not be written, because REASON.": frames_that_are_lost_at_the_end,
    "The capture has ended, because the next file 'FILE' cannot be written: REASON.": capture_with_full_next_file,
    "PCAPNG file writer has ended, st=VALUE.": capture_with_full_next_file,
    "The disk was slower than the frames for a while. Give them more buffers, for example with: -fbs N":
        too_few_buffers,
    "Missing frames are longer than N bytes, or came while the machine was too busy. -fbs with a number above M may "
    "help against the latter.": frames_that_come_while_the_machine_is_busy,
    "Device 'DEVICE' has stopped receiving: REASON.":
        lambda case: fake("pcap", "file", script="devices=1,WaitForRawFrame=0xE0000031"),
}

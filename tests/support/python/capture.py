"""Reads the capture files of the test receiver, and the fields of AVTP frames, in plain words of the
standards: IEEE 802.3, IEEE 802.1Q, IEEE 1722 and IEC 61883."""

import struct


def frames(path):
    """(time in nanoseconds, frame) for each frame of a pcap file."""
    data = path.read_bytes()
    magic, = struct.unpack_from("<I", data, 0)
    unit = {0xA1B23C4D: 1, 0xA1B2C3D4: 1000}[magic]
    found = []
    offset = 24
    while offset < len(data):
        seconds, fraction, captured, original = struct.unpack_from("<IIII", data, offset)
        assert captured == original
        offset += 16
        found.append((seconds * 10**9 + fraction * unit, data[offset:offset + captured]))
        offset += captured
    return found


class AvtpFrame:
    def __init__(self, frame):
        self.destination = frame[0:6].hex()
        self.source = frame[6:12].hex()
        self.tci = None
        start = 14
        ether_type = frame[12:14]
        if ether_type == b"\x81\x00":
            self.tci = int.from_bytes(frame[14:16], "big")
            ether_type = frame[16:18]
            start = 18
        assert ether_type == b"\x22\xf0"
        avtp = frame[start:start + 24]
        cip = frame[start + 24:start + 32]
        self.sequence = avtp[2]
        self.stream_id = avtp[4:12].hex()
        self.stream_data_length = int.from_bytes(avtp[20:22], "big")
        self.dbc = cip[3]
        payload = frame[start + 32:]
        assert len(payload) == self.stream_data_length - 8
        assert len(payload) % 192 == 0
        self.source_packets = [payload[i:i + 192] for i in range(0, len(payload), 192)]
        # Everything of the headers that never changes.
        assert avtp[0:2] == b"\x00\x80" and avtp[3] == 0
        assert avtp[12:20] == bytes(8) and avtp[22:24] == b"\x5f\xa0"
        assert cip[0:3] == b"\x3f\x06\xc4" and cip[4:8] == b"\xa0\x00\x00\x00"


def check_sequence(avtp_frames):
    """Sequence numbers and data block counters without a gap."""
    for earlier, later in zip(avtp_frames, avtp_frames[1:]):
        assert later.sequence == (earlier.sequence + 1) % 256
        assert later.dbc == (earlier.dbc + 8 * len(earlier.source_packets)) % 256

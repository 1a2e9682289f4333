"""Makes pcap-ng files, little-endian, with one Ethernet interface of nanosecond times, and takes others apart."""

import struct


def block(kind, body):
    length = 12 + len(body)
    return struct.pack("<II", kind, length) + body + struct.pack("<I", length)


SECTION = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
NANOSECONDS = struct.pack("<HHB3x", 9, 1, 9) + bytes(4)
INTERFACE = block(1, struct.pack("<HHI", 1, 0, 0) + NANOSECONDS)
START = 1_700_000_000 * 10**9


def packet(data, timestamp):
    """timestamp in nanoseconds since 1970."""
    return block(6, struct.pack("<IIIII", 0, timestamp >> 32, timestamp & 0xFFFFFFFF, len(data), len(data)) +
                 data + bytes(-len(data) % 4))


def write_file(path, frames, spacing):
    """The frames from START on; spacing in nanoseconds."""
    with path.open("wb") as file:
        file.write(SECTION + INTERFACE)
        for number, frame in enumerate(frames):
            file.write(packet(frame, START + number * spacing))
    return path


def blocks(path):
    """The whole blocks of a pcap-ng file as (type, bytes), and how many bytes are left."""
    data = path.read_bytes()
    found = []
    offset = 0
    while offset + 12 <= len(data):
        kind, length = struct.unpack_from("<II", data, offset)
        assert length % 4 == 0 and length >= 12
        if offset + length > len(data):
            break
        assert struct.unpack_from("<I", data, offset + length - 4)[0] == length
        found.append((kind, data[offset:offset + length]))
        offset += length
    return found, len(data) - offset


def options(packet_block):
    """The options of a packet block, by code."""
    offset = 28 + -(-struct.unpack_from("<I", packet_block, 20)[0] // 4) * 4
    found = {}
    while offset + 4 <= len(packet_block) - 4:
        code, length = struct.unpack_from("<HH", packet_block, offset)
        found[code] = packet_block[offset + 4:offset + 4 + length]
        offset += 4 + -(-length // 4) * 4
    return found

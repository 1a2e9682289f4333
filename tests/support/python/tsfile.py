"""Transport streams made and looked at by the tests: 188-byte packets, PCRs in 90 kHz ticks."""

PACKET = 188
CLOCK = 90000
PAYLOAD = bytes(range(256)) * 2


def packet(number, pcr=None, pid=0x100):
    """One packet whose payload tells its number."""
    head = bytes([0x47, pid >> 8, pid & 0xFF])
    if pcr is None:
        body = bytes([0x10 | number & 0xF])
    else:
        body = bytes([0x30 | number & 0xF, 7, 0x10]) + (pcr >> 1).to_bytes(4, "big")
        body += bytes([(pcr & 1) << 7 | 0x7E, 0])
    body += number.to_bytes(4, "big")
    return head + body + PAYLOAD[number & 0xFF:][:PACKET - len(head) - len(body)]


def stream(seconds, rate, pcr_every=10, first_pcr=CLOCK):
    """A constant-rate stream: rate in packets a second, every pcr_every-th packet with a PCR, beginning
    and ending with one."""
    count = int(seconds * rate) // pcr_every * pcr_every + 1
    return b"".join(
        packet(i, first_pcr + i * CLOCK // rate if i % pcr_every == 0 else None) for i in range(count))


def packets(data):
    return [data[i:i + PACKET] for i in range(0, len(data) // PACKET * PACKET, PACKET)]


def pcr_of(ts_packet):
    """The PCR base, or None."""
    if ts_packet[3] & 0x20 and ts_packet[4] and ts_packet[5] & 0x10:
        return int.from_bytes(ts_packet[6:10], "big") << 1 | ts_packet[10] >> 7
    return None


def delivered_part(data):
    """What a sender that is paced by PCRs sends of a file: from the first packet with a PCR up to the one
    before the last."""
    all_packets = packets(data)
    with_pcr = [i for i, p in enumerate(all_packets) if pcr_of(p) is not None]
    return all_packets[with_pcr[0]:with_pcr[-1]] if len(with_pcr) > 1 else []

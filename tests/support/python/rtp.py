"""An RTP receiver of the tests, on loopback, and the fields of its datagrams (RFC 3550)."""

import contextlib
import ipaddress
import socket
import struct
import threading

PACKET = 188


class Receiver:
    """Receives all datagrams to a port of an address, or of a multicast group on an interface, until it is
    closed."""

    def __init__(self, address="127.0.0.1", port=0, interface=None):
        ip = ipaddress.ip_address(address)
        family = socket.AF_INET6 if ip.version == 6 else socket.AF_INET
        self.socket = socket.socket(family, socket.SOCK_DGRAM)
        self.socket.bind((address, port))
        if interface and ip.version == 4:
            member = ip.packed + bytes(4) + struct.pack("@i", socket.if_nametoindex(interface))
            self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, member)
        elif interface:
            member = ip.packed + struct.pack("@I", socket.if_nametoindex(interface))
            self.socket.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP, member)
        self.port = self.socket.getsockname()[1]
        self.datagrams = []
        self._ended = False
        self.socket.settimeout(0.05)
        self._thread = threading.Thread(target=self._receive)
        self._thread.start()

    def __repr__(self):
        return f"<{len(self.datagrams)} datagrams on port {self.port}>"

    def _receive(self):
        while not self._ended:
            with contextlib.suppress(TimeoutError):
                self.datagrams.append(self.socket.recv(65536))
        self.socket.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while True:
                self.datagrams.append(self.socket.recv(65536))

    def close(self):
        """Takes what has arrived until now."""
        self._ended = True
        self._thread.join()
        self.socket.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def split(datagrams, first_sequence=0):
    """The transport stream packets of the datagrams, whose headers have to be right and without a gap."""
    packets = []
    for number, datagram in enumerate(datagrams, first_sequence):
        assert datagram[:12] == struct.pack(">BBHII", 0x80, 33, number & 0xFFFF, 0, 0)
        payload = datagram[12:]
        assert len(payload) % PACKET == 0 and 1 <= len(payload) // PACKET <= 7
        packets += [payload[i:i + PACKET] for i in range(0, len(payload), PACKET)]
    return packets


def closed_port(address="127.0.0.1"):
    """A port where nobody listens, for a while at least."""
    with Receiver(address) as receiver:
        return receiver.port

"""Statuses and texts that the tests of the commands' arguments share."""

KESTATUS_INVALID_PARAMETER = 0xE0000041
KESTATUS_INVALID_LENGTH = 0xE0000042
KESTATUS_INVALID_FORMAT = 0xE0000051
MAC_FORM = "-m takes 12 hexadecimal digits"
MAC_EXAMPLE = MAC_FORM + ", for example: -m 025142580001"
NEEDS = {
    "ts2av": "ts2av takes the name of a file, for example: flowlane ts2av my.ts",
    "av2rtp": "av2rtp takes the host that gets the stream, for example: flowlane av2rtp 192.0.2.1",
    "pcap": "pcap takes the name of a file, for example: flowlane pcap record",
    "playpcap": "playpcap takes the name of a file, for example: flowlane playpcap record.pcapng",
}
VERSION_LINE = "Quayside library API Version 2.20."


def no_address(device):
    """What is said of a device whose address has another length, which stops ts2av behind the opening."""
    return f"Device '{device}' does not tell its address: An unexpected length was detected. Use another device."


def mac_failure(text, status, name):
    return f"InitFromString('{text}') failed, st=0x{status:08x}({name})."


def missing_arguments(command):
    return ["Missing arguments.", "For usage information, run flowlane help.", NEEDS[command]]


def takes_16_bits(option):
    return f"{option} takes a number from 0 to 65535."

"""Statuses and texts that the tests of the commands' arguments share."""

KESTATUS_INVALID_PARAMETER = 0xE0000041
KESTATUS_INVALID_LENGTH = 0xE0000042
KESTATUS_INVALID_FORMAT = 0xE0000051
VERSION_LINE = "Quayside library API Version 2.20."


def mac_failure(text, status, name):
    return f"InitFromString('{text}') failed, st=0x{status:08x}({name})."

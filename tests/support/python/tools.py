"""The other tools that look at what the program does."""

import subprocess

from lanes import TIMEOUT


def tool(*command, **options):
    result = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, capture_output=True,
                            timeout=TIMEOUT, check=False, **options)
    assert result.returncode == 0, result.stderr.decode(errors="replace")
    return result.stdout


def decode(path, fields, *options):
    """What tshark says of a capture file: one dictionary a frame. True and false are "1" and "0"."""
    output = tool("tshark", "-r", path, *options, "-T", "fields", "-E", "separator=\t", "-E", "occurrence=f",
                  *(word for field in fields for word in ("-e", field))).decode()
    numbers = {"True": "1", "False": "0"}  # as tshark prints them from version 4.2 on
    rows = [[numbers.get(value, value) for value in line.split("\t")] for line in output.split("\n")[:-1]]
    return [dict(zip(fields, row)) for row in rows]


def video_hashes(path):
    """The MD5 of every decoded picture, in order."""
    output = tool("ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-i", path, "-map", "0:v",
                  "-f", "framemd5", "-").decode()
    return [line.rsplit(",", 1)[1].strip() for line in output.splitlines() if not line.startswith("#")]

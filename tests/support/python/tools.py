"""The other tools that look at what the program does."""

import re
import subprocess

from lanes import TIMEOUT


def tool(*command, **options):
    result = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, capture_output=True,
                            timeout=TIMEOUT, check=False, **options)
    assert result.returncode == 0, result.stderr.decode(errors="replace")
    return result.stdout


def decode(path, fields, *options):
    """What tshark says of a capture file: one dictionary a frame. Its versions differ in how they print true, false
    and the width of hexadecimal numbers; here they are "1", "0" and numbers without leading zeros."""
    output = tool("tshark", "-r", path, *options, "-T", "fields", "-E", "separator=\t", "-E", "occurrence=f",
                  *(word for field in fields for word in ("-e", field))).decode()
    booleans = {"True": "1", "False": "0"}

    def plain(value):
        return re.sub("^0x0+(?=.)", "0x", booleans.get(value, value))
    return [dict(zip(fields, map(plain, line.split("\t")))) for line in output.split("\n")[:-1]]


def video_hashes(path):
    """The MD5 of every decoded picture, in order."""
    output = tool("ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-i", path, "-map", "0:v",
                  "-f", "framemd5", "-").decode()
    return [line.rsplit(",", 1)[1].strip() for line in output.splitlines() if not line.startswith("#")]

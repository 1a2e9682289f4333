"""Commands that find less memory than they ask for. A sanitizer needs more than the limit, so these are not run
with one."""

import resource
import subprocess

import pytest

from lanes import FAKE_DEVICE_DIR, FLOWLANE, TIMEOUT, exit_status, sanitized_environment
from pcapng import INTERFACE, SECTION, START, packet

KESTATUS_NO_MEMORY = 0xE0000020
LIMIT = 1 << 30


@pytest.mark.parametrize("command, failure, size", [
    ("pcap", "StartFileWriter", 1538),
    ("playpcap", "StartFileReader", 1522),
])
def test_frame_buffers_beyond_the_memory(tmp_path, command, failure, size):
    path = tmp_path / "file.pcapng"
    path.write_bytes(SECTION + INTERFACE + packet(bytes(60), START))
    result = subprocess.run([FLOWLANE, command, tmp_path / "file", "-fbs", "2000000"], stdin=subprocess.DEVNULL,
                            capture_output=True, text=True, timeout=TIMEOUT, check=False,
                            env=sanitized_environment(LD_LIBRARY_PATH=FAKE_DEVICE_DIR),
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (LIMIT, LIMIT)))
    assert result.stderr.splitlines() == [
        f"{failure} failed, st=0xe0000020(KESTATUS_NO_MEMORY).",
        f"There is not enough memory for 2000000 frame buffers of {size} bytes. Give a smaller number with -fbs."]
    assert result.returncode == exit_status(KESTATUS_NO_MEMORY)

import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support" / "python"))

import pytest

import lanes
import tsfile


@pytest.fixture
def segment(request):
    name = f"test-{os.getpid()}-{abs(hash(request.node.nodeid)) % 10**8}"
    owned = lanes.Segment(name)
    yield owned
    owned.remove()


@pytest.fixture
def short_file(tmp_path):
    """A second of a stream of 1000 packets/s."""
    path = tmp_path / "short.ts"
    path.write_bytes(tsfile.stream(seconds=1, rate=1000))
    return path

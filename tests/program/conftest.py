import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support" / "python"))

import pytest

import lanes


@pytest.fixture
def segment(request):
    name = f"test-{os.getpid()}-{abs(hash(request.node.nodeid)) % 10**8}"
    owned = lanes.Segment(name)
    yield owned
    owned.remove()

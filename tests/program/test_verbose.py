"""The option -v: what the stages report goes to standard error, and a flood is summed up."""

import re

from lanes import run_with_fake_device

KIND = "ignore invalid TS packet"


def test_flood_is_summed_up(tmp_path):
    path = tmp_path / "zeros.ts"
    path.write_bytes(bytes(188 * 5000))
    result = run_with_fake_device("ts2av", "-v", path)
    lines = [line for line in result.stderr.splitlines() if KIND in line]
    written = lines.count(f"WARN: {KIND}")
    sums = [int(match[1]) for line in lines
            if (match := re.fullmatch(rf"WARN: (\d+) more within a second, the last one: {KIND}", line))]
    # A second begins with the first message; a slow machine may need several.
    assert sums
    assert len(lines) == written + len(sums)
    assert written <= 10 * (len(sums) + 1)
    assert written + sum(sums) == 5000
    assert result.returncode == 0


def test_flood_is_silent_without_the_option(tmp_path):
    path = tmp_path / "zeros.ts"
    path.write_bytes(bytes(188 * 5000))
    assert KIND not in run_with_fake_device("ts2av", path).stderr

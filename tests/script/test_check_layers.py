"""script/check-layers, on this project and on small ones with one fault each."""

import pathlib
import subprocess

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]

TABLE = ["low", "middle -> low", "high/part -> middle"]
FILES = {
    "source_common/low/Low.h": "",
    "source_common/middle/Middle.h": '#include <map>\n#include "Low.h"\n',
    "source_common/middle/Middle.cpp": '#include "Middle.h"\n',
    "source_linux/high/part/High.cpp": '#include "Low.h"\n#include "part/Own.h"\n',
    "source_linux/high/part/Own.h": '  #  include "Middle.h"\n',
    "tests/unit/high/HighTest.cpp": "",
    "tests/unit/high/part/PartTest.cpp": "",
}


def check_layers(top):
    return subprocess.run([TOP / "script" / "check-layers", top], capture_output=True, text=True, timeout=60, check=False)


def check_project(top, table=(), files=None):
    """Runs the check on a project of these lines and files besides those above."""
    for name, text in {**FILES, **(files or {})}.items():
        (top / name).parent.mkdir(parents=True, exist_ok=True)
        (top / name).write_text(text)
    (top / "docs").mkdir()
    lines = "\n".join([*TABLE, *table])
    (top / "docs" / "architecture.md").write_text(f"# Title\n\n```layers\n{lines}\n```\n")
    return check_layers(top)


def test_this_project_is_clean():
    result = check_layers(TOP)
    assert (result.returncode, result.stdout, result.stderr) == (0, "layers: clean\n", "")


def test_a_clean_project(tmp_path):
    result = check_project(tmp_path)
    assert (result.returncode, result.stdout, result.stderr) == (0, "layers: clean\n", "")


FAULTS = {
    "an include upward": (
        [], {"source_common/low/Up.h": '#include "Middle.h"\n'},
        'source_common/low/Up.h: "Middle.h": low may not include from middle'),
    "an include from beside": (
        ["beside -> low"],
        {"source_common/beside/Beside.h": '#include "Low.h"\n', "source_common/beside/B.cpp": '#include "Middle.h"\n'},
        'source_common/beside/B.cpp: "Middle.h": beside may not include from middle'),
    "a folder that is not listed": (
        [], {"source_common/new/New.h": ""}, "new: not in the table of docs/architecture.md"),
    "a listed folder without sources": (["gone"], {}, "docs/architecture.md: gone: no sources"),
    "an arrow to a later line": (
        ["under -> over", "over"],
        {"source_common/under/U.h": "", "source_common/over/O.h": ""},
        "docs/architecture.md: under -> over: not a folder of a line above"),
    "an arrow to itself": (
        ["own -> own"], {"source_common/own/Own2.h": ""},
        "docs/architecture.md: own -> own: not a folder of a line above"),
    "an arrow without an include": (
        ["idle -> low"], {"source_common/idle/Idle.h": ""}, "docs/architecture.md: idle -> low: no such include"),
    "an include of no file": (
        [], {"source_common/low/Bad.cpp": '#include "Nowhere.h"\n'},
        'source_common/low/Bad.cpp: "Nowhere.h": no such file'),
    "a cycle between files": (
        [], {"source_common/low/A.h": '#include "B.h"\n', "source_common/low/B.h": '#include "A.h"\n'},
        "cycle: source_common/low/A.h -> source_common/low/B.h -> source_common/low/A.h"),
    "tests of no folder": (
        [], {"tests/unit/high/other/OtherTest.cpp": ""}, "tests/unit/high/other: no such folder of sources"),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_a_fault_is_reported(tmp_path, fault):
    table, files, message = FAULTS[fault]
    result = check_project(tmp_path, table, files)
    assert result.returncode == 1
    assert result.stdout == ""
    assert result.stderr.splitlines() == [message]


def test_a_project_without_a_table(tmp_path):
    (tmp_path / "docs").mkdir()
    (tmp_path / "docs" / "architecture.md").write_text("# Title\n")
    result = check_layers(tmp_path)
    assert result.returncode == 1
    assert "docs/architecture.md: no table of folders" in result.stderr

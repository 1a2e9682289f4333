"""The scripts of the benchmarks: each can be started, and the table and its chart show the rows they are given."""

import json
import pathlib
import subprocess
import sys
import xml.etree.ElementTree

import pytest

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "benchmarks"
SCRIPTS = sorted(FOLDER.glob("*.py"))
ROW = {"group": "capture", "name": "cost", "unit": "s", "ours": 2.0, "peers": {"quick": 1.0, "slow tool": 4.0, "none": None},
       "goal": 1.5, "better": "lower"}
PLACE = "# Title\n\n<!-- table: begin -->\nold\n<!-- table: end -->\n\nThe end.\n"


def run(script, *args):
    return subprocess.run([sys.executable, FOLDER / script, *args], capture_output=True, text=True, timeout=60, check=False)


def table(folder, *rows, options=()):
    path = folder / "rows"
    path.write_text("".join(json.dumps({**ROW, **row}) + "\n" for row in rows))
    result = run("table.py", path, *options)
    assert result.returncode == 0, result.stderr
    return [line.split() for line in result.stdout.splitlines()]


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda script: script.name)
def test_each_script_can_be_started(script):
    result = run(script, "--help")
    assert result.returncode == 0, result.stderr


def test_python_is_clean():
    result = subprocess.run(["pyflakes3", *SCRIPTS], capture_output=True, text=True, timeout=60, check=False)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


@pytest.mark.parametrize("row, comparison", [
    ({}, "2 1 4 - 2 x worse 1.5: missed"),
    ({"ours": 0.5}, "0.5 1 4 - 2 x better 1.5: met"),
    ({"better": "higher"}, "2 1 4 - 2 x worse 1.5: met"),
    ({"ours": 1}, "1 1 4 - equal 1.5: met"),
    ({"ours": 0}, "0 1 4 - better 1.5: met"),
    ({"ours": 1, "peers": {"quick": 0}}, "1 0 worse 1.5: met"),
    ({"peers": {}}, "2 1.5: missed"),
    ({"ours": None}, "- 1 4 -"),
    ({"ours": 1_234_567, "peers": {}, "goal": None}, "1.23 M"),
    ({"ours": 45_678, "peers": {}, "goal": None}, "45.7 k"),
])
def test_rows_tell_how_flowlane_compares(tmp_path, row, comparison):
    assert table(tmp_path, row)[-1] == ["cost", "s", *comparison.split()]


def test_a_heading_names_the_tools_of_the_rows_below(tmp_path):
    lines = table(tmp_path, {}, {"name": "again"}, {"name": "alone", "peers": {}})
    headings = [line for line in lines if line[:1] == ["capture"]]
    assert [line[2:-4] for line in headings] == [["flowlane", "quick", "slow", "tool", "none"], ["flowlane"]]


def test_document_gets_the_table_in_its_place(tmp_path):
    document = tmp_path / "document.md"
    document.write_text(PLACE)
    table(tmp_path, {}, options=("--document", document))
    text = document.read_text()
    assert text.startswith("# Title\n\n<!-- table: begin -->\n") and text.endswith("\n<!-- table: end -->\n\nThe end.\n")
    assert "| cost | s | 2 | 1 | 4 | - | 2 x worse | 1.5: missed |\n" in text and "old" not in text
    assert len({line.count("|") for line in text.splitlines() if "|" in line}) == 1


def test_document_without_a_place_is_left_alone(tmp_path):
    document = tmp_path / "document.md"
    document.write_text("# Title\n")
    (tmp_path / "rows").write_text(json.dumps(ROW) + "\n")
    result = run("table.py", tmp_path / "rows", "--document", document)
    assert result.returncode == 1 and "has no place for the table" in result.stderr
    assert document.read_text() == "# Title\n"


def test_chart_has_a_dot_for_each_figure_of_a_peer(tmp_path):
    document = tmp_path / "document.md"
    document.write_text(PLACE)
    table(tmp_path, {}, {"name": "a < b", "ours": 0}, {"name": "alone", "peers": {}}, options=("--document", document))
    svg = xml.etree.ElementTree.parse(tmp_path / "document.svg")
    name = "{http://www.w3.org/2000/svg}"
    dots = [circle.find(name + "title") for circle in svg.iter(name + "circle")]
    assert [dot.text for dot in dots if dot is not None] == ["quick: 2", "slow tool: 0.5"]
    places = {dot.findtext(name + "title"): float(dot.get("cx")) for dot in svg.iter(name + "circle")}
    own = next(float(line.get("x1")) for line in svg.iter(name + "line") if line.get("class") == "own")
    assert places["slow tool: 0.5"] < own < places["quick: 2"]

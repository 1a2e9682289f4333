"""Each message in the tables of docs/troubleshooting.md comes when its mistake is made, to the letter."""

import re

import pytest

import mistakes_in_words
import mistakes_with_devices
import mistakes_with_files
from lanes import SOURCE
from mistakes import Case

DOCUMENT = SOURCE / "docs" / "troubleshooting.md"
NUMBERS = {"N", "M", "K"}
PLACEHOLDERS = NUMBERS | {
    "FILE", "OTHER", "FOLDER", "DEVICE", "DEVICES", "NAME", "USER", "COMMAND", "OPTION", "VALUE", "WORD", "HOST",
    "ADDRESS", "PORT", "TIME", "REASON", "PROCESS", "COMMANDLINE", "TEXT"}
ALL_SCENARIOS = [mistakes_in_words.SCENARIOS, mistakes_with_devices.SCENARIOS, mistakes_with_files.SCENARIOS]
SCENARIOS = {message: make for scenarios in ALL_SCENARIOS for message, make in scenarios.items()}


def messages_of_the_document():
    """The texts in backticks in the first column of the tables."""
    messages = []
    for line in DOCUMENT.read_text().splitlines():
        if line.startswith("| `"):
            cells = re.split(r"(?<!\\)\|", line)
            assert len(cells) == 5 and all(cell.strip() for cell in cells[2:4]), line
            found = re.findall("`([^`]+)`", cells[1])
            assert cells[1].strip() == "<br>".join(f"`{message}`" for message in found), line
            messages += found
    return messages


def pattern_of(message):
    """A number stands for each of N, M and K, and any text for another placeholder."""
    parts = re.split(r"(?<![\w.])(" + "|".join(sorted(PLACEHOLDERS)) + r")(?!\w)", message)
    return "".join((r"\d+" if part in NUMBERS else ".+") if part in PLACEHOLDERS else re.escape(part)
                   for part in parts)


@pytest.mark.parametrize("message, line, fits", [
    ("'FILE' has N packets.", "'a b' has 3 packets.", True),
    ("'FILE' has N packets.", "'a b' has no packets.", False),
    ("'FILE' has N packets.", "'a b' has 3 packets. More", False),
    ("QUAYSIDE2_DEVICES (M2TS)", "QUAYSIDE2_DEVICES (M2TS)", True),
    ("QUAYSIDE2_DEVICES (M2TS)", "QUAYSIDE2_x (M2TS)", False),
])
def test_pattern(message, line, fits):
    assert bool(re.fullmatch(pattern_of(message), line)) == fits


def test_document_and_scenarios_have_the_same_messages():
    documented = messages_of_the_document()
    assert len(documented) == len(set(documented)), "a message stands in two rows"
    assert set(documented) == set(SCENARIOS)
    assert len(SCENARIOS) == sum(map(len, ALL_SCENARIOS)), "a message has two scenarios"


@pytest.mark.parametrize("message", SCENARIOS)
def test_message_comes(message, tmp_path, monkeypatch, segment, request):
    monkeypatch.chdir(tmp_path)
    lines = SCENARIOS[message](Case(tmp_path, segment, lambda: request.getfixturevalue("link")))
    assert any(re.fullmatch(pattern_of(message), line) for line in lines), "\n".join(lines)

"""A board test: pytest --lg-env tcp.yaml --junitxml=report.xml"""
import re

import pexpect
import pytest

RESULT = rb"\r\n(OK|ERROR|\+CM[ES] ERROR: [^\r\n]*)\r\n"


@pytest.fixture
def ask(target):
    """Sends a command; returns the lines of the answer and what it ends in."""
    console = target.get_driver("ConsoleProtocol")
    # A new connection for each test: a late answer to an earlier test is not taken for its own.
    target.deactivate(console)
    target.activate(console)
    for _ in range(50):  # drop old bytes; on a console that is never quiet, the test itself fails
        if console.expect(["(?s).+", pexpect.TIMEOUT], timeout=0.1)[0] == 1:
            break

    def send(command, seconds=5):
        console.write(command.encode() + b"\r\n")
        _, text, result, _ = console.expect(RESULT, timeout=seconds)
        lines = [line.decode() for line in text.splitlines() if line]
        return lines[lines[:1] == [command]:], result.group(1).decode()  # without the echo
    return send


@pytest.mark.parametrize("command, answer, seconds", [
    ("AT+WIFI?", r"\+WIFI:1,-\d+", 2),
    ("AT+TEST=KEYS", r"\+TEST:VOLUP,VOLDOWN,POWER", 10),
    ("AT+TEST=LCD", r"\+TEST:LCD,PASS", 10),
])
def test_answer(ask, command, answer, seconds):
    lines, result = ask(command, seconds)
    assert result == "OK"
    assert any(re.fullmatch(answer, line) for line in lines), lines


def test_signal(ask):
    lines, result = ask("AT+CSQ")
    level = int(re.search(r"^\+CSQ: (\d+),", "\n".join(lines), re.M).group(1))
    assert result == "OK" and 15 <= level <= 31


@pytest.mark.parametrize("command, reason", [
    ("AT+TEST=NONE", "Out of range"),
    ("AT+NOBODY", "Unsupport command"),
])
def test_refusal(ask, command, reason):
    lines, result = ask(command)
    assert result == "ERROR" and reason in lines

"""kelp-peer: the keys of its script, its sockets, and its limits."""
import json
import os
import signal
import socket
import time
from pathlib import Path

import pytest
from kelptest import Process, Station, pack_record, unpack_record, wait_until

OK = "\r\nOK\r\n"
PCBA = "00000000 08000000 41542B504342413F 03000000 332E31"
# With a byte-order mark, as some editors write.
SCRIPT = (
    "\ufeff"
    + r"""{"roles": [
    {"role": "wcn", "socket": "@wcn", "answers": [
        {"request": "AT", "answer": "\r\nOK\r\n"},
        {"prefix": "AT+E", "answer": "\r\nOK\r\n", "echo": true},
        {"request": "AT+E2", "answer": "never: an earlier answer matches"},
        {"request": "AT+H", "hex": "fF 00", "echo": true},
        {"request": "AT+HB", "hex": "0102", "bytes": 5},
        {"request": "CUT", "answer": "abc", "bytes": 2},
        {"request": "RUN", "answer": "abc", "bytes": 100000, "pieces": 70001},
        {"request": "NONE", "answer": "abc", "bytes": 0},
        {"request": "MUTE", "answer": "abc", "silent": true},
        {"request": "LAST", "answer": "bye", "close": true},
        {"request": "GO", "silent": true, "close": true},
        {"request": "SLOW", "answer": "x", "delay": 300},
        {"request": "DRIP", "answer": "xyz", "pieces": 1, "pause": 150}]},
    {"role": "wcn", "socket": "@start", "request-start": "AT+", "answers": [{"answer": ".", "echo": true}]},
    {"role": "modem", "socket": "@modem", "answers": [{"prefix": "A", "answer": ".", "echo": true}]},
    {"role": "pcba", "socket": "@pcba", "answers": [
        {"request": "AT+PCBA?", "answer": "3.1"},
        {"request": "AT+R", "result": -2147483648},
        {"request": "AT+N", "answer": "x", "echo": false},
        {"request": "AT+L", "answer": "x", "request-length": -1, "response-length": 9},
        {"request": "AT+H", "hex": "FF", "result": 3}]},
    {"role": "modem", "socket": "@report", "unsolicited": [
        {"text": "A", "after": 0},
        {"text": "B", "after": 200, "every": 200},
        {"text": "last", "after": 1500, "close": true}]}
]}"""
)
ROWS = [
    ("@wcn", "AT", OK),
    ("@wcn", "AT+E2", "AT+E2" + OK),
    ("@wcn", "at", "\r\nERROR\r\n"),
    ("@wcn", "AT+HOT", "\r\nERROR\r\n"),
    ("@wcn", "AT+H", b"\xff\0"),
    ("@wcn", "AT+HB", b"\1\2\1\2\1"),
    ("@wcn", "CUT", "ab"),
    ("@wcn", "RUN", "abc" * 33333 + "a"),
    ("@wcn", "NONE", ""),
    ("@wcn", "MUTE", ""),
    ("@wcn", "LAST", "bye"),
    ("@wcn", "GO", ""),
    ("@start", "AT+1AT+22AT+", "AT+1.AT+22.AT+."),
    ("@start", "xAT+1", "x.AT+1."),
    ("@modem", "A\r\nAB\r\n\r\nA", "A\r\n.AB\r\n.\r\nERROR\r\n"),
    ("@pcba", "AT+PCBA?", bytes.fromhex(PCBA)),
    ("@pcba", "AT+X", bytes.fromhex("73170000 04000000 41542B58 00000000")),
    ("@pcba", "AT+R", bytes.fromhex("00000080 04000000 41542B52 00000000")),
    ("@pcba", "AT+N", bytes.fromhex("00000000 00000000 01000000 78")),
    ("@pcba", "AT+L", bytes.fromhex("00000000 FFFFFFFF 41542B4C 09000000 78")),
    ("@pcba", "AT+H", b"\xff"),
]


def start(directory, roles, *options):
    script = Path(directory, "script.json")
    script.write_text(roles if isinstance(roles, str) else json.dumps({"roles": roles}))
    words = [os.environ["KELP_PEER"], *options, script]
    return Process(words, f"peer-{time.monotonic()}.log", directory)


def station(name):
    return Station(name, terminator=b"", timeout=30)


@pytest.fixture(scope="module")
def peer(tmp_path_factory):
    with start(tmp_path_factory.mktemp("peer"), SCRIPT, "--log") as peer:
        peer.wait_for("ready @wcn @start @modem @pcba @report\n")
        yield peer


@pytest.mark.parametrize("name, request_, answer", ROWS, ids=lambda value: str(value)[:20])
def test_answers_follow_the_script(peer, name, request_, answer):
    with station(name) as kelp:
        kelp.exactly(request_, answer)
        if request_ not in ("LAST", "GO"):
            kelp.half_close()
        assert kelp.receive_to_end() == b""


def test_the_record_of_the_library_is_the_same():
    assert pack_record("AT+PCBA?", "3.1") == bytes.fromhex(PCBA)
    assert pack_record("AT+X", result=6003) == bytes.fromhex("73170000 04000000 41542B58 00000000")
    assert unpack_record(bytes.fromhex(PCBA)) == (0, b"AT+PCBA?", b"3.1")
    assert unpack_record(pack_record("", "x", 5)) == (5, b"", b"x")
    for wrong in (PCBA[:-2], PCBA + "00", "00000000 F8FFFFFF 00000000 00", ""):
        with pytest.raises(Exception, match="length|buffer"):
            unpack_record(bytes.fromhex(wrong))


def test_times(peer):
    """Each is waited for at least; answers keep the order of their requests."""
    with station("@report") as modem, station("@wcn") as kelp:
        begin = time.monotonic()
        for request, answer in [("SLOW", "x"), ("DRIP", "xyz")]:
            kelp.exactly(request, answer)
            assert time.monotonic() - begin >= 0.29  # in whole milliseconds
            begin = time.monotonic()
        kelp.write("SLOW")
        peer.wait_for("< SLOW", 2)
        kelp.exactly("AT", "x" + OK)
        reports = modem.receive_to_end()
        assert reports == b"A" + b"B" * reports.count(b"B") + b"last"
        assert 1 <= reports.count(b"B") <= 7  # missed ones are not sent later
    begin = time.monotonic()
    with station("@report") as modem:
        for reports, seconds in [("AB", 0.19), ("B", 0.39)]:
            modem.exactly("", reports)
            assert time.monotonic() - begin >= seconds


def test_the_log(tmp_path):
    role = {"role": "pcba", "name": "board", "socket": "log.sock"}
    role["answers"] = [{"hex": "00", "bytes": 300}]
    with start(tmp_path, [role], "--log") as peer:
        peer.wait_for("ready log.sock\n")
        with station(str(tmp_path / "log.sock")) as kelp:
            kelp.exactly("\\\t\x7f" + "x" * 300, b"\0" * 300)
        peer.wait_for("board#1 closed\n")
        shown = "\\\\\\t\\x7F" + "x" * 253 + "... (303 bytes)"
        lines = ["connected", f"< {shown}", "> " + "\\x00" * 256 + "... (300 bytes)", "closed"]
        assert peer.text().splitlines()[1:] == [f"board#1 {line}" for line in lines]


def test_requests_wait_while_answers_wait(tmp_path):
    """64 KiB of requests for answers of 1 MB are not all in memory, and none is lost."""
    role = {"role": "modem", "socket": "@flood"}
    role["answers"] = [{"request": "A", "answer": "x", "bytes": 1000000}, {"answer": "."}]
    with start(tmp_path, [role]) as peer:
        peer.wait_for("ready")
        with station("@flood") as kelp:
            kelp.write("A\r\n" * 20 + "B\r\n")
            kelp.half_close()
            assert kelp.receive_to_end() == b"x" * 20000000 + b"."
        with station("@flood") as kelp:
            kelp.write("A\r\n" * 10000)
            assert kelp.receive(2000000) == b"x" * 2000000
        peak = Path(f"/proc/{peer.pid}/status").read_text().split("VmHWM:")[1].split()[0]
        assert int(peak) < (512 if os.environ.get("KELP_SANITIZED") == "1" else 120) << 10


def test_sockets(tmp_path):
    path = tmp_path / "s.sock"
    role = [{"role": "wcn", "socket": "s.sock", "answers": [{"answer": OK}]}]

    def fails(reason):
        with start(tmp_path, role) as second:
            wait_until(lambda: second.status is not None)
            assert (second.status, second.text()) == (1, f"kelp-peer: s.sock: {reason}\n")

    path.write_text("")
    fails("exists and is not a socket")
    path.unlink()
    with start(tmp_path, role) as first, socket.socket(socket.AF_UNIX) as other:
        first.wait_for("ready")
        path.unlink()
        other.bind(str(path))  # it is not the peer's own any more, and stale in the end
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL, signal.SIGTERM):
        with start(tmp_path, role) as first:  # a stale socket is replaced
            first.wait_for("ready")
            fails("is served by another process")
            with station(str(path)) as kelp:
                kelp.exactly("A", OK)
                os.kill(first.pid, number)
                wait_until(lambda: first.status is not None)
                assert first.status == (0 if number != signal.SIGKILL else -9)
                assert kelp.receive_to_end() == b""
            assert path.exists() == (number == signal.SIGKILL)


# Where and what; ":" and the script, with "^" for BEGIN.
BEGIN = '{"roles": [{"role": "wcn", "socket": "@x", "answers": [\n'
WRONG = r"""
1:16: not valid JSON :{  "roles": [ {,} ] }
1:15: unknown key "rolls" :{"roles": [], "rolls": 1}
1:11: must be an array :{"roles": {}}
1:12: must be an object :{"roles": [1]}
1:21: "role" must be "wcn", "modem" or "pcba" :{"roles": [{"role": "w"}]}
1:12: a role needs a "socket" :{"roles": [{"role": "wcn", "socket": "@"}]}
1:38: "socket" must be a string :{"roles": [{"role": "wcn", "socket": 1}]}
1:28: unknown key "sockets" :{"roles": [{"role": "wcn", "sockets": "@x"}]}
2:15: "delay" must be a whole number from 0 to 86400000 :^{}, {"delay": "1"}]}]}
2:11: "delay" must be a whole number from 0 to 86400000 :^{"delay": 86400001}]}]}
2:11: "delay" must be a whole number from 0 to 86400000 :^{"delay": -1}]}]}
2:2: "result" is only for "pcba" :^{"result": 1}]}]}
2:2: unknown key "after" :^{"after": 1}]}]}
2:12: duplicate key "echo" :^{"echo":1, "echo": 1}]}]}
2:10: "echo" must be true or false :^{"echo": 1}]}]}
2:9: "hex" must be a string of hex digit pairs :^{"hex": "0"}]}]}
2:15: "answer" and "hex" exclude each other :^{"hex": "00", "answer": ""}]}]}
2:18: "request" and "prefix" exclude each other :^{"request": "0", "prefix": ""}]}]}
2:1: "bytes" needs a text to cut or repeat :^{"bytes": 1}]}]}
2:19: an unsolicited message needs "after" or "every" :^], "unsolicited":[{"text": "x"}]}]}
"""


@pytest.mark.parametrize("row", WRONG.split("\n")[1:-1])
def test_a_wrong_script_is_refused_with_its_position(tmp_path, row):
    said, script = row.split(" :")
    with start(tmp_path, script.replace("^", BEGIN)) as peer:
        wait_until(lambda: peer.status is not None)
        assert (peer.status, peer.text()) == (65, f"{tmp_path}/script.json:{said}\n")

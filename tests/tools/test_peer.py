"""kelp-peer: the keys of its script, its sockets, and its limits."""
import os
import signal
import time
from pathlib import Path

import pytest
from kelptest import Station, pack_record, unpack_record, wait_until

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
    ("@pcba", "AT+X", pack_record("AT+X", result=6003)),
    ("@pcba", "AT+R", bytes.fromhex("00000080 04000000 41542B52 00000000")),
    ("@pcba", "AT+N", pack_record("", "x")),
    ("@pcba", "AT+L", bytes.fromhex("00000000 FFFFFFFF 41542B4C 09000000 78")),
    ("@pcba", "AT+H", b"\xff"),
]


def start(bench, roles, *options, ready="ready"):
    Path("script.json").write_text(roles)
    return bench.run(os.environ["KELP_PEER"], *options, "script.json", ready=ready)


def test_answers_follow_the_script(bench):
    start(bench, SCRIPT, ready="ready @wcn @start @modem @pcba @report\n")
    for name, request, answer in ROWS:
        with Station(name) as kelp:
            kelp.exactly(request, answer)
            if request not in ("LAST", "GO"):
                kelp.half_close()
            assert (name, request, kelp.receive_to_end()) == (name, request, b"")


def test_the_record_of_the_library_is_the_same():
    assert pack_record("AT+PCBA?", "3.1") == bytes.fromhex(PCBA)
    assert unpack_record(bytes.fromhex(PCBA)) == (0, b"AT+PCBA?", b"3.1")
    assert unpack_record(pack_record("", "x", 5)) == (5, b"", b"x")
    for wrong in (PCBA[:-2], PCBA + "00", "00000000 F8FFFFFF 00000000 00", ""):
        with pytest.raises(Exception, match="length|buffer"):
            unpack_record(bytes.fromhex(wrong))


def test_times(bench):
    """Each is waited for at least; answers keep the order of their requests."""
    peer = start(bench, SCRIPT, "--log")
    begin = time.monotonic()
    with Station("@report") as modem, Station("@wcn") as kelp:
        for station, sent, came, seconds in [
            (modem, "", "AB", 0.19),
            (modem, "", "B", 0.39),
            (kelp, "SLOW", "x", 0.68),  # in whole milliseconds
            (kelp, "DRIP", "xyz", 0.97),
        ]:
            station.exactly(sent, came)
            assert time.monotonic() - begin >= seconds
        kelp.write("SLOW")
        peer.wait_for("< SLOW", 2)
        kelp.exactly("AT", "x" + OK)
        reports = modem.receive_to_end()
        assert reports == b"B" * (len(reports) - 4) + b"last"
        assert len(reports) <= 4 + 5  # missed ones are not sent later


def test_the_log(bench):
    role = (
        '{"role": "pcba", "name": "board", "socket": "s", "answers": [{"hex": "00", "bytes": 300}]}'
    )
    peer = start(bench, f'{{"roles": [{role}]}}', "--log", ready="ready s\n")
    with Station("./s") as kelp:
        kelp.exactly("\\\t\x7f" + "x" * 300, b"\0" * 300)
    peer.wait_for("board#1 closed\n")
    shown = "\\\\\\t\\x7F" + "x" * 253 + "... (303 bytes)"
    lines = ["connected", f"< {shown}", "> " + "\\x00" * 256 + "... (300 bytes)", "closed"]
    assert peer.text().splitlines()[1:] == [f"board#1 {line}" for line in lines]


def test_requests_wait_while_answers_wait(bench):
    """64 KiB of requests for answers of 1 MB are not all in memory, and none is lost."""
    answers = '{"request": "A", "answer": "x", "bytes": 1000000}, {"answer": "."}'
    roles = f'{{"roles": [{{"role": "modem", "socket": "@flood", "answers": [{answers}]}}]}}'
    peer = start(bench, roles)
    with Station("@flood") as kelp:
        kelp.write("A\r\n" * 20 + "B\r\n")
        kelp.half_close()
        assert kelp.receive_to_end() == b"x" * 20000000 + b"."
    with Station("@flood") as kelp:
        kelp.write("A\r\n" * 10000)
        assert kelp.receive(2000000) == b"x" * 2000000
    peak = Path(f"/proc/{peer.pid}/status").read_text().split("VmHWM:")[1].split()[0]
    assert int(peak) < (512 if os.environ.get("KELP_SANITIZED") == "1" else 120) << 10


def test_sockets(bench, run):
    roles, path = '{"roles": [{"role": "wcn", "socket": "s", "answers": []}]}', Path("s")

    def fails(reason):
        assert run("KELP_PEER", "script.json") == (1, b"", f"kelp-peer: s: {reason}\n")

    first = start(bench, roles)
    path.unlink()
    path.write_text("")
    fails("exists and is not a socket")
    first.stop()
    path.unlink()  # it was not the peer's own any more
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL, signal.SIGTERM):
        first = start(bench, roles)  # a stale socket is replaced
        fails("is served by another process")
        with Station("./s") as kelp:
            kelp.exactly("A", "\r\nERROR\r\n")
            os.kill(first.pid, number)
            assert kelp.receive_to_end() == b""
        wait_until(lambda: first.status is not None)
        assert first.status == (0 if number != signal.SIGKILL else -9)
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
def test_a_wrong_script_is_refused_with_its_position(bench, run, row):
    said, script = row.split(" :")
    Path("script.json").write_text(script.replace("^", BEGIN))
    assert run("KELP_PEER", "script.json") == (65, b"", f"script.json:{said}\n")

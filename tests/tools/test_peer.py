"""kelp-peer: the keys of its script, its sockets, and its limits."""
import os
import re
import signal
import time
from pathlib import Path

import pytest
from kelptest import Station, pack_record, unpack_record, wait_until

# With a byte-order mark, as some editors write. The answers are in the table.
ROLES = """\ufeff{"roles": [
    {"role": "wcn", "socket": "@wcn", "answers": [@wcn]},
    {"role": "wcn", "socket": "@start", "request-start": "AT+", "answers": [@start]},
    {"role": "modem", "socket": "@modem", "answers": [@modem]},
    {"role": "pcba", "name": "board", "socket": "@pcba", "answers": [@pcba]},
    {"role": "modem", "socket": "@report", "unsolicited": [
        {"text": "A", "after": 0},
        {"text": "B", "after": 200, "every": 200},
        {"text": "last", "after": 1500, "close": true}]}
]}"""
# The socket, an answer in its script, a request, and what comes; "*" and its length if it repeats.
TABLE = r"""
@wcn ; "request": "AT", "answer": "\r\nOK\r\n" ; AT ; \r\nOK\r\n
@wcn ; "prefix": "AT+E", "answer": "!", "echo": true ; AT+E2 ; AT+E2!
@wcn ; "request": "AT+E2", "answer": "an earlier one matches" ; at ; \r\nERROR\r\n
@wcn ; "request": "AT+H", "hex": "fF 00", "echo": true ; AT+H ; \xff\0
@wcn ; "request": "AT+HB", "hex": "0102", "bytes": 5 ; AT+HB ; \1\2\1\2\1
@wcn ; "request": "CUT", "answer": "abc", "bytes": 2 ; CUT ; ab
@wcn ; "request": "RUN", "answer": "abc", "bytes": 300000, "pieces": 1 ; RUN ; abc*300000
@wcn ; "request": "NONE", "answer": "abc", "bytes": 0 ; NONE ;
@wcn ; "request": "MUTE", "answer": "abc", "silent": true ; MUTE ;
@wcn ; "request": "LAST", "answer": "bye", "close": true ; LAST ; bye
@wcn ; "request": "GO", "silent": true, "close": true ; GO ;
@wcn ; "request": "SLOW", "answer": "x", "delay": 300 ; AT+HOT ; \r\nERROR\r\n
@wcn ; "request": "DRIP", "answer": "vwxyz", "pieces": 2, "pause": 150 ; DRIP ; vwxyz
@start ; "answer": ".", "echo": true ; AT+1AT+22AT+ ; AT+1.AT+22.AT+.
@start ; ; xAT+1 ; x.AT+1.
@modem ; "prefix": "A", "answer": ".", "echo": true ; A\r\nAB\r\n\r\nA ; A\r\n.AB\r\n.\r\nERROR\r\n
@modem ; "request": "M", "answer": "x", "bytes": 1000000 ; M\r\n ; x*1000000
@pcba ; "request": "AT+PCBA?", "answer": "3.1" ; AT+PCBA? ; \0\0\0\0\x08\0\0\0AT+PCBA?\3\0\0\x003.1
@pcba ; "request": "AT+R", "result": -2147483648 ; AT+R ; \0\0\0\x80\4\0\0\0AT+R\0\0\0\0
@pcba ; "request": "AT+N", "answer": "x", "echo": false ; AT+N ; \0\0\0\0\0\0\0\0\1\0\0\0x
@pcba ; "request": "A", "answer": "x", "request-length": -1, "response-length": 9 ; A ; \0\0\0\0\xff\xff\xff\xffA\t\0\0\0x
@pcba ; "request": "AT+H", "hex": "FF", "result": 3 ; AT+H ; \xff
@pcba ; "request": "\\\t\u007f", "hex": "00", "bytes": 300 ; \\\t\x7f ; \0*300
@pcba ; ; AT+X ; \x73\x17\0\0\4\0\0\0AT+X\0\0\0\0
"""
ROWS = [re.split(" ?; ?", line) for line in TABLE.split("\n")[1:-1]]


def answers(socket):
    return ", ".join(f"{{{row[1]}}}" for row in ROWS if row[0] == socket[0] and row[1])


SCRIPT = re.sub(r"(?<=\[)@\w+", answers, ROLES)


def start(bench, roles, *options, ready="ready"):
    Path("script.json").write_text(roles)
    return bench.run(os.environ["KELP_PEER"], *options, "script.json", ready=ready)


def test_answers_follow_the_script(bench):
    peer = start(bench, SCRIPT, "--log", ready="ready @wcn @start @modem @pcba @report\n")
    for name, _, request, came in ROWS:
        text, _, size = came.encode().decode("unicode_escape").partition("*")
        with Station(name) as kelp:
            kelp.write(request.encode().decode("unicode_escape"))
            if request not in ("LAST", "GO"):
                kelp.half_close()
            expected = (text * int(size))[: int(size)] if size else text
            assert (request, kelp.receive_to_end()) == (request, expected.encode("latin-1"))
    who = f"board#{len(ROWS) - 1} "
    lines = ["connected", "< \\\\\\t\\x7F", "> " + "\\x00" * 256 + "... (300 bytes)", "closed"]
    assert "".join(f"{who}{line}\n" for line in lines) in peer.text()
    assert "> " + "abc" * 85 + "a... (300000 bytes)\n" in peer.text()


def test_the_library_refuses_a_wrong_record():
    record = pack_record("AT", "3.1")
    for wrong in (record[:-1], record + b"0", b"\0\0\0\0\xf8\xff\xff\xff\0\0\0\0\0", b""):
        with pytest.raises(Exception, match="length|buffer"):
            unpack_record(wrong)


def test_times(bench):
    """Each is waited for at least; answers keep the order of their requests."""
    peer = start(bench, SCRIPT, "--log")
    begin = time.monotonic()
    with Station("@report") as modem, Station("@wcn") as kelp:
        for station, sent, came, seconds in [
            (modem, "", "AB", 0.19),
            (modem, "", "B", 0.39),
            (kelp, "SLOW", "x", 0.68),  # in whole milliseconds
            (kelp, "DRIP", "vwxyz", 0.97),
        ]:
            station.exactly(sent, came)
            assert time.monotonic() - begin >= seconds
        kelp.write("SLOW")
        peer.wait_for("< SLOW", 2)
        kelp.exactly("AT", "x\r\nOK\r\n")
        assert re.fullmatch(b"B{0,5}last", modem.receive_to_end())  # missed ones are not sent later


def test_requests_wait_while_answers_wait(bench):
    """64 KiB of requests for answers of 1 MB are not all in memory, and none is lost."""
    peer = start(bench, SCRIPT)
    with Station("@modem") as kelp:
        kelp.exactly("M\r\n" * 20 + "A\r\n", "x" * 20000000 + "A\r\n.")
        time.sleep(1)
    ticks = Path(f"/proc/{peer.pid}/stat").read_text().split()[13:15]
    assert sum(map(int, ticks)) < 80  # of 100 in that second: it waits, and does not spin
    with Station("@modem") as kelp:
        kelp.write("M\r\n" * 10000)
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
1:1: must be an object :[]
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

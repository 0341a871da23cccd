"""kelp-send, and the same answers judged by kelptest.Station."""
import json
import os
import re
import socket
import subprocess
import termios
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest
from kelptest import Failure, Last, Line, Station, open_line, wait_until

# A command, what the peer answers to it ("|" between pieces that arrive one after the other, "END" for
# the end of the connection), and outcomes of kelp-send, each with its options.
TABLE = r"""
MUTE  |               late
OK    1\r\nOK\r\n    ok ; ok --expect 1 --expect O ; other --expect 1 --expect y ; other --expect-error 1
BAD   x\r\nERROR\r\n error ; ERROR --expect x ; ok --expect-error x
BAD2  x\r\nERROR\r\n other --expect-error x --expect-error y
CME   \r\n+CME\x20ERROR:\x2010\r\n ok --expect-error 10
CMS   \r\n+CMS\x20ERROR:\x2010\r\n error
TEXT  abcabca         text ; text --quiet 1 ; late --quiet 1 --expect y ; needs-quiet --expect cab
TWO   abc|def         ok --quiet 2000 --expect cd
LATER x\r\nERROR\r\n1|\r\nOK\r|\n ok --expect 1
LINES xERROR\r\nnotOK\r\n text
NOCR  1\nOK\n         ok ; late --quiet 9000
OFF   Invalid\x20descriptor    ERROR --expect Inv ; ok --expect-error Inv
CUT   \r\n12Normal\x20error   error
Z=2   Z=2\r\n\r\n+Z:Unsupport\x20command\r\n\r\nOK\r\n ERROR --expect Z ; ok --expect-error Z:Un ; other --expect-error =2
SLOW  ||||||||||late\r\nOK\r\n ok
ECHO  ECHO            late --quiet 1 --expect E
AT+HA \r\nAT+H        late
FIRST FIRST|\r\nERROR\r\n ERROR --quiet 2000 --expect F
+P=1  \r\n+Ev:\x201\r\n|\r\nOK\r\n report --expect 1
+Q    \r\n+C:\x201\r\n late-report --quiet 50 --expect C
+R    \r\n+C:1\r\n\r\n+R:2\r\n|\r\nOK\r\n\r\n^C_2:3\r\n ok --expect 2 ; report --expect ^C
+L    \r\n+L:2\r\n\r\nOK\r\n\r\n%90 ok --expect 2
+M    \r\nOK\r\n%200 late --quiet 9000
+N    \r\n+1:7\r\n+N8\r\n#A\x20B:9\r\nOK\r\n ok --expect 7 --expect 8 --expect 9
ATI   \r\n+GCAP:1\r\n\r\nOK\r\n\r\n+C:2\r\n ok --expect 1 ; report --expect 2
AT+H  \r\n+C:4\r\n\t>\x20AT+h\x20\r\n+HI:1\r\n+h:2\r\nOK\r\n ok --expect 2 ; other --expect AT ; report --expect 1
AT+I  \r\nx\x20AT+I\r\nOK\r\n ok --expect x
AT+J  \r\n+J:1\r\nAT+J\r\nOK\r\n ok --expect AT
RAW   \t\\x\x41\r\nOK\r\n ok --expect \t\\x\x41\r\nOK\r\n
ENDED 12|END          ok --expect 2
"""
OTHER, OVERDUE = "the answer is not the expected one", "no complete answer in time"
REPORT = '; "{}" is only in an unsolicited report'
# Exit status, and what kelp-send says after the command; {} is the last option.
OUTCOMES = {
    "ok": (0, ""),
    "error": (1, ""),
    "text": (4, ""),
    "ERROR": (1, "the answer is an error"),
    "other": (1, OTHER),
    "report": (1, OTHER + REPORT),
    "late": (2, OVERDUE),
    "late-report": (2, OVERDUE + REPORT),
    "needs-quiet": (2, OVERDUE + "; an answer without a result line needs --quiet"),
}
ANSWERS, ROWS = {}, []


def unescaped(text):
    return text.encode().decode("unicode_escape").encode()


for line in TABLE.split("\n")[1:-1]:
    command, pieces, rest = line.split(maxsplit=2)
    text = re.sub("%([0-9]+)", lambda count: r"+C:1\r\n" * int(count[1]), pieces)
    ANSWERS[command] = [unescaped(each) for each in text.split("|")]
    ROWS += [(command, *outcome.split()) for outcome in rest.split(" ; ")]


def answer(request):
    for i, piece in enumerate(ANSWERS[request.decode().rstrip("\r\n")]):
        time.sleep(0.1 if i else 0)
        yield Last() if piece == b"END" else piece


def test_answers(bench, run):
    """Of kelp-send and of the library."""

    def check(row):
        command, result, *options = row
        status, said = OUTCOMES[result]
        timeout = {2: 1.5, 4: 3}.get(status, 30)  # 4: more than the quiet time
        expected = b"".join(piece for piece in ANSWERS[command] if piece != b"END")
        error = f"kelp-send: {command}: {said.format((options or [''])[-1])}\n" if said else ""
        # The default time-out is less than that of run().
        words = [f"--timeout={timeout}"] if command != "MUTE" else []
        by_program = run("KELP_SEND", "@peer", command, *words, *options)
        assert (row, by_program) == (row, (status, expected, error))
        quiet = float(options[1]) / 1000 if "--quiet" in options else None
        texts = map(unescaped, options[3 if quiet else 1 :: 2])
        with Station("@peer", timeout=timeout, quiet=quiet) as station:
            ask = station.expect if "--expect" in options else station.ask
            ask = station.refuse if "--expect-error" in options else ask
            if not said:
                assert (row, ask(command, *texts)) == (row, expected)
                return
            with pytest.raises(Failure, match=re.escape(f"\n  sent '{command}\\r\\n'")) as failure:
                ask(command, *texts)
        assert str(failure.value).startswith(f"@peer: '{command}': ")
        assert (OVERDUE in str(failure.value)) == (status == 2)
        assert ("report" in str(failure.value)) == (result == "report")

    bench.peer("@peer", answer)
    with ThreadPoolExecutor(10) as pool:
        list(pool.map(check, ROWS))


def test_outcomes_without_an_answer(bench, run):
    lost = "kelp-send: OK: the connection ended without an answer"
    full = "; the console may already serve four clients"
    for name, delay, hint in [("@full", 0, full), ("@slow", 1.1, "")]:
        bench.peer(name, lambda request: time.sleep(delay) or Last())
        assert run("KELP_SEND", name, "OK") == (3, b"", f"{lost}{hint}\n")
        with Station(name) as station, pytest.raises(Failure, match="ended without"):
            station.ask("OK")
    for target, number in [("@none", 111), ("./none", 2), ("/dev/null", 25)]:
        reason = os.strerror(number)
        assert run("KELP_SEND", target, "OK") == (3, b"", f"kelp-send: {target}: {reason}\n")
        with pytest.raises(OSError, match=f"{reason}.*{target}"):
            open_line(target, 1)


def test_series(bench, run):
    bench.peer("@peer", answer)
    Path("lines").write_text("# no command\n\nOK\r\nTEXT")
    for arguments, status, answers in [
        (["BAD", "OK", "--stop"], 1, b"x\r\nERROR\r\n"),
        (["BAD", "--file", "lines", "--stop"], 1, b"x\r\nERROR\r\n"),
        (["--file", "lines", "--quiet", "1"], 4, b"1\r\nOK\r\nabcabca"),
        (["BAD", "--file=-"], 1, b"x\r\nERROR\r\n1\r\nOK\r\n"),
    ]:
        assert run("KELP_SEND", "@peer", *arguments, stdin="OK\n") == (status, answers, "")
    for file, said in [("/none", "No such file or directory"), ("-", "no command in it")]:
        said = f"kelp-send: {file}: {said}\n"
        assert run("KELP_SEND", "@peer", "--file", file) == (66, b"", said)
    assert os.waitstatus_to_exitcode(os.system("$KELP_SEND @peer OK >/dev/full")) == 74


def test_json(bench):
    answers = iter([b"\xff\x00\r\nOK\r\n", b"\r\nOK\r\n"])
    peer = bench.peer("peer.sock", lambda request: next(answers))
    os.mkfifo("lines")
    words = [os.environ["KELP_SEND"], "./peer.sock", "--json", "A", "--file=lines"]
    program = bench.run(*words, ready="}\n")
    peer.push("\r\n+C: 1\r\n")
    Path("lines").write_text("B\n")
    wait_until(lambda: program.status is not None)
    objects = [json.loads(line) for line in program.text().splitlines()]
    assert all(0 <= each.pop("milliseconds") < 30000 for each in objects)
    assert objects == [
        {"command": "A", "answer": "\ufffd\0\r\nOK\r\n", "status": "OK", "hex": "FF000D0A4F4B0D0A"},
        {"command": "", "answer": "\r\n+C: 1\r\n", "status": "UNASKED"},
        {"command": "B", "answer": "\r\nOK\r\n", "status": "OK"},
    ]


def test_a_long_command(bench):
    """Also when the other side reads late, and sends meanwhile."""
    Path("lines").write_bytes(b"A\xe4" * 500000)
    with socket.create_server(("127.0.0.1", 3001)) as listener:
        listener.settimeout(30)
        words = ["localhost:3001", "--file=lines", "--terminator", "fF 00", "--quiet=0"]
        program = bench.run(os.environ["KELP_SEND"], *words)
        with Station(Line(listener.accept()[0].detach())) as console:
            console.write("x" * 1000000)
            assert console.receive(1000002) == b"A\xe4" * 500000 + b"\xff\x00"
            console.write("\r\nOK\r\n")
            wait_until(lambda: program.status is not None)
    assert (program.status, program.text()) == (0, "x" * 1000000 + "\r\nOK\r\n")


def test_a_tty_is_set_locked_and_emptied(run, pty):
    master, device = pty
    for use in ("program", "library"):
        # Whatever an earlier program left.
        cflag = termios.CS7 | termios.PARENB | termios.CSTOPB | termios.CRTSCTS
        left = [0xFF7F, 0xFF, cflag, 0xFF, termios.B9600, termios.B9600, [9] * 32]
        termios.tcsetattr(master, termios.TCSANOW, left)
        os.write(master, b"\r\nOK\r\n")  # the answer to an earlier command
        if use == "program":
            said = "kelp-send: A: no complete answer in time\n"
            assert run("KELP_SEND", "--timeout=0.3", device, "A") == (2, b"", said)
            assert os.read(master, 100).endswith(b"A\r\n")
        else:
            line = open_line(device, 1)
            assert line.read() is None
        iflag, oflag, cflag, lflag, *speeds, characters = termios.tcgetattr(master)
        assert (iflag, oflag, lflag, speeds) == (0, 0, 0, [termios.B115200] * 2)
        assert cflag & ~termios.CBAUD == termios.CS8 | termios.CREAD | termios.CLOCAL
        assert (characters[termios.VMIN], characters[termios.VTIME]) == (1, 0)
    said = f"kelp-send: {device}: locked by another program\n"
    assert run("KELP_SEND", device, "A") == (3, b"", said)
    with pytest.raises(OSError, match="locked by another program"):
        open_line(device, 1)
    line.close()


def test_a_late_answer_does_not_count_for_the_next_command(bench, run, pty):
    bench.peer("@peer", answer)
    status, answers, _ = run("KELP_SEND", "@peer", "--timeout=0.5", "SLOW", "OK")
    assert (status, answers) == (2, b"1\r\nOK\r\n")
    with Station("@peer") as station:
        with pytest.raises(Failure):
            station.ask("SLOW", timeout=0.5)
        station.send("OK")
        assert station.answer("OK") == b"1\r\nOK\r\n"
    master, device = pty
    with Station(Line(os.dup(master))) as console:
        program = bench.run(os.environ["KELP_SEND"], device, "--timeout=1", "A", "B")
        console.exactly("", "A\r\n")
        time.sleep(1.2)
        console.exactly("\r\nlate\r\nOK\r\n", "B\r\n")
        console.write("\r\nB\r\nOK\r\n")
        wait_until(lambda: program.status is not None)
        said = [f"kelp-send: {command}: no complete answer in time" for command in "AB"]
        assert program.text() == said[0] + "\n\r\nlate\r\nOK\r\n\r\nB\r\nOK\r\n"
        said[1] += "; it was not sent, because an earlier answer is overdue\n"
        assert run("KELP_SEND", device, "--timeout=0.3", "A", "B") == (2, b"", "\n".join(said))
        console.receive(3)
        with Station(device, timeout=0.3) as station:
            for command in "AB":  # the second is not sent
                with pytest.raises(Failure, match="'A': no complete answer in time"):
                    station.ask(command)
            console.exactly("\r\nlate\r\nOK\r\n", "A\r\n")
            station.send("B")
            console.exactly("\r\nB\r\nOK\r\n", "B\r\n")
            assert station.answer("B") == b"\r\nB\r\nOK\r\n"


# What is said, and arguments that cause it; "%" stands for the first of them.
WRONG = r"""
no target ;
no command ; @x
% is neither HOST:PORT, @NAME nor a path with a '/' ; @ A ; host A ; host: A ; :1 A ; h:0 A ; h:65536 A
--timeout must be 0 to 86400 seconds, with up to three decimals ; @x --timeout=1. ; @x --timeout=86401
--quiet must be 0 to 3600000 milliseconds ; @x --quiet=x ; @x --quiet=-1 ; @x --quiet=3600001
the expected text must not be empty; valid escapes: \r \n \t \\ and \xHH ; @x --expect= ; @x --expect=\ ; @x --expect=\xg0
--terminator must be pairs of hex digits ; @x --terminator=0 ; @x --terminator=0g ; @x --terminator=0d0
--expect and --expect-error exclude each other ; @x --expect-error=A --expect=A
"""


@pytest.mark.parametrize("row", WRONG.split("\n")[1:-1])
def test_wrong_options(run, row):
    said, *cases = row.split(" ;")
    hint = "Try `kelp-send --help' or `kelp-send --usage' for more information.\n"
    for arguments in map(str.split, cases):
        expected = f"kelp-send: {said.replace('%', (arguments or [''])[0])}\n{hint}"
        assert run("KELP_SEND", *arguments) == (64, b"", expected)
        if "neither" in said:
            with pytest.raises(ValueError, match="is neither"):
                open_line(arguments[0], 1)


@pytest.mark.parametrize("status, said", [(0, ""), (3, "the connection ended\r\n")])
def test_terminal(bench, status, said):
    """Lines are sent as typed, and what arrives is shown at once; controls are made visible."""
    peer = bench.peer("@peer", lambda request: b"<" + request + b"\x1b\xff\t\x7f>")
    keyboard, keys = os.openpty()
    words, own = [os.environ["KELP_SEND"], "@peer", "--quiet=100"], dict.fromkeys(
        ("stdin", "stdout", "stderr"), keys
    )
    with subprocess.Popen(words, **own) as program, Station(Line(keyboard)) as user:
        os.close(keys)
        time.sleep(0.3)
        # The terminal's own echo, and its CR LF for LF.
        user.exactly("A\nB", "A\r\nB<A\r\r\n\\x1B\\xFF\t\\x7F>\r\n")
        peer.push("\r\n+C: 1\r\n")
        user.exactly("", "\r\r\n+C: 1\r\r\n")
        user.exactly("\n", "\r\n<B\r\r\n\\x1B\\xFF\t\\x7F>\r\n")
        user.write("\x04") if status == 0 else peer.close()
        user.exactly("", said and f"kelp-send: @peer: {said}")
        assert program.wait(30) == status

"""kelp-send, and the same answers judged by kelptest.Station."""
import json
import os
import socket
import subprocess
import termios
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager

import pytest
from kelptest import Failure, Last, Line, Peer, Station, open_line

# What the peer answers to a command, in pieces that arrive one after the other.
ANSWERS = {
    "OK": [b"1\r\nOK\r\n"],
    "BAD": [b"x\r\nERROR\r\n"],
    "CME": [b"\r\n+CME ERROR: 10\r\n"],
    "CMS": [b"\r\n+CMS ERROR: 10\r\n"],
    "TEXT": [b"abcabca"],
    "PIECES": [b"abc", b"def"],
    "LATER": [b"x\r\nERROR\r\n1", b"\r\nOK\r", b"\n"],
    "INLINE": [b"xERROR\r\nnotOK\r\n"],
    "NOCR": [b"1\nOK\n"],
    "OFF": [b"Invalid descriptor"],
    "CUT": [b"\r\n12Normal error"],
    "Z=2": [b"Z=2\r\n\r\n+Z:Unsupport command\r\n\r\nOK\r\n"],
    "MUTE": [],
    "ECHO": [b"ECHO"],
    "AT+HALF": [b"\r\nAT+H"],
    "ECHOFIRST": [b"ECHOFIRST", b"\r\nERROR\r\n"],
    "+P=1": [b"\r\n+Ev: 1\r\n", b"\r\nOK\r\n"],
    "+Q": [b"\r\n+C: 1\r\n"],
    "+R": [b"\r\n+C: 1\r\n\r\n+R: 2\r\n", b"\r\nOK\r\n\r\n^C_2: 1\r\n"],
    "+L": [b"\r\n+L: 2\r\n\r\nOK\r\n\r\n%s" % (b"+C: 1\r\n" * 90)],
    "+M": [b"\r\nOK\r\n%s" % (b"+C: 1\r\n" * 200)],
    "+N": [b"\r\n+1: 7\r\n+N8\r\n#A B: 9\r\nOK\r\n"],
    "ATI": [b"\r\n+GCAP: 1\r\n\r\nOK\r\n\r\n+C: 2\r\n"],
    "AT+H": [b"\r\n+C: 4\r\n\t> AT+h \r\n+HI: 1\r\n+h: 2\r\n+C: 3\r\nOK\r\n"],
    "AT+I": [b"\r\nx AT+I\r\nOK\r\n"],
    "AT+J": [b"\r\n+J: 1\r\nAT+J\r\nOK\r\n"],
    "ENDED": [b"12", Last()],
}
OVERDUE = "no complete answer in time"
QUIET = OVERDUE + "; an answer without a result line needs --quiet"
ERROR = "the answer is an error"
OTHER = "the answer is not the expected one"
# A command and options of kelp-send; its exit status, and what it says after the command.
ROWS = [
    ("OK", "", 0, ""),
    ("OK", "--expect 1 --expect O", 0, ""),
    ("OK", "--expect 1 --expect y", 1, OTHER),
    ("OK", "--expect-error 1", 1, OTHER),
    ("BAD", "", 1, ""),
    ("BAD", "--expect x", 1, ERROR),
    ("BAD", "--expect-error x", 0, ""),
    ("BAD", "--expect-error x --expect-error y", 1, OTHER),
    ("CME", "--expect-error 10", 0, ""),
    ("CMS", "", 1, ""),
    ("TEXT", "", 4, ""),
    ("TEXT", "--quiet 1", 4, ""),
    ("TEXT", "--quiet 1 --expect y", 2, OVERDUE),
    ("PIECES", "--quiet 2000 --expect cd", 0, ""),
    ("TEXT", "--expect cab", 2, QUIET),
    ("LATER", "--expect 1", 0, ""),
    ("INLINE", "", 4, ""),
    ("NOCR", "--quiet 9000", 2, OVERDUE),
    ("NOCR", "", 0, ""),
    ("OFF", "--expect Inv", 1, ERROR),
    ("OFF", "--expect-error Inv", 0, ""),
    ("CUT", "", 1, ""),
    ("Z=2", "--expect Z", 1, ERROR),
    ("Z=2", "--expect-error Z:Un", 0, ""),
    ("Z=2", "--expect-error =2", 1, OTHER),
    ("MUTE", "", 2, OVERDUE),
    ("ECHO", "--quiet 1 --expect E", 2, OVERDUE),
    ("AT+HALF", "", 2, OVERDUE),
    ("ECHOFIRST", "--quiet 2000 --expect E", 1, ERROR),
    ("+P=1", "--expect 1", 1, OTHER + '; "1" is only in an unsolicited report'),
    ("+Q", "--quiet 50 --expect C", 2, OVERDUE + '; "C" is only in an unsolicited report'),
    ("+R", "--expect 2", 0, ""),
    ("+R", "--expect ^C", 1, OTHER + '; "^C" is only in an unsolicited report'),
    ("+L", "--expect 2", 0, ""),
    ("+M", "--quiet 9000", 2, OVERDUE),
    ("+N", "--expect 7 --expect 8 --expect 9", 0, ""),
    ("ATI", "--expect 1", 0, ""),
    ("ATI", "--expect 2", 1, OTHER + '; "2" is only in an unsolicited report'),
    ("AT+H", "--expect 2", 0, ""),
    ("AT+H", "--expect AT", 1, OTHER),
    ("AT+H", "--expect 1", 1, OTHER + '; "1" is only in an unsolicited report'),
    ("AT+I", "--expect x", 0, ""),
    ("AT+J", "--expect AT", 0, ""),
    ("ENDED", "--expect 2", 0, ""),
]


def answer(request):
    for i, piece in enumerate(ANSWERS[request.decode().rstrip("\r\n")]):
        time.sleep(0.1 if i else 0)
        yield piece


@contextmanager
def started(*arguments, **options):
    """A running kelp-send, which is killed at the end of the block."""
    words = [os.environ["KELP_SEND"], *arguments]
    with subprocess.Popen(words, **options) as program:
        try:
            yield program
        finally:
            program.kill()


@pytest.fixture(scope="module")
def peer():
    """The name of its socket. Commands end in CR LF."""
    with Peer("@kelp-test-send", answer):
        yield "@kelp-test-send"


@pytest.fixture(scope="module")
def outcomes(kelp_send, peer):
    """Of each row: what kelp-send did, and what the library did."""

    def send(row):
        command, options, status, _ = row
        return kelp_send(
            peer, command, "--timeout", "1.5" if status == 2 else "30", *options.split()
        )

    def ask(row):
        command, options, status, _ = row
        words = options.split() + [""]
        quiet = float(words[words.index("--quiet") + 1]) / 1000 if "--quiet" in words else None
        texts = [text for word, text in zip(words, words[1:]) if word.startswith("--expect")]
        with Station(peer, timeout=1.5 if status == 2 else 30, quiet=quiet) as station:
            ask = station.expect if texts else station.ask
            try:
                return (station.refuse if "--expect-error" in words else ask)(command, *texts)
            except Failure as failure:
                return str(failure)

    with ThreadPoolExecutor(8) as pool:
        return dict(zip(ROWS, zip(pool.map(send, ROWS), pool.map(ask, ROWS))))


@pytest.mark.parametrize("row", ROWS, ids=lambda row: " ".join(row[:2]))
def test_answer(outcomes, row):
    command, options, status, said = row
    answer = b"".join(ANSWERS[command])
    by_program, by_library = outcomes[row]
    said = f"kelp-send: {command}: {said}\n" if said else ""
    assert by_program == (status, answer, said)
    if status == 2 or ("--expect" in options and status == 1):
        assert by_library.startswith(f"@kelp-test-send: '{command}': ")
        assert (OVERDUE in by_library) == (status == 2)
        assert ("report" in by_library) == ("report" in said and status == 1)
        assert f"\n  sent '{command}\\r\\n'" in by_library
    else:
        assert by_library == answer


def test_outcomes_without_an_answer(kelp_send, peer):
    lost = "the connection ended without an answer; the console may already serve four clients\n"
    with Peer("@kelp-test-full", lambda request: Last()):
        assert kelp_send("@kelp-test-full", "OK") == (3, b"", f"kelp-send: OK: {lost}")
        with Station("@kelp-test-full") as station, pytest.raises(Failure, match="ended without"):
            station.ask("OK")
    for target, reason in [
        ("@none", "Connection refused"),
        ("./none", "No such file or directory"),
    ]:
        assert kelp_send(target, "OK") == (3, b"", f"kelp-send: {target}: {reason}\n")
        with pytest.raises(OSError, match=f"{reason}.*{target}"):
            open_line(target, 1)
    with open("/dev/full", "wb") as full:
        assert subprocess.run([os.environ["KELP_SEND"], peer, "OK"], stdout=full).returncode == 74


def test_series(kelp_send, peer, tmp_path):
    lines = tmp_path / "lines"
    lines.write_text("# no command\n\nOK\r\nTEXT")
    both = b"x\r\nERROR\r\n1\r\nOK\r\n"
    for arguments, stdin, status, answers in [
        (["BAD", "OK"], "", 1, both),
        (["BAD", "OK", "--stop"], "", 1, b"x\r\nERROR\r\n"),
        (["BAD", "--file", lines, "--stop"], "", 1, b"x\r\nERROR\r\n"),
        (["--file", lines, "--quiet", "1"], "", 4, b"1\r\nOK\r\nabcabca"),
        (["BAD", "--file=-"], "OK\n", 1, both),
    ]:
        assert kelp_send(peer, *arguments, stdin=stdin) == (status, answers, "")
    assert kelp_send(peer, "--file", "/none")[0::2] == (
        66,
        "kelp-send: /none: No such file or directory\n",
    )
    assert kelp_send(peer, "--file=-")[0::2] == (66, "kelp-send: -: no command in it\n")


def test_json(kelp_send):
    answers = iter([b"\xff\x00\r\nOK\r\n", b"\r\nOK\r\n"])
    with Peer("@kelp-test-json", lambda request: next(answers)) as peer:
        with started(
            "@kelp-test-json",
            "--json",
            "A",
            "--file=-",
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
        ) as program:
            lines = [program.stdout.readline()]
            peer.push("\r\n+C: 1\r\n")
            lines += program.communicate(b"B\n")[0].splitlines()
    objects = [json.loads(line) for line in lines]
    assert all(0 <= each.pop("milliseconds") < 30000 for each in objects)
    assert objects == [
        {"command": "A", "answer": "\ufffd\0\r\nOK\r\n", "status": "OK", "hex": "FF000D0A4F4B0D0A"},
        {"command": "", "answer": "\r\n+C: 1\r\n", "status": "UNASKED"},
        {"command": "B", "answer": "\r\nOK\r\n", "status": "OK"},
    ]


@pytest.mark.parametrize("target", ["localhost:3001", "./socket", "@kelp-test-target"])
def test_a_long_command_reaches_every_kind_of_target(tmp_path, monkeypatch, target):
    """Also when the other side reads late, and sends meanwhile."""
    monkeypatch.chdir(tmp_path)
    with open("lines", "wb") as lines:
        lines.write(b"A\xe4" * 500000)
    tcp = target[-1] == "1"
    with socket.socket(socket.AF_INET if tcp else socket.AF_UNIX) as listener:
        listener.bind(
            ("127.0.0.1", 3001) if tcp else target[2:] if "/" in target else "\0" + target[1:]
        )
        listener.listen()
        listener.settimeout(30)
        words = [target, "--file=lines", "--terminator", "fF 00", "--quiet=0"]
        with open("answer", "wb") as output, started(*words, stdout=output) as program:
            with Station(Line(listener.accept()[0].detach()), timeout=30) as console:
                console.write("x" * 1000000)
                assert console.receive(1000002) == b"A\xe4" * 500000 + b"\xff\x00"
                console.write("\r\nOK\r\n")
                assert program.wait(30) == 0
    with open("answer", "rb") as output:
        assert output.read() == b"x" * 1000000 + b"\r\nOK\r\n"


def test_a_tty_is_set_locked_and_emptied(kelp_send, pty):
    master, device = pty
    for use in ("program", "library"):
        attributes = termios.tcgetattr(master)
        # Whatever an earlier program left.
        attributes[:4] = [
            0xFFFF & ~termios.IGNCR,
            0xFF,
            termios.CS7 | termios.PARENB | 0o10000000100,
            0xFF,
        ]
        attributes[4:6] = [termios.B9600, termios.B9600]
        termios.tcsetattr(master, termios.TCSANOW, attributes)
        os.write(master, b"\r\nOK\r\n")  # the answer to an earlier command
        if use == "program":
            said = "kelp-send: A: no complete answer in time\n"
            assert kelp_send("--timeout=0.3", device, "A") == (2, b"", said)
            assert os.read(master, 100).endswith(b"A\r\n")
        else:
            line = open_line(device, 1)
            assert line.read() is None
        iflag, oflag, cflag, lflag, ispeed, ospeed, characters = termios.tcgetattr(master)
        assert (iflag, oflag, lflag, ispeed, ospeed) == (0, 0, 0, termios.B115200, termios.B115200)
        assert cflag & ~termios.CBAUD == termios.CS8 | termios.CREAD | termios.CLOCAL
        assert (characters[termios.VMIN], characters[termios.VTIME]) == (1, 0)
    said = f"kelp-send: {device}: locked by another program\n"
    assert kelp_send(device, "A") == (3, b"", said)
    with pytest.raises(OSError, match="locked by another program"):
        open_line(device, 1)
    line.close()


def test_a_late_answer_does_not_count_for_the_next_command(kelp_send, pty):
    def slow(request):
        if request == b"SLOW\r\n":
            time.sleep(1)
        yield request.replace(b"\r", b": 1\r") + b"\r\nOK\r\n"

    with Peer("@kelp-test-late", slow):
        status, answers, said = kelp_send("@kelp-test-late", "--timeout=0.5", "SLOW", "FAST")
        assert (status, answers) == (2, b"FAST: 1\r\n\r\nOK\r\n")
        with Station("@kelp-test-late") as station:
            with pytest.raises(Failure):
                station.ask("SLOW", timeout=0.5)
            assert station.ask("FAST") == b"FAST: 1\r\n\r\nOK\r\n"

    master, device = pty
    with started(device, "--timeout=1", "A", "B", stdout=subprocess.PIPE) as program, Station(
        Line(os.dup(master)), timeout=30
    ) as console:
        console.exactly("", "A\r\n")
        time.sleep(1.2)
        console.exactly("\r\nlate\r\nOK\r\n", "B\r\n")
        console.write("\r\nB\r\nOK\r\n")
        assert program.communicate()[0] == b"\r\nlate\r\nOK\r\n\r\nB\r\nOK\r\n"
    said = [f"kelp-send: {command}: no complete answer in time" for command in "AB"]
    said[1] += "; it was not sent, because an earlier answer is overdue"
    assert kelp_send(device, "--timeout=0.3", "A", "B") == (2, b"", "\n".join(said) + "\n")

    with Station(device, timeout=0.3) as station, Station(Line(os.dup(master))) as console:
        console.receive(3)
        for _ in range(2):  # the second is not sent
            with pytest.raises(Failure, match="'A': no complete answer in time"):
                station.ask("A")
        console.exactly("\r\nlate\r\nOK\r\n", "A\r\n")
        station.send("B")
        console.exactly("\r\nB\r\nOK\r\n", "B\r\n")


TARGET = "is neither HOST:PORT, @NAME nor a path with a '/'"
SECONDS = "--timeout must be 0 to 86400 seconds, with up to three decimals"
MILLISECONDS = "--quiet must be 0 to 3600000 milliseconds"
TEXT = "the expected text must not be empty; valid escapes: \\r \\n \\t \\\\ and \\xHH"
HEX = "--terminator must be pairs of hex digits"


@pytest.mark.parametrize(
    "said, arguments",
    [
        ("no target", []),
        ("no command", ["@x"]),
        *(
            (f"{target} {TARGET}", [target, "A"])
            for target in "@ host host: :1 h:0 h:65536 h:x".split()
        ),
        *(
            (SECONDS, ["@x", "A", f"--timeout={value}"])
            for value in "x -1 1. .5 1.2345 86401".split()
        ),
        *((MILLISECONDS, ["@x", "A", f"--quiet={value}"]) for value in "x -1 1.5 3600001".split()),
        *((TEXT, ["@x", "A", f"--expect={value}"]) for value in ("", "\\", "\\q", "\\x4", "\\xg0")),
        *((HEX, ["@x", "A", f"--terminator={value}"]) for value in ("0", "0g", "0d0")),
        (
            "--expect and --expect-error exclude each other",
            ["@x", "--expect-error=A", "--expect=A"],
        ),
    ],
)
def test_wrong_options(kelp_send, said, arguments):
    hint = "Try `kelp-send --help' or `kelp-send --usage' for more information.\n"
    assert kelp_send(*arguments) == (64, b"", f"kelp-send: {said}\n{hint}")


def test_options_with_unusual_values(kelp_send):
    with Peer("@kelp-test-raw", lambda request: b"\t\\\xabx" + request + b"\r\nOK\r\n"):
        run = kelp_send(
            "@kelp-test-raw", "A", "--terminator=", "--expect", "\\t\\\\\\xaBxA\\r\\nOK\\r\\n"
        )
        assert run == (0, b"\t\\\xabxA\r\nOK\r\n", "")
        assert kelp_send("@kelp-test-raw", "A", "--timeout=86400.000", "--quiet=3600000")[0] == 0
        for option in ("-h", "-?", "--help", "--usage", "-V", "--version"):
            status, output, _ = kelp_send(option)
            assert (status, b"kelp-send" in output) == (0, True)


def test_terminal(pty):
    """Lines are sent as typed, and what arrives is shown at once; controls are made visible."""
    master, device = pty
    keyboard, keys = os.openpty()
    with Peer("@kelp-test-terminal", lambda request: b"<" + request + b"\x1b\xff\t\x7f>") as peer:
        with started(
            "@kelp-test-terminal", "--quiet=100", stdin=keys, stdout=keys
        ) as program, Station(Line(os.dup(keyboard)), timeout=30) as user:
            os.close(keys)
            # The terminal's own echo, and its CR LF for LF.
            user.exactly("A\nB", "A\r\nB<A\r\r\n\\x1B\\xFF\t\\x7F>\r\n")
            peer.push("\r\n+C: 1\r\n")
            user.exactly("\n", "\r\n\r\r\n+C: 1\r\r\n<B\r\r\n\\x1B\\xFF\t\\x7F>\r\n")
            user.write("\x04")
            assert program.wait(30) == 0
        with started(
            "@kelp-test-terminal",
            stdin=os.open(device, os.O_RDWR),
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        ) as program:
            os.write(master, b"A\n")
            assert program.stdout.read(9) == b"<A\r\n\x1b\xff\t\x7f>"
            peer.close()
            said = b"kelp-send: @kelp-test-terminal: the connection ended\n"
            assert (program.wait(30), program.stderr.read()) == (3, said)
    os.close(keyboard)

"""The daemon on kelptest; and what kelptest promises about it."""
import os
import subprocess
import sys
import time
from pathlib import Path

import pytest
from kelptest import Failure, Line, Station, wait_until

CONFIG = {
    "module": {
        "support-modules": ["pcba", "bench"],
        "interaction": {
            "pcba": {"path": "pcba.sock"},
            "bench": {"path": "kelp-test-bench"},
            "modem": {"path": "modem.sock"},
        },
        "whitelist": {"pcba": ["AT+P"], "bench": ["AT+B"]},
    }
}


def counts(pid):
    """Descriptors and threads."""
    return tuple(len(os.listdir(f"/proc/{pid}/{name}")) for name in ("fd", "task"))


def switches(pid):
    """Lines with the name and the context switches of each thread."""
    tasks = [(task / "status").read_text() for task in Path(f"/proc/{pid}/task").iterdir()]
    return [
        line for task in tasks for line in task.splitlines() if "Name" in line or "ctxt" in line
    ]


def test_all_consoles(bench, pty):
    master, device = pty
    record = bytes.fromhex("00000000 08000000 41542B504342413F 03000000 332E31")
    board = bench.peer("pcba.sock", lambda request: record)
    modem = bench.peer("modem.sock", lambda request: None)  # or kelp tries again every second
    bench.peer("@kelp-test-bench", lambda request: b"<" + request + b">")
    kelp = bench.daemon({"console": {"usb": {"active": True, "route": device}}, **CONFIG})
    wait_until(lambda: modem.connections)
    with kelp.station():
        before = counts(kelp.pid)
    with kelp.station("tcp") as tcp, kelp.station("local") as local:
        for station in (tcp, local, Station(Line(os.dup(master)))):
            station.exactly("AT+PCBA?\r\n", "AT+PCBA?\r\n\r\n+PCBA:3.1\r\n\r\nOK\r\n")
            station.exactly("AT+B\r\nX\r\n", "<AT+B>X\r\nUnsupport command\r\nERROR\r\n")
        with pytest.raises(Failure, match="(?s)not 'Y'\n.*sent .*'AT.B.r.n'\n.*came .*'<AT.B>'"):
            tcp.exactly("AT+B\r\n", "Y")
        if os.environ.get("KELP_SANITIZED") != "1":  # a sanitizer may run a thread of its own

            def is_idle():
                earlier = switches(kelp.pid)
                time.sleep(1)
                return switches(kelp.pid) == earlier

            wait_until(is_idle)
    assert board.requests == [b"AT+PCBA?"] * 3
    wait_until(lambda: counts(kelp.pid) <= before, what=lambda: f"{counts(kelp.pid)} as {before}")
    log = kelp.log()
    assert [record.text for record in log if record.level not in ("D", "I", "E")] == []
    assert (
        sum(record.text == "HandleRequest: all modules: unsupport command." for record in log) == 3
    )


def test_everything_ends_within_a_second(bench):
    ignore = "import signal, time; signal.signal(15, signal.SIG_IGN); print(1, flush=True); time.sleep(99)"
    deaf = bench.run(sys.executable, "-c", ignore, ready="1")
    peer = bench.peer("pcba.sock", lambda request: time.sleep(99))
    kelp = bench.daemon(CONFIG)
    with kelp.station() as station:
        station.send("AT+PCBA?")
        wait_until(lambda: peer.requests)
        for part in (kelp.stop, peer.close, deaf.stop):
            begin = time.monotonic()
            part()
            assert time.monotonic() - begin < 1
        assert station.receive_to_end() == b""
    assert (kelp.status, deaf.status) == (-15, -9)


def test_a_daemon_dies_with_its_test(bench):
    code = (
        f"import kelptest, os; print('pid', kelptest.Daemon({CONFIG}).pid, flush=True); os.abort()"
    )
    process = bench.run(sys.executable, "-c", code, ready="pid ")
    pid = process.text().split()[1]
    wait_until(lambda: process.status is not None)
    wait_until(lambda: not os.path.exists(f"/proc/{pid}/exe"))


def test_a_failure_shows_the_output(bench, tmp_path):
    lines = ['pytest_plugins = ["kelptest.plugin"]', "def test_it(bench):"]
    lines.append(f"    bench.daemon({CONFIG}).wait_for('none', timeout=0.1)")
    Path("test_it.py").write_text("\n".join(lines))
    words = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "test_it.py"]
    run = subprocess.run(words, capture_output=True, text=True)
    assert run.returncode == 1
    assert "not in time: 'none' in kelp.log (running):" in run.stdout
    assert run.stdout.count("Start: tcp server side: fd<") == 2  # in the failure, and in the report
    bench.daemon(CONFIG)
    with pytest.raises(Failure, match="another daemon has the local console"):
        bench.daemon(CONFIG)

"""What kelptest promises about the daemon and what else it starts."""
import os
import subprocess
import sys
import time
from pathlib import Path

import pytest
from kelptest import Failure, Line, Peer, Station, wait_until

MODULE = {"interaction": {"wcn": {"path": "kelp-test-wcn"}}, "whitelist": {"wcn": ["AT+B"]}}
CONFIG = {"console": {"tcp": {"active": True}}, "module": MODULE}


def test_all_consoles(bench, pty):
    bench.peer("@kelp-test-wcn", lambda request: b"<" + request + b">")
    kelp = bench.daemon({**CONFIG, "console": {"usb": {"active": True, "route": pty[1]}}})
    for _ in range(5):  # a console serves four clients, so each must leave
        with kelp.station("tcp") as tcp, kelp.station("local") as local:
            for station in (tcp, local, Station(Line(os.dup(pty[0])))):
                station.exactly("AT+B\r\nX\r\n", "<AT+B>X\r\nUnsupport command\r\nERROR\r\n")
            local.refuse("X")
            with pytest.raises(Failure, match="(?s)not 'Y'\n.*sent 'AT.B.*came '<AT.B>'"):
                tcp.exactly("AT+B\r\n", "Y")


def test_everything_ends_within_a_second(bench):
    ignore = "import signal, time; signal.signal(15, signal.SIG_IGN); print(1, flush=True); time.sleep(99)"
    deaf = bench.run(sys.executable, "-c", ignore, ready="1")
    peer = bench.peer("@kelp-test-wcn", lambda request: time.sleep(99))
    kelp = bench.daemon(CONFIG)
    with kelp.station() as station:
        station.send("AT+B")
        wait_until(lambda: peer.requests)
        for part in (kelp.stop, peer.close, deaf.stop):
            begin = time.monotonic()
            part()
            assert time.monotonic() - begin < 1
        assert station.receive_to_end() == b""
    assert (kelp.status, deaf.status) == (-15, -9)
    Peer("@kelp-test-wcn", print).close()  # the name is free again


@pytest.mark.parametrize("size, timeout, said", [(6, 0.5, "in time"), (99999, 30, "a flood")])
def test_a_flood_does_not_hold_up_a_station(bench, size, timeout, said):
    bench.peer("@peer", lambda request: iter(lambda: b"x" * size, None))
    with Station("@peer", timeout=timeout) as station, pytest.raises(Failure, match=said):
        station.ask("A")


def test_an_error_in_an_answer_is_raised():
    with pytest.raises(FileNotFoundError), Peer("@peer", lambda request: open("/none")):
        with Station("@peer") as station, pytest.raises(Failure, match="ended without an answer"):
            station.ask("A")


def test_a_daemon_dies_with_its_test(bench):
    code = f"import os, kelptest as k; print('pid', k.Daemon({CONFIG}).pid, flush=True); os.abort()"
    process = bench.run(sys.executable, "-c", code, ready="pid ")
    pid = process.text().split()[1]
    wait_until(lambda: process.status is not None)
    wait_until(lambda: not os.path.exists(f"/proc/{pid}/exe"))


def test_a_failure_shows_the_output(bench):
    call = f"bench.daemon({CONFIG}).wait_for('none', timeout=0.1)"
    test = f'pytest_plugins = ["kelptest.plugin"]\ndef test_it(bench):\n    {call}'
    Path("test_it.py").write_text(test)
    words = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "test_it.py"]
    run = subprocess.run(words, capture_output=True, text=True)
    assert run.returncode == 1
    assert "not in time: 'none' in kelp.log (running):" in run.stdout
    assert run.stdout.count("Start: tcp server side: fd<") >= 2  # in the failure, and in the report
    bench.daemon(CONFIG)
    with pytest.raises(Failure, match="another daemon has the local console"):
        bench.daemon(CONFIG)

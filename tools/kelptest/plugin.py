"""For pytest: `pytest_plugins = ["kelptest.plugin"]` in a test file or conftest.py."""
from __future__ import annotations

from contextlib import ExitStack
from pathlib import Path
from typing import Any, Callable, Iterator, Mapping, Union

import pytest

from kelptest.daemon import Daemon
from kelptest.peer import Answer, Peer
from kelptest.process import Process


class Bench:
    """Starts daemons, peers and programs, which end with the test."""

    def __init__(self, stack: ExitStack, directory: Path) -> None:
        self._stack = stack
        self._directory = directory
        self.processes: list[Process] = []

    def daemon(self, config: Mapping[str, Any]) -> Daemon:
        daemon: Daemon = self._stack.enter_context(Daemon(config, self._directory))
        self.processes.append(daemon)
        return daemon

    def peer(self, name: str, answer: Callable[[bytes], Answer]) -> Peer:
        return self._stack.enter_context(Peer(name, answer))

    def run(self, *words: Union[str, Path], ready: str = "") -> Process:
        """Starts a program, and waits until its output contains the text `ready`."""
        output = f"{len(self.processes)}-{Path(words[0]).name}.log"
        process: Process = self._stack.enter_context(Process(words, output, self._directory))
        self.processes.append(process)
        process.wait_for(ready)
        return process


@pytest.fixture
def bench(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Iterator[Bench]:
    """A Bench in an empty directory, which is the current one during the test."""
    monkeypatch.chdir(tmp_path)
    with ExitStack() as stack:
        yield Bench(stack, tmp_path)


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Item, call: Any) -> Any:
    """Adds the end of the output of all processes to the report of a failure."""
    report = (yield).get_result()
    used = getattr(item, "funcargs", {}).get("bench")
    if report.failed and isinstance(used, Bench):
        report.sections += [("Output", process.tail()) for process in used.processes]

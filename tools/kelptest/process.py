"""A program of the bench as a child process."""
from __future__ import annotations

import os
import signal
import subprocess
import sys
from pathlib import Path
from typing import Any, Optional, Sequence, Union

from kelptest.wait import Failure, wait_until

_TERM_SECONDS = 0.5  # from SIGTERM to SIGKILL
_SHOWN_LINES = 25  # of the output, in a failure


class Process:
    """Runs words[0], looked up in PATH, in `directory`. The file `output` there gets what it writes
    to standard output and standard error; standard input is empty.

    It is also killed when the thread that started it ends, however that comes about.
    """

    def __init__(
        self,
        words: Sequence[Union[str, Path]],
        output: str,
        directory: Union[str, Path] = ".",
    ) -> None:
        self.output = Path(directory, output).absolute()
        self._text = ""
        self._read_bytes = 0
        with open(self.output, "wb") as file:
            self._child = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "--", *words],
                cwd=directory,
                stdin=subprocess.DEVNULL,
                stdout=file,
                stderr=subprocess.STDOUT,
                start_new_session=True,
            )

    def __enter__(self) -> Any:
        return self

    def __exit__(self, kind: Any, *_: Any) -> None:
        self.stop()
        if kind is not None:
            print(self.tail(), file=sys.stderr)

    @property
    def pid(self) -> int:
        return self._child.pid

    @property
    def status(self) -> Optional[int]:
        """None while it runs; then the exit status, or a negative signal number."""
        return self._child.poll()

    def text(self) -> str:
        """All complete lines that it has written so far; all bytes when it has ended."""
        ended = self.status is not None
        with open(self.output, "rb") as file:
            file.seek(self._read_bytes)
            more = file.read()
        more = more if ended else more[: more.rfind(b"\n") + 1]
        self._read_bytes += len(more)
        self._text += more.decode(errors="backslashreplace")
        return self._text

    def tail(self) -> str:
        """The last lines of text(), with a heading, for failures."""
        lines = self.text().splitlines()[-_SHOWN_LINES:]
        state = "running" if self.status is None else f"ended with {self.status}"
        return "\n  ".join([f"{self.output.name} ({state}):", *lines])

    def wait_for(self, text: str, count: int = 1, timeout: Optional[float] = None) -> None:
        """Waits until the output has `text` at least `count` times; fails at once when the program
        has ended without."""

        def found() -> bool:
            ended = self.status is not None
            if ended and self.text().count(text) < count:
                raise Failure(f"{text!r} is missing in {self.tail()}")
            return self.text().count(text) >= count

        wait_until(found, timeout, lambda: f"{text!r} in {self.tail()}")

    def stop(self) -> None:
        """SIGTERM, and soon SIGKILL, to the program and its children. Does not fail."""
        self._child.terminate()
        try:
            self._child.wait(_TERM_SECONDS)
        except subprocess.TimeoutExpired:
            pass
        try:
            os.killpg(self._child.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._child.wait()

"""A test station: sends commands to a console and looks at their answers."""
from __future__ import annotations

import time
from collections import deque
from typing import Any, Callable, Optional, Union

from kelptest.answer import is_final, judge, shortcoming
from kelptest.line import Line, open_line
from kelptest.wait import SHOWN_BYTES, TIMEOUT, Failure, Text, deadline_after, encoded, shown

_QUIET = 0.5  # silence after which ask() takes an answer without a result line, in seconds
_MAX_INPUT = 64 * 1024 * 1024  # bytes that no call has returned
_MAX_UNASKED_READS = 1024  # before a command, so that a flood cannot hold it up for ever


class Station:
    """One client of a console, for one thread; several at once are several objects.

    `target` is described at open_line(); OSError when it cannot be opened. `timeout` is for one
    answer. An answer is complete when it ends in a line OK, ERROR, +CME ERROR: or +CMS ERROR:, when
    the connection ends, or after `quiet` seconds of silence when more than the echo of the command
    has arrived. Without `quiet`, only ask() takes an answer that ends in silence (half a second).
    After a time-out the next command uses a new connection; on a tty it is sent only after the late
    answer, which is dropped.
    """

    def __init__(
        self,
        target: Union[str, Line],
        *,
        timeout: float = TIMEOUT,
        quiet: Optional[float] = None,
        terminator: bytes = b"\r\n",
    ) -> None:
        self._target = target
        self._timeout = timeout
        self._quiet = quiet
        self._terminator = terminator
        self._input = bytearray()  # received, and not yet returned by a call
        self._ended = False
        self._overdue: Optional[bytes] = None  # the command whose answer did not come in time
        self._conversation: deque[tuple[str, bytes, int]] = deque(maxlen=12)
        self._line = open_line(target, timeout) if isinstance(target, str) else target

    def __enter__(self) -> Station:
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def close(self) -> None:
        self._line.close()

    def ask(self, command: Text, timeout: Optional[float] = None) -> bytes:
        """Sends a command and returns its complete answer, whatever it is worth."""
        self._begin(command)
        return self.answer(command, timeout)

    def expect(self, command: Text, *texts: Text, timeout: Optional[float] = None) -> bytes:
        """Asks, and fails unless the answer is no error and has all texts; without texts, unless it
        ends in OK. Neither the echo nor unsolicited reports are searched. Returns the answer."""
        return self._checked(command, texts, False, timeout)

    def refuse(self, command: Text, *texts: Text, timeout: Optional[float] = None) -> bytes:
        """Asks, and fails unless the answer is an error and has all texts. Returns the answer."""
        return self._checked(command, texts, True, timeout)

    def send(self, command: Text) -> None:
        """Sends a command without waiting for its answer."""
        self._settle()
        self.write(encoded(command) + self._terminator)

    def answer(self, command: Text, timeout: Optional[float] = None) -> bytes:
        """The complete answer to a command that was sent before."""
        if self._overdue not in (None, encoded(command)):
            raise self._failure(f"{shown(self._overdue or b'')}: no complete answer yet")
        return self._collect(encoded(command), lambda answer: True, timeout)

    def exactly(self, sent: Text, expected: Text, timeout: Optional[float] = None) -> None:
        """Sends bytes without a terminator of its own, and fails unless precisely the expected ones
        arrive next."""
        self.write(sent)
        expected, deadline = encoded(expected), self._deadline(timeout)
        while len(self._input) < len(expected) and expected.startswith(self._input):
            if not self._more(deadline):
                break
        if self._take(len(expected)) != expected:
            raise self._failure(f"not {shown(expected)}")

    def receive(self, count: int, timeout: Optional[float] = None) -> bytes:
        """The next `count` bytes; fewer only when the connection ends."""
        deadline = self._deadline(timeout)
        while len(self._input) < count and self._more(deadline):
            pass
        if len(self._input) < count and not self._ended:
            raise self._failure(f"{len(self._input)} of {count} bytes in time")
        return self._take(count)

    def receive_to_end(self, timeout: Optional[float] = None) -> bytes:
        """Everything until the console ends the connection."""
        deadline = self._deadline(timeout)
        while self._more(deadline):
            pass
        if not self._ended:
            raise self._failure("the connection did not end in time")
        return self._take(len(self._input))

    def half_close(self) -> None:
        """Tells the console that no more commands follow. For sockets."""
        self._line.half_close()

    def write(self, data: Text, timeout: Optional[float] = None) -> None:
        """Sends bytes, and receives meanwhile: the console may wait until its answers are read."""
        unsent = memoryview(encoded(data))
        self._note("sent", bytes(unsent))
        deadline = self._deadline(timeout)
        while unsent:
            unsent = unsent[self._line.write(unsent) :]
            self._read()
            if unsent and time.monotonic() >= deadline:
                raise self._failure(f"{len(unsent)} bytes could not be sent in time")
            if unsent:
                self._line.wait(deadline - time.monotonic(), to_write=True)

    def _settle(self) -> None:
        """Lets no late answer count for the next command."""
        asked = self._overdue or b""
        if self._overdue is None:
            return
        if isinstance(self._target, str) and self._line.is_socket:
            self._line.close()
            self._input.clear()
            self._line, self._ended = open_line(self._target, self._timeout), False
        else:  # a tty is not opened again: the late answer must come first
            self._collect(asked, lambda answer: judge(answer, asked).proper.strip() != b"", None)
        self._overdue = None

    def _begin(self, command: Text) -> None:
        """Sends the command, after everything that belongs to earlier ones was dropped."""
        self._settle()
        for _ in range(_MAX_UNASKED_READS):
            if not self._read():
                break
        self._input.clear()
        self.send(command)

    def _checked(
        self, command: Text, texts: tuple[Text, ...], error: bool, timeout: Optional[float]
    ) -> bytes:
        asked, wanted = encoded(command), [encoded(text) for text in texts]
        self._begin(command)

        def ends(answer: bytes) -> bool:
            passes = not shortcoming(answer, asked, wanted, error)
            return judge(answer, asked).error or (self._quiet is not None and passes)

        answer = self._collect(asked, ends, timeout)
        reason = shortcoming(answer, asked, wanted, error)
        if reason:
            raise self._failure(f"{shown(asked)}: {reason}")
        return answer

    def _collect(
        self, command: bytes, ends: Callable[[bytes], bool], timeout: Optional[float]
    ) -> bytes:
        """The input up to the end of the answer. `ends` says whether silence may be its end."""
        deadline = self._deadline(timeout)
        quiet = _QUIET if self._quiet is None else self._quiet
        quiet_at, late = time.monotonic() + quiet, False
        self._overdue = command  # also if this ends with a failure
        while not is_final(bytes(self._input[-2048:]), command) and not self._ended:
            if late:
                hint = "; without a result line it needs `quiet`" if self._heard(command) else ""
                raise self._failure(f"{shown(command)}: no complete answer in time{hint}")
            now = time.monotonic()
            late = now >= deadline
            if self._read():
                quiet_at = now + quiet
            elif now >= quiet_at and self._heard(command) and ends(bytes(self._input)):
                break
            elif not late:
                self._line.wait((deadline if now >= quiet_at else min(quiet_at, deadline)) - now)
        self._overdue = None
        if not self._heard(command):
            raise self._failure(f"{shown(command)}: the connection ended without an answer")
        return self._take(len(self._input))

    def _heard(self, command: bytes) -> bool:
        return not judge(bytes(self._input), command).empty

    def _deadline(self, timeout: Optional[float]) -> float:
        return deadline_after(self._timeout if timeout is None else timeout)

    def _more(self, deadline: float) -> bool:
        """Waits until more has arrived. False at the end of the connection, and at the deadline, even
        if more has arrived: a flood must not hold up the caller."""
        while not self._ended:
            late = time.monotonic() >= deadline
            if self._read() or late:
                return not late
            self._line.wait(deadline - time.monotonic())
        return False

    def _read(self) -> bool:
        """Receives what is there, at most one read; False for nothing."""
        data = None if self._ended else self._line.read()
        if data is None:
            return False
        self._ended = data == b""
        self._input += data
        self._note("came", data)
        if len(self._input) > _MAX_INPUT:
            self._input.clear()
            raise self._failure("a flood")
        return not self._ended

    def _take(self, count: int) -> bytes:
        taken = bytes(self._input[:count])
        del self._input[:count]
        return taken

    def _note(self, what: str, data: bytes) -> None:
        last, before, size = self._conversation[-1] if self._conversation else ("", b"", 0)
        if last == what:
            self._conversation.pop()
            data, size = before + data, size + len(data)
        else:
            size = len(data)
        self._conversation.append((what, data[:SHOWN_BYTES], size))

    def _failure(self, reason: str) -> Failure:
        lines = (f"  {what} {shown(data, size)}" for what, data, size in self._conversation)
        return Failure("\n".join([f"{self._target}: {reason}", *lines]))

"""Deadlines by the monotonic clock, and the failure of a wait."""
from __future__ import annotations

import os
import time
from typing import Callable, Optional, Union

Text = Union[bytes, str]

# Of every wait for which the caller gives no time-out, in seconds.
TIMEOUT = float(os.environ.get("KELPTEST_TIMEOUT", "10"))
SHOWN_BYTES = 300  # of one text in a failure
_PAUSE = 0.005  # between two looks, in seconds


class Failure(AssertionError):
    """Something did not come in time, or was not what was expected."""


def encoded(text: Text) -> bytes:
    return text.encode() if isinstance(text, str) else bytes(text)


def shown(data: bytes, size: int = 0) -> str:
    """For failures; `size` if it is more than the length of `data`."""
    cut = max(size, len(data)) > SHOWN_BYTES
    return repr(data[:SHOWN_BYTES])[1:] + (f"... ({max(size, len(data))} bytes)" if cut else "")


def deadline_after(timeout: Optional[float]) -> float:
    """The time of time.monotonic() at which a wait ends; None stands for TIMEOUT."""
    return time.monotonic() + (TIMEOUT if timeout is None else timeout)


def wait_until(
    condition: Callable[[], object],
    timeout: Optional[float] = None,
    what: Callable[[], str] = lambda: "the condition",
) -> None:
    """Calls `condition` until its result is true. `what` is for the failure."""
    deadline = deadline_after(timeout)
    while True:
        last = time.monotonic() >= deadline
        if condition():
            return
        if last:
            raise Failure(f"not in time: {what()}")
        time.sleep(_PAUSE)

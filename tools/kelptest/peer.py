"""A simulated peer daemon, and the record of the modules pcba and fm."""
from __future__ import annotations

import os
import socket
import struct
import threading
import time
from contextlib import suppress
from pathlib import Path
from typing import Any, Callable, Iterable, NamedTuple, Optional, Union

from kelptest.wait import Text, encoded, wait_until

_MOST_RECEIVED = 65536  # bytes of one request
_STOP_SECONDS = 0.9


class Last(bytes):
    """An answer after which the peer closes the connection."""


# None: no answer; a generator's pieces are sent one by one, as it yields them.
Answer = Union[bytes, Iterable[bytes], None]


class Record(NamedTuple):
    result: int
    request: bytes
    text: bytes


def pack_record(request: Text, text: Text = b"", result: int = 0) -> bytes:
    """The answer of a pcba or fm peer to a request."""
    request, text = encoded(request), encoded(text)
    return struct.pack("=ii", result, len(request)) + request + struct.pack("=i", len(text)) + text


def unpack_record(data: bytes) -> Record:
    """struct.error or ValueError if the bytes are not precisely one record."""
    result, size = struct.unpack_from("=ii", data)
    (length,) = struct.unpack_from("=i", data, 8 + size)
    if size < 0 or len(data) != 12 + size + length:
        raise ValueError(f"lengths {size} and {length} in {len(data)} bytes")
    return Record(result, data[8 : 8 + size], data[12 + size :])


def _end_calls(each: socket.socket) -> None:
    with suppress(OSError):  # it may not be connected any more
        each.shutdown(socket.SHUT_RDWR)


class Peer:
    """Listens on `name`, a path or "@" and an abstract name, and answers each request with
    answer(request).

    A request is what one read of a connection brings. Each connection has a thread of its own, on
    which `answer` is called; an exception there ends the connection, and is raised again at the end
    of the `with` block.
    """

    def __init__(self, name: str, answer: Callable[[bytes], Answer]) -> None:
        self._path = None if name.startswith("@") else os.path.abspath(name)
        self._answer = answer
        self._lock = threading.Lock()  # guards the lists
        self._received: list[bytes] = []
        self._clients: list[socket.socket] = []
        self._errors: list[BaseException] = []
        self._listener = socket.socket(socket.AF_UNIX)
        # A relative path, because that of a test's directory may be too long for a socket.
        self._listener.bind(name if self._path else "\0" + name[1:])
        self._listener.listen(128)
        self._threads: list[threading.Thread] = []  # that serve, and are not yet joined
        self._accepting = threading.Thread(target=self._accept, daemon=True)
        self._accepting.start()

    def __enter__(self) -> Peer:
        return self

    def __exit__(self, kind: Any, *_: Any) -> None:
        self.close()
        if self._errors and kind is None:
            raise self._errors[0]

    @property
    def requests(self) -> list[bytes]:
        """All requests so far, of all connections."""
        with self._lock:
            return list(self._received)

    @property
    def connections(self) -> int:
        """The number of connections so far."""
        with self._lock:
            return len(self._clients)

    def push(self, data: Text) -> None:
        """Sends on the newest connection without a request; waits for the first connection."""
        wait_until(lambda: self.connections > 0, what=lambda: "a connection to the peer")
        with self._lock:
            client = self._clients[-1]
        client.sendall(encoded(data))

    def close(self) -> None:
        """Ends all connections and removes the socket."""
        if self._path and self._listener.fileno() >= 0:
            Path(self._path).unlink(missing_ok=True)
        deadline = time.monotonic() + _STOP_SECONDS
        _end_calls(self._listener)
        self._accepting.join(_STOP_SECONDS)  # no more connections after that
        with self._lock:
            sockets, threads = [self._listener, *self._clients], self._threads
            self._threads = []
        for each in sockets:
            _end_calls(each)
        for thread in threads:
            thread.join(max(deadline - time.monotonic(), 0))
        for each in sockets:
            each.close()

    def _accept(self) -> None:
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            thread = threading.Thread(target=self._serve, args=(client,), daemon=True)
            with self._lock:
                self._clients.append(client)
                self._threads.append(thread)
            thread.start()

    def _serve(self, client: socket.socket) -> None:
        with client:
            try:
                while self._exchange(client):
                    pass
            except BaseException as error:
                with self._lock:
                    self._errors.append(error)

    def _exchange(self, client: socket.socket) -> bool:
        """False when nothing more is to be exchanged, also because the other side has left."""
        try:
            request = client.recv(_MOST_RECEIVED)
        except OSError:
            return False
        if not request:
            return False
        with self._lock:
            self._received.append(request)
        answer = self._answer(request)
        pieces = [answer] if isinstance(answer, bytes) else answer or ()
        for piece in pieces:
            try:
                client.sendall(piece)
            except OSError:
                return False
            if isinstance(piece, Last):
                return False
        return True

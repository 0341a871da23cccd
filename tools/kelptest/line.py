"""A line to a console: TCP, local socket or tty."""
from __future__ import annotations

import errno
import fcntl
import os
import re
import select
import socket
import stat
import termios
from typing import Optional

_DEFAULT_PORT = "3000"  # of the daemon's TCP console
_READ_BYTES = 65536


class Line:
    """Owns the descriptor of an open line and makes it non-blocking. For one thread."""

    def __init__(self, fd: int) -> None:
        self._fd = fd
        os.set_blocking(fd, False)
        self.is_socket = stat.S_ISSOCK(os.fstat(fd).st_mode)

    def wait(self, seconds: float, to_write: bool = False) -> None:
        """Waits until something can be read, or also until something can be written."""
        poll = select.poll()
        poll.register(self._fd, select.POLLIN | (select.POLLOUT if to_write else 0))
        poll.poll(max(seconds, 0) * 1000)

    def read(self) -> Optional[bytes]:
        """What has arrived; None if nothing has, b"" at the end of the line."""
        try:
            return os.read(self._fd, _READ_BYTES)
        except BlockingIOError:
            return None
        except OSError:  # reset, or the other side of a pty is closed
            return b""

    def write(self, data: memoryview) -> int:
        """Returns how many bytes were taken. Those for a line that has ended count as taken."""
        try:
            return os.write(self._fd, data)
        except BlockingIOError:
            return 0
        except OSError:  # read() tells; what the other side sent before can still be read
            return len(data)

    def half_close(self) -> None:
        """Ends only the direction to the console. For sockets."""
        with socket.socket(fileno=os.dup(self._fd)) as duplicate:
            duplicate.shutdown(socket.SHUT_WR)

    def close(self) -> None:
        if self._fd >= 0:
            os.close(self._fd)
            self._fd = -1


def open_line(target: str, timeout: float) -> Line:
    """Opens "HOST:PORT", an IPv4 address alone (port 3000), "@NAME" (an abstract local socket), or
    the path, with a '/', of a local socket or tty. OSError tells why that is not possible; ValueError
    if it is none of these.

    A tty is set to 115200 baud, 8 data bits, no parity and no flow control, whatever it was before,
    and locked; received bytes are dropped.
    """
    try:
        if "/" in target and target[0] != "@" and stat.S_ISCHR(os.stat(target).st_mode):
            return _open_tty(target)
        if "/" in target or re.match("@.", target):
            return _connect_local("\0" + target[1:] if target[0] == "@" else target, timeout)
        host, _, port = target.partition(":")
        if re.fullmatch(r"(\d+\.){3}\d+", target):
            host, port = target, _DEFAULT_PORT
        if not (host and port.isdecimal() and 0 < int(port) < 65536):
            raise ValueError(f"{target!r} is neither HOST:PORT, @NAME nor a path with a '/'")
        connection = socket.create_connection((host, int(port)), timeout)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return Line(connection.detach())
    except OSError as error:
        error.filename = target
        raise


def _connect_local(address: str, timeout: float) -> Line:
    connection = socket.socket(socket.AF_UNIX)
    try:
        connection.settimeout(timeout)
        connection.connect(address)
        return Line(connection.detach())
    finally:
        connection.close()


def _open_tty(path: str) -> Line:
    fd = os.open(path, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
        characters = termios.tcgetattr(fd)[6]
        characters[termios.VMIN], characters[termios.VTIME] = 1, 0
        flags = termios.CS8 | termios.CREAD | termios.CLOCAL
        speed = termios.B115200
        termios.tcsetattr(fd, termios.TCSANOW, [0, 0, flags, 0, speed, speed, characters])
        termios.tcflush(fd, termios.TCIFLUSH)
    except (OSError, termios.error) as error:
        os.close(fd)
        if isinstance(error, BlockingIOError):
            raise OSError(errno.EBUSY, "locked by another program") from None
        raise OSError(*error.args) from None
    return Line(fd)

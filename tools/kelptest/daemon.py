"""The daemon itself, with a configuration given as a dict."""
from __future__ import annotations

import json
import os
import re
import shutil
import socket
from pathlib import Path
from typing import Any, Mapping, NamedTuple, Union

from kelptest.process import Process
from kelptest.station import Station
from kelptest.wait import Failure, wait_until

_LOCAL_CONSOLE = "@/dev/socket/kelp"
_RECORD = re.compile(r"[\d-]{5} [\d:.]{12} +\d+ +\d+ ([VDIWEF]) KELP    : (.*)")


class LogRecord(NamedTuple):
    level: str  # D, I or E; empty for a line that is no record
    text: str  # "FUNCTION: TEXT"


class Daemon(Process):
    """The program `kelp` (on PATH or in /usr/sbin), or $KELP_DAEMON, an absolute path. Its files are
    `kelp.json` and `kelp.log` in `directory`, in which it runs, so that paths in the configuration may
    be relative.

    Members that the configuration lacks are added: CR LF at the end of commands, and of the consoles
    "usb" and "uart" off, and "tcp" on at a free port of 127.0.0.1. The constructor returns when the
    consoles serve. The local console has one fixed name, so only one daemon can run at a time in a
    network namespace (`unshare -rn` runs a command in one of its own).
    """

    def __init__(self, config: Mapping[str, Any], directory: Union[str, Path] = ".") -> None:
        # Bound, but not listening: nobody else gets this port, and the daemon can listen on it.
        self._port_holder = socket.socket()
        self._port_holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._port_holder.bind(("127.0.0.1", 0))
        tcp = {"active": True, "route": "127.0.0.1", "port": self._port_holder.getsockname()[1]}
        console = {"usb": {"active": False}, "uart": {"active": False}, "tcp": tcp}
        for name, members in config.get("console", {}).items():
            console[name] = {**console.get(name, {}), **members}
        self.config = {
            "receive-mode": {"mode": "tail", "tail": "0D0A"},
            **config,
            "console": console,
        }
        self.config_file = Path(directory, "kelp.json").absolute()
        self.config_file.write_text(json.dumps(self.config, indent=4))
        self._targets = {"local": _LOCAL_CONSOLE}
        if console["tcp"].get("active"):
            self._targets["tcp"] = "{route}:{port}".format_map(console["tcp"])
        wait_until(_local_console_is_free, 1, lambda: "another daemon has the local console")
        places = f"{os.environ.get('PATH', os.defpath)}:/usr/sbin"  # not on every user's PATH
        program = os.environ.get("KELP_DAEMON") or shutil.which("kelp", path=places) or "kelp"
        super().__init__([program, f"--file={self.config_file}"], "kelp.log", directory)
        try:
            wait_until(self._serves, what=lambda: f"consoles that serve: {self.tail()}")
        except BaseException:
            self.stop()
            raise

    def station(self, console: str = "tcp", **options: Any) -> Station:
        """A station at the console "tcp" or "local"; the options are those of Station."""
        return Station(self._targets[console], **options)

    def log(self) -> list[LogRecord]:
        """All records so far."""
        records = []
        for line in self.text().splitlines():
            match = _RECORD.fullmatch(line)
            records.append(LogRecord(*match.groups()) if match else LogRecord("", line))
        return records

    def stop(self) -> None:
        super().stop()
        self._port_holder.close()

    def _serves(self) -> bool:
        """Whether the console that starts last can be reached."""
        if self.status is not None:
            raise Failure(self.tail())
        try:
            self.station("tcp" if "tcp" in self._targets else "local").close()
        except OSError:
            return False
        return True


def _local_console_is_free() -> bool:
    with socket.socket(socket.AF_UNIX) as probe:
        try:
            probe.bind("\0" + _LOCAL_CONSOLE[1:])
        except OSError:
            return False
    return True

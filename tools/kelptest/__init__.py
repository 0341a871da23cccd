"""A test bench for kelp: stations, simulated peers, and the daemon itself.

Only the standard library is needed; kelptest.plugin also needs pytest. What is started ends with
its `with` block, within a second. A call that waits takes `timeout` in seconds, by default
$KELPTEST_TIMEOUT or 10, and fails with `Failure`. Texts are bytes; str is sent as UTF-8.
"""
from kelptest.daemon import Daemon, LogRecord
from kelptest.line import Line, open_line
from kelptest.peer import Last, Peer, Record, pack_record, unpack_record
from kelptest.process import Process
from kelptest.station import Station
from kelptest.wait import Failure, wait_until

__all__ = [
    "Daemon",
    "Failure",
    "Last",
    "Line",
    "LogRecord",
    "Peer",
    "Process",
    "Record",
    "Station",
    "open_line",
    "pack_record",
    "unpack_record",
    "wait_until",
]

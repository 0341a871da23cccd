"""When an answer is complete, and what it is worth. Pure functions over bytes.

Only the answer proper is searched for texts: everything after the echo of the command, without
unsolicited reports. The echo is the command at the start of the answer, or alone on a line with
only empty lines and reports before it; on that line a prompt without letters and digits may precede
it. A report is a line "+NAME:..." (or with one of ^ $ # % * for the '+') whose name is not in the
command. If the command has no name, as in ATI, only lines after the result are taken for reports.
"""
from __future__ import annotations

import re
from typing import NamedTuple, Optional, Sequence

from kelptest.wait import shown

_NAME = re.compile(rb"[+^$#%*][A-Za-z][A-Za-z0-9_]*")
_LINE = re.compile(rb"[^\r\n]+")
_RESULT = re.compile(rb"OK|ERROR|\+CM[ES] ERROR:.*", re.S)
_TAIL_BYTES = 1024  # the result is looked for within these

# The daemon's own; the spelling is part of the protocol.
_ERROR_TEXTS = tuple(
    b"Normal error|Time out|Unsupport command|Out of memory|Invalid descriptor|Response is null"
    b"|Request is null|The parameter is invalid|Out of range|Invalid library handle|No Data"
    b"|Request Command Mismatch|CP off line|Unknow error".split(b"|")
)


class Judgement(NamedTuple):
    proper: bytes  # the answer proper
    reports: bytes  # what was left out of it
    empty: bool  # nothing but echo and empty lines
    error: bool  # an error line or one of the daemon's error texts at the end
    ok: bool  # a line OK at the end


def is_final(answer: bytes, command: bytes) -> bool:
    """Whether it ends in a result line between CR LFs; reports may follow. Needs only its tail."""
    line = _result_line(answer, command)
    if line is None or not _RESULT.fullmatch(line[0]):
        return False
    ends = (
        answer[line.start() - 2 : line.start()],
        answer[line.end() : line.end() + 2],
        answer[-2:],
    )
    return line.start() >= 2 and ends == (b"\r\n", b"\r\n", b"\r\n")


def judge(answer: bytes, command: bytes) -> Judgement:
    after_echo, proper, reports = _split(answer, command)
    line = _result_line(after_echo, command)
    last = line[0] if line else b""
    return Judgement(
        proper,
        reports,
        empty=not after_echo.strip(b"\r\n"),
        # When a peer fails, the daemon's error text may follow a part of an answer.
        error=b"Unsupport command" in after_echo
        or last.endswith(_ERROR_TEXTS)
        or (last != b"OK" and _RESULT.fullmatch(last) is not None),
        ok=last == b"OK",
    )


def shortcoming(answer: bytes, command: bytes, texts: Sequence[bytes], error: bool) -> str:
    """Why a complete answer is not as expected; "" if it is: an error or not, with all texts in the
    answer proper, and OK at the end if there are no texts."""
    found = judge(answer, command)
    if found.error != error:
        return "the answer is an error" if found.error else "the answer is no error"
    for text in texts:
        if text not in found.proper:
            is_report = text in found.reports
            return f"{shown(text)} is {'only in an unsolicited report' if is_report else 'missing'}"
    return "" if texts or error or found.ok else "the answer is not OK"


def _is_report(line: bytes, command: bytes) -> bool:
    name = _NAME.match(line)
    if name is None or line[name.end() : name.end() + 1] != b":":
        return False
    return name[0].upper() not in (asked.upper() for asked in _NAME.findall(command))


def _is_echo(line: bytes, command: bytes, is_whole: bool) -> bool:
    """An incomplete line may be the beginning of an echo."""
    line, command = line.strip(b" \t").upper(), command.strip(b" \t").upper()
    if not command or not line or _RESULT.fullmatch(line):
        return False
    if line.endswith(command):
        return not re.search(rb"[A-Z0-9]", line[: -len(command)])
    typed = re.sub(rb"^[^A-Z0-9]+", b"", line)
    return not is_whole and (
        command.startswith(line) or (typed != b"" and command.startswith(typed))
    )


def _result_line(text: bytes, command: bytes) -> Optional[re.Match[bytes]]:
    """The last line that is no report."""
    for line in reversed(list(_LINE.finditer(text, max(len(text) - _TAIL_BYTES, 0)))):
        if not _is_report(line[0], command):
            return line
    return None


def _split(answer: bytes, command: bytes) -> tuple[bytes, bytes, bytes]:
    """What follows the echo, the answer proper, and the reports."""
    common = min(len(answer), len(command))
    echo_end = common if answer[:common].upper() == command[:common].upper() else 0
    last = _result_line(answer, command)
    result_at = last.start() if last and _RESULT.fullmatch(last[0]) else len(answer)
    has_name = _NAME.search(command) is not None
    kept: list[bytes] = []
    reports: list[bytes] = []
    end = echo_end  # of the bytes that are already in `kept`
    is_text = False  # a line that is neither echo nor report was found
    for line in _LINE.finditer(answer, echo_end):
        if not is_text and _is_echo(line[0], command, line.end() < len(answer)):
            echo_end = line.end()
            kept.clear()
        elif (line.start() > result_at or has_name) and _is_report(line[0], command):
            reports.append(line[0])
        else:
            is_text = True
            kept.append(answer[end : line.end()])
        end = line.end()
    kept.append(answer[end:])
    return answer[echo_end:], b"".join(kept), b"\n".join(reports)

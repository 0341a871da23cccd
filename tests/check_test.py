"""Usage: check_test.py KELP-CHECK EXAMPLES. Checks the program and the schema with one table."""
import functools
import glob
import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

import jsonschema

PROGRAM, EXAMPLES = sys.argv[1:]
FIRST = '{"receive-mode": {"mode": "tail"},'

# Each case: its name, with "(refused)" if the schema refuses the text (it cannot check what depends
# on order, on other members or on the machine); then the members after FIRST, or whole texts of one
# line. Below each line are its findings, each with its column.
CASES = r'''
= a property
"$schema": "x", "console": {"usb": {"active": {"p": "1"}}}

= duplicate key
"console": {"usb": {"active": true, "port": 1,
"\u0070ort": 2}}
1: duplicate key "port": the last value counts, at the position of the first

= incomplete consoles (refused)
"console": {"serial": {},
13: unknown console "serial"; there are "uart", "usb", "local" and "tcp"
"usb": {"route": ""}, "uart": {"active": {}},
1: "usb" without "active" is off
18: "route" must name a tty
42: "active" names no property: the console is off
"tcp": {"active": {"p": 1, "q": ""}}}
25: the value of a property must be a string: it counts as "1"
28: only the first property counts

= invalid console settings (refused)
"console": {"tcp": {"active": 1,
31: "active" must be true, false or {"PROPERTY": "VALUE"}: the console is off
"support": 1, "port": 65536,
12: "support" must be true or false
23: "port" 0: the system picks a free port
23: only the low 16 bits of "port" count: 0
"timeout": 1.5, "x": 0,
12: "timeout" must be a 32-bit integer
17: unknown key "x"
"route": "lan"}, "local": {"timeout": 5, "active": true, "port": 0,
10: "route" must be an IPv4 address to listen on, or empty for all addresses
"route": "x"}}
1: "route" of "local" is not read: only its "timeout" is

= an empty property name
"console": {"uart": {"active": {"": "1"}, "route": "/x"}, "usb": {"support": false,
33: "active" has an empty property name: it counts as "0"
"active": true, "route": "/x"}}
1: "usb" is off: it is not supported

= one tty twice, and an empty value of a property (refused)
"console": {"uart": {"active": {"p": ""}, "route": "/x\u0000y"}, "usb": {"active": true,
1: the "route" of "usb" and "uart" is the same tty: each would read bytes of the other
38: "active" is never true: an absent or empty property counts as "0"
52: "route" is read as "/x"
"route": "/x"}}

= address with a zero byte (refused)
"console": {"tcp": {"active": true, "route": "127.0.0.1\u0000"}}
46: "route" is read as "127.0.0.1"

= wrong types, modes and tails (refused)
{"console": [], "x": 1}
1: no "receive-mode": no console serves commands
13: "console" must be an object
17: unknown key "x"
{"receive-mode": {"mode": ""}}
27: "mode" must be "tail" or "timetick": no console serves commands
{"receive-mode": {}}
2: "receive-mode" without "mode": no console serves commands
{"receive-mode": {"mode": "timetick", "tail": "0D"}}
2: "timetick" without an interval in "millisecond": the bytes of each read are a command
{"receive-mode": {"mode": "tail", "tail": ""}}
43: "tail" is too short: commands end with 0D0A
{"receive-mode": {"mode": "tail", "tail": "0D0A0"}}
43: "tail" has an odd number of digits: commands end with 0D0A
{"receive-mode": {"mode": "tail", "tail": "0D.."}}
43: "tail" has characters that are not hexadecimal digits: commands end with 0D0D
{"receive-mode": {"mode": "tail", "tail": "0a"}}
43: "tail" of one byte is found only when more bytes follow: commands end with 0A
{"receive-mode": {"mode": "tail", "tail": "ABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABAB"}}
43: "tail" is cut to 32 bytes: commands end with ABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABABAB

= order of module members (refused)
"module": {"whitelist": {
"wcn": ["A"], "a": ["B"],
15: not read: "support-modules", which creates "a", must come before "whitelist"
"b": []}, "support-modules":
1: unknown module "b": not in "support-modules"
["a",
"a", 1], "fm": 1}
1: "a" gets no commands: its "whitelist" and "test-commands" are empty
1: "a" is named twice
1: module "a" has no "path" to its peer
6: the name of a module must be a string
10: unknown key "fm"

= invalid interaction (refused)
"module": {"support-modules": ["pcba"], "whitelist": {"pcba": ["P"]}, "interaction": {
"pcba": {"path": "/p", "timeout": -1},
35: "timeout" below 0 waits without limit, as 0 does
"wcn": {"path": "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"},
17: module "wcn": no local socket can have this "path"
"modem": {"path": "", "wait": 1,
19: module "modem" has no "path" to its peer
23: unknown key "wait"
"timeout": -1, "keep-alive": 1, "quiet": 9}}}
1: note: "timeout" is not used by "modem"
30: "keep-alive" must be true or false
33: note: "quiet" is not used by "modem"

= modules without commands
"module": {"support-modules": ["kelp", "fm"],
32: "kelp" gets no commands: its "whitelist" and "test-commands" are empty
"interaction": {"fm": {"path": "/dev/socket/sync_wcn", "timeout": 0}, "kelp": {"path": "x"}},
32: note: module "fm" has the same "path" as "wcn"
80: note: "path" is not used by "kelp"
"whitelist": {"fm": ["AT+FM "]}, "test-commands": {"fm": ["X\t"]}}
22: "AT+FM " ends in white space: commands match only with it
59: "X\t" ends in white space: commands match only with it

= commands that never match (refused)
"module": {"whitelist":
{"wcn": ["AT+b", "A\r\nT", "AT+C", ""], "modem": [2]},
10: "AT+b" never matches: commands are compared in upper case
18: "A\r\nT" never matches: commands are compared without their terminator
51: a command must be a string
"test-commands": {"modem": {},
28: "modem" must be an array
"wcn": ["", "b\u0000", "B\u0000b"]}}
9: "" matches only commands that begin with a zero byte
13: "b" never matches: commands are compared in upper case
13: "b\x00" is read as "b"
24: "B\x00b" is read as "B"

= a terminator with letters
{"receive-mode": {"mode": "tail", "tail": "4A4A"}, "module": {"whitelist": {"wcn": ["XJJ"]}}}

= hidden commands
"module": {"support-modules": ["kelp"], "whitelist": {"modem": ["AT", "AZ"],
"wcn": ["AT+WX"],
"kelp": ["A", "AT+WXY"]}, "test-commands": {"wcn": ["AZI"],
15: "AT+WXY" is hidden by module "wcn", which comes first
"modem": ["AZI", "AT+WX"], "kelp": ["AZI", "AZ+", "A"]}}
11: "AZI" is hidden by module "wcn", which comes first
18: "AT+WX" is hidden by module "wcn", which comes first
37: "AZI" is hidden by module "wcn", which comes first
44: "AZ+" is hidden by module "modem", which comes first
'''


def check(*arguments):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=60)


def write(text):
    pathlib.Path(PATH).write_text(text, errors="surrogateescape")


class CheckTest(unittest.TestCase):
    def test_cases(self):
        for block in CASES.strip().split("\n\n"):
            name, rest = block.split("\n", 1)
            for case in re.split(r"\n(?={\"rec)", rest):
                with self.subTest(name, case=case):
                    self.check_case(case, "(refused)" not in name)

    def check_case(self, case, valid):
        lines, findings = [] if case[0] == "{" else [FIRST], []
        for line in case.splitlines():
            if line[0].isdigit():
                findings.append("%d:%s" % (len(lines), line))
            else:
                lines.append(line)
        text = "\n".join(lines) + ("}" if lines[0] == FIRST else "")
        write(text)
        run = check("--no-paths", PATH)
        printed = run.stderr.replace(PATH + ":", "").replace(" warning:", "").splitlines()
        self.assertEqual(sorted(printed), sorted(findings))
        warnings = [f for f in findings if ": note: " not in f]
        self.assertEqual(run.returncode, 1 if warnings else 0)
        self.assertEqual(SCHEMA.is_valid(json.loads(text)), valid)
        write(run.stdout)
        self.assertEqual(check("--no-paths", PATH).stdout, run.stdout)

    def test_examples(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA.schema)
        for path in glob.glob(EXAMPLES + "/*.json") + glob.glob(EXAMPLES + "/../android/*.json"):
            example = json.loads(pathlib.Path(path).read_text())
            if path.endswith(".schema.json") or "roles" in example:
                continue
            run = check("--no-paths", path)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
            result = json.loads(run.stdout)
            SCHEMA.validate(example)
            SCHEMA.validate(result)
            for way in (("receive-mode",), ("console", "usb"), ("module", "interaction", "wcn")):
                want, have = (functools.reduce(dict.get, way, d) for d in (example, result))
                self.assertEqual({**have, **(want or {})}, have)
            for name, entries in example["module"]["whitelist"].items():
                self.assertEqual(result["module"]["whitelist"][name], sorted(entries))

    def test_sockets(self):
        path = PATH + ".s"
        write(FIRST + '"module": {"interaction": {"wcn": {"path": "%s"},'
              '"modem": {"path": "@m%s"}}}}' % (path, path))
        both = subprocess.run([PROGRAM, PATH], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertLess(both.stdout.index(b"}\n"), both.stdout.index(b": no socket at "))
        with socket.socket(socket.AF_UNIX) as file, socket.socket(socket.AF_UNIX) as abstract:
            for step, missing in [(lambda: 0, 2), (lambda: file.bind(path), 1),
                                  (lambda: abstract.bind("\0@m" + path), 1), (abstract.listen, 0)]:
                step()
                run = check(PATH)
                self.assertEqual((run.stderr.count(": no socket at "), run.returncode),
                                 (missing, min(missing, 1)))

    def test_ttys(self):
        master, tty = os.openpty()
        for route, warnings in [(os.ttyname(tty), 0), (PATH + ".none", 1),
                                ("/dev/null", 1), (PATH, 1)]:
            write(FIRST + '"console": {"usb": {"active": true, "route": "%s"}}}' % route)
            self.assertEqual(check(PATH).stderr.count('"route": no tty at '), warnings)
        write(FIRST + '"console": {"usb": {"route": "%s"}, "uart": {"route": "/dev//%s"}}}' %
              (os.ttyname(tty), os.ttyname(tty)[5:]))
        self.assertIn('the "route" of "usb" and "uart" is the same tty', check(PATH).stderr)
        os.close(master)
        os.close(tty)

    def test_refusals(self):
        for text, said in [("", "1:1: error: not valid JSON"),
                           ("{\n  \"a\": nope\n}", "2:9: error: not valid JSON"),
                           ("\ufeff[1,x]", "1:4: error: not valid JSON"),
                           ("{\"a\":\n[1", "2:3: error: not valid JSON"),
                           ("{}\n\n ]", "3:2: error: not valid JSON"),
                           ("[1,\0]", "1:4: error: not valid JSON"),
                           ("{}\0", "1:3: error: not valid JSON"),
                           ("[\"\udcc3(\"]", "1:4: error: not valid JSON"),
                           ("[" * 65 + "]" * 65, "1:65: error: more than 64 nested arrays"),
                           ("\n" + "[" * 1000000, "2:65: error: more than 64 nested arrays"),
                           ("[1e999]", "1:6: error: a number beyond the range of a double"),
                           ('["invalid string: surrogate" x]', "1:30: error: not valid JSON"),
                           ('["\\ud800"]', "1:9: error: an unpaired surrogate")]:
            write(text)
            run = check(PATH)
            self.assertEqual((run.returncode, run.stdout, run.stderr.find(PATH + ":" + said)),
                             (2, "", 0))
        write(" " * ((1 << 20) + 1))
        for run, status, said in [
                (check(PATH), 2, PATH + ": error: longer than 1 MiB\n"),
                (check("/x", EXAMPLES + "/kelp.json"), 2, "/x: error: No such file or directory\n"),
                (check("-xy"), 64, "kelp-check: invalid option -- 'x'\nTry `kelp-check --help'"),
                (check(), 64, "kelp-check: no file\nTry `kelp-check --help'")]:
            self.assertEqual((run.returncode, run.stderr[:len(said)]), (status, said))
        self.assertIn("Usage: kelp-check", check("-h").stdout)
        write(FIRST[:-1] + "}")
        with unittest.mock.patch.dict(os.environ, KELP_PROPERTIES="/x"):
            run = check("--no-paths", PATH)
        self.assertEqual((run.returncode, run.stderr), (
            1, "/x: warning: every property counts as absent: No such file or directory\n"))


SCHEMA = jsonschema.Draft202012Validator(
    json.loads(pathlib.Path(EXAMPLES + "/kelp.schema.json").read_text()))
with tempfile.TemporaryDirectory() as directory:
    PATH = directory + "/k.json"
    unittest.main(argv=sys.argv[:1])

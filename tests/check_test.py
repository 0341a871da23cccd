"""Usage: check_test.py KELP-CHECK EXAMPLES. Holds both against one table of configurations."""
import functools
import glob
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

PROGRAM, EXAMPLES = sys.argv[1:]
FIRST = '{"receive-mode": {"mode": "tail"},\n'
UNCUT = ': no console cuts anything into commands'
WHOLE = 'must be a whole number of 32 bits'
AT_ONCE = '"timetick" without an interval in "millisecond": whatever one read brings is a command'

# The members after FIRST, or a whole text; whether the schema refuses it (it cannot check what
# depends on order, on other members or on the machine); and all warnings.
ROWS = [
    ('"$schema": "x", "console": {"usb": {"active": {"p": "1"}}}', False),
    ('"console": {"usb": {"active": true, "port": 1,\n"\\u0070ort": 2}}', False,
     '3:1: a second "port": this one counts, but at the place of the first'),
    ('"console": {"serial": {},\n"usb": {"route": ""}, "uart": {"active": {}},\n"tcp": {"active": '
     '{"p": 1, "q": ""}}}', True, '3:42: "active" names no property: it is off',
     '2:13: no such console as "serial"; there are "uart", "usb", "local" and "tcp"',
     '3:1: "usb" without "active" is off', '3:18: "route" must name a tty',
     '4:25: the value of a property must be a string: "1" is expected',
     '4:28: only the first property counts'),
    ('"console": {"tcp": {"active": 1,\n"support": 1, "port": 65536,\n"timeout": 1.5, "x": 0,'
     '\n"route": "lan"}, "local": {"timeout": 5, "active": true, "port": 0,\n"route": "x"}}', True,
     '2:31: "active" must be true, false or {"PROPERTY": "VALUE"}: it is off',
     '3:12: "support" must be true or false', '3:23: of "port" only the low 16 bits count: 0',
     '3:23: "port" 0 is a free one that the system picks',
     '4:12: "timeout" ' + WHOLE, '4:17: unknown key "x"',
     '5:10: "route" must be an IPv4 address to listen on, or empty for all of them',
     '6:1: "route" of "local" is not read: only its "timeout" is'),
    ('"console": {"uart": {"active": {"": "1"}, "route": "/x"}, "usb": {"support": false,'
     '\n"active": true, "route": "/x"}}', False,
     '2:33: "active" names no property: that reads "0"', '3:1: "usb" is off: it is not supported'),
    ('"console": {"uart": {"active": true, "route": "/x"}, "usb": {"active": true, "route": "/x"}}',
     False, '2:1: "usb" and "uart" have one "route": each would take bytes of the other'),
    *[('"console": {"tcp": {"active": true, "route": "%s"}}' % route, refused,
       '2:46: "route" ' + why)
      for route, refused, why in [
          ('255.255.255.255', False, 'must be an IPv4 address to listen on, or empty for all of them'),
          ('127.0.0.1\\u0000', True, 'is read as "127.0.0.1"'),
          ('10.1', True, 'is read as "10.0.0.1"')]],
    ('{"console": [], "x": 1}', True, '1:1: no "receive-mode"' + UNCUT,
     '1:13: "console" must be an object', '1:17: unknown key "x"'),
    *[('{"receive-mode": {%s}}' % members, True, warning) for members, warning in [
        ('"mode": ""', '1:27: "mode" must be "tail" or "timetick"' + UNCUT),
        ('', '1:2: "receive-mode" without "mode"' + UNCUT),
        ('"mode": "timetick", "tail": "0D"', '1:2: ' + AT_ONCE),
        ('"mode": "timetick", "millisecond": 0', '1:54: ' + AT_ONCE)]],
    *[('{"receive-mode": {"mode": "tail", "tail": "%s"}}' % tail, True,
       '1:43: "tail" %s: commands end with %s' % (wrong, result)) for tail, wrong, result in [
        ('', 'is too short', '0D0A'), ('0D0A0', 'has an odd digit', '0D0A'),
        ('0D..', 'has more in it than hexadecimal digits', '0D0D'),
        ('0a', 'of one byte is found only when more bytes follow', '0A'),
        ('AB' * 33, 'is cut to 32 bytes', 'AB' * 32)]],
    ('"module": {"whitelist": {\n"wcn": ["A"], "a": ["B"],\n"b": []}, "support-modules":'
     '\n["a",\n"a", 1], "fm": 1}', True, '4:1: no such module as "b" in "support-modules"',
     '3:15: not read: "support-modules", which creates "a", must come before "whitelist"',
     '6:1: module "a" has no "path" to its peer', '6:1: "a" is named twice',
     '6:1: "a" gets no command: it has no list of any',
     '6:6: the name of a module must be a string', '6:10: unknown key "fm"'),
    ('"module": {"interaction":\n{"wcn": {"path": "%s"},\n"modem": {"path": "", "wait": 1,'
     '\n"timeout": -1, "keep-alive": 1, "quiet": 9}}}' % ('x' * 108), True,
     '4:23: unknown key "wait"', '5:33: "quiet" is not used by "modem"',
     '3:18: module "wcn": no local socket can have this "path"',
     '5:12: "timeout" below 0 waits without limit, as 0 does',
     '4:19: module "modem" has no "path" to its peer', '5:30: "keep-alive" must be true or false'),
    ('"module": {"support-modules": ["kelp", "fm"],\n"interaction": {"fm": {"path": '
     '"/dev/socket/sync_wcn"}},\n"whitelist": {"fm": ["AT+FM "]}, "test-commands": {"fm": ["X\\t"]}}',
     False,
     '2:32: "kelp" gets no command: it has no list of any',
     '3:32: note: module "fm" has the "path" of "wcn"',
     '4:22: "AT+FM " has a blank at its end, which requests must have, too',
     '4:59: "X\\t" has a blank at its end, which requests must have, too'),
    ('"module": {"interaction": {"modem": {"path": "/dev/socket/sync_wcn"}}}', False,
     '2:46: note: module "modem" has the "path" of "wcn"'),
    ('"module": {"whitelist":\n{"wcn": ["AT+b", "A\\r\\nT", "AT+C", ""], "modem": [2]},'
     '\n"test-commands": {"modem": {},\n"wcn": [""]}}', True,
     '3:10: "AT+b" never matches: requests are compared in upper case',
     '3:18: "A\\r\\nT" never matches: requests come without their terminator',
     '3:51: a command must be a string', '4:28: "modem" must be an array',
     '5:9: "" never matches: no request is empty'),
    ('"module": {"support-modules": ["kelp"], "whitelist": {"modem": ["AT", "AZ"],'
     '\n"wcn": ["AT+WX"],\n"kelp": ["A", "AT+WXY"]}, "test-commands": {"wcn": ["AZI"],'
     '\n"modem": ["AZI", "AT+WX"], "kelp": ["AZI", "AZ+", "A"]}}', False,
     *['%s is hidden by module "%s", which is asked first' % row for row in [
         ('4:15: "AT+WXY"', 'wcn'), ('5:11: "AZI"', 'wcn'), ('5:18: "AT+WX"', 'wcn'),
         ('5:37: "AZI"', 'wcn'), ('5:44: "AZ+"', 'modem')]]),
]


def check(*arguments):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=60)


def write(text):
    pathlib.Path(PATH).write_text(text)


class CheckTest(unittest.TestCase):
    def test_table(self):
        for members, refused, *warnings in ROWS:
            text = members if members[0] == "{" else FIRST + members + "}"
            with self.subTest(text):
                write(text)
                run = check("--no-paths", PATH)
                said = run.stderr.replace(PATH + ":", "").replace(" warning:", "").splitlines()
                self.assertEqual(sorted(said), sorted(warnings))
                told = [w for w in warnings if ": note: " not in w]
                self.assertEqual(run.returncode, 1 if told else 0)
                self.assertEqual(SCHEMA.is_valid(json.loads(text)), not refused)
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
        with socket.socket(socket.AF_UNIX) as file, socket.socket(socket.AF_UNIX) as abstract:
            for step, missing in [(lambda: 0, 2), (lambda: file.bind(path), 1),
                                  (lambda: abstract.bind("\0@m" + path), 1), (abstract.listen, 0)]:
                step()
                run = check(PATH)
                self.assertEqual((run.stderr.count(": no socket at "), run.returncode),
                                 (missing, min(missing, 1)))

    def test_ttys(self):
        master, tty = os.openpty()
        for route, warnings in [(os.ttyname(tty), 0), (PATH + ".none", 0),
                                ("/dev/null", 1), (PATH, 1)]:
            write(FIRST + '"console": {"usb": {"active": true, "route": "%s"}}}' % route)
            self.assertEqual(check(PATH).stderr.count('"route" is no tty: '), warnings)
        write(FIRST + '"console": {"usb": {"route": "%s"}, "uart": {"route": "/dev//%s"}}}' %
              (os.ttyname(tty), os.ttyname(tty)[5:]))
        self.assertIn('"usb" and "uart" have one "route"', check(PATH).stderr)
        os.close(master)
        os.close(tty)

    def test_many_findings(self):
        write("{" + ",".join('"%d":0' % i for i in range(60000)) + "}")
        begin = time.monotonic()
        self.assertEqual(check(PATH).stderr.count(": unknown key"), 60000)
        self.assertLess(time.monotonic() - begin, 10)

    def test_refusals(self):
        for text, said in [("{\n ,}", "2:2: error: not valid JSON"),
                           ("[" * 65 + "]" * 65, "1:65: error: more than 64 arrays and objects"),
                           ("[1e999]", "1:6: error: a number beyond the range of a double"),
                           ('["invalid string: surrogate" x]', "1:30: error: not valid JSON"),
                           ('["\\ud800"]', "1:9: error: half a surrogate pair")]:
            write(text)
            run = check(PATH)
            self.assertEqual((run.returncode, run.stderr.find(PATH + ":" + said)), (2, 0))
        write(" " * ((1 << 20) + 1))
        for run, status, said in [
                (check(PATH), 2, PATH + ": error: longer than 1 MiB\n"),
                (check("/x", EXAMPLES + "/kelp.json"), 2, "/x: error: No such file or directory\n"),
                (check("-xy"), 64, "kelp-check: invalid option -- 'x'\nTry `kelp-check --help'"),
                (check(), 64, "kelp-check: no file\nTry `kelp-check --help'")]:
            self.assertEqual((run.returncode, run.stderr[:len(said)]), (status, said))
        self.assertIn("Usage: kelp-check", check("-h").stdout)


SCHEMA = jsonschema.Draft202012Validator(
    json.loads(pathlib.Path(EXAMPLES + "/kelp.schema.json").read_text()))
with tempfile.TemporaryDirectory() as directory:
    PATH = directory + "/k.json"
    unittest.main(argv=sys.argv[:1])

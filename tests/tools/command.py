"""Runs the command under test."""
import json
import os
import subprocess
import sys
import tempfile
import threading
import time
import unittest

PEVRIN = "build/release/bin/pevrin"
MEDIA = "build/media"
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
HANG_SECONDS = 60


class Result:
    def __init__(self, status, stdout, stderr, peak_kib=0, seconds=0.0):
        self.status, self.stdout, self.stderr = status, stdout, stderr
        self.peak_kib, self.seconds = peak_kib, seconds

    @property
    def json(self):
        return json.loads(self.stdout.decode("utf-8"))


def pevrin(*arguments):
    """Runs the command to its end. A status below 0 means that a signal killed it."""
    done = subprocess.run([PEVRIN, *arguments], capture_output=True, stdin=subprocess.DEVNULL, timeout=HANG_SECONDS)
    return Result(done.returncode, done.stdout, done.stderr.decode("utf-8", "backslashreplace"))


# The system counts the memory of whoever forks as the child's; so a small process stands between.
LAUNCHER = """
import os, sys
child = os.fork()
if child == 0:
    try:
        os.execv(sys.argv[2], sys.argv[2:])
    finally:
        os._exit(127)
status, usage = os.wait4(child, 0)[1:]
os.write(int(sys.argv[1]), f"{os.waitstatus_to_exitcode(status)} {usage.ru_maxrss}".encode())
"""


def pevrin_measured(*arguments):
    """The same with the output in a file, and with the largest memory and the time that it took."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err, tempfile.TemporaryFile() as report:
        start = time.monotonic()
        subprocess.run(
            [sys.executable, "-I", "-S", "-c", LAUNCHER, str(report.fileno()), PEVRIN, *arguments],
            stdout=out, stderr=err, stdin=subprocess.DEVNULL, pass_fds=[report.fileno()], timeout=HANG_SECONDS, check=True,
        )
        seconds = time.monotonic() - start
        for file in (out, err, report):
            file.seek(0)
        status, peak_kib = map(int, report.read().split())
        return Result(status, out.read(), err.read().decode(), peak_kib, seconds)


class CommandTest(unittest.TestCase):
    """A test with a folder of its own."""

    longMessage = True
    maxDiff = 4000

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="pevrin-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def write(self, data, name="movie.mp4"):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(data)
        return path

    def inspect(self, data, status=None, name="movie.mp4"):
        """What --json says of a file with these bytes. Damage and exit status must agree."""
        result = pevrin("inspect", "--json", self.write(data, name))
        self.assertEqual(result.status, 1 if result.json["errors"] else 0, result.stderr)
        if status is not None:
            self.assertEqual(result.status, status, result.stderr)
        lines = result.stderr.splitlines()
        self.assertEqual(len(lines), len(result.json["errors"]), "each error is one line on standard error")
        return result.json

    def error_of(self, data):
        """The one error of a damaged file."""
        errors = self.inspect(data, status=1)["errors"]
        self.assertEqual(len(errors), 1, errors)
        return errors[0]


def deep(function):
    """Calls the function on a stack that deep recursion (of Python's JSON reader) does not exhaust."""
    outcome = []
    sys.setrecursionlimit(1_000_000)
    threading.stack_size(1 << 29)

    def run():
        try:
            outcome.append(function())
        except BaseException as error:  # handed to the caller
            outcome.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    threading.stack_size(0)
    if isinstance(outcome[0], BaseException):
        raise outcome[0]
    return outcome[0]

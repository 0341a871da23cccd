"""For all pytest files of the suite."""
import os
import subprocess

import pytest

pytest_plugins = ["kelptest.plugin"]


@pytest.fixture(scope="session")
def run():
    """Runs the program in an environment variable; returns its status, output and error output."""

    def run(variable, *arguments, stdin=""):
        words = [os.environ[variable], *arguments]
        done = subprocess.run(words, input=stdin.encode(), capture_output=True, timeout=60)
        return done.returncode, done.stdout, done.stderr.decode()

    return run


@pytest.fixture
def pty():
    """The master of a pseudo-terminal, and the name of its device; the slave stays open."""
    master, slave = os.openpty()
    yield master, os.ttyname(slave)
    os.close(master)
    os.close(slave)

#!/usr/bin/env python3
"""Tests of the pevrin command against independent programs. The last line is "N passed, N failed".

    tests/tools/run.py [--pevrin PROGRAM] [--media FOLDER] [-k PATTERN]
"""
import argparse
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import command


class Counter(unittest.TextTestResult):
    """Counts tests, a test with failing subtests once."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.bad = set()

    def addFailure(self, test, error):
        super().addFailure(test, error)
        self.bad.add(test.id())

    def addError(self, test, error):
        super().addError(test, error)
        self.bad.add(test.id())

    def addSubTest(self, test, subtest, error):
        super().addSubTest(test, subtest, error)
        if error is not None:
            self.bad.add(test.id())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--pevrin", default=os.path.join(command.ROOT, command.PEVRIN), help="the program under test")
    parser.add_argument("--media", default=os.path.join(command.ROOT, command.MEDIA), help="where made movies are kept")
    parser.add_argument("-k", metavar="PATTERN", action="append", help="only tests whose name has this in it")
    options = parser.parse_args()
    command.PEVRIN = os.path.abspath(options.pevrin)
    command.MEDIA = os.path.abspath(options.media)

    loader = unittest.TestLoader()
    if options.k:
        loader.testNamePatterns = [f"*{pattern}*" for pattern in options.k]
    suite = loader.discover(os.path.dirname(os.path.abspath(__file__)), pattern="*_test.py")
    result = unittest.TextTestRunner(stream=sys.stdout, resultclass=Counter, verbosity=2).run(suite)
    failed = len(result.bad)
    passed = result.testsRun - len(result.skipped) - failed
    print(f"{passed} passed, {failed} failed")
    sys.exit(1 if failed or not passed else 0)


main()

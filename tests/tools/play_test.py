"""Movies that are played: every sample in time and in order, and the terminal as it was before."""
import json
import os
import pty
import select
import signal
import subprocess
import termios
import time

import command
import media
from command import ROOT, CommandTest, pevrin

SAMPLE = os.path.join(ROOT, "samples", "clip.mp4")


def shown(path, start=float("-inf"), end=float("inf")):
    """By track: how many samples are shown between two times in seconds."""
    counts = {}
    for track in pevrin("inspect", "--samples", "--json", path).json["tracks"]:
        times = [s["presentation"]["value"] / s["presentation"]["timescale"] for s in track["samples"] if not s.get("hidden")]
        counts[track["id"]] = sum(start <= one < end for one in times)
    return counts


class Play(CommandTest):
    def play(self, path, *options):
        result = pevrin("play", "--json", path, *options)
        self.assertEqual((result.status, result.stderr), (0, ""), path)
        for track in result.json["tracks"]:
            self.assertEqual((track["dropped"], track["outOfOrder"]), (0, 0), (path, options))
            late = track["lateness"]
            self.assertTrue(0 <= late["p50"] <= late["p99"] <= late["max"], late)
        return result.json, {track["id"]: track["delivered"] for track in result.json["tracks"]}

    def test_every_sample_in_order(self):
        for name in ("pyramid.mp4", "late-picture.mp4", "within-a-frame.mp4", "two-tones.mov", "fragmented.mp4", "uneven.mp4"):
            for rate in ("20", "-20"):
                with self.subTest(movie=name, rate=rate):
                    path = media.path_of(name)
                    told, delivered = self.play(path, "--rate", rate)
                    counts = shown(path, *((0,) if rate == "-20" else ()))
                    if rate == "20":
                        counts = shown(path, 0)
                    self.assertEqual(delivered, counts)
                    self.assertEqual((told["file"], told["rate"]), (path, float(rate)))

    def test_a_part(self):
        self.assertEqual(self.play(SAMPLE, "--rate", "10", "--start", "1s", "--duration", "1500ms")[1], shown(SAMPLE, 1, 2.5))
        self.assertEqual(self.play(SAMPLE, "--rate", "-10", "--start", "2", "--duration", "1s")[1], shown(SAMPLE, 1, 2))

    def test_time_runs_at_the_rate(self):
        started = time.monotonic()
        self.play(SAMPLE, "--duration", "1s")
        self.assertGreater(time.monotonic() - started, 0.9)

    def test_lines_and_a_summary_without_a_terminal(self):
        result = pevrin("play", SAMPLE, "--rate", "20")
        self.assertEqual((result.status, result.stderr), (0, ""))
        lines = result.stdout.decode().splitlines()
        self.assertRegex(lines[0], r"^track 1 \(vide\) .* s  rate 20  queued ")
        self.assertRegex(lines[-1], r"^Track 2 \(soun\): 235 delivered, 0 dropped, 0 out of order; late by .* ms \(median\)")

    def test_what_is_no_movie_and_no_number(self):
        for arguments, message in (
            (["play", __file__], "play_test.py"), (["play", SAMPLE, "--rate", "0"], "--rate"),
            (["play", SAMPLE, "--start", "soon"], "soon is no time"), (["play", "/none.mp4"], "No such file"),
        ):
            result = pevrin(*arguments)
            self.assertNotEqual(result.status, 0, arguments)
            self.assertIn(message, result.stderr)

    def on_terminal(self, act, *options):
        """Plays on a terminal of its own, calls act(write, read until a text comes, process)."""
        master, slave = pty.openpty()
        before = termios.tcgetattr(slave)
        program = subprocess.Popen([command.PEVRIN, "play", SAMPLE, *options], stdin=slave, stdout=slave, stderr=slave)
        heard = b""

        def until(text):
            nonlocal heard
            limit = time.monotonic() + 20
            while text not in heard:
                self.assertLess(time.monotonic(), limit, heard)
                if select.select([master], [], [], 1)[0]:
                    heard += os.read(master, 65536)
            heard = heard[heard.index(text) + len(text):]

        try:
            act(lambda keys: os.write(master, keys), until, program)
            until(b"out of order")
            self.assertEqual(program.wait(20), 0)
            self.assertEqual(termios.tcgetattr(slave), before)
        finally:
            program.kill()
            program.wait()
            os.close(master)
            os.close(slave)

    def test_keys(self):
        def act(write, until, _):
            until(b"rate 1 ")
            write(b" ")
            until(b"rate 0 ")
            write(b" -")  # two keys at once
            until(b"rate 0.5 ")
            write(b"\x1b[D")
            until(b" 0.")
            write(b"r")  # back to the start, where it ends
            until(b"rate -0.5 ")
        self.on_terminal(act)

    def test_the_key_that_ends_it(self):
        def act(write, until, _):
            until(b"rate 0.1 ")
            write(b"q")
        self.on_terminal(act, "--rate", "0.1")

    def test_a_signal_puts_the_terminal_back(self):
        def act(_, until, program):
            until(b"rate 1 ")
            program.send_signal(signal.SIGTERM)
        self.on_terminal(act)

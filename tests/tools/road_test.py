"""The whole road: a movie that a program of a few lines writes is listed, played, written anew and decoded."""
import os
import subprocess
import tempfile
import unittest

import command
from command import pevrin

FRAMES, WIDTH, HEIGHT = 25, 64, 48


def write_movie():
    return os.path.join(os.path.dirname(command.PEVRIN), "..", "examples", "write_movie")


def decoded(path):
    done = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-pix_fmt", "yuv420p", "-f", "rawvideo", "-"],
                          capture_output=True, check=True)
    return done.stdout, done.stderr


class WholeRoadTest(unittest.TestCase):
    def test_from_the_parameter_sets_to_the_frames_that_others_decode(self):
        luma = WIDTH * HEIGHT
        frames = b"".join(bytes([16 + 8 * i]) * luma + b"\x80" * (luma // 2) for i in range(FRAMES))
        with tempfile.TemporaryDirectory() as folder:
            movie, again, pieces = (os.path.join(folder, name) for name in ("a.mov", "b.mp4", "c.mp4"))
            subprocess.run([write_movie(), movie], check=True)
            self.assertEqual(pevrin("remux", movie, again).status, 0)
            self.assertEqual(pevrin("remux", "--fragment", "200ms", again, pieces).status, 0)
            for path in (movie, again, pieces):
                with self.subTest(os.path.basename(path)):
                    self.assertEqual(decoded(path), (frames, b""))
                    track, = pevrin("inspect", "--json", path).json["tracks"]
                    self.assertEqual(track["descriptions"][0]["dimensions"], {"width": WIDTH, "height": HEIGHT})
                    track, = pevrin("play", "--json", "--rate", "10", path).json["tracks"]
                    self.assertEqual((track["delivered"], track["outOfOrder"]), (FRAMES, 0))

    def test_what_cannot_be_written_is_said(self):
        done = subprocess.run([write_movie(), "/nowhere/a.mov"], capture_output=True)
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertIn(b"-12801", done.stderr)


if __name__ == "__main__":
    unittest.main()

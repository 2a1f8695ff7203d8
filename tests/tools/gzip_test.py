"""Compressed files are inspected as what they hold."""
import gzip

from command import CommandTest, pevrin
from movies import small_movie


class Gzip(CommandTest):
    def test_says_what_it_says_of_the_file_unpacked(self):
        data = small_movie()
        plain, packed = self.write(data), self.write(gzip.compress(data[:300]) + gzip.compress(data[300:]))
        for options in ([], ["--verify"], ["--samples"], ["--json", "--samples"]):
            ours, theirs = (pevrin("inspect", *options, path) for path in (packed, plain))
            self.assertEqual((ours.status, ours.stdout.replace(packed.encode(), plain.encode())),
                             (theirs.status, theirs.stdout), options)

    def test_damage_is_told_and_what_is_before_it_is_shown(self):
        data = small_movie() + bytes(100000)
        packed = gzip.compress(data)
        for broken, status in ((packed[:-9], -12809), (packed[:-8] + bytes(8), -12808), (packed + b"more", -12808)):
            told = self.inspect(broken, 1)
            self.assertEqual(told["movie"]["seconds"], 2)
            error, = [e for e in told["errors"] if e["path"] == ""][:1]
            self.assertEqual((error["status"], error["offset"]), (status, told["size"]))

    def test_only_inspect_unpacks(self):
        path = self.write(gzip.compress(small_movie()))
        for arguments in (["play", path], ["remux", path, path + ".mp4"]):
            result = pevrin(*arguments)
            self.assertEqual(result.status, 2)
            self.assertIn("gzip", result.stderr)

"""Files that are cut, bent or hostile: what is readable is shown, what is wrong is told, and nothing hangs."""
import os
import random
import struct

from command import CommandTest, deep, pevrin, pevrin_measured
from movies import atom, elst, flat, full, mdhd, mvhd, read_atoms, small_movie, tkhd, trak

OUT_OF_BOUNDS, NOT_ENOUGH, MALFORMED = -12891, -12893, -12894


def cut_expectation(atoms, cut):
    """The atoms that begin before the cut, and the innermost one that it goes through with its numbered path.

    An atom counts when its whole header is there.
    """
    shown = [a for a in atoms if a["offset"] + a["headerSize"] <= cut]
    kinds = [a["type"] for a in shown]
    for i, one in enumerate(shown):
        if one["offset"] + one["size"] <= cut:
            continue
        name = one["type"] + (f"[{kinds[: i + 1].count(one['type'])}]" if kinds.count(one["type"]) > 1 else "")
        inner, path = cut_expectation(one.get("children", ()), cut)
        cut_one = {**one, "truncated": True}
        if "children" in one:
            cut_one["children"] = inner
        return shown[:i] + [cut_one], name + ("/" + path if path else "")
    return shown, ""


class Cut(CommandTest):
    def test_at_every_byte(self):
        for version in (0, 1):
            data = small_movie(version)
            atoms = read_atoms(data)
            ends = {a["offset"] + a["size"] for a in atoms}
            for cut in range(1, len(data)):
                told = self.inspect(data[:cut])
                shown, path = cut_expectation(atoms, cut)
                self.assertEqual(told["atoms"], shown, f"cut at {cut}")
                if cut in ends:
                    self.assertEqual(told["errors"], [], f"cut at {cut}")
                    continue
                error = told["errors"].pop()
                self.assertEqual(told["errors"], [], f"cut at {cut}: told once")
                if path:
                    self.assertEqual((error["path"], error["status"]), (path, MALFORMED), f"cut at {cut}")
                else:  # inside a header at the top
                    self.assertEqual(error["status"], NOT_ENOUGH, f"cut at {cut}")
                    self.assertEqual(error["offset"], max(e for e in ends | {0} if e <= cut))

    def test_facts_before_the_cut_stay(self):
        data = small_movie()
        track = [a for _, a in flat(read_atoms(data)) if a["type"] == "trak"][1]
        told = self.inspect(data[: track["offset"] + track["size"] - 4], 1)
        self.assertEqual(told["movie"]["seconds"], 2)
        self.assertEqual([(t["id"], t["handler"]) for t in told["tracks"]], [(1, "vide"), (2, "soun")])
        self.assertEqual(told["errors"][0]["path"], "moov/trak[2]/mdia/minf/stbl/stsd")

    def test_random_bytes_changed(self):
        random.seed(20)
        sound = small_movie()
        for _ in range(300):
            data = bytearray(sound)
            for _ in range(random.randint(1, 4)):
                data[random.randrange(len(data))] = random.choice((0, 1, 7, 8, 0x7F, 0x80, 0xFF, random.randrange(256)))
            self.inspect(bytes(data))  # sound JSON, a status that agrees with it, no signal


class Sizes(CommandTest):
    def test_each_kind_of_bad_size(self):
        head, tail = atom("ftyp", b"qt  ", bytes(4)), atom("free", bytes(100))
        cases = {
            "below the header": (atom("skip", size=7), "skip", MALFORMED, "less than its header"),
            "one byte": (atom("skip", size=2), "skip", MALFORMED, "less than its header"),
            "past the file": (atom("skip", size=1000), "skip", MALFORMED, "the file ends inside"),
            "64-bit below its header": (atom("skip", size=15, large=True), "skip", MALFORMED, "less than its header"),
            "64-bit zero": (atom("skip", size=0, large=True), "skip", MALFORMED, "less than its header"),
            "64-bit past the file": (atom("skip", size=1 << 40, large=True), "skip", MALFORMED, "the file ends inside"),
            "64-bit largest": (atom("skip", size=2**63 - 1, large=True), "skip", MALFORMED, "the file ends inside"),
            "64-bit negative": (atom("skip", size=2**64 - 8, large=True), "skip", MALFORMED, "more than any file"),
            "uuid below its header": (atom("uuid", size=23, extended=bytes(16)), "uuid", MALFORMED, "its header of 24"),
            "64-bit uuid of 20": (atom("uuid", size=20, large=True, extended=bytes(16)), "uuid", MALFORMED, "of 32"),
        }
        for name, (bad, path, status, words) in cases.items():
            with self.subTest(name):
                error = self.error_of(head + bad + tail)
                self.assertEqual((error["path"], error["offset"], error["status"]), (path, len(head), status))
                self.assertIn(words, error["message"])

    def test_inside_a_parent(self):
        """The walk goes on behind the parent, and the path says which of several."""
        sound = trak(2)
        cases = {
            "size 0": (atom("mdia", size=0), "mdia", MALFORMED, "size is 0"),
            "past the parent": (atom("mdia", mdhd(600, 600), size=5000), "mdia", MALFORMED, "past the end of 'trak'"),
            "below the header": (atom("mdia", size=3), "mdia", MALFORMED, "less than its header"),
            "stray bytes": (b"abc", "", NOT_ENOUGH, "3 stray bytes at the end of 'trak'"),
            "64-bit header cut": (struct.pack(">I4s", 1, b"wide"), "wide", NOT_ENOUGH, "takes 16 bytes"),
            "uuid header cut": (struct.pack(">I4s", 30, b"uuid"), "uuid", NOT_ENOUGH, "takes 24 bytes"),
        }
        for name, (bad, path, status, words) in cases.items():
            with self.subTest(name):
                before = atom("ftyp", b"qt  ")
                data = before + atom("moov", mvhd(), atom("trak", tkhd(1), bad), sound) + atom("free")
                told = self.inspect(data, 1)
                self.assertEqual(len(told["errors"]), 1, told["errors"])
                error = told["errors"][0]
                self.assertEqual(error["path"], "moov/trak[1]" + ("/" + path if path else ""))
                self.assertEqual(error["offset"], len(before) + 8 + len(mvhd()) + 8 + len(tkhd(1)))
                self.assertEqual(error["status"], status)
                self.assertIn(words, error["message"])
                self.assertEqual([t["id"] for t in told["tracks"]], [1, 2])
                self.assertEqual(told["tracks"][1]["handler"], "vide")
                self.assertEqual(told["atoms"][-1]["type"], "free")

    def test_numbers_in_paths(self):
        bad = atom("trak", tkhd(1), atom("mdia", size=3))
        paths = lambda *traks: [e["path"] for e in self.inspect(atom("moov", mvhd(), *traks), 1)["errors"]]
        self.assertEqual(paths(bad), ["moov/trak/mdia"])
        self.assertEqual(paths(trak(1), bad), ["moov/trak[2]/mdia"])
        self.assertEqual(paths(bad, trak(2), bad), ["moov/trak[1]/mdia", "moov/trak[3]/mdia"])
        self.assertEqual(paths(bad, atom("trak", tkhd(2), size=999)), ["moov/trak[1]/mdia", "moov/trak[2]"])
        self.assertEqual(paths(bad, b"xx"), ["moov/trak/mdia", "moov"])

    def test_something_else_than_a_movie(self):
        error = self.error_of(b"Dear reader, this is a letter.\n" * 20)
        self.assertEqual((error["offset"], error["status"]), (0, MALFORMED))
        self.assertIn("is this a movie file?", error["message"])
        error = self.error_of(b"")
        self.assertEqual((error["path"], error["offset"], error["message"]), ("", 0, "the file is empty"))


class Fields(CommandTest):
    """Headers whose own data are wrong. Everything else is still told."""

    def movie_with(self, *atoms):
        head = atom("moov", mvhd())[:8]
        body = mvhd() + atom("trak", tkhd(1), *atoms)
        return struct.pack(">I", len(head) + len(body)) + head[4:] + body

    def test_what_is_wrong_with_them(self):
        media = lambda *atoms: atom("mdia", *atoms)
        edits = lambda *data, **options: atom("edts", elst(*data, **options))
        cases = [
            ("mdia/mdhd", OUT_OF_BOUNDS, "too few", media(full("mdhd", 0, bytes(15)))),
            ("mdia/mdhd", OUT_OF_BOUNDS, "too few", media(full("mdhd", 1, bytes(27)))),
            ("mdia/mdhd", OUT_OF_BOUNDS, "", media(atom("mdhd", b"abc"))),
            ("mdia/mdhd", OUT_OF_BOUNDS, "", media(atom("mdhd"))),
            ("mdia/mdhd", MALFORMED, "version 2", media(full("mdhd", 2, bytes(40)))),
            ("mdia/mdhd", MALFORMED, "timescale is 0", media(mdhd(0, 100))),
            ("mdia/mdhd", MALFORMED, "timescale 2147483648", media(mdhd(1 << 31, 100))),
            ("mdia/mdhd", MALFORMED, "duration 9223372036854775808", media(mdhd(600, 1 << 63, 1))),
            ("mdia/hdlr", OUT_OF_BOUNDS, "too few", media(full("hdlr", 0, bytes(7)))),
            ("edts/elst", OUT_OF_BOUNDS, "3 edits but has room for 1", edits((600, 0, 1 << 16), count=3)),
            ("edts/elst", OUT_OF_BOUNDS, "4294967295 edits", edits((600, 0, 1 << 16), version=1, count=2**32 - 1)),
        ]
        for path, status, words, bad in cases:
            with self.subTest(path, words=words):
                told = self.inspect(self.movie_with(bad), 1)
                self.assertEqual(len(told["errors"]), 1, told["errors"])
                error = told["errors"][0]
                self.assertEqual((error["path"], error["status"]), ("moov/trak/" + path, status))
                self.assertIn(words, error["message"])
                self.assertEqual(told["movie"]["seconds"], 2)
                self.assertEqual(told["tracks"][0]["id"], 1)
                if "room for" in error["message"]:
                    self.assertEqual(told["tracks"][0]["edits"], [{"segmentDuration": 600, "mediaTime": 0, "rate": 1}])

    def test_a_movie_header_without_timescale(self):
        told = self.inspect(atom("moov", mvhd(0, 100), trak(1)), 1)
        self.assertEqual(told["movie"], {"timescale": 0, "duration": None, "seconds": None})
        self.assertEqual(told["tracks"][0]["seconds"], 2)


class Hostile(CommandTest):
    def nested(self, depth, inner=b""):
        sizes = range(8 * depth + len(inner), len(inner), -8)
        return b"".join(struct.pack(">I4s", size, b"moov") for size in sizes) + inner

    def test_ten_thousand_levels(self):
        path = self.write(self.nested(10000))
        text = pevrin_measured("inspect", path)
        self.assertEqual((text.status, text.stderr), (0, ""))
        self.assertEqual(text.stdout.count(b"moov\n"), 10000)
        self.assertLess(text.peak_kib, 64 * 1024)

        def depth_of_json():
            atoms, depth = pevrin("inspect", "--json", path).json["atoms"], 0
            while atoms:
                atoms, depth = atoms[0]["children"], depth + 1
            return depth

        self.assertEqual(deep(depth_of_json), 10000)

    def test_damage_far_down_and_levels_without_end(self):
        result = pevrin("inspect", self.write(self.nested(10000, atom("trak", size=3))))
        self.assertEqual(result.status, 1)
        self.assertIn("/...9977 more.../", result.stderr)
        self.assertIn(f"moov/trak at byte {8 * 10000}: its size is 3 bytes", result.stderr)
        self.assertLess(len(result.stderr), 1000)

        result = pevrin_measured("inspect", self.write(self.nested(300_000) + atom("free")))
        self.assertEqual(result.status, 1)
        self.assertIn("65536 deep are not looked into", result.stderr)
        self.assertTrue(result.stdout.count(b"free\n"), "what follows is shown")
        self.assertLess(result.peak_kib, 128 * 1024)

    def test_a_million_tiny_atoms(self):
        tiny = atom("free") * 1_000_000
        many = b"".join(struct.pack(">II", 8, 0x61000000 + i) for i in range(1_000_000))
        for data in (tiny, atom("moov", tiny), many):
            path = self.write(data)
            for arguments in (["inspect"], ["inspect", "--json"]):
                result = pevrin_measured(*arguments, path)
                self.assertEqual((result.status, result.stderr), (0, ""))
                self.assertGreaterEqual(result.stdout.count(b"\n"), 1_000_000)
                self.assertLess(result.seconds, 30, "a guard against loops over loops, not a measurement")
                self.assertLess(result.peak_kib, (128 if data is many else 24) * 1024)

    def test_a_hundred_thousand_damaged_atoms(self):
        data = atom("moov", atom("trak", b"x") * 100_000)
        result = pevrin_measured("inspect", "--json", self.write(data))
        self.assertEqual((result.status, len(result.json["errors"])), (1, 100_000))
        self.assertEqual(result.json["errors"][-1]["path"], "moov/trak[100000]")
        self.assertLess(result.seconds, 30)

    def test_a_hundred_thousand_damaged_atoms_of_different_types(self):
        items = b"".join(struct.pack(">II", 9, 0x61000000 + i) + b"x" for i in range(100_000))
        result = pevrin_measured("inspect", "--json", self.write(atom("ilst", items)))
        self.assertEqual((result.status, len(result.json["errors"])), (1, 100_000))
        self.assertLess(result.seconds, 30)

    def test_five_gigabytes_with_a_hole(self):
        path = self.write(atom("ftyp", b"qt  ") + atom("mdat", size=5 << 30, large=True))
        with open(path, "r+b") as file:
            file.seek(12 + (5 << 30))
            file.write(atom("moov", mvhd(), trak(1)))
        result = pevrin_measured("inspect", "--json", path)
        self.assertEqual((result.status, result.stderr), (0, ""))
        self.assertEqual([a["offset"] for a in result.json["atoms"]], [0, 12, 12 + (5 << 30)])
        self.assertEqual(result.json["movie"]["seconds"], 2)
        self.assertLess(result.peak_kib, 24 * 1024)

        os.truncate(path, 4 << 30)
        error = pevrin("inspect", "--json", path).json["errors"][0]
        self.assertEqual((error["path"], error["offset"]), ("mdat", 12))

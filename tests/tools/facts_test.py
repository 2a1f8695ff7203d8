"""What the command says of sound movies, against a reader of our own in Python and against ffprobe."""
import json
import os
import subprocess

import media
from command import ROOT, CommandTest, pevrin
from movies import atom, flat, full, hdlr, mvhd, read_atoms, read_facts, small_movie, trak

SAMPLE = os.path.join(ROOT, "samples", "clip.mp4")
KINDS = {"vide": "video", "soun": "audio", "sbtl": "subtitle", "tmcd": "data", "text": "data", "hint": "data"}


def ffprobe_tracks(path):
    """By track ID: codec type, timescale and duration. Edit lists are left aside: they are the player's business."""
    told = subprocess.run(
        ["ffprobe", "-v", "quiet", "-ignore_editlist", "1", "-show_streams", "-of", "json", path],
        capture_output=True, check=True,
    )
    return {int(stream["id"], 0): stream for stream in json.loads(told.stdout)["streams"]}


class Sound(CommandTest):
    def check_against_reader(self, path):
        result = pevrin("inspect", "--json", path)
        self.assertEqual((result.status, result.stderr), (0, ""))
        with open(path, "rb") as file:
            data = file.read()
        atoms = read_atoms(data)
        movie, tracks = read_facts(data, atoms)
        told = result.json
        self.assertEqual(told["size"], len(data))
        self.assertEqual(told["file"], path)
        self.assertEqual(told["atoms"], atoms)
        self.assertEqual(told["movie"], movie)
        self.assertEqual([{**track, "descriptions": None} for track in told["tracks"]],
                         [{**track, "descriptions": None} for track in tracks])
        self.assertEqual(told["errors"], [])
        return told

    def check_against_ffprobe(self, path, told):
        streams = ffprobe_tracks(path)
        compared, kinds = 0, {one["type"] for one in told["atoms"]}
        for track in told["tracks"]:
            stream = streams.get(track["id"])
            if stream is None:  # a chapter track is no stream of ffprobe's
                continue
            compared += 1
            self.assertEqual(stream["time_base"], f"1/{track['timescale']}")
            self.assertEqual(stream["codec_type"], KINDS[track["handler"]])
            # of fragmented movies, and of text and hints, ffprobe tells what it counted and not what is stored
            if track["handler"] in ("vide", "soun", "tmcd") and "moof" not in kinds:
                self.assertEqual(stream["duration_ts"], track["duration"]["value"])
                self.assertAlmostEqual(float(stream["duration"]), track["seconds"], places=5)
        self.assertGreater(compared, 0)

    def test_the_sample(self):
        told = self.check_against_reader(SAMPLE)
        self.check_against_ffprobe(SAMPLE, told)
        self.assertEqual([t["handler"] for t in told["tracks"]], ["vide", "soun"])
        self.assertEqual(told["movie"]["seconds"], 5)

    def test_movies_of_many_shapes(self):
        for name in [*media.MADE, *media.BENT]:
            with self.subTest(name):
                path = media.path_of(name)
                self.check_against_ffprobe(path, self.check_against_reader(path))

    def test_the_shapes_are_what_their_names_say(self):
        """The comparison above is worth little when ffmpeg stops writing what it is asked for."""
        expected = {
            "fragmented.mp4": ["moof/traf/trun", "mfra/tfra", "moov/mvex/trex"],
            "dash.mp4": ["sidx", "moof/traf/tfdt"],
            "smooth.ismv": ["moof/traf/uuid"],
            "two-tones.mov": ["moov/trak/mdia/minf/gmhd/tmcd/tcmi", "moov/trak/tref/tmcd"],
            "prores.mov": [r"moov/udta/\xa9nam"],
            "tags.mp4": [r"moov/udta/meta/ilst/\xa9nam/data"],
            "any-tags.mov": [r"moov/udta/meta/ilst/\x00\x00\x00\x01/data"],
            "chapters.mp4": ["moov/trak/tref/chap", "moov/udta/chpl"],
            "hints.mp4": ["moov/trak/udta/hnti/sdp ", "moov/trak/tref/hint"],
            "uuids.mp4": ["moov/uuid", "uuid"],
        }
        for name, paths in expected.items():
            found = {"/".join(path) for path, _ in flat(read_atoms(media.bytes_of(name)))}
            self.assertLessEqual(set(paths), found, name)
        edits = read_facts(*[(d := media.bytes_of("late-tone.mp4")), read_atoms(d)])[1][1]["edits"]
        self.assertEqual([edit["mediaTime"] for edit in edits], [-1, 0])
        self.assertEqual(read_atoms(media.bytes_of("large-mdat.mp4"))[1]["headerSize"], 16)

    def test_text_and_json_agree(self):
        for name in ("two-tones.mov", "fragmented.mp4", "tags.mp4"):
            path = media.path_of(name)
            text = pevrin("inspect", path).stdout.decode()
            lines = text.split("header  atom\n")[1].split("\n\n")[0].splitlines()
            shown = [(int(o), int(s), int(h), kind) for o, s, h, kind in (line.split(None, 3) for line in lines)]
            listed = [(a["offset"], a["size"], a["headerSize"], a["type"] + (" " + a["uuid"] if "uuid" in a else ""))
                      for _, a in flat(pevrin("inspect", "--json", path).json["atoms"])]
            self.assertEqual(shown, listed)


class Built(CommandTest):
    """Small movies written byte by byte, and exactly what is said of them."""

    def test_everything_that_is_said(self):
        for version in (0, 1):
            data = small_movie(version)
            told = self.inspect(data, 0)
            self.assertEqual(told["atoms"], read_atoms(data))
            self.assertEqual(
                told["movie"], {"timescale": 600, "duration": {"value": 1200, "timescale": 600}, "seconds": 2}
            )
            self.assertEqual(
                told["tracks"][0],
                {
                    "id": 1, "handler": "vide", "timescale": 12800,
                    "duration": {"value": 25600, "timescale": 12800}, "seconds": 2,
                    "trackDuration": {"value": 1200, "timescale": 600},
                    "edits": [{"segmentDuration": 600, "mediaTime": -1, "rate": 1},
                              {"segmentDuration": 600, "mediaTime": 512, "rate": 0.5}],
                    "descriptions": [],
                },
            )
            self.assertEqual([t["id"] for t in told["tracks"]], [1, 2])

    def test_the_text_of_a_small_movie(self):
        data = atom("ftyp", b"qt  ") + atom("moov", mvhd(1000, 3723004), trak(7, edits=[(3000, -1, 1 << 16)]))
        path = self.write(data + atom(b"\xa9\\x\n"))
        result = pevrin("inspect", path)
        self.assertEqual((result.status, result.stderr), (0, ""))
        text = result.stdout.decode()
        self.assertIn(f"{path}: {len(data) + 8} bytes\n", text)
        self.assertIn("       0        12       8  ftyp\n", text)
        self.assertIn("      20       108       8    mvhd\n", text)
        self.assertIn("       8  \\xa9\\x5cx\\x0a\n", text)
        self.assertIn("01:02:03.004 (3723004/1000)", text)
        self.assertIn("   7  vide      12800  00:00:02 (25600/12800)        00:00:01.200 (1200/1000)\n", text)
        self.assertIn("edit: nothing for 00:00:03 (3000/1000)", text)

    def test_unknown_and_fragment_durations(self):
        for version, unknown in ((0, 0xFFFFFFFF), (1, 0xFFFFFFFFFFFFFFFF)):
            movie = self.inspect(atom("moov", mvhd(600, unknown, version)), 0)["movie"]
            self.assertEqual(movie, {"timescale": 600, "duration": None, "seconds": None})
            text = pevrin("inspect", os.path.join(self.folder, "movie.mp4")).stdout.decode()
            self.assertIn("Movie: unknown", text)
            mehd = atom("mvex", full("mehd", version, (900).to_bytes(8 if version else 4, "big")))
            for stored, said in ((0, 900), (1200, 1200)):
                movie = self.inspect(atom("moov", mvhd(600, stored), mehd), 0)["movie"]
                self.assertEqual(movie["duration"], {"value": said, "timescale": 600})
        far = (1 << 62) + 1
        self.assertEqual(self.inspect(atom("moov", mvhd(90000, far, 1)), 0)["movie"]["duration"]["value"], far)
        self.assertIsNone(self.inspect(atom("ftyp", b"qt  "), 0)["movie"])

    def test_places_where_quicktime_and_iso_differ(self):
        inner = hdlr("mdta") + atom("keys", bytes(7), b"\1", atom("mdta", b"key")) + atom("ilst", atom(b"\0\0\0\1", atom("data", bytes(8))))
        for name, data in {
            "meta without version": atom("meta", inner),
            "meta with version": full("meta", 0, inner),
            "user data ending in zero": atom("moov", atom("udta", atom(b"\xa9nam", b"x"), bytes(4))),
            "empty containers": atom("moov", atom("udta"), atom("meta", bytes(4)), atom("edts")),
            "track references": atom("moov", atom("trak", atom("tref", atom("tmcd", bytes(4)), atom("clip", bytes(4))))),
            "size to the end": atom("ftyp", b"qt  ") + atom("moov", mvhd(), size=0),
        }.items():
            with self.subTest(name):
                self.assertEqual(self.inspect(data, 0)["atoms"], read_atoms(data))

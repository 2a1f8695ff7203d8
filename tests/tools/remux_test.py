"""Movies that the command has written anew: the same samples, for itself, for ffprobe and for ffmpeg's decoders."""
import json
import os
import random
import resource
import shutil
import signal
import struct
import subprocess
import tempfile
import time

import command
import media
from command import ROOT, CommandTest, pevrin
from movies import atom, full, hdlr, read_atoms

SAMPLE = os.path.join(ROOT, "samples", "clip.mp4")
OTHER_WAYS = [("out.mp4", ["--faststart"]), ("out.mov", []), ("out.m4v", ["--fragment", "700ms"])]
UNCOMPRESSED = {"lpcm", "ulaw", "alaw", "ima4"}


def samples_of(path):
    """By track: what is said of each sample except where it is; of uncompressed sound, where it begins and how much."""
    told = pevrin("inspect", "--samples", "--json", path).json
    assert not told["errors"], told["errors"]
    tracks = []
    for track in told["tracks"]:
        samples = sorted(track["samples"], key=lambda sample: sample["index"])
        codes = {one.get("audio", {}).get("formatID") for one in track["descriptions"]}
        if codes & UNCOMPRESSED:
            samples = [samples[0]["decode"], sum(sample["size"] for sample in samples)]
        for sample in samples:
            if isinstance(sample, dict):
                sample.pop("offset", None)
        tracks.append((track["id"], track["handler"], track["timescale"], samples))
    return tracks


def has_nameless_files(folder):
    try:
        os.close(os.open(folder, os.O_TMPFILE | os.O_RDWR))
        return True
    except OSError:
        return False


def is_fragmented(path):
    return any(atom["type"] == "moof" for atom in pevrin("inspect", "--json", path).json["atoms"])


def ffprobe_packets(path):
    told = json.loads(subprocess.run(
        ["ffprobe", "-v", "error", "-show_data_hash", "md5", "-of", "json", "-show_entries",
         "packet=stream_index,pts,dts,duration,size,flags,data_hash", path], capture_output=True, check=True).stdout)
    streams = {}
    for packet in told["packets"]:
        packet.pop("side_data_list", None)
        streams.setdefault(packet["stream_index"], []).append(packet)
    return streams


def decoded(path):
    """Checksums of all frames, without what edit lists hide: ffmpeg hides nothing in fragments."""
    done = subprocess.run(
        ["ffmpeg", "-v", "error", "-ignore_editlist", "1", "-i", path, "-map", "0:v?", "-map", "0:a?", "-fps_mode",
         "passthrough", "-f", "streamhash", "-hash", "md5", "-"], capture_output=True, check=True)
    return done.stdout.decode(), done.stderr.decode()


def walk(atoms):
    for atom in atoms:
        yield atom
        yield from walk(atom.get("children", []))


def groups_of(path):
    """By track and grouping: the entry of each sample that an 'sbgp' counts, 0 for none at the end left off."""
    with open(path, "rb") as file:
        data = file.read()
    groups, counted, track = {}, {}, 0

    def word(one, index):
        return int.from_bytes(data[one["offset"] + 8 + 4 * index:][:4], "big")

    for one in walk(read_atoms(data)):
        if one["type"] in ("tkhd", "tfhd"):
            track = word(one, 3 if one["type"] == "tkhd" else 1)
        elif one["type"] in ("stsz", "trun"):
            first = counted.get(track, 0)
            counted[track] = first + word(one, 2 if one["type"] == "stsz" else 1)
        elif one["type"] == "sbgp":
            version = data[one["offset"] + 8]
            entries = groups.setdefault((track, *(word(one, 1 + i) for i in range(1 + version))), [])
            entries += [0] * (first - len(entries))
            for i in range(word(one, 2 + version)):
                entries += [word(one, 4 + version + 2 * i)] * word(one, 3 + version + 2 * i)
    return {key: entries[:1 + max(i for i, entry in enumerate(entries) if entry)] for key, entries in groups.items()}


class Remux(CommandTest):
    def remux(self, source, target, *options):
        result = pevrin("remux", source, target, *options)
        self.assertEqual((result.status, result.stderr, result.stdout), (0, "", b""), (source, options))

    def check(self, name, ways):
        source = media.path_of(name)
        expected, frames, fragmented = samples_of(source), decoded(source), is_fragmented(source)
        with tempfile.TemporaryDirectory() as folder:
            for way, options in ways:
                with self.subTest(movie=name, way=way):
                    target = os.path.join(folder, way)
                    self.remux(source, target, *options)
                    self.assertEqual(samples_of(target), expected)
                    self.assertEqual(decoded(target), frames)
                    if not fragmented and "--fragment" not in options:
                        self.assertEqual(ffprobe_packets(target), ffprobe_packets(source))
                    self.check_again(target, options)
                    self.check_conformance(source, target)

    def check_again(self, target, options):
        again = os.path.join(os.path.dirname(target), "again" + os.path.splitext(target)[1])
        self.remux(target, again, *options)
        with open(target, "rb") as one, open(again, "rb") as other:
            self.assertEqual(one.read(), other.read(), "a second time gives other bytes")

    def check_conformance(self, source, target):
        def faults(path):
            told = subprocess.run(["mediainfo", "--Output=JSON", path], capture_output=True, check=True).stdout
            tracks = json.loads(told)["media"]["track"]
            return [track["extra"]["ConformanceErrors"] for track in tracks if "ConformanceErrors" in track.get("extra", {})]
        if faults(target):
            self.assertEqual(faults(target), faults(source))

    def check_all(self, names):
        """Each in its own kind and in one other, by turns; all of them would take minutes."""
        for number, name in enumerate(names):
            kind = os.path.splitext(name)[1]
            same = ("same" + (kind if kind != ".ismv" else ".mp4"), [])
            self.check(name, [same, OTHER_WAYS[number % len(OTHER_WAYS)]])

    def test_movies_by_ffmpeg(self):
        self.check_all(media.MADE)

    def test_movies_with_samples_in_unusual_places(self):
        self.check_all(media.TIMED)

    def test_movies_bent_by_hand(self):
        self.check_all({**media.BENT, **media.SPLICED})

    def test_samples_keep_their_times_when_fragments_jump(self):
        def times(path):
            return [[sample["decode"] for sample in track["samples"]]
                    for track in pevrin("inspect", "--samples", "--json", path).json["tracks"]]
        source = media.path_of("jumping.mp4")
        sound = samples_of(source)[1][3]
        self.assertTrue(any(one["decode"]["value"] + one["duration"]["value"] != following["decode"]["value"]
                            for one, following in zip(sound, sound[1:])))
        with tempfile.TemporaryDirectory() as folder:
            for way, options in OTHER_WAYS:
                target = os.path.join(folder, way)
                self.remux(source, target, *options)
                self.assertEqual(times(target), times(source))
                self.check_again(target, options)

    def test_a_piece_from_the_middle_of_a_recording(self):
        """Its tracks begin late, and not together. A gap of the output is a number of its milliseconds."""
        def shown(path):
            return [[one["presentation"]["value"] / one["presentation"]["timescale"] for one in track["samples"]]
                    for track in pevrin("inspect", "--samples", "--json", path).json["tracks"]]
        data = media.bytes_of("jumping.mp4")
        fragments = [one["offset"] for one in read_atoms(data) if one["type"] == "moof"]
        with tempfile.TemporaryDirectory() as folder:
            source = os.path.join(folder, "piece.mp4")
            with open(source, "wb") as file:
                file.write(data[:fragments[0]] + data[fragments[20]:])
            first = [times[0] for times in shown(source)]
            self.assertGreater(min(first), 0.3)
            self.assertNotEqual(first[0], first[1])
            for way, options in [("out.mp4", []), *OTHER_WAYS]:
                target = os.path.join(folder, way)
                self.remux(source, target, *options)
                for one, other in zip(shown(target), shown(source), strict=True):
                    self.assertEqual(len(one), len(other))
                    self.assertLess(max(abs(a - b) for a, b in zip(one, other)), 0.001)
                self.check_again(target, options)

    def test_samples_stay_in_their_groups(self):
        self.assertEqual(len(groups_of(media.path_of("groups.mp4"))), 5)  # two by hand in each track, one by ffmpeg
        with tempfile.TemporaryDirectory() as folder:
            for source in SAMPLE, media.path_of("groups.mp4"):
                expected, pieces = groups_of(source), os.path.join(folder, "pieces.mp4")
                self.remux(source, pieces, "--fragment", "500ms")
                for way, options in [("same.mp4", []), *OTHER_WAYS]:
                    for movie in source, pieces:
                        target = os.path.join(folder, way)
                        self.remux(movie, target, *options)
                        self.assertEqual(groups_of(target), expected, (movie, way))
                        self.check_again(target, options)

    def test_tables_that_go_by_the_numbers_of_samples(self):
        """They go along where all tables do; elsewhere it is told what is lost, and refused what must not be."""
        def renamed(source, name, old, new):
            with open(source, "rb") as one, open(name, "wb") as other:
                other.write(one.read().replace(old, new))
            return name
        with tempfile.TemporaryDirectory() as folder:
            source, pieces, target = media.path_of("groups.mp4"), os.path.join(folder, "pieces.mp4"), os.path.join(folder, "out.mp4")
            self.remux(source, pieces, "--fragment", "500ms")
            numbered = renamed(source, os.path.join(folder, "numbered.mp4"), b"sbgp", b"stps")
            self.remux(numbered, target)
            self.assertIn("stps", [atom["type"] for atom in walk(pevrin("inspect", "--json", target).json["atoms"])])
            entries = b"prol" + struct.pack(">IIIII", 4, 3, 0, 4, 1)
            local = renamed(pieces, os.path.join(folder, "local.mp4"), entries, entries[:-4] + struct.pack(">I", 0x10001))
            for movie, lost, options in (local, "'prol' groups", []), (numbered, "'stps'", ["--fragment", "1s"]):
                result = pevrin("remux", movie, target, *options)
                self.assertEqual((result.status, result.stderr), (0, "".join(
                    f"pevrin: {target}: track {track} is written without its {lost}\n" for track in (1, 2))))
                self.assertNotIn((1, int.from_bytes(b"prol", "big")), groups_of(target))
            for lost in b"saiz", b"senc":
                result = pevrin("remux", renamed(pieces, os.path.join(folder, "secret.mp4"), b"sbgp", lost), target)
                self.assertEqual(result.status, 2)
                self.assertIn("auxiliary information", result.stderr)

    def test_atoms_behind_the_movie(self):
        """Items point into the file, events belong to fragments; anything else goes along, whatever its size."""
        with open(SAMPLE, "rb") as file:
            movie = file.read()
        with tempfile.TemporaryDirectory() as folder:
            source, target = os.path.join(folder, "source.mp4"), os.path.join(folder, "out.mp4")

            def remux_with(last, **options):
                with open(source, "wb") as file:
                    file.write(movie + last)
                    if "size" in options:
                        file.truncate(len(movie) + options.pop("size"))
                done = subprocess.run([command.PEVRIN, "remux", source, target], capture_output=True, text=True, **options)
                return done.returncode, done.stderr.replace(target, "OUT")

            for version, count, items in ((0, b"\0\1", True), (1, b"\0\0", False), (2, b"\0\0\0\1", True), (2, bytes(4), False)):
                places = full("iloc", version, b"\x44\0", count)
                for meta in full("meta", 0, hdlr("pict"), places), atom("meta", hdlr("pict"), places):
                    message = "pevrin: OUT: the movie has items in a 'meta', whose places in the file would be wrong\n"
                    self.assertEqual(remux_with(meta), (2, message) if items else (0, ""))
            self.assertEqual(remux_with(full("emsg", 0, bytes(20))),
                             (0, "pevrin: OUT: the events of the fragments, 'emsg', are left out\n"))
            size = 200 << 20
            self.assertEqual(remux_with(atom("abcd", size=size), size=size, preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_DATA, (size // 2, size // 2))), (0, ""))
            last = pevrin("inspect", "--json", target).json["atoms"][-1]
            self.assertEqual((last["type"], last["size"]), ("abcd", size))

    def test_tags_and_unknown_atoms_go_along(self):
        def tags(path):
            told = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "format_tags", "-of", "json", path],
                                  capture_output=True, check=True).stdout
            found = json.loads(told)["format"]["tags"]
            return {key: value for key, value in found.items() if key not in ("major_brand", "minor_version", "compatible_brands")}
        with tempfile.TemporaryDirectory() as folder:
            for name, target in (("tags.mp4", "a.mp4"), ("any-tags.mov", "a.mov"), ("phone.3gp", "a.3gp"), ("tags.mp4", "a.m4v")):
                options = ["--fragment", "1s"] if target == "a.m4v" else []
                self.remux(media.path_of(name), os.path.join(folder, target), *options)
                self.assertEqual(tags(os.path.join(folder, target)), tags(media.path_of(name)))
            self.remux(media.path_of("uuids.mp4"), os.path.join(folder, "b.mp4"))
            kept = [atom["uuid"] for atom in walk(pevrin("inspect", "--json", os.path.join(folder, "b.mp4")).json["atoms"])
                    if atom["type"] == "uuid"]
            self.assertEqual(kept, [atom["uuid"] for atom in walk(pevrin("inspect", "--json", media.path_of("uuids.mp4")).json["atoms"])
                                    if atom["type"] == "uuid"])
            self.assertTrue(kept)

    def test_what_cannot_be_done_leaves_things_as_they_were(self):
        with tempfile.TemporaryDirectory() as folder:
            old, damaged = os.path.join(folder, "old.mp4"), os.path.join(folder, "damaged.mp4")
            with open(SAMPLE, "rb") as file:
                data = file.read()
            with open(old, "wb") as file:
                file.write(b"old")
            with open(damaged, "wb") as file:
                file.write(data[:-200])
            os.mkdir(os.path.join(folder, "folder.mp4"))
            cases = [
                ([damaged, old], 1, "damaged.mp4: "),
                ([SAMPLE, os.path.join(folder, "out.avi")], 2, "must end in one of .mov"),
                ([SAMPLE, os.path.join(folder, "none", "out.mp4")], 2, "No such file or directory"),
                ([SAMPLE, os.path.join(folder, "folder.mp4")], 2, "not a regular file"),
                ([os.path.join(folder, "none.mp4"), old], 2, "No such file or directory"),
                ([__file__, old], 1, "remux_test.py: "),
                ([SAMPLE, old, "--fragment", "soon"], 2, "soon is not a length"),
                ([SAMPLE, old, "--fragment", "1s", "--faststart"], 2, "--f"),
            ]
            for arguments, status, message in cases:
                with self.subTest(arguments=arguments):
                    result = pevrin("remux", *arguments)
                    self.assertEqual((result.status, result.stdout), (status, b""))
                    self.assertIn(message, result.stderr)
            full = subprocess.run(
                [command.PEVRIN, "remux", SAMPLE, old], restore_signals=False, capture_output=True, text=True,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (len(data) // 2, len(data) // 2)))
            self.assertEqual((full.returncode, full.stderr), (2, f"pevrin: {old}: the output cannot be written: File too large\n"))
            with open(old, "rb") as file:
                self.assertEqual(file.read(), b"old")
            self.assertEqual(sorted(os.listdir(folder)), ["damaged.mp4", "folder.mp4", "old.mp4"])

    def test_onto_itself_and_through_a_link(self):
        with tempfile.TemporaryDirectory() as folder:
            movie, link = os.path.join(folder, "movie.mp4"), os.path.join(folder, "link.mp4")
            shutil.copy(SAMPLE, movie)
            os.chmod(movie, 0o640)
            os.symlink("movie.mp4", link)
            expected = samples_of(movie)
            self.remux(movie, link, "--faststart")
            self.assertTrue(os.path.islink(link))
            self.assertEqual((samples_of(movie), os.stat(movie).st_mode & 0o777), (expected, 0o640))
            self.assertEqual([atom["type"] for atom in pevrin("inspect", "--json", movie).json["atoms"]][:3],
                             ["ftyp", "moov", "mdat"])

    def test_a_stop_at_any_moment_leaves_a_whole_target(self):
        """A movie of 60 MB: killed after a while that is drawn, until some were killed and some were not."""
        with tempfile.TemporaryDirectory() as folder:
            large, target = os.path.join(folder, "large.mov"), os.path.join(folder, "target.mov")
            subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "anoisesrc=r=48000:d=160", "-c:a", "pcm_s32le", "-ac", "2",
                            large], check=True)
            shutil.copy(SAMPLE, target)
            small = samples_of(target)
            started = time.monotonic()
            self.remux(large, os.path.join(folder, "whole.mov"))
            whole, took = samples_of(os.path.join(folder, "whole.mov")), time.monotonic() - started
            draw, killed, done = random.Random(7), 0, 0
            while killed < 8 or not done:
                program = subprocess.Popen([command.PEVRIN, "remux", large, target])
                time.sleep(draw.random() * took * (1 if killed < 8 else 4))
                program.send_signal(signal.SIGKILL)
                if program.wait() == 0:
                    done += 1
                else:
                    killed += 1
                self.assertIn(samples_of(target), (small, whole))
            if has_nameless_files(folder):
                self.assertEqual(sorted(os.listdir(folder)), ["large.mov", "target.mov", "whole.mov"])

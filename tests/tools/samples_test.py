"""The samples that the command lists, against ffprobe's packets and against tables written by hand."""
import collections
import heapq
import json
import os
import struct
import subprocess

import command
import media
from command import ROOT, CommandTest, pevrin, pevrin_measured
from movies import atom, flat, full, hdlr, mdhd, mvhd, read_atoms, tkhd

SAMPLE = os.path.join(ROOT, "samples", "clip.mp4")


def ffprobe_packets(path):
    """By track ID: the codec type and the packets in decoding order."""
    told = json.loads(subprocess.run(
        ["ffprobe", "-v", "error", "-show_entries", "stream=index,id,codec_type,time_base",
         "-show_entries", "packet=stream_index,pts,dts,duration,size,pos,flags", "-of", "json", path],
        capture_output=True, check=True,
    ).stdout)
    kinds = {one["index"]: (int(one["id"], 0), one["codec_type"]) for one in told["streams"]}
    packets = collections.defaultdict(list)
    for packet in told["packets"]:
        packets[kinds[packet["stream_index"]][0]].append(
            {key: value if key == "flags" else int(value) for key, value in packet.items() if key != "side_data_list"})
    return {track: (kind, packets[track]) for track, kind in kinds.values()}


def without_edits(data):
    """The same movie with every edit list taken out, in place."""
    for _, one in flat(read_atoms(data)):
        if one["type"] == "edts":
            data = data[: one["offset"] + 4] + b"free" + data[one["offset"] + 8 :]
    return data


def in_decoding_order(track):
    return sorted(track["samples"], key=lambda sample: sample["index"])


def units(time, timescale):
    """A time that is a whole number of units; ffprobe rounds where it is not."""
    quotient = time["value"] * timescale
    return (2 * quotient + time["timescale"]) // (2 * time["timescale"])


def longest_queue(samples):
    """The same number found another way: what waits when only what nothing earlier can follow goes out."""
    times = [sample["presentation"]["value"] for sample in samples]
    later = [*times, float("inf")]
    for i in range(len(times) - 1, -1, -1):
        later[i] = min(later[i], later[i + 1])
    waiting, total, most = [], 0, 0
    for i, sample in enumerate(samples):
        heapq.heappush(waiting, (times[i], i))
        total += sample["duration"]["value"]
        most = max(most, total)
        while waiting and waiting[0][0] <= later[i + 1]:
            total -= samples[heapq.heappop(waiting)[1]]["duration"]["value"]
    return most


class AgainstFFprobe(CommandTest):
    """What ffprobe tells otherwise, and why the command does not:

    - negative composition offsets: it takes the largest of them from all decoding times of a sample table, and adds it
      to all presentation times of fragments, so that no sample is shown before it is decoded;
    - durations of samples with composition offsets are guessed from the frame rate, and those of sound in fragments
      from the codec; the next decoding time tells what the file says;
    - the first sample that is shown gets time 0 when the edit begins within a frame, which it then hides;
    - in fragments it hides nothing; of what an edit hides behind its end, and of hidden text, it tells nothing at all;
    - uncompressed sound comes in packets of its own size.
    """

    def check(self, path):
        result = pevrin("inspect", "--samples", "--json", path)
        self.assertEqual((result.status, result.stderr), (0, ""), path)
        streams, compared = ffprobe_packets(path), 0
        fragmented = any(one["type"] == "moof" for one in result.json["atoms"])
        for track in result.json["tracks"]:
            self.check_order(track)
            kind, packets = streams.get(track["id"], ("", []))
            if kind in ("", "data") and track["handler"] == "text" and not packets:  # ffprobe has chapters apart
                continue
            samples = in_decoding_order(track)
            self.assertGreater(len(packets), 0, track["id"])
            if any("count" in sample for sample in samples):
                self.check_chunks(samples, packets)
            else:
                self.check_samples(track, samples, packets, kind, fragmented)
            compared += len(samples)
        self.assertGreater(compared, 0)
        return result.json

    def check_order(self, track):
        shown = [sample["presentation"]["value"] / sample["presentation"]["timescale"] for sample in track["samples"]]
        self.assertEqual(shown, sorted(shown))
        samples, next_index = in_decoding_order(track), 0
        for sample in samples:
            self.assertEqual(sample["index"], next_index)
            next_index += sample.get("count", 1)
        if samples and len({sample["presentation"]["timescale"] for sample in samples}) == 1:
            self.assertEqual(track["queueDuration"]["value"], longest_queue(samples))

    def check_samples(self, track, samples, packets, kind, fragmented):
        scale = track["timescale"]
        told = {packet["pos"] for packet in packets}
        samples = [sample for sample in samples if sample["offset"] in told or not sample.get("hidden")]
        self.assertEqual(len(samples), len(packets))
        shift = max(0, *(s["decode"]["value"] - s["presentation"]["value"] for s in samples))
        late = packets[0]["pts"] - units(samples[0]["presentation"], scale) - (shift if fragmented else 0)
        if late:  # the edit begins within a frame
            self.assertTrue(0 > late > -samples[0]["duration"]["value"], late)
        has_offsets = any(sample["decode"] != sample["presentation"] for sample in samples)
        for i, (sample, packet) in enumerate(zip(samples, packets)):
            with self.subTest(track=track["id"], index=i):
                self.assertEqual(sample["offset"], packet["pos"])
                self.assertEqual(sample["size"], packet["size"])
                self.assertEqual(units(sample["presentation"], scale) + late + (shift if fragmented else 0), packet["pts"])
                self.assertEqual(units(sample["decode"], scale) + late - (0 if fragmented else shift), packet["dts"])
                if kind in ("video", "audio"):
                    self.assertEqual(sample["sync"], "K" in packet["flags"])
                    if not fragmented and not late:
                        self.assertEqual(sample.get("hidden", False), "D" in packet["flags"])
                if i + 1 < len(samples):
                    self.assertEqual(sample["duration"]["value"], packets[i + 1]["dts"] - packet["dts"])
                elif not has_offsets and not fragmented and not track["edits"] and sample["duration"]["value"]:
                    self.assertEqual(sample["duration"]["value"], packet["duration"])

    def check_chunks(self, chunks, packets):
        """Each of ours is some of ffprobe's packets, one behind the other."""
        at = 0
        for chunk in chunks:
            start, size, duration = at, 0, 0
            while size < chunk["size"]:
                self.assertEqual(packets[at]["pos"], chunk["offset"] + size)
                self.assertEqual(packets[at]["dts"], chunk["decode"]["value"] + duration)
                size, duration, at = size + packets[at]["size"], duration + packets[at]["duration"], at + 1
            self.assertEqual(packets[start]["pts"], chunk["presentation"]["value"])
            self.assertEqual((chunk["size"], chunk["duration"]["value"], chunk["count"]), (size, duration, duration))
        self.assertEqual(at, len(packets))

    def test_every_movie(self):
        """With their edit lists, and without them."""
        for name in [*media.MADE, *media.BENT, *media.TIMED, *media.SPLICED]:
            for edits in (True, False):
                with self.subTest(name, edits=edits):
                    path = media.path_of(name)
                    self.check(path if edits else self.write(without_edits(media.bytes_of(name)), name))
        self.check(SAMPLE)

    def test_the_movies_are_what_their_names_say(self):
        expected = {"wide-offsets.mp4": "co64", "small-sizes-4.mov": "stz2", "small-sizes-8.mov": "stz2",
                    "small-sizes-16.mp4": "stz2", "pyramid.mp4": "ctts", "dependencies.mp4": "sdtp"}
        for name, kind in expected.items():
            self.assertIn(kind, [one["type"] for _, one in flat(read_atoms(media.bytes_of(name)))], name)
        bases = {}
        for name in ("base-offset.mp4", "base-moof.mp4", "base-neither.mp4"):
            data = media.bytes_of(name)
            tfhd = [one for _, one in flat(read_atoms(data)) if one["type"] == "tfhd"]
            bases[name] = {struct.unpack_from(">I", data, one["offset"] + 8)[0] & 0x20001 for one in tfhd}
        self.assertEqual(bases, {"base-offset.mp4": {1}, "base-moof.mp4": {0x20000}, "base-neither.mp4": {0}})
        pyramid = pevrin("inspect", "--samples", "--json", media.path_of("pyramid.mp4")).json["tracks"][0]
        indices = [sample["index"] for sample in pyramid["samples"]]
        self.assertNotEqual(indices, sorted(indices))
        self.assertGreater(pyramid["queueDuration"]["value"], 2 * pyramid["samples"][0]["duration"]["value"])


def words(*numbers):
    return struct.pack(f">{len(numbers)}I", *numbers)


def tables(times, chunk_runs, sizes, chunks, *more):
    """A movie of one track with these tables, each the words behind version and flags."""
    kinds = zip(("stts", "stsc", "stsz", "stco"), (times, chunk_runs, sizes, chunks))
    stbl = atom("stbl", *(full(kind, 0, words(*numbers)) for kind, numbers in kinds), *more)
    return atom("moov", mvhd(), atom("trak", tkhd(1), atom("mdia", mdhd(1000, 100), hdlr("vide"), atom("minf", stbl))))


class Listing(CommandTest):
    def samples_of(self, data, status=0):
        result = pevrin("inspect", "--samples", "--json", self.write(data))
        self.assertEqual(result.status, status, result.stderr)
        return result.json["tracks"][0], result.json["errors"]

    def test_every_key_of_a_small_movie(self):
        offsets = full("ctts", 1, words(2, 1, 20, 1, 0xFFFFFFFB))
        syncs = full("stss", 0, words(1, 1))
        track, errors = self.samples_of(tables((1, 2, 10), (1, 1, 2, 1), (0, 2, 3, 4), (1, 8), offsets, syncs))

        def time(value):
            return {"value": value, "timescale": 1000}

        self.assertEqual(track["samples"], [
            {"index": 1, "decode": time(10), "presentation": time(5), "duration": time(10), "size": 4, "offset": 11,
             "sync": False},
            {"index": 0, "decode": time(0), "presentation": time(20), "duration": time(10), "size": 3, "offset": 8,
             "sync": True},
        ])
        self.assertEqual((track["queueDuration"], errors), (time(20), []))
        plain = pevrin("inspect", "--json", os.path.join(self.folder, "movie.mp4")).json["tracks"][0]
        self.assertEqual({**plain, "samples": 0, "queueDuration": 0}, {**track, "samples": 0, "queueDuration": 0})

    def test_dependencies_of_tables_and_fragments(self):
        """Bits of a sample, from the top: leading, depends on others, is depended on, redundant coding."""
        bits = [0, 0x14, 0x28, 0x21, 0x02]
        keys = ("dependsOnOthers", "isDependedOnByOthers", "hasRedundantCoding")
        answers = [{key: pair == 1 for key, pair in zip(keys, (b >> 4 & 3, b >> 2 & 3, b & 3)) if pair} for b in bits]
        count = len(bits)
        stored = tables((1, count, 10), (1, 1, count, 1), (1, count), (1, 0), full("sdtp", 0, bytes(bits)))
        flags = full("trun", 0, words(count, *(b << 20 for b in bits)), flags=0x400)
        trex = atom("mvex", full("trex", 0, words(1, 1, 10, 1, 0)))
        movie = tables((0,), (0,), (0, 0), (0,))
        movie = words(len(movie) + len(trex)) + movie[4:] + trex
        for data in (stored, movie + atom("moof", atom("traf", full("tfhd", 0, words(1)), flags))):
            track, _ = self.samples_of(data)
            self.assertEqual([{key: s[key] for key in keys if key in s} for s in track["samples"]], answers)

    def test_text_and_json_agree(self):
        for name in ("pyramid.mp4", "picture-and-pcm.mov"):
            path = media.path_of(name)
            text = pevrin("inspect", "--samples", path).stdout.decode()
            tracks = pevrin("inspect", "--samples", "--json", path).json["tracks"]
            lists = text.split("\nSamples of track ")[1:]
            self.assertEqual(len(lists), len(tracks))
            for lines, track in zip(lists, tracks):
                shown = [line.split() for line in lines.splitlines()[2:-1] if line]
                told = [[str(s["offset"]), str(s["size"]), f"{s['index']}+{s['count']}" if "count" in s else str(s["index"]),
                         *(str(s[key]["value"]) for key in ("presentation", "decode", "duration")),
                         *["sync"] * s["sync"], *["hidden"] * s.get("hidden", False)] for s in track["samples"]]
                self.assertEqual(shown[: len(told)], told)

    def test_an_edit_between_units_and_at_another_speed(self):
        """600 units of the movie and 1000 of the track are a second: the gap of 1 ends at 5/3 of a unit."""
        movie = tables((1, 2, 10), (1, 1, 2, 1), (1, 2), (1, 8))
        edits = full("elst", 0, struct.pack(">IIiIIiI", 2, 1, -1, 1 << 16, 600, 0, 2 << 16))
        at = movie.index(b"mdia") - 4
        edts = atom("edts", edits)
        trak = movie.index(b"trak") - 4
        data = movie[:trak] + movie[trak : at] + edts + movie[at:]
        for place in (0, trak):  # the sizes of moov and trak
            data = data[:place] + words(struct.unpack_from(">I", data, place)[0] + len(edts)) + data[place + 4 :]
        samples = self.samples_of(data)[0]["samples"]
        self.assertEqual([s["presentation"] for s in samples], [{"value": 1, "timescale": 600}, {"value": 40, "timescale": 6000}])
        self.assertEqual([s["duration"]["value"] / s["duration"]["timescale"] for s in samples], [0.005, 0.005])
        self.assertEqual([s["decode"] for s in samples], [s["presentation"] for s in samples])

    def test_samples_that_the_file_does_not_have(self):
        whole = media.bytes_of("faststart.mp4")
        sound = pevrin("inspect", "--samples", "--json", media.path_of("faststart.mp4")).json
        cut = len(whole) * 2 // 3
        result = pevrin("inspect", "--samples", "--json", self.write(whole[:cut]))
        self.assertEqual([error["path"] for error in result.json["errors"]],
                         ["mdat"] + [f"moov/trak[{i}]/mdia/minf/stbl/stco" for i in (1, 2)])
        missing = 0
        for left, right in zip(result.json["tracks"], sound["tracks"]):
            for one, all_there in zip(left["samples"], right["samples"], strict=True):
                gone = one.pop("missing", False)
                self.assertEqual(gone, one["offset"] + one["size"] > cut)
                self.assertEqual(one, all_there)
                missing += gone
        self.assertGreater(missing, 20)

    def test_tables_that_lie_are_told_once(self):
        more_times = tables((9, 2, 10), (1, 1, 2, 1), (0, 2, 3, 4), (1, 8))
        far = tables((1, 2, 10), (1, 1, 2, 1), (0, 2, 3, 4), (1, 0xFFFFFF00))
        none = tables((1, 2, 10), (1, 1, 0, 1), (0, 2, 3, 4), (1, 8))
        for data, path, left in ((more_times, "stts", 2), (far, "stco", 2), (none, "stsc", 0)):
            track, errors = self.samples_of(data, 1)
            self.assertEqual([error["path"] for error in errors], ["moov/trak/mdia/minf/stbl/" + path])
            self.assertEqual(errors[0]["offset"], data.index(path.encode()) - 4)
            self.assertEqual(len(track["samples"]), left)

    def test_media_are_not_read_and_progress_is_shown(self):
        """A million samples in 3 GB, of which the file has only the tables; on a terminal it is told how far it is."""
        count = 1_000_000
        data = tables((1, count, 10), (1, 1, count, 1), (3000, count), (1, 0))
        path = self.write(data + struct.pack(">I4sQ", 1, b"mdat", 16 + 3000 * count))
        os.truncate(path, len(data) + 16 + 3000 * count)
        result = pevrin_measured("inspect", "--samples", path)
        self.assertEqual((result.status, result.stderr), (0, ""))
        self.assertEqual(result.stdout.count(b"  sync\n"), count)
        self.assertLess(result.peak_kib, 64 * 1024)
        parent, terminal = os.openpty()
        with open(os.devnull, "wb") as nowhere:
            done = subprocess.run([command.PEVRIN, "inspect", "--samples", path], stdout=nowhere, stderr=terminal)
        os.close(terminal)
        shown = b""
        with open(parent, "rb", buffering=0) as screen:
            try:
                while part := screen.read(4096):
                    shown += part
            except OSError:  # the other side is closed
                pass
        self.assertEqual(done.returncode, 0)
        self.assertRegex(shown, rb"\rSamples: +\d+ %\x1b\[K")
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown[-40:])

"""Elementary streams that are written into movies: ffmpeg decodes the same frames of both, at the times of the rate."""
import hashlib
import json
import os
import random
import re
import subprocess
import tempfile
from fractions import Fraction

import command
import streams
from command import CommandTest, pevrin

FRAMES = 60
# What is encoded is two seconds of a moving picture, at 30 frames a second or what is told.
ENCODED = {
    "pyramid.h264": "x264 --bframes 16 --b-pyramid strict --keyint 40",
    "open.h264": "x264 --bframes 3 --keyint 20 --open-gop",
    "no-b.h264": "x264 --bframes 0 --keyint 20 --fps 30000/1001",  # order counts of type 2
    "top-first.h264": "x264 --tff --keyint 20 --open-gop",
    "described-as-fields.h264": "x264 --fake-interlaced",
    "slices.h264": "x264 --slices 4 --aud --nal-hrd vbr --vbv-maxrate 900 --vbv-bufsize 900 --bitrate 800",
    "refresh.h264": "x264 --intra-refresh --keyint 15",
    "small.h264": "x264 --vf resize:96,64",
    "pyramid.hevc": "x265 --bframes 8 --keyint 60",
    "open.hevc": "x265 --bframes 4 --open-gop --keyint 15 --min-keyint 15 --no-scenecut",
    "no-b.hevc": "x265 --bframes 0 --aud --repeat-headers --fps 30000/1001",
    "layers.hevc": "x265 --temporal-layers --b-adapt 0 --hrd --vbv-maxrate 900 --vbv-bufsize 900 --bitrate 800",
    "slices.hevc": "x265 --slices 2 --no-open-gop --keyint 25 --no-sao",
    "fields.hevc": "x265 --interlace tff",
}
# Streams one behind the other.
JOINED = {
    "twice.h264": ["open.h264", "open.h264"],
    "sizes.h264": ["pyramid.h264", "small.h264", "top-first.h264"],  # other parameter sets in the middle
    "twice.hevc": ["open.hevc", "open.hevc"],
    "kinds.hevc": ["open.hevc", "layers.hevc"],
}


def path_of(name):
    with open(__file__, "rb") as file:
        version = hashlib.sha1(file.read()).hexdigest()[:12]
    folder = os.path.join(command.MEDIA, "elementary-" + version)
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, name)
    if os.path.exists(path):
        return path
    part = os.path.join(folder, "part-" + name)
    if name in JOINED:
        data = b"".join(bytes_of(one) for one in JOINED[name])
        with open(part, "wb") as file:
            file.write(data)
    else:
        source = os.path.join(folder, "source.y4m")
        if not os.path.exists(source):
            streams.run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=160x96:rate=30", "-frames:v", str(FRAMES),
                        "-pix_fmt", "yuv420p", "-strict", "-1", source + ".part.y4m")
            os.rename(source + ".part.y4m", source)
        program, *options = ENCODED[name].split()
        feed = ["--input", source, "--preset", "fast", "--pools", "1", "--frame-threads", "1"] if program == "x265" else [source]
        streams.run(program, *options, "-o", part, *feed)
    os.rename(part, path)
    return path


def bytes_of(name):
    with open(path_of(name), "rb") as file:
        return file.read()


def frames_of(path):
    """Checksums of the frames that are shown, in their order."""
    told = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-fps_mode", "passthrough", "-f", "framemd5", "-"],
                          capture_output=True, check=True).stdout.decode()
    return re.findall(r", (\w{32})$", told, re.M)


def packets_of(path):
    told = subprocess.run(["ffprobe", "-v", "error", "-of", "json", "-show_entries", "stream=time_base:packet=pts,dts,flags", path],
                          capture_output=True, check=True).stdout
    told = json.loads(told)
    return Fraction(told["streams"][0]["time_base"]), told["packets"]


class Elementary(CommandTest):
    def check(self, path, rate=None, ways=(("a.mp4", []), ("a.mov", ["--faststart"]), ("b.mp4", ["--fragment", "500ms"])),
              more=lambda movie: None):
        """Calls more with each movie that it has made of the stream."""
        expected = frames_of(path)
        options = [] if rate is None else ["--rate", str(rate)]
        with tempfile.TemporaryDirectory() as folder:
            for name, how in ways:
                with self.subTest(stream=os.path.basename(path), way=name):
                    movie, again = os.path.join(folder, name), os.path.join(folder, "again-" + name)
                    done = pevrin("remux", *options, *how, path, movie)
                    self.assertEqual((done.status, done.stderr), (0, ""))
                    self.assertEqual(frames_of(movie), expected)
                    self.assertEqual(pevrin("inspect", "--verify", "--samples", movie).status, 0)
                    self.assertEqual(pevrin("remux", *how, movie, again).status, 0)
                    with open(movie, "rb") as one, open(again, "rb") as other:
                        self.assertEqual(one.read(), other.read(), "a second time gives other bytes")
                    more(movie)

    def test_frames_and_times(self):
        for name in [*ENCODED, *JOINED]:
            rate = Fraction(30000, 1001) if "30000" in ENCODED.get(name, "") else Fraction(30)

            def check_times(movie):
                base, packets = packets_of(movie)
                shown = sorted(packet["pts"] * base for packet in packets)
                self.assertEqual(shown, [i / rate for i in range(len(packets))])
                decoded = [packet["dts"] * base for packet in packets]
                self.assertEqual([after - before for before, after in zip(decoded, decoded[1:])], [1 / rate] * (len(packets) - 1))
                self.assertTrue(all(packet["pts"] >= packet["dts"] for packet in packets))

            self.check(path_of(name), more=check_times)

    def test_the_many_forms_of_streams(self):
        for name in [*streams.X264, *streams.X265]:
            self.check(streams.path_of(name), 25, ways=[("a.mp4", [])])

    def test_key_frames_and_descriptions(self):
        for name, kind in (("open.h264", "avc1"), ("sizes.h264", "avc3"), ("open.hevc", "hvc1"), ("kinds.hevc", "hev1")):
            hevc = name.endswith("hevc")
            types = [(unit[0] >> 1 & 63, unit[2]) if hevc else (unit[0] & 31, unit[1]) for _, unit in streams.units(bytes_of(name))]
            pictures = [one for one, first in types if (one < 32 if hevc else one in (1, 5)) and first & 0x80]
            wanted = [16 <= one <= 21 if hevc else one == 5 for one in pictures]
            self.assertIn(False, wanted)

            def check_track(movie):
                track, = pevrin("inspect", "--json", "--samples", movie).json["tracks"]
                self.assertEqual(track["descriptions"][0]["mediaSubType"], kind)
                samples = sorted(track["samples"], key=lambda sample: sample["index"])
                self.assertEqual([sample["sync"] for sample in samples], wanted)

            self.check(path_of(name), ways=[("a.mp4", [])], more=check_track)

    def test_a_stream_that_begins_in_the_middle(self):
        """Leading pictures that refer to what is not there come before the movie's beginning."""
        data = bytes_of("open.hevc")
        units = streams.units(data)
        sets = b"".join(b"\0\0\0\1" + unit for _, unit in units if 32 <= unit[0] >> 1 <= 34)
        second = [offset for offset, unit in units if unit[0] >> 1 == 21][1]
        path = self.write(sets + b"\0\0\0\1" + data[second:])

        def check_times(movie):
            base, packets = packets_of(movie)
            shown = sorted(packet["pts"] * base for packet in packets)
            self.assertLess(shown[0], 0)
            self.assertEqual(shown, [shown[0] + Fraction(i, 30) for i in range(len(packets))])

        self.check(path, 30, ways=[("a.mp4", []), ("a.mov", [])], more=check_times)

    def test_what_is_wrong_is_told(self):
        def from_first_picture(name):
            data = bytes_of(name)
            return data[next(offset for offset, unit in streams.units(data) if unit[0] & 31 == 5) - 3:]

        no_timing = streams.with_bits("baseline.h264", {
            "timing_info_present_flag": "0", "num_units_in_tick": "", "time_scale": "", "fixed_frame_rate_flag": ""})
        clip = os.path.join(command.ROOT, "samples", "clip.mp4")
        cases = [
            (self.write(from_first_picture("described-as-fields.h264"), "no-sets"), ["--rate", "30"], 1, "no picture"),
            (self.write(b"\0\0\1\x09\x10" * 50, "delimiters"), ["--rate", "30"], 1, "no picture"),
            (self.write(no_timing, "no-timing"), [], 2, "say it with --rate"),
            (path_of("open.h264"), ["--rate", "0"], 2, "--rate: 0 is no rate"),
            (path_of("open.h264"), ["--rate", "30/0"], 2, "30/0 is no rate"),
            (clip, ["--rate", "30"], 2, "--rate is for elementary streams"),
        ]
        for path, options, status, message in cases:
            with tempfile.TemporaryDirectory() as folder:
                done = pevrin("remux", *options, path, os.path.join(folder, "a.mp4"))
                self.assertEqual((done.status, os.listdir(folder)), (status, []), done.stderr)
                self.assertIn(message, done.stderr)
        self.check(self.write(no_timing, "no-timing"), 25, ways=[("a.mp4", [])])
        late_sets = self.write(from_first_picture("open.h264"), "late-sets")
        done = pevrin("remux", late_sets, os.path.join(self.folder, "a.mp4"))
        self.assertEqual((done.status, done.stderr), (0, f"pevrin: {late_sets}: 1 picture at the beginning is left out: "
                                                         "its parameter sets are missing\n"))

    def test_streams_that_are_cut_or_bent(self):
        """Whatever stands in them, there is a whole movie or a reason; and never a hang or a crash."""
        draw = random.Random(5)
        for name in ("slices.h264", "fields.hevc"):
            data = bytes_of(name)[:30000]
            for _ in range(60):
                bent = bytearray(data[:draw.randrange(len(data))] if draw.random() < 0.5 else data)
                for _ in range(draw.randrange(1, 20)):
                    if bent:
                        bent[draw.randrange(len(bent))] = draw.randrange(256)
                with tempfile.TemporaryDirectory() as folder:
                    path, movie = self.write(bytes(bent), name), os.path.join(folder, "a.mp4")
                    done = pevrin("remux", "--rate", "30", path, movie)
                    self.assertIn(done.status, (0, 1, 2))
                    self.assertEqual(os.path.exists(movie), done.status == 0)
                    if done.status == 0:
                        self.assertEqual(pevrin("inspect", "--samples", movie).status, 0)
                    else:
                        self.assertTrue(done.stderr)

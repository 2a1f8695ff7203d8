"""Sample descriptions of movies that ffmpeg made: every fact against ffprobe, every byte written again, and movies whose
sample entries the library wrote decoded by ffmpeg."""
import json
import os
import struct
import subprocess
from fractions import Fraction

import command
import entries
from command import CommandTest, pevrin
from movies import atom, full, hdlr, mdhd, mvhd

INVALID, MALFORMED, UNSUPPORTED = -12712, -12714, -12717

# What ffprobe calls the names. Code points that have none are compared by the parameter sets' tests.
PRIMARIES = {"ITU_R_709_2": ["bt709"], "EBU_3213": ["bt470bg"], "SMPTE_C": ["smpte170m"], "DCI_P3": ["smpte431"],
             "P3_D65": ["smpte432"], "ITU_R_2020": ["bt2020"]}
TRANSFERS = {"ITU_R_709_2": ["bt709", "smpte170m"], "SMPTE_240M_1995": ["smpte240m"], "ITU_R_2020": ["bt2020-10"]}
MATRICES = {"ITU_R_709_2": ["bt709"], "ITU_R_601_4": ["smpte170m"], "SMPTE_240M_1995": ["smpte240m"],
            "ITU_R_2020": ["bt2020nc"]}
IN_WORDS = {"ITU_R_709_2": "BT.709", "EBU_3213": "BT.601 PAL", "SMPTE_C": "BT.601 NTSC", "P3_D65": "Display P3",
            "ITU_R_2020": "BT.2020"}  # mediainfo's
LAYOUTS = {100: "mono", 101: "stereo", 108: "quad", 117: "5.0", 118: "5.0", 119: "5.0", 120: "5.0", 121: "5.1", 122: "5.1",
           123: "5.1", 124: "5.1", 128: "7.1", 132: "quad", 133: "2.1", 183: "7.1"}
FORMATS = {"aac": ["aac "], "ac3": ["ac-3"], "eac3": ["ec-3"], "opus": ["opus"], "flac": ["flac"], "alac": ["alac"],
           "mp3": [".mp3"], "mp2": [".mp2", ".mp3"], "amr_nb": ["samr"], "amr_wb": ["sawb"], "pcm_alaw": ["alaw"],
           "pcm_mulaw": ["ulaw"], "adpcm_ima_qt": ["ima4"], "adpcm_ms": [r"ms\x00\x02"], "adpcm_ima_wav": [r"ms\x00\x11"],
           "dts": ["mp4a"], "vorbis": ["mp4a"]}
FLOAT, BIG_ENDIAN, SIGNED = 1, 2, 4


def ffprobe(path):
    """The streams by track ID."""
    told = subprocess.run(["ffprobe", "-v", "error", "-show_streams", "-of", "json", path], capture_output=True, check=True)
    return {int(stream["id"], 0): stream for stream in json.loads(told.stdout)["streams"]}


def checksums(path):
    """Of every decoded frame, and of every subtitle."""
    done = subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-threads", "1", "-i", path, "-map", "0:v?", "-map", "0:a?", "-map", "0:s?",
         "-c:s", "copy", "-f", "framemd5", "-"], capture_output=True, text=True, check=True)
    # ffmpeg writes records of timed text as 'text', whose reserved byte is not kept
    return [line for line in done.stdout.splitlines() if not line.startswith("#extradata")]


def short(name):
    return name.split("_", 1)[1] if name.startswith("IMImageBuffer") else name


class Entries(CommandTest):
    """Over all movies of entries.py."""

    def inspect_sound(self, path):
        result = pevrin("inspect", "--json", "--verify", path)
        self.assertEqual((result.status, result.stderr), (0, ""))
        return result.json

    def test_every_entry_is_written_again_byte_for_byte(self):
        seen = set()
        for name in entries.MOVIES:
            with self.subTest(name):
                tracks = self.inspect_sound(entries.path_of(name))["tracks"]
                self.assertTrue(all(len(track["descriptions"]) == 1 for track in tracks))
                seen |= {(one["mediaType"], one["mediaSubType"]) for track in tracks for one in track["descriptions"]}
        self.assertGreater(len(seen), 40, seen)

    def test_facts_are_those_of_ffprobe(self):
        compared = {"video": 0, "audio": 0, "data": 0, "subtitle": 0}
        for name in entries.MOVIES:
            path = entries.path_of(name)
            streams = ffprobe(path)
            for track in self.inspect_sound(path)["tracks"]:
                stream = streams.get(track["id"])
                (told,) = track["descriptions"]
                if stream is None or stream["codec_type"] == "data" and track["handler"] == "text":  # chapters
                    continue
                with self.subTest(name, track=track["id"], codec=stream.get("codec_name")):
                    kind = stream["codec_type"]
                    compared[kind] += 1
                    if kind != "subtitle":
                        getattr(self, "check_" + kind)(told, stream)
                    else:
                        self.assertIn(told["mediaSubType"], ("text", "tx3g"))
        self.assertGreater(min(compared.values()), 1, compared)
        self.assertGreater(compared["video"] + compared["audio"], 110, compared)

    def check_video(self, told, stream):
        self.assertEqual(told["dimensions"], {"width": stream["width"], "height": stream["height"]})
        ratio = Fraction(stream.get("sample_aspect_ratio", "1:1").replace(":", "/"))
        spacing = told.get("pixelAspectRatio", {"horizontal": 1, "vertical": 1})
        self.assertEqual(Fraction(int(spacing["horizontal"]), int(spacing["vertical"])), ratio)
        self.assertAlmostEqual(told["presentationDimensions"]["width"], stream["width"] * float(ratio), places=4)
        self.assertEqual(told["presentationDimensions"]["height"], stream["height"])
        colour = told.get("colour", {})
        for key, names, theirs in (("primaries", PRIMARIES, "color_primaries"), ("transfer", TRANSFERS, "color_transfer"),
                                   ("matrix", MATRICES, "color_space")):
            # of ProRes ffprobe tells what the pictures say, which is nothing here; and of others what only they say
            if key in colour and stream["codec_name"] != "prores":
                self.assertIn(stream.get(theirs), names[short(colour[key])])
            elif told["mediaSubType"] in ("avc1", "hvc1", "v210", "2vuy"):
                self.assertNotIn(stream.get(theirs), sum(names.values(), []))
        if "fullRange" in colour:
            self.assertEqual("pc" if colour["fullRange"] else "tv", stream.get("color_range", "tv"))
        if "IMFieldCount" in told["extensions"] and stream.get("field_order", "unknown") != "unknown":
            progressive = told["extensions"]["IMFieldCount"] == 1
            self.assertEqual(progressive, stream["field_order"] == "progressive")
            order = {"tt": "TemporalTopFirst", "bb": "TemporalBottomFirst", "tb": "SpatialFirstLineEarly",
                     "bt": "SpatialFirstLineLate"}.get(stream["field_order"])
            self.assertEqual(told["extensions"].get("IMFieldDetail"), order)

    def check_audio(self, told, stream):
        audio = told["audio"]
        self.assertEqual(audio["sampleRate"], int(stream["sample_rate"]))
        codec, bits = stream["codec_name"], audio["bitsPerChannel"]
        if codec != "mp3":  # its records always say 2, and ffprobe asks the samples
            self.assertEqual(audio["channels"], stream["channels"])
        if audio["formatID"] == "lpcm":
            flags = audio["formatFlags"]
            letter = "f" if flags & FLOAT else "s" if flags & SIGNED else "u"
            order = "" if bits == 8 else "be" if flags & BIG_ENDIAN else "le"
            self.assertEqual(f"pcm_{letter}{bits}{order}", codec)
            self.assertEqual(audio["bytesPerFrame"], bits // 8 * audio["channels"])
            self.assertEqual((audio["bytesPerPacket"], audio["framesPerPacket"]), (audio["bytesPerFrame"], 1))
        else:
            self.assertIn(audio["formatID"], FORMATS[codec])
        if codec in ("alac", "flac"):
            self.assertEqual({1: "16", 2: "20", 3: "24", 4: "32"}[audio["formatFlags"]], stream["bits_per_raw_sample"])
        tag = audio.get("channelLayoutTag")
        if tag and tag & 0xFFFF and "channel_layout" in stream:  # else it is a bitmap
            self.assertEqual(tag & 0xFFFF, stream["channels"])
            self.assertEqual(LAYOUTS[tag >> 16], stream["channel_layout"].split("(")[0])

    def check_data(self, told, stream):
        timecode = told["timecode"]
        drop = ";" in stream["tags"]["timecode"]
        self.assertEqual(timecode["flags"] & 1, drop)
        rate = Fraction(timecode["frameDuration"]["timescale"], timecode["frameDuration"]["value"])
        self.assertEqual(rate, Fraction(stream["avg_frame_rate"]))
        self.assertEqual(timecode["frameQuanta"], -(-rate.numerator // rate.denominator))
        self.assertEqual(timecode.get("sourceName"), stream["tags"].get("reel_name"))

    def test_facts_are_those_of_mediainfo(self):
        """It goes by the records where ffprobe goes by the samples. Some things it does not tell."""
        compared = 0
        paths = [entries.path_of(name) for name in entries.MOVIES]
        done = subprocess.run(["mediainfo", "--Output=JSON", *paths], capture_output=True, check=True)
        for path, movie in zip(paths, json.loads(done.stdout)):
            known = {track["id"]: track["descriptions"][0] for track in self.inspect_sound(path)["tracks"]}
            for track in movie["media"]["track"]:
                told = known.get(int(track.get("ID", "0")), {})
                facts, theirs = self.shared_facts(told, track)
                with self.subTest(os.path.basename(path), track=track.get("ID")):
                    self.assertEqual(facts, theirs)
                    compared += len(facts)
        self.assertGreater(compared, 400)

    def shared_facts(self, told, track):
        """What both say, in the words of mediainfo."""
        facts = {}
        if "dimensions" in told:
            facts = {"Width": told["dimensions"]["width"], "Height": told["dimensions"]["height"]}
            if ratio := told.get("pixelAspectRatio"):
                facts["PixelAspectRatio"] = int(ratio["horizontal"] / ratio["vertical"] * 1000 + 0.5) / 1000
            primaries = short(told.get("colour", {}).get("primaries", ""))
            if primaries in IN_WORDS:
                facts["colour_primaries"] = IN_WORDS[primaries]
        elif "audio" in told:
            audio = told["audio"]
            facts = {"SamplingRate": audio["sampleRate"]}
            if audio["formatID"] != ".mp3":
                facts["Channels"] = audio["channels"]
            if audio["formatID"] == "lpcm":
                facts["BitDepth"] = audio["bitsPerChannel"]
                if audio["bitsPerChannel"] > 8:
                    facts["Format_Settings_Endianness"] = "Big" if audio["formatFlags"] & BIG_ENDIAN else "Little"
        elif "timecode" in told:
            frame = told["timecode"]["frameDuration"]
            facts = {"FrameRate": round(frame["timescale"] / frame["value"], 3)}
            track["drop"] = ";" in track["TimeCode_FirstFrame"]
            facts["drop"] = bool(told["timecode"]["flags"] & 1)
        facts = {key: value for key, value in facts.items() if key in track}
        return facts, {key: type(value)(track[key]) for key, value in facts.items()}

    def test_entries_that_the_library_writes_are_read_alike(self):
        build = os.path.dirname(os.path.dirname(command.PEVRIN))
        respell = os.path.join(build, "tests", "respell")
        # which tells whether two channel layouts mean the same
        service = {"PEVRIN_TONVIK_PATH": os.path.join(build, "platform", "tonvik", "libtonvik.so")}
        for name in entries.MOVIES:
            with self.subTest(name):
                path, copy = entries.path_of(name), os.path.join(self.folder, name)
                done = subprocess.run([respell, path, copy], capture_output=True, text=True, env={**os.environ, **service})
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.inspect_sound(copy)
                before, after = ffprobe(path), ffprobe(copy)
                for stream in [*before.values(), *after.values()]:
                    # other spellings of the same
                    for key in ("codec_tag", "codec_tag_string", "extradata_size"):
                        stream.pop(key, None)
                self.assertEqual(after, before)
                self.assertEqual(checksums(copy), checksums(path))


def movie(*tracks, brand=b"qt  "):
    """Tracks are (handler, entry, ...)."""
    moov = atom("moov", mvhd(), *(
        atom("trak", atom("mdia", mdhd(600, 600), hdlr(kind), atom("minf", atom(
            "stbl", full("stsd", 0, struct.pack(">I", len(all_of)), *all_of)))))
        for kind, *all_of in tracks))
    return (atom("ftyp", brand) if brand else b"") + moov


def entry(kind, *data):
    return atom(kind, bytes(6), b"\0\1", *data)


class Built(CommandTest):
    """Small movies written byte by byte."""

    PICTURE = entry("jpeg", bytes(16), struct.pack(">HHIIIH", 64, 48, 72 << 16, 72 << 16, 0, 1), bytes(32), b"\0\x18\xff\xff")
    VOICE = entry("twos", bytes(8), struct.pack(">HHHHI", 1, 16, 0, 0, 8000 << 16))
    COUNT = entry("tmcd", bytes(4), struct.pack(">IIIBB", 0, 600, 25, 24, 0))

    def test_a_damaged_entry_hides_nothing_else(self):
        for name, handler, bad, status in (
            ("an atom past the end", "soun",
             entry("twos", bytes(8), struct.pack(">HHHHI", 1, 16, 0, 0, 8000 << 16), b"\0\0\0\x40wave"), MALFORMED),
            ("a version that is not known", "soun", self.VOICE[:16] + b"\0\7" + self.VOICE[18:], MALFORMED),
            ("no room for the fields", "tmcd", entry("tmcd", bytes(8)), INVALID),
            ("another kind", "tmcd", entry("tmcx", bytes(40)), INVALID),
            ("not known", "subt", entry("stpp", b"\0\0\0"), UNSUPPORTED),
            ("a picture cut short", "vide", entry("jpeg", bytes(60)), MALFORMED),
        ):
            with self.subTest(name):
                data = movie(("vide", self.PICTURE), (handler, bad), ("soun", self.VOICE))
                told = self.inspect(data, 1)
                kinds = [[one["mediaSubType"] for one in track["descriptions"]] for track in told["tracks"]]
                self.assertEqual((kinds[0], kinds[2]), (["jpeg"], ["lpcm"]))
                error = told["errors"][-1]
                self.assertEqual((error["status"], error["offset"]), (status, data.rindex(bad)))
                self.assertTrue(error["path"].startswith("moov/trak[2]/mdia/minf/stbl/stsd/"), error)

    def test_a_track_may_have_several(self):
        told = self.inspect(movie(("vide", self.PICTURE, self.PICTURE), ("hint", entry("rtp ")), ("tmcd", self.COUNT)), 0)
        self.assertEqual([one["dimensions"]["width"] for one in told["tracks"][0]["descriptions"]], [64, 64])
        self.assertEqual(told["tracks"][1]["descriptions"], [{"mediaType": "hint", "mediaSubType": "rtp "}])
        (timecode,) = told["tracks"][2]["descriptions"]
        self.assertEqual(timecode["timecode"], {"frameDuration": {"value": 25, "timescale": 600}, "frameQuanta": 24, "flags": 0})

    def test_the_brand_tells_the_flavour(self):
        for brand, key in ((b"qt  ", "VerbatimSampleDescription"), (b"", "VerbatimSampleDescription"),
                           (b"isom", "VerbatimISOSampleEntry"), (b"3gp6", "VerbatimISOSampleEntry")):
            told = self.inspect(movie(("vide", self.PICTURE), brand=brand), 0)
            self.assertEqual(told["tracks"][0]["descriptions"][0]["extensions"][key], self.PICTURE.hex(), brand)

    def test_entries_that_are_too_many_or_too_large(self):
        many = self.inspect(movie(("tmcd", *[self.COUNT] * 1200)), 1)
        self.assertEqual(len(many["tracks"][0]["descriptions"]), 1000)
        (error,) = many["errors"]
        self.assertEqual(error["path"], "moov/trak/mdia/minf/stbl/stsd/tmcd[1001]")
        large = entry("jpeg", self.PICTURE[16:], atom("skip", bytes(17 << 20)))
        result = pevrin("inspect", "--json", self.write(movie(("vide", large), ("soun", self.VOICE))))
        self.assertEqual(([len(track["descriptions"]) for track in result.json["tracks"]], len(result.json["errors"])),
                         ([0, 0], 1))
        self.assertLess(len(result.stdout), 10_000)

    def test_bytes_that_would_be_written_otherwise_are_reported(self):
        """A caption record is not remembered: what stands behind its atoms is lost."""
        caption = entry("c608", b"\0\0\0\0")
        path = self.write(movie(("clcp", caption), ("soun", self.VOICE)))
        self.assertEqual(pevrin("inspect", path).status, 0)
        result = pevrin("inspect", "--json", "--verify", path)
        (error,) = result.json["errors"]
        with open(path, "rb") as file:
            place = file.read().index(caption)
        self.assertEqual((result.status, error["path"]), (1, "moov/trak[1]/mdia/minf/stbl/stsd/c608"))
        self.assertTrue(place <= error["offset"] <= place + len(caption), error)
        self.assertIn("written again", error["message"])

    def test_the_text(self):
        text = pevrin("inspect", self.write(movie(("vide", self.PICTURE), ("soun", self.VOICE), ("tmcd", self.COUNT)))).stdout
        for line in (" jpeg  64 x 48, shown as 64 x 48\n", " twos  PCM of 16 bits big-endian, 8000 Hz, 1 channel\n",
                     " tmcd  a frame is 25/600 of a second, 24 frames count as a second, non-drop frame\n"):
            self.assertIn(line, text.decode())

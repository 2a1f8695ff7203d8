"""Parameter sets of elementary streams and movies: every fact against ffmpeg's trace_headers and ffprobe, and damage."""
import collections
import random
import struct
from fractions import Fraction

import streams
from command import CommandTest, pevrin, pevrin_measured
from movies import atom, flat, full, hdlr, mdhd, mvhd, read_atoms

INVALID, UNREADABLE, NOT_ENOUGH, OUT_OF_BOUNDS = -12712, -12714, -12893, -12891
RATIOS = dict(zip(range(1, 17), map(Fraction, streams.RATIOS)))  # Table E-1

# What ffprobe calls the numbers (Tables E-3, E-4, E-5, Figure E-1, Annex A). What it does not name it leaves out.
PRIMARIES = {"bt709": 1, "bt470m": 4, "bt470bg": 5, "smpte170m": 6, "smpte240m": 7, "film": 8, "bt2020": 9, "smpte428": 10,
             "smpte431": 11, "smpte432": 12, "ebu3213": 22}
TRANSFERS = {"bt709": 1, "bt470m": 4, "bt470bg": 5, "smpte170m": 6, "smpte240m": 7, "linear": 8, "log100": 9, "log316": 10,
             "iec61966-2-4": 11, "bt1361e": 12, "iec61966-2-1": 13, "bt2020-10": 14, "bt2020-12": 15, "smpte2084": 16,
             "smpte428": 17, "arib-std-b67": 18}
MATRICES = {"gbr": 0, "bt709": 1, "fcc": 4, "bt470bg": 5, "smpte170m": 6, "smpte240m": 7, "ycgco": 8, "bt2020nc": 9,
            "bt2020c": 10, "smpte2085": 11, "chroma-derived-nc": 12, "chroma-derived-c": 13, "ictcp": 14}
LOCATIONS = {"left": 0, "center": 1, "topleft": 2, "top": 3, "bottomleft": 4, "bottom": 5}
PROFILES = {"Constrained Baseline": 66, "Main": (77, 1), "Extended": 88, "High": 100, "High 10": 110, "High 10 Intra": 110,
            "High 4:2:2": 122, "High 4:4:4 Predictive": 244, "CAVLC 4:4:4": 44, "Multiview High": 118, "Main 10": 2,
            "Main Still Picture": 3, "Rext": 4}
FACTS = {"profile", "level", "id", "width", "height", "interlaced", "frameRate", "pixelAspectRatio", "colour", "fullRange",
         "chromaLocation"}


TYPES = {"h264": {"sps": 7, "pps": 8}, "hevc": {"vps": 32, "sps": 33, "pps": 34}}


def unit_type(codec, unit):
    return unit[0] & 31 if codec == "h264" else unit[0] >> 1


def single(number):
    """As 32 bits of floating point hold it."""
    return struct.unpack("f", struct.pack("f", number))[0]


def usability(v, ticks_per_picture, prefix=""):
    """The facts of Annex E that both standards write alike."""
    facts = {}
    if v.get("aspect_ratio_info_present_flag") and v["aspect_ratio_idc"] in (255, *RATIOS):
        coded = v["aspect_ratio_idc"] == 255
        ratio = Fraction(v["sar_width"], v["sar_height"]) if coded else RATIOS[v["aspect_ratio_idc"]]
        pair = (v["sar_width"], v["sar_height"]) if coded else (ratio.numerator, ratio.denominator)
        facts["pixelAspectRatio"] = {"horizontal": pair[0], "vertical": pair[1]}
    if v.get("video_signal_type_present_flag"):
        facts["fullRange"] = bool(v["video_full_range_flag"])
        if v["colour_description_present_flag"]:
            keys = ("colour_primaries", "transfer_characteristics", "matrix_coefficients")
            facts["colour"] = dict(zip(("primaries", "transfer", "matrix"), (v[key] for key in keys)))
    if v.get("chroma_loc_info_present_flag"):
        keys = ("chroma_sample_loc_type_top_field", "chroma_sample_loc_type_bottom_field")
        facts["chromaLocation"] = dict(zip(("topField", "bottomField"), (v[key] for key in keys)))
    if v.get(prefix + "timing_info_present_flag"):
        rate = v[prefix + "time_scale"] / v[prefix + "num_units_in_tick"]
        facts["frameRate"] = single(rate / ticks_per_picture)
    return facts


def h264_facts(v):
    frames = v["frame_mbs_only_flag"]
    chroma = v.get("chroma_format_idc", 1)
    width = 16 * (v["pic_width_in_mbs_minus1"] + 1)
    height = 16 * (v["pic_height_in_map_units_minus1"] + 1) * (2 - frames)
    if v["frame_cropping_flag"] and chroma:  # monochrome pictures are never cropped
        crop = lambda a, b: v[f"frame_crop_{a}_offset"] + v[f"frame_crop_{b}_offset"]
        width -= crop("left", "right") * {1: 2, 2: 2, 3: 1}[chroma]
        height -= crop("top", "bottom") * {1: 2, 2: 1, 3: 1}[chroma] * (2 - frames)
    # two ticks a frame; one when pictures are fields whose order the set lays out
    fields = not (frames or v["mb_adaptive_frame_field_flag"] or v.get("pic_struct_present_flag")) \
        and v["pic_order_cnt_type"] == 1
    return {"profile": v["profile_idc"], "level": v["level_idc"], "id": v["seq_parameter_set_id"], "width": width,
            "height": height, "interlaced": not frames, **usability(v, 1 if fields else 2)}


def hevc_facts(v):
    chroma = v["chroma_format_idc"]
    crop = lambda a, b: v.get(f"conf_win_{a}_offset", 0) + v.get(f"conf_win_{b}_offset", 0)
    return {"profile": v["general_profile_idc"], "level": v["general_level_idc"], "id": v["sps_seq_parameter_set_id"],
            "width": v["pic_width_in_luma_samples"] - crop("left", "right") * (2 if chroma in (1, 2) else 1),
            "height": v["pic_height_in_luma_samples"] - crop("top", "bottom") * (2 if chroma == 1 else 1),
            "interlaced": bool(v.get("field_seq_flag") or
                               v["general_interlaced_source_flag"] and not v["general_progressive_source_flag"]),
            **usability(v, 1, "vui_")}  # pictures, of one tick each


def expected(one):
    v = one["values"]
    codec = "hevc" if "nuh_layer_id" in v else "h264"
    entry = {"kind": one["kind"], "codec": codec}
    if one["kind"] == "vps":
        return {**entry, "id": v["vps_video_parameter_set_id"]}
    if one["kind"] == "sps":
        return {**entry, **(h264_facts if codec == "h264" else hevc_facts)(v)}
    ids = ("pic_parameter_set_id", "seq_parameter_set_id")
    own, other = ids if codec == "h264" else ["pps_" + name for name in ids]
    return {**entry, "id": v[own], "spsId": v[other]}


def told_by_ffprobe(stream):
    """Facts with the values that ours may have."""
    facts = {key: stream[key] for key in ("level", "width", "height")}
    facts["profile"] = PROFILES[stream["profile"]]
    if "sample_aspect_ratio" in stream:
        facts["pixelAspectRatio"] = Fraction(stream["sample_aspect_ratio"].replace(":", "/"))
    for key, name, numbers in (("primaries", "color_primaries", PRIMARIES), ("transfer", "color_transfer", TRANSFERS),
                               ("matrix", "color_space", MATRICES), ("chromaLocation", "chroma_location", LOCATIONS),
                               ("fullRange", "color_range", {"pc": True, "tv": False})):
        if name in stream:
            facts[key] = numbers[stream[name]]
    if stream.get("field_order") in ("tt", "bb"):  # it may call a stream progressive whose pictures may be fields
        facts["interlaced"] = True
    facts["frameRate"] = Fraction(stream["r_frame_rate"])
    return facts


class Variety(CommandTest):
    def inspected(self, name):
        result = pevrin("inspect", "--json", streams.path_of(name))
        self.assertEqual((result.status, result.stderr, result.json["errors"]), (0, "", []), name)
        return result.json

    def check_places(self, name, sets):
        data = streams.bytes_of(name)
        for one in sets:
            at = one.pop("offset")
            self.assertEqual(unit_type(one["codec"], data[at:]), TYPES[one["codec"]][one["kind"]])
            if name in streams.STREAMS:
                self.assertEqual(data[at - 3 : at], b"\0\0\1")

    def test_facts_are_those_of_trace_headers(self):
        compared = collections.Counter()
        for name in [*streams.STREAMS, *streams.MOVIES]:
            with self.subTest(name):
                told = self.inspected(name)
                sets = told["parameterSets"]
                self.check_places(name, sets)
                if name in streams.MOVIES:
                    records = ["/".join(path) for path, _ in flat(told["atoms"]) if path[-1] in ("avcC", "hvcC")]
                    self.assertEqual(len(records), len(streams.MOVIES[name][0]))
                    for one in sets:
                        self.assertIn(one.pop("path").replace("trak[1]", "trak").replace("trak[2]", "trak"), records)
                else:
                    self.assertEqual(sorted(told), ["errors", "file", "parameterSets", "size"])
                wanted = [expected(one) for one in streams.traced(name)]
                for one in sets:
                    if "frameRate" in one:
                        one["frameRate"] = single(one["frameRate"])
                self.assertEqual(sets, wanted)
                for one in wanted:
                    compared.update((one["codec"], one["kind"], key) for key in one)
        for codec in ("h264", "hevc"):
            for fact in FACTS:
                self.assertGreater(compared[codec, "sps", fact], 20, (codec, fact))
            self.assertGreater(compared[codec, "pps", "spsId"], 20)
        self.assertGreater(compared["hevc", "vps", "id"], 20)

    def test_facts_are_those_of_ffprobe(self):
        compared = collections.Counter()
        for name in streams.STREAMS:
            with self.subTest(name):
                sets = self.inspected(name)["parameterSets"]
                ours = next(one for one in sets if one["kind"] == "sps")
                ours.update(ours.get("colour", {}))
                ours["chromaLocation"] = ours.get("chromaLocation", {"topField": 0})["topField"]  # inferred
                if "pixelAspectRatio" in ours:
                    ours["pixelAspectRatio"] = Fraction(*ours["pixelAspectRatio"].values())
                theirs = told_by_ffprobe(streams.probed(name)[0])
                if name == "monochrome-cropped.h264":
                    self.assertLess((theirs.pop("width"), theirs.pop("height")), (ours["width"], ours["height"]))
                if theirs.get("frameRate") == 1200000:  # its limit
                    self.assertGreater(ours["frameRate"], theirs.pop("frameRate"))
                for fact, value in theirs.items():
                    if fact == "frameRate":
                        self.assertAlmostEqual(ours[fact], float(value), delta=float(value) * 1e-6)
                    elif fact == "fullRange" and fact not in ours:
                        self.assertFalse(value, "inferred")
                        continue
                    else:
                        self.assertIn(ours[fact], value if isinstance(value, tuple) else (value,), fact)
                    compared[fact] += 1
        for fact in FACTS - {"id", "colour"} | {"primaries", "transfer", "matrix"}:
            self.assertGreater(compared[fact], 3, fact)

    def test_the_streams_are_what_their_names_say(self):
        """The comparisons above are worth little when an encoder stops writing what it is asked for."""
        seen = collections.defaultdict(set)
        for name in streams.STREAMS:
            for one in streams.traced(name):
                for key, value in one["values"].items():
                    seen[key].add(value)
        for key, values in {
            "aspect_ratio_idc": [*range(1, 17), 255],
            "profile_idc": [44, 66, 77, 88, 100, 110, 118, 122, 244],
            "general_profile_idc": [1, 2, 3, 4],
            "colour_primaries": streams.PRIMARIES,
            "transfer_characteristics": streams.TRANSFERS,
            "matrix_coefficients": [0, *streams.MATRICES],
            "chroma_sample_loc_type_top_field": range(6),
            "chroma_format_idc": range(4),
            "level_idc": streams.LEVELS["h264"],
            "general_level_idc": streams.LEVELS["hevc"],
        }.items():
            self.assertLessEqual(set(values), seen[key], key)
        for flag in ("frame_mbs_only mb_adaptive_frame_field pic_struct_present fixed_frame_rate field_seq video_full_range "
                     "nal_hrd_parameters_present seq_scaling_matrix_present general_interlaced_source "
                     "bottom_field_pic_order_in_frame_present default_display_window scaling_list_enabled pcm_enabled "
                     "long_term_ref_pics_present").split():
            self.assertEqual(seen[flag + "_flag"], {0, 1}, flag)
        self.assertLessEqual({0, 7, 31}, seen["seq_parameter_set_id"])
        self.assertEqual({0, 1, 2}, seen["pic_order_cnt_type"])
        self.assertIn(1, seen["inter_ref_pic_set_prediction_flag"])
        self.assertLessEqual({0, 1}, seen["sps_max_sub_layers_minus1"])
        fields = streams.traced("fields.h264")[0]["values"]
        self.assertEqual([fields[f] for f in ("mb_adaptive_frame_field_flag", "pic_struct_present_flag")], [0, 0])


def set_of(name, kind="sps"):
    """The bytes of the first set of the kind."""
    codec = name.split(".")[1]
    units = (unit for _, unit in streams.units(streams.bytes_of(name)))
    return next(unit for unit in units if unit_type(codec, unit) == TYPES[codec][kind])


START, LONG_START = b"\0\0\1", b"\0\0\0\1"
AVC, HEVC = "high.h264", "main10.hevc"


class Streams(CommandTest):
    """Streams put together byte by byte."""

    def sets(self, data, name="clip.h264", status=0):
        told = self.inspect(data, status, name)
        self.assertNotIn("atoms", told)
        return [(one["kind"], one["id"], one["offset"]) for one in told["parameterSets"]]

    def error(self, data, name="clip.h264"):
        errors = self.inspect(data, 1, name)["errors"]
        self.assertEqual(len(errors), 1, errors)
        self.assertEqual(errors[0]["path"], "")
        return errors[0]["offset"], errors[0]["status"], errors[0]["message"]

    def test_start_codes_of_both_lengths_and_zeros_around_them(self):
        sps, pps = set_of(AVC), set_of(AVC, "pps")
        for before in (b"", b"\0", bytes(1000)):
            for code in (START, LONG_START):
                head = before + code
                data = head + sps + code + pps + bytes(3)
                self.assertEqual(self.sets(data), [("sps", 0, len(head)), ("pps", 0, len(head + sps + code))])

    def test_start_codes_at_the_ends_of_buffers(self):
        """However the pieces lie, they are found once, and where they are."""
        sps, pps = set_of("main.hevc"), set_of("main.hevc", "pps")
        slice_header = bytes([0x26, 1])
        for window in (1 << 18, (1 << 19) - 4):
            for shift in range(-8, 9):
                for filler in (b"\xff", b"\0"):
                    head = START + sps + START + slice_header
                    head += filler * (window + shift - len(head))
                    self.assertEqual(self.sets(head + START + pps, "clip.hevc"),
                                     [("sps", 0, 3), ("pps", 0, len(head) + 3)], (window, shift))

    def test_a_set_is_listed_once_and_again_when_it_changes(self):
        one, other = set_of(AVC), set_of("high10.h264")
        data = b"".join(START + unit for unit in (one, one, other, one, other))
        self.assertEqual(self.sets(data), [("sps", 0, 3), ("sps", 0, 3 + 2 * (3 + len(one)))])

    def test_what_kind_of_file_it_is(self):
        avc, hevc = streams.bytes_of(AVC), streams.bytes_of(HEVC)
        movie = streams.bytes_of("high.mp4")
        for name in ("clip", "clip.h264", "clip.HEVC", "clip.mp4", "clip.bin"):
            with self.subTest(name):
                for data, codec in ((avc, "h264"), (hevc, "hevc"), (set_of(AVC), "h264"), (set_of(HEVC), "hevc")):
                    told = self.inspect(data, 0, name)
                    self.assertEqual({one["codec"] for one in told["parameterSets"]}, {codec})
                    self.assertNotIn("atoms", told)
                self.assertEqual(self.inspect(movie, 0, name)["atoms"][0]["type"], "ftyp")
        for text in (b"good morning to you all and sundry", b"gd ", b"'M", b"hello world"):
            self.assertIn("atoms", self.inspect(text * 20, 1, "letter"), text)
        self.assertEqual(self.sets(set_of(AVC, "pps"), "pps.264"), [("pps", 0, 0)])
        self.assertEqual(self.sets(set_of(HEVC, "vps"), "anything"), [("vps", 0, 0)])

    def test_what_is_wrong_with_a_stream(self):
        sps, pps = set_of(AVC), set_of(AVC, "pps")
        sound = LONG_START + sps + LONG_START + pps
        large = bytes([0x67]) + b"\xff" * 65535
        for name, data, offset, status, words in (
            ("empty", b"", 0, NOT_ENOUGH, "the file is empty"),
            ("ends in a start code", sound + LONG_START, len(sound) + 1, UNREADABLE, "nothing follows this start code"),
            ("two start codes", START + START + sps, 0, UNREADABLE, "nothing follows this start code"),
            ("begins in the middle", b"rubbish" + sound, 0, UNREADABLE, "7 bytes, belongs to no NAL unit"),
            ("a large set", sound + START + large, len(sound) + 3, INVALID, "is 65536 bytes"),
            ("a short set", sound + START + sps[:9], len(sound) + 3, UNREADABLE, "set of 9 bytes cannot be read"),
            ("a set of a byte", sound + START + pps[:1], len(sound) + 3, UNREADABLE, "set of 1 byte cannot be read"),
            ("no set", START + b"\x65\x88" * 9, 0, INVALID, "its one NAL unit is not a parameter set"),
            ("no sets", (START + b"\x65\x88") * 9, 0, INVALID, "none of its 9 NAL units is a parameter set"),
            ("nothing but a start code", START, 0, UNREADABLE, "nothing follows this start code"),
            ("no start code", b"\x65\x88" * 9, 0, INVALID, "there is no start code in it"),
            ("a large file without one", sps + b"\xff" * 70000, 0, INVALID, "a parameter set is 65535 at most"),
        ):
            with self.subTest(name):
                self.assertEqual(self.error(data)[:2], (offset, status))
                self.assertIn(words, self.error(data)[2])
        told = self.inspect(sound + START + sps[:9], 1, "clip.h264")
        self.assertEqual([one["kind"] for one in told["parameterSets"]], ["sps", "pps"], "the rest is told")

    def test_sets_cut_at_every_byte(self):
        """What stands before the cut is told as it is; what is behind it is missing, and that is said."""
        for name in ("hrd-vbr.h264", "variant-16.h264", "variant-16.hevc", "hrd.hevc"):
            sps = set_of(name)
            (whole,) = self.inspect(sps, 0, name)["parameterSets"]
            told_sets = 0
            for cut in range(1, len(sps)):
                told = self.inspect(sps[:cut], name=name)
                for one in told["parameterSets"]:
                    told_sets += 1
                    self.assertEqual({**whole, **one}, whole)
                if not told["errors"]:
                    self.assertEqual(told["parameterSets"], [whole], f"{name} cut at {cut}")
                for error in told["errors"]:
                    self.assertEqual((error["offset"], error["status"]), (0, UNREADABLE))
            self.assertGreater(told_sets, 10 if "hevc" in name else 0, name)  # H.264 is read to its end or not at all

    def test_cropping_that_leaves_nothing(self):
        data = streams.with_bits(AVC, {"frame_crop_right_offset": "0000001000000"})
        told = self.inspect(data, 1, "clip.h264")
        self.assertEqual([error["status"] for error in told["errors"]], [UNREADABLE])
        self.assertIn("leaves no picture inside its cropping", told["errors"][0]["message"])
        self.assertNotIn("width", told["parameterSets"][0])
        self.assertEqual(told["parameterSets"][0]["chromaLocation"], {"topField": 1, "bottomField": 1})

    def test_usability_information_that_breaks_off(self):
        for name in (AVC, HEVC):
            data = streams.with_bits(name, {"chroma_sample_loc_type_top_field": "0" * 40})
            told = self.inspect(data, 1, name)
            error = told["errors"][0]
            sps = next(one for one in told["parameterSets"] if one["kind"] == "sps")
            self.assertEqual((error["offset"], error["status"]), (sps["offset"], UNREADABLE))
            self.assertIn("sequence parameter set 0 breaks off in its usability information", error["message"])
            self.assertLess({"width", "height", "fullRange"}, set(sps))
            self.assertFalse({"chromaLocation", "frameRate"} & set(sps))

    def test_random_bytes(self):
        random.seed(3)
        for name in (AVC, HEVC):
            sound = streams.bytes_of(name)[:400]
            for _ in range(150):
                data = bytearray(sound)
                for _ in range(random.randint(1, 6)):
                    data[random.randrange(len(data))] = random.choice((0, 1, 3, 0x67, 0x68, 0xFF, random.randrange(256)))
                self.inspect(bytes(data), name=name)
                self.inspect(random.randbytes(200), name=name)

    def test_long_files_take_little_memory(self):
        sps = set_of(HEVC)
        path = self.write(START + sps, "long.hevc")
        with open(path, "r+b") as file:
            file.seek(400 << 20)
            file.write(START + set_of(HEVC, "pps"))
        result = pevrin_measured("inspect", "--json", path)
        self.assertEqual((result.status, result.stderr), (0, ""))
        self.assertEqual([one["offset"] for one in result.json["parameterSets"]], [3, (400 << 20) + 3])
        self.assertLess(result.peak_kib, 24 * 1024)
        changing = b"".join(START + sps + struct.pack(">I", 0x80808080 + i) for i in range(100_000))
        result = pevrin_measured("inspect", self.write(changing, "changing.hevc"))
        self.assertEqual((result.status, result.stdout.count(b"SPS 0")), (0, 100_000))
        self.assertLess(result.peak_kib, 48 * 1024)

    def test_a_thousand_errors_are_enough(self):
        data = b"".join(START + struct.pack(">BI", 0x67, 0x80808080 + i) for i in range(1500))
        errors = self.inspect(data, 1, "clip.h264")["errors"]
        self.assertEqual(len(errors), 1001)
        self.assertEqual(errors[-1]["message"], "500 more things are wrong and not listed")

    def test_the_text(self):
        for name, lines in {
            AVC: ["SPS 0  High, level 1: 70 x 54, progressive, 23.976 frames per second\n",
                  "pixel aspect ratio 40:33, chroma location 1 (center)\n", "PPS 0  refers to SPS 0\n"],
            "main.h264": ["SPS 7  Main, level 1: 66 x 50, progressive, 29.97 frames per second\n", "refers to SPS 7\n"],
            "level-1b.h264": ["Constrained Baseline, level 1b: 62 x 46"],
            "fields.h264": ["64 x 60, interlaced, 25 frames per second\n"],
            "high10-intra.h264": ["High 10 Intra, level 1.1: ",
                                  "colour BT.2020 primaries, BT.2020 matrix, limited range\n"],
            "main444-12.hevc": ["Format Range Extensions, level 5.1 high tier: 65 x 65"],
            "top-first.hevc": ["Main, level 1: fields of 64 x 64, interlaced, 50 fields per second\n"],
            "variant-0.hevc": ["colour BT.709, limited range\n", "HEVC parameter set\n"],
            "two-tracks.mp4": ["H.264 parameter set in moov/trak[1]/mdia/minf/stbl/stsd/avc1/avcC\n",
                               "HEVC parameter set in moov/trak[2]/mdia/minf/stbl/stsd/hev1/hvcC\n"],
        }.items():
            text = pevrin("inspect", streams.path_of(name)).stdout.decode()
            for line in lines:
                self.assertIn(line, text, name)


NO_COLOUR_TABLE = bytes(76) + b"\xff\xff"


class Records(CommandTest):
    """Configuration records in sample entries."""

    def avcc(self, *sets, count=None, version=1, pps=()):
        entries = lambda units: b"".join(struct.pack(">H", len(unit)) + unit for unit in units)
        head = bytes([version, 77, 0, 30, 0xFF, 0xE0 | (len(sets) if count is None else count)])
        return atom("avcC", head + entries(sets) + bytes([len(pps)]) + entries(pps))

    def movie(self, *atoms, entry="avc1", fields=78):
        stsd = full("stsd", 0, struct.pack(">I", 1), atom(entry, NO_COLOUR_TABLE[:fields], *atoms))
        media = atom("mdia", mdhd(25, 25), hdlr("vide"), atom("minf", atom("stbl", stsd)))
        return atom("ftyp", b"qt  ") + atom("moov", mvhd(), atom("trak", media))

    def test_entries_are_entered(self):
        sps, pps = set_of("main.h264"), set_of("main.h264", "pps")
        record = self.avcc(sps, pps=[pps])
        for name, data in {
            "plain": self.movie(record),
            "QuickTime's zeros": self.movie(record, bytes(4)),
            "others around it": self.movie(atom("pasp", bytes(8)), record, atom("colr", b"nclx" + bytes(7))),
            "protected": self.movie(record, atom("sinf", atom("frma", b"avc1")), entry="encv"),
        }.items():
            with self.subTest(name):
                told = self.inspect(data, 0)
                self.assertEqual(told["atoms"], read_atoms(data))
                self.assertEqual([(one["kind"], one["id"]) for one in told["parameterSets"]], [("sps", 7), ("pps", 7)])
                at = data.index(sps)
                self.assertEqual(told["parameterSets"][0]["offset"], at)
                self.assertRegex(told["parameterSets"][0]["path"], "^moov/trak/mdia/minf/stbl/stsd/(avc1|encv)/avcC$")
        unknown = self.inspect(self.movie(record, entry="raw "), 0)
        self.assertEqual(unknown["parameterSets"], [])

    def test_what_is_wrong_with_a_record(self):
        sps, pps = set_of("main.h264"), set_of("main.h264", "pps")
        sound = self.avcc(sps, pps=[pps])
        place = self.movie(sound).index(sound)
        malformed, slice_unit = "malformed or cut short", b"\x65\x88"
        for name, record, offset, status, words, kinds in (
            ("empty", atom("avcC"), 0, INVALID, "of 0 bytes is " + malformed, []),
            ("other version", self.avcc(sps, version=2), 0, INVALID, malformed, []),
            ("more sets promised", self.avcc(sps, count=31), 0, INVALID, malformed, []),
            ("a short set", self.avcc(sps[:8], pps=[pps]), 16, UNREADABLE, "of 8 bytes cannot be read", ["pps"]),
            ("a set of no bytes", self.avcc(b"", pps=[pps]), 16, INVALID, "entry 1 of the record, of 0 bytes,", ["pps"]),
            ("a slice", self.avcc(sps, slice_unit, pps=[pps]), 18 + len(sps), INVALID, "entry 2 of", ["sps", "pps"]),
            ("a short hvcC", atom("hvcC", bytes([1]) * 22), 0, INVALID, malformed, []),
        ):
            with self.subTest(name):
                told = self.inspect(self.movie(record), 1)
                (error,) = told["errors"]
                self.assertEqual((error["offset"], error["status"]), (place + offset, status))
                self.assertIn(words, error["message"])
                self.assertRegex(error["path"], "^moov/trak/mdia/minf/stbl/stsd/avc1/(avcC|hvcC)$")
                self.assertEqual([one["kind"] for one in told["parameterSets"]], kinds)

    def test_entries_that_are_too_short(self):
        for data, path in (
            (self.movie(fields=77), "moov/trak/mdia/minf/stbl/stsd/avc1"),
            (atom("moov", atom("trak", atom("mdia", atom("minf", atom("stbl", atom("stsd", bytes(7))))))),
             "moov/trak/mdia/minf/stbl/stsd"),
        ):
            error = self.error_of(data)
            self.assertEqual((error["path"], error["status"]), (path, OUT_OF_BOUNDS))
            self.assertIn("too few", error["message"])

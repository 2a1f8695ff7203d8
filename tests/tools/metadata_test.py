"""What inspect says of metadata: against ffprobe's tags, and against atoms whose meaning the standards tell."""
import json
import os
import struct
import subprocess

import media
from command import CommandTest, pevrin
from movies import atom, full, mvhd

TYPE = "xq.metadata.datatype."
HDLR = {kind: full("hdlr", 0, bytes(4), kind.encode(), bytes(13)) for kind in ("mdir", "mdta", "ID32")}


def movie(*parts):
    return atom("ftyp", b"isom", bytes(4)) + atom("moov", mvhd(), *parts)


def value(number, data):
    return atom("data", struct.pack(">II", number, 0), data)



class Metadata(CommandTest):
    def items(self, data, status=0):
        told = self.inspect(data, status)
        return told["metadata"], told["errors"]

    def test_tags_that_ffprobe_sees_too(self):
        names = {"itsk/%A9nam": "title", "itsk/%A9ART": "artist", "itsk/%A9gen": "genre", "mdta/shade": "shade", "udta/%A9nam": "title",
                 "udta/%A9xyz": "location", "udta/%A9cmt": "comment", "udta/%A9des": "comment", "udta/%A9swr": "encoder"}
        tagged = os.path.join(self.folder, "tagged.mov")
        subprocess.run(["ffmpeg", "-v", "error", "-i", media.path_of("tags.mp4"), "-c", "copy", "-metadata", "title=\u00c9t\u00e9 \u2603",
                        "-metadata", "comment=c", "-metadata", "location=+48.8+002.2/", tagged], check=True)
        for path, count in ((media.path_of("tags.mp4"), 3), (media.path_of("any-tags.mov"), 1), (tagged, 5)):
            probed = json.loads(subprocess.run(["ffprobe", "-v", "error", "-show_entries", "format_tags", "-of", "json", path],
                                               capture_output=True, check=True).stdout)["format"]["tags"]
            told = pevrin("inspect", "--json", path).json["metadata"]
            self.assertGreaterEqual(len(told), count)
            for item in told:
                if item["identifier"] in names:
                    self.assertEqual(item["value"], probed[names[item["identifier"]]], path)
            self.assertGreaterEqual(sum(item["identifier"] in names for item in told), count)
        told, = pevrin("inspect", "--json", media.path_of("phone.3gp")).json["metadata"]  # which ffprobe does not look for
        self.assertEqual(told, {"identifier": "uiso/titl", "dataType": TYPE + "UTF-8", "value": "Name"})

    def test_values_by_their_type(self):
        cases = [
            (1, "\u00e9t\u00e9".encode(), "UTF-8", "\u00e9t\u00e9"),
            (1, b"\xff", "UTF-8", "ff"),
            (2, "\u2603".encode("utf-16-be"), "UTF-16", "\u2603"), (2, b"\xff\xfea\0", "UTF-16", "a"), (2, b"\xfe\xff\0a", "UTF-16", "a"),
            (4, b"Name, The", "UTF-8-sort", "Name, The"), (5, "\u2603".encode("utf-16-be"), "UTF-16-sort", "\u2603"),
            (0, b"\1\2", "raw-data", "0102"),
            (13, b"\xff\xd8", "JPEG", "ffd8"),
            (21, b"\xfe", "int8", -2), (21, b"\xff\xfe", "int16", -2), (21, b"\0\0\0\7", "int32", 7),
            (21, b"\x80" + bytes(7), "int64", -(1 << 63)), (21, b"\1\2\3", "raw-data", "010203"),
            (22, b"\xfe", "uint8", 254), (22, b"\xff" * 8, "uint64", (1 << 64) - 1),
            (23, struct.pack(">f", 0.5), "float32", 0.5), (24, struct.pack(">d", -1e300), "float64", -1e300),
            (23, b"\1", "float32", "01"),
            (65, b"\x80", "int8", -128), (66, b"\0\1", "int16", 1), (67, b"\xff" * 4, "int32", -1), (74, bytes(8), "int64", 0),
            (75, b"\x80", "uint8", 128), (76, b"\1\0", "uint16", 256), (77, b"\xff" * 4, "uint32", (1 << 32) - 1),
            (78, bytes(7) + b"\5", "uint64", 5), (66, b"\1", "int16", "01"),
            (70, struct.pack(">2f", 1, 2), "point-float32", [1, 2]), (72, struct.pack(">4f", 1, 2, 3, 4), "rectangle-float32", [1, 2, 3, 4]),
            (70, struct.pack(">3f", 1, 2, 3), "point-float32", struct.pack(">3f", 1, 2, 3).hex()),
        ]
        values = b"".join(atom("test", value(number, data)) for number, data, _, _ in cases)
        transform = atom("test", value(79, struct.pack(">9d", *range(9))))
        items, errors = self.items(movie(atom("udta", full("meta", 0, HDLR["mdir"], atom("ilst", values, transform)))))
        self.assertEqual(errors, [])
        self.assertEqual([(item["dataType"], item["value"]) for item in items],
                         [(TYPE + kind, shown) for _, _, kind, shown in cases]
                         + [("xq.metadata.affine-transform-float64", list(range(9)))])

    def test_user_data(self):
        texts = lambda *pairs: b"".join(struct.pack(">HH", len(text), language) + text for language, text in pairs)
        user = atom("udta",
                    atom("\xa9nam", texts((0, b"\x8et\x8e"), (0x7FFF, b"\x8e"), (0x15C7, "\u2603".encode()), (0x55C4, "\ufeffa".encode("utf-16-be")))),
                    atom("\xa9xyz", texts((0x55C4, b"+48.8+002.2/"))),
                    full("titl", 0, b"\x15\xc7", "\ufeffTitle\0".encode("utf-16-be")),
                    full("albm", 0, b"\x15\xc7", b"Album\0\x07"),
                    full("yrrc", 0, struct.pack(">H", 2024)),
                    atom("Xtra", b"\1\2"))
        items, errors = self.items(movie(user))
        self.assertEqual(errors, [])
        utf8 = TYPE + "UTF-8"
        self.assertEqual([tuple(item.values()) for item in items], [
            ("udta/%A9nam", utf8, "\u00e9t\u00e9"), ("udta/%A9nam", utf8, "\u00e9"), ("udta/%A9nam", utf8, "\u2603"), ("udta/%A9nam", utf8, "a"),
            ("udta/%A9xyz", "xq.tavlo.location.ISO6709", "+48.8+002.2/"), ("uiso/titl", utf8, "Title"), ("uiso/albm", utf8, "Album"),
            ("uiso/yrrc", TYPE + "uint16", 2024), ("uiso/Xtra", TYPE + "raw-data", "0102")])
        shown = pevrin("inspect", self.write(movie(user))).stdout.decode()
        self.assertRegex(shown, r'\nMetadata\n  udta/%A9nam +"\u00e9t\u00e9"\n')
        self.assertRegex(shown, r"  uiso/Xtra +2 bytes: 0102\n")

    def test_keys_and_names(self):
        keys = full("keys", 0, struct.pack(">I", 2), atom("mdta", b"com.example/a"), atom("udta", b"name"))
        item = lambda number, *parts: struct.pack(">I", 8 + sum(map(len, parts))) + struct.pack(">I", number) + b"".join(parts)
        meta = atom("meta", HDLR["mdta"], keys, atom("ilst", item(2, value(1, b"two")), item(1, value(77, b"\0\0\0\1"), value(1, b"b"))))
        items, errors = self.items(movie(meta))
        self.assertEqual(errors, [])
        self.assertEqual([(item["identifier"], item["value"]) for item in items],
                         [("udta/name", "two"), ("mdta/com.example%2Fa", 1), ("mdta/com.example%2Fa", "b")])
        free = atom("----", full("mean", 0, b"org.example"), full("name", 0, b"CODE"), value(1, b"x"))
        items, errors = self.items(movie(full("meta", 0, HDLR["mdir"], atom("ilst", free))))
        self.assertEqual((items, errors), ([{"identifier": "itsk/----", "name": "org.example:CODE", "dataType": TYPE + "UTF-8",
                                             "value": "x"}], []))

    def test_id3_tags(self):
        for version, size in ((3, lambda n: struct.pack(">I", n)), (4, lambda n: bytes([0, 0, n >> 7, n & 127]))):
            frame = lambda name, data: name + size(len(data)) + bytes(2) + data
            frames = (frame(b"TIT2", b"\3Title") + frame(b"TPE1", b"\0\xe9t\xe9\0") + frame(b"TXXX", b"\1\xff\xfea\0\0\0\xfe\xff\0b")
                      + frame(b"COMM", b"\0engshort\0long") + frame(b"PRIV", bytes(200)) + bytes(30))
            tag = b"ID3" + bytes([version, 0, 0, 0, 0, len(frames) >> 7, len(frames) & 127]) + frames
            data = movie(full("meta", 0, HDLR["ID32"], full("ID32", 0, b"\x15\xc7", tag)))
            items, errors = self.items(data)
            self.assertEqual(errors, [])
            self.assertEqual([(item["identifier"], item.get("name"), item["value"]) for item in items], [
                ("id3/TIT2", None, "Title"), ("id3/TPE1", None, "\u00e9t\u00e9"), ("id3/TXXX", "a", "b"),
                ("id3/COMM", "short", "long"), ("id3/PRIV", None, "00" * 200)])
            # grouped, with its length (version 4), compressed; two texts; in version 4 also unsynchronised by itself
            frame = lambda name, flags, data: name + size(len(data)) + bytes([0, flags]) + data
            frames = frame(b"TIT2", 0x20 if version == 3 else 0x41, b"\7" + (b"" if version == 3 else bytes(4)) + b"\3One\0Two\0")
            frames += frame(b"TPE1", 0x80 if version == 3 else 8, b"\1\2") + frame(b"PRIV", 0, b"\xff\0b") + frame(b"TALB", 0, b"\2\0A")
            if version == 3:  # the whole tag at once
                frames = frames.replace(b"\xff\0b", b"\xff\0\0b")
            else:
                frames = frames.replace(b"PRIV" + size(3), b"PRIV" + size(4)).replace(b"\xff\0b", b"\xff\0\0b")
            tag = b"ID3" + bytes([version, 0, 0x80, 0, 0, len(frames) >> 7, len(frames) & 127]) + frames
            items, errors = self.items(movie(full("meta", 0, HDLR["ID32"], full("ID32", 0, b"\x15\xc7", tag))))
            self.assertEqual(errors, [])
            self.assertEqual([(item["identifier"], item["value"]) for item in items], [
                ("id3/TIT2", "One"), ("id3/TIT2", "Two"), ("id3/TPE1", "0102"), ("id3/PRIV", "ff0062"), ("id3/TALB", "A")])
            extended = tag[:5] + b"\x40" + tag[6:10]
            for broken in (tag[:30], extended + frames, extended + (b"\xff\xff\xff\xfcTIT2" if version == 3 else bytes(8)) + frames[8:]):
                told = self.items(movie(full("meta", 0, HDLR["ID32"], full("ID32", 0, b"\x15\xc7", broken))), 1)[1]
                self.assertIn("ID3 tag is damaged", told[0]["message"])

    def test_what_is_broken_is_told_and_the_rest_is_shown(self):
        good = atom("good", value(1, b"x"))
        meta = lambda kind, *parts: movie(full("meta", 0, HDLR[kind], *parts))
        for data, path, message in (
            (meta("mdir", atom("ilst", atom("bad ", atom("data", b"abc")), good)), "moov/meta/ilst/bad /data", "too short"),
            (meta("mdta", full("keys", 0, struct.pack(">I", 3), atom("mdta", b"k")),
                  atom("ilst", struct.pack(">II", 8 + 17, 1) + value(1, b"x"))), "moov/meta/keys", "2 of its keys are not there"),
            (meta("mdta", atom("ilst", struct.pack(">II", 8 + 17, 9) + value(1, b"x"))), None, "no key for this item"),
            (movie(atom("udta", atom("\xa9nam", struct.pack(">HH", 9, 0) + b"abc"), atom("\xa9ART", struct.pack(">HH", 1, 0) + b"x"))),
             "moov/udta/\\xa9nam", "longer than the atom"),
        ):
            items, errors = self.items(data, 1)
            self.assertEqual(len(errors), 1, errors)
            self.assertIn(message, errors[0]["message"])
            if path:
                self.assertEqual(errors[0]["path"], path)
                self.assertEqual([item["value"] for item in items], ["x"])

    def test_large_values_are_cut_and_too_many_are_told(self):
        item, = self.items(movie(full("meta", 0, HDLR["mdir"], atom("ilst", atom("covr", value(13, bytes(100000)))))))[0]
        self.assertEqual((len(item["value"]), item["length"]), (2 * 65536, 100000))
        name = ("a" + "\u2603" * 70).encode()  # 200 bytes end within a character
        shown = pevrin("inspect", self.write(movie(full("meta", 0, HDLR["mdir"], atom("ilst", atom("\xa9nam", value(1, name))))))).stdout.decode()
        self.assertIn(f'"a{chr(0x2603) * 66}" and more, 211 bytes in all\n', shown)
        many = atom("good", value(1, b"x")) * 5000
        items, errors = self.items(movie(full("meta", 0, HDLR["mdir"], atom("ilst", many))), 1)
        self.assertEqual((len(items), len(errors)), (4096, 1))

    def test_a_long_name_is_none(self):
        """Each of many items would have its own copy of it."""
        for length, worth in ((1024, 2), (1025, 0)):
            name = b"n" * length
            keys = full("keys", 0, struct.pack(">I", 1), atom("mdta", name))
            free = atom("----", full("mean", 0, name), value(1, b"a") * 2)
            text = b"\3" + name + b"\0a\0b"
            frame = b"TXXX" + struct.pack(">I", len(text)) + bytes(2) + text
            tag = full("ID32", 0, b"\x15\xc7ID3\3\0\0", struct.pack(">I", len(frame) >> 7 << 8 | len(frame) & 127), frame)
            for handler, parts in (("mdta", (keys, atom("ilst", atom("\0\0\0\1", value(1, b"a") * 2)))), ("mdir", (atom("ilst", free),)),
                                   ("ID32", (tag,))):
                told = pevrin("inspect", "--json", self.write(movie(full("meta", 0, HDLR[handler], *parts)))).json
                named = [item for item in told["metadata"] if name.decode() in (item.get("name"), item["identifier"].removeprefix("mdta/"))]
                self.assertEqual(len(named), worth, handler)
                self.assertEqual(bool(told["errors"]), worth == 0 and handler != "ID32", handler)

"""Movies made with ffmpeg, and some bent into shapes that it does not write. They are kept from run to run."""
import os
import struct
import subprocess

import command
from movies import atom, full, read_atoms

VIDEO = ["-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=2"]
TONE = ["-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=2"]
H264 = ["-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-g", "12", "-pix_fmt", "yuv420p", "-threads", "1"]
AAC = ["-c:a", "aac", "-b:a", "48k"]
BOTH = VIDEO + TONE + H264 + AAC

CHAPTERS = """;FFMETADATA1
title=Two parts
[CHAPTER]
TIMEBASE=1/1000
START=0
END=1000
title=One
[CHAPTER]
TIMEBASE=1/1000
START=1000
END=2000
title=Two
"""
SUBTITLES = "1\n00:00:00,000 --> 00:00:01,500\nHello\n"

# Name, then what ffmpeg is told.
MADE = {
    "moov-at-end.mp4": BOTH,
    "faststart.mp4": BOTH + ["-movflags", "+faststart"],
    "fragmented.mp4": BOTH + ["-movflags", "+frag_keyframe+empty_moov+default_base_moof"],
    "first-fragment-in-moov.mp4": BOTH + ["-movflags", "+frag_keyframe"],
    "dash.mp4": VIDEO + H264 + ["-movflags", "+dash+global_sidx", "-frag_duration", "500000"],
    "smooth.ismv": BOTH,
    "two-tones.mov": VIDEO + TONE + TONE + H264
    + ["-map", "0:v", "-map", "1:a", "-map", "2:a", "-c:a", "pcm_s16le", "-timecode", "01:00:00:00"],
    "prores.mov": VIDEO + ["-c:v", "prores_ks", "-metadata", "title=Größe", "-metadata", "artist=Nobody"],
    "tags.mp4": BOTH + ["-metadata", "title=Name", "-metadata", "artist=Nobody", "-metadata", "genre=Test"],
    "any-tags.mov": BOTH + ["-metadata", "shade=blue", "-movflags", "+use_metadata_tags"],
    "late-tone.mp4": VIDEO + ["-itsoffset", "0.75"] + TONE + H264 + AAC,
    "phone.3gp": BOTH + ["-metadata", "title=Name"],
    "song.m4a": TONE + AAC,
    "lossless.mp4": TONE + ["-c:a", "flac", "-strict", "experimental"],
    "chapters.mp4": BOTH + ["-i", "{chapters.txt}", "-map", "0:v", "-map", "1:a", "-map_metadata", "2"],
    "subtitles.mp4": BOTH + ["-i", "{subtitles.srt}", "-map", "0:v", "-map", "1:a", "-map", "2", "-c:s", "mov_text"],
    "hints.mp4": BOTH + ["-movflags", "+rtphint"],
}

PYRAMID = ["-c:v", "libx264", "-preset", "veryfast", "-g", "30", "-pix_fmt", "yuv420p", "-threads", "1",
           "-x264-params", "bframes=6:b-pyramid=normal:b-adapt=0"]
# Movies whose samples are arranged in some special way.
TIMED = {
    "pyramid.mp4": VIDEO + TONE + PYRAMID + AAC,
    "pyramid.mov": VIDEO + PYRAMID,
    "negative-offsets.mp4": VIDEO + TONE + PYRAMID + AAC + ["-movflags", "+negative_cts_offsets"],
    "negative-fragments.mp4": VIDEO + TONE + PYRAMID + AAC
    + ["-movflags", "+negative_cts_offsets+frag_keyframe+empty_moov"],
    "late-picture.mp4": ["-itsoffset", "0.5"] + VIDEO + TONE + PYRAMID + AAC,
    "early-tone.mp4": VIDEO + ["-itsoffset", "-0.5"] + TONE + PYRAMID + AAC,
    "base-offset.mp4": VIDEO + TONE + PYRAMID + AAC + ["-movflags", "+frag_keyframe+empty_moov"],
    "base-moof.mp4": VIDEO + TONE + PYRAMID + AAC + ["-movflags", "+frag_keyframe+empty_moov+default_base_moof"],
    "base-neither.mp4": VIDEO + TONE + PYRAMID + AAC + ["-movflags", "+frag_keyframe+empty_moov+omit_tfhd_offset"],
    "separate-fragments.mp4": VIDEO + TONE + PYRAMID + AAC + ["-movflags", "+frag_keyframe+empty_moov+separate_moof"],
    "delayed-index.mp4": VIDEO + TONE + H264 + AAC + ["-movflags", "+delay_moov+frag_keyframe", "-frag_duration", "300000"],
    "cmaf.mp4": VIDEO + TONE + PYRAMID + AAC + ["-movflags", "+cmaf"],
    "uneven.mp4": VIDEO + PYRAMID + ["-vf", "select='not(eq(mod(n,3),1))*gt(random(0),0.3)'", "-fps_mode", "vfr"],
    "uneven-intra.mov": VIDEO + ["-c:v", "mjpeg", "-vf", "select='gt(random(0),0.3)'", "-fps_mode", "vfr"],
    "picture-and-pcm.mov": VIDEO + TONE + H264 + ["-c:a", "pcm_s16le", "-ac", "2"],
    "pcm-24.mov": TONE + ["-c:a", "pcm_s24be", "-ac", "2"],
    "pcm-fragments.mov": TONE + ["-c:a", "pcm_s16le", "-movflags", "+frag_keyframe+empty_moov"],
    "ulaw.mov": TONE + ["-c:a", "pcm_mulaw"],
    "ima4.mov": TONE + ["-c:a", "adpcm_ima_qt"],
    "hevc.mp4": VIDEO + ["-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none"],
    "timecode.mov": VIDEO + H264 + ["-timecode", "01:00:00:00"],
    "text.mov": VIDEO + ["-i", "{subtitles.srt}"] + H264 + ["-map", "0:v", "-map", "1", "-c:s", "mov_text"],
}

# Fragments that begin before or after the samples before them end, by what is said of their durations.
JUMPING = {
    "jumping.mp4": BOTH + ["-movflags", "+empty_moov+default_base_moof+frag_every_frame"],
}
ENCODED = {**MADE, **TIMED, **JUMPING}


def path_of(name):
    """The movie's path; it is made when it is not there yet."""
    os.makedirs(command.MEDIA, exist_ok=True)
    path = os.path.join(command.MEDIA, name)
    if not os.path.exists(path):
        (encode if name in ENCODED else bend)(name, path)
    return path


def encode(name, path):
    arguments = []
    for argument in ENCODED[name]:
        if argument.startswith("{"):
            helper = os.path.join(command.MEDIA, argument[1:-1])
            with open(helper, "w", encoding="utf-8") as file:
                file.write(CHAPTERS if "chapters" in helper else SUBTITLES)
            argument = helper
        arguments.append(argument)
    # inputs first: ffmpeg takes each option for the next file
    inputs, outputs = split_inputs(arguments)
    part = os.path.join(command.MEDIA, "part-" + name)
    done = subprocess.run(
        ["ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y", *inputs, *outputs,
         "-fflags", "+bitexact", "-flags", "+bitexact", part],
        capture_output=True, text=True,
    )
    if done.returncode:
        raise RuntimeError(f"ffmpeg could not make {name}: {done.stderr}")
    os.rename(part, path)


def split_inputs(arguments):
    inputs, outputs = [], []
    i = 0
    while i < len(arguments):
        if arguments[i] in ("-itsoffset", "-f", "-i"):
            inputs += arguments[i : i + 2]
            i += 2
        elif arguments[i].startswith("-"):
            outputs += arguments[i : i + 2]
            i += 2
        else:
            raise ValueError(arguments[i])
    return inputs, outputs


# --- shapes that ffmpeg does not write -----------------------------------------------------------------------------------


def bytes_of(name):
    with open(path_of(name), "rb") as file:
        return file.read()


def with_uuids(data):
    """uuid atoms at the top, one of them with a 64-bit size, and one at the end of the moov."""
    last = read_atoms(data)[-1]
    assert last["type"] == "moov"
    inner = atom("uuid", b"inside", extended=bytes(range(16)))
    moov = atom("moov", data[last["offset"] + 8 :], inner)
    outer = atom("uuid", b"x" * 100, extended=b"\xff" * 16, large=True)
    return data[: last["offset"]] + moov + outer + atom("uuid", extended=bytes(16))


def with_large_mdat(data):
    """The 'free' of 8 bytes before the 'mdat' gives the room for a 64-bit size."""
    free, mdat = read_atoms(data)[1:3]
    assert (free["type"], free["size"], mdat["type"]) == ("free", 8, "mdat")
    start, end = free["offset"], mdat["offset"] + mdat["size"]
    return data[:start] + struct.pack(">I4sQ", 1, b"mdat", end - start) + data[mdat["offset"] + 8 :]


def with_open_mdat(data):
    """The index first and an 'mdat' of size 0 last."""
    mdat = read_atoms(data)[-1]
    assert mdat["type"] == "mdat"
    return data[: mdat["offset"]] + bytes(4) + data[mdat["offset"] + 4 :]


def with_version_1(data):
    """All headers with 64-bit times."""
    wide = {"mvhd": "IIII", "mdhd": "IIII", "tkhd": "IIIII"}
    out = {"mvhd": "QQIQ", "mdhd": "QQIQ", "tkhd": "QQIIQ"}

    def convert(one):
        start, kind = one["offset"] + one["headerSize"], one["type"]
        end = one["offset"] + one["size"]
        if kind in wide:
            fields = struct.unpack_from(">" + wide[kind], data, start + 4)
            rest = data[start + 4 + struct.calcsize(">" + wide[kind]) : end]
            flags = struct.unpack_from(">I", data, start)[0]
            return full(kind, 1, struct.pack(">" + out[kind], *fields), rest, flags=flags)
        if kind == "elst":
            (count,) = struct.unpack_from(">I", data, start + 4)
            edits = [struct.unpack_from(">Iii", data, start + 8 + 12 * i) for i in range(count)]
            return full("elst", 1, struct.pack(">I", count), *(struct.pack(">Qqi", *edit) for edit in edits))
        if kind in ("moov", "trak", "mdia", "edts"):
            return atom(kind, *(convert(child) for child in one["children"]))
        return data[one["offset"] : end]

    last = read_atoms(data)[-1]
    assert last["type"] == "moov", "the index must stand behind the media, whose place must not change"
    return data[: last["offset"]] + convert(last)


BENT = {
    "uuids.mp4": ("moov-at-end.mp4", with_uuids),
    "large-mdat.mp4": ("moov-at-end.mp4", with_large_mdat),
    "open-mdat.mp4": ("faststart.mp4", with_open_mdat),
    "version-1.mp4": ("late-tone.mp4", with_version_1),
}


def with_tables(data, change):
    """The movie with its sample tables changed: change(type, bytes of the atom) gives the bytes of the new one."""
    last = read_atoms(data)[-1]
    assert last["type"] == "moov", "the index must stand behind the media, whose place must not change"

    def convert(one):
        whole = data[one["offset"] : one["offset"] + one["size"]]
        if one["type"] in ("moov", "trak", "edts", "mdia", "minf", "stbl"):
            return atom(one["type"], *(convert(child) for child in one["children"]))
        return change(one["type"], whole)

    return data[: last["offset"]] + convert(last)


def with_wide_offsets(data):
    def change(kind, whole):
        if kind != "stco":
            return whole
        offsets = struct.unpack(f">{len(whole) // 4 - 4}I", whole[16:])
        return full("co64", 0, whole[12:16], struct.pack(f">{len(offsets)}Q", *offsets))

    return with_tables(data, change)


def with_small_sizes(bits):
    """Sizes in 4, 8 or 16 bits, of the tracks where they fit."""

    def change(kind, whole):
        if kind != "stsz":
            return whole
        constant, count = struct.unpack(">II", whole[12:20])
        sizes = [constant] * count if constant else struct.unpack(f">{count}I", whole[20:])
        if max(sizes) >= 1 << bits:
            return whole
        digits = "".join(f"{size:0{bits // 4}x}" for size in sizes)
        return full("stz2", 0, bytes(3), bytes([bits]), whole[16:20], bytes.fromhex(digits + "0" * (len(digits) % 2)))

    return lambda data: with_tables(data, change)


def with_dependencies(data):
    def change(kind, whole):
        count = struct.unpack(">I", whole[16:20])[0] if kind == "stsz" else 0
        return whole + (full("sdtp", 0, bytes(i % 3 * 0x14 for i in range(count))) if count else b"")

    return with_tables(data, change)


def with_groups(data):
    """Groups of two kinds; in one of them the samples at the beginning, in the middle and at the end are in none."""

    def change(kind, whole):
        if kind != "stsz":
            return whole
        runs = [(3, 0), (4, 1), (20, 0), (5, 2)]
        gaps = full("sbgp", 0, b"prol", struct.pack(">I", len(runs)), *(struct.pack(">II", *run) for run in runs))
        pairs = full("sbgp", 1, b"abcd", struct.pack(">II", 7, 2), struct.pack(">IIII", 10, 1, 40, 2))
        entries = full("sgpd", 1, b"prol", struct.pack(">IIhh", 2, 2, -1, -2)), full("sgpd", 1, b"abcd", struct.pack(">IIHH", 2, 2, 1, 2))
        return whole + b"".join(entries) + gaps + pairs

    return with_tables(data, change)


def with_late_edits(data):
    """Each edit begins 300 units of the track later."""

    def change(kind, whole):
        if kind != "elst":
            return whole
        version, count, duration, time, rate = struct.unpack(">IIIiI", whole[8:])
        return full("elst", 0, struct.pack(">IIiI", count, duration - 100, time + 300, rate))

    return with_tables(data, change)


# A movie, and what is done to its tables.
SPLICED = {
    "wide-offsets.mp4": ("pyramid.mp4", with_wide_offsets),
    "small-sizes-4.mov": ("timecode.mov", with_small_sizes(4)),
    "small-sizes-8.mov": ("text.mov", with_small_sizes(8)),
    "small-sizes-16.mp4": ("pyramid.mp4", with_small_sizes(16)),
    "dependencies.mp4": ("pyramid.mp4", with_dependencies),
    "within-a-frame.mp4": ("pyramid.mp4", with_late_edits),
    "groups.mp4": ("pyramid.mp4", with_groups),
}


def bend(name, path):
    source, change = BENT.get(name) or SPLICED[name]
    with open(path + ".part", "wb") as file:
        file.write(change(bytes_of(source)))
    os.rename(path + ".part", path)

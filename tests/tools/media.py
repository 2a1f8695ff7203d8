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


def path_of(name):
    """The movie's path; it is made when it is not there yet."""
    os.makedirs(command.MEDIA, exist_ok=True)
    path = os.path.join(command.MEDIA, name)
    if not os.path.exists(path):
        (bend if name in BENT else encode)(name, path)
    return path


def encode(name, path):
    arguments = []
    for argument in MADE[name]:
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


def bend(name, path):
    source, change = BENT[name]
    with open(path + ".part", "wb") as file:
        file.write(change(bytes_of(source)))
    os.rename(path + ".part", path)

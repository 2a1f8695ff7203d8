"""Atoms in Python: a builder, and a reader that shares nothing with the library.

The reader takes whole sound files and recurses; it gives the same shape of answer as `pevrin inspect --json`.
"""
import struct
import uuid

CONTAINERS = set(
    "moov trak mdia minf dinf stbl edts udta mvex moof traf mfra ilst tref gmhd tapt clip matt cmov rmra rmda meco "
    "sinf schi rinf strk strd trgr hinf hnti iprp ipco".split()
)
VISUAL_ENTRIES = set(
    "avc1 avc2 avc3 avc4 hvc1 hev1 hvc2 hev2 dva1 dvav dvh1 dvhe encv mp4v vp08 vp09 av01 vvc1 vvi1 ap4h ap4x apch apcn "
    "apcs apco".split()
)


# --- building --------------------------------------------------------------------------------------------------------


def atom(kind, *data, size=None, large=False, extended=b""):
    """The bytes of an atom; size overrides the true one."""
    body = extended + b"".join(data)
    kind = kind if isinstance(kind, bytes) else kind.encode("latin-1")
    header = 16 if large else 8
    size = header + len(body) if size is None else size
    if large:
        return struct.pack(">I4sQ", 1, kind, size & 0xFFFFFFFFFFFFFFFF) + body
    return struct.pack(">I4s", size, kind) + body


def full(kind, version, *data, flags=0):
    return atom(kind, struct.pack(">I", version << 24 | flags), *data)


def times(version, *fields):
    """Fields written as 32 bits in version 0; those given as a list are 64 bits wide in version 1."""
    wide = "Q" if version else "I"
    mask = 0xFFFFFFFFFFFFFFFF if version else 0xFFFFFFFF
    out = b""
    for field in fields:
        out += struct.pack(">" + wide, field[0] & mask) if isinstance(field, list) else struct.pack(">I", field)
    return out


def mvhd(timescale=600, duration=1200, version=0):
    return full("mvhd", version, times(version, [1], [2], timescale, [duration]), bytes(80))


def tkhd(track, duration=1200, version=0):
    return full("tkhd", version, times(version, [1], [2], track, 0, [duration]), bytes(60), flags=7)


def mdhd(timescale, duration, version=0):
    return full("mdhd", version, times(version, [1], [2], timescale, [duration]), struct.pack(">HH", 0x55C4, 0))


def hdlr(kind, name=b"\0"):
    return full("hdlr", 0, bytes(4), kind.encode(), bytes(12), name)


def elst(*edits, version=0, count=None):
    """Edits are (segment duration, media time, rate as 16.16)."""
    body = b"".join(times(version, [d], [m], r) for d, m, r in edits)
    return full("elst", version, struct.pack(">I", len(edits) if count is None else count), body)


def trak(track, kind="vide", timescale=12800, duration=25600, edits=(), version=0):
    return atom(
        "trak",
        tkhd(track, version=version),
        atom("edts", elst(*edits, version=version)) if edits else b"",
        atom("mdia", mdhd(timescale, duration, version), hdlr(kind), atom("minf", atom("stbl", atom("stsd", bytes(8))))),
    )


def small_movie(version=0):
    """About a kilobyte with a bit of everything."""
    return b"".join(
        [
            atom("ftyp", b"qt  ", bytes(4), b"qt  "),
            atom("mdat", bytes(range(40)), large=True),
            atom("uuid", b"payload", extended=bytes(range(16))),
            atom(
                "moov",
                mvhd(version=version),
                trak(1, edits=[(600, -1, 0x10000), (600, 512, 0x8000)], version=version),
                trak(2, "soun", 48000, 96000, version=version),
                atom("udta", atom(b"\xa9nam", b"\0\4\0\0name"), b"\0\0\0\0"),
                full("meta", 0, hdlr("mdir"), atom("ilst", atom(b"\xa9too", atom("data", bytes(12))))),
            ),
            atom("free"),
        ]
    )


# --- reading ---------------------------------------------------------------------------------------------------------


def type_text(kind):
    return "".join(chr(b) if 0x20 <= b < 0x7F and b != 0x5C else f"\\x{b:02x}" for b in kind)


def read_atoms(data, start=0, end=None, parents=()):
    """The atoms of a sound file as a list of dictionaries in the shape of the JSON output."""
    end = len(data) if end is None else end
    atoms = []
    while start < end:
        zero_may_end = parents[-1:] == (b"udta",) or parents[-2:-1] == (b"stsd",)
        if zero_may_end and end - start == 4 and data[start:end] == bytes(4):
            break
        size, kind = struct.unpack_from(">I4s", data, start)
        header = 8
        if size == 1:
            (size,) = struct.unpack_from(">Q", data, start + 8)
            header = 16
        elif size == 0:
            assert not parents
            size = end - start
        one = {"type": type_text(kind), "offset": start, "size": size}
        if kind == b"uuid":
            one["uuid"] = str(uuid.UUID(bytes=data[start + header : start + header + 16]))
            header += 16
        one["headerSize"] = header
        assert header <= size and start + size <= end, (kind, start, size, end)
        inside = start + header
        if holds_atoms(kind, parents):
            if kind == b"meta" and data[inside : inside + 4] == bytes(4):
                inside += 4
            elif kind == b"stsd":
                inside += 8
            elif parents[-1:] == (b"stsd",):
                inside += 78
            one["children"] = read_atoms(data, inside, start + size, parents + (kind,))
        atoms.append(one)
        start += size
    return atoms


def holds_atoms(kind, parents):
    parent = parents[-1] if parents else b""
    if kind in (b"free", b"skip") or parent == b"tref":
        return False
    if parent == b"stsd":
        return type_text(kind) in VISUAL_ENTRIES
    if parent == b"ilst" or kind in (b"meta", b"stsd") or (parent, kind) == (b"gmhd", b"tmcd"):
        return True
    return type_text(kind) in CONTAINERS


def flat(atoms, path=()):
    """All atoms with their types from the top, in file order."""
    for one in atoms:
        here = path + (one["type"],)
        yield here, one
        yield from flat(one.get("children", ()), here)


def read_facts(data, atoms):
    """The movie and tracks in the shape of the JSON output."""
    movie, tracks, fragments = None, [], None

    def field(one, *formats):
        """Fields of a full atom: one list of struct codes per version."""
        at = one["offset"] + one["headerSize"]
        return struct.unpack_from(">4x" + formats[data[at]], data, at)

    def known(value, one):
        version = data[one["offset"] + one["headerSize"]]
        return None if value == (0xFFFFFFFFFFFFFFFF if version else 0xFFFFFFFF) else value

    for path, one in flat(atoms):
        name = "/".join(path)
        if name == "moov/mvhd":
            timescale, duration = field(one, "IIII", "QQIQ")[2:]
            movie = {"timescale": timescale, "duration": known(duration, one)}
        elif name == "moov/mvex/mehd":
            fragments = known(field(one, "I", "Q")[0], one)
        elif name == "moov/trak":
            tracks.append({"id": None, "handler": None, "timescale": None, "duration": None, "edits": []})
        elif name == "moov/trak/tkhd":
            values = field(one, "IIIII", "QQIIQ")
            tracks[-1]["id"], tracks[-1]["trackDuration"] = values[2], known(values[4], one)
        elif name == "moov/trak/mdia/mdhd":
            timescale, duration = field(one, "IIII", "QQIQ")[2:]
            tracks[-1].update(timescale=timescale, duration=known(duration, one))
        elif name == "moov/trak/mdia/hdlr":
            tracks[-1]["handler"] = type_text(field(one, "4x4s", "4x4s")[0])
        elif name == "moov/trak/edts/elst":
            at = one["offset"] + one["headerSize"]
            layout = ">Qqi" if data[at] else ">Iii"
            (count,) = struct.unpack_from(">I", data, at + 4)
            for i in range(count):
                d, m, r = struct.unpack_from(layout, data, at + 8 + i * struct.calcsize(layout))
                tracks[-1]["edits"].append({"segmentDuration": d, "mediaTime": m, "rate": r / 65536})

    def time(value, timescale):
        return None if value is None or not timescale else {"value": value, "timescale": timescale}

    if movie:
        if movie["duration"] == 0 and fragments is not None:
            movie["duration"] = fragments
        movie["seconds"] = None if movie["duration"] is None else movie["duration"] / movie["timescale"]
        movie["duration"] = time(movie["duration"], movie["timescale"])
    for track in tracks:
        track["seconds"] = None if track["duration"] is None else track["duration"] / track["timescale"]
        track["duration"] = time(track["duration"], track["timescale"])
        track["trackDuration"] = time(track.get("trackDuration"), movie and movie["timescale"])
    return movie, tracks

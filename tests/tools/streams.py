"""Elementary streams made with x264, x265 and ffmpeg, and what ffprobe and ffmpeg's trace_headers filter say of them.

Each is two or three small frames of noise. Everything is kept from run to run, in a folder of its own for each version
of this file.
"""
import hashlib
import json
import os
import random
import re
import subprocess

import command

# Name: format, bits per sample, size, frames per second, then what x264 is told.
X264 = {
    "baseline.h264": ("i420", 8, "64x48", "25", "--profile baseline --sar 1:1 --colorprim bt709 --range pc"),
    "level-1b.h264": ("i420", 8, "62x46", "15", "--profile baseline --level 1b --ref 1"),
    "main.h264": ("i420", 8, "66x50", "30000/1001", "--profile main --sps-id 7 --slices 2"),
    "high.h264": ("i420", 8, "70x54", "24000/1001", "--profile high --sar 40:33 --videoformat pal --chromaloc 1 --aud"),
    "matrices.h264": ("i420", 8, "64x64", "60", "--profile high --cqm jvt --sps-id 31 --b-pyramid none --bframes 2"),
    "high10.h264": ("i420", 10, "126x70", "50", "--output-depth 10 --colorprim bt2020 --colormatrix bt2020nc"),
    "high422.h264": ("i422", 8, "62x45", "25", "--profile high422 --output-csp i422 --transfer bt709"),
    "high422-10.h264": ("i422", 10, "66x49", "25", "--output-csp i422 --output-depth 10 --sar 4:3"),
    "high444.h264": ("i444", 8, "51x47", "25", "--output-csp i444 --colormatrix YCgCo"),
    "lossless444-10.h264": ("i444", 10, "33x35", "12", "--output-csp i444 --output-depth 10 --qp 0"),
    "rgb.h264": ("rgb", 8, "64x64", "25", "--output-csp rgb --range pc"),
    "monochrome.h264": ("i400", 8, "64x64", "25", "--output-csp i400 --range pc"),
    "monochrome-cropped.h264": ("i400", 10, "50x38", "25", "--output-csp i400 --output-depth 10"),
    "top-first.h264": ("i420", 8, "64x60", "25", "--tff --sar 16:11"),
    "bottom-first-422.h264": ("i422", 10, "64x38", "30000/1001", "--bff --output-csp i422 --output-depth 10"),
    "fields.h264": ("i420", 8, "64x60", "25", "--fake-interlaced"),
    "fields-described.h264": ("i420", 8, "64x60", "25", "--fake-interlaced --pic-struct"),
    "hrd-vbr.h264": ("i420", 8, "64x64", "25", "--nal-hrd vbr --bitrate 900 --vbv-maxrate 1000 --vbv-bufsize 1000"),
    "hrd-cbr.h264": ("i420", 8, "64x64", "25", "--nal-hrd cbr --bitrate 500 --vbv-maxrate 500 --vbv-bufsize 500 --tff"),
}
X265 = {
    "main.hevc": ("i420", 8, "70x54", "25", "--profile main --sar 3:2 --colorprim bt709 --transfer bt709 --range full"),
    "main10.hevc": ("i420", 10, "66x50", "60000/1001", "--output-depth 10 --colormatrix bt2020nc --chromaloc 2 --aud"),
    "still.hevc": ("i420", 8, "34x38", "25", "--profile mainstillpicture --frames 1"),
    "intra.hevc": ("i420", 8, "64x64", "25", "--profile main-intra --no-open-gop"),
    "main12.hevc": ("i420", 12, "64x64", "25", "--output-depth 12 --overscan show"),
    "main422-10.hevc": ("i422", 10, "70x51", "50", "--output-depth 10 --sar 17:13"),
    "main444.hevc": ("i444", 8, "67x53", "25", "--profile main444-8 --videoformat ntsc"),
    "main444-12.hevc": ("i444", 12, "65x65", "25", "--output-depth 12 --level-idc 5.1 --high-tier"),
    "monochrome.hevc": ("i400", 8, "51x35", "25", "--range limited"),
    "top-first.hevc": ("i420", 8, "64x64", "50", "--interlace tff"),
    "bottom-first.hevc": ("i420", 10, "70x38", "60000/1001", "--interlace bff --output-depth 10"),
    "display-window.hevc": ("i420", 8, "64x64", "25", "--display-window 2,2,4,4 --scaling-list default"),
    "sub-layers.hevc": ("i420", 8, "64x64", "24000/1001", "--temporal-layers --b-adapt 0 --bframes 3"),
    "hrd.hevc": ("i420", 8, "64x64", "25", "--hrd --bitrate 500 --vbv-maxrate 600 --vbv-bufsize 600"),
}
# Made of others by writing other bits for elements of the sequence parameter set, which the encoders do not write.
EDITED = {
    "extended.h264": ("main.h264", {"profile_idc": "01011000"}),
    "high10-intra.h264": ("high10.h264", {"constraint_set3_flag": "1"}),
    "intra444.h264": ("high444.h264", {"profile_idc": "00101100"}),
    "multiview.h264": ("matrices.h264", {"profile_idc": "01110110"}),
    "rate-varies.h264": ("hrd-vbr.h264", {"fixed_frame_rate_flag": "0"}),
    "no-ratio.h264": ("high.h264", {"aspect_ratio_idc": "00000000"}),
    "reserved-ratio.hevc": ("main.hevc", {"aspect_ratio_idc": "00010001"}),
    # eight scaling lists: the default one, flat, four as before, one that ends early, one as before
    "scaling-lists.h264": ("high.h264", {"seq_scaling_matrix_present_flag": "1" "1" "000010001" "1" + "1" * 16 + "0000"
                                         "1" "010" + "1" * 20 + "000010011" "0"}),
    "cycle.h264": ("high.h264", {"pic_order_cnt_type": "010", "log2_max_pic_order_cnt_lsb_minus4": "1001011011010011"}),
    # two scaling lists coded, the others as predicted; PCM; two reference picture sets, one predicted; long-term pictures
    "coding-tools.hevc": ("main.hevc", {
        "scaling_list_enabled_flag": "11" "1" + "1" * 16 + "01" * 11 + "1" "010" + "1" * 64 + "01" * 7,
        "pcm_enabled_flag": "1" "01110111" "01010", "num_short_term_ref_pic_sets": "011" "010" "1" "11" "1" "01" "11",
        "long_term_ref_pics_present_flag": "1" "011" "000000011" "111111110"}),
    "both-sources.hevc": ("main.hevc", {"general_interlaced_source_flag": "1"}),
    "interlaced-frames.hevc": (
        "main10.hevc", {"general_progressive_source_flag": "0", "general_interlaced_source_flag": "1"}),
}
# Facts that ffmpeg's metadata filters write into a stream: every value of each list stands in one of the 24 variants.
RATIOS = ["1", "12/11", "10/11", "16/11", "40/33", "24/11", "20/11", "32/11", "80/33", "18/11", "15/11", "64/33", "160/99",
          "4/3", "3/2", "2", "1001/999", "1/65535", "65535/2"]
PRIMARIES = [1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 22, 255]
TRANSFERS = [1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 255]
MATRICES = [1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 255]
TICKS = ["50", "60000/1001", "48000/1001", "1/3", "4294967295/2", "180000/3003", "30"]
LEVELS = {"h264": [9, 10, 11, 12, 13, 20, 21, 22, 30, 31, 32, 40, 41, 42, 50, 51, 52, 60, 61, 62],
          "hevc": [30, 60, 63, 90, 93, 120, 123, 150, 153, 156, 180, 183, 186, 255]}
VARIANTS = 24
BASES = {"h264": "high.h264", "hevc": "main.hevc"}

STREAMS = [*X264, *X265, *EDITED, *(f"variant-{i}.{codec}" for codec in BASES for i in range(VARIANTS))]

# Movies: the streams in them, then what else ffmpeg is told.
MOVIES = {
    "high.mp4": (["high.h264"], ""),
    "high10.mov": (["high10.h264"], ""),
    "fragmented.mp4": (["main.h264"], "-movflags +frag_keyframe+empty_moov"),
    "encrypted.mp4": (
        ["baseline.h264"], f"-encryption_scheme cenc-aes-ctr -encryption_key {'5' * 32} -encryption_kid {'a' * 32}"),
    "hevc.mp4": (["main10.hevc"], "-tag:v hvc1"),
    "sets-in-band.mov": (["main422-10.hevc"], "-tag:v hev1"),
    "two-tracks.mp4": (["high444.h264", "main.hevc"], "-map 0 -map 1"),
}


def path_of(name):
    """The path of a stream or movie; it is made when it is not there yet."""
    with open(__file__, "rb") as file:
        version = hashlib.sha1(file.read()).hexdigest()[:12]
    folder = os.path.join(command.MEDIA, "streams-" + version)
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, name)
    if not os.path.exists(path):
        make(name, folder)
    return path


def make(name, folder):
    target = lambda one: os.path.join(folder, "part-" + one)
    made = [name]
    if name in X264 or name in X265:
        encode(name, target(name))
    elif name in EDITED:
        with open(target(name), "wb") as file:
            file.write(with_bits(*EDITED[name]))
    elif name in MOVIES:
        inputs, options = MOVIES[name]
        inputs = sum((["-fflags", "+genpts", "-i", path_of(one)] for one in inputs), [])
        run("ffmpeg", "-v", "fatal", "-nostdin", "-y", *inputs, "-c", "copy", *options.split(), target(name))
    else:  # one run of ffmpeg makes all variants
        codec = name.split(".")[1]
        made = [f"variant-{i}.{codec}" for i in range(VARIANTS)]
        outputs = sum((["-map", "0", "-c", "copy", "-bsf:v", variant(codec, i), target(f"variant-{i}.{codec}")]
                       for i in range(VARIANTS)), [])
        run("ffmpeg", "-v", "error", "-nostdin", "-y", "-i", path_of(BASES[codec]), *outputs)
    for one in made:
        os.rename(target(one), os.path.join(folder, one))


def encode(name, target):
    source, depth, size, rate, options = X264[name] if name in X264 else X265[name]
    width, height = map(int, size.split("x"))
    chroma = {"i400": 0, "i420": 2 * (-(-width // 2) * -(-height // 2)), "i422": 2 * (-(-width // 2) * height)}
    samples = 3 * (width * height + chroma.get(source, 2 * width * height))
    numbers = random.Random(name)
    with open(target + ".raw", "wb") as file:
        for _ in range(samples):
            file.write(numbers.randrange(1 << depth).to_bytes(1 if depth == 8 else 2, "little"))
    common = ["--input-csp", source, "--input-depth", str(depth), "--input-res", size, "--fps", rate, "--frames", "3"]
    if name in X264:
        run("x264", "--demuxer", "raw", *common, "--threads", "1", *options.split(), "-o", target, target + ".raw")
    else:
        run("x265", "--input", target + ".raw", *common, "--preset", "ultrafast", "--pools", "1", "--frame-threads", "1",
            "--no-info", *options.split(), "-o", target)
    os.remove(target + ".raw")


def variant(codec, i):
    pick = lambda values: values[i % len(values)]
    facts = {
        "sample_aspect_ratio": pick(RATIOS), "colour_primaries": pick(PRIMARIES), "matrix_coefficients": pick(MATRICES),
        "transfer_characteristics": pick(TRANSFERS), "chroma_sample_loc_type": i % 6, "video_full_range_flag": i % 2,
        "tick_rate": pick(TICKS), "level": pick(LEVELS[codec]), "crop_left": i % 5 * 2, "crop_top": i % 3 * 2,
        "crop_right": i % 4 * 2, "crop_bottom": i % 7 * 2,
    }
    return f"{codec}_metadata=" + ":".join(f"{key}={value}" for key, value in facts.items())


def run(program, *arguments):
    done = subprocess.run([program, *arguments], capture_output=True, text=True, stdin=subprocess.DEVNULL)
    if done.returncode:
        raise RuntimeError(f"{program} {' '.join(arguments)}: {done.stderr[-2000:]}")
    return done.stdout, done.stderr


def bytes_of(name):
    with open(path_of(name), "rb") as file:
        return file.read()


def units(data):
    """Offset and bytes of every NAL unit of an Annex B stream."""
    starts = [match.end() for match in re.finditer(b"\0\0\1", data)]
    ends = [match.start() for match in re.finditer(b"\0\0\1", data)][1:] + [len(data)]
    return [(start, data[start:end].rstrip(b"\0")) for start, end in zip(starts, ends)]


def with_bits(name, replacements):
    """A stream with other bits for some elements of its sequence parameter set."""
    data = bytes_of(name)
    old = next(unit for _, unit in units(data) if (unit[0] & 31 if "h264" in name else unit[0] >> 1) in (7, 33))
    payload = old.replace(b"\0\0\3", b"\0\0")
    bits = f"{int.from_bytes(payload, 'big'):0{8 * len(payload)}b}".rstrip("0")
    (elements,) = [one["bits"] for one in traced(name) if one["kind"] == "sps"]
    for element in sorted(replacements, key=lambda one: elements[one], reverse=True):
        at, count = elements[element]
        bits = bits[:at] + replacements[element] + bits[at + count :]
    bits += "0" * (-len(bits) % 8)
    new = re.sub(b"\0\0(?=[\0-\3])", b"\0\0\3", int(bits, 2).to_bytes(len(bits) // 8, "big"))
    return data.replace(old, new)


# --- what others say -----------------------------------------------------------------------------------------------------


def kept(path, kind, make_it):
    """What make_it gives, kept beside the file."""
    answer = f"{path}.{kind}.json"
    if not os.path.exists(answer):
        with open(answer + ".part", "w", encoding="utf-8") as file:
            json.dump(make_it(), file)
        os.rename(answer + ".part", answer)
    with open(answer, encoding="utf-8") as file:
        return json.load(file)


def probed(name):
    """ffprobe's description of each stream."""
    path = path_of(name)
    probe = ["ffprobe", "-v", "error", "-show_streams", "-of", "json", path]
    return kept(path, "probe", lambda: json.loads(run(*probe)[0])["streams"])


KINDS = {"Sequence Parameter Set": "sps", "Picture Parameter Set": "pps", "Video Parameter Set": "vps"}


def traced(name):
    """The parameter sets as {kind, values, bits}: of each element its value, and where its bits are. Equal ones once.

    Of a movie those of its sample entries, of all tracks in turn.
    """
    return kept(path_of(name), "trace", lambda: trace(path_of(name), name in MOVIES))


def trace(path, is_movie):
    sets, section = [], None
    filtered = ["-map", "0", "-c", "copy", "-bsf:v", "trace_headers", "-f", "null", "-"]
    for line in run("ffmpeg", "-v", "trace", "-nostdin", "-i", path, *filtered)[1].splitlines():
        if not line.startswith("[trace_headers"):
            continue
        text = line.split("] ", 1)[1]
        if is_movie and text.startswith("Packet"):
            break
        element = re.match(r"(\d+) +(\S+) +([01]*) = (-?\d+)$", text)
        if not element:
            section = None
            if text in KINDS:
                section = {"kind": KINDS[text], "values": {}, "bits": {}}
                sets.append(section)
        elif section:
            at, key, bits, value = element.groups()
            section["values"].setdefault(key, int(value))
            section["bits"].setdefault(key, (int(at), len(bits)))
    return [one for i, one in enumerate(sets) if one not in sets[:i]]

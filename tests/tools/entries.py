"""Movies made with ffmpeg for the sample entries in them: many short tracks to a file.

Everything is kept from run to run, in a folder of its own for each version of this file.
"""
import hashlib
import os
import subprocess

import command

PICTURES = "testsrc2=size={}:rate={}:duration=0.12"
SOUND = "aevalsrc={}:c={}:s={}:d=0.1"
COLOURS = "-color_primaries {} -color_trc {} -colorspace {}"
CHAPTERS = ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=100\ntitle=One\n"
SUBTITLES = "1\n00:00:00,000 --> 00:00:00,100\nHello\n"
# Frames of 12.2 kbit/s and of 23.85 kbit/s that say nothing.
HELPERS = {"chapters.txt": CHAPTERS.encode(), "words.srt": SUBTITLES.encode(),
           "narrow.amr": b"#!AMR\n" + (b"\x3c" + bytes(31)) * 5, "wide.amr": b"#!AMR-WB\n" + (b"\x44" + bytes(60)) * 5}


def sound(layout="stereo", rate=48000):
    channels = {"mono": 1, "stereo": 2, "2.1": 3, "quad": 4, "5.0": 5, "5.1": 6, "7.1": 8}[layout]
    return SOUND.format("|".join(f"sin({200 + 50 * i}*t)" for i in range(channels)), layout, rate)


def pictures(size="128x96", rate="25"):
    return PICTURES.format(size, rate)


# Name: the tracks, each a source and what ffmpeg is told of it, then what it is told of the movie.
MOVIES = {
    "pcm.mov": ([(sound(), f"-c:a pcm_{form}") for form in
                 "s16le s16be s24le s24be s32le s32be f32le f32be f64le f64be u8 s8 alaw mulaw".split()], ""),
    "layouts.mov": ([(sound(layout), f"-c:a pcm_{form}") for layout, form in
                     [("mono", "s16le"), ("2.1", "s16le"), ("quad", "s24le"), ("5.0", "s16be"), ("5.1", "s16le"),
                      ("5.1", "f32le"), ("7.1", "s24be")]], ""),
    "rates.mov": ([(sound("mono", rate), "-c:a pcm_s16le") for rate in (8000, 11025, 96000, 192000)], ""),
    "compressed.mov": ([(sound(), "-c:a " + codec) for codec in
                        "aac ac3 alac libmp3lame adpcm_ima_qt adpcm_ms adpcm_ima_wav mp2".split()]
                       + [(sound("mono", 22050), "-c:a aac"), (sound("5.1"), "-c:a aac"), (sound("5.1"), "-c:a ac3"),
                          (sound("mono"), "-c:a alac"), (sound("5.1"), "-c:a alac -sample_fmt s32p"),
                          (sound("mono", 96000), "-c:a aac")], ""),
    "compressed.mp4": ([(sound(), "-c:a " + codec) for codec in
                        "aac ac3 eac3 libopus flac alac libmp3lame mp2 dca libvorbis".split()]
                       + [(sound("mono", 22050), "-c:a aac"), (sound("5.1"), "-c:a aac"), (sound("5.1"), "-c:a ac3"),
                          (sound("5.1"), "-c:a eac3"), (sound("5.1"), "-c:a libopus"), (sound("mono"), "-c:a libopus"),
                          (sound("mono", 24000), "-c:a libmp3lame"), (sound("5.1", 96000), "-c:a flac"),
                          (sound("mono"), "-c:a flac -sample_fmt s32"), (sound("5.1"), "-c:a alac -sample_fmt s32p"),
                          (sound("mono", 96000), "-c:a aac")], "-strict -2"),
    "narrow.3gp": ([("{narrow.amr}", "-c:a copy")], ""),
    "wide.3gp": ([("{wide.amr}", "-c:a copy")], ""),
    "phone.3gp": ([(pictures("176x144"), "-c:v h263"), (pictures("176x144"), "-c:v libx264"),
                   (pictures("176x144"), "-c:v mpeg4"), (sound("mono", 16000), "-c:a aac")], ""),
    "phone.3g2": ([(pictures("176x144"), "-c:v mpeg4"), (sound("mono", 16000), "-c:a aac")], ""),
    "video.mp4": ([(pictures(), "-c:v libx264"), (pictures("130x98"), "-c:v libx264"),
                   (pictures(), "-c:v libx265 -tag:v hvc1"), (pictures(), "-c:v libx265 -tag:v hev1"),
                   (pictures(), "-c:v mpeg4"), (pictures(), "-c:v mpeg2video"), (pictures(), "-c:v mpeg1video"),
                   (pictures(), "-c:v mjpeg -pix_fmt yuvj420p"), (pictures(), "-c:v libvpx-vp9"),
                   (pictures(), "-c:v libaom-av1 -cpu-used 8 -usage realtime"), (pictures(), "-c:v png")], "-strict -2"),
    "video.mov": ([(pictures(), "-c:v " + codec) for codec in
                   ["libx264", "libx265 -tag:v hvc1", "mpeg4", "mjpeg -pix_fmt yuvj420p", "mpeg2video", "prores_ks",
                    "prores_ks -profile:v 4444 -pix_fmt yuva444p10", "rawvideo -pix_fmt uyvy422",
                    "rawvideo -pix_fmt rgb24", "rawvideo -pix_fmt gray", "v210", "v410", "r210",
                    "qtrle", "qtrle -pix_fmt gray", "cinepak", "png", "png -pix_fmt rgba", "jpeg2000",
                    "rawvideo -pix_fmt argb"]]
                  + [(pictures("176x144"), "-c:v h263"), (pictures("720x576"), "-c:v dvvideo -pix_fmt yuv420p"),
                     (pictures("720x480", "30000/1001"), "-c:v dvvideo -pix_fmt yuv411p"),
                     (pictures("1920x1080"), "-c:v dnxhd -b:v 120M -pix_fmt yuv422p")], ""),
    "colours.mov": ([(pictures(), f"-c:v {codec} {COLOURS.format(*colours)}") for codec, colours in
                     [("prores_ks", ("bt709", "bt709", "bt709")), ("prores_ks", ("bt2020", "smpte2084", "bt2020nc")),
                      ("v210", ("smpte170m", "bt709", "smpte170m")), ("rawvideo -pix_fmt uyvy422", ("bt470bg", "bt709", "bt470bg")),
                      ("libx264", ("bt709", "bt709", "bt709")), ("libx264", ("smpte170m", "smpte170m", "smpte170m")),
                      ("libx265 -tag:v hvc1", ("bt2020", "arib-std-b67", "bt2020nc")),
                      ("prores_ks", ("smpte432", "bt709", "bt709")), ("mpeg4", ("bt709", "bt709", "bt709"))]], ""),
    "colours.mp4": ([(pictures(), f"-c:v {codec} {COLOURS.format(*colours)} -color_range {spread}") for codec, colours, spread in
                     [("libx264", ("bt709", "bt709", "bt709"), "tv"), ("libx264", ("bt470bg", "gamma28", "bt470bg"), "pc"),
                      ("libx265 -tag:v hvc1", ("bt2020", "smpte2084", "bt2020nc"), "tv"),
                      ("libx265 -tag:v hvc1", ("smpte432", "iec61966-2-1", "bt709"), "pc"),
                      ("libvpx-vp9", ("bt709", "bt709", "bt709"), "tv"),
                      ("mpeg4", ("smpte240m", "smpte240m", "smpte240m"), "tv")]], ""),
    "aspects.mov": ([(pictures("96x64"), "-c:v prores_ks -aspect 16:9"), (pictures(), "-c:v libx264 -aspect 2.35"),
                     (pictures(), "-c:v mjpeg -pix_fmt yuvj420p -aspect 5:4"), (pictures(), "-c:v v210 -aspect 16:9")], ""),
    "aspects.mp4": ([(pictures(), "-c:v libx264 -aspect 16:9"), (pictures(), "-c:v libx265 -tag:v hvc1 -aspect 16:9"),
                     (pictures(), "-c:v mpeg4 -aspect 4:3"), (pictures(), "-c:v libvpx-vp9 -aspect 16:9")], ""),
    "fields.mov": ([(pictures(), f"-c:v {codec} -field_order {order}") for codec, order in
                    [("rawvideo -pix_fmt uyvy422", "tt"), ("v210", "bb"), ("mjpeg -pix_fmt yuvj420p", "tb"),
                     ("rawvideo -pix_fmt uyvy422", "bt"), ("mpeg2video -flags +ildct", "tt"), ("qtrle", "progressive"),
                     ("libx264 -x264-params tff=1 -flags +ildct", "tt"), ("prores_ks -flags +ildct", "bb")]], ""),
    "gamma.mov": ([(pictures(), "-c:v rawvideo -pix_fmt uyvy422 -color_trc gamma22")], "-movflags +write_gama"),
    "timecode.mov": ([(pictures(), "-c:v mpeg4")], "-timecode 01:00:00:00 -metadata:s:v reel_name=Reel_7"),
    "drop.mov": ([(pictures(rate="30000/1001"), "-c:v mpeg4")], "-timecode 00:59:58;02"),
    "double-drop.mov": ([(pictures(rate="60000/1001"), "-c:v mpeg4")], "-timecode 00:59:58;02"),
    "film.mov": ([(pictures(rate="24000/1001"), "-c:v mpeg4")], "-timecode 10:00:00:00"),
    "timecode.mp4": ([(pictures(rate="30000/1001"), "-c:v libx264")], "-timecode 00:00:00;00"),
    "words.mp4": ([(pictures(), "-c:v libx264"), ("{words.srt}", "-c:s mov_text")], ""),
    "words.mov": ([(pictures(), "-c:v libx264"), ("{words.srt}", "-c:s mov_text")], ""),
    "chapters.mov": ([(pictures(), "-c:v libx264"), ("{chapters.txt}", "")], ""),
    "chapters.mp4": ([(pictures(), "-c:v libx264"), ("{chapters.txt}", "")], ""),
    "first.mp4": ([(pictures(), "-c:v libx264"), (sound(), "-c:a aac")], "-movflags +faststart"),
    "fragmented.mp4": ([(pictures(), "-c:v libx264"), (sound(), "-c:a aac")],
                       "-movflags +frag_keyframe+empty_moov+default_base_moof"),
}


def folder():
    with open(__file__, "rb") as file:
        version = hashlib.sha1(file.read()).hexdigest()[:12]
    path = os.path.join(command.MEDIA, "entries-" + version)
    os.makedirs(path, exist_ok=True)
    return path


def path_of(name):
    """The movie's path; it is made when it is not there yet."""
    path = os.path.join(folder(), name)
    if not os.path.exists(path):
        make(name, path)
    return path


def make(name, path):
    """Each option of a track gets the number that its stream has among those of its kind."""
    tracks, rest = MOVIES[name]
    inputs, outputs, counts = [], [], {}
    for i, (source, options) in enumerate(tracks):
        if source.startswith("{"):
            helper = os.path.join(folder(), source[1:-1])
            with open(helper, "wb") as file:
                file.write(HELPERS[source[1:-1]])
            inputs += ["-i", helper]
        else:
            inputs += ["-f", "lavfi", "-i", source]
        if not options:
            outputs += ["-map_metadata", str(i)]
            continue
        words = options.split()
        kind = words[0][-1]
        number = counts[kind] = counts.get(kind, -1) + 1
        outputs += ["-map", f"{i}:{kind}"]
        for option, value in zip(words[::2], words[1::2]):
            outputs += [option.split(":")[0] + f":{kind}:{number}", value]
    part = os.path.join(folder(), "part-" + name)
    done = subprocess.run(
        ["ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y", *inputs, *outputs, *rest.split(),
         "-preset", "ultrafast", "-threads", "1", "-fflags", "+bitexact", part],
        capture_output=True, text=True,
    )
    if done.returncode:
        raise RuntimeError(f"ffmpeg could not make {name}: {done.stderr}")
    os.rename(part, path)

"""The streams that the tests record."""
import pathlib

from programs import ffmpeg

SIZE = "192x128"
H264 = "-pix_fmt yuv420p -c:v libx264 -bf 0 -g 10"
H265 = "-pix_fmt yuv420p -c:v libx265 -x265-params log-level=none:bframes=0:keyint=10:min-keyint=10:open-gop="
PRORES = "-pix_fmt yuv422p10le -c:v prores_ks -profile:v "
HRD = "vbv-maxrate=900:vbv-bufsize=900"

VIDEO = {  # name and codec: frames per second, how they are encoded
    "plain.h264": ("30", H264),
    "three.h264": ("30", H264),
    "slices.h264": ("30", H264 + " -x264-params aud=1:slices=4:nal-hrd=vbr:" + HRD),
    "ntsc.h264": ("30000/1001", H264),
    "plain.h265": ("30", H265 + "0"),
    "nosei.h265": ("30", H265 + "0:info=0"),
    "repeat.h265": ("30", H265 + "0:repeat-headers=1:aud=1:slices=2:hrd=1:" + HRD),
    "cra.h265": ("30", H265 + "1"),
}
for number, kind in enumerate(("proxy", "lt", "422", "hq")):
    VIDEO["progressive.prores-" + kind] = ("25", PRORES + str(number))
    VIDEO["interlaced.prores-" + kind] = ("25", PRORES + str(number) + " -flags +ildct -field_order tt")

AUDIO = {  # name and codec: samples per second, channels, how they are encoded
    "lc.aac": (48000, 2, ""),
    "mono.aac": (44100, 1, ""),
    "plain.mp3": (44100, 2, "-write_xing 0 -id3v2_version 0"),
    "low.mp3": (22050, 1, "-write_xing 0"),
    "index.mp3": (48000, 2, "-write_id3v1 1"),
    "mono.g711a": (8000, 1, "-c:a pcm_alaw"),
    "stereo.g711u": (16000, 2, "-c:a pcm_mulaw"),
}

CHANGES = {
    "three.h264": (b"\0\0\0\1", b"\0\0\1"),
    # IDR_N_LP becomes IDR_W_RADL, which may have leading pictures but need not.
    "repeat.h265": (b"\0\0\1\x28\1", b"\0\0\1\x26\1"),
}


def readable(name):
    """The file in which ffmpeg reads a stream: without a container it cannot read all kinds."""
    codec = name.split(".")[1]
    return name + (".mov" if codec.startswith("prores") else ".wav" if codec.startswith("g711") else "")


def options(name, file=None):
    """The tool's, which record a stream, from another file if told so."""
    codec = name.split(".")[1]
    if name in VIDEO:
        return "--video %s --codec %s --fps %s --size %s" % (file or name, codec, VIDEO[name][0], SIZE)
    return "--audio %s --codec %s --rate %d --channels %d" % (file or name, codec, *AUDIO[name][:2])


def make(name):
    """Makes a second of a stream."""
    if name in VIDEO:
        rate, encoder = VIDEO[name]
        ffmpeg("-f lavfi -i testsrc2=size=%s:duration=1:rate=%s %s %s" % (SIZE, rate, encoder, readable(name)))
    else:
        rate, channels, encoder = AUDIO[name]
        ffmpeg("-f lavfi -i sine=duration=1:sample_rate=%d -ac %d %s %s" % (rate, channels, encoder, readable(name)))
    if readable(name) != name:
        ffmpeg("-i %s -map 0 -c copy -f data %s" % (readable(name), name))
    if name in CHANGES:
        stream = pathlib.Path(name)
        stream.write_bytes(stream.read_bytes().replace(*CHANGES[name]))

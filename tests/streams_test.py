"""Records streams of every kind with the tool and compares what ffmpeg decodes with its source."""
import os
import re

import pytest

from programs import decoded, ffprobe, run
from streams import AUDIO, VIDEO, make, options, readable

# Every pair of these choices occurs in some row.
CHOICES = (
    "",
    "--profile mov --co64 --constant-rate --pre-alloc 1M --backup-unit 1M",
    "--profile mov --co64 --constant-rate",
    "--profile mov --pre-alloc 1M --backup-unit 1M",
    "--co64 --pre-alloc 1M",
    "--constant-rate --backup-unit 1M",
)
PIECES = "-af asetnsamples=n=160:p=0"
WORK = {"index.mp3": "-c copy", "mono.g711a": PIECES, "stereo.g711u": PIECES}
# Frames and key frames where they are not those of the source: what cannot be flagged, and pieces of 20 ms.
COUNTS = {"cra.h265": (30, 1), "mono.g711a": (50, 50), "stereo.g711u": (50, 50)}


def notice(name, choices):
    """What the tool has to say."""
    if name == "cra.h265":
        return ".*: key frames that are not IDR pictures are recorded without their flag, .*\n"
    if name == "ntsc.h264" and "--constant-rate" in choices:
        return ".* no effect with a fractional frame rate; .*\n"
    return ""


def packets(path):
    """How many there are, how many of them are key frames, and how many different durations."""
    durations, flags = zip(*ffprobe(path, "packet=duration,flags"))
    return len(flags), sum("K" in flag for flag in flags), len(set(durations))


class Source:
    def __init__(self, name):
        self.name = name
        make(name)
        self.options = options(name)
        self.hashes, self.warnings = self.decoded(readable(name))
        self.counts = COUNTS.get(name) or packets(readable(name))[:2]

    def decoded(self, path):
        return decoded(path, work=WORK.get(self.name, ""))


@pytest.fixture(scope="module", params=[*VIDEO, *AUDIO])
def source(request, tmp_path_factory):
    os.chdir(tmp_path_factory.mktemp("stream"))
    return Source(request.param)


@pytest.mark.parametrize("choices", CHOICES)
def test_a_recording_decodes_like_its_source(source, choices):
    told = run("zrmp4 record -o out.mp4 %s %s" % (choices, source.options)).stderr
    assert re.fullmatch(notice(source.name, choices), told)
    hashes, warnings = source.decoded("out.mp4")
    assert hashes == source.hashes
    assert warnings <= source.warnings
    assert packets("out.mp4") == (*source.counts, 1)


@pytest.mark.parametrize("part", (0.4, 0.83))
def test_what_repair_makes_of_a_cut_recording_decodes_like_the_beginning(source, part):
    run("zrmp4 record -o cut.mp4 --no-finish --backup-unit 512k " + source.options)
    os.truncate("cut.mp4", int(os.path.getsize("cut.mp4") * part))
    run("zrmp4 repair cut.mp4")
    hashes, _ = source.decoded("cut.mp4")
    whole = len(hashes) - ("g711" in source.name)  # the last piece of a raw sound may be a short one
    assert 0 < len(hashes) < len(source.hashes)
    assert hashes[:whole] == source.hashes[:whole]

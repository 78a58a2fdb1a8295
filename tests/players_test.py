"""Shows recorded and repaired files to readers that others wrote.  NODE_PATH in the environment says where the modules
of players/package.json are.

H.264 and H.265 with AAC and MP3, in both profiles, finished and repaired: GStreamer, MediaInfo, mp4box.js; and Chromium
for the H.264 files of the MP4 profile."""
import filecmp
import itertools
import json
import os
import pathlib
import shutil

import pytest

from programs import ffmpeg, ffprobe, run

SCRIPTS = pathlib.Path(__file__).resolve().parent / "players"
SECONDS, RATE, WIDTH, HEIGHT = 4, 30, 320, 240
AUDIO_FRAME = {"aac": 1024, "mp3": 1152}
FORMATS = {"h264": "AVC", "h265": "HEVC", "aac": "AAC", "mp3": "MPEG Audio"}
CODECS = {"h264": "avc1.", "h265": "hvc1.", "aac": "mp4a.40.2", "mp3": "mp4a.6"}
FILES = list(itertools.product(("h264", "h265"), AUDIO_FRAME, ("mp4", "mov"), ("whole", "repaired")))


@pytest.fixture(scope="module", autouse=True)
def streams(tmp_path_factory):
    os.chdir(tmp_path_factory.mktemp("players"))
    picture = "-f lavfi -i testsrc2=size=%dx%d:rate=%d:duration=%d -pix_fmt yuv420p -bf 0 -g 15 " % (
        WIDTH, HEIGHT, RATE, SECONDS)
    ffmpeg(picture + "in.h264")
    ffmpeg(picture + "-c:v libx265 -x265-params log-level=none in.h265")
    for codec in AUDIO_FRAME:
        ffmpeg("-f lavfi -i sine=sample_rate=48000:duration=%d -ac 2 in.%s" % (SECONDS, codec))


class File:
    """One file and what is in it."""

    def __init__(self, video, audio, profile, state):
        self.video, self.audio = video, audio
        self.name = "%s-%s-%s.%s" % (video, audio, state, profile)
        run("zrmp4 record -o %s --profile %s --backup-unit 512k --video in.%s --codec %s --fps %d --size %dx%d"
            " --audio in.%s --codec %s --rate 48000 --channels 2 %s" % (
                self.name, profile, video, video, RATE, WIDTH, HEIGHT, audio, audio,
                "--no-finish" if state == "repaired" else ""))
        if state == "repaired":  # cut as well: the last frames are gone
            os.truncate(self.name, os.path.getsize(self.name) * 9 // 10)
            run("zrmp4 repair " + self.name)
        self.frames, self.sounds = (int(row[0]) for row in ffprobe(self.name, "stream=nb_read_packets",
                                                                   "-count_packets"))
        self.seconds = self.frames / RATE
        self.sound_seconds = self.sounds * AUDIO_FRAME[audio] / 48000
        share = self.seconds / SECONDS
        assert 0.5 < share < 1 if state == "repaired" else share == 1


@pytest.fixture(scope="module", params=FILES, ids="-".join)
def file(request):
    return File(*request.param)


def test_gstreamer_demuxes_and_decodes_every_frame(file):
    done = run("gst-launch-1.0 filesrc location=%s ! qtdemux name=file"
               " file.video_0 ! queue ! avdec_%s ! filesink location=yuv"
               " file.audio_0 ! queue ! filesink location=sound" % (file.name, file.video))
    assert "WARNING" not in done.stdout + done.stderr
    assert os.path.getsize("yuv") == file.frames * WIDTH * HEIGHT * 3 // 2
    ffmpeg("-i %s -map 0:a -c copy -f data copied" % file.name)
    assert filecmp.cmp("sound", "copied", shallow=False)


def test_mediainfo_describes_the_file(file):
    general, video, audio = json.loads(run("mediainfo --Output=JSON " + file.name).stdout)["media"]["track"]
    assert (video["Format"], audio["Format"]) == (FORMATS[file.video], FORMATS[file.audio])
    assert (video["Width"], video["Height"], video["FrameCount"]) == (str(WIDTH), str(HEIGHT), str(file.frames))
    assert float(video["Duration"]) == pytest.approx(file.seconds, abs=0.005)
    assert "IsTruncated" not in json.dumps(general)
    assert "Conformance" not in json.dumps([general, video, audio])


def test_mp4box_js_reads_every_sample(file):
    done = run("node %s %s" % (SCRIPTS / "mp4box.js", file.name))
    assert done.stderr == ""
    tracks = json.loads(done.stdout.splitlines()[-1])
    for track, codec, samples, seconds in zip(tracks, (file.video, file.audio), (file.frames, file.sounds),
                                              (file.seconds, file.sound_seconds), strict=True):
        assert track["codec"].startswith(CODECS[codec])
        assert track["samples"] == samples
        assert track["seconds"] == pytest.approx(seconds, abs=0.0005)


@pytest.mark.parametrize("file", [row for row in FILES if row[0] == "h264" and row[2] == "mp4"], indirect=True)
def test_chromium_plays_to_the_end_and_seeks(file):
    path = os.path.abspath(file.name)
    done = run("node %s %s %s" % (SCRIPTS / "chromium.js", shutil.which("chromium"), path))
    page = json.loads(done.stdout)[path]
    assert (page["width"], page["height"]) == (WIDTH, HEIGHT)
    assert page["duration"] == pytest.approx(max(file.seconds, file.sound_seconds), abs=0.05)
    assert page["end"] == pytest.approx(page["duration"], abs=0.005)
    assert page["middle"] == pytest.approx(page["duration"] / 2, abs=0.005)
    assert page["ready"] >= 2  # there is a picture to show
    assert page["frames"] > file.frames // 2

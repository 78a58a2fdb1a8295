"""Shows recorded and repaired files to readers that others wrote.  players_test.py ZRMP4 NODE_MODULES

H.264 and H.265 with AAC and MP3, in both profiles, finished and repaired: GStreamer, MediaInfo, mp4box.js; and Chromium
for the H.264 files of the MP4 profile."""

import filecmp
import itertools
import json
import os
import shutil
import sys
import tempfile
import unittest

from programs import ffmpeg, ffprobe, run

ZRMP4, MODULES = (os.path.abspath(path) for path in sys.argv[1:3])
del sys.argv[1:]
HERE = os.path.dirname(os.path.abspath(__file__))
FOLDER = tempfile.TemporaryDirectory()
SECONDS, RATE, WIDTH, HEIGHT = 4, 30, 320, 240
AUDIO_FRAME = {"aac": 1024, "mp3": 1152}


def path(name):
    return os.path.join(FOLDER.name, name)


def node(script, *arguments):
    return run("node", os.path.join(HERE, "players", script), *arguments, env=dict(os.environ, NODE_PATH=MODULES))


def make_streams():
    picture = ["-f", "lavfi", "-i", "testsrc2=size=%dx%d:rate=%d:duration=%d" % (WIDTH, HEIGHT, RATE, SECONDS),
               "-pix_fmt", "yuv420p", "-bf", "0", "-g", "15"]
    sound = ["-f", "lavfi", "-i", "sine=sample_rate=48000:duration=%d" % SECONDS, "-ac", "2"]
    for name, options in (("in.h264", [*picture, "-c:v", "libx264"]),
                          ("in.h265", [*picture, "-c:v", "libx265", "-x265-params", "log-level=none", "-f", "hevc"]),
                          ("in.aac", [*sound, "-c:a", "aac"]), ("in.mp3", [*sound, "-c:a", "libmp3lame"])):
        ffmpeg(*options, path(name))


class Case:
    """One file and what is in it."""

    def __init__(self, video, audio, profile, repaired):
        self.video, self.audio, self.profile, self.repaired = video, audio, profile, repaired
        self.path = path("%s-%s-%s%s" % (video, audio, "repaired." if repaired else "whole.", profile))
        run(ZRMP4, "record", "-o", self.path, "--profile", profile, "--backup-unit", "512k", "--video",
            path("in." + video), "--codec", video, "--fps", str(RATE), "--size", "%dx%d" % (WIDTH, HEIGHT), "--audio",
            path("in." + audio), "--codec", audio, "--rate", "48000", "--channels", "2",
            *(["--no-finish"] if repaired else []))
        if repaired:  # cut as well: the last frames are gone
            os.truncate(self.path, os.path.getsize(self.path) * 9 // 10)
            run(ZRMP4, "repair", self.path)
        self.frames, self.sounds = (int(row[0]) for row in ffprobe(self.path, "stream=nb_read_packets",
                                                                   "-count_packets"))
        self.seconds = self.frames / RATE
        share = self.seconds / SECONDS
        assert 0.5 < share < 1 if repaired else share == 1, "%s: %s" % (self, share)

    def __str__(self):
        return os.path.basename(self.path)


def for_each_file(test):
    def with_all(self):
        for case in self.cases:
            with self.subTest(file=str(case)):
                test(self, case)
    return with_all


class Players(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        make_streams()
        cls.cases = [Case(*choice) for choice in itertools.product(("h264", "h265"), AUDIO_FRAME, ("mp4", "mov"),
                                                                   (False, True))]

    @for_each_file
    def test_gstreamer_demuxes_and_decodes_every_frame(self, case):
        done = run("gst-launch-1.0", "filesrc", "location=" + case.path, "!", "qtdemux", "name=file",
                   "file.video_0", "!", "queue", "!", "avdec_" + case.video, "!", "filesink", "location=" + path("yuv"),
                   "file.audio_0", "!", "queue", "!", "filesink", "location=" + path("sound"))
        self.assertNotIn("WARNING", done.stdout + done.stderr)
        self.assertEqual(os.path.getsize(path("yuv")), case.frames * WIDTH * HEIGHT * 3 // 2)
        ffmpeg("-i", case.path, "-map", "0:a", "-c", "copy", "-f", "data", path("copied"))
        self.assertTrue(filecmp.cmp(path("sound"), path("copied"), shallow=False))

    @for_each_file
    def test_mediainfo_describes_the_file(self, case):
        formats = {"h264": "AVC", "h265": "HEVC", "aac": "AAC", "mp3": "MPEG Audio"}
        tracks = json.loads(run("mediainfo", "--Output=JSON", case.path).stdout)["media"]["track"]
        general, video, audio = tracks
        self.assertEqual((video["Format"], audio["Format"]), (formats[case.video], formats[case.audio]))
        self.assertEqual((video["Width"], video["Height"]), (str(WIDTH), str(HEIGHT)))
        self.assertEqual(video["FrameCount"], str(case.frames))
        self.assertAlmostEqual(float(video["Duration"]), case.seconds, 2)
        self.assertNotIn("IsTruncated", json.dumps(general))
        self.assertNotIn("Conformance", json.dumps(tracks))

    @for_each_file
    def test_mp4box_js_reads_every_sample(self, case):
        codecs = {"h264": "avc1.", "h265": "hvc1.", "aac": "mp4a.40.2", "mp3": "mp4a.6"}
        done = node("mp4box.js", case.path)
        self.assertEqual(done.stderr, "")
        video, audio = json.loads(done.stdout.splitlines()[-1])
        self.assertTrue(video["codec"].startswith(codecs[case.video]), video)
        self.assertTrue(audio["codec"].startswith(codecs[case.audio]), audio)
        self.assertEqual((video["samples"], audio["samples"]), (case.frames, case.sounds))
        self.assertAlmostEqual(video["seconds"], case.seconds, 3)
        self.assertAlmostEqual(audio["seconds"], case.sounds * AUDIO_FRAME[case.audio] / 48000, 3)

    def test_chromium_plays_to_the_end_and_seeks(self):
        cases = [case for case in self.cases if case.video == "h264" and case.profile == "mp4"]
        seen = json.loads(node("chromium.js", shutil.which("chromium"), *(case.path for case in cases)).stdout)
        for case in cases:
            with self.subTest(file=str(case)):
                page = seen[case.path]
                longest = max(case.seconds, case.sounds * AUDIO_FRAME[case.audio] / 48000)
                self.assertEqual((page["width"], page["height"]), (WIDTH, HEIGHT))
                self.assertAlmostEqual(page["duration"], longest, 1)
                self.assertAlmostEqual(page["end"], page["duration"], 2)
                self.assertAlmostEqual(page["middle"], page["duration"] / 2, 2)
                self.assertGreaterEqual(page["ready"], 2)  # there is a picture to show
                self.assertGreater(page["frames"], case.frames // 2)


if __name__ == "__main__":
    unittest.main()

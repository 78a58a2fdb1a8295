"""Runs the examples as their first lines tell, on streams made by ffmpeg.  examples_test.py FOLDER_OF_PROGRAMS"""
import os
import re
import sys
import tempfile
import unittest

from programs import decoded, ffmpeg, run

PROGRAMS = sys.argv.pop()


def example(name, *arguments, **options):
    return run(os.path.join(PROGRAMS, name), *arguments, **options).stdout


class Examples(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def frames(self, name, stream="0:v"):
        return decoded(self.path(name), stream=stream)[0]

    def test_record_stdin_keeps_every_frame_of_every_kind_of_stream(self):
        for case in [], ["-x264-params", "aud=1:slices=3"]:
            ffmpeg("-f", "lavfi", "-i", "testsrc2=size=320x240:rate=30", "-c:v", "libx264", "-preset", "ultrafast",
                   "-bf", "0", "-g", "15", "-pix_fmt", "yuv420p", "-t", "3", *case, "-f", "h264", self.path("in.h264"))
            with open(self.path("in.h264"), "rb") as stream:
                example("record_stdin", self.path("out.mp4"), "320", "240", "30", stdin=stream)
            self.assertEqual(self.frames("out.mp4"), self.frames("in.h264"), case)

    def test_record_av_gives_three_tracks_that_read_back_shows(self):
        shown = example("record_av", self.path("out.mp4"))
        self.assertTrue(shown.endswith("10 s: 250 pictures, 500 pieces of sound, 10 positions\n"), shown)
        self.assertEqual([len(self.frames("out.mp4", stream)) for stream in ("0:v", "0:a")], [250, 500])
        shown = example("read_back", self.path("out.mp4"), "/moov/ownr").splitlines()
        self.assertEqual(shown, ["10.000 s, 3 tracks, backup unit 1048576 bytes",
                                 "track 0: camera, H.264, 16 x 16, 25 frames/s",
                                 "track 1: microphone, G.711 u-law, 8000 Hz, 1 channels",
                                 "track 2: position, metadata, 1 samples/s", "/moov/ownr: recorded by an example"])
        example("read_back", self.path("out.mp4"), "/moov/none", expected=1)

    def test_repair_directory_tells_what_became_of_each_file(self):
        example("record_av", self.path("whole.mp4"))
        with open(self.path("whole.mp4"), "rb") as whole:
            data = whole.read()
        for name, piece in (("cut.mov", data[:60000]), ("early.mp4", data[:50]), ("note.txt", b"no recording")):
            with open(self.path(name), "wb") as file:
                file.write(piece)
        report = example("repair_directory", self.folder, expected=1)
        for line in (r"cut\.mov: repaired, \d+\.\d s of recording, in \d+\.\d\d s\n",
                     r"whole\.mp4: finished, 10\.0 s of recording\n", r"early\.mp4: ZR_ERR_MP4_[A-Z_]+, ",
                     r"3 recordings, 1 not repaired\n\Z"):
            self.assertRegex(report, line)
        self.assertIn("cut.mov: finished", example("repair_directory", self.folder, expected=1))
        self.assertGreater(len(self.frames("cut.mov")), 100)

    def test_kill_and_repair_loses_nothing_that_had_left_the_buffer(self):
        report = example("kill_and_repair", self.path("out.mp4"), "20")
        counts = re.match(r"20 kills: (\d+) frames acknowledged, (\d+) recovered, 0 bad\n$", report)
        self.assertTrue(counts and int(counts[1]) > 0, report)
        self.assertGreaterEqual(int(counts[2]), int(counts[1]) - 20 * 5)


if __name__ == "__main__":
    unittest.main()

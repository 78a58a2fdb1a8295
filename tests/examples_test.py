"""Runs the examples as their first lines tell, on streams made by ffmpeg.  examples_test.py FOLDER_OF_PROGRAMS"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = sys.argv.pop()
H264 = ["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=30", "-c:v", "libx264",
        "-preset", "ultrafast", "-bf", "0", "-g", "15", "-pix_fmt", "yuv420p"]


def program(name, *arguments):
    return [os.path.join(PROGRAMS, name), *arguments]


def run(command, expected=0, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120, text=True, **options)
    assert done.returncode == expected, "%s: %d\n%s%s" % (command, done.returncode, done.stdout, done.stderr)
    return done.stdout


def hashes(path, stream="v"):
    lines = run(["ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i", path, "-map", "0:" + stream, "-f", "framehash",
                 "-"]).splitlines()
    return [line.split(",")[-1] for line in lines if not line.startswith("#")]


class Examples(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def test_record_stdin_keeps_every_frame_of_every_kind_of_stream(self):
        for case in [], ["-x264-params", "aud=1:slices=3"]:
            run(H264 + ["-t", "3", *case, "-f", "h264", "-y", self.path("in.h264")])
            with open(self.path("in.h264"), "rb") as stream:
                run(program("record_stdin", self.path("out.mp4"), "320", "240", "30"), stdin=stream)
            self.assertEqual(hashes(self.path("out.mp4")), hashes(self.path("in.h264")), case)

    def test_record_av_gives_three_tracks_that_read_back_shows(self):
        shown = run(program("record_av", self.path("out.mp4"))).splitlines()
        self.assertEqual(shown[-1], "10 s: 250 pictures, 500 pieces of sound, 10 positions")
        self.assertEqual((len(hashes(self.path("out.mp4"))), len(hashes(self.path("out.mp4"), "a"))), (250, 500))
        shown = run(program("read_back", self.path("out.mp4"), "/moov/ownr")).splitlines()
        self.assertEqual(shown, ["10.000 s, 3 tracks, backup unit 1048576 bytes",
                                 "track 0: camera, H.264, 16 x 16, 25 frames/s",
                                 "track 1: microphone, G.711 u-law, 8000 Hz, 1 channels",
                                 "track 2: position, metadata, 1 samples/s", "/moov/ownr: recorded by an example"])
        run(program("read_back", self.path("out.mp4"), "/moov/none"), expected=1)

    def test_repair_directory_tells_what_became_of_each_file(self):
        run(program("record_av", self.path("whole.mp4")))
        with open(self.path("whole.mp4"), "rb") as whole:
            data = whole.read()
        for name, piece in (("cut.mov", data[:60000]), ("early.mp4", data[:50]), ("note.txt", b"no recording")):
            with open(self.path(name), "wb") as file:
                file.write(piece)
        report = run(program("repair_directory", self.folder), expected=1)
        self.assertRegex(report, r"cut\.mov: repaired, \d+\.\d s of recording, in \d+\.\d\d s\n")
        self.assertRegex(report, r"whole\.mp4: finished, 10\.0 s of recording\n")
        self.assertRegex(report, r"early\.mp4: ZR_ERR_MP4_[A-Z_]+, ")
        self.assertTrue(report.endswith("3 recordings, 1 not repaired\n"), report)
        self.assertIn("cut.mov: finished", run(program("repair_directory", self.folder), expected=1))
        self.assertGreater(len(hashes(self.path("cut.mov"))), 100)

    def test_kill_and_repair_loses_nothing_that_had_left_the_buffer(self):
        report = run(program("kill_and_repair", self.path("out.mp4"), "20"))
        counts = re.match(r"20 kills: (\d+) frames acknowledged, (\d+) recovered, 0 bad\n$", report)
        self.assertTrue(counts and int(counts[1]) > 0, report)
        self.assertGreaterEqual(int(counts[2]), int(counts[1]) - 20 * 5)


if __name__ == "__main__":
    unittest.main()

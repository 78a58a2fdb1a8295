"""Records real streams with the tool and compares what ffmpeg decodes with its source.

usage: tool_test.py ZRMP4 [unittest arguments]. ZRMP4_SANITIZED in the environment leaves out what measures memory.
"""
import concurrent.futures
import json
import os
import re
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

ZRMP4 = os.path.abspath(sys.argv.pop(1))
DISK = tempfile.TemporaryDirectory(prefix="zrmp4-")
TMPFS = tempfile.TemporaryDirectory(prefix="zrmp4-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
SIZE = "192x128"
PICTURE = "testsrc2=size=%s:duration=1:rate=" % SIZE
SOUND = "sine=frequency=440:duration=1:sample_rate="
X265 = "log-level=none:bframes=0:keyint=10:min-keyint=10"


def picture(rate, *encoder):
    return ["-f", "lavfi", "-i", PICTURE + str(rate), "-pix_fmt", "yuv420p", *encoder]


def h264(*more, rate=30):
    return picture(rate, "-c:v", "libx264", "-bf", "0", "-g", "10", *more, "-f", "h264")


def h265(*params):
    return picture(30, "-c:v", "libx265", "-x265-params", ":".join((X265,) + params), "-f", "hevc")


def sound(rate, channels, *encoder):
    return ["-f", "lavfi", "-i", SOUND + str(rate), "-ac", str(channels), *encoder]


def prores(profile, *more):
    return ["-f", "lavfi", "-i", PICTURE + "25", "-pix_fmt", "yuv422p10le", "-c:v", "prores_ks", "-profile:v",
            str(profile), *more, "-f", "mov"]


def three_byte_codes(stream):
    return stream.replace(b"\0\0\0\1", b"\0\0\1")


def idr_with_leading(stream):  # IDR_N_LP becomes IDR_W_RADL, which may have leading pictures but need not
    return stream.replace(b"\0\0\1\x28\1", b"\0\0\1\x26\1")


def video(codec, fps="30"):
    return ["--codec", codec, "--fps", fps, "--size", SIZE]


def audio(codec, rate, channels):
    return ["--codec", codec, "--rate", str(rate), "--channels", str(channels)]


# name: how ffmpeg makes it, what happens to its bytes then, how the tool is told of it.
STREAMS = {
    "plain.h264": (h264(), None, video("h264")),
    "three.h264": (h264(), three_byte_codes, video("h264")),
    "slices.h264": (h264("-x264-params", "aud=1:slices=4:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=900"), None,
                    video("h264")),
    "ntsc.h264": (h264(rate="30000/1001"), None, video("h264", "29.97")),
    "plain.h265": (h265("open-gop=0"), None, video("h265")),
    "nosei.h265": (h265("info=0", "open-gop=0"), None, video("h265")),
    "repeat.h265": (h265("repeat-headers=1", "aud=1", "slices=2", "hrd=1", "vbv-bufsize=900", "vbv-maxrate=900",
                         "open-gop=0"), idr_with_leading, video("h265")),
    "cra.h265": (h265("open-gop=1"), None, video("h265")),
    "lc.aac": (sound(48000, 2, "-f", "adts"), None, audio("aac", 48000, 2)),
    "mono.aac": (sound(44100, 1, "-f", "adts"), None, audio("aac", 44100, 1)),
    "plain.mp3": (sound(44100, 2, "-write_xing", "0", "-id3v2_version", "0"), None, audio("mp3", 44100, 2)),
    "low.mp3": (sound(22050, 1, "-write_xing", "0"), None, audio("mp3", 22050, 1)),
    "index.mp3": (sound(48000, 2, "-write_id3v1", "1"), None, audio("mp3", 48000, 2)),
    "mono.alaw": (sound(8000, 1, "-f", "alaw"), None, audio("g711a", 8000, 1)),
    "stereo.mulaw": (sound(16000, 2, "-f", "mulaw"), None, audio("g711u", 16000, 2)),
}
for number, kind in enumerate(("proxy", "lt", "422", "hq")):
    STREAMS[kind + ".prores"] = (prores(number), None, video("prores-" + kind, "25"))
    STREAMS[kind + "-tff.prores"] = (prores(number, "-flags", "+ildct", "-field_order", "tt"), None,
                                     video("prores-" + kind, "25"))

# Every pair of these six choices occurs in some row.
CHOICES = (["--profile", "mov"], ["--co64"], ["--constant-rate"], ["--pre-alloc", "1M"], ["--backup-unit", "1M"],
           "on disk")
ROWS = ("000000", "111110", "111001", "100111", "010101", "001010")


def raw_input(name):
    """What ffmpeg has to be told to read a stream as the tool does."""
    if name.endswith("law"):
        _, _, options = STREAMS[name]
        return ["-f", name.split(".")[1], "-ar", options[3], "-ac", options[5]]
    return []


def source_path(name):
    return os.path.join(TMPFS.name, name)


def reference_path(name):  # ffmpeg cannot read ProRes without a container
    return source_path(name) + ".mov" if name.endswith(".prores") else source_path(name)


def run(*command, **options):
    return subprocess.run(command, stdin=options.pop("stdin", subprocess.DEVNULL), stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=120, **options)


def make_stream(name):
    arguments, change, _ = STREAMS[name]
    done = run("ffmpeg", "-nostdin", "-y", "-v", "error", *arguments, reference_path(name))
    assert done.returncode == 0, done.stderr.decode()
    if name.endswith(".prores"):
        run("ffmpeg", "-nostdin", "-y", "-v", "error", "-i", reference_path(name), "-c", "copy", "-f", "rawvideo",
            source_path(name))
    if change:
        with open(source_path(name), "r+b") as stream:
            data = change(stream.read())
            stream.seek(0)
            stream.truncate()
            stream.write(data)


def decoded(path, *input_options, stream="0:0", copy=False, pieces=False):
    """The hashes of a stream's frames, and the warnings without what differs from run to run."""
    work = ["-c", "copy"] if copy else ["-af", "asetnsamples=n=160:p=0"] if pieces else []
    done = run("ffmpeg", "-nostdin", "-v", "warning", "-xerror", *input_options, "-i", path, "-map", stream, *work,
               "-fps_mode", "passthrough", "-f", "framehash", "-")
    assert done.returncode == 0, "%s: %s" % (path, done.stderr.decode())
    hashes = [line.split(",")[5].strip() for line in done.stdout.decode().splitlines() if line[:1] not in ("#", "")]
    warnings = {re.sub(r"0x[0-9a-f]+|'[^']*'|\[[^]]*\]|\d+", "", line) for line in done.stderr.decode().splitlines()}
    return hashes, warnings


def key_frames(path, stream="v"):
    done = run("ffprobe", "-v", "error", "-select_streams", stream, "-show_entries", "frame=key_frame", "-of",
               "csv=p=0", path)
    flags = [line.strip(",\r") for line in done.stdout.decode().split()]
    return len(flags), flags.count("1")


def packets(path):
    """Stream and position of each."""
    done = run("ffprobe", "-v", "error", "-show_entries", "packet=stream_index,pos", "-of", "csv=p=0", path)
    assert done.returncode == 0, done.stderr.decode()
    return [tuple(map(int, line.split(",")[:2])) for line in done.stdout.decode().replace("N/A", "-1").split()]


def field(path, box, offset):
    """A number behind the type of a box of the last track."""
    with open(path, "rb") as file:
        data = file.read()
    return struct.unpack_from(">I", data, data.rindex(box) + offset)[0]


def record(output, *arguments, **options):
    return run(ZRMP4, "record", "-o", output, *arguments, **options)


def metadata(count, size):
    samples = [bytes([n % 251]) * (size(n)) for n in range(count)]
    return samples, b"".join(struct.pack(">I", len(sample)) + sample for sample in samples)


class Workspace(unittest.TestCase):
    def path(self, name, folder=TMPFS):
        return os.path.join(folder.name, self._testMethodName + "-" + name)

    def write(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return self.path(name)

    def wait_for_size(self, path, size):
        deadline = time.monotonic() + 60
        while not os.path.exists(path) or os.path.getsize(path) < size:
            self.assertLess(time.monotonic(), deadline, "nothing was written")
            time.sleep(0.05)

    def recorded(self, done):
        self.assertEqual((done.returncode, done.stderr.decode()), (0, ""))


class Matrix(Workspace):
    """Each stream with each row of choices."""

    def check(self, output, name, row):
        options = [word for choice, bit in zip(CHOICES[:-1], row) if bit == "1" for word in choice]
        is_sound = "--rate" in STREAMS[name][2]
        kind = "--audio" if is_sound else "--video"
        self.assertEqual(record(output, *options, kind, source_path(name), *STREAMS[name][2]).returncode, 0)
        expected, known, counts = self.sources[name]
        hashes, warnings = self.decoded(output, name)
        self.assertEqual((len(hashes), hashes == expected), (len(expected), True))
        self.assertEqual(warnings - known, set())
        self.assertEqual(len(packets(output)) if is_sound else key_frames(output), counts)
        self.assertEqual(field(output, b"stts", 8), 1, "durations differ")

    def check_cut(self, output, name, part):
        """Cuts an unfinished recording somewhere; what repair makes of it decodes like the beginning of the source."""
        kind = "--audio" if "--rate" in STREAMS[name][2] else "--video"
        record(output, "--no-finish", "--backup-unit", "512k", kind, source_path(name), *STREAMS[name][2])
        os.truncate(output, int(os.path.getsize(output) * part))
        self.assertEqual(run(ZRMP4, "repair", output).returncode, 0)
        hashes, _ = self.decoded(output, name)
        whole = len(hashes) - name.endswith("law")  # the last piece of a raw sound may be a short one
        expected = self.sources[name][0]
        self.assertTrue(0 < len(hashes) < len(expected) and hashes[:whole] == expected[:whole], len(hashes))

    def outcome(self, check, name, choice):
        folder = DISK if str(choice)[-1] == "1" else TMPFS
        output = os.path.join(folder.name, "%s-%s.mp4" % (name, choice))
        try:
            check(output, name, choice)
        except AssertionError as error:
            return repr(error)
        finally:
            os.unlink(output)
        return None

    def decoded(self, path, name, *options):
        return decoded(path, *options, copy=name == "index.mp3", pieces=name.endswith("law"))

    def source(self, name):
        make_stream(name)
        hashes, warnings = self.decoded(reference_path(name), name, *raw_input(name))
        if name.endswith("law"):
            piece = int(STREAMS[name][2][3]) // 50 * int(STREAMS[name][2][5])
            counts = -(-os.path.getsize(source_path(name)) // piece)
        elif "--rate" in STREAMS[name][2]:
            counts = len(packets(reference_path(name)))
        else:
            counts = key_frames(reference_path(name))
        return hashes, warnings, counts

    def test_every_stream_decodes_like_its_source(self):
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            self.sources = dict(zip(STREAMS, pool.map(self.source, STREAMS)))
            for check, choices in (self.check, ROWS), (self.check_cut, (0.4, 0.83)):
                cases = [(name, row) for name in STREAMS for row in choices]
                for (name, row), failure in zip(cases, pool.map(lambda case: self.outcome(check, *case), cases)):
                    with self.subTest(stream=name, choices=row):
                        self.assertIsNone(failure)


class Recording(Workspace):
    def test_metadata_comes_back_byte_for_byte(self):
        samples, stream = metadata(200, lambda n: n % 7 * 50)
        for row in ROWS:
            options = [word for choice, bit in zip(CHOICES[:-1], row) if bit == "1" for word in choice]
            output = self.path(row + ".mp4")
            self.recorded(record(output, *options, "--meta", self.write("in", stream), "--fps", "10"))
            found = run("ffmpeg", "-nostdin", "-v", "error", "-i", output, "-map", "0", "-c", "copy", "-f", "data", "-")
            self.assertEqual(found.stdout, b"".join(samples), row)

    def test_a_fixed_rate_has_one_duration_however_long(self):
        _, stream = metadata(20000, lambda n: 1)
        for fps in ("25", "30", "60", "29.97", "24000/1001", "12.5", "7", "0.5", "2/3", "1000"):
            output = self.path("out.mp4")
            self.recorded(record(output, "--meta", self.write("in", stream), "--fps", fps))
            self.assertEqual((field(output, b"stts", 8), field(output, b"stsz", 12)), (1, 20000), fps)
            scale, duration = field(output, b"mdhd", 16), field(output, b"mdhd", 20)
            rate = {"29.97": 30000 / 1001, "24000/1001": 24000 / 1001, "2/3": 2 / 3}.get(fps) or float(fps)
            self.assertAlmostEqual(duration / scale * rate, 20000, 6, fps)

    def test_tracks_are_interleaved_from_pipes_that_one_program_feeds(self):
        self.ensure("plain.h264", "lc.aac")
        pipes = [self.path("audio"), self.path("video")]
        for pipe in pipes:
            os.mkfifo(pipe)
        # The video comes first and is more than a pipe holds, so the audio is only written when both are read.
        producer = subprocess.Popen(
            ["sh", "-c", "for i in 1 2 3 4 5 6; do cat %s; done >%s; cat %s >%s" %
             (source_path("plain.h264"), pipes[1], source_path("lc.aac"), pipes[0])])
        output = self.path("out.mp4")
        done = record(output, "--audio", pipes[0], *audio("aac", 48000, 2), "--video", pipes[1], *video("h264"))
        producer.wait()
        self.recorded(done)
        sounds, pictures = ([packet[1] for packet in packets(output) if packet[0] == track] for track in (0, 1))
        self.assertEqual(len(pictures), 180)
        # One second of sound lies within the first second of pictures.
        self.assertLess(sounds[-1], pictures[35])

    def ensure(self, *names):
        for name in names:
            if not os.path.exists(source_path(name)):
                make_stream(name)

    def test_a_stop_finishes_the_file(self):
        self.ensure("plain.h264")
        for number in (signal.SIGINT, signal.SIGTERM):
            output = self.path("out.mp4")
            tool = subprocess.Popen([ZRMP4, "record", "-o", output, "--buffer", "1", "--video", "-", *video("h264")],
                                    stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            with open(source_path("plain.h264"), "rb") as source:
                tool.stdin.write(source.read())
            tool.stdin.flush()
            self.wait_for_size(output, 20000)
            tool.send_signal(number)
            self.assertEqual(tool.wait(30), 0, tool.stderr.read())
            self.assertIn(key_frames(output)[0], range(20, 30))  # the last may not have been whole
            os.unlink(output)
            tool.stdin.close()
            tool.stderr.close()

    @unittest.skipIf(os.environ.get("ZRMP4_SANITIZED"), "the sanitizers keep freed memory")
    def test_memory_is_bounded(self):
        sample = struct.pack(">I", 1 << 20) + bytes(1 << 20)
        tool = subprocess.Popen([ZRMP4, "record", "-o", self.path("out.mp4"), "--meta", "-", "--fps", "30"],
                                stdin=subprocess.PIPE)
        for _ in range(400):
            tool.stdin.write(sample)
        tool.stdin.close()
        _, status, usage = os.wait4(tool.pid, 0)
        tool.returncode = status
        self.assertEqual(status, 0)
        self.assertLess(usage.ru_maxrss, 32 << 10)
        os.unlink(self.path("out.mp4"))

    def test_key_frames_that_cannot_be_flagged_are_mentioned_once(self):
        self.ensure("cra.h265", "nosei.h265")
        for name, flagged, notices in (("cra.h265", 1, 1), ("nosei.h265", 3, 0)):
            done = record(self.path("out.mp4"), "--video", source_path(name), *video("h265"))
            self.assertEqual(done.returncode, 0)
            self.assertEqual(done.stderr.decode().count("without their flag"), notices)
            self.assertEqual(field(self.path("out.mp4"), b"stss", 8), flagged)

    def test_boxes_are_added_where_they_are_asked_for(self):
        _, stream = metadata(5, lambda n: 10)
        source, box = self.write("in", stream), self.write("box", b"hello")
        output = self.path("out.mp4")
        self.recorded(record(output, "--box", "/:abcd:" + box, "--box", "/moov/trak[0]:efgh:" + box, "--meta", source,
                             "--fps", "1"))
        for path in ("/abcd", "abcd?", "/moov/trak[0]/efgh"):
            done = run(ZRMP4, "get", output, path)
            self.assertEqual((done.returncode, done.stdout), (1, b"") if "?" in path else (0, b"hello"))

    def test_failures_name_file_cause_and_code(self):
        self.ensure("plain.h264", "lc.aac")
        picture_file, sound_file = source_path("plain.h264"), source_path("lc.aac")
        with open(sound_file, "rb") as sound_stream:
            damaged = self.write("damaged.aac", sound_stream.read() + b"no frame")
        out = self.path("out.mp4")
        rows = [
            (["record", "-o", out, "--video", "/no/such/file", *video("h264")], "/no/such/file: cannot be opened: No"),
            (["record", "-o", "/no/such/folder/x", "--video", picture_file, *video("h264")],
             r"/no/such/folder/x: cannot be opened .*\[ZR_ERR_MP4_OPEN_FILE 0xA1298063\]"),
            (["record", "-o", out, "--video", sound_file, *video("h264")], "lc.aac: no start code at byte 0"),
            (["record", "-o", out, "--audio", picture_file, *audio("aac", 48000, 2)], "plain.h264: no ADTS header"),
            (["record", "-o", out, "--audio", sound_file, *audio("aac", 44100, 2)], "lc.aac: its frames say 48000 Hz"),
            (["record", "-o", out, "--video", "/dev/null", *video("h264")], "/dev/null: holds no frames"),
            (["record", "-o", out, "--backup-unit", "1", "--audio", sound_file, *audio("aac", 48000, 2)],
             r"out.mp4: refused \(.*mp4 cfg illegal\) \[ZR_ERR_MP4_ILLEGAL_PARAM 0xA1298041\]"),
            (["record", "-o", out, "--audio", damaged, *audio("aac", 48000, 2)], r"damaged.aac: no ADTS .* byte \d+"),
            (["repair", "/no/such/file"], "/no/such/file: cannot be opened"),
            (["repair", sound_file], r"lc.aac: .*\[ZR_ERR_MP4_[A-Z_]+ 0xA12980[0-9A-F]{2}\]"),
            (["info", sound_file], r"lc.aac: .*\[ZR_ERR_MP4_OPEN 0xA1298043\]"),
            (["dump", sound_file], r"lc.aac: .*\[ZR_ERR_MP4_OPEN 0xA1298043\]"),
        ]
        for arguments, message in rows:
            done = run(ZRMP4, *arguments)
            self.assertEqual(done.returncode, 1, arguments)
            self.assertRegex(done.stderr.decode(), message)
        self.assertEqual(len(decoded(out)[0]), 48)  # what was recorded before the damage is finished

    def test_wrong_usage_answers_two(self):
        track = ["--video", "x", *video("h264")]
        rows = [[], ["play"], ["record"], ["record", *track], ["record", "-o", "x"],
                ["record", "-o", "x", "--video", "x", "--codec", "h264", "--fps", "30"],
                ["record", "-o", "x", "--codec", "h264"], ["record", "-o", "x", *track, "--rate", "8000"],
                ["record", "-o", "x", *track, "--fps", "0"], ["record", "-o", "x", *track, "--fps", "1/0"],
                ["record", "-o", "x", *track, "--size", "0x10"], ["record", "-o", "x", *track, "--buffer", "1G"],
                ["record", "-o", "x", *track, "--buffer", "4294967297"], ["record", "-o", "x" * 256, *track],
                ["record", "-o", "x", *track, "--profile", "avi"], ["record", "-o", "x", *track, "--box", "/:abc:x"],
                ["record", "-o", "x", *track, "--codec", "aac"], ["repair"], ["info"], ["info", "a", "b"],
                ["get", "x"], ["dump"], ["record", "-o", "x", "--meta", "-", "--fps", "1", "--meta", "-", "--fps", "1"]]
        for arguments in rows:
            done = run(ZRMP4, *arguments)
            self.assertEqual((done.returncode, done.stdout), (2, b""), arguments)
            self.assertNotEqual(done.stderr, b"")
        for command in ([], ["record"], ["repair"], ["info"], ["dump"], ["get"]):
            done = run(ZRMP4, *command, "--help")
            self.assertEqual((done.returncode, done.stderr), (0, b""), command)
            self.assertIn(b"zrmp4", done.stdout)


class Repairing(Workspace):
    def cut_recording(self, seconds):
        """A recording of H.264 and AAC that was closed as a cut leaves it, with snapshots."""
        make_stream("lc.aac")
        made = run("ffmpeg", "-nostdin", "-y", "-v", "error", "-f", "lavfi", "-i",
                   "testsrc2=size=640x360:rate=30:duration=%d" % seconds, "-pix_fmt", "yuv420p", "-c:v", "libx264",
                   "-preset", "ultrafast", "-bf", "0", "-qp", "8", "-g", "15", self.path("in.h264"))
        self.assertEqual(made.returncode, 0, made.stderr)
        return ["--backup-unit", "512k", "--pre-alloc", "1M", "--video", self.path("in.h264"), *video("h264"), "--size",
                "640x360", "--audio", source_path("lc.aac"), *audio("aac", 48000, 2)]

    def test_a_cut_recording_is_repaired_and_described(self):
        arguments = self.cut_recording(3)
        output, whole = self.path("cut.mp4"), self.path("whole.mp4")
        self.recorded(record(output, "--no-finish", *arguments))
        self.recorded(record(whole, *arguments))
        self.assertNotEqual(run("ffprobe", "-v", "error", output).returncode, 0)
        with open(output, "rb") as file:
            cut = file.read()
        self.assertGreater(len(cut), 2 << 19)  # there are snapshots in it

        done = run(ZRMP4, "repair", "--json", output)
        self.assertEqual(done.returncode, 0, done.stderr)
        (report,) = json.loads(done.stdout)
        self.assertEqual(report["outcome"], "repaired")
        counts = {track["type"]: track["frames"] for track in report["tracks"]}
        self.assertEqual(counts, {"video": 90, "audio": 48})
        self.assertEqual(report["tracks"][0]["key_frames"], 6)
        self.assertAlmostEqual(report["tracks"][0]["duration_seconds"], 3, 3)
        self.assertEqual(report["bytes_kept"] + report["bytes_dropped"], len(cut))
        for stream in ("0:0", "0:1"):
            self.assertEqual(decoded(output, stream=stream)[0], decoded(whole, stream=stream)[0])

        done = run(ZRMP4, "repair", output)
        self.assertEqual(done.returncode, 0)
        self.assertIn(b"finished file, left alone", done.stdout)

        info = json.loads(run(ZRMP4, "info", "--json", output).stdout)
        self.assertEqual((info["backup_unit_bytes"], info["track_count"], info["co64"]), (1 << 19, 2, False))
        self.assertEqual([track["codec"] for track in info["tracks"]], ["h264", "aac"])
        self.assertEqual((info["tracks"][0]["width"], info["tracks"][0]["frame_rate_fps"]), (640, 30))
        self.assertEqual((info["tracks"][1]["sample_rate_hz"], info["tracks"][1]["samples_per_frame"]), (48000, 1024))
        dump = run(ZRMP4, "dump", output).stdout.decode()
        self.assertRegex(dump, r"\A\+root\n\+-ftyp\n\+-mdat\n")
        self.assertIn("+--mvhd\n", dump)
        self.assertIn("vemo backupUnit=524288", dump)
        self.assertRegex(dump, "tbgp userAtomNum=0")

        with open(output, "wb") as file:  # the same again, with the snapshots only
            file.write(cut)
        (report,) = json.loads(run(ZRMP4, "repair", "--no-extra-frames", "--json", output).stdout)
        self.assertTrue(0 < report["tracks"][0]["frames"] < 90, report)
        self.assertEqual(len(decoded(output)[0]), report["tracks"][0]["frames"])


if __name__ == "__main__":
    unittest.main(verbosity=2)

"""Records real streams with the tool and compares what ffmpeg decodes with its source.

usage: tool_test.py ZRMP4 [unittest arguments]. ZRMP4_SANITIZED in the environment leaves out what measures memory.
"""
import concurrent.futures
import json
import os
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

from programs import decoded, ffmpeg, ffprobe, run

ZRMP4 = os.path.abspath(sys.argv.pop(1))
DISK = tempfile.TemporaryDirectory(prefix="zrmp4-")
TMPFS = tempfile.TemporaryDirectory(prefix="zrmp4-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
SIZE = "192x128"
PICTURE = "testsrc2=size=%s:duration=1:rate=" % SIZE


def picture(rate, form, *encoder, pixels="yuv420p"):
    return ["-f", "lavfi", "-i", PICTURE + rate, "-pix_fmt", pixels, *encoder, "-f", form]


def h264(*more, rate="30"):
    return picture(rate, "h264", "-c:v", "libx264", "-bf", "0", "-g", "10", *more)


def h265(*params):
    params = ("log-level=none", "bframes=0", "keyint=10", "min-keyint=10", *params)
    return picture("30", "hevc", "-c:v", "libx265", "-x265-params", ":".join(params))


def sound(rate, channels, *encoder):
    return ["-f", "lavfi", "-i", "sine=frequency=440:duration=1:sample_rate=%d" % rate, "-ac", str(channels), *encoder]


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
    for name, more in ((kind, []), (kind + "-tff", ["-flags", "+ildct", "-field_order", "tt"])):
        STREAMS[name + ".prores"] = (picture("25", "mov", "-c:v", "prores_ks", "-profile:v", str(number), *more,
                                             pixels="yuv422p10le"), None, video("prores-" + kind, "25"))

# Every pair of these six choices occurs in some row.
CHOICES = (["--profile", "mov"], ["--co64"], ["--constant-rate"], ["--pre-alloc", "1M"], ["--backup-unit", "1M"],
           "on disk")
ROWS = ("000000", "111110", "111001", "100111", "010101", "001010")


def source_path(name):
    return os.path.join(TMPFS.name, name)


def reference_path(name):  # ffmpeg cannot read ProRes without a container
    return source_path(name) + ".mov" if name.endswith(".prores") else source_path(name)


def make_stream(name):
    arguments, change, _ = STREAMS[name]
    ffmpeg(*arguments, reference_path(name))
    if name.endswith(".prores"):
        ffmpeg("-i", reference_path(name), "-c", "copy", "-f", "rawvideo", source_path(name))
    if change:
        with open(source_path(name), "r+b") as stream:
            data = change(stream.read())
            stream.seek(0)
            stream.truncate()
            stream.write(data)


def ensured(name):
    if not os.path.exists(source_path(name)):
        make_stream(name)
    return source_path(name)


def key_frames(path):
    """How many frames there are, and how many of them are key frames."""
    flags = [row[0] for row in ffprobe(path, "frame=key_frame", "-select_streams", "v")]
    return len(flags), flags.count("1")


def packets(path):
    """Stream and position of each."""
    return [(int(row[0]), row[1]) for row in ffprobe(path, "packet=stream_index,pos")]


def field(path, box, offset):
    """A number behind the type of a box of the last track."""
    with open(path, "rb") as file:
        data = file.read()
    return struct.unpack_from(">I", data, data.rindex(box) + offset)[0]


def options_of(row):
    return [word for choice, bit in zip(CHOICES[:-1], row) if bit == "1" for word in choice]


def input_of(name):
    """The options that record a stream."""
    return ["--audio" if "--rate" in STREAMS[name][2] else "--video", source_path(name), *STREAMS[name][2]]


def record(output, *arguments):
    """What the tool has to say."""
    return run(ZRMP4, "record", "-o", output, *arguments).stderr


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

class Matrix(Workspace):
    """Each stream with each row of choices."""

    def check(self, output, name, row):
        record(output, *options_of(row), *input_of(name))
        expected, known, counts = self.sources[name]
        hashes, warnings = self.decoded(output, name)
        self.assertEqual((len(hashes), hashes == expected), (len(expected), True))
        self.assertEqual(warnings - known, set())
        self.assertEqual(len(packets(output)) if "--audio" in input_of(name) else key_frames(output), counts)
        self.assertEqual(field(output, b"stts", 8), 1, "durations differ")

    def check_cut(self, output, name, part):
        """Cuts an unfinished recording somewhere; what repair makes of it decodes like the beginning of the source."""
        record(output, "--no-finish", "--backup-unit", "512k", *input_of(name))
        os.truncate(output, int(os.path.getsize(output) * part))
        run(ZRMP4, "repair", output)
        hashes, _ = self.decoded(output, name)
        whole = len(hashes) - name.endswith("law")  # the last piece of a raw sound may be a short one
        expected = self.sources[name][0]
        self.assertTrue(0 < len(hashes) < len(expected) and hashes[:whole] == expected[:whole], len(hashes))

    def outcome(self, check, name, choice):
        output = os.path.join((DISK if str(choice)[-1] == "1" else TMPFS).name, "%s-%s.mp4" % (name, choice))
        try:
            check(output, name, choice)
        except AssertionError as error:
            return repr(error)
        finally:
            os.unlink(output)
        return None

    def decoded(self, path, name, *options):
        work = {"mp3": ["-c", "copy"] if name == "index.mp3" else [], "law": ["-af", "asetnsamples=n=160:p=0"]}
        return decoded(path, *options, work=work.get(name[-3:], []))

    def source(self, name):
        make_stream(name)
        path, options = reference_path(name), STREAMS[name][2]
        if name.endswith("law"):  # ffmpeg has to be told what the tool is told
            rate, channels = options[3], options[5]
            frames = -(-os.path.getsize(path) // (int(rate) // 50 * int(channels)))
            return *self.decoded(path, name, "-f", name.split(".")[1], "-ar", rate, "-ac", channels), frames
        return *self.decoded(path, name), len(packets(path)) if "--rate" in options else key_frames(path)

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
            output = self.path(row + ".mp4")
            self.assertEqual(record(output, *options_of(row), "--meta", self.write("in", stream), "--fps", "10"), "")
            found = ffmpeg("-i", output, "-map", "0", "-c", "copy", "-f", "data", "-", text=False).stdout
            self.assertEqual(found, b"".join(samples), row)

    def test_a_fixed_rate_has_one_duration_however_long(self):
        source, output = self.write("in", metadata(20000, lambda n: 1)[1]), self.path("out.mp4")
        rates = {"29.97": 30000 / 1001, "24000/1001": 24000 / 1001, "2/3": 2 / 3}
        for fps in ("25", "30", "60", "12.5", "7", "0.5", "1000", *rates):
            self.assertEqual(record(output, "--meta", source, "--fps", fps), "")
            self.assertEqual((field(output, b"stts", 8), field(output, b"stsz", 12)), (1, 20000), fps)
            scale, duration = field(output, b"mdhd", 16), field(output, b"mdhd", 20)
            self.assertAlmostEqual(duration / scale * (rates.get(fps) or float(fps)), 20000, 6, fps)

    def test_tracks_are_interleaved_from_pipes_that_one_program_feeds(self):
        pipes = [self.path("audio"), self.path("video")]
        for pipe in pipes:
            os.mkfifo(pipe)
        # The video comes first and is more than a pipe holds, so the audio is only written when both are read.
        producer = subprocess.Popen(["sh", "-c", "for i in 1 2 3 4 5 6; do cat %s; done >%s; cat %s >%s" %
                                     (ensured("plain.h264"), pipes[1], ensured("lc.aac"), pipes[0])])
        output = self.path("out.mp4")
        told = record(output, "--audio", pipes[0], *audio("aac", 48000, 2), "--video", pipes[1], *video("h264"))
        self.assertEqual((told, producer.wait()), ("", 0))
        sounds, pictures = ([int(place) for track, place in packets(output) if track == which] for which in (0, 1))
        self.assertEqual(len(pictures), 180)
        # One second of sound lies within the first second of pictures.
        self.assertLess(sounds[-1], pictures[35])

    def test_a_stop_finishes_the_file(self):
        with open(ensured("plain.h264"), "rb") as source:
            stream = source.read()
        output = self.path("out.mp4")
        for number in (signal.SIGINT, signal.SIGTERM):
            with subprocess.Popen([ZRMP4, "record", "-o", output, "--buffer", "1", "--video", "-", *video("h264")],
                                  stdin=subprocess.PIPE, stderr=subprocess.PIPE) as tool:
                tool.stdin.write(stream)
                tool.stdin.flush()
                self.wait_for_size(output, 20000)
                tool.send_signal(number)
                self.assertEqual(tool.wait(30), 0, tool.stderr.read())
            self.assertIn(key_frames(output)[0], range(20, 30))  # the last may not have been whole
            os.unlink(output)

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
        output = self.path("out.mp4")
        for name, flagged, notices in (("cra.h265", 1, 1), ("nosei.h265", 3, 0)):
            ensured(name)
            self.assertEqual(record(output, *input_of(name)).count("without their flag"), notices)
            self.assertEqual(field(output, b"stss", 8), flagged)

    def test_boxes_are_added_where_they_are_asked_for(self):
        source, box = self.write("in", metadata(5, lambda n: 10)[1]), self.write("box", b"hello")
        output = self.path("out.mp4")
        self.assertEqual(record(output, "--box", "/:abcd:" + box, "--box", "/moov/trak[0]:efgh:" + box, "--meta",
                                source, "--fps", "1"), "")
        for path, status, text in (("/abcd", 0, "hello"), ("abcd?", 1, ""), ("/moov/trak[0]/efgh", 0, "hello")):
            self.assertEqual(run(ZRMP4, "get", output, path, expected=status).stdout, text)

    def test_failures_name_file_cause_and_code(self):
        picture_file, sound_file, sounds = ensured("plain.h264"), ensured("lc.aac"), audio("aac", 48000, 2)
        with open(sound_file, "rb") as sound_stream:
            damaged = self.write("damaged.aac", sound_stream.read() + b"no frame")
        out = self.path("out.mp4")
        into = ["record", "-o", out]
        rows = [
            ([*into, "--video", "/no/such/file", *video("h264")], "/no/such/file: cannot be opened: No"),
            (["record", "-o", "/no/such/folder/x", "--video", picture_file, *video("h264")],
             r"/no/such/folder/x: cannot be opened .*\[ZR_ERR_MP4_OPEN_FILE 0xA1298063\]"),
            ([*into, "--video", sound_file, *video("h264")], "lc.aac: no start code at byte 0"),
            ([*into, "--audio", picture_file, *sounds], "plain.h264: no ADTS header"),
            ([*into, "--audio", sound_file, *audio("aac", 44100, 2)], "lc.aac: its frames say 48000 Hz"),
            ([*into, "--video", "/dev/null", *video("h264")], "/dev/null: holds no frames"),
            ([*into, "--backup-unit", "1", "--audio", sound_file, *sounds],
             r"out.mp4: refused \(.*mp4 cfg illegal\) \[ZR_ERR_MP4_ILLEGAL_PARAM 0xA1298041\]"),
            ([*into, "--audio", damaged, *sounds], r"damaged.aac: no ADTS .* byte \d+"),
            (["repair", "/no/such/file"], "/no/such/file: cannot be opened"),
            (["repair", sound_file], r"lc.aac: .*\[ZR_ERR_MP4_[A-Z_]+ 0xA12980[0-9A-F]{2}\]"),
            *((([command, sound_file], r"lc.aac: .*\[ZR_ERR_MP4_OPEN 0xA1298043\]")) for command in ("info", "dump")),
        ]
        for arguments, message in rows:
            self.assertRegex(run(ZRMP4, *arguments, expected=1).stderr, message)
        self.assertEqual(len(decoded(out)[0]), 48)  # what was recorded before the damage is finished

    def test_wrong_usage_answers_two(self):
        whole = ["record", "-o", "x", "--video", "x", *video("h264")]
        more = ("--rate 8000", "--fps 0", "--fps 1/0", "--size 0x10", "--buffer 1G", "--buffer 4294967297",
                "--profile avi", "--box /:abc:x", "--codec aac")
        others = ("", "play", "record", "record --video x --codec h264 --fps 30 --size 192x128", "record -o x",
                  "record -o x --video x --codec h264 --fps 30", "record -o x --codec h264", "repair", "info",
                  "info a b", "get x", "dump", "record -o x --meta - --fps 1 --meta - --fps 1")
        for arguments in (*(whole + option.split() for option in more), *(line.split() for line in others),
                          ["record", "-o", "x" * 256, *whole[3:]]):
            done = run(ZRMP4, *arguments, expected=2)
            self.assertTrue(done.stderr and not done.stdout, arguments)
        for command in ([], ["record"], ["repair"], ["info"], ["dump"], ["get"]):
            done = run(ZRMP4, *command, "--help")
            self.assertTrue("zrmp4" in done.stdout and not done.stderr, command)


class Repairing(Workspace):
    def test_a_cut_recording_is_repaired_and_described(self):
        source, output, whole = self.path("in.h264"), self.path("cut.mp4"), self.path("whole.mp4")
        ffmpeg("-f", "lavfi", "-i", "testsrc2=size=640x360:rate=30:duration=3", "-pix_fmt", "yuv420p", "-c:v",
               "libx264", "-preset", "ultrafast", "-bf", "0", "-qp", "8", "-g", "15", source)
        arguments = ["--backup-unit", "512k", "--pre-alloc", "1M", "--video", source, *video("h264"), "--size",
                     "640x360", "--audio", ensured("lc.aac"), *audio("aac", 48000, 2)]
        self.assertEqual(record(output, "--no-finish", *arguments) + record(whole, *arguments), "")
        run("ffprobe", "-v", "error", output, expected=1)
        with open(output, "rb") as file:
            cut = file.read()
        self.assertGreater(len(cut), 2 << 19)  # there are snapshots in it

        (report,) = json.loads(run(ZRMP4, "repair", "--json", output).stdout)
        self.assertEqual(report["outcome"], "repaired")
        counts = {track["type"]: track["frames"] for track in report["tracks"]}
        self.assertEqual(counts, {"video": 90, "audio": 48})
        self.assertEqual(report["tracks"][0]["key_frames"], 6)
        self.assertAlmostEqual(report["tracks"][0]["duration_seconds"], 3, 3)
        self.assertEqual(report["bytes_kept"] + report["bytes_dropped"], len(cut))
        for stream in ("0:0", "0:1"):
            self.assertEqual(decoded(output, stream=stream)[0], decoded(whole, stream=stream)[0])
        self.assertIn("finished file, left alone", run(ZRMP4, "repair", output).stdout)

        info = json.loads(run(ZRMP4, "info", "--json", output).stdout)
        self.assertEqual((info["backup_unit_bytes"], info["track_count"], info["co64"]), (1 << 19, 2, False))
        for track, expected in zip(info["tracks"], (
                {"codec": "h264", "width": 640, "frame_rate_fps": 30},
                {"codec": "aac", "sample_rate_hz": 48000, "samples_per_frame": 1024})):
            self.assertEqual(dict(track, **expected), track)
        dump = run(ZRMP4, "dump", output).stdout
        for part in r"\A\+root\n\+-ftyp\n\+-mdat\n", r"\+--mvhd\n", "vemo backupUnit=524288", "tbgp userAtomNum=0":
            self.assertRegex(dump, part)

        with open(output, "wb") as file:  # the same again, with the snapshots only
            file.write(cut)
        (report,) = json.loads(run(ZRMP4, "repair", "--no-extra-frames", "--json", output).stdout)
        self.assertTrue(0 < report["tracks"][0]["frames"] < 90, report)
        self.assertEqual(len(decoded(output)[0]), report["tracks"][0]["frames"])


if __name__ == "__main__":
    unittest.main(verbosity=2)

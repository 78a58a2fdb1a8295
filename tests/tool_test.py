"""What the tool does besides recording streams of each kind: options, pipes, signals, messages, reports."""
import fractions
import json
import os
import re
import signal
import struct
import subprocess
import time
from pathlib import Path

import pytest

from programs import decoded, ffmpeg, ffprobe, run
from streams import make, options


@pytest.fixture(autouse=True)
def workspace(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)


def write_metadata(samples):
    Path("meta").write_bytes(b"".join(struct.pack(">I", len(sample)) + sample for sample in samples))


def fed(line):
    """A process that is given its input while it runs."""
    return subprocess.Popen(line.split(), stdin=subprocess.PIPE)


def test_metadata_comes_back_byte_for_byte():
    samples = [bytes([n]) * (n % 7 * 50) for n in range(200)]
    write_metadata(samples)
    assert run("zrmp4 record -o out.mp4 --meta meta --fps 10").stderr == ""
    assert ffmpeg("-i out.mp4 -map 0 -c copy -f data -", text=False).stdout == b"".join(samples)


@pytest.mark.parametrize("fps", "25 30 60 12.5 7 0.5 1000 29.97 24000/1001 2/3".split())
def test_a_fixed_rate_has_one_duration_however_long(fps):
    write_metadata([b"x"] * 20000)
    assert run("zrmp4 record -o out.mp4 --meta meta --fps " + fps).stderr == ""
    media = "zrmp4 get out.mp4 /moov/trak[0]/mdia/"
    *_, scale, whole = struct.unpack_from(">5I", run(media + "mdhd", text=False).stdout)
    _, *durations = struct.unpack(">4I", run(media + "minf/stbl/stts", text=False).stdout)
    rate = fractions.Fraction("30000/1001" if fps == "29.97" else fps)
    assert durations == [1, 20000, scale / rate]
    assert whole == 20000 * scale / rate


def test_tracks_are_interleaved_from_pipes_that_one_program_feeds():
    make("plain.h264")
    make("lc.aac")
    os.mkfifo("video")
    os.mkfifo("audio")
    # The video comes first and is more than a pipe holds, so the audio is only written when both are read.
    feed = "for i in 1 2 3 4 5 6; do cat plain.h264; done >video; cat lc.aac >audio"
    with subprocess.Popen(["sh", "-c", feed]):
        inputs = options("lc.aac", "audio") + " " + options("plain.h264", "video")
        assert run("zrmp4 record -o out.mp4 " + inputs).stderr == ""
    packets = ffprobe("out.mp4", "packet=stream_index,pos")
    sounds, pictures = ([int(place) for track, place in packets if track == which] for which in "01")
    assert len(pictures) == 180
    assert sounds[-1] < pictures[35]  # one second of sound lies within the first second of pictures


@pytest.mark.parametrize("number", (signal.SIGINT, signal.SIGTERM))
def test_a_stop_finishes_the_file(number):
    make("plain.h264")
    with fed("zrmp4 record -o out.mp4 --buffer 1 " + options("plain.h264", "-")) as process:
        process.stdin.write(Path("plain.h264").read_bytes())
        process.stdin.flush()
        deadline = time.monotonic() + 60
        while not os.path.exists("out.mp4") or os.path.getsize("out.mp4") < 20000:
            assert time.monotonic() < deadline, "nothing was written"
            time.sleep(0.05)
        process.send_signal(number)
        assert process.wait(30) == 0
    assert len(ffprobe("out.mp4", "packet=pos")) in range(20, 30)  # the last may not have been whole


@pytest.mark.skipif(bool(os.environ.get("ZRMP4_SANITIZED")), reason="the sanitizers keep freed memory")
def test_memory_is_bounded():
    with fed("prlimit --as=%d zrmp4 record -o out.mp4 --meta - --fps 30" % (32 << 20)) as process:
        for _ in range(400):
            process.stdin.write(struct.pack(">I", 1 << 20) + bytes(1 << 20))
    os.unlink("out.mp4")
    assert process.returncode == 0


def test_boxes_are_added_where_they_are_asked_for():
    write_metadata([b"sample"] * 5)
    Path("box").write_bytes(b"hello")
    boxes = "--box /:abcd:box --box /moov/trak[0]:efgh:box"
    assert run("zrmp4 record -o out.mp4 --meta meta --fps 1 " + boxes).stderr == ""
    for path, status, text in (("/abcd", 0, "hello"), ("abcd?", 1, ""), ("/moov/trak[0]/efgh", 0, "hello")):
        assert run("zrmp4 get out.mp4 " + path, expected=status).stdout == text


def test_failures_name_file_cause_and_code():
    make("plain.h264")
    make("lc.aac")
    Path("damaged.aac").write_bytes(Path("lc.aac").read_bytes() + b"no frame")
    video, audio = options("plain.h264"), options("lc.aac")
    for line, message in (
            ("record -o out.mp4 " + options("plain.h264", "none"), "none: cannot be opened: No"),
            ("record -o none/x " + video, r"none/x: cannot be opened .*\[ZR_ERR_MP4_OPEN_FILE 0xA1298063\]"),
            ("record -o out.mp4 " + options("plain.h264", "lc.aac"), "lc.aac: no start code at byte 0"),
            ("record -o out.mp4 " + options("lc.aac", "plain.h264"), "plain.h264: no ADTS header"),
            ("record -o out.mp4 " + options("mono.aac", "lc.aac"), "lc.aac: its frames say 48000 Hz"),
            ("record -o out.mp4 " + options("plain.h264", "/dev/null"), "/dev/null: holds no frames"),
            ("record -o out.mp4 --backup-unit 1 " + audio,
             r"out.mp4: refused \(.*mp4 cfg illegal\) \[ZR_ERR_MP4_ILLEGAL_PARAM 0xA1298041\]"),
            ("record -o out.mp4 " + options("lc.aac", "damaged.aac"), r"damaged.aac: no ADTS .* byte \d+"),
            ("repair none", "none: cannot be opened"),
            ("repair lc.aac", r"lc.aac: .*\[ZR_ERR_MP4_[A-Z_]+ 0xA12980[0-9A-F]{2}\]"),
            ("info lc.aac", r"lc.aac: .*\[ZR_ERR_MP4_OPEN 0xA1298043\]"),
            ("dump lc.aac", r"lc.aac: .*\[ZR_ERR_MP4_OPEN 0xA1298043\]")):
        assert re.search(message, run("zrmp4 " + line, expected=1).stderr)
    assert len(decoded("out.mp4")[0]) == 48  # what was recorded before the damage is finished


WHOLE = "record -o x --video x --codec h264 --fps 30 --size 192x128"


@pytest.mark.parametrize("line", (
    *(WHOLE + " " + option for option in (
        "--rate 8000", "--fps 0", "--fps 1/0", "--size 0x10", "--buffer 1G", "--buffer 4294967297", "--profile avi",
        "--box /:abc:x", "--codec aac")),
    WHOLE.replace("-o x", "-o " + "x" * 256), WHOLE.replace("-o x", ""), WHOLE.replace("--video x", ""),
    WHOLE.replace("--size 192x128", ""), "", "play", "record", "record -o x", "repair", "info", "info a b", "get x",
    "dump", "record -o x --meta - --fps 1 --meta - --fps 1"))
def test_wrong_usage_answers_two(line):
    done = run("zrmp4 " + line, expected=2)
    assert done.stderr and not done.stdout


@pytest.mark.parametrize("command", ("", "record", "repair", "info", "dump", "get"))
def test_help_is_no_failure(command):
    done = run("zrmp4 %s --help" % command)
    assert "zrmp4" in done.stdout and not done.stderr


def test_a_cut_recording_is_repaired_and_described():
    make("plain.h264")
    make("lc.aac")
    write_metadata([bytes(60000)] * 30)  # there will be snapshots
    run("zrmp4 record -o out.mp4 --no-finish --backup-unit 512k --pre-alloc 1M %s %s --meta meta --fps 30" %
        (options("plain.h264"), options("lc.aac")))
    run("ffprobe -v error out.mp4", expected=1)
    cut = Path("out.mp4").read_bytes()

    report, = json.loads(run("zrmp4 repair --json out.mp4").stdout)
    assert report["outcome"] == "repaired"
    assert [(track["type"], track["frames"], track["key_frames"]) for track in report["tracks"]] == [
        ("video", 30, 3), ("audio", 48, 48), ("meta", 30, 30)]
    assert report["tracks"][0]["duration_seconds"] == pytest.approx(1)
    assert report["bytes_kept"] + report["bytes_dropped"] == len(cut)
    for stream, source in enumerate(("plain.h264", "lc.aac")):
        assert decoded("out.mp4", stream=stream)[0] == decoded(source)[0]
    assert "finished file, left alone" in run("zrmp4 repair out.mp4").stdout

    info = json.loads(run("zrmp4 info --json out.mp4").stdout)
    assert (info["backup_unit_bytes"], info["track_count"], info["co64"]) == (1 << 19, 3, False)
    for track, expected in zip(info["tracks"], (
            {"codec": "h264", "width": 192, "frame_rate_fps": 30},
            {"codec": "aac", "sample_rate_hz": 48000, "samples_per_frame": 1024}, {"type": "meta"})):
        assert expected.items() <= track.items()
    dump = run("zrmp4 dump out.mp4").stdout
    for part in r"\A\+root\n\+-ftyp\n\+-mdat\n", r"\+--mvhd\n", "vemo backupUnit=524288", "tbgp userAtomNum=0":
        assert re.search(part, dump)

    Path("out.mp4").write_bytes(cut)  # the same again, with the snapshots only
    report, = json.loads(run("zrmp4 repair --no-extra-frames --json out.mp4").stdout)
    assert 0 < report["tracks"][0]["frames"] < 30
    assert len(decoded("out.mp4")[0]) == report["tracks"][0]["frames"]

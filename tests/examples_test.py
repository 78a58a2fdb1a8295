"""Runs the examples as their first lines tell, on streams made by ffmpeg."""
import re

import pytest

from programs import decoded, ffmpeg, run


@pytest.fixture(autouse=True)
def workspace(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)


def frames(name, stream="v"):
    return decoded(name, stream=stream)[0]


@pytest.mark.parametrize("params", ("", "-x264-params aud=1:slices=3"))
def test_record_stdin_keeps_every_frame(params):
    ffmpeg("-f lavfi -i testsrc2=size=320x240:rate=30:duration=3 -pix_fmt yuv420p -c:v libx264 -preset ultrafast"
           " -bf 0 -g 15 %s in.h264" % params)
    with open("in.h264", "rb") as stream:
        run("record_stdin out.mp4 320 240 30", stdin=stream)
    assert frames("out.mp4") == frames("in.h264")


def test_record_av_gives_three_tracks_that_read_back_shows():
    shown = run("record_av out.mp4").stdout
    assert shown.endswith("10 s: 250 pictures, 500 pieces of sound, 10 positions\n")
    assert (len(frames("out.mp4", "v")), len(frames("out.mp4", "a"))) == (250, 500)
    assert run("read_back out.mp4 /moov/ownr").stdout.splitlines() == [
        "10.000 s, 3 tracks, backup unit 1048576 bytes",
        "track 0: camera, H.264, 16 x 16, 25 frames/s",
        "track 1: microphone, G.711 u-law, 8000 Hz, 1 channels",
        "track 2: position, metadata, 1 samples/s",
        "/moov/ownr: recorded by an example"]
    run("read_back out.mp4 /moov/none", expected=1)


def test_repair_directory_tells_what_became_of_each_file(tmp_path):
    run("record_av whole.mp4")
    data = (tmp_path / "whole.mp4").read_bytes()
    for name, piece in (("cut.mov", data[:60000]), ("early.mp4", data[:50]), ("note.txt", b"no recording")):
        (tmp_path / name).write_bytes(piece)
    report = run("repair_directory .", expected=1).stdout
    for line in (r"cut\.mov: repaired, \d+\.\d s of recording, in \d+\.\d\d s\n",
                 r"whole\.mp4: finished, 10\.0 s of recording\n", r"early\.mp4: ZR_ERR_MP4_[A-Z_]+, ",
                 r"3 recordings, 1 not repaired\n\Z"):
        assert re.search(line, report)
    assert "cut.mov: finished" in run("repair_directory .", expected=1).stdout
    assert len(frames("cut.mov")) > 100


def test_kill_and_repair_loses_nothing_that_had_left_the_buffer():
    report = run("kill_and_repair out.mp4 20").stdout
    counts = re.fullmatch(r"20 kills: (\d+) frames acknowledged, (\d+) recovered, 0 bad\n", report)
    assert counts, report
    acknowledged, recovered = map(int, counts.groups())
    assert acknowledged > 0 and recovered >= acknowledged - 20 * 5

"""Does what the README tells a new user, from a fresh copy of the sources: every sh block, with the C program of its c
block saved as it says. Also checks the links between the documents, and the bytes of the worked example in
docs/file_format.md.  readme_test.py SOURCES"""
import glob
import os
import re
import shutil
import sys
import tempfile

from programs import ffprobe, run

SOURCES = os.path.abspath(sys.argv[1])


def text_of(path):
    with open(os.path.join(SOURCES, path), encoding="utf-8") as file:
        return file.read()


def blocks(language):
    return re.findall(r"^```%s\n(.*?)^```$" % language, text_of("README.md"), re.M | re.S)


def can_run(block):
    """Neither scripts/demo nor scripts/test, which would come back here, nor ARM where nothing is there for it."""
    tools = ["arm-linux-gnueabihf-gcc", "qemu-arm-static"]
    return "scripts/" not in block and ("arm" not in block or all(map(shutil.which, tools)))


def check_links():
    for document in (name for pattern in ("*.md", "docs/*.md") for name in glob.glob(pattern, root_dir=SOURCES)):
        for target in re.findall(r"\]\(([^)#]+)", text_of(document)):
            path = os.path.join(SOURCES, os.path.dirname(document), target)
            assert os.path.exists(path), "%s: no %s" % (document, target)


def check_worked_example(scratch):
    dump = re.search(r"^00000000: .*?(?=^```)", text_of("docs/file_format.md"), re.M | re.S)[0]
    data = bytes.fromhex("".join(line[10:50] for line in dump.splitlines()))
    with open(scratch + "/example.mp4", "wb") as file:
        file.write(data)
    report = run(scratch + "/zrmp4/bin/zrmp4", "repair", scratch + "/example.mp4").stdout
    assert "%d bytes kept, 0 dropped" % len(data) in report and "2 frames, 2 key frames, 0.080 s" in report, report


check_links()
with tempfile.TemporaryDirectory() as scratch:
    folder = scratch + "/clone"
    os.mkdir(folder)
    for name in set(os.listdir(SOURCES)) - {"build", ".git"}:
        os.symlink(os.path.join(SOURCES, name), os.path.join(folder, name))
    program, = blocks("c")
    assert program.count("\n") <= 41, "the recorder has grown"
    with open(folder + "/recorder.c", "w", encoding="utf-8") as file:
        file.write(program)
    script = "set -euo pipefail\nffmpeg() { command ffmpeg -nostdin -v error -y \"$@\"; }\n"
    script += "".join(filter(can_run, blocks("sh")))
    shown = run("bash", "-xc", script, cwd=folder, env=dict(os.environ, HOME=scratch), timeout=1400).stdout
    for expected in ("repaired in", "track 2: metadata", "+-moov", "\nsuccess\n"):
        assert expected in shown, "%s is missing in\n%s" % (expected, shown[-4000:])
    frames = ffprobe(folder + "/camera.mp4", "stream=nb_read_frames", "-count_frames", "-select_streams", "v")
    assert frames == [["90"]], frames
    check_worked_example(scratch)

"""Does what the README tells a new user, from a fresh copy of the sources: every sh block, with the C program of its c
block saved as it says. Also checks the links between the documents, and the bytes of the worked example in
docs/file_format.md.  readme_test.py SOURCES"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

SOURCES = os.path.abspath(sys.argv[1])
LEFT_OUT = {"build", ".git"}


def text_of(*path):
    with open(os.path.join(SOURCES, *path), encoding="utf-8") as file:
        return file.read()


def blocks(text, language):
    return re.findall(r"^```%s\n(.*?)^```$" % language, text, re.M | re.S)


def can_run(block):
    """Neither scripts/demo nor scripts/test, which would come back here, nor ARM where nothing is there for it."""
    needed = [tool for tool in ("arm-linux-gnueabihf-gcc", "qemu-arm-static") if "arm" in block]
    return "scripts/" not in block and all(shutil.which(tool) for tool in needed)


def check_links():
    documents = ["README.md", "CHANGELOG.md"] + ["docs/" + name for name in os.listdir(os.path.join(SOURCES, "docs"))]
    for document in (name for name in documents if name.endswith(".md")):
        for target in re.findall(r"\]\(([^)#]+)", text_of(document)):
            path = os.path.join(SOURCES, os.path.dirname(document), target)
            assert os.path.exists(path), "%s: no %s" % (document, target)


def check_worked_example(folder, environment):
    dump = re.search(r"^00000000: .*?(?=^```)", text_of("docs", "file_format.md"), re.M | re.S)[0]
    data = bytes.fromhex("".join(line[10:50] for line in dump.splitlines()))
    with open(os.path.join(folder, "example.mp4"), "wb") as file:
        file.write(data)
    report = subprocess.run(["zrmp4", "repair", "example.mp4"], cwd=folder, env=environment, text=True,
                            stdout=subprocess.PIPE, check=True).stdout
    assert "%d bytes kept, 0 dropped" % len(data) in report and "2 frames, 2 key frames, 0.080 s" in report, report


def main():
    check_links()
    readme = text_of("README.md")
    with tempfile.TemporaryDirectory() as scratch:
        folder = os.path.join(scratch, "clone")
        os.mkdir(folder)
        for name in set(os.listdir(SOURCES)) - LEFT_OUT:
            os.symlink(os.path.join(SOURCES, name), os.path.join(folder, name))
        program, = blocks(readme, "c")
        assert program.count("\n") <= 41, "the recorder has grown"
        with open(os.path.join(folder, "recorder.c"), "w", encoding="utf-8") as file:
            file.write(program)
        script = "set -euo pipefail\nffmpeg() { command ffmpeg -nostdin -v error -y \"$@\"; }\n"
        script += "".join(block for block in blocks(readme, "sh") if can_run(block))
        environment = dict(os.environ, HOME=scratch)
        done = subprocess.run(["bash", "-xc", script], cwd=folder, env=environment, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        assert done.returncode == 0, done.stdout[-4000:]
        for expected in ("repaired in", "track 2: metadata", "+-moov", "\nsuccess\n"):
            assert expected in done.stdout, "%s is missing in\n%s" % (expected, done.stdout[-4000:])
        frames = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-select_streams", "v", "-show_entries",
                                 "stream=nb_read_frames", "-of", "csv=p=0", "camera.mp4"], cwd=folder, text=True,
                                stdout=subprocess.PIPE, check=True).stdout
        assert frames.strip() == "90", frames
        check_worked_example(folder, dict(environment, PATH=scratch + "/zrmp4/bin:" + os.environ["PATH"]))
    print("ok")


main()

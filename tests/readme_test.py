"""Does what the documents tell a new user.  SOURCES in the environment says where they are."""
import os
import pathlib
import re
import shutil

from programs import ffprobe, run

SOURCES = pathlib.Path(os.environ["SOURCES"]).resolve()


def text_of(path):
    return (SOURCES / path).read_text(encoding="utf-8")


def blocks(language):
    return re.findall(r"^```%s\n(.*?)^```$" % language, text_of("README.md"), re.M | re.S)


def can_run(block):
    """Neither scripts/demo nor scripts/test, which would come back here, nor ARM where nothing is there for it."""
    tools = ["arm-linux-gnueabihf-gcc", "qemu-arm-static"]
    return "scripts/" not in block and ("arm" not in block or all(map(shutil.which, tools)))


def test_links_between_the_documents_lead_somewhere():
    for document in (*SOURCES.glob("*.md"), *SOURCES.glob("docs/*.md")):
        for target in re.findall(r"\]\(([^)#]+)", document.read_text(encoding="utf-8")):
            assert (document.parent / target).exists(), document


def test_the_worked_example_of_the_file_format_is_repaired(tmp_path):
    dump = re.search(r"^00000000: .*?(?=^```)", text_of("docs/file_format.md"), re.M | re.S)[0]
    data = bytes.fromhex("".join(line[10:50] for line in dump.splitlines()))
    (tmp_path / "example.mp4").write_bytes(data)
    report = run("zrmp4 repair example.mp4", cwd=tmp_path).stdout
    assert "%d bytes kept, 0 dropped" % len(data) in report and "2 frames, 2 key frames, 0.080 s" in report


def test_the_blocks_of_the_readme_work_one_after_the_other(tmp_path):
    """In a fresh copy of the sources, with the C program of its c block saved as it says."""
    clone = tmp_path / "clone"
    clone.mkdir()
    for path in SOURCES.iterdir():
        if path.name not in ("build", ".git"):
            (clone / path.name).symlink_to(path)
    program, = blocks("c")
    assert program.count("\n") <= 41, "the recorder has grown"
    (clone / "recorder.c").write_text(program, encoding="utf-8")
    (clone / "all.sh").write_text("ffmpeg() { command ffmpeg -nostdin -v error -y \"$@\"; }\n" +
                                  "".join(filter(can_run, blocks("sh"))), encoding="utf-8")
    shown = run("bash -euxo pipefail all.sh", cwd=clone, env={**os.environ, "HOME": str(tmp_path)}, timeout=1400).stdout
    for expected in ("repaired in", "track 2: metadata", "+-moov", "\nsuccess\n"):
        assert expected in shown
    assert ffprobe(clone / "camera.mp4", "stream=nb_read_frames", "-count_frames -select_streams v") == [["90"]]

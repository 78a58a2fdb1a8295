"""What the tests of programs share: to run them, and what ffmpeg finds in files."""
import re
import subprocess


def run(*command, expected=0, **options):
    """The ended process. Its output is text if not told otherwise; its status is the expected one."""
    for name, value in (("stdin", subprocess.DEVNULL), ("text", True), ("timeout", 300)):
        options.setdefault(name, value)
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    assert done.returncode == expected, "%s: %d\n%s\n%s" % (command, done.returncode, done.stdout, done.stderr)
    return done


def ffmpeg(*arguments, level="error", **options):
    return run("ffmpeg", "-nostdin", "-y", "-v", level, *arguments, **options)


def ffprobe(path, entries, *options):
    """The entries of a file, a row of text each."""
    done = run("ffprobe", "-v", "error", *options, "-show_entries", entries, "-of", "csv=p=0", path)
    return [row.rstrip(",").split(",") for row in done.stdout.split()]


def decoded(path, *input_options, stream="0:0", work=()):
    """The hashes of a stream's frames, and the warnings without what differs from run to run."""
    done = ffmpeg("-xerror", *input_options, "-i", path, "-map", stream, *work, "-fps_mode", "passthrough", "-f",
                  "framehash", "-", level="warning")
    hashes = [line.split(",")[5].strip() for line in done.stdout.splitlines() if line[:1] not in ("#", "")]
    return hashes, {re.sub(r"0x[0-9a-f]+|'[^']*'|\[[^]]*\]|\d+", "", line) for line in done.stderr.splitlines()}

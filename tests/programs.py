"""What the tests of programs share: to run them, and what ffmpeg finds in files. The programs are found by PATH."""
import re
import shlex
import subprocess


def run(line, expected=0, **options):
    """The ended process. Its output is text if not told otherwise; its status is the expected one."""
    options = {"stdin": subprocess.DEVNULL, "text": True, "timeout": 300, **options}
    done = subprocess.run(shlex.split(line), stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    assert done.returncode == expected, "%s: %d\n%s\n%s" % (line, done.returncode, done.stdout, done.stderr)
    return done


def ffmpeg(line, level="error", **options):
    return run("ffmpeg -nostdin -y -v %s %s" % (level, line), **options)


def ffprobe(path, entries, options=""):
    """The entries of a file, a row of text each."""
    done = run("ffprobe -v error %s -show_entries %s -of csv=p=0 %s" % (options, entries, path))
    return [row.rstrip(",").split(",") for row in done.stdout.split()]


def decoded(path, stream="0", work=""):
    """The hashes of a stream's frames, and the warnings without what differs from run to run."""
    done = ffmpeg("-xerror -i %s -map 0:%s %s -fps_mode passthrough -f framehash -" % (path, stream, work), "warning")
    hashes = [line.split(",")[5].strip() for line in done.stdout.splitlines() if line[:1] not in ("#", "")]
    return hashes, {re.sub(r"0x[0-9a-f]+|'[^']*'|\[[^]]*\]|\d+", "", line) for line in done.stderr.splitlines()}

#!/usr/bin/env python3
"""What vtk leaves behind when writing a result fails: the old file whole or the new one, never a
part; no temporary file; a device never replaced; no input overwritten. Each case sets a folder
up, runs the real vtk and checks exit status, message and files.

usage: write_faults.py VTK CORPUS
"""
import os
import pathlib
import re
import signal
import stat
import subprocess
import sys
import tempfile
import time

VTK, CORPUS = sys.argv[1], sys.argv[2]
CLIP = os.path.join(CORPUS, "h264.mp4")
BIG_CLIP = os.path.join(CORPUS, "h264_1080p.mp4")
OLD = b"the old file"
failures = []


def vtk(*args, limit_bytes=None, drop_privileges=False):
    def limit():
        if limit_bytes is not None:
            import resource
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (limit_bytes, limit_bytes))
    command = [VTK, *args]
    # Root writes anywhere; without the file-permission capabilities it meets modes as a user does.
    if drop_privileges and os.geteuid() == 0:
        command = ["setpriv", "--bounding-set=-dac_override,-dac_read_search", *command]
    return subprocess.run(command, capture_output=True, text=True, timeout=60, preexec_fn=limit)


def check(name, condition, detail=""):
    if not condition:
        failures.append(name)
        print("FAIL %s %s" % (name, detail))


def read(path):
    return pathlib.Path(path).read_bytes()


def write(path, data):
    pathlib.Path(path).write_bytes(data)


def is_png(path):
    data = read(path)
    return data.startswith(b"\x89PNG") and data.endswith(b"IEND\xaeB`\x82")


def hidden(folder):
    return [name for name in os.listdir(folder) if name.startswith(".")]


def failed_write(name, folder, result, output, reason):
    check(name + " exit", result.returncode == 1, result.stderr)
    check(name + " message", re.search(re.escape("vtk: %s: %s" % (output, reason)), result.stderr), result.stderr)
    check(name + " no temporary", not hidden(folder), hidden(folder))


def case_full_disk(folder):
    for name, extra in [("/dev/full", []), ("/dev/full as JPEG", ["--format", "jpg"])]:
        result = vtk("poster", CLIP, *extra, "-o", "/dev/full")
        failed_write(name, folder, result, "/dev/full", "No space left on device")
    check("/dev/full kept", stat.S_ISCHR(os.stat("/dev/full").st_mode))
    old = os.path.join(folder, "old.png")
    write(old, OLD)
    for command in (["poster", BIG_CLIP], ["poster", "--format", "jpg", BIG_CLIP], ["sheet", "--format", "png", CLIP],
                    ["xmp", os.path.join(CORPUS, "phone.mov")]):
        result = vtk(*command, "-o", old, limit_bytes=64)
        failed_write("size limit " + command[0], folder, result, old, "File too large")
        check("size limit " + command[0] + " old file", read(old) == OLD)


def case_read_only_folder(folder):
    os.chmod(folder, 0o555)
    result = vtk("poster", CLIP, "-o", os.path.join(folder, "new.png"), drop_privileges=True)
    os.chmod(folder, 0o755)
    failed_write("read-only folder", folder, result, os.path.join(folder, "new.png"), "Permission denied")


def case_symlink(folder):
    target = os.path.join(folder, "target.png")
    link = os.path.join(folder, "link.png")
    write(target, OLD)
    os.symlink("target.png", link)
    result = vtk("poster", CLIP, "-o", link)
    check("symlink exit", result.returncode == 0, result.stderr)
    check("symlink kept", os.path.islink(link))
    check("symlink target written", is_png(target))


def case_refused_before_work(folder):
    clip = os.path.join(folder, "clip.mp4")
    write(clip, read(CLIP))
    before = read(clip)
    os.makedirs(os.path.join(folder, "a"))
    os.makedirs(os.path.join(folder, "b"))
    for side in ("a", "b"):
        os.link(clip, os.path.join(folder, side, "clip.mp4"))
    for name, args, pattern in (
        ("output is input", ["poster", clip, "-o", clip], "would overwrite the input"),
        ("outputs collide", ["poster", os.path.join(folder, "a", "clip.mp4"), os.path.join(folder, "b", "clip.mp4"),
                             "-o", os.path.join(folder, "out")], "would write it"),
    ):
        result = vtk(*args)
        check(name + " exit", result.returncode == 2, result.stderr)
        check(name + " message", pattern in result.stderr, result.stderr)
    check("input kept", read(clip) == before)
    check("nothing written", not os.path.exists(os.path.join(folder, "out", "clip.png")))


def case_missing_folder(folder):
    output = os.path.join(folder, "made", "deeper")
    result = vtk("poster", CLIP, os.path.join(CORPUS, "rot90.mp4"), "-o", output)
    check("missing folder exit", result.returncode == 0, result.stderr)
    check("missing folder made", is_png(os.path.join(output, "h264.png")) and is_png(os.path.join(output, "rot90.png")))


def case_fifo_input(folder):
    fifo = os.path.join(folder, "fifo.mp4")
    os.mkfifo(fifo)
    for command in ("info", "xmp"):
        result = vtk(command, fifo)
        check("fifo " + command, result.returncode == 1 and "Not a regular file" in result.stderr, result.stderr)


def case_killed_mid_write(folder):
    # Killed at any moment, the final name holds the old file or a whole new one.
    output = os.path.join(folder, "poster.png")
    for attempt in range(12):
        write(output, OLD)
        process = subprocess.Popen([VTK, "poster", BIG_CLIP, "-o", output], stderr=subprocess.DEVNULL)
        time.sleep(0.02 * attempt)
        process.send_signal(signal.SIGKILL if attempt % 2 else signal.SIGINT)
        process.wait()
        data = read(output)
        check("killed at %d" % attempt, data == OLD or is_png(output), data[:16])
        leftovers = hidden(folder)
        if attempt % 2 == 0:
            check("interrupted at %d leaves no temporary" % attempt, not leftovers, leftovers)
        for name in leftovers:
            os.remove(os.path.join(folder, name))


def case_malformed_packet(folder):
    clip = os.path.join(folder, "markup.mov")
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", CLIP, "-c", "copy", "-movflags",
                    "use_metadata_tags", "-metadata", "com.apple.quicktime.model=A</xmpDM:cameraModel>B", clip],
                   check=True)
    output = os.path.join(folder, "markup.xmp")
    result = vtk("xmp", clip, "-o", output)
    check("malformed packet exit", result.returncode == 1, result.stderr)
    check("malformed packet names the value", 'xmpDM:cameraModel holds "A</xmpDM:cameraModel>B"' in result.stderr,
          result.stderr)
    check("malformed packet not written", not os.path.exists(output))


CASES = [case_full_disk, case_read_only_folder, case_symlink, case_refused_before_work, case_missing_folder,
         case_fifo_input, case_killed_mid_write, case_malformed_packet]

failed_cases = 0
for case in CASES:
    before = len(failures)
    with tempfile.TemporaryDirectory() as folder:
        case(folder)
    failed_cases += len(failures) > before
print("%d passed, %d failed" % (len(CASES) - failed_cases, failed_cases))
sys.exit(1 if failures else 0)

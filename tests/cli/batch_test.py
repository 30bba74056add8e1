#!/usr/bin/env python3
"""vtk's batch commands (info, poster, xmp) as scripts use them: records in input order whatever
the number of jobs, a record for every input (an error record for a failed one), folders with -r,
lists on standard input, names that are not UTF-8 or start with '-', exit statuses and the shape
of diagnostics. Runs the real vtk on the test corpus.

usage: batch_test.py VTK CORPUS GOLDEN_FOLDER
"""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

VTK, CORPUS, GOLDEN = (os.path.abspath(a) for a in sys.argv[1:4])
failures = []
DIAGNOSTIC = re.compile(r"^vtk: .+: .+$")


def check(name, condition, detail=""):
    if not condition:
        failures.append(name)
        print("FAIL %s %s" % (name, detail))


def vtk(*args, stdin=None, cwd=CORPUS):
    return subprocess.run([VTK, *args], input=stdin, capture_output=True, cwd=cwd, timeout=120)


def records(output):
    return [json.loads(line) for line in output.decode().splitlines() if line]


# Bit rates depend on the encoder's version; the rest of a record is fixed by the corpus.
def steady(text):
    return re.sub(rb'[0-9.]+ [kM]b/s', b'R', re.sub(rb'"bit_rate":[0-9]+', b'"bit_rate":N', text))


# Golden outputs: the records of good and failing inputs, byte for byte.
for name, args, status in [
    ("info_records", ["info", "--json", "sar_8_9.mp4", "missing.mp4", "folder.mp4", "rot90.mp4"], 1),
    ("info_text", ["info", "sar_8_9.mp4", "tags_mp4.mp4"], 0),
    ("xmp_records", ["xmp", "--jsonl", "tags_mp4.mp4", "zero.mp4"], 1),
]:
    result = vtk(*args)
    expected = pathlib.Path(GOLDEN, name + ".golden").read_bytes()
    check(name + " output", steady(result.stdout) == expected, result.stdout.decode(errors="replace"))
    check(name + " exit", result.returncode == status, result.returncode)
    for line in result.stderr.decode().splitlines():
        check(name + " diagnostic", DIAGNOSTIC.match(line), line)

# The same records in the same order whatever the number of jobs, as an array or as lines.
files = sorted(name for name in os.listdir(CORPUS) if name.endswith((".mp4", ".mov", ".avi")))
one = vtk("info", "--jsonl", "-j", "1", *files)
for jobs in ["2", "4"]:
    many = vtk("info", "--jsonl", "-j", jobs, *files)
    check("jobs %s same records" % jobs, many.stdout == one.stdout)
    check("jobs %s same exit" % jobs, many.returncode == one.returncode == 1, (many.returncode, one.returncode))
array = vtk("info", "--json", "-j", "2", *files)
check("array holds the lines", json.loads(array.stdout) == records(one.stdout))
check("a record for every input", [r["path"] for r in records(one.stdout)] == files)
failed = [r["path"] for r in records(one.stdout) if "error" in r]
check("failures on standard error", len(one.stderr.decode().splitlines()) == len(failed), one.stderr)

# Usage errors: exit 2 before any work.
for name, args in [
    ("unknown option", ["info", "--bogus", "h264.mp4"]),
    ("json and jsonl", ["info", "--json", "--jsonl", "h264.mp4"]),
    ("no path", ["info"]),
    ("bad jobs", ["info", "-j", "0", "h264.mp4"]),
    ("poster without -o", ["poster", "h264.mp4"]),
    ("missing list", ["info", "--files-from", "/nonexistent/list"]),
    ("time past 100%", ["poster", "--time", "101%", "h264.mp4", "-o", "x.png"]),
    ("time as a clock missing a field", ["poster", "--time", "1:05", "h264.mp4", "-o", "x.png"]),
    ("quality", ["poster", "--quality", "101", "h264.mp4", "-o", "x.jpg"]),
    ("format", ["poster", "--format", "gif", "h264.mp4", "-o", "out"]),
    ("grid", ["sheet", "--grid", "0x3", "h264.mp4", "-o", "x.jpg"]),
    ("sheet width", ["sheet", "--width", "100", "h264.mp4", "-o", "x.jpg"]),
]:
    result = vtk(*args)
    check("usage " + name, result.returncode == 2 and result.stdout == b"", (result.returncode, result.stderr))

with tempfile.TemporaryDirectory() as work:
    # A tree as people keep it: videos by extension in any case, other files passed by, a name
    # that is not UTF-8, one that starts with '-'.
    tree = os.path.join(work, "tree")
    odd = os.fsencode(os.path.join(tree, "b")) + b"/caf\xe9 -odd.mp4"
    for source, target in (("h264.mp4", "a/clip.mp4"), ("rot90.mp4", "a/deep/clip.MOV"), ("hevc.mp4", "b/clip.mp4"),
                           ("h264.mp4", "-dash.mp4")):
        os.makedirs(os.path.dirname(os.path.join(tree, target)), exist_ok=True)
        shutil.copy(os.path.join(CORPUS, source), os.path.join(tree, target))
    shutil.copy(os.path.join(CORPUS, "h264.mp4"), odd)
    pathlib.Path(tree, "notes.txt").write_text("not a video")
    walked = vtk("info", "-r", "--jsonl", tree, cwd=work)
    paths = [os.fsencode(r["path"].encode("utf-8", "surrogateescape")) for r in records(walked.stdout)]
    expected = sorted([os.fsencode(os.path.join(tree, p)) for p in
                       ["-dash.mp4", "a/clip.mp4", "a/deep/clip.MOV", "b/clip.mp4"]] + [odd])
    check("-r finds the videos, sorted", paths == expected, paths)
    check("-r all read", walked.returncode == 0 and all("error" not in r for r in records(walked.stdout)),
          walked.stderr)
    without = vtk("info", "--jsonl", tree, cwd=work)
    check("a folder without -r", without.returncode == 1 and "-r takes" in records(without.stdout)[0]["error"])

    # Paths from standard input, and after '--'.
    listed = vtk("info", "--jsonl", "--files-from", "-", stdin=odd + b"\n" + os.fsencode(tree) + b"/a/clip.mp4\n")
    check("--files-from -", [r.get("width") for r in records(listed.stdout)] == [320, 320], listed.stdout)
    dashed = vtk("info", "--jsonl", "--", "-dash.mp4", cwd=tree)
    check("a name starting with -", dashed.returncode == 0 and records(dashed.stdout)[0]["path"] == "-dash.mp4",
          dashed.stderr)

    # Posters of a tree keep its shape; same names in different folders do not collide.
    out = os.path.join(work, "posters")
    made = vtk("poster", "-r", "-j", "2", "--jsonl", tree, "-o", out, cwd=work)
    outputs = sorted(os.path.relpath(r["output"], out) for r in records(made.stdout))
    check("posters mirror the tree", made.returncode == 0 and outputs ==
          sorted(["-dash.png", "a/clip.png", "a/deep/clip.png", "b/clip.png", os.fsdecode(b"b/caf\xe9 -odd.png")]),
          (outputs, made.stderr))
    shown = {r["path"]: (r["width"], r["height"]) for r in records(walked.stdout)}
    check("posters at display size", all(shown[r["path"]] == (r["width"], r["height"]) for r in records(made.stdout)),
          made.stdout)
    collide = vtk("poster", os.path.join(tree, "a", "clip.mp4"), os.path.join(tree, "b", "clip.mp4"), "-o", out)
    check("colliding outputs refused", collide.returncode == 2 and b"would write it" in collide.stderr, collide.stderr)

def image_size(path):
    probe = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name,width,height", "-of", "csv=p=0",
                            path], capture_output=True, text=True)
    return probe.stdout.strip()


# Posters at a time and size, as JPEG or PNG by the output's name; contact sheets.
with tempfile.TemporaryDirectory() as work:
    for name, args, size, codec in [
        ("poster at 50%, 100 wide", ["poster", "--time", "50%", "--width", "100", "rot90.mp4"], (100, 75), "mjpeg"),
        ("poster at a clock time", ["poster", "--time", "00:00:01.5", "--height", "60", "sar_8_9.mp4"], (80, 60), "png"),
        ("poster never enlarged", ["poster", "--time", "9", "--width", "9000", "h264.mp4"], (320, 240), "mjpeg"),
        ("sheet", ["sheet", "--grid", "3x2", "--width", "400", "rot90.mp4"], (400, None), "mjpeg"),
    ]:
        out = os.path.join(work, name.replace(" ", "_") + (".png" if codec == "png" else ".jpg"))
        made = vtk(*args, "--jsonl", "-o", out)
        record = records(made.stdout)[0] if made.returncode == 0 else {}
        shown = "%d,%d" % (record.get("width", 0), record.get("height", 0))
        check(name, made.returncode == 0 and image_size(out) == "%s,%s" % (codec, shown), (made.stderr, image_size(out)))
        check(name + " size", record.get("width") == size[0] and (size[1] is None or record.get("height") == size[1]),
              record)
    at = records(vtk("poster", "--time", "1.5", "--jsonl", "h264.mp4", "-o", os.path.join(work, "t.png")).stdout)[0]
    check("the poster's time is its frame's", at.get("time") == 1.48, at)
    # Quality shows on a picture with detail in it.
    noisy = os.path.join(work, "noisy.mp4")
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi", "-i", "testsrc2=s=320x240:d=0.2,noise=alls=40:allf=t",
                    "-pix_fmt", "yuv420p", noisy], check=True)
    low = os.path.join(work, "low.jpg")
    high = os.path.join(work, "high.jpg")
    vtk("poster", "--quality", "5", noisy, "-o", low)
    vtk("poster", "--quality", "95", noisy, "-o", high)
    check("quality tells", os.path.getsize(low) * 2 < os.path.getsize(high), (os.path.getsize(low), os.path.getsize(high)))

# Progress goes to a terminal only, and is cleared before each result; -q silences it.
def stderr_on_terminal(*args):
    import pty
    leader, follower = pty.openpty()
    done = subprocess.run([VTK, *args], stdout=subprocess.PIPE, stderr=follower, cwd=CORPUS, timeout=120)
    os.close(follower)
    seen = b""
    try:
        while chunk := os.read(leader, 65536):
            seen += chunk
    except OSError:  # EIO: the terminal's other side is closed
        pass
    os.close(leader)
    return done, seen


shown, progress = stderr_on_terminal("info", "--jsonl", "-j", "1", "h264.mp4", "rot90.mp4", "sar_8_9.mp4")
check("progress on a terminal", b"[1/3] " in progress and progress.endswith(b"\r\x1b[K"), progress)
check("results whole beside progress", [r["path"] for r in records(shown.stdout)] == ["h264.mp4", "rot90.mp4", "sar_8_9.mp4"])
check("no progress through a pipe", vtk("info", "--jsonl", "h264.mp4", "rot90.mp4").stderr == b"")
check("-q silences progress", stderr_on_terminal("info", "-q", "h264.mp4", "rot90.mp4")[1] == b"")

# A worker that dies costs the file it worked on, not the batch: its record says why, a new worker
# takes the rest.
def workers_of(parent):
    found = []
    for name in os.listdir("/proc"):
        try:
            with open("/proc/%s/stat" % name) as f:
                if int(f.read().rsplit(")", 1)[1].split()[1]) == parent:
                    found.append(int(name))
        except (OSError, ValueError, IndexError):
            pass
    return found


many = files * 10
batch = subprocess.Popen([VTK, "info", "--jsonl", "-j", "2", *many], cwd=CORPUS, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE)
killed = False
while not killed and batch.poll() is None:
    for worker in workers_of(batch.pid)[:1]:
        os.kill(worker, signal.SIGKILL)
        killed = True
out, err = batch.communicate(timeout=300)
check("a killed worker was seen", killed)
check("every input has its record after a worker died", [r["path"] for r in records(out)] == many)
check("the killed worker's file says why", b"killed by signal 9" in out or not killed, err)

# The README's recipe for libraries larger than one machine, on this one: GNU parallel cuts the
# list into two shards, one vtk per shard; the union of the records is one run's.
with tempfile.NamedTemporaryFile("w", suffix=".txt") as listing:
    listing.write("".join(os.path.join(CORPUS, name) + "\n" for name in files))
    listing.flush()
    whole = vtk("info", "--jsonl", "-q", "--files-from", listing.name)
    sharded = subprocess.run(["parallel", "--will-cite", "--pipe-part", "-a", listing.name, "--block", "-1",
                              "-j", "2", VTK + " info --jsonl -q --files-from -"],
                             capture_output=True, timeout=300)
    check("parallel shards", sorted(sharded.stdout.splitlines()) == sorted(whole.stdout.splitlines()),
          sharded.stderr)

print("%d failed" % len(failures))
sys.exit(1 if failures else 0)

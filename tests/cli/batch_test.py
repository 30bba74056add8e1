#!/usr/bin/env python3
"""vtk's batch commands (info, poster, xmp) as scripts use them: records in input order whatever
the number of jobs, a record for every input (an error record for a failed one), folders with -r,
lists on standard input, names that are not UTF-8 or start with '-', exit statuses and the shape
of diagnostics. Runs the real vtk on the test corpus.

usage: batch_test.py VTK CORPUS GOLDEN_FOLDER
"""
import json
import os
import re
import shutil
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
    golden = os.path.join(GOLDEN, name + ".golden")
    with open(golden, "rb") as f:
        expected = f.read()
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
]:
    result = vtk(*args)
    check("usage " + name, result.returncode == 2 and result.stdout == b"", (result.returncode, result.stderr))

with tempfile.TemporaryDirectory() as work:
    # A tree as people keep it: videos by extension in any case, other files passed by, a name
    # that is not UTF-8, one that starts with '-'.
    tree = os.path.join(work, "tree")
    odd = os.fsencode(os.path.join(tree, "b")) + b"/caf\xe9 -odd.mp4"
    os.makedirs(os.path.join(tree, "a", "deep"))
    os.makedirs(os.path.join(tree, "b"))
    shutil.copy(os.path.join(CORPUS, "h264.mp4"), os.path.join(tree, "a", "clip.mp4"))
    shutil.copy(os.path.join(CORPUS, "rot90.mp4"), os.path.join(tree, "a", "deep", "clip.MOV"))
    shutil.copy(os.path.join(CORPUS, "hevc.mp4"), os.path.join(tree, "b", "clip.mp4"))
    shutil.copy(os.path.join(CORPUS, "h264.mp4"), odd)
    shutil.copy(os.path.join(CORPUS, "h264.mp4"), os.path.join(tree, "-dash.mp4"))
    with open(os.path.join(tree, "notes.txt"), "w") as f:
        f.write("not a video")
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

print("%d failed" % len(failures))
sys.exit(1 if failures else 0)

#!/usr/bin/env python3
"""bench_inspect: vtk's info, poster and xmp next to ffprobe, ffmpeg, ffmpegthumbnailer and exiftool
on the same files in the same run, one file per process and 100 files in one process; VideoSupport's
calls inside one host; and start-up. Prints median wall times, the ratio ours/peer and whether each
goal is met.

usage: inspect.py [BUILD_DIR] [--runs N] [--batch-runs N] [--iterations N]
BUILD_DIR (default: build) holds bin/vtk; the media are made into BUILD_DIR/bench-media.
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

from timing import CommandFailed, GoalTable, medians

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
CLIP_1080P = "h264_1080p.mp4"
CLIP_PHONE = "phone.mov"
BATCH_SIZE = 100

POSTER_GOAL = 0.5
INFO_GOAL = 0.5
XMP_GOAL = 0.5
BATCH_INFO_GOAL = 0.1
BATCH_XMP_GOAL = 0.2
INPROCESS_INFO_GOAL_MS = 5.0
INPROCESS_POSTER_GOAL_MS = 30.0


def make_media(build):
    media = os.path.join(build, "bench-media")
    subprocess.run(["sh", os.path.join(ROOT, "tests", "media", "make_corpus.sh"), media], check=True)
    # Distinct names for the batch, half of each clip, as hard links (copies where links fail).
    batch = os.path.join(media, "batch")
    shutil.rmtree(batch, ignore_errors=True)
    os.makedirs(batch)
    files = []
    for i in range(BATCH_SIZE):
        source = CLIP_1080P if i % 2 == 0 else CLIP_PHONE
        target = os.path.join(batch, "clip_%03d%s" % (i, os.path.splitext(source)[1]))
        try:
            os.link(os.path.join(media, source), target)
        except OSError:
            shutil.copyfile(os.path.join(media, source), target)
        files.append(target)
    return media, files


def in_process(vtk, clip, png, iterations, runs):
    """Median over runs of each per-call figure that bench/inspect.lua prints."""
    figures = {}
    for _ in range(runs):
        out = subprocess.run([vtk, "run", os.path.join(HERE, "inspect.lua"), clip, png, str(iterations)],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if out.returncode != 0:
            raise CommandFailed("vtk run inspect.lua: status %d, %s" % (out.returncode, out.stderr.strip()))
        for line in out.stdout.split("\n"):
            if line.strip():
                name, ms = line.split()
                figures.setdefault(name, []).append(float(ms))
    return {name: statistics.median(values) for name, values in figures.items()}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--runs", type=int, default=9, help="measured runs per one-file command")
    parser.add_argument("--batch-runs", type=int, default=7, help="measured runs per 100-file command")
    parser.add_argument("--iterations", type=int, default=20, help="calls per in-process figure")
    options = parser.parse_args()

    vtk = os.path.join(options.build, "bin", "vtk")
    for tool in ("ffmpeg", "ffprobe", "ffmpegthumbnailer", "exiftool"):
        if shutil.which(tool) is None:
            sys.exit("bench_inspect: %s is not installed (make setup installs it)" % tool)
    media, batch = make_media(options.build)
    out = tempfile.mkdtemp(prefix="bench_inspect.")
    png = os.path.join(out, "out.png")
    table = GoalTable()

    def poster(clip):
        path = os.path.join(media, clip)
        ours, ffmpeg, thumbnailer = medians([
            [vtk, "poster", path, "-o", png],
            ["ffmpeg", "-v", "error", "-nostdin", "-i", path, "-frames:v", "1", "-y", png],
            ["ffmpegthumbnailer", "-i", path, "-o", png, "-s", "0"],
        ], options.runs)
        table.add("poster %s vs ffmpeg" % clip, ours, ffmpeg, goal_ratio=POSTER_GOAL)
        table.add("poster %s vs ffmpegthumbnailer" % clip, ours, thumbnailer)

    def info(clip):
        path = os.path.join(media, clip)
        ours, peer = medians([
            [vtk, "info", "--json", path],
            ["ffprobe", "-v", "error", "-show_format", "-show_streams", "-of", "json", path],
        ], options.runs)
        table.add("info %s vs ffprobe" % clip, ours, peer, goal_ratio=INFO_GOAL)

    def xmp(clip):
        path = os.path.join(media, clip)
        ours, peer = medians([[vtk, "xmp", path], ["exiftool", "-json", path]], options.runs)
        table.add("xmp %s vs exiftool" % clip, ours, peer, goal_ratio=XMP_GOAL)

    # Per file: the loop is 100 ffprobe processes, as a shell script would run them.
    batch_info_label = "info, %d files: per file vs ffprobe loop" % BATCH_SIZE
    def batch_info():
        loop = ["sh", "-c", 'for f; do ffprobe -v error -show_format -show_streams -of json "$f"; done', "sh"]
        ours, peer = medians([[vtk, "info", "--json"] + batch, loop + batch], options.batch_runs)
        table.add(batch_info_label, ours / BATCH_SIZE, peer / BATCH_SIZE, goal_ratio=BATCH_INFO_GOAL)

    batch_xmp_label = "xmp, %d files: per file vs exiftool batch" % BATCH_SIZE
    def batch_xmp():
        ours, peer = medians([[vtk, "xmp"] + batch, ["exiftool", "-json"] + batch], options.batch_runs)
        table.add(batch_xmp_label, ours / BATCH_SIZE, peer / BATCH_SIZE, goal_ratio=BATCH_XMP_GOAL)

    in_process_rows = [  # (key printed by inspect.lua, label, goal in ms)
        ("info", "in-process getVideoFileInfo %s" % CLIP_1080P, INPROCESS_INFO_GOAL_MS),
        ("info_first", "  its first call in the process", None),
        ("poster", "in-process getPosterFrame %s" % CLIP_1080P, INPROCESS_POSTER_GOAL_MS),
        ("poster_first", "  its first call in the process", None),
        ("writePNG", "in-process image:writePNG (1920x1080)", None),
        ("xmp", "in-process getMetadata %s" % CLIP_1080P, None),
    ]
    def calls():
        figures = in_process(vtk, os.path.join(media, CLIP_1080P), png, options.iterations, max(3, options.runs // 2))
        for key, label, goal in in_process_rows:
            table.add(label, figures[key], goal_ms=goal)

    startup_label = "start-up: vtk --version vs ffprobe -version"
    def startup():
        ours, peer = medians([[vtk, "--version"], ["ffprobe", "-version"]], options.runs)
        table.add(startup_label, ours, peer)

    print("bench_inspect: median wall ms of %d runs (%d for %d-file batches); load average %.2f"
          % (options.runs, options.batch_runs, BATCH_SIZE, os.getloadavg()[0]), flush=True)
    try:
        for clip in (CLIP_1080P, CLIP_PHONE):
            table.attempt(["poster %s vs ffmpeg" % clip, "poster %s vs ffmpegthumbnailer" % clip], lambda: poster(clip))
            table.attempt(["info %s vs ffprobe" % clip], lambda: info(clip))
            table.attempt(["xmp %s vs exiftool" % clip], lambda: xmp(clip))
        table.attempt([batch_info_label], batch_info)
        table.attempt([batch_xmp_label], batch_xmp)
        table.attempt([label for _, label, _ in in_process_rows], calls)
        table.attempt([startup_label], startup)
    finally:
        shutil.rmtree(out, ignore_errors=True)

    print()
    table.print()
    print("in-process rows: CPU ms per call by os.clock() over %d calls after warm-up calls, median of runs;"
          " load average now %.2f" % (options.iterations, os.getloadavg()[0]))
    # Missed goals are the table's news; a command that did not run is a broken benchmark.
    return 1 if table.failures else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""bench_batch: vtk's batches over a library of 200 short clips of mixed codecs and containers,
next to what people script today, in the same run: `vtk info --jsonl -j N` against a loop of
ffprobe and against ffprobe under GNU parallel -j N; `vtk poster -j N` against a loop of
ffmpegthumbnailer; `vtk xmp --jsonl -j N` against one `exiftool -json` over the same files. Then
the in-process cost of getVideoFileInfo and getPosterFrame on a 1080p H.264 file (bench/inspect.lua)
against bench/bare_poster, which does only the necessary FFmpeg work. Prints the ratios.

usage: batch.py [BUILD_DIR] [--runs N] [--iterations N]
BUILD_DIR (default: build) holds bin/vtk and bin/bare_poster; the clips are made into
BUILD_DIR/bench-batch once.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile

from timing import CommandFailed, GoalTable, medians

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
CLIPS = 200
# (extension, ffmpeg's output options): the codecs and containers of a typical library.
KINDS = [
    ("mp4", ["-c:v", "libx264", "-c:a", "aac"]),
    ("mkv", ["-c:v", "libx265", "-x265-params", "log-level=none", "-c:a", "libopus"]),
    ("webm", ["-c:v", "libvpx-vp9", "-deadline", "realtime", "-c:a", "libopus"]),
    ("avi", ["-c:v", "mpeg4", "-c:a", "libmp3lame"]),
    ("ts", ["-c:v", "mpeg2video", "-c:a", "ac3"]),
    ("mov", ["-c:v", "libx264", "-c:a", "aac"]),
]
BATCH_INFO_GOAL = 0.05
INPROCESS_INFO_GOAL_MS = 1.0
INPROCESS_POSTER_GOAL = 1.1


def make_clips(build):
    """200 two-second clips of odd sizes with sound, made once; their paths."""
    folder = os.path.join(build, "bench-batch")
    os.makedirs(folder, exist_ok=True)
    paths = []
    for i in range(CLIPS):
        extension, codec = KINDS[i % len(KINDS)]
        path = os.path.join(folder, "clip_%03d.%s" % (i, extension))
        paths.append(path)
        if os.path.exists(path):
            continue
        width, height = 320 + 2 * (i % 17), 180 + 2 * (i % 11)
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                        "testsrc2=s=%dx%d:r=25:d=2" % (width, height), "-f", "lavfi", "-i",
                        "sine=f=%d:d=2" % (200 + i), "-pix_fmt", "yuv420p", *codec, "-shortest", path + ".part." + extension],
                       check=True)
        os.rename(path + ".part." + extension, path)
    return paths


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--runs", type=int, default=3, help="measured runs per command")
    parser.add_argument("--iterations", type=int, default=20, help="calls per in-process figure")
    options = parser.parse_args()
    for tool in ("ffmpeg", "ffprobe", "ffmpegthumbnailer", "exiftool", "parallel"):
        if shutil.which(tool) is None:
            sys.exit("bench_batch: %s is not installed (make setup installs it)" % tool)
    vtk = os.path.join(options.build, "bin", "vtk")
    bare = os.path.join(options.build, "bin", "bare_poster")
    jobs = str(os.cpu_count() or 1)
    clips = make_clips(options.build)
    out = tempfile.mkdtemp(prefix="bench_batch.")
    table = GoalTable()

    probe = ["ffprobe", "-v", "error", "-show_format", "-show_streams", "-of", "json"]
    info_labels = ["info, %d clips, -j %s: vs ffprobe loop" % (CLIPS, jobs),
                   "info, %d clips, -j %s: vs ffprobe under parallel" % (CLIPS, jobs)]

    def info():
        loop = ["sh", "-c", 'for f; do ffprobe -v error -show_format -show_streams -of json "$f"; done', "sh"]
        ours, serial, parallel = medians([
            [vtk, "info", "--jsonl", "-q", "-j", jobs] + clips,
            loop + clips,
            ["parallel", "--will-cite", "-j", jobs, " ".join(probe) + " {}", ":::"] + clips,
        ], options.runs)
        table.add(info_labels[0], ours, serial, goal_ratio=BATCH_INFO_GOAL)
        table.add(info_labels[1], ours, parallel)

    poster_label = "poster, %d clips, -j %s: vs ffmpegthumbnailer loop" % (CLIPS, jobs)

    def poster():
        loop = ["sh", "-c", 'out=$1; shift; for f; do ffmpegthumbnailer -i "$f" -o "$out/t.png" -s 0; done', "sh", out]
        ours, peer = medians([[vtk, "poster", "-q", "-j", jobs, "-o", os.path.join(out, "posters")] + clips,
                              loop + clips], options.runs)
        table.add(poster_label, ours, peer)

    xmp_label = "xmp, %d clips, -j %s: vs exiftool -json" % (CLIPS, jobs)

    def xmp():
        ours, peer = medians([[vtk, "xmp", "--jsonl", "-q", "-j", jobs] + clips, ["exiftool", "-json"] + clips],
                             options.runs)
        table.add(xmp_label, ours, peer)

    in_process_labels = ["in-process getVideoFileInfo, 1080p H.264, vs bare FFmpeg open",
                         "in-process getPosterFrame, 1080p H.264, vs bare FFmpeg poster"]

    def in_process():
        media = os.path.join(options.build, "bench-media")
        subprocess.run(["sh", os.path.join(ROOT, "tests", "media", "make_corpus.sh"), media], check=True,
                       stdout=subprocess.DEVNULL)
        clip = os.path.join(media, "h264_1080p.mp4")
        ours = run_figures([vtk, "run", os.path.join(HERE, "inspect.lua"), clip, os.path.join(out, "p.png"),
                            str(options.iterations)])
        peer = run_figures([bare, clip, str(options.iterations)])
        table.add(in_process_labels[0], ours["info"], peer["info"], goal_ms=INPROCESS_INFO_GOAL_MS)
        table.add(in_process_labels[1], ours["poster"], peer["poster"], goal_ratio=INPROCESS_POSTER_GOAL)

    print("bench_batch: median wall ms of %d runs over %d clips; load average %.2f"
          % (options.runs, CLIPS, os.getloadavg()[0]), flush=True)
    try:
        table.attempt(info_labels, info)
        table.attempt([poster_label], poster)
        table.attempt([xmp_label], xmp)
        table.attempt(in_process_labels, in_process)
    finally:
        shutil.rmtree(out, ignore_errors=True)
    print()
    table.print()
    print("in-process rows: CPU ms per call after warm-up calls, over %d calls" % options.iterations)
    return 1 if table.failures else 0


def run_figures(argv):
    """The NAME MS lines a timing program prints."""
    done = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if done.returncode != 0:
        raise CommandFailed("%s: status %d, %s" % (os.path.basename(argv[0]), done.returncode, done.stderr.strip()))
    return {line.split()[0]: float(line.split()[1]) for line in done.stdout.splitlines() if line.strip()}


if __name__ == "__main__":
    sys.exit(main())

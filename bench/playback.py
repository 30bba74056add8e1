#!/usr/bin/env python3
"""bench_playback: the playback engine (build/bin/native_play, headless) next to mpv on the same
1080p30 H.264 file with 2-second key-frame intervals, in the same run. Prints medians and ratios
ours/mpv.

mpv runs as `mpv --no-config --vo=null --ao=null` plus, per measure, `--frames=1` (open to first
frame), `--start=T --frames=1` (seek; mpv seeks precisely for --start) or `--length=S` (CPU). Ours
runs `native_play --headless` with `--first-frame [--start T]`, or `--seconds S`. Both are whole
processes, so start-up counts on both sides; ours also draws into an offscreen window, which mpv's
null output does not. Backward stepping (30 frames by scrubbing) is ours alone, in process.

usage: playback.py [BUILD_DIR] [--runs N] [--seconds S]
"""
import argparse
import os
import re
import resource
import shutil
import statistics
import subprocess
import sys

from timing import medians
CLIP_SECONDS = 20
MPV = ["mpv", "--no-config", "--really-quiet", "--vo=null", "--ao=null"]
STEP_GOAL_MS = 50.0
CPU_GOAL = 1.2


def make_clip(build, seconds=CLIP_SECONDS):
    """A 1080p30 H.264 clip with sound, seconds long, made once into BUILD/bench-media."""
    media = os.path.join(build, "bench-media")
    os.makedirs(media, exist_ok=True)
    path = os.path.join(media, "1080p30_gop2_%ds.mp4" % seconds)
    if not os.path.exists(path):
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                        "testsrc2=s=1920x1080:r=30:d=%d" % seconds, "-f", "lavfi", "-i", "sine=f=440:d=%d" % seconds,
                        "-c:v", "libx264", "-preset", "veryfast", "-g", "60", "-keyint_min", "60",
                        "-sc_threshold", "0", "-pix_fmt", "yuv420p", "-c:a", "aac", path], check=True)
    return path


def cpu_per_second(argv, seconds, runs):
    """Median CPU seconds (user + system) the process spends per second of playback."""
    samples = []
    for _ in range(runs):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        used = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
        samples.append(used / seconds)
    return statistics.median(samples)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--runs", type=int, default=7)
    parser.add_argument("--seconds", type=float, default=5.0)
    options = parser.parse_args()
    if shutil.which("mpv") is None:
        sys.exit("bench_playback: mpv is not installed (apt-get install mpv)")
    ours = [os.path.join(options.build, "bin", "native_play"), "--headless"]
    clip = make_clip(options.build)

    print("%-34s %10s %10s %7s" % ("measure", "ours", "mpv", "ratio"))
    for label, start in (("open to first frame", None), ("seek to key frame (10 s)", "10"),
                         ("seek mid-GOP (11 s)", "11")):
        extra = [] if start is None else ["--start", start]
        mpv_extra = [] if start is None else ["--start=" + start]
        mine, peer = medians([ours + ["--first-frame"] + extra + [clip],
                                      MPV + ["--frames=1"] + mpv_extra + [clip]], options.runs)
        print("%-34s %8.0f ms %8.0f ms %6.2fx" % (label, mine, peer, mine / peer))

    mine = cpu_per_second(ours + ["--seconds", str(options.seconds), clip], options.seconds, 3)
    peer = cpu_per_second(MPV + ["--length=%g" % options.seconds, clip], options.seconds, 3)
    print("%-34s %9.3f s %9.3f s %6.2fx  (goal %.1fx: %s)" % ("CPU per second of playback", mine, peer,
          mine / peer, CPU_GOAL, "met" if mine / peer <= CPU_GOAL else "missed"))

    output = subprocess.run(ours + ["--first-frame", "--start", "11.9", "--step-back", "30", clip],
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, check=True).stdout
    found = re.search(r"median ([0-9.]+) ms, slowest ([0-9.]+) ms", output)
    median, slowest = float(found.group(1)), float(found.group(2))
    print("%-34s %8.1f ms (slowest %.0f ms; goal %.0f ms: %s)" % ("30 steps back by scrubbing, median", median,
          slowest, STEP_GOAL_MS, "met" if median <= STEP_GOAL_MS else "missed"))


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""bench_seeking: exact seeks, steps back and peak memory of the playback engine
(build/bin/native_play --headless) next to mpv on the same files in the same run. Prints medians
and the ratio ours/mpv.

Seeks are whole processes on both sides, `native_play --first-frame --start T` against
`mpv --hr-seek=yes --start=T --frames=1`, on an MPEG-TS (H.264 + AAC, the muxer's 1.4-s start) and
an open-GOP HEVC whose key frames are CRA pictures with leading pictures. Where mpv's demuxer would
land past the frame asked for, mpv reads from 2 s earlier (--hr-seek-demuxer-offset); one more mpv
run per seek reports which frame it showed. Steps back are timed inside each process:
`native_play --step-back N` by scrubbing, mpv's frame-back-step driven by bench/mpv_frames.lua.
Peak memory is the maximum resident set of one process playing 5 s of a 1080p and of a 4K H.264.

usage: seeking.py [BUILD_DIR] [--runs N] [--slow-runs N] [--steps N]
BUILD_DIR (default: build) holds bin/native_play; the media are made once into BUILD_DIR/bench-media.
"""
import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

import timing
from timing import CommandFailed, medians

HERE = os.path.dirname(os.path.abspath(__file__))
MPV = ["mpv", "--no-config", "--really-quiet", "--vo=null", "--ao=null"]
MPV_SCRIPT = os.path.join(HERE, "mpv_frames.lua")
PLAY_SECONDS = 5
ANSWER_TIMEOUT_S = 120
STEPS_LINE = re.compile(r"steps back: median ([0-9.]+) ms, slowest ([0-9.]+) ms")


def source(size, seconds):
    return ["-f", "lavfi", "-i", "testsrc2=s=%s:r=30:d=%d" % (size, seconds),
            "-f", "lavfi", "-i", "sine=f=440:d=%d" % seconds]


# A key frame every 60 frames at 30 fps, every 2 s: the seek targets below rely on it.
H264 = ["-c:v", "libx264", "-preset", "veryfast", "-g", "60", "-keyint_min", "60", "-sc_threshold", "0",
        "-pix_fmt", "yuv420p"]
HEVC_OPEN_GOP = ["-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
                 "open-gop=1:keyint=60:min-keyint=60:scenecut=0:bframes=4:log-level=error", "-tag:v", "hvc1",
                 "-pix_fmt", "yuv420p"]
AAC = ["-c:a", "aac"]
TS = "seek_h264_aac.ts"
HEVC = "seek_hevc_open_gop.mp4"
HD = "memory_1080p.mp4"
UHD = "memory_2160p.mp4"
CLIPS = {
    TS: source("1920x1080", 20) + H264 + AAC + ["-f", "mpegts"],
    HEVC: source("1920x1080", 20) + HEVC_OPEN_GOP + AAC + ["-f", "mp4"],
    HD: source("1920x1080", 8) + H264 + AAC + ["-f", "mp4"],
    UHD: source("3840x2160", 8) + H264 + AAC + ["-f", "mp4"],
}

# Without it mpv's exact seek is not exact here: in this TS its demuxer lands on the key frame
# after the target (11 s shows 12.023 s, and frame-back-step stays there), and on the HEVC it lands
# on the CRA, which drops its leading pictures (9.968 s shows 10.000 s). Reading from 2 s (a GOP)
# earlier, mpv shows the frame asked for.
MPV_OFFSET_S = 2
MPV_EXACT = ["--hr-seek-demuxer-offset=%g" % MPV_OFFSET_S]

# (label, clip, T, mpv's extra options). The HEVC's CRA at 10 s comes first in decode order, before
# its leading pictures at 9.867 to 9.967 s. T sits just past the frame meant, inside mpv's 5-ms
# tolerance, so both players aim at the same frame.
SEEKS = [
    ("seek TS, mid-GOP (11.000 s)", TS, "11", MPV_EXACT),
    ("seek TS, a GOP's last frame (11.967 s)", TS, "11.967", MPV_EXACT),
    ("seek HEVC, mid-GOP (11.000 s)", HEVC, "11", []),
    ("seek HEVC, leading picture (9.968 s)", HEVC, "9.968", MPV_EXACT),
]
# (label, clip, T, mpv's extra options): --steps frames back from T.
STEP_BACKS = [
    ("TS from 11.9 s", TS, "11.9", MPV_EXACT),
    ("HEVC from 10.3 s, across the CRA", HEVC, "10.3", []),
]
MEMORY = [("1080p H.264", HD), ("4K H.264", UHD)]


def make_media(build):
    media = os.path.join(build, "bench-media")
    os.makedirs(media, exist_ok=True)
    for name, arguments in CLIPS.items():
        path = os.path.join(media, name)
        if not os.path.exists(path):
            # Made beside and renamed, so an interrupted run leaves no half clip to be reused.
            partial = os.path.join(media, ".making-" + name)
            subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y"] + arguments + [partial], check=True)
            os.replace(partial, path)
    return media


def failure(argv, status, text):
    status = "signal %d" % -status if status < 0 else "status %d" % status
    last = text.strip().split("\n")[-1] if text.strip() else "no message"
    return CommandFailed("%s: %s, %s" % (os.path.basename(argv[0]), status, last))


def output_of(argv):
    try:
        result = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                timeout=ANSWER_TIMEOUT_S)
    except subprocess.TimeoutExpired:
        raise CommandFailed("%s: no answer in %d s" % (os.path.basename(argv[0]), ANSWER_TIMEOUT_S))
    if result.returncode != 0:
        raise failure(argv, result.returncode, result.stdout + result.stderr)
    return result.stdout


def mpv_frames(clip, start, steps, extra):
    """mpv paused at start, stepping back `steps` frames with bench/mpv_frames.lua: its output."""
    return output_of(MPV + extra + ["--hr-seek=yes", "--pause", "--start=" + start, "--script=" + MPV_SCRIPT,
                                    "--script-opts=seeking-steps=%d" % steps, clip])


def shown_at(output, which):
    found = re.search(which + r" frame shown at ([0-9.]+) s", output)
    if found is None:
        raise CommandFailed("mpv: %s printed no %s frame" % (os.path.basename(MPV_SCRIPT), which))
    return float(found.group(1))


def step_figures(argv, output):
    found = STEPS_LINE.search(output)
    if found is None:
        raise CommandFailed("%s printed no step times" % os.path.basename(argv[0]))
    return float(found.group(1)), float(found.group(2))


def mpv_note(extra, what, seconds):
    return "mpv%s %s %.3f s" % (" (offset %g s)" % MPV_OFFSET_S if extra else "", what, seconds)


def peak_rss_mb(argv):
    """Maximum resident set of one process, from its own rusage: RUSAGE_CHILDREN would keep the
    largest child so far."""
    with tempfile.TemporaryFile() as log:
        child = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=log)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            log.seek(0)
            raise failure(argv, child.returncode, log.read().decode(errors="replace"))
    return usage.ru_maxrss / 1024.0


class Table(timing.Table):
    HEADER = ("measure", "ours", "mpv", "ours/mpv", "note")

    def add(self, measure, ours, peer, unit, note=""):
        self.rows.append((measure, "%.1f %s" % (ours, unit), "%.1f %s" % (peer, unit), "%.2f" % (ours / peer), note))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--runs", type=int, default=5, help="measured runs per seek")
    parser.add_argument("--slow-runs", type=int, default=3,
                        help="runs per step-back and memory figure, each a few seconds long")
    parser.add_argument("--steps", type=int, default=20, help="frames stepped back per run")
    options = parser.parse_args()

    native_play = os.path.join(options.build, "bin", "native_play")
    if not os.access(native_play, os.X_OK):
        sys.exit("bench_seeking: %s is missing (cmake --build %s --target native_play)" % (native_play, options.build))
    for tool in ("ffmpeg", "mpv"):
        if shutil.which(tool) is None:
            sys.exit("bench_seeking: %s is not installed (scripts/setup.sh mpv installs both)" % tool)
    ours = [native_play, "--headless"]
    media = make_media(options.build)
    clip = lambda name: os.path.join(media, name)
    table = Table()

    def seek(label, name, start, extra):
        mine, peer = medians([ours + ["--first-frame", "--start", start, clip(name)],
                              MPV + extra + ["--hr-seek=yes", "--start=" + start, "--frames=1", clip(name)]],
                             options.runs)
        shown = shown_at(mpv_frames(clip(name), start, 0, extra), "first")
        table.add(label, mine, peer, "ms", mpv_note(extra, "showed", shown))

    def step_back(labels, name, start, extra):
        mine, peer, peer_end = [], [], None
        for _ in range(options.slow_runs):
            argv = ours + ["--first-frame", "--start", start, "--step-back", str(options.steps), clip(name)]
            mine.append(step_figures(argv, output_of(argv)))
            output = mpv_frames(clip(name), start, options.steps, extra)
            peer.append(step_figures(MPV, output))
            peer_end = shown_at(output, "last")
        for label, i, note in zip(labels, (0, 1), (mpv_note(extra, "ended at", peer_end), "")):
            table.add(label, statistics.median(m[i] for m in mine), statistics.median(p[i] for p in peer), "ms", note)

    def memory(label, name):
        mine, peer = [], []
        for _ in range(options.slow_runs):
            mine.append(peak_rss_mb(ours + ["--seconds", str(PLAY_SECONDS), clip(name)]))
            peer.append(peak_rss_mb(MPV + ["--length=%d" % PLAY_SECONDS, clip(name)]))
        table.add(label, statistics.median(mine), statistics.median(peer), "MB")

    print("bench_seeking: seeks are median wall ms of %d runs, steps back and memory medians of %d runs;"
          " load average %.2f" % (options.runs, options.slow_runs, os.getloadavg()[0]), flush=True)
    for label, name, start, extra in SEEKS:
        table.attempt([label], lambda: seek(label, name, start, extra))
    for label, name, start, extra in STEP_BACKS:
        labels = ["%d steps back, %s: median" % (options.steps, label), "  slowest step"]
        table.attempt(labels, lambda: step_back(labels, name, start, extra))
    for label, name in MEMORY:
        label = "peak memory, %d s of %s" % (PLAY_SECONDS, label)
        table.attempt([label], lambda: memory(label, name))

    print()
    table.print()
    print("seeks: whole processes, start-up included on both sides; steps back: in process, from the"
          " request until the frame is shown; memory: maximum resident set. Load average now %.2f"
          % os.getloadavg()[0])
    # A command that did not run is a broken benchmark; slow figures are the table's news.
    return 1 if table.failures else 0


if __name__ == "__main__":
    sys.exit(main())

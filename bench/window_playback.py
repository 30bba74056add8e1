#!/usr/bin/env python3
"""bench_window_playback: the CPU that showing video in a window costs. Plays 8 s of 1080p30 H.264
(with sound) in a 1280x720 picture on an X server of its own (Xvfb) and prints the CPU seconds
(user + system) of each player process, medians of a few runs taken in turns:

  vtk play            ours, in its window: the 1280x720 picture and the control bar under it
  vtk play --headless ours, offscreen
  mpv --vo=null       decoding alone, the floor
  mpv --vo=x11        mpv drawing into a 1280x720 window of the same server

The X server's own work (copying pictures to its screen) is no part of either player's figure.
vtk play fits its window to the screen, so the screen is the picture's size with the control bar's
height below it. Audio goes to SDL's dummy driver and mpv's null output.

usage: window_playback.py [BUILD_DIR] [--runs N]
"""
import argparse
import os
import select
import shutil
import statistics
import subprocess
import sys

from playback import make_clip
from timing import CommandFailed

SECONDS = 8
PICTURE = (1280, 720)
# vtk play fits a 1080p picture and its 29-pixel bar into 1280x749: the picture is 1280x720.
SCREEN = "1280x749x24"
GOAL_RATIO = 1.1
MPV = ["mpv", "--no-config", "--really-quiet", "--ao=null"]


def start_xvfb():
    """An Xvfb on a display number it picks itself; returns (process, DISPLAY value)."""
    read_end, write_end = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0", SCREEN, "-nolisten", "tcp"],
                              pass_fds=(write_end,), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
    os.close(write_end)
    number = b""
    ready, _, _ = select.select([read_end], [], [], 30)
    while ready:
        chunk = os.read(read_end, 16)
        if not chunk:
            break
        number += chunk
        if number.endswith(b"\n"):
            break
    os.close(read_end)
    if not number.strip():
        server.kill()
        server.wait()
        sys.exit("bench_window_playback: Xvfb did not start")
    return server, ":" + number.decode().strip()


def cpu_seconds(argv, env):
    """CPU seconds (user + system) of one run of argv, which must end by itself."""
    process = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    try:
        _, status, usage = os.wait4(process.pid, 0)
    finally:
        if process.poll() is None:
            process.kill()
    if os.waitstatus_to_exitcode(status) != 0:
        raise CommandFailed("%s: status %d" % (os.path.basename(argv[0]), os.waitstatus_to_exitcode(status)))
    return usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--runs", type=int, default=3)
    options = parser.parse_args()
    for program in ("mpv", "Xvfb"):
        if shutil.which(program) is None:
            sys.exit("bench_window_playback: %s is not installed (make bench installs it)" % program)
    vtk = os.path.join(options.build, "bin", "vtk")
    clip = make_clip(options.build, SECONDS)
    server, display = start_xvfb()
    try:
        env = dict(os.environ, DISPLAY=display, SDL_AUDIODRIVER="dummy")
        env.pop("WAYLAND_DISPLAY", None)
        geometry = "--geometry=%dx%d" % PICTURE
        players = [
            ("vtk play (window)", [vtk, "play", clip]),
            ("vtk play --headless", [vtk, "play", "--headless", clip]),
            ("mpv --vo=null", MPV + ["--vo=null", clip]),
            ("mpv --vo=x11", MPV + ["--vo=x11", geometry, clip]),
        ]
        samples = {label: [] for label, _ in players}
        # One unmeasured run each warms the page cache; then the players take turns.
        for run in range(options.runs + 1):
            for label, argv in players:
                used = cpu_seconds(argv, env)
                if run > 0:
                    samples[label].append(used)
    except CommandFailed as failure:
        sys.exit("bench_window_playback: %s" % failure)
    finally:
        server.terminate()
        server.wait()

    cpu = {label: statistics.median(values) for label, values in samples.items()}
    ours = cpu["vtk play (window)"]
    print("CPU seconds for %d s of 1080p30 H.264 shown at %dx%d (Xvfb), median of %d runs" %
          ((SECONDS,) + PICTURE + (options.runs,)))
    for label, _ in players:
        print("  %-22s %7.2f s  (%.0f %% of a core)" % (label, cpu[label], 100.0 * cpu[label] / SECONDS))
    to_null = ours / cpu["mpv --vo=null"]
    to_x11 = ours / cpu["mpv --vo=x11"]
    print("ours (window) / mpv --vo=null  %.2fx  (goal <= %.1fx: %s)" % (to_null, GOAL_RATIO,
                                                                         "met" if to_null <= GOAL_RATIO else "MISSED"))
    print("ours (window) / mpv --vo=x11   %.2fx" % to_x11)


if __name__ == "__main__":
    main()

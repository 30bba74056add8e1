#!/usr/bin/env python3
"""compare_decode.py VTK CORPUS_DIR [FILE...]: compares the pictures vtk shows with FFmpeg's own
decode of the same frames, for every file of the everyday corpus (make_everyday.sh) or the FILEs
named (names inside CORPUS_DIR).

Cases per file:
  poster            vtk poster: the first presented frame, upright, at display size.
  seek-start        vtk play --headless --seek 0 --screenshot: the first frame again, in the window.
  seek-mid-gop      the middle of the second GOP, reached from its key frame.
  seek-leading      the frame just before the second key frame: in an open GOP a leading picture,
                    decoded after that key frame but shown before it.
  time-mid-gop,     vtk poster --time T --width 160 at the times of the two seeks before: the same
  time-leading      frames, fitted in 160 pixels of width.
T is media time from the first presented video frame, whatever the container's start time (1.4 s
in MPEG-TS, 10 h in some files); each seek lands mid-interval of its frame. The reference is the
frame whose interval holds T, taken from ffprobe's frame list by its index in presentation order,
turned upright by ffmpeg and scaled to the size vtk shows it at.

Prints OK or `FAIL FILE CASE REASON` per case and `N passed, N failed` at the end; exits 1 when a
case failed. --under runs every vtk call under a wrapper (valgrind) and exits 77 when the wrapper is
not installed."""
import argparse
import bisect
import concurrent.futures
import json
import operator
import os
import re
import shlex
import shutil
import signal
import struct
import subprocess
import sys
import tempfile

# Mean absolute error per channel (of 255) allowed between vtk's picture and FFmpeg's: the two
# convert colour and scale with different code. A wrong frame differs in a stripe of the counter
# picture: 18 or more.
MAX_ERROR = 6.0
# The window vtk play opens for a screenshot: the display size, scaled down to fit this.
LARGEST_WINDOW = (1280, 720)
CASES = ("poster", "seek-start", "seek-mid-gop", "seek-leading", "time-mid-gop", "time-leading")
# The width vtk poster --time fits its posters in.
TIME_POSTER_WIDTH = 160
COUNTER_STRIPES = 7


class CaseFailure(Exception):
    pass


def run(command, timeout, what):
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
    except subprocess.TimeoutExpired:
        raise CaseFailure(f"{what} did not finish in {timeout:g} s")
    if done.returncode != 0:
        # The first lines say what went wrong (valgrind's first error), the last ones where it ended.
        message = [line.strip() for line in done.stderr.decode(errors="replace").splitlines() if line.strip()]
        if len(message) > 10:
            message = message[:7] + ["..."] + message[-2:]
        raise CaseFailure(f"{what} exited with {done.returncode}: " + " | ".join(message))
    return done.stdout


class Video:
    """What ffprobe says about the first video stream: stored size, sample aspect ratio, rotation,
    and the decoded frames' times in presentation order."""

    def __init__(self, path):
        output = run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                      "stream=width,height,sample_aspect_ratio:stream_side_data=rotation"
                      ":frame=best_effort_timestamp_time,pts_time,key_frame", "-of", "json", path],
                     60, "ffprobe")
        probe = json.loads(output)
        stream = probe["streams"][0]
        self.width, self.height = stream["width"], stream["height"]
        sar = stream.get("sample_aspect_ratio", "1:1").split(":")
        self.sar = (int(sar[0]), int(sar[1])) if len(sar) == 2 and int(sar[0]) > 0 and int(sar[1]) > 0 else (1, 1)
        rotations = [side["rotation"] for side in stream.get("side_data_list", []) if "rotation" in side]
        self.sideways = bool(rotations) and round(rotations[0]) % 180 != 0
        # By place in time order; the index is the frame's place in FFmpeg's output, which select
        # counts. A frame FFmpeg gives no time (the last of an AVI with B-frames) has no place.
        frames = sorted((float(frame.get("best_effort_timestamp_time", frame.get("pts_time"))), index,
                         bool(frame.get("key_frame")))
                        for index, frame in enumerate(probe.get("frames", []))
                        if frame.get("best_effort_timestamp_time", frame.get("pts_time")) is not None)
        if len(frames) < 3:
            raise CaseFailure(f"ffprobe gives only {len(frames)} frames a time")
        self.times = [time - frames[0][0] for time, _, _ in frames]
        self.indexes = [index for _, index, _ in frames]
        self.key_places = [place for place, (_, _, key) in enumerate(frames) if key]

    def display_size(self):
        """The sample aspect ratio only ever enlarges (the width when SAR > 1, the height when
        SAR < 1), then a quarter turn swaps the sides."""
        width, height = self.width, self.height
        numerator, denominator = self.sar
        if numerator > denominator:
            width = int(width * numerator / denominator + 0.5)
        elif numerator < denominator:
            height = int(height * denominator / numerator + 0.5)
        return (height, width) if self.sideways else (width, height)

    def picture_area(self):
        """The window vtk play opens for a screenshot and the picture's rectangle in it,
        letterboxed to the decoded picture's shape: (window width, height), (left, top, width,
        height)."""
        width, height = self.display_size()
        window = fitted((width, height), min(1.0, LARGEST_WINDOW[0] / width, LARGEST_WINDOW[1] / height))
        pixel_aspect = self.sar[0] / self.sar[1]
        if self.sideways:
            aspect = (self.height, self.width * pixel_aspect)
        else:
            aspect = (self.width * pixel_aspect, self.height)
        if window[0] * aspect[1] > window[1] * aspect[0]:
            width = int(window[1] * aspect[0] / aspect[1] + 0.5)
            return window, (int((window[0] - width) / 2), 0, width, window[1])
        height = int(window[0] * aspect[1] / aspect[0] + 0.5)
        return window, (0, int((window[1] - height) / 2), window[0], height)

    def seek_frames(self):
        """The frame (place in time order) each seek case shows."""
        count = len(self.times)
        key_places = self.key_places
        second = next((place for place in key_places[1:] if place - 1 not in key_places), None)
        if second is None:
            return {"seek-start": 0, "seek-mid-gop": count // 2}
        following = next((place for place in key_places if place > second), count)
        return {"seek-start": 0, "seek-mid-gop": min(second + max(1, (following - second) // 2), count - 1),
                "seek-leading": second - 1}

    def seek_time(self, place):
        """A time in the middle of the frame's interval: 0 for the first frame."""
        if place == 0:
            return 0.0
        end = self.times[place + 1] if place + 1 < len(self.times) else 2 * self.times[place] - self.times[place - 1]
        return (self.times[place] + end) / 2

    def frame_at(self, seconds):
        """The place of the frame whose presentation interval holds the time."""
        return max(0, bisect.bisect_right(self.times, seconds + 1e-9) - 1)


def fitted(size, scale):
    """A size scaled and rounded, at least a pixel a side."""
    return tuple(max(1, int(side * scale + 0.5)) for side in size)


def png_size(path):
    try:
        with open(path, "rb") as file:
            header = file.read(24)
    except OSError as error:
        raise CaseFailure(f"no picture written: {error.strerror}")
    if len(header) < 24 or header[:8] != b"\x89PNG\r\n\x1a\n" or header[12:16] != b"IHDR":
        raise CaseFailure("the picture written is not a PNG")
    return struct.unpack(">II", header[16:24])


def reference(path, video, place, size):
    """FFmpeg's decode of the frame at a place in time order, upright, scaled to size."""
    index = video.indexes[place]
    return run(["ffmpeg", "-v", "error", "-nostdin", "-i", path, "-vf",
                f"select=eq(n\\,{index}),scale={size[0]}:{size[1]}:flags=bilinear", "-frames:v", "1",
                "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"], 60, "ffmpeg decoding")


def crop(rgb, width, area):
    left, top, crop_width, crop_height = area
    return b"".join(rgb[((top + row) * width + left) * 3:((top + row) * width + left + crop_width) * 3]
                    for row in range(crop_height))


def counter_value(rgb, width, height):
    """The frame number the counter picture's stripes spell."""
    value = 0
    for stripe in range(COUNTER_STRIPES):
        at = ((height // 4) * width + int((stripe + 0.5) * width / COUNTER_STRIPES)) * 3
        value = value * 2 + (sum(rgb[at:at + 3]) > 3 * 128)
    return value


def compare(picture, expected, size):
    if len(picture) != len(expected) or len(expected) != size[0] * size[1] * 3:
        raise CaseFailure(f"picture of {len(picture)} bytes, FFmpeg's of {len(expected)}, {size[0]}x{size[1]} expected")
    errors = [sum(map(abs, map(operator.sub, picture[channel::3], expected[channel::3]))) / (size[0] * size[1])
              for channel in range(3)]
    text = "/".join(f"{error:.2f}" for error in errors)
    if max(errors) > MAX_ERROR:
        raise CaseFailure(f"mean error {text} above {MAX_ERROR:g}: shows #{counter_value(picture, *size)}, "
                          f"FFmpeg shows #{counter_value(expected, *size)}")
    return text


def check_case(options, path, video, out, case, seconds):
    """Runs vtk for a case and compares its picture with FFmpeg's decode of the frame it must show:
    the mean errors as text."""
    display = video.display_size()
    if case.startswith("seek-"):
        command = ["play", "--headless", "--seek", f"{seconds:.6f}", "--screenshot", out, path]
        window, area = video.picture_area()
    else:
        command = ["poster", path, "-o", out]
        window = display
        if case.startswith("time-"):
            command[1:1] = ["--time", f"{seconds:.6f}", "--width", str(TIME_POSTER_WIDTH)]
            window = fitted(display, min(1.0, TIME_POSTER_WIDTH / display[0]))
        area = (0, 0, *window)
    run(options.under + [options.vtk, *command], options.timeout, "vtk " + command[0])
    shown, size = png_size(out), area[2:]
    if shown != window:
        raise CaseFailure("vtk's picture is %dx%d, %dx%d expected" % (shown + window))
    picture = run(["ffmpeg", "-v", "error", "-nostdin", "-i", out, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"], 60,
                  "ffmpeg reading vtk's picture")
    expected = reference(path, video, 0 if case == "poster" else video.frame_at(seconds), size)
    return compare(crop(picture, window[0], area), expected, size)


def check_file(options, name):
    """The lines to print and the count of failed cases for one file."""
    path = os.path.join(options.corpus, name)
    lines, failed = [], 0
    try:
        video = Video(path)
    except CaseFailure as failure:
        return [f"FAIL {name} probe {failure}"], 1
    frames = video.seek_frames()
    with tempfile.TemporaryDirectory() as folder:
        for case in options.cases:
            seek = case.replace("time-", "seek-")
            if case != "poster" and seek not in frames:
                continue
            seconds = 0.0 if case == "poster" else video.seek_time(frames[seek])
            label = case if case == "poster" else f"{case}@{seconds:.4f}"
            try:
                text = check_case(options, path, video, os.path.join(folder, case + ".png"), case, seconds)
                lines.append(f"OK   {name} {label} error {text}")
            except CaseFailure as failure:
                lines.append(f"FAIL {name} {label} {failure}")
                failed += 1
    return lines, failed


def unsupported_by_wrapper(options, path):
    """The instruction the wrapper cannot emulate, when vtk dies of one before doing any work: valgrind
    3.19 stops at RDTSCP on AMD processors, which a library FFmpeg loads runs at start-up."""
    done = subprocess.run(options.under + [options.vtk, "info", path], stdin=subprocess.DEVNULL,
                          capture_output=True, timeout=options.timeout)
    stderr = done.stderr.decode(errors="replace")
    if done.returncode != -signal.SIGILL or "Illegal opcode" not in stderr:
        return None
    frames = re.findall(r"at 0x[0-9A-F]+: (.*)", stderr)
    return frames[0] if frames else "illegal opcode"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("vtk")
    parser.add_argument("corpus")
    parser.add_argument("files", nargs="*")
    parser.add_argument("--cases", default=",".join(CASES), help="comma-separated, of: " + " ".join(CASES))
    parser.add_argument("--under", default="", help="a command that runs each vtk call, e.g. valgrind")
    parser.add_argument("--timeout", type=float, default=60, help="seconds for each vtk call")
    parser.add_argument("--jobs", type=int, default=2)
    options = parser.parse_intermixed_args()
    options.cases = options.cases.split(",")
    unknown = set(options.cases) - set(CASES)
    if unknown:
        parser.error("unknown cases: " + " ".join(sorted(unknown)))
    options.under = shlex.split(options.under)
    if options.under and not shutil.which(options.under[0]):
        print(f"SKIP {options.under[0]} is not installed")
        return 77
    names = options.files or sorted(name for name in os.listdir(options.corpus) if not name.startswith("."))
    unsupported = options.under and unsupported_by_wrapper(options, os.path.join(options.corpus, names[0]))
    if unsupported:
        print(f"SKIP {options.under[0]} cannot run what vtk loads on this CPU: {unsupported}")
        return 77
    passed = failed = 0
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for lines, failures in pool.map(lambda name: check_file(options, name), names):
            print("\n".join(lines), flush=True)
            failed += failures
            passed += len(lines) - failures
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

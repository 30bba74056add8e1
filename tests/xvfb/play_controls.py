#!/usr/bin/env python3
"""vtk play in a real X window, driven as a person would: synthetic input (xdotool), the window
captured as the X server shows it (xwd). Run under xvfb-run with a 1280x800 screen and -noreset
(so that the work area set here stays): play_controls.py VTK CLIP [SCREENSHOTS_DIR]

- Placement: clips of 640x360, 1920x1080, 1080x1920 and 3840x2160 open inside the screen's work
  area (a 30-pixel panel is declared at the bottom), centred, at the desktop's scale 1 and 2.
- Controls: on CLIP (the corpus's quadrant clip, 25 fps, the frame number in a band across the
  picture) the play button plays, the play head drags, m mutes, the wheel sets the volume, ] and a
  click on the speed speed up, f and a double click toggle full screen, s and the stop button stop
  back to the first frame, q quits; without --keep-open vtk ends with the clip.
With SCREENSHOTS_DIR, the captures the README shows are written there."""
import ctypes
import itertools
import os
import shutil
import subprocess
import sys
import tempfile
import time

SCREEN = (1280, 800)
WORK_AREA = (0, 0, 1280, 770)
BAR_HEIGHT = 29          # the control bar under the picture, at scale 1
PLAY_BUTTON = (29 + 12, 2 + 12)  # centre of the play button, from the bar's top left
STOP_BUTTON = (79 + 12, 2 + 12)
TRACK_LEFT = 109
BUTTON = 25
# From the bar's right end: full screen, volume (56), mute.
MUTE_FROM_RIGHT = 4 + 25 + 56 + 25


def check(condition, message):
    if not condition:
        raise SystemExit("FAIL " + message)
    print("ok", message)


def declare_work_area():
    """Sets the root window's _NET_WORKAREA as a desktop with a bottom panel would."""
    x11 = ctypes.CDLL("libX11.so.6")
    x11.XOpenDisplay.restype = ctypes.c_void_p
    x11.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
    x11.XDefaultRootWindow.restype = ctypes.c_ulong
    x11.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
    x11.XInternAtom.restype = ctypes.c_ulong
    x11.XChangeProperty.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_ulong, ctypes.c_int,
                                    ctypes.c_int, ctypes.c_void_p, ctypes.c_int]
    x11.XCloseDisplay.argtypes = [ctypes.c_void_p]
    display = x11.XOpenDisplay(None)
    root = x11.XDefaultRootWindow(display)
    cardinal = x11.XInternAtom(display, b"CARDINAL", 0)
    for name, values in ((b"_NET_WORKAREA", WORK_AREA), (b"_NET_CURRENT_DESKTOP", (0,))):
        array = (ctypes.c_long * len(values))(*values)
        x11.XChangeProperty(display, root, x11.XInternAtom(display, name, 0), cardinal, 32, 0, array, len(values))
    x11.XCloseDisplay(display)


def find_window(name, timeout=15.0):
    deadline = time.time() + timeout
    while time.time() < deadline:
        found = subprocess.run(["xdotool", "search", "--name", name], capture_output=True, text=True).stdout.split()
        if found:
            return found[0]
        time.sleep(0.1)
    raise SystemExit(f"FAIL no window named {name!r} appeared")


class Shot:
    """The window's pixels as the X server shows them."""

    def __init__(self, window, aspect, scale):
        shell = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window], check=True, capture_output=True,
                               text=True).stdout
        fields = dict(line.split("=", 1) for line in shell.split())
        self.x, self.y, self.width, self.height = (int(fields[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))
        self.bar = self.height - BAR_HEIGHT * scale
        with tempfile.TemporaryDirectory() as folder:
            dump = os.path.join(folder, "window.xwd")
            subprocess.run(["xwd", "-id", window, "-silent", "-out", dump], check=True)
            self.rgb = subprocess.run(["ffmpeg", "-v", "error", "-i", dump, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"],
                                      check=True, capture_output=True).stdout
        if len(self.rgb) != self.width * self.height * 3:
            raise SystemExit(f"FAIL the capture is {len(self.rgb)} bytes for {self.width}x{self.height}")
        # The picture, letterboxed into the area above the bar.
        self.picture_width = min(self.width, round(self.bar * aspect))
        self.picture_left = (self.width - self.picture_width) // 2

    def pixel(self, x, y):
        at = (y * self.width + x) * 3
        return tuple(self.rgb[at:at + 3])

    def frame(self):
        """The frame number the picture's band shows."""
        number = 0
        for bit in range(10):
            r, g, b = self.pixel(self.picture_left + (bit * 2 + 1) * self.picture_width // 20, self.bar // 2)
            number = number * 2 + (1 if r + g + b > 384 else 0)
        return number

    def region(self, left, top, width, height):
        return [self.pixel(x, y) for y in range(top, top + height) for x in range(left, left + width)]

    def varied(self, left, top, width, height):
        """Whether the rectangle holds more than one colour: something is drawn there."""
        return len(set(self.region(left, top, width, height))) > 1

    def save(self, path):
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "rgb24", "-s",
                        f"{self.width}x{self.height}", "-i", "-", path], input=self.rgb, check=True)


class Player:
    """vtk play on a clip, its window and a hand on it. As a context manager it kills vtk at the end
    and shows what vtk said when a check failed."""

    def __init__(self, vtk, clip, *options, aspect=4 / 3, scale=1):
        self.aspect, self.scale = aspect, scale
        self.log = tempfile.TemporaryFile(mode="w+")
        self.process = subprocess.Popen([vtk, "play", *options, clip], stderr=self.log,
                                        env=dict(os.environ, GDK_SCALE=str(scale)))
        self.window = find_window(os.path.basename(clip))

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        if kind in (SystemExit, subprocess.CalledProcessError):
            sys.stderr.write("vtk play said:\n" + self.said())
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    def xdotool(self, *args):
        subprocess.run(["xdotool", *[str(a) for a in args]], check=True)

    def move(self, x, y, *then):
        self.xdotool("mousemove", "--window", self.window, x, y, *then)

    def click(self, x, y, *options):
        self.move(x, y, "click", *options, 1)

    def key(self, name):
        # Without a window manager the keyboard follows the pointer; keys sent to a window by id
        # would be synthetic events, which SDL ignores.
        self.move(5, 5, "key", name)

    def shot(self):
        return Shot(self.window, self.aspect, self.scale)

    def wait(self, condition, nudge=None):
        """Shots until condition(shot) holds or 15 s are up; the last shot. nudge, if given, runs
        between shots (a hand's small movement, so that a request the player dropped while busy is
        made again)."""
        deadline = time.time() + 15
        while True:
            shot = self.shot()
            if condition(shot) or time.time() > deadline:
                return shot
            if nudge:
                nudge()
            time.sleep(0.2)

    def expect(self, condition, message, nudge=None):
        """wait(), then checks the condition; message may be a function of the last shot."""
        shot = self.wait(condition, nudge)
        check(condition(shot), message(shot) if callable(message) else message)
        return shot

    def quits(self):
        self.key("q")
        check(self.process.wait(timeout=10) == 0, "q quits with status 0")

    def said(self):
        self.log.seek(0)
        return self.log.read()


def ffmpeg_clip(folder, width, height):
    path = os.path.join(folder, f"clip_{width}x{height}.mp4")
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                    f"testsrc2=s={width}x{height}:r=25:d=1", "-f", "lavfi", "-i", "sine=f=440:d=1", "-c:v", "libx264",
                    "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac", path], check=True)
    return path


def check_placement(vtk, folder, shots):
    left, top, area_width, area_height = WORK_AREA
    inside = lambda s: (left <= s.x and top <= s.y and s.x + s.width <= left + area_width
                        and s.y + s.height <= top + area_height)
    centred = lambda s: (abs(s.x - (left + (area_width - s.width) // 2)) <= 1
                         and abs(s.y - (top + (area_height - s.height) // 2)) <= 1)
    for width, height in ((640, 360), (1920, 1080), (1080, 1920), (3840, 2160)):
        clip = ffmpeg_clip(folder, width, height)
        for scale in (1, 2):
            with Player(vtk, clip, "--paused", "--keep-open", aspect=width / height, scale=scale) as player:
                bar = BAR_HEIGHT * scale
                fit = min(1, area_width / (width * scale), (area_height - bar) / (height * scale))
                expected_height = round(height * scale * fit) + bar
                # The window is sized, then moved: wait for both.
                shot = player.wait(lambda s: s.height == expected_height and centred(s)
                                   and s.varied(0, s.bar, s.width, bar))
                name = f"{width}x{height} at scale {scale}: {shot.width}x{shot.height} at {shot.x},{shot.y}"
                check(inside(shot), name + " lies inside the work area")
                check(centred(shot), name + " is centred")
                check(shot.height == expected_height, name + f" shows the picture {expected_height - bar} high")
                if shots and (width, height, scale) in ((1920, 1080, 1), (1080, 1920, 2)):
                    # The picture, not only the bar: its middle row holds the test picture's colours.
                    player.wait(lambda s: len(set(s.region(0, s.bar // 2, s.width, 1))) > 8).save(
                        os.path.join(shots, f"player_{width}x{height}_{scale}x.png"))
                player.quits()


def check_sound_keys(vtk, clip, shots):
    """m, the wheel and the speed on a clip with sound: the bar shows the sound muted, the volume and
    the speed."""
    with Player(vtk, clip, "--paused", "--keep-open", aspect=16 / 9) as player:
        first = player.wait(lambda s: s.varied(29, s.bar + 2, BUTTON, BUTTON))
        mute = (first.width - MUTE_FROM_RIGHT, first.bar + 2, BUTTON, BUTTON)
        volume = (mute[0] + BUTTON, mute[1], 56, BUTTON)
        speed = (mute[0] - 40, mute[1], 36, BUTTON)
        for area, change, message in (
                (mute, lambda: player.key("m"), "m shows the sound muted"),
                (volume, lambda: player.move(5, 5, "click", "--repeat", 4, 5), "the wheel sets the volume, unmuted"),
                (speed, lambda: player.key("bracketright"), "] shows a faster speed beside the mute button"),
                (speed, lambda: player.click(speed[0] + 20, speed[1] + 12), "a click on the speed shows a faster one")):
            before = player.shot().region(*area)
            change()
            player.expect(lambda s: s.region(*area) != before, message)
        if shots:
            player.move(TRACK_LEFT + 60, first.bar + 14)
            player.wait(lambda s: s.varied(TRACK_LEFT, s.bar - 22, 60, 20)).save(
                os.path.join(shots, "controls_hover.png"))
        player.quits()
        check(player.said() == "", "nothing on standard error (no ALSA complaints on a machine without sound)")


def check_controls(vtk, clip):
    with Player(vtk, clip, "--paused", "--keep-open") as player:
        first = player.expect(lambda s: s.frame() == 0 and s.varied(29, s.bar + 2, BUTTON, BUTTON),
                              lambda s: f"opened paused on the first frame, the bar drawn (shows {s.frame()})")
        player.click(PLAY_BUTTON[0], first.bar + PLAY_BUTTON[1])
        player.expect(lambda s: s.frame() > 5, lambda s: f"the picture advanced after play (frame {s.frame()})")

        # The play head is dragged 20 pixels from the track's start: a fraction of the clip, not its end.
        head_x, head_y = TRACK_LEFT + BUTTON // 2, first.bar + 2 + BUTTON // 2
        player.move(head_x, head_y, "mousedown", 1)
        for step in range(1, 5):
            player.move(head_x + 5 * step, head_y)
            time.sleep(0.3)
        jiggle = itertools.cycle((21, 20))
        player.expect(lambda s: 2 < s.frame() < 45, lambda s: f"the picture followed the drag (frame {s.frame()})",
                      nudge=lambda: player.move(head_x + next(jiggle), head_y))
        player.xdotool("mouseup", 1)

        for toggle, leave, name in ((lambda: player.key("f"), "f", "f"),
                                    (lambda: player.click(100, 40, "--repeat", 2, "--delay", 80), "Escape",
                                     "a double click")):
            toggle()
            player.expect(lambda s: (s.width, s.height) == SCREEN,
                          lambda s: f"{name} fills the screen ({s.width}x{s.height})")
            player.key(leave)
            player.expect(lambda s: (s.width, s.height) == (first.width, first.height),
                          lambda s: f"and leaves it again ({s.width}x{s.height})")

        for stop, name in ((lambda: player.key("s"), "s"),
                           (lambda: player.click(STOP_BUTTON[0], first.bar + STOP_BUTTON[1]), "the stop button")):
            player.key("space")
            player.wait(lambda s: s.frame() > 5)
            stop()
            player.expect(lambda s: s.frame() == 0, lambda s: f"{name} stops on the first frame (shows {s.frame()})")
        player.quits()

    with Player(vtk, clip) as ending:
        check(ending.process.wait(timeout=30) == 0, "without --keep-open vtk ends with the clip, status 0")


def main():
    vtk, clip = sys.argv[1], sys.argv[2]
    shots = sys.argv[3] if len(sys.argv) > 3 else None
    if shots:
        os.makedirs(shots, exist_ok=True)
    declare_work_area()
    folder = tempfile.mkdtemp()
    try:
        check_placement(vtk, folder, shots)
        check_sound_keys(vtk, os.path.join(folder, "clip_640x360.mp4"), shots)
        check_controls(vtk, clip)
    finally:
        shutil.rmtree(folder)


if __name__ == "__main__":
    main()

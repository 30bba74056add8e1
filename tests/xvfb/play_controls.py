#!/usr/bin/env python3
"""vtk play in a real X window, driven as a person would: the test clicks the play button and drags
the play head with synthetic input (xdotool), captures the window as the X server shows it (xwd),
and checks that the controls are drawn, that the picture advanced after play, and that it followed
the drag; and that a desktop scaled 2x gets the 2x images. Run under xvfb-run:
play_controls.py VTK CLIP

CLIP is the corpus's quadrant clip (25 fps, frame number in a band across the picture's middle)."""
import os
import subprocess
import sys
import tempfile
import time

BAR_HEIGHT = 29          # the control bar under the picture, at scale 1
PLAY_BUTTON = (29 + 12, 2 + 12)  # centre of the play button, from the bar's top left
TRACK_LEFT = 84
TIME_WIDTH = 160
BUTTON = 25
PLACEHOLDER = 62         # the no-audio placeholder, above the bar's right end
FPS = 25


def out(*args):
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout


def find_window(name, timeout=10.0):
    deadline = time.time() + timeout
    while time.time() < deadline:
        found = subprocess.run(["xdotool", "search", "--name", name], capture_output=True, text=True).stdout.split()
        if found:
            return found[0]
        time.sleep(0.1)
    raise SystemExit(f"FAIL no window named {name!r} appeared")


def size_of(window):
    fields = dict(line.split("=", 1) for line in out("xdotool", "getwindowgeometry", "--shell", window).split())
    return int(fields["WIDTH"]), int(fields["HEIGHT"])


class Shot:
    """The window's pixels as the X server shows them."""

    def __init__(self, window):
        self.width, self.height = size_of(window)
        with tempfile.TemporaryDirectory() as folder:
            dump = os.path.join(folder, "window.xwd")
            subprocess.run(["xwd", "-id", window, "-silent", "-out", dump], check=True)
            self.rgb = subprocess.run(["ffmpeg", "-v", "error", "-i", dump, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"],
                                      check=True, capture_output=True).stdout
        if len(self.rgb) != self.width * self.height * 3:
            raise SystemExit(f"FAIL the capture is {len(self.rgb)} bytes for {self.width}x{self.height}")

    def pixel(self, x, y):
        at = (y * self.width + x) * 3
        return tuple(self.rgb[at:at + 3])

    def frame(self):
        """The frame number the picture's band shows (the picture fills the area above the bar)."""
        number = 0
        for bit in range(10):
            r, g, b = self.pixel((bit * 2 + 1) * self.width // 20, (self.height - BAR_HEIGHT) // 2)
            number = number * 2 + (1 if r + g + b > 384 else 0)
        return number

    def varied(self, left, top, width, height):
        """Whether the rectangle holds more than one colour: something is drawn there."""
        colours = {self.pixel(x, y) for y in range(top, top + height) for x in range(left, left + width)}
        return len(colours) > 1


def wait_for(window, condition, timeout=15.0, nudge=None):
    """Shots of the window until condition(shot) holds or the time is up; the last shot. nudge, if
    given, runs between shots (a hand's small movement, so that a request the player dropped while
    busy is made again)."""
    deadline = time.time() + timeout
    while True:
        shot = Shot(window)
        if condition(shot) or time.time() > deadline:
            return shot
        if nudge:
            nudge()
        time.sleep(0.2)


def check(condition, message):
    if not condition:
        raise SystemExit("FAIL " + message)
    print("ok", message)


def main():
    vtk, clip = sys.argv[1], sys.argv[2]
    log = tempfile.TemporaryFile(mode="w+")
    player = subprocess.Popen([vtk, "play", "--paused", clip], stderr=log)
    try:
        window = find_window(os.path.basename(clip))
        first = wait_for(window, lambda shot: shot.frame() == 0 and shot.varied(29, shot.height - BAR_HEIGHT + 2,
                                                                                 BUTTON, BUTTON))
        bar = first.height - BAR_HEIGHT
        check(first.frame() == 0, f"opened paused on the first frame (shows {first.frame()})")
        check(first.varied(29, bar + 2, BUTTON, BUTTON), "the play button is drawn in the bar")
        check(first.varied(TRACK_LEFT, bar + 2, BUTTON, BUTTON), "the play head is drawn at the track's start")
        placeholder = (first.width - PLACEHOLDER - 4, bar - PLACEHOLDER - 4, PLACEHOLDER, PLACEHOLDER)
        check(first.varied(*placeholder) and max(map(sum, (first.pixel(x, y) for x in range(placeholder[0], placeholder[0]
              + PLACEHOLDER) for y in range(placeholder[1], placeholder[1] + PLACEHOLDER)))) == 765,
              "the silent clip shows the white no-audio placeholder above the bar")

        # Hover and pressed looks are checked over a view in lua.controls; here the click itself counts.
        subprocess.run(["xdotool", "mousemove", "--window", window, str(PLAY_BUTTON[0]), str(bar + PLAY_BUTTON[1]),
                        "click", "1"], check=True)
        playing = wait_for(window, lambda shot: shot.frame() > 5)
        check(playing.frame() > 5, f"the picture advanced after play (frame {playing.frame()})")

        usable = first.width - TRACK_LEFT - TIME_WIDTH - BUTTON
        head_y = bar + 2 + BUTTON // 2
        subprocess.run(["xdotool", "mousemove", "--window", window, str(TRACK_LEFT + BUTTON // 2), str(head_y),
                        "mousedown", "1"], check=True)
        for step in range(1, 5):
            x = int(TRACK_LEFT + BUTTON // 2 + usable * step * 0.2)
            subprocess.run(["xdotool", "mousemove", "--window", window, str(x), str(head_y)], check=True)
            time.sleep(0.3)
        expected = round(0.8 * 2.0 * FPS)
        jiggle = iter(int(x + offset) for offset in [1, 0] * 20)
        dragged = wait_for(window, lambda shot: abs(shot.frame() - expected) <= 2, nudge=lambda: subprocess.run(
            ["xdotool", "mousemove", "--window", window, str(next(jiggle)), str(head_y)], check=True))
        check(abs(dragged.frame() - expected) <= 2, f"the picture followed the drag to 80 % (frame {dragged.frame()}, "
              f"expected about {expected})")
        check(dragged.varied(TRACK_LEFT + int(usable * 0.8), bar + 2, BUTTON, BUTTON), "the play head followed too")
        subprocess.run(["xdotool", "mouseup", "1", "key", "q"], check=True)
        check(player.wait(timeout=10) == 0, "q quits with status 0")
    except (SystemExit, subprocess.CalledProcessError):
        log.seek(0)
        sys.stderr.write("vtk play said:\n" + log.read())
        raise
    finally:
        if player.poll() is None:
            player.kill()
    check_dense_display(vtk, clip, (first.width, first.height))


def check_dense_display(vtk, clip, size):
    """On a desktop scaled 2x the window is twice the size and the controls use the 2x images."""
    player = subprocess.Popen([vtk, "play", "--paused", clip], stderr=subprocess.DEVNULL,
                              env=dict(os.environ, GDK_SCALE="2"))
    try:
        window = find_window(os.path.basename(clip))
        doubled = (size[0] * 2, size[1] * 2)
        play_button = lambda shot: shot.varied(2 * 29, shot.height - 2 * BAR_HEIGHT + 4, 2 * BUTTON, 2 * BUTTON)
        shot = wait_for(window, lambda shot: (shot.width, shot.height) == doubled and play_button(shot))
        check((shot.width, shot.height) == doubled, f"a 2x window ({shot.width}x{shot.height})")
        check(play_button(shot), "the play button at twice the size")
        subprocess.run(["xdotool", "mousemove", "--window", window, "10", "10", "key", "q"], check=True)
        check(player.wait(timeout=10) == 0, "q quits")
    finally:
        if player.poll() is None:
            player.kill()


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Draws the player's skin into a bundle: draw_skin.py OUTDIR writes OUTDIR/resources/PNG/.

Every image is drawn in the coordinates of its base size and scaled, so ~1.5X and ~2X are the same
drawing at a finer resolution. The states of a button share the normal state's coverage: pointer
over, pressed and disabled are its colours scaled. The same input gives the same bytes on every run.
"""

import math
import os
import shutil
import struct
import sys
import zlib

try:
    import cairo
except ImportError:
    sys.exit(f"draw_skin.py: {sys.executable} cannot import cairo (Debian package python3-cairo)")

# Art levels stay at or below 0.765 (195 of 255), so the brightest state (x 1.29) never clips.
GLYPH = (0.74, 0.74, 0.74)
HEAD_BODY = (0.72, 0.72, 0.72)
HEAD_SOCKET = (0.28, 0.28, 0.28)
HEAD_LAMP = (0.76, 0.58, 0.16)
RAIL = (0.45, 0.45, 0.45)
TRIM = (0.76, 0.58, 0.14)
TRIM_GRIP = (0.30, 0.22, 0.05)
TAG = (0.30, 0.34, 0.40)
TAG_EDGE = (0.20, 0.23, 0.27)
PLAYER_BG = (0.08, 0.08, 0.09)
SCROLL_TRACK = (0.50, 0.50, 0.52)
WHITE = (1.0, 1.0, 1.0)

# Each state's colours as a percentage of the normal state's.
SHADES = {"N": 100, "O": 129, "P": 43, "D": 10}

TAU = 2 * math.pi


def rounded_rect(ctx, x, y, w, h, r):
    ctx.new_sub_path()
    ctx.arc(x + w - r, y + r, r, -TAU / 4, 0)
    ctx.arc(x + w - r, y + h - r, r, 0, TAU / 4)
    ctx.arc(x + r, y + h - r, r, TAU / 4, TAU / 2)
    ctx.arc(x + r, y + r, r, TAU / 2, 3 * TAU / 4)
    ctx.close_path()


def polygon(ctx, *points):
    ctx.move_to(*points[0])
    for point in points[1:]:
        ctx.line_to(*point)
    ctx.close_path()


def fill_soft(ctx, width=1.2):
    """Fills the path with its corners rounded off, which keeps small glyphs from looking spiky."""
    ctx.set_line_join(cairo.LINE_JOIN_ROUND)
    ctx.set_line_width(width)
    ctx.fill_preserve()
    ctx.stroke()


def mirrored(draw):
    """The drawing flipped left to right, for the right-hand twin of a left-hand element."""
    def flipped(ctx, w, h):
        ctx.translate(w, 0)
        ctx.scale(-1, 1)
        draw(ctx, w, h)
    return flipped


# The transport glyphs share one box, 7 to 18 high on a 25 x 25 button, so that play, pause and
# the frame steps stand the same size on one baseline.
GLYPH_TOP, GLYPH_BOTTOM = 7, 18


def play(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    polygon(ctx, (8.5, GLYPH_TOP), (17.5, (GLYPH_TOP + GLYPH_BOTTOM) / 2), (8.5, GLYPH_BOTTOM))
    fill_soft(ctx)


def pause(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    for x in (8.5, 14.5):
        rounded_rect(ctx, x, GLYPH_TOP, 2.5, GLYPH_BOTTOM - GLYPH_TOP, 0.75)
    fill_soft(ctx)


def next_frame(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    polygon(ctx, (7.5, GLYPH_TOP), (15, (GLYPH_TOP + GLYPH_BOTTOM) / 2), (7.5, GLYPH_BOTTOM))
    rounded_rect(ctx, 15.5, GLYPH_TOP, 2, GLYPH_BOTTOM - GLYPH_TOP, 0.5)
    fill_soft(ctx)


def cross(ctx, low, high, width):
    """An x from corner (low, low) to corner (high, high), in round-capped strokes."""
    ctx.set_line_width(width)
    ctx.set_line_cap(cairo.LINE_CAP_ROUND)
    ctx.move_to(low, low)
    ctx.line_to(high, high)
    ctx.move_to(high, low)
    ctx.line_to(low, high)
    ctx.stroke()


def close(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    cross(ctx, 8, 17, 2.2)


def edit(ctx, w, h):
    # A pencil along the rising diagonal: point at the lower left, eraser at the upper right.
    ctx.set_source_rgb(*GLYPH)
    ctx.translate(12.5, 12.5)
    ctx.rotate(-TAU / 8)
    polygon(ctx, (-9, 0), (-5, -2.4), (5.5, -2.4), (5.5, 2.4), (-5, 2.4))
    fill_soft(ctx, 0.8)
    rounded_rect(ctx, 6.8, -2.4, 2.6, 4.8, 1)
    ctx.fill()


def frame_dd(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    ctx.set_line_width(2)
    rounded_rect(ctx, 4, 8, 9, 9, 1)
    ctx.stroke()
    polygon(ctx, (16, 11), (22, 11), (19, 14.5))
    fill_soft(ctx, 0.8)


def tag_outline(ctx):
    polygon(ctx, (5.5, 12.5), (10.5, 7.5), (19.5, 7.5), (19.5, 17.5), (10.5, 17.5))


def tag_on(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    tag_outline(ctx)
    fill_soft(ctx, 1.5)
    ctx.set_operator(cairo.OPERATOR_CLEAR)
    ctx.arc(11, 12.5, 1.6, 0, TAU)
    ctx.fill()


def tag_off(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    ctx.set_line_join(cairo.LINE_JOIN_ROUND)
    ctx.set_line_width(1.6)
    tag_outline(ctx)
    ctx.stroke()
    ctx.arc(11, 12.5, 1.3, 0, TAU)
    ctx.fill()


def tag_delete(ctx, w, h):
    ctx.set_source_rgb(*GLYPH)
    ctx.arc(w / 2, h / 2, 5.25, 0, TAU)
    ctx.fill()
    ctx.set_operator(cairo.OPERATOR_CLEAR)
    cross(ctx, 3.6, 7.4, 1.4)


def tag_bar(left, right):
    """One part of the tag's bar, a rounded bar spanning left..right, cut to the image. Parts meet
    where the bar runs on past the image, so the middle covers its whole image."""
    def draw(ctx, w, h):
        rounded_rect(ctx, left, 0, w + right - left, h, 5)
        ctx.set_source_rgb(*TAG)
        ctx.fill_preserve()
        ctx.clip()
        ctx.set_source_rgb(*TAG_EDGE)
        ctx.rectangle(left, h - 1, w + right - left, 1)
        ctx.fill()
    return draw


def play_head(ctx, w, h):
    # A pin pointing down at the time; the socket is where the play head light sits.
    ctx.set_source_rgb(*HEAD_BODY)
    ctx.arc(10.5, 6.5, 3, TAU / 2, 3 * TAU / 4)
    ctx.arc(14.5, 6.5, 3, -TAU / 4, 0)
    ctx.line_to(17.5, 14)
    ctx.line_to(12.5, 21)
    ctx.line_to(7.5, 14)
    ctx.close_path()
    fill_soft(ctx, 1)
    ctx.set_source_rgb(*HEAD_SOCKET)
    ctx.arc(12.5, 9.5, 2.5, 0, TAU)
    ctx.fill()


def play_head_light(ctx, w, h):
    ctx.set_source_rgb(*HEAD_BODY)
    ctx.paint()
    glow = cairo.RadialGradient(w / 2, h / 2, 0, w / 2, h / 2, w / 2)
    glow.add_color_stop_rgba(0, *HEAD_LAMP, 1)
    glow.add_color_stop_rgba(0.6, *HEAD_LAMP, 1)
    glow.add_color_stop_rgba(1, *HEAD_LAMP, 0)
    ctx.set_source(glow)
    ctx.paint()


def play_head_track(ctx, w, h):
    ctx.set_source_rgb(*RAIL)
    ctx.rectangle(0, 11, w, 3)
    ctx.fill()


def trim_window(ctx, w, h):
    # The left handle, "[": a bar with a grip and arms that reach across to the window's frame.
    ctx.set_source_rgb(*TRIM)
    rounded_rect(ctx, 1, 0.5, 9, h - 1, 3)
    ctx.fill()
    ctx.rectangle(7, 0.5, w - 7, 2.5)
    ctx.rectangle(7, h - 3, w - 7, 2.5)
    ctx.fill()
    ctx.set_source_rgb(*TRIM_GRIP)
    ctx.set_line_width(1)
    for x in (4.5, 6.5):
        ctx.move_to(x, h / 2 - 4)
        ctx.line_to(x, h / 2 + 4)
    ctx.stroke()


def thirds_bar(colour, alpha):
    """A bar cut in three equal columns: its rounded ends fill the outer thirds exactly, so the
    middle third is the same in every column and stretches."""
    def draw(ctx, w, h):
        ctx.set_source_rgba(*colour, alpha)
        rounded_rect(ctx, 0, 0, w, h, w / 3)
        ctx.fill()
    return draw


def player_bg(ctx, w, h):
    thirds_bar(PLAYER_BG, 0.75)(ctx, w, h)
    ctx.set_source_rgba(*WHITE, 0.08)
    ctx.set_line_width(1)
    rounded_rect(ctx, 0.5, 0.5, w - 1, h - 1, w / 3 - 0.5)
    ctx.stroke()


scroll_track = thirds_bar(SCROLL_TRACK, 0.35)


def speaker_slash(ctx):
    """A white speaker with sound waves, struck through, in a 62 x 62 box."""
    ctx.set_source_rgb(*WHITE)
    ctx.rectangle(15, 24, 8, 14)
    polygon(ctx, (23, 24), (33, 15), (33, 47), (23, 38))
    ctx.fill()
    ctx.set_line_width(3)
    ctx.set_line_cap(cairo.LINE_CAP_ROUND)
    for radius in (7, 13):
        ctx.new_sub_path()
        ctx.arc(33, 31, radius, -TAU / 7, TAU / 7)
    ctx.stroke()
    # A gap either side of the stroke keeps it readable over the speaker.
    ctx.move_to(12, 12)
    ctx.line_to(50, 50)
    ctx.set_operator(cairo.OPERATOR_CLEAR)
    ctx.set_line_width(8)
    ctx.stroke_preserve()
    ctx.set_operator(cairo.OPERATOR_OVER)
    ctx.set_line_width(3.5)
    ctx.stroke()


def no_audio(ctx, w, h):
    speaker_slash(ctx)


def no_audio_wide(ctx, w, h):
    # The glyph's strokes span 40 of its 62 units; they fill the banner's height, less a margin.
    ctx.save()
    ctx.translate(h / 2, h / 2)
    ctx.scale((h - 4) / 40, (h - 4) / 40)
    ctx.translate(-31, -31)
    speaker_slash(ctx)
    ctx.restore()
    ctx.set_source_rgb(*WHITE)
    ctx.set_line_width(2)
    ctx.set_line_cap(cairo.LINE_CAP_ROUND)
    ctx.move_to(h + 8, h / 2)
    ctx.line_to(w - 4, h / 2)
    ctx.stroke()


# The catalogue: element, states (none: one image), scales, base size, drawing, scales drawn
# without alpha. TAG_BG's parts L, C, R stand where other elements have states.
CATALOGUE = [
    ("CLOSE", "DNOP", (1, 2), (25, 25), close, ()),
    ("EDIT", "DNOP", (1, 2), (25, 25), edit, ()),
    ("FRAME_DD", "DNOP", (1, 2), (25, 25), frame_dd, ()),
    ("NEXT_FRAME", "DNOP", (1, 2), (25, 25), next_frame, ()),
    ("PREV_FRAME", "DNOP", (1, 2), (25, 25), mirrored(next_frame), ()),
    ("PLAY", "DNOP", (1, 2), (25, 25), play, ()),
    ("PAUSE", "DNOP", (1, 2), (25, 25), pause, ()),
    ("TAG_ON", "DNOP", (1, 2), (25, 25), tag_on, ()),
    ("TAG_OFF", "DNOP", (1, 2), (25, 25), tag_off, ()),
    ("TAG_DELETE", "NP", (1, 2), (11, 11), tag_delete, ()),
    ("TAG_BG_L", "", (1, 2), (6, 15), tag_bar(0, 6), ()),
    ("TAG_BG_C", "", (1, 2), (32, 15), tag_bar(-6, 6), (1,)),
    ("TAG_BG_R", "", (1, 2), (6, 15), tag_bar(-6, 0), ()),
    ("PLAY_HEAD", "D", (1, 2), (25, 25), play_head, ()),
    ("PLAY_HEAD", "NOP", (1, 1.5, 2), (25, 25), play_head, ()),
    ("PLAY_HEAD_LIGHT", "DNOP", (1, 2), (5, 5), play_head_light, (1, 2)),
    ("PLAY_HEAD_TRACK", "N", (1, 2), (25, 25), play_head_track, ()),
    ("TRIM_WINDOW_L", "DNOP", (1, 1.5, 2), (15, 33), trim_window, ()),
    ("TRIM_WINDOW_R", "DNOP", (1, 1.5, 2), (15, 33), mirrored(trim_window), ()),
    ("PLAYER_BG_THIRDS", "", (1, 1.5, 2), (15, 29), player_bg, ()),
    ("PLAYER_BG_EXPAND_THIRDS", "", (1, 1.5, 2), (15, 81), player_bg, ()),
    ("SCROLL_TRACK_THIRDS", "", (1, 2), (9, 6), scroll_track, ()),
    ("SCROLL_TRACK_EXPAND_THIRDS", "", (1, 1.5, 2), (9, 36), scroll_track, ()),
    ("NO_AUDIO_PLACEHOLDER", "", (1,), (62, 62), no_audio, ()),
    ("NO_AUDIO_WIDE_PLACEHOLDER", "", (1,), (460, 30), no_audio_wide, ()),
]


def render(draw, base, size, opaque):
    surface = cairo.ImageSurface(cairo.FORMAT_RGB24 if opaque else cairo.FORMAT_ARGB32, *size)
    ctx = cairo.Context(surface)
    ctx.scale(size[0] / base[0], size[1] / base[1])
    draw(ctx, *base)
    surface.flush()
    return surface


def shaded(surface, percent):
    """A copy with every colour at percent of the original and the same alpha. Cairo keeps colours
    premultiplied, so a colour above its pixel's alpha would be a clipped, wrong colour."""
    data = bytearray(surface.get_data())
    alpha_at = 3 if sys.byteorder == "little" else 0
    opaque = surface.get_format() == cairo.FORMAT_RGB24
    alpha = b"\xff" * (len(data) // 4) if opaque else data[alpha_at::4]
    for channel in (c for c in range(4) if c != alpha_at):
        values = [(v * percent + 50) // 100 for v in data[channel::4]]
        # Rounding can lift a faint pixel's colour one step above its alpha; more than that is clipping.
        if any(v > a + 1 for v, a in zip(values, alpha)):
            raise ValueError(f"colours at {percent} % clip; draw the normal state darker")
        data[channel::4] = bytes(min(v, a) for v, a in zip(values, alpha))
    return cairo.ImageSurface.create_for_data(data, surface.get_format(), surface.get_width(),
                                              surface.get_height(), surface.get_stride())


def png(surface):
    """The surface as PNG bytes: RGB for an RGB24 surface, RGBA for any other. Cairo's own writer
    drops the alpha of a surface that happens to be opaque, and each image's form is fixed."""
    width, height, stride = surface.get_width(), surface.get_height(), surface.get_stride()
    opaque = surface.get_format() == cairo.FORMAT_RGB24
    words = memoryview(surface.get_data()).cast("I")
    rows = bytearray()
    for y in range(height):
        rows.append(0)
        for word in words[y * stride // 4:y * stride // 4 + width]:
            a = word >> 24
            rgb = ((word >> 16) & 255, (word >> 8) & 255, word & 255)
            if opaque:
                rows += bytes(rgb)
            else:
                rows += bytes(0 if a == 0 else (c * 255 + a // 2) // a for c in rgb) + bytes((a,))

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    header = struct.pack(">IIBBBBB", width, height, 8, 2 if opaque else 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 9))
            + chunk(b"IEND", b""))


def images():
    """(stored name, surface) for every image in the catalogue."""
    for element, states, scales, base, draw, opaque_at in CATALOGUE:
        for scale in scales:
            size = tuple(math.ceil(n * scale) for n in base)
            suffix = "" if scale == 1 else f"~{scale:g}X"
            try:
                normal = render(draw, base, size, scale in opaque_at)
                for state in states or [""]:
                    name = f"VID_{element}{'_' + state if state else ''}{suffix}.PNG"
                    yield name, shaded(normal, SHADES[state]) if state else normal
            except (cairo.Error, ValueError) as error:
                raise ValueError(f"VID_{element}{suffix}: {error}") from error


def main(argv):
    if len(argv) != 2:
        sys.exit("usage: draw_skin.py OUTDIR")
    folder = os.path.join(argv[1], "resources", "PNG")
    # Drawn aside and swapped in whole, so a failure never leaves a half-drawn skin in the bundle.
    partial = folder + ".partial"
    try:
        shutil.rmtree(partial, ignore_errors=True)
        os.makedirs(partial)
        for name, surface in images():
            with open(os.path.join(partial, name), "wb") as file:
                file.write(png(surface))
        shutil.rmtree(folder, ignore_errors=True)
        os.replace(partial, folder)
    except Exception as error:
        sys.exit(f"draw_skin.py: cannot draw the skin into {folder}: {error}")


if __name__ == "__main__":
    main(sys.argv)

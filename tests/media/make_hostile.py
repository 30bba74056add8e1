#!/usr/bin/env python3
"""make_hostile.py CORPUS OUTDIR: makes the hostile-file corpus in OUTDIR from files of the test
media corpus (h264.mp4, mjpeg.avi) and small ffmpeg encodes. Each file breaks one thing a reader
trusts: sizes and counts in headers, durations, rates, and the box structure of MP4 itself. Files
are written under a temporary name and renamed, so a half-written file never has its final name."""
import os
import struct
import subprocess
import sys
import tempfile
import zlib

CONTAINERS = {b"moov", b"trak", b"mdia", b"minf", b"stbl", b"edts", b"udta"}


def boxes(data, start=0, end=None, path=()):
    """Yields (path, offset, size) for every box of an MP4, depth first."""
    end = len(data) if end is None else end
    offset = start
    while offset + 8 <= end:
        size, kind = struct.unpack_from(">I4s", data, offset)
        if size < 8:
            return
        here = path + (kind,)
        yield here, offset, size
        if kind in CONTAINERS:
            yield from boxes(data, offset + 8, offset + size, here)
        offset += size


def find(data, *path):
    """Offsets of the boxes at path (names as text, outermost first)."""
    wanted = tuple(name.encode() for name in path)
    return [offset for here, offset, _ in boxes(data) if here == wanted]


def put32(data, offset, value):
    struct.pack_into(">I", data, offset, value)


def read(corpus, name="h264.mp4"):
    with open(os.path.join(corpus, name), "rb") as f:
        return bytearray(f.read())


# Full-box field offsets from the start of the box (header 8, version and flags 4).
MVHD_TIMESCALE, MVHD_DURATION = 20, 24
TKHD_DURATION, TKHD_WIDTH = 28, 84  # the height follows the width
MDHD_TIMESCALE, MDHD_DURATION = 20, 24
STSD_COUNT, STSD_FIRST_ENTRY = 12, 16
SAMPLE_ENTRY_WIDTH = 32  # the height follows the width
STTS_COUNT, STTS_ENTRIES = 12, 16
STSZ_COUNT = 16
VIDEO_TRACK = ("moov", "trak", "mdia")
SAMPLE_TABLE = VIDEO_TRACK + ("minf", "stbl")
MVHD, TKHD, MDHD = ("moov", "mvhd"), ("moov", "trak", "tkhd"), VIDEO_TRACK + ("mdhd",)
STSD, STSZ = SAMPLE_TABLE + ("stsd",), SAMPLE_TABLE + ("stsz",)


def huge_dims_mp4(corpus):
    data = read(corpus)
    struct.pack_into(">II", data, find(data, *TKHD)[0] + TKHD_WIDTH, 65535 << 16, 65535 << 16)
    struct.pack_into(">HH", data, find(data, *STSD)[0] + STSD_FIRST_ENTRY + SAMPLE_ENTRY_WIDTH, 65535, 65535)
    return data


def fields(*settings):
    """A copy of h264.mp4 with 32-bit fields set, each given as (box path, offset in the box, value)."""
    def make(corpus):
        data = read(corpus)
        for path, offset, value in settings:
            put32(data, find(data, *path)[0] + offset, value)
        return data
    return make


def durations(value):
    return fields((MVHD, MVHD_DURATION, value), (TKHD, TKHD_DURATION, value), (MDHD, MDHD_DURATION, value))


def sample_deltas(delta):
    def make(corpus):
        data = read(corpus)
        stts = find(data, *SAMPLE_TABLE, "stts")[0]
        for k in range(struct.unpack_from(">I", data, stts + STTS_COUNT)[0]):
            put32(data, stts + STTS_ENTRIES + 8 * k + 4, delta)
        return data
    return make


def before_moov(inserted):
    def make(corpus):
        data = read(corpus)
        moov = find(data, "moov")[0]
        return data[:moov] + inserted + data[moov:]
    return make


def keys_count(corpus):
    """The phone clip with its QuickTime metadata keys box claiming 268,435,454 keys."""
    data = read(corpus, "phone.mov")
    put32(data, data.index(b"keys") + 8, 0x0FFFFFFE)
    return data


def nested_boxes(corpus):
    """A chain of user-data boxes nested 100,000 deep inside moov."""
    data = read(corpus)
    depth = 100000
    chain = b"".join(struct.pack(">I4s", 8 * (depth - k), b"udta") for k in range(depth))
    moov = find(data, "moov")[0]
    put32(data, moov, struct.unpack_from(">I", data, moov)[0] + len(chain))
    end = moov + struct.unpack_from(">I", data, moov)[0] - len(chain)
    return data[:end] + chain + data[end:]


def avi_streams(count):
    def make(corpus):
        data = read(corpus, "mjpeg.avi")
        struct.pack_into("<I", data, data.index(b"avih") + 8 + 24, count)
        return data
    return make


def mjpeg_dims(size):
    """Every JPEG frame's start-of-frame marker, and the AVI headers, claim size x size."""
    def make(corpus):
        data = read(corpus, "mjpeg.avi")
        at = data.find(b"\xff\xc0")
        while at >= 0:
            struct.pack_into(">HH", data, at + 5, size, size)
            at = data.find(b"\xff\xc0", at + 2)
        struct.pack_into("<II", data, data.index(b"avih") + 8 + 32, size, size)
        return data
    return make


def y4m(width, height, rate):
    def make(_):
        header = "YUV4MPEG2 W%d H%d F%s Ip A1:1 C420jpeg\n" % (width, height, rate)
        return header.encode() + b"FRAME\n" + bytes(width * height * 3 // 2 if width * height < 4096 else 100)
    return make


def ffmpeg(suffix, *arguments):
    """The bytes of a file that the ffmpeg tool writes with these arguments."""
    with tempfile.TemporaryDirectory() as work:
        output = os.path.join(work, "out" + suffix)
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *arguments, output], check=True)
        with open(output, "rb") as f:
            return bytearray(f.read())


def png_ihdr(width, height):
    """A PNG-coded MOV whose pictures' headers (checksums mended) claim another size."""
    def make(corpus):
        data = ffmpeg(".mov", "-f", "lavfi", "-i", "color=c=red:s=16x16:r=25:d=0.2", "-c:v", "png")
        at = data.find(b"IHDR")
        while at >= 0:
            struct.pack_into(">II", data, at + 4, width, height)
            struct.pack_into(">I", data, at + 17, zlib.crc32(bytes(data[at:at + 17])))
            at = data.find(b"IHDR", at + 4)
        return data
    return make


def negative_duration_mkv(corpus):
    """A Matroska file whose segment duration is -5 seconds."""
    data = ffmpeg(".mkv", "-i", os.path.join(corpus, "h264.mp4"), "-c", "copy")
    at = data.index(b"\x44\x89")
    size = data[at + 2] & 0x7F
    struct.pack_into(">d" if size == 8 else ">f", data, at + 3, -5000.0)
    return data


HOSTILE = {
    "huge_dims.mp4": huge_dims_mp4,
    "huge_dims_mjpeg.avi": mjpeg_dims(65535),
    # Within the largest side, but 256 million pixels: a GB a picture once converted.
    "many_pixels_mjpeg.avi": mjpeg_dims(16000),
    "huge_dims_png.mov": png_ihdr(65535, 65535),
    "huge_dims.y4m": y4m(65535, 65535, "25:1"),
    "zero_duration.mp4": durations(0),
    "huge_duration.mp4": durations(0xFFFFFFFF),
    "negative_duration.mkv": negative_duration_mkv,
    "zero_timescale.mp4": fields((MVHD, MVHD_TIMESCALE, 0), (MDHD, MDHD_TIMESCALE, 0)),
    "zero_rate.mp4": sample_deltas(0),
    "absurd_rate.mp4": fields((MDHD, MDHD_TIMESCALE, 0x7FFFFFFF)),
    "absurd_rate.y4m": y4m(16, 16, "2147483647:1"),
    "zero_rate.y4m": y4m(16, 16, "0:0"),
    "no_sample_entries.mp4": fields((STSD, STSD_COUNT, 0)),
    "many_sample_entries.mp4": fields((STSD, STSD_COUNT, 0x7FFFFFFF)),
    "huge_sample_count.mp4": fields((STSZ, STSZ_COUNT, 0x7FFFFFFF)),
    "no_streams.avi": avi_streams(0),
    "many_streams.avi": avi_streams(1000),
    "box_smaller_than_header.mp4": fields((TKHD, 0, 4)),
    "box_larger_than_parent.mp4": fields((("moov", "trak"), 0, 0xFFFFFFFF)),
    "box_to_end_of_file.mp4": before_moov(struct.pack(">I4s", 0, b"free")),
    "box_huge_64bit.mp4": before_moov(struct.pack(">I4sQ", 1, b"free", (1 << 63) - 1)),
    "many_boxes.mp4": before_moov(struct.pack(">I4s", 8, b"free") * 500000),
    "nested_boxes.mp4": nested_boxes,
    "huge_keys_count.mov": keys_count,
}


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: make_hostile.py CORPUS OUTDIR")
    corpus, out = sys.argv[1:]
    os.makedirs(out, exist_ok=True)
    for name, make in HOSTILE.items():
        target = os.path.join(out, name)
        if os.path.exists(target):
            continue
        work = target + ".part-%d" % os.getpid()
        with open(work, "wb") as f:
            f.write(make(corpus))
        os.replace(work, target)


if __name__ == "__main__":
    main()

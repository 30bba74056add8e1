#!/bin/sh
# Remakes the tiny media seeds of the fuzz targets that read media files, with the ffmpeg
# command-line tool: make_media_seeds.sh [TARGET...] (inspect_file and playback by default).
#   inspect_file (fuzz/corpus/inspect_file): 32x32 pictures, two or three frames, the tags the
#     inspection reads.
#   playback (fuzz/corpus/playback): clips of a few KB and a few tenths of a second, each behind the
#     four bytes that choose where the target seeks (fuzz/playback.cpp).
set -eu

corpus="$(cd "$(dirname "$0")" && pwd)/corpus"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

ff() { ffmpeg -v error -nostdin -y "$@"; }
sound="sine=frequency=440:sample_rate=8000:duration=0.2"
location="+48.8577+002.2950+035.200/"

inspect_file_seeds() {
    out="$corpus/inspect_file"
    picture="testsrc=size=32x32:rate=10"
    mkdir -p "$out"

    # H.264 MP4 with the recording date and a 3GPP location.
    ff -f lavfi -i "$picture" -frames:v 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p \
        -metadata creation_time=2021-06-15T14:30:00Z -metadata location="$location" "$out/h264_tags.mp4"

    # MOV with make and model (MOV mode keeps them), turned by a display matrix: the rotate tag is
    # only written by a stream copy.
    ff -f lavfi -i "$picture" -frames:v 2 -c:v libx264 -preset ultrafast -pix_fmt yuv420p "$work/plain.mov"
    ff -i "$work/plain.mov" -c copy -metadata:s:v:0 rotate=90 -metadata make=TestMake \
        -metadata model=TestModel -metadata location="$location" "$out/rotated_tags.mov"

    # Phone-style keys, wide pixels and sound.
    ff -f lavfi -i "$picture" -f lavfi -i "$sound" -frames:v 2 -c:v libx264 -preset ultrafast -pix_fmt yuv420p \
        -aspect 16:9 -c:a aac -b:a 16k -shortest -movflags use_metadata_tags \
        -metadata com.apple.quicktime.creationdate=2021-06-15T16:30:00+0200 \
        -metadata com.apple.quicktime.location.ISO6709="$location" \
        -metadata com.apple.quicktime.make=TestMake -metadata com.apple.quicktime.model="TestCam X1" \
        "$out/phone_keys.mp4"

    # WebM (VP8) with a Matroska date.
    ff -f lavfi -i "$picture" -frames:v 2 -c:v libvpx -b:v 50k -metadata creation_time=2021-06-15T14:30:00Z \
        "$out/vp8.webm"

    # Motion JPEG in AVI.
    ff -f lavfi -i "$picture" -frames:v 2 -c:v mjpeg -q:v 20 "$out/mjpeg.avi"

    # Sound only.
    ff -f lavfi -i "$sound" -c:a aac -b:a 16k "$out/audio_only.m4a"

    # An MP4 cut off in the middle of its data.
    head -c 1500 "$out/h264_tags.mp4" > "$out/truncated.mp4"

    ls -l "$out"
}

playback_seeds() {
    out="$corpus/playback"
    mkdir -p "$out"
    # Flat colours and a moving box compress to little; sizes that are not multiples of 16.
    clip() { echo "color=c=0x3050a0:size=$1:rate=$2:duration=$3,drawbox=x=t*100:y=ih/3:w=iw/4:h=ih/3:c=yellow:t=fill"; }
    tone="sine=frequency=440:sample_rate=8000:duration=0.4"
    # seed NAME CONTROL: the clip made as $work/NAME behind its four control bytes (octal escapes).
    seed() { { printf "$2"; cat "$work/$1"; } > "$out/$1"; }

    # H.264 and AAC in MP4, 202x120, a key frame every 4 frames.
    ff -f lavfi -i "$(clip 202x120 25 0.4)" -f lavfi -i "$tone" -c:v libx264 -preset ultrafast -crf 40 \
        -g 4 -pix_fmt yuv420p -c:a aac -b:a 12k -shortest "$work/h264_aac.mp4"
    seed h264_aac.mp4 '\300\140\040\003'

    # The same in MPEG-TS, whose times start at 1.4 s.
    ff -f lavfi -i "$(clip 202x120 25 0.4)" -f lavfi -i "$tone" -c:v libx264 -preset ultrafast -crf 40 \
        -g 4 -pix_fmt yuv420p -c:a aac -b:a 12k -shortest "$work/h264_aac.ts"
    seed h264_aac.ts '\200\200\300\002'

    # Portrait H.264 with B-frames in MOV, turned a quarter by its display matrix, no sound.
    ff -f lavfi -i "$(clip 90x150 30 0.3)" -c:v libx264 -preset veryfast -crf 40 -bf 2 -g 6 -pix_fmt yuv420p \
        "$work/plain.mov"
    ff -i "$work/plain.mov" -c copy -metadata:s:v:0 rotate=90 "$work/rotated.mov"
    seed rotated.mov '\350\020\177\001'

    # VP9 and Opus in WebM, 50 frames a second.
    ff -f lavfi -i "$(clip 130x74 50 0.3)" -f lavfi -i "$tone" -c:v libvpx-vp9 -deadline realtime -crf 50 -b:v 0 \
        -g 5 -c:a libopus -b:a 8k -shortest "$work/vp9_opus.webm"
    seed vp9_opus.webm '\377\000\100\003'

    # MPEG-4 part 2 and MP3 in AVI, wide pixels.
    ff -f lavfi -i "$(clip 120x68 25 0.4)" -f lavfi -i "$tone" -c:v mpeg4 -q:v 31 -g 5 -aspect 16:9 \
        -c:a libmp3lame -b:a 8k -shortest "$work/mpeg4_mp3.avi"
    seed mpeg4_mp3.avi '\100\300\340\000'

    # Open-GOP HEVC in 10 bits, in Matroska: the leading pictures of each GOP refer to the one before.
    ff -f lavfi -i "$(clip 144x82 25 0.4)" -c:v libx265 -preset ultrafast -crf 40 -pix_fmt yuv420p10le \
        -x265-params "log-level=error:keyint=4:open-gop=1:bframes=3:b-adapt=0:scenecut=0" "$work/hevc_open_gop.mkv"
    seed hevc_open_gop.mkv '\240\177\260\003'

    # Open-GOP MPEG-2 and MP2 in an MPEG program stream.
    ff -f lavfi -i "$(clip 150x90 25 0.4)" -f lavfi -i "$tone" -c:v mpeg2video -q:v 20 -g 5 -bf 2 \
        -c:a mp2 -b:a 32k -shortest -f mpeg "$work/mpeg2_open_gop.mpg"
    seed mpeg2_open_gop.mpg '\330\040\020\002'

    # Sound alone.
    ff -f lavfi -i "$tone" -c:a aac -b:a 12k "$work/audio_only.m4a"
    seed audio_only.m4a '\200\100\200\000'

    ls -l "$out"
}

for target in ${*:-inspect_file playback}; do
    case "$target" in
        inspect_file) inspect_file_seeds ;;
        playback) playback_seeds ;;
        *) echo "make_media_seeds.sh: no seeds for $target" >&2; exit 2 ;;
    esac
done

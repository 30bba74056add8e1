#!/bin/sh
# Remakes the tiny media seeds of the inspect_file fuzz target (fuzz/corpus/inspect_file) with the
# ffmpeg command-line tool: 32x32 pictures, two or three frames, the tags the inspection reads.
set -eu

out="$(cd "$(dirname "$0")" && pwd)/corpus/inspect_file"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

ff() { ffmpeg -v error -nostdin -y "$@"; }
picture="testsrc=size=32x32:rate=10"
sound="sine=frequency=440:sample_rate=8000:duration=0.2"
location="+48.8577+002.2950+035.200/"

# H.264 MP4 with the recording date and a 3GPP location.
ff -f lavfi -i "$picture" -frames:v 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p \
    -metadata creation_time=2021-06-15T14:30:00Z -metadata location="$location" "$out/h264_tags.mp4"

# MOV with make and model (MOV mode keeps them), turned by a display matrix: the rotate tag is only
# written by a stream copy.
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

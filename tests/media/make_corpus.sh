#!/bin/sh
# make_corpus.sh OUTDIR: makes the test media corpus in OUTDIR with the ffmpeg command-line tool.
# Files that already exist are kept, so the corpus is made once per build tree. Each file is written
# in a private work folder and renamed into place, so an interrupted or concurrent run never leaves
# a half-written file under its final name. Prints nothing unless something fails.
set -eu

. "$(dirname "$0")/corpus_lib.sh"

# The quadrant picture: red top-left, green top-right, blue bottom-left, white bottom-right, and a
# black band over the middle fifth showing the frame number as ten white(1)/black(0) blocks, most
# significant on the left. Tests read which way up a picture is and which frame it is from it.
# quad WIDTHxHEIGHT RATE SECONDS
quad() {
    g="color=c=red:s=$1:r=$2:d=$3"
    g="$g,drawbox=x=iw/2:y=0:w=iw/2:h=ih/2:c=lime:t=fill"
    g="$g,drawbox=x=0:y=ih/2:w=iw/2:h=ih/2:c=blue:t=fill"
    g="$g,drawbox=x=iw/2:y=ih/2:w=iw/2:h=ih/2:c=white:t=fill"
    g="$g,drawbox=x=0:y=ih*2/5:w=iw:h=ih/5:c=black:t=fill"
    for k in 0 1 2 3 4 5 6 7 8 9; do
        g="$g,drawbox=x=iw*$k/10:y=ih*2/5:w=iw/10:h=ih/5:c=white:t=fill:enable='mod(floor(n/$((1 << (9 - k)))),2)'"
    done
    printf '%s' "$g"
}

# quadclip NAME WIDTHxHEIGHT RATE SECONDS OPTIONS...: the quadrant picture encoded with OPTIONS.
quadclip() {
    name=$1
    g=$(quad "$2" "$3" "$4")
    shift 4
    made "$name" ff -f lavfi -i "$g" "$@"
}

H264="-c:v libx264 -pix_fmt yuv420p"

# Codecs and containers. The 1080p clip is the one whose coded height (1088) differs from its
# picture height (1080).
quadclip h264_1080p.mp4 1920x1080 25 1 $H264
quadclip h264.mp4 320x240 25 2 $H264
quadclip hevc.mp4 320x240 25 1 -c:v libx265 -pix_fmt yuv420p -tag:v hvc1 -x265-params log-level=error
quadclip vp9.webm 320x240 25 1 -c:v libvpx-vp9 -b:v 1M -deadline realtime -cpu-used 8
quadclip mpeg4.avi 320x240 25 1 -c:v mpeg4 -q:v 3
quadclip prores.mov 320x240 25 1 -c:v prores_ks -profile:v 2
quadclip mjpeg.avi 320x240 25 1 -c:v mjpeg -q:v 3

# Display-matrix rotation. rotN.mp4 is shown 320x240 and upright (red top-left) by ffmpeg's
# autorotate; its stored picture is turned the other way, and the matrix is added by a stream-copy
# remux because an encode ignores the rotate tag. N is the counterclockwise turn that shows it:
#   file        rotate=  ffprobe side_data rotation  exiftool Rotation  stored   pre-turn
#   rot0.mp4    0        (none: no matrix)           0                  320x240  -
#   rot90.mp4   90       90                          270                240x320  transpose=clock
#   rot180.mp4  180      -180                        180                320x240  hflip,vflip
#   rot270.mp4  -90      -90                         90                 240x320  transpose=cclock
# rot270 is the usual portrait phone clip: turn it 90 degrees clockwise to show it.
# rotated NAME ROTATE PRETURN-FILTER
rotated() {
    if need "$1"; then
        ff -f lavfi -i "$(quad 320x240 25 1)$3" $H264 "$work/stored-$1"
        ff -i "$work/stored-$1" -map_metadata -1 -c copy -metadata:s:v:0 rotate="$2" "$work/$1"
        rm -f "$work/stored-$1"
        place "$1"
    fi
}
rotated rot0.mp4 0 ""
rotated rot90.mp4 90 ",transpose=clock"
rotated rot180.mp4 180 ",hflip,vflip"
rotated rot270.mp4 -90 ",transpose=cclock"

# Sample aspect ratio: display 720x540, 853x480 and 960x576 (enlarging one side); sar_100_1 is
# shown 32000x240: wider than any picture may be, so the poster is scaled to fit.
quadclip sar_8_9.mp4 720x480 25 1 -vf setsar=8/9 $H264
quadclip sar_32_27.mp4 720x480 25 1 -vf setsar=32/27 $H264
quadclip sar_4_3.mp4 720x576 25 1 -vf setsar=4/3 $H264
quadclip sar_100_1.mp4 320x240 25 1 -vf setsar=100/1 $H264

# Frame rates: NTSC rates, and a variable-rate clip (30 frames at 30 fps, then 30 at 10 fps;
# avg_frame_rate 900/59). B-frames would blur the packet durations, hence -bf 0.
quadclip rate_23976.mp4 320x240 24000/1001 2 $H264
quadclip rate_2997.mp4 320x240 30000/1001 2 $H264
quadclip vfr.mp4 320x240 30 2 -vf "setpts='if(lt(N,30),N/30,1+(N-30)/10)/TB'" -fps_mode vfr $H264 -bf 0 \
    -video_track_timescale 90000

# Tags. The MP4 and MOV muxer modes write different atoms for the same keys: location becomes a
# 3GPP loci box in MP4 and a (c)xyz atom in MOV; make/model survive only in MOV mode.
LOCATION=+48.8577+002.2950+035.200/
quadclip tags_mp4.mp4 320x240 25 1 $H264 -metadata creation_time=2021-06-15T14:30:00Z -metadata location=$LOCATION
quadclip tags_mov.mov 320x240 25 1 $H264 -metadata make=TestMake -metadata model=TestModel -metadata location=$LOCATION
quadclip tags_webm.webm 320x240 25 1 -c:v libvpx-vp9 -b:v 1M -deadline realtime -cpu-used 8 \
    -metadata creation_time=2021-06-15T14:30:00Z
# A phone-style clip: stored 1920x1080 and shown 1080x1920 upright (rotate=-90, ffprobe -90), with
# AAC sound and the com.apple.quicktime keys a phone writes. -map_metadata -1 keeps the encode's
# own tags from turning into keys.
if need phone.mov; then
    ff -f lavfi -i "$(quad 1080x1920 30 1),transpose=cclock" \
        -f lavfi -i sine=f=800:d=1:sample_rate=48000 $H264 -c:a aac -shortest "$work/stored-phone.mp4"
    ff -i "$work/stored-phone.mp4" -map_metadata -1 -c copy -metadata:s:v:0 rotate=-90 \
        -movflags use_metadata_tags -metadata creation_time=2021-06-15T14:30:00Z \
        -metadata com.apple.quicktime.creationdate=2021-06-15T16:30:00+0200 \
        -metadata com.apple.quicktime.location.ISO6709=$LOCATION \
        -metadata com.apple.quicktime.make=TestMake -metadata "com.apple.quicktime.model=TestCam X1" \
        "$work/phone.mov"
    rm -f "$work/stored-phone.mp4"
    place phone.mov
fi

# Odd and broken inputs.
made audio_only.m4a ff -f lavfi -i sine=f=440:d=2:sample_rate=44100 -c:a aac -b:a 96k
made zero.mp4 touch
# Cut in half, a default MP4 (index at the end) loses its index and does not open; one with the
# index first still opens and reports the full duration, but decoding stops early. A keyframe every
# 5 frames keeps whole pictures in the first half, so the first frames still decode.
# half NAME [EXTRA-OPTIONS...]
half() {
    name=$1
    shift
    if need "$name"; then
        ff -f lavfi -i "$(quad 320x240 25 2)" $H264 -g 5 "$@" "$work/whole-$name"
        head -c $(($(wc -c < "$work/whole-$name") / 2)) "$work/whole-$name" > "$work/$name"
        rm -f "$work/whole-$name"
        place "$name"
    fi
}
half truncated.mp4
half truncated_faststart.mp4 -movflags +faststart
# Random bytes: seed 1 is rejected by probing; seed 20240603 opens as an lrc subtitle file.
RANDOM_BYTES='import random, sys; open(sys.argv[2], "wb").write(random.Random(int(sys.argv[1])).randbytes(262144))'
made random.mp4 python3 -c "$RANDOM_BYTES" 1
made random_opens.mp4 python3 -c "$RANDOM_BYTES" 20240603
made text.mp4 python3 -c 'import sys; open(sys.argv[1], "w").write("This is a text file, not a movie.\n")'
mkdir -p "$out/folder.mp4"
made "clip 日本 🎬.mp4" cp "$out/h264.mp4"

# A white frame and a 40 ms 1 kHz beep at every whole second, for audio/video sync checks.
made flashbeep.mp4 ff \
    -f lavfi -i "color=c=black:s=640x360:r=25:d=4,drawbox=x=0:y=0:w=iw:h=ih:c=white:t=fill:enable='lt(mod(n,25),1)'" \
    -f lavfi -i "aevalsrc='if(lt(mod(t,1),0.04),0.8*sin(2*PI*1000*t),0)':s=48000:d=4" \
    $H264 -c:a aac -b:a 128k -shortest

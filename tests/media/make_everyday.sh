#!/bin/sh
# make_everyday.sh OUTDIR: makes the everyday media corpus in OUTDIR with the ffmpeg command-line
# tool: short clips shaped like the files users have, for comparing the toolkit's pictures with
# FFmpeg's own decode (compare_decode.py). Files that already exist are kept; each is written in a
# private work folder and renamed into place. Prints nothing unless something fails.
#
# Every clip shows the counter picture (below) and lasts 2 s unless its line says otherwise. Each
# line below names a file, its size (a rotated clip's as shown: it is stored turned; setsar
# stretches a side for display), rate, seconds, sound and encoder options: 4:2:0 unless -pix_fmt
# says otherwise, -g the key frame interval in frames. Open GOPs ($H264_OPEN, x265's open-gop=1 with
# CRA pictures, MPEG-2 without +cgop) have B-frames that reference the previous GOP. MPEG-TS and
# M2TS files start at 1.4 s (the muxer's own offset), $TEN_HOURS ones at 10 h.
set -eu

. "$(dirname "$0")/corpus_lib.sh"

# The counter picture: ffmpeg's testsrc2 (colour bars, a moving gradient) with its top half turned
# into seven black/white stripes that spell the frame number, most significant bit on the left. Any
# two frames of a clip differ in at least one stripe, a seventh of the top half, so a wrong frame
# stands far above the small differences between two scalers' colour conversions. testsrc2 only
# makes even sizes, so it is drawn larger and cut exactly to the size.
# counter WIDTH HEIGHT RATE SECONDS
counter() {
    g="testsrc2=s=$((($1 + 1) / 2 * 2))x$((($2 + 1) / 2 * 2)):r=$3:d=$4,format=yuv444p,crop=$1:$2:0:0:exact=1"
    g="$g,drawbox=x=0:y=0:w=iw:h=ih/2:c=black:t=fill"
    for k in 0 1 2 3 4 5 6; do
        g="$g,drawbox=x=iw*$k/7:y=0:w=iw/7+1:h=ih/2:c=white:t=fill:enable='mod(floor(n/$((1 << (6 - k)))),2)'"
    done
    printf '%s' "$g"
}

# encode TURN WIDTH HEIGHT RATE SECONDS SOUND [OPTIONS...] FILE: writes FILE showing the counter
# picture, turned by the filters TURN ("" for none), with SOUND: none, aac, ac3, mp3, opus.
encode() {
    turn=$1 width=$2 height=$3 rate=$4 seconds=$5 sound=$6
    shift 6
    case $sound in
        none) set -- -an "$@" ;;
        aac) set -- -c:a aac -b:a 64k "$@" ;;
        ac3) set -- -c:a ac3 -b:a 96k "$@" ;;
        mp3) set -- -c:a libmp3lame -b:a 64k "$@" ;;
        opus) set -- -c:a libopus -b:a 48k "$@" ;;
    esac
    ff -f lavfi -i "$(counter "$width" "$height" "$rate" "$seconds")$turn" \
        -f lavfi -i "sine=f=440:d=$seconds:sample_rate=48000" -map 0:v -map "1:a?" "$@"
}

# clip NAME WIDTH HEIGHT RATE SECONDS SOUND [OPTIONS...]
clip() {
    name=$1
    shift
    made "$name" encode "" "$@"
}

# rotated NAME ROTATE TURN WIDTH HEIGHT RATE SECONDS SOUND [OPTIONS...]: shown WIDTHxHEIGHT upright
# through a display matrix, as a phone writes it: the picture is stored turned by the filters TURN
# and the matrix is added by a stream-copy remux, because an encode ignores the rotate tag.
rotated() {
    name=$1 rotate=$2 turn=$3
    shift 3
    if need "$name"; then
        encode "$turn" "$@" "$work/stored-$name"
        ff -i "$work/stored-$name" -map 0 -map_metadata -1 -c copy -metadata:s:v:0 rotate="$rotate" "$work/$name"
        rm -f "$work/stored-$name"
        place "$name"
    fi
}

H264="-c:v libx264 -preset veryfast -pix_fmt yuv420p"
H264_OPEN="$H264 -bf 3 -x264-params open-gop=1:b-adapt=0"
HEVC="-c:v libx265 -preset ultrafast -tag:v hvc1"
VPX="-deadline realtime -cpu-used 8 -b:v 600k"
AOM="-c:v libaom-av1 -usage realtime -cpu-used 8 -pix_fmt yuv420p -b:v 300k"
TEN_HOURS="-output_ts_offset 36000"

clip h264_120x68.mp4 120 68 25 2 aac $H264 -g 12 -bf 2
clip h264_202x114_open.mkv 202 114 25 2 mp3 $H264_OPEN -g 15
clip h264_330x186_2997.mov 330 186 30000/1001 2 aac $H264 -g 20
clip h264_426x240_23976_open.mp4 426 240 24000/1001 2 aac $H264_OPEN -g 24
clip h264_854x480_open.ts 854 480 25 2 ac3 $H264_OPEN -g 25
clip h264_482x270_10h.ts 482 270 25 2 aac $H264 -g 12 $TEN_HOURS
clip h264_720x406_2997_open.m2ts 720 406 30000/1001 2 ac3 $H264_OPEN -g 15 -f mpegts -mpegts_m2ts_mode 1
clip h264_330x186_10h_open.mkv 330 186 25 2 ac3 $H264_OPEN -g 18 $TEN_HOURS
clip h264_360x640_portrait.mp4 360 640 25 2 aac $H264 -g 25
clip h264_1080x1350_portrait.mp4 1080 1350 25 1 none $H264 -g 12
rotated h264_phone_rot270.mov -90 ",transpose=cclock" 480 854 30 2 aac $H264 -g 15
rotated h264_rot90.mp4 90 ",transpose=clock" 330 186 25 2 none $H264 -g 20
rotated h264_rot180.mp4 180 ",hflip,vflip" 426 240 25 2 aac $H264 -g 20
clip h264_sar_10_11.mkv 704 480 25 2 none $H264 -g 15 -vf setsar=10/11
clip h264_444_331x241_open.mkv 331 241 25 2 none $H264_OPEN -g 16 -pix_fmt yuv444p
clip hevc_426x240_cra.mp4 426 240 25 2 aac $HEVC -pix_fmt yuv420p \
    -x265-params log-level=error:keyint=24:min-keyint=24:bframes=3:open-gop=1
clip hevc10_330x186.mkv 330 186 25 2 ac3 $HEVC -pix_fmt yuv420p10le \
    -x265-params log-level=error:keyint=20:min-keyint=20:bframes=3:open-gop=0
clip hevc10_854x480_10h_cra.ts 854 480 25 2 ac3 $HEVC -pix_fmt yuv420p10le \
    -x265-params log-level=error:keyint=25:min-keyint=25:bframes=3:open-gop=1 $TEN_HOURS
rotated hevc10_phone_rot270.mov -90 ",transpose=cclock" 360 640 30 2 aac $HEVC -pix_fmt yuv420p10le \
    -x265-params log-level=error:keyint=15:min-keyint=15:bframes=2:open-gop=1
clip hevc10_444_331x241.mkv 331 241 25 2 none $HEVC -pix_fmt yuv444p10le \
    -x265-params log-level=error:keyint=12:min-keyint=12:bframes=3:open-gop=1
clip vp8_202x114.webm 202 114 25 2 opus -c:v libvpx $VPX -g 15
clip vp9_426x240.webm 426 240 25 2 opus -c:v libvpx-vp9 $VPX -pix_fmt yuv420p -g 25
clip vp9_444_331x241.webm 331 241 25 2 none -c:v libvpx-vp9 $VPX -pix_fmt yuv444p -g 12
clip vp9_10bit_330x186_10h.mkv 330 186 25 2 none -c:v libvpx-vp9 $VPX -pix_fmt yuv420p10le -g 20 $TEN_HOURS
clip av1_426x240.mkv 426 240 25 2 opus $AOM -g 24
clip av1_331x241.mp4 331 241 25 2 aac $AOM -g 15
clip av1_202x114.webm 202 114 25 2 none $AOM -g 12
clip mpeg4_202x114.avi 202 114 25 2 mp3 -c:v mpeg4 -q:v 3 -g 12
clip mpeg4_331x241_bframes.avi 331 241 25 2 mp3 -c:v mpeg4 -q:v 3 -g 15 -bf 2
clip mpeg4_426x240_bframes.mp4 426 240 25 2 aac -c:v mpeg4 -q:v 3 -g 18 -bf 2
clip mpeg2_720x576_sar_16_15.ts 720 576 25 2 ac3 -c:v mpeg2video -q:v 3 -g 12 -bf 2 -vf setsar=16/15
clip mpeg2_330x186.m2ts 330 186 25 2 ac3 -c:v mpeg2video -q:v 3 -g 15 -bf 2 -f mpegts -mpegts_m2ts_mode 1
clip mpeg2_331x241.mkv 331 241 25 2 mp3 -c:v mpeg2video -q:v 3 -g 15 -bf 2 -flags +cgop -sc_threshold 1000000000
clip prores_422_426x241.mov 426 241 25 2 aac -c:v prores_ks -profile:v 2 -pix_fmt yuv422p10le
clip prores_4444_331x241.mov 331 241 25 2 none -c:v prores_ks -profile:v 4 -pix_fmt yuv444p10le
clip ffv1_331x241.mkv 331 241 25 2 none -c:v ffv1 -pix_fmt yuv420p

#!/bin/sh
# make demo: the toolkit's player (vtk play) on a short sample clip with sound, made once with
# ffmpeg into the build folder. Without a display it says so, shows that the player works by
# writing a frame of the clip, and tells how to watch it under Xvfb.
set -eu

build=${1:-build}
clip="$build/demo/sample.mp4"
vtk="$build/bin/vtk"

if [ ! -e "$clip" ]; then
    mkdir -p "$build/demo"
    # 20 s at 29.97 (drop-frame timecode), a moving test picture and a tone.
    ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=size=960x540:rate=30000/1001:duration=20 \
        -f lavfi -i sine=frequency=440:beep_factor=4:duration=20 \
        -c:v libx264 -pix_fmt yuv420p -g 60 -c:a aac -shortest "$clip.part.mp4"
    mv "$clip.part.mp4" "$clip"
fi

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    "$vtk" play --headless --seek 5 --screenshot "$build/demo/frame.png" "$clip"
    echo "make demo: there is no display here (DISPLAY and WAYLAND_DISPLAY are unset)."
    echo "The player works: the frame at 5 s of $clip is in $build/demo/frame.png."
    echo "To watch it: on a desktop, $vtk play $clip"
    echo "or under Xvfb:   xvfb-run -a $vtk play $clip   (with a VNC or xwd to look at it)"
    exit 0
fi
exec "$vtk" play "$clip"

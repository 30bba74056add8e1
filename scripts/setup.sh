#!/bin/sh
# Installs the Debian packages the project builds, tests and benchmarks with.
# Idempotent: does nothing when every package is present. Extra packages may be named as
# arguments (`make bench` adds the players it compares against).
set -eu

PACKAGES="
build-essential cmake pkg-config git
lua5.1 liblua5.1-0-dev python3 python3-cairo
libgtest-dev libgmock-dev libbenchmark-dev
libavutil-dev libavformat-dev libavcodec-dev libswscale-dev libavfilter-dev
libpng-dev libjpeg62-turbo-dev libsdl2-dev libsdl2-ttf-dev libfontconfig-dev fonts-dejavu-core
libxslt1-dev libxml2-dev libegl-dev libegl-mesa0 libgl1-mesa-dri pci.ids
xvfb xauth xdotool x11-apps
ffmpeg libimage-exiftool-perl ffmpegthumbnailer parallel
binutils valgrind
$*
"

missing=""
for p in $PACKAGES; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0

if [ "$(id -u)" -eq 0 ]; then SUDO=""; else SUDO="sudo"; fi
echo "setup: installing$missing" >&2
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends $missing >/dev/null

# Sourced by the corpus scripts: `. corpus_lib.sh` with OUTDIR as $1. Files that already exist are
# kept, so a corpus is made once per build tree; each file is written in a private work folder and
# renamed into place, so an interrupted or concurrent run never leaves a half-written file under
# its final name.
if [ $# -ne 1 ]; then
    echo "usage: $0 OUTDIR" >&2
    exit 2
fi
out=$1
mkdir -p "$out"
work=$(mktemp -d "$out/.work.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' INT TERM

ff() {
    ffmpeg -v error -nostdin -y "$@"
}

# need NAME: true when OUTDIR/NAME still has to be made.
need() {
    [ ! -e "$out/$1" ]
}

# place NAME: moves the finished work/NAME into place.
place() {
    mv -f "$work/$1" "$out/$1"
}

# made NAME COMMAND...: makes NAME, when it still has to be made, by COMMAND with the file to write
# added as its last argument.
made() {
    name=$1
    shift
    if need "$name"; then
        "$@" "$work/$name"
        place "$name"
    fi
}

#!/bin/sh
# make fuzz SECONDS=N: builds the fuzz targets (fuzz/) with clang, libFuzzer, AddressSanitizer and
# UBSan in build-fuzz/, and runs each for N seconds (60 by default; names after N pick targets).
# Each grows a working corpus in build-fuzz/corpus/<target>, seeded from fuzz/corpus/<target> and
# fuzz/regressions/<target>, with the tokens of fuzz/<target>.dict where there is one. What a
# target finds goes to build-fuzz/findings/<target>/, emptied at each run: keep an input by copying
# it into fuzz/regressions/<target>/. Ends with one line per target and exits 1 if any target found
# something.
set -eu

root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-fuzz"
seconds="${1:-60}"
[ $# -gt 0 ] && shift
targets="${*:-ratio_archive ratio_number video_time_decode xmp_text media_tags inspect_file playback lua_surface}"

"$root/scripts/setup.sh" clang libclang-rt-14-dev

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DFUZZ=ON -DSANITIZE=address,undefined -DBUILD_TESTING=OFF >/dev/null
nice cmake --build "$build" -j2 --target fuzzers

# The longest input worth mutating, and the time one input may take, per target. Inspection needs
# more: whole files, its five-second read limit, and FFmpeg alone takes seconds over some hostile
# headers (a 3.7 KB MP4 whose "keys" box claims a huge count).
max_len() {
    case "$1" in
        ratio_number) echo 16 ;;
        ratio_archive) echo 64 ;;
        video_time_decode | lua_surface) echo 256 ;;
        inspect_file | playback) echo 16384 ;;
        *) echo 1024 ;;
    esac
}
timeout_of() { [ "$1" = inspect_file ] && echo 60 || echo 10; }

# libFuzzer links the C++ library ahead of the shared sanitizer runtime; that library does not
# replace malloc, so the order does no harm. The playback target links FFmpeg's libraries itself,
# and one of them (libsrt) keeps an object from its load, before main: the suppression names it
# only in a full stack, which the fast unwinder cannot walk through that library.
asan_options() {
    options="verify_asan_link_order=0:detect_leaks=1"
    [ "$1" = playback ] && options="$options:fast_unwind_on_malloc=0"
    echo "$options"
}
export UBSAN_OPTIONS="print_stacktrace=1"
# Leaks are checked on each input that allocates more than it frees, and at exit. Where the
# platform's threads run (inspect_file, playback, lua_surface) thread-local storage is not
# scanned, as in make test: see tests/sanitizers/lsan.supp.
lsan_options() {
    options="suppressions=$root/tests/sanitizers/lsan.supp"
    case "$1" in inspect_file | playback | lua_surface) options="use_tls=0:$options" ;; esac
    echo "$options"
}

summary=""
found=0
for target in $targets; do
    corpus="$build/corpus/$target"
    findings="$build/findings/$target"
    log="$build/logs/$target.log"
    rm -rf "$findings"
    mkdir -p "$corpus" "$findings" "$build/logs"
    seeds="$root/fuzz/corpus/$target"
    [ -d "$root/fuzz/regressions/$target" ] && seeds="$seeds $root/fuzz/regressions/$target"
    dict=""
    [ -f "$root/fuzz/$target.dict" ] && dict="-dict=$root/fuzz/$target.dict"
    echo "fuzz: $target for ${seconds}s (log: $log)" >&2
    ASAN_OPTIONS="$(asan_options "$target")" LSAN_OPTIONS="$(lsan_options "$target")" \
        "$build/bin/fuzz_$target" "$corpus" $seeds \
        -max_total_time="$seconds" -max_len="$(max_len "$target")" -timeout="$(timeout_of "$target")" \
        -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$findings/" $dict >"$log" 2>&1 || true

    executions="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)"
    [ -n "$executions" ] || executions="$(sed -n 's/^#\([0-9]*\).*/\1/p' "$log" | tail -n 1)"
    coverage="$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -n 1)"
    count="$(find "$findings" -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) |
        wc -l)"
    found=$((found + count))
    line="$(printf '%-18s %12s executions  %-22s %s findings' "$target" "${executions:-0}" \
        "${coverage:-cov: ? ft: ?}" "$count")"
    summary="$summary$line
"
done

printf '%s' "$summary"
[ "$found" -eq 0 ]

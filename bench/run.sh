#!/bin/sh
# Builds the benches and runs every one of them against the virtual receiver,
# then prints one table: each flow, the floor its protocol sets, the measured
# time, the ratio (or the excess per acknowledged unit), the target and
# whether it is met. The benches print one "BENCH ..." line per flow
# (bench/bench_util.h); their own lines are kept in a log directory.
#
#   bench/run.sh [--short] [-v] [build-dir]
#
# build-dir defaults to build/. --short runs each bench once, with a smaller
# DW2207B file and fewer read rounds: a few minutes, for CI. -v also prints
# every bench's own output. Missed targets do not make it fail: it exits 1
# only when a bench could not be built or run.
set -u

short=0
verbose=0
dir=
for arg in "$@"; do
    case $arg in
    --short) short=1 ;;
    -v) verbose=1 ;;
    -h | --help)
        sed -n '2,14p' "$0" | sed 's/^# \{0,1\}//'
        exit 0
        ;;
    -*)
        echo "run.sh: unknown option $arg" >&2
        exit 2
        ;;
    *) dir=$arg ;;
    esac
done

root=$(cd "$(dirname "$0")/.." && pwd)
[ -n "$dir" ] || dir=$root/build
if [ ! -f "$dir/CMakeCache.txt" ]; then
    echo "run.sh: $dir is not a configured build directory (cmake -B $dir)" >&2
    exit 1
fi
benches="bench_read_latency bench_dw2207b_transfer bench_epo_transfer bench_hd8xxx_transfer bench_rtcm_platforms bench_cost"
# shellcheck disable=SC2086 # one target per word
if ! cmake --build "$dir" -j2 --target $benches >/dev/null; then
    echo "run.sh: the benches did not build in $dir" >&2
    exit 1
fi

# Arguments per bench: rounds or runs, and the DW2207B file's size in KiB.
if [ $short -eq 1 ]; then
    args_read=500 args_dw="1 50" args_runs=1
else
    args_read=2000 args_dw="3 200" args_runs=3
fi

logs=$(mktemp -d "${TMPDIR:-/tmp}/vkagnss-bench.XXXXXX")
failed=0
started=$(date +%s)
for b in $benches; do
    case $b in
    bench_read_latency) a=$args_read ;;
    bench_dw2207b_transfer) a=$args_dw ;;
    *) a=$args_runs ;;
    esac
    t0=$(date +%s)
    # shellcheck disable=SC2086 # the arguments are words
    "$dir/$b" $a >"$logs/$b.txt" 2>&1
    rc=$?
    echo "$b $a: $(($(date +%s) - t0)) s, exit $rc" >&2
    if [ $rc -ne 0 ]; then
        failed=1
        echo "run.sh: $b failed:" >&2
        tail -n 20 "$logs/$b.txt" >&2
    elif [ $verbose -eq 1 ]; then
        cat "$logs/$b.txt"
    fi
done

mode=full
[ $short -eq 1 ] && mode=short
echo
echo "Benches ($mode mode, $(($(date +%s) - started)) s) on $(nproc 2>/dev/null || echo '?') cores," \
    "load average $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo '?') at the end," \
    "against the virtual receiver over a pseudo-terminal:"
echo
echo "| flow | floor | measured | ratio | target | | note |"
echo "|---|---|---|---|---|---|---|"
for b in $benches; do
    [ -f "$logs/$b.txt" ] && sed -n 's/^BENCH //p' "$logs/$b.txt"
done | awk -F'|' '{
    printf "| %s | %s | %s | %s | %s | %s | %s |\n", $1, $2, $3, $4, $5, $6, $7 }'
echo
echo "Each bench's own output: $logs"
exit $failed

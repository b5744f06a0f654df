#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer + UndefinedBehaviorSanitizer) into
# build-fuzz/ and runs each for a bounded time, starting from the seeds in tests/fuzz/corpus/.
# A crash, a hang or a sanitizer report stops that target, leaves the input in
# build-fuzz/artifacts/ and makes the script fail.
#
# Usage: scripts/fuzz.sh [--seconds N] [target...]     (default: 60 seconds, every target)
#   targets: simplecrypt notificationtext downloadname cappedreader cookieini
#   Reproduce a finding: build-fuzz/tests/fuzz/fuzz_<target> build-fuzz/artifacts/<file>
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
build="${KESTRELGAP_FUZZ_BUILD_DIR:-$here/build-fuzz}"
all_targets="simplecrypt notificationtext downloadname cappedreader cookieini settings"

seconds=60
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
        --seconds) seconds=$2; shift 2 ;;
        --seconds=*) seconds=${1#--seconds=}; shift ;;
        -h|--help) sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        *) targets+=("$1"); shift ;;
    esac
done
[ ${#targets[@]} -gt 0 ] || read -r -a targets <<<"$all_targets"

"$here/scripts/install-deps.sh"
# The fuzzing runtime comes with Debian's clang; only this script needs it.
missing=""
for pkg in clang libclang-rt-dev; do
    dpkg-query -W -f='${db:Status-Abbrev}' "$pkg" 2>/dev/null | grep -q '^ii' || missing="$missing $pkg"
done
if [ -n "$missing" ]; then
    sudo_cmd=""
    [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
    # shellcheck disable=SC2086
    $sudo_cmd env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    # shellcheck disable=SC2086
    $sudo_cmd env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null
fi

launcher=()
if command -v ccache >/dev/null 2>&1; then
    export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(dirname "$here")}" CCACHE_NOHASHDIR=1
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
flags="-O1 -g -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined"
cmake -S "$here" -B "$build" -DCMAKE_CXX_COMPILER=clang++ "${launcher[@]}" \
    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DKESTRELGAP_BUILD_TESTS=OFF -DKESTRELGAP_BUILD_FUZZERS=ON >/dev/null
cmake --build "$build" -j"$(nproc)" --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="detect_leaks=0:detect_stack_use_after_return=0${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"

failed=""
for target in "${targets[@]}"; do
    seeds="$here/tests/fuzz/corpus/$target"
    work="$build/corpus/$target"
    mkdir -p "$work" "$build/artifacts" "$seeds"
    echo "fuzz: $target for ${seconds}s"
    # New inputs go to the working corpus; the committed seeds are only read. A single input
    # that takes 10 s is a hang: the program would stall on it just the same.
    if ! "$build/tests/fuzz/fuzz_$target" "$work" "$seeds" \
        -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=16384 \
        -artifact_prefix="$build/artifacts/$target-" -print_final_stats=1 \
        >"$build/fuzz-$target.log" 2>&1; then
        failed="$failed $target"
        tail -n 60 "$build/fuzz-$target.log" >&2
    fi
    grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)|cov: ' "$build/fuzz-$target.log" \
        | tail -n 4 | sed "s/^/fuzz: $target: /"
done

if [ -n "$failed" ]; then
    echo "fuzz: findings in:$failed (inputs in $build/artifacts/)" >&2
    exit 1
fi
echo "fuzz: every target ran clean for ${seconds}s"

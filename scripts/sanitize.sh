#!/usr/bin/env bash
# Builds the library, the program and every test with AddressSanitizer and
# UndefinedBehaviorSanitizer into build-asan/ and runs the whole suite in the private desktop.
# Any sanitizer report ends the process that made it with an error, so the test fails.
#
# Usage: scripts/sanitize.sh [ctest arguments...]    e.g. scripts/sanitize.sh -R tst_cookiejar
#   KESTRELGAP_SANITIZE_BUILD_DIR   build folder (default: build-asan beside build/)
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
build="${KESTRELGAP_SANITIZE_BUILD_DIR:-$here/build-asan}"

"$here/scripts/install-deps.sh"

launcher=()
if command -v ccache >/dev/null 2>&1; then
    export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(dirname "$here")}" CCACHE_NOHASHDIR=1
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# GCC's runtimes come with g++, so this build needs no package beyond the normal ones.
# -O1 keeps the suite fast enough while stacks stay readable; Debug keeps Q_ASSERT live.
flags="-O1 -g -fno-omit-frame-pointer -fsanitize=address,undefined -fno-sanitize-recover=undefined"
"$here/scripts/build.sh" "$build" \
    -DCMAKE_CXX_COMPILER=g++ "${launcher[@]}" \
    -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"

# Leak checking is off. The program keeps its singletons and finished helpers to the end of the
# process on purpose, and Qt and the web engine leave their own objects behind at exit; without
# frame pointers in those libraries the reports can't be told apart from ours by their stacks.
# The web engine scans the stack for pointers, so stack-use-after-return (which moves locals to
# the heap) stays off too: it would let the collector free objects still in use.
export ASAN_OPTIONS="detect_leaks=0:check_initialization_order=1:strict_init_order=1:detect_stack_use_after_return=0:abort_on_error=0:exitcode=23${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"

"$here/scripts/desktop-session.sh" --wm -- ctest --test-dir "$build" --output-on-failure -j2 "$@"

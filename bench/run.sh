#!/usr/bin/env bash
# Measures the staged client against two baselines in the same go and writes docs/PERFORMANCE.md:
# the floor (a bare Qt widget window) and Debian's chromium as an app window on the same start page.
# Installs what is missing (chromium included), builds, then runs everything inside a private
# desktop session on a private loopback network, so that the service port never meets another copy.
#
# Usage: bench/run.sh [--runs N] [--soak S] [--soak-only | --start-only]
#   --runs N     measured runs of each program, after one warm-up (default 7)
#   --soak S     seconds of the soak, one demo event a second into the signed-in client (default 600)
#   --soak-only  only the soak, its figures to standard output; the report stays as it is
#   --start-only only start-up, the client and the bare QWebView by turns, N runs each; likewise
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
build="$here/build"
runs=7
soak=600
soak_only=""
start_only=""
while [ $# -gt 0 ]; do
    case "$1" in
        --runs) runs=${2:?}; [ "$runs" -ge 1 ]; shift 2 ;;
        --soak) soak=${2:?}; [ "$soak" -ge 30 ]; shift 2 ;;
        --soak-only) soak_only=1; shift ;;
        --start-only) start_only=1; shift ;;
        *) sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2 ;;
    esac
done

if [ -z "${KESTRELGAP_BENCH_INSIDE:-}" ]; then
    as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }
    "$here/scripts/install-deps.sh"
    if ! command -v chromium >/dev/null; then
        as_root apt-get update -q
        as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends chromium
    fi
    cmake -S "$here" -B "$build" >/dev/null
    targets="kestrelgap bench_floor bench_webfloor startclock bench_logging bench_cookies"
    grep -q 'kestrelgap-devhost' "$here/devhost/CMakeLists.txt" && targets="$targets kestrelgap-devhost"
    [ -d "$here/bench/popups" ] && targets="$targets bench_popups"
    [ -d "$here/bench/load" ] && targets="$targets bench_load"
    # shellcheck disable=SC2086
    cmake --build "$build" -j"$(nproc)" --target $targets
    export KESTRELGAP_BENCH_INSIDE=1
    session=("$here/scripts/desktop-session.sh" --wm -- "$here/bench/run.sh" --runs "$runs" --soak "$soak" ${soak_only:+--soak-only} ${start_only:+--start-only})
    # A whole run takes a few minutes; never let a hung program hold the machine.
    if [ "$(id -u)" -eq 0 ] && unshare --net true 2>/dev/null; then
        exec timeout $((40 + soak / 30))m unshare --net bash -c 'ip link set lo up && exec "$@"' _ "${session[@]}"
    fi
    echo "bench: no private network (needs root); the service port is shared with the machine" >&2
    exec timeout $((40 + soak / 30))m "${session[@]}"
fi

# ---- inside the desktop session from here on ----
set +e
stage="$build/stage"
clock="$build/bench/startclock/startclock"
service=$(sed -n 's/^KESTRELGAP_SERVICE_HOST:STRING=//p' "$build/CMakeCache.txt")
work=$(mktemp -d "${TMPDIR:-/tmp}/kestrelgap-bench.XXXXXX")
results="$work/results"   # lines: "figure value"
hostlog="$work/service.log"
host_pid=""
pid="" clock_pid=""
trap '[ -n "$pid$clock_pid" ] && stop_timed; stop_host; rm -rf "$work"' EXIT
trap 'exit 143' TERM INT HUP
log() { echo "bench: $*" >&2; }

stop_host() { [ -n "$host_pid" ] && kill "$host_pid" 2>/dev/null && wait "$host_pid" 2>/dev/null; host_pid=""; }

# The real service host when it is built; otherwise a plain request logger, enough for the start
# page's probe that marks its load (and nothing that needs a signed-in page is measured).
devhost="$build/devhost/kestrelgap-devhost"
if [ -x "$devhost" ]; then
    "$devhost" --listen "$service" >"$hostlog" 2>&1 &
    host_pid=$!
    ready_line="kestrelgap-devhost: serving"
else
    mkdir -p "$work/empty"
    python3 -u -m http.server --bind 127.0.0.1 --directory "$work/empty" "${service##*:}" >"$hostlog" 2>&1 &
    host_pid=$!
    ready_line="Serving HTTP"
fi
for _ in $(seq 1 100); do grep -q "$ready_line" "$hostlog" && break; sleep 0.1; done
grep -q "$ready_line" "$hostlog" || { log "the service host didn't start:"; cat "$hostlog" >&2; exit 1; }

# Every process whose ancestry leads to $1, $1 included.
tree_pids() {
    ps -e -o pid=,ppid= | awk -v root="$1" '
        { parent[$1] = $2 }
        END { for (p in parent) { q = p; while (q != "" && q != root && q > 1) q = parent[q]; if (q == root) print p } }'
}

# "rss pss" in KiB, summed over the tree.
tree_memory() {
    local pid rss=0 pss=0 r p
    for pid in $(tree_pids "$1"); do
        read -r r p < <(awk '/^Rss:/ { r = $2 } /^Pss:/ { p = $2 } END { print r + 0, p + 0 }' "/proc/$pid/smaps_rollup" 2>/dev/null)
        rss=$((rss + ${r:-0})) pss=$((pss + ${p:-0}))
    done
    echo "$rss $pss"
}

# User and system clock ticks used so far, summed over the tree.
tree_ticks() {
    local pid total=0 t
    for pid in $(tree_pids "$1"); do
        t=$(awk '{ sub(/^.*\) /, ""); print $12 + $13 }' "/proc/$pid/stat" 2>/dev/null)
        total=$((total + ${t:-0}))
    done
    echo "$total"
}

# Starts a program through the start clock with a fresh private home; sets $pid, $ready, $shown,
# $loaded and $clock_pid. Arguments: a name for the files, then the program and its arguments.
start_timed() {
    local name=$1 home="$work/home-$1"
    shift
    rm -rf "$home"
    mkdir -p "$home/tmp" "$home/config" "$home/data" "$home/cache"
    local marker=(--log "$hostlog" --line "GET /prod-assets/desktop-client/versioncheck.json")
    case $name in floor|floor-raster|soakfloor) marker=() ;; esac
    (cd "$stage" && exec env HOME="$home" TMPDIR="$home/tmp" XDG_CONFIG_HOME="$home/config" \
        XDG_DATA_HOME="$home/data" XDG_CACHE_HOME="$home/cache" \
        "$clock" --title Kestrelgap "${marker[@]}" --timeout 60 -- "$@" >"$work/clock" 2>"$work/$name.err") &
    clock_pid=$!
    local line=""
    for _ in $(seq 1 700); do
        line=$(grep '^pid=' "$work/clock")
        [ -n "$line" ] && break
        kill -0 "$clock_pid" 2>/dev/null || break
        sleep 0.1
    done
    if [ -z "$line" ]; then
        log "$name didn't come up:"; tail -n 5 "$work/$name.err" >&2
        pid=""; stop_timed; return 1
    fi
    pid=$(sed -n 's/.*pid=\([0-9]*\).*/\1/p' <<<"$line")
    shown=$(sed -n 's/.*shown_ms=\([0-9.]*\).*/\1/p' <<<"$line")
    loaded=$(sed -n 's/.*loaded_ms=\([0-9.]*\).*/\1/p' <<<"$line")
    ready=$(sed -n 's/.*ready_ms=\([0-9.]*\).*/\1/p' <<<"$line")
}

any_alive() { local p; for p in "$@"; do kill -0 "$p" 2>/dev/null && return 0; done; return 1; }

# Ends the measured program and its start clock, whichever of the two is known: a program whose
# pid was never read must not leave the wait below on a clock that runs on.
stop_timed() {
    local pids="" root
    for root in $pid $clock_pid; do pids="$pids $(tree_pids "$root")"; done
    pids=$(tr ' ' '\n' <<<"$pids" | sort -u | tr '\n' ' ')
    if [ -n "${pids// /}" ]; then
        # shellcheck disable=SC2086
        kill -TERM $pids 2>/dev/null
        for _ in $(seq 1 50); do
            # shellcheck disable=SC2086
            any_alive $pids || break
            sleep 0.1
        done
        # shellcheck disable=SC2086
        kill -KILL $pids 2>/dev/null
    fi
    [ -n "$clock_pid" ] && wait "$clock_pid" 2>/dev/null
    pid="" clock_pid=""
}

record() { [ "$round" -gt 0 ] && echo "$1 $2" >>"$results"; }

gl_loaded() { grep -q -E 'qxcb-glx-integration|swrast_dri|libGLX_mesa' "/proc/$1/maps" 2>/dev/null && echo yes || echo no; }

# Waits until the service host's log has a line with $1 after line $2 of it.
wait_for_request() {
    for _ in $(seq 1 300); do
        tail -n +"$(($2 + 1))" "$hostlog" | grep -q "$1" && return 0
        sleep 0.1
    done
    return 1
}

# CPU used over 10 s of nothing happening, in % of one core, and the requests the page made meanwhile.
measure_idle() {
    local before after mark
    mark=$(wc -l <"$hostlog")
    before=$(tree_ticks "$pid"); sleep 10; after=$(tree_ticks "$pid")
    record "$1.idlecpu" "$(awk -v t=$((after - before)) -v hz="$(getconf CLK_TCK)" 'BEGIN { printf "%.1f", 100 * t / hz / 10 }')"
    record "$1.requests" "$(tail -n +"$((mark + 1))" "$hostlog" | grep -c '^GET ')"
}

measure_floor() {
    local name=$1; shift
    start_timed "$name" "$build/bench/floor/bench_floor" "$@" || return
    record "$name.start" "$shown"
    sleep 1
    read -r rss pss < <(tree_memory "$pid")
    record "$name.rss" "$rss"; record "$name.pss" "$pss"
    stop_timed
}

measure_webfloor() {
    start_timed webfloor "$build/bench/webfloor/bench_webfloor" "file://$stage/html/start.html" || return
    record webfloor.start "$ready"
    sleep 1
    read -r rss pss < <(tree_memory "$pid")
    record webfloor.rss "$rss"; record webfloor.pss "$pss"
    [ -x "$devhost" ] && measure_idle webfloor
    stop_timed
}

measure_chromium() {
    local profile="$work/chromium-profile"
    rm -rf "$profile"
    start_timed chromium chromium --app="file://$stage/html/start.html" --user-data-dir="$profile" \
        --no-sandbox --disable-gpu --no-first-run --disable-background-networking \
        --disable-component-update --disable-sync --disable-quic || return
    record chromium.start "$ready"
    sleep 1
    read -r rss pss < <(tree_memory "$pid")
    record chromium.rss "$rss"; record chromium.pss "$pss"
    record chromium.processes "$(tree_pids "$pid" | wc -l)"
    stop_timed
}

measure_client() {
    start_timed kestrelgap ./kestrelgap || return
    record kestrelgap.start "$ready"
    record kestrelgap.shown "$shown"
    record kestrelgap.loaded "$loaded"
    sleep 1
    read -r rss pss < <(tree_memory "$pid")
    record kestrelgap.rss "$rss"; record kestrelgap.pss "$pss"
    gl=$(gl_loaded "$pid")
    if [ -x "$devhost" ]; then
        # The start page has gone on to the sign-in page by now, as the bare web view's has.
        measure_idle kestrelgap
        # Sign in through the host's demo channel and wait for the messenger page.
        local mark
        mark=$(wc -l <"$hostlog")
        python3 -c 'import sys, urllib.request; urllib.request.urlopen(sys.argv[1], b"{\"type\": \"signin\"}")' \
            "http://$service/demo/events" >/dev/null
        if wait_for_request "^GET /main.html 200" "$mark"; then
            sleep 2
            read -r rss pss < <(tree_memory "$pid")
            record main.rss "$rss"; record main.pss "$pss"
            measure_idle main
        else
            log "the messenger page didn't load after sign-in"
        fi
    fi
    stop_timed
}

post_event() {
    python3 -c 'import sys, urllib.request; urllib.request.urlopen(sys.argv[1], sys.argv[2].encode(), timeout=10)' \
        "http://$service/demo/events" "$1" >/dev/null
}

# A tray program lives for weeks: one event a second into the signed-in client (texts from two
# contacts, into their popups once open, and battery reports). The memory kept per event is taken
# between two quiet moments, after the first tenth of the events and after the last, each 15 s
# after the stream paused, so that it counts what the program keeps, not garbage its collector
# hasn't reached yet. The resident size once a minute, stream running, shows whether it levels off.
# Arguments: the figures' name, then the program and its arguments. The same stream into a bare
# web view on the same pages ("soakfloor") tells what the pages keep themselves.
measure_soak() {
    local key=$1
    shift
    start_timed "$key" "$@" || return
    local mark i rss0 pss0 rss1 pss1 rss event series=""
    mark=$(wc -l <"$hostlog")
    post_event '{"type": "signin"}'
    if ! wait_for_request "^GET /main.html 200" "$mark"; then
        log "$key: the messenger page didn't load after sign-in"; stop_timed; return
    fi
    sleep 2
    local warm=$((soak / 10))
    for i in $(seq 1 "$soak"); do
        case $((i % 3)) in
            0) event="{\"type\": \"battery\", \"level\": $((20 + i % 70)), \"charging\": $([ $((i % 2)) -eq 0 ] && echo true || echo false)}" ;;
            1) event='{"type": "text", "from": "Maya Lindqvist"}' ;;
            2) event='{"type": "text", "from": "Dad"}' ;;
        esac
        post_event "$event" || log "$key: event $i not taken"
        if [ "$i" -eq "$warm" ]; then
            sleep 15
            read -r rss0 pss0 < <(tree_memory "$pid")
        fi
        if [ $((i % 60)) -eq 0 ]; then
            read -r rss _ < <(tree_memory "$pid")
            series="$series $((rss / 1024))"
        fi
        sleep 1
    done
    sleep 15
    read -r rss1 pss1 < <(tree_memory "$pid")
    echo "$key.events $((soak - warm))" >>"$results"
    echo "$key.rss.start $rss0" >>"$results"
    echo "$key.rss.end $rss1" >>"$results"
    echo "$key.pss.end $pss1" >>"$results"
    echo "$key.kib.per.event $(awk -v a="$rss0" -v b="$rss1" -v n=$((soak - warm)) 'BEGIN { printf "%.2f", (b - a) / n }')" >>"$results"
    echo "$key.series.mib${series}" >>"$results"
    stop_timed
}

measure_soaks() {
    measure_soak soak ./kestrelgap
    measure_soak soakfloor "$build/bench/webfloor/bench_webfloor" "http://$service/signin" --lean
}

# What the machine was doing: the figures of one run are compared with each other, not across runs.
echo "load.before $(cut -d' ' -f1-3 /proc/loadavg)" >"$work/load"

rm -f "$results"
if [ -n "$soak_only" ]; then
    [ -x "$devhost" ] || { log "the soak needs the development service host"; exit 1; }
    measure_soaks
    cat "$results"
    exit 0
fi
if [ -n "$start_only" ]; then
    for round in $(seq 0 "$runs"); do
        start_timed webfloor "$build/bench/webfloor/bench_webfloor" "file://$stage/html/start.html" && record webfloor.start "$ready"
        stop_timed
        start_timed kestrelgap ./kestrelgap && record kestrelgap.start "$ready"
        stop_timed
    done
    for key in kestrelgap.start webfloor.start; do
        awk -v k="$key" '$1 == k { print $2 }' "$results" | sort -g |
            awk -v k="$key" '{ v[NR] = $1 } END { printf "%s median %.1f ms, lowest %.1f, highest %.1f, %d runs\n", k, (NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2), v[1], v[NR], NR }'
    done
    exit 0
fi
for round in $(seq 0 "$runs"); do
    log "round $round of $runs$([ "$round" -eq 0 ] && echo ' (warm-up)')"
    measure_floor floor
    measure_floor floor-raster --raster
    measure_webfloor
    measure_chromium
    measure_client
done

# The component benchmarks report medians of their own rounds.
popups_out=""
if [ -x "$build/bench/popups/bench_popups" ]; then
    for round in $(seq 0 "$runs"); do
        out=$(cd "$work" && HOME="$work/home-popups" timeout 120 "$build/bench/popups/bench_popups" 20 2>/dev/null)
        [ "$round" -eq 0 ] && continue
        popups_out="$out"
        record popups.ms "$(sed -n 's/^popups: *all shown after \([0-9]*\) ms.*/\1/p' <<<"$out")"
        record popups.kib "$(sed -n 's/^popups:.* \([0-9-]*\) KiB each.*/\1/p' <<<"$out")"
        record bare.ms "$(sed -n 's/^bare windows: all shown after \([0-9]*\) ms.*/\1/p' <<<"$out")"
        record bare.kib "$(sed -n 's/^bare windows:.* \([0-9-]*\) KiB each.*/\1/p' <<<"$out")"
        record webviews.ms "$(sed -n 's/^bare web views: all shown after \([0-9]*\) ms.*/\1/p' <<<"$out")"
        record webviews.kib "$(sed -n 's/^bare web views:.* \([0-9-]*\) KiB each.*/\1/p' <<<"$out")"
        record popups.back "$(sed -n 's/^closed all: \([0-9-]*\)% given back.*/\1/p' <<<"$out")"
        record popups.stays "$(sed -n 's/^closed all:.* \([0-9-]*\) KiB per popup stays.*/\1/p' <<<"$out")"
        record popups.pertext "$(sed -n 's/^texts into an open popup: \([0-9.-]*\) KiB.*/\1/p' <<<"$out")"
    done
    # Round after round in one process: what stays levels off where the engine reuses it.
    popups_out=$(cd "$work" && HOME="$work/home-popups" timeout 300 "$build/bench/popups/bench_popups" 20 5 2>/dev/null)
fi
# The long day of messages: each figure against its baseline from the same process.
if [ -x "$build/bench/load/bench_load" ]; then
    for round in $(seq 1 "$runs"); do
        out=$(cd "$work" && timeout 600 "$build/bench/load/bench_load" 10000 200 2>/dev/null)
        for pair in bridge:"bridge calls reading a setting" battery:"battery reports" web:"bare web windows" popup:"popup cycles"; do
            record "load.${pair%%:*}.ms" "$(sed -n "s/^${pair#*:}: [0-9]* in \([0-9]*\) ms.*/\1/p" <<<"$out")"
            record "load.${pair%%:*}.bytes" "$(sed -n "s/^${pair#*:}:.* \([0-9-]*\) bytes kept each/\1/p" <<<"$out")"
        done
    done
fi
round=1
logging_out=$("$build/bench/logging/bench_logging" 5000 "$runs")
cookies_out="$(QT_QPA_PLATFORM=offscreen "$build/bench/cookies/bench_cookies" 20 10)
$(QT_QPA_PLATFORM=offscreen "$build/bench/cookies/bench_cookies" 20 1000)"
[ -x "$devhost" ] && measure_soaks
echo "load.after $(cut -d' ' -f1-3 /proc/loadavg)" >>"$work/load"
cat "$work/load" >>"$results"

# The raw figures stay in the build folder, to look at or to write the report again from.
cp "$results" "$build/bench/results.txt"
"$here/bench/report.sh" "$results" "$here/docs/PERFORMANCE.md" "$runs" "$gl" \
    "$logging_out" "$cookies_out" "$popups_out" "$([ -x "$devhost" ] && echo devhost || echo logger)"
status=$?
[ $status -eq 0 ] && log "wrote $here/docs/PERFORMANCE.md"
exit $status

#!/usr/bin/env bash
# Builds the plain flavour and runs the benchmarks, with a private temporary directory for the
# files of the byte array codec.
#   scripts/bench.sh [ELEMENT_COUNT ...]
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
scripts/build.sh plain bench_commandLoad bench_hitTesting bench_translationMapping bench_keyboard bench_liveWalk bench_liveQuestions bench_capture bench_resolution liveFixtureApp dbusCallCounter | tail -n 1

TMPDIR=$(mktemp -d /tmp/uiet-bench-XXXXXX)
export TMPDIR
source scripts/lib/live-session.sh
trap 'stop_live_session; rm -rf "$TMPDIR"' EXIT
echo "== loading a start command (times are the fastest of several runs)"
build/bench/bench_commandLoad "$@"

echo
echo "== hit tests in generated Pro Tools windows: the Pro Tools search against the rectangle search"
build/bench/bench_hitTesting

echo
echo "== the translation catalogs of GTK 3 and Qt: reading every language, and one lookup"
build/bench/bench_translationMapping

echo
echo "== keyboard layouts compiled from their names: a layout's table, and one translation"
build/bench/bench_keyboard

echo
echo "== reading role, title and frame of every element of gtk3-widget-factory on a headless desktop"
start_live_session "$TMPDIR/live"
live_start gtk3-widget-factory
factory=${live_pids[-1]}
live_wait_for_tree build/src/ctl/ui-element-ctl "$factory" 'AXRadioButton'
repeats=5
# Each walker runs with the round-trip counter preloaded; the counts include its start-up.
for walker in "build/bench/bench_liveWalk" "/usr/bin/python3 bench/pyatspi_walk.py"; do
  result=$(DBUS_CALL_COUNT_FILE="$TMPDIR/calls" LD_PRELOAD="$PWD/build/bench/libdbusCallCounter.so" \
           $walker "$factory" "$repeats")
  reads=$(echo "$result" | awk '{print $4}')
  calls=$(cat "$TMPDIR/calls")
  awk -v name="${walker##*/}" -v result="$result" -v calls="$calls" -v reads="$reads" \
    'BEGIN { printf "%-18s %s  round trips %d  per read %.2f\n", name, result, calls, calls / reads }'
done

echo
echo "== the verified ancestors and the window of every element of gtk3-widget-factory"
for walker in "build/bench/bench_liveQuestions" "/usr/bin/python3 bench/pyatspi_questions.py"; do
  echo "-- ${walker##*/}"
  LD_PRELOAD="$PWD/build/bench/libdbusCallCounter.so" $walker "$factory" 3
done

echo
echo "== capture of every element with a frame of gtk3-widget-factory, its popover menu open, and"
echo "   the two ancestor lists of each: from below and from the top"
# The popover's content names as parent the button it pops from, which does not list it: capture
# finds it only by the search from the top.
read -r x y w h < <(build/src/ctl/ui-element-ctl tree "$factory" \
  | sed -n 's/.*AXCheckBox "Menu" \([0-9]*\),\([0-9]*\) \([0-9]*\)x\([0-9]*\).*/\1 \2 \3 \4/p')
build/src/ctl/ui-element-ctl press "$((x + w / 2)),$((y + h / 2))" >/dev/null
live_wait_for_tree build/src/ctl/ui-element-ctl "$factory" 'Get Busy'
LD_PRELOAD="$PWD/build/bench/libdbusCallCounter.so" build/bench/bench_capture "$factory" 1

echo
echo "== one resolution of every element with a frame, by depth, as the tool's tick makes it, beside"
echo "   pyatspi's walk down the same paths (at each level the children, and each child's role and"
echo "   name): gtk3-widget-factory, its popover menu open, and the Qt fixture"
# The fixture quits at the end of its standard input: it gets a pipe that stays open.
mkfifo "$TMPDIR/fixture-input"
exec 7<>"$TMPDIR/fixture-input"
live_start sh -c 'exec "$0" <&7' build/tests/liveFixtureApp
fixture=${live_pids[-1]}
live_wait_for_tree build/src/ctl/ui-element-ctl "$fixture" 'Apply'
for application in "$factory" "$fixture"; do
  for walker in "build/bench/bench_resolution" "/usr/bin/python3 bench/pyatspi_resolve.py"; do
    echo "-- ${walker##*/} $(tr '\0' ' ' < "/proc/$application/cmdline")"
    LD_PRELOAD="$PWD/build/bench/libdbusCallCounter.so" $walker "$application" 3
  done
done

# CPU seconds that a process has used so far (user and system), from /proc.
cpu_seconds() {
  awk -v tick="$(getconf CLK_TCK)" '{ printf "%.2f", ($14 + $15) / tick }' "/proc/$1/stat"
}
resident_kb() {
  awk '/^VmRSS:/ { print $2 }' "/proc/$1/status"
}
# Starts the tool with LOG, waits until it runs; its pid in tool_pid.
start_bench_tool() {
  build/src/tool/ui-element-tool >"$1" 2>&1 &
  tool_pid=$!
  live_wait_for 10 grep -q "tool running" "$1"
}
seconds=${UIET_BENCH_SECONDS:-60}
ctl=build/src/ctl/ui-element-ctl

echo
echo "== the tool watching 8 elements of gtk3-widget-factory for ${seconds} s: its CPU time, and the"
echo "   application's beside the same time without the tool (from /proc)"
"$ctl" press "$(( x + w / 2 )),$(( y + h / 2 ))" >/dev/null  # the popover menu closes again
live_wait_for 10 sh -c "! '$ctl' tree '$factory' | grep -q 'Get Busy'" || true
"$ctl" tree "$factory" >"$TMPDIR/tree.txt"
grep -E 'AXCheckBox "(togglebutton|checkbutton)"' "$TMPDIR/tree.txt" | head -n 8 \
  | sed -E 's/.* (-?[0-9]+),(-?[0-9]+) ([0-9]+)x([0-9]+)$/\1 \2 \3 \4/' >"$TMPDIR/points.txt"
before=$(cpu_seconds "$factory"); sleep "$seconds"; idle=$(awk -v a="$before" -v b="$(cpu_seconds "$factory")" 'BEGIN { print b - a }')
start_bench_tool "$TMPDIR/tool-live.log"
"$ctl" reports >"$TMPDIR/reports-live.log" 2>&1 &
reports_pid=$!
id=100
while read -r px py pw ph; do
  "$ctl" capture "$(( px + pw / 2 )),$(( py + ph / 2 ))" "$TMPDIR/live-$id.ini" >/dev/null
  "$ctl" watch "$id" "$TMPDIR/live-$id.ini" >/dev/null
  id=$(( id + 1 ))
done <"$TMPDIR/points.txt"
live_wait_for 20 sh -c "[ \$(wc -l < '$TMPDIR/reports-live.log') -ge 8 ]" || true
tool_before=$(cpu_seconds "$tool_pid"); app_before=$(cpu_seconds "$factory")
sleep "$seconds"
tool_used=$(awk -v a="$tool_before" -v b="$(cpu_seconds "$tool_pid")" 'BEGIN { print b - a }')
app_used=$(awk -v a="$app_before" -v b="$(cpu_seconds "$factory")" 'BEGIN { print b - a }')
awk -v t="$tool_used" -v a="$app_used" -v i="$idle" -v s="$seconds" -v r="$(grep -c found "$TMPDIR/reports-live.log")" 'BEGIN {
  printf "collections 8, reports %d (all found)\n", r
  printf "tool: %.2f s CPU in %d s, %.2f %% of one core\n", t, s, 100 * t / s
  printf "gtk3-widget-factory: %.2f s CPU with the tool, %.2f s without, %.2f %% of one core caused by the tool\n", a, i, 100 * (a - i) / s }'
kill "$reports_pid" 2>/dev/null || true
kill -TERM "$tool_pid"; wait "$tool_pid" 2>/dev/null || true

echo
echo "== the tool watching 1000 collections on a virtual desktop: resident memory, and the CPU time of"
echo "   one tick (one resolution of one collection; a tick every 125 ms at this size)"
desktop=tests/fixtures/capture-desktop.json
"$ctl" capture --desktop "$desktop" 140,160 "$TMPDIR/mute.ini" >/dev/null
UIET_ACCESSIBILITY="virtual:$PWD/$desktop" start_bench_tool "$TMPDIR/tool-virtual.log"
rss_empty=$(resident_kb "$tool_pid")
for id in $(seq 1 1000); do "$ctl" watch "$id" "$TMPDIR/mute.ini" >/dev/null; done
rss_full=$(resident_kb "$tool_pid")
tool_before=$(cpu_seconds "$tool_pid")
sleep "$seconds"
tool_used=$(awk -v a="$tool_before" -v b="$(cpu_seconds "$tool_pid")" 'BEGIN { print b - a }')
awk -v e="$rss_empty" -v f="$rss_full" -v t="$tool_used" -v s="$seconds" 'BEGIN {
  printf "resident: %d kB watching nothing, %d kB watching 1000 (%.1f kB per collection)\n", e, f, (f - e) / 1000
  printf "CPU: %.2f s in %d s, %.2f %% of one core; %.3f ms per tick (%d ticks)\n", t, s, 100 * t / s, 1000 * t / (s * 8), s * 8 }'
kill -TERM "$tool_pid"; wait "$tool_pid" 2>/dev/null || true

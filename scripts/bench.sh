#!/usr/bin/env bash
# Builds the plain flavour and runs the benchmarks, with a private temporary directory for the
# files of the byte array codec.
#   scripts/bench.sh [ELEMENT_COUNT ...]
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
scripts/build.sh plain bench_commandLoad bench_hitTesting bench_translationMapping bench_liveWalk bench_liveQuestions bench_capture bench_resolution liveFixtureApp dbusCallCounter | tail -n 1

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

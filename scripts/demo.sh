#!/usr/bin/env bash
# The tool and its peer at work on a private headless desktop (Xvfb, a session bus with the
# accessibility bus) where a real application runs, gtk3-widget-factory: starts ui-element-tool
# and `ui-element-ctl reports`, sends commands with `ui-element-ctl send`, and shows the answers
# and the tool's log; then reads the application through the accessibility layer with
# `ui-element-ctl tree` and `at`, captures a toggle button of its first page into a file with
# `capture`, shows and edits the description (`show`, `edit`), and has a tool watch it. The
# button then comes and goes as a user would make it: the application switches to its second
# page (the tool reports "not found") and back ("found"), quits ("not found") and starts again
# ("found"), each report printed with the time it came. On the way: `window`, `raise`,
# `focused`, the running applications and their changes as another application starts and quits
# (`apps`, `app-events`), and the window zoomed and closed through the window manager (openbox).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
scripts/build.sh plain ui-element-tool ui-element-ctl | tail -n 1

work=$(mktemp -d /tmp/uiet-demo-XXXXXX)
export TMPDIR=$work
tool_pid=""; reports_pid=""
source scripts/lib/live-session.sh
cleanup() {
  stop_live_session
  [ -n "$reports_pid" ] && kill "$reports_pid" 2>/dev/null || true
  [ -n "$tool_pid" ] && kill -TERM "$tool_pid" 2>/dev/null && wait "$tool_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

ctl=build/src/ctl/ui-element-ctl
echo "== the live desktop: Xvfb, a session bus with the accessibility bus, openbox and gtk3-widget-factory"
start_live_session "$work/live"
live_start gtk3-widget-factory
live_wait_for_tree "$ctl" gtk3-widget-factory 'AXRadioButton "Page 2"'
live_start_window_manager

start_tool() { # LOG
  build/src/tool/ui-element-tool >"$1" 2>&1 &
  tool_pid=$!
  for _ in $(seq 50); do grep -q "tool running" "$1" && break; sleep 0.1; done
}
stop_tool() { # LOG: ends the tool with SIGTERM and shows its log
  echo "== stopping the tool with SIGTERM"
  kill -TERM "$tool_pid"; wait "$tool_pid" && echo "   exit status $?"
  tool_pid=""
  echo "== the tool's log"
  sed 's/^/   /' "$1"
}

echo "== starting ui-element-tool (log in $work/tool.log)"
start_tool "$work/tool.log"
echo "== starting ui-element-ctl reports  (each report with the time it came)"
"$ctl" reports > >(while IFS= read -r line; do printf '%s %s\n' "$(date +%T.%3N)" "$line"; done \
  >"$work/reports.log") 2>&1 &
reports_pid=$!

# A start command as the settings file lays it out: the collection under [elements], its list
# of elements below it. A description with nothing but a child index names no application: the
# tool finds it nowhere and reports "not found" once.
printf '[General]\ncommand=1\nid=9\n\n[elements]\nelements\\0\\childIndex=3\n' >"$work/start.ini"
echo "== ui-element-ctl send start.ini  (start watching id 9: a collection of one element)"
"$ctl" send "$work/start.ini"
echo "== ui-element-ctl send start.ini  (again: the id is in use)"
"$ctl" send "$work/start.ini"
sleep 2.2
echo "== ui-element-ctl stop 9"
"$ctl" stop 9
echo "== ui-element-ctl stop 42          (not watched)"
"$ctl" stop 42

printf '[General]\ncommand=7\nid=1\n' >"$work/bad.ini"
echo "== ui-element-ctl send bad.ini    (an unknown command)"
"$ctl" send "$work/bad.ini"

sleep 0.5
stop_tool "$work/tool.log"
echo "== what ui-element-ctl reports saw"
sed 's/^/   /' "$work/reports.log"

echo
live_wait_for_tree "$ctl" gtk3-widget-factory 'AXRadioButton "Page 2"'
"$ctl" tree gtk3-widget-factory >"$work/tree.txt"
echo "== ui-element-ctl tree gtk3-widget-factory   ($(wc -l <"$work/tree.txt") lines; the first 25)"
head -n 25 "$work/tree.txt" | sed 's/^/   /'
# The middle of an element of the tree, from its frame: ELEMENT is the role and title as the tree
# shows them.
middle_of() {
  local x y w h
  read -r x y w h < <(grep -m 1 -F "$1" "$work/tree.txt" \
    | sed -E 's/.* (-?[0-9]+),(-?[0-9]+) ([0-9]+)x([0-9]+)$/\1 \2 \3 \4/')
  echo "$(( x + w / 2 )),$(( y + h / 2 ))"
}
toggle=$(middle_of 'AXCheckBox "togglebutton"')
page1=$(middle_of 'AXRadioButton "Page 1"')
page2=$(middle_of 'AXRadioButton "Page 2"')
# Waits until the tool has sent COUNT reports for id 10, and shows the newest.
report_count=0
next_report() {
  report_count=$(( report_count + 1 ))
  live_wait_for 15 sh -c "[ \$(grep -c ' 10 ' '$work/reports.log') -ge $report_count ]" || true
  echo "   the tool reported: $(grep ' 10 ' "$work/reports.log" | sed -n "${report_count}p")"
}
echo "== ui-element-ctl at $toggle   (the first toggle button of page 1, and its ancestors)"
"$ctl" at "$toggle" | sed 's/^/   /'
echo "== ui-element-ctl capture $toggle toggle.ini   (its description, the application first; the first lines)"
"$ctl" capture "$toggle" "$work/toggle.ini" | head -n 12 | sed 's/^/   /'
echo "== ui-element-ctl show toggle.ini   (as a person reads it; the element's own level)"
"$ctl" show "$work/toggle.ini" >"$work/show.txt"
head -n 1 "$work/show.txt" | sed 's/^/   /'
sed -n '/^  level 7:/,$p' "$work/show.txt" | sed 's/^/   /'
echo "== ui-element-ctl edit toggle.ini --matching strict"
echo "   (built-in matching compares a level's attributes but not its title, so on page 2 another"
echo "   toggle button in the same place would stand in for this one; strict matching asks the"
echo "   title as well)"
"$ctl" edit "$work/toggle.ini" --matching strict | sed 's/^/   /'
echo "== starting ui-element-tool again (log in $work/tool-capture.log)"
start_tool "$work/tool-capture.log"
echo "== ui-element-ctl watch 10 toggle.ini   (the tool watches the description: is the button on screen?)"
"$ctl" watch 10 "$work/toggle.ini"
next_report
echo "== ui-element-ctl press $page2   (the user switches the widget factory to page 2: the button is hidden)"
"$ctl" press "$page2" | sed 's/^/   /'
next_report
echo "== ui-element-ctl press $page1   (back to page 1: the button shows again)"
"$ctl" press "$page1" | sed 's/^/   /'
next_report
echo "== ui-element-ctl window $toggle   (the window there, with its application)"
"$ctl" window "$toggle" | sed 's/^/   /'
echo "== ui-element-ctl raise $toggle   (the window comes to the front, with the focus)"
"$ctl" raise "$toggle" | sed 's/^/   /'
echo "== ui-element-ctl focused"
"$ctl" focused | sed 's/^/   /'
echo "== ui-element-ctl apps   (the running applications, the frontmost first)"
"$ctl" apps | sed 's/^/   /'
echo "== ui-element-ctl app-events 10   (while gtk3-icon-browser starts, takes the front and quits)"
"$ctl" app-events 10 >"$work/events.log" 2>&1 &
events_pid=$!
live_wait_for 5 grep -q . "$work/events.log" || true
gtk3-icon-browser >/dev/null 2>&1 &
browser_pid=$!
live_wait_for 30 sh -c "'$ctl' apps | grep -q gtk3-icon-browser" || true
"$ctl" apps | sed 's/^/   apps: /'
sleep 1
kill "$browser_pid"; wait "$browser_pid" 2>/dev/null || true
live_wait_for 10 sh -c "! '$ctl' apps | grep -q gtk3-icon-browser" || true
sleep 1
kill "$events_pid" 2>/dev/null; wait "$events_pid" 2>/dev/null || true
sed 's/^/   /' "$work/events.log"
echo "== ui-element-ctl zoom $page2   (the header bar's Maximize button, through the window manager)"
"$ctl" zoom "$page2" 2>/dev/null | sed 's/^/   /'
echo "== ui-element-ctl zoom $page2   (and back)"
"$ctl" zoom "$page2" 2>/dev/null | sed 's/^/   /'
echo "== ui-element-ctl close $page2   (the user closes the window, and gtk3-widget-factory quits)"
"$ctl" close "$page2" 2>/dev/null | sed 's/^/   /'
next_report
echo "== starting gtk3-widget-factory again   (the button is back on screen once the application is up)"
live_start gtk3-widget-factory
next_report
echo "== all that ui-element-ctl reports saw for id 10, with the times"
grep ' 10 ' "$work/reports.log" | sed 's/^/   /'
echo "== ui-element-ctl stop 10"
"$ctl" stop 10
sleep 0.5
stop_tool "$work/tool-capture.log"

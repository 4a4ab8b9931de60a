#!/usr/bin/env bash
# The tool and its peer at work on a private headless desktop (Xvfb, a session bus with the
# accessibility bus) where a real application runs, gtk3-widget-factory: starts ui-element-tool
# and `ui-element-ctl reports`, sends commands with `ui-element-ctl send`, and shows the answers
# and the tool's log; then reads the application through the accessibility layer with
# `ui-element-ctl tree` and `at`, captures a button of it into a file with `capture` and has a
# tool watch that file (`watch`: the tool reports the button found), looks at it with `window`
# and `focused`, presses the button, lists the running applications and shows their changes as
# another application starts and quits (`apps`, `app-events`), and acts on its window through the
# window manager (openbox) with `zoom` and `close`, after which the tool reports the button gone.
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
echo "== starting ui-element-ctl reports"
"$ctl" reports >"$work/reports.log" 2>&1 &
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
# The middle of the "Page 2" button, from its frame in the tree.
read -r x y w h < <(grep -m 1 'AXRadioButton "Page 2"' "$work/tree.txt" \
  | sed -E 's/.* (-?[0-9]+),(-?[0-9]+) ([0-9]+)x([0-9]+)$/\1 \2 \3 \4/')
point="$(( x + w / 2 )),$(( y + h / 2 ))"
echo "== ui-element-ctl at $point   (the element there and its ancestors)"
"$ctl" at "$point" | sed 's/^/   /'
echo "== ui-element-ctl capture $point page2.ini   (the button's description, the application first)"
"$ctl" capture "$point" "$work/page2.ini" | sed 's/^/   /'
echo "== starting ui-element-tool again (log in $work/tool-capture.log)"
start_tool "$work/tool-capture.log"
echo "== ui-element-ctl watch 10 page2.ini   (the tool watches the captured description)"
"$ctl" watch 10 "$work/page2.ini"
live_wait_for 10 grep -q '^10 ' "$work/reports.log" || true
echo "== what ui-element-ctl reports saw: the tool found the button"
grep '^10 ' "$work/reports.log" | sed 's/^/   /'
echo "== ui-element-ctl window $point   (the window there, with its application)"
"$ctl" window "$point" | sed 's/^/   /'
echo "== ui-element-ctl press $point   (the stack switches to Page 2)"
"$ctl" press "$point" | sed 's/^/   /'
echo "== ui-element-ctl raise $point   (the window comes to the front, with the focus)"
"$ctl" raise "$point" | sed 's/^/   /'
echo "== ui-element-ctl focused"
"$ctl" focused | sed 's/^/   /'
echo "== ui-element-ctl window --json $point"
"$ctl" window --json "$point" | sed 's/^/   /'
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
echo "== ui-element-ctl zoom $point   (the header bar's Maximize button, through the window manager)"
"$ctl" zoom "$point" 2>/dev/null | sed 's/^/   /'
echo "== ui-element-ctl zoom $point   (and back)"
"$ctl" zoom "$point" 2>/dev/null | sed 's/^/   /'
echo "== ui-element-ctl close $point   (the window closes, and gtk3-widget-factory with it)"
"$ctl" close "$point" 2>/dev/null | sed 's/^/   /'
live_wait_for 10 sh -c "[ \$(grep -c '^10 ' '$work/reports.log') -ge 2 ]" || true
echo "== what ui-element-ctl reports saw: the button was found, and is gone with its window"
grep '^10 ' "$work/reports.log" | sed 's/^/   /'
echo "== ui-element-ctl stop 10"
"$ctl" stop 10
sleep 0.5
stop_tool "$work/tool-capture.log"

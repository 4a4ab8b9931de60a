#!/usr/bin/env bash
# The tool and its peer at work: starts ui-element-tool and `ui-element-ctl reports`, sends
# commands with `ui-element-ctl send`, and shows the answers and the tool's log.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
scripts/build.sh plain ui-element-tool ui-element-ctl | tail -n 1

work=$(mktemp -d /tmp/uiet-demo-XXXXXX)
export TMPDIR=$work
tool_pid=""; reports_pid=""
cleanup() {
  [ -n "$reports_pid" ] && kill "$reports_pid" 2>/dev/null || true
  [ -n "$tool_pid" ] && kill -TERM "$tool_pid" 2>/dev/null && wait "$tool_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

ctl=build/src/ctl/ui-element-ctl
echo "== starting ui-element-tool (log in $work/tool.log)"
build/src/tool/ui-element-tool >"$work/tool.log" 2>&1 &
tool_pid=$!
echo "== starting ui-element-ctl reports"
"$ctl" reports >"$work/reports.log" 2>&1 &
reports_pid=$!
for _ in $(seq 50); do grep -q "tool running" "$work/tool.log" && break; sleep 0.1; done

printf '[General]\ncommand=2\nid=42\n' >"$work/stop.ini"
echo "== ui-element-ctl send stop.ini   (stop watching id 42, which is not watched)"
"$ctl" send "$work/stop.ini"

printf '[General]\ncommand=1\nid=7\n' >"$work/start.ini"
echo "== ui-element-ctl send start.ini  (start watching id 7, but the command holds no collection)"
"$ctl" send "$work/start.ini"

printf '[General]\ncommand=7\nid=1\n' >"$work/bad.ini"
echo "== ui-element-ctl send bad.ini    (an unknown command)"
"$ctl" send "$work/bad.ini"

sleep 0.5
echo "== stopping the tool with SIGTERM"
kill -TERM "$tool_pid"; wait "$tool_pid" && echo "   exit status $?"
tool_pid=""
echo "== the tool's log"
sed 's/^/   /' "$work/tool.log"
echo "== what ui-element-ctl reports saw"
sed 's/^/   /' "$work/reports.log"

#!/usr/bin/env bash
# Runs the UI element tool, built with AddressSanitizer and UndefinedBehaviorSanitizer, for
# MINUTES (default 20) on a virtual desktop under load: 1000 watched collections, a fixture that
# changes, busy applications, elements that die in the middle of a walk, storms of start and stop
# commands, and a report peer that goes away and comes back. Prints the figures at the end and
# exits 1 when the tool crashed, a sanitizer spoke, platform objects were left alive, or a report
# contradicted the desktop.
#   scripts/soak.sh [MINUTES]
set -euo pipefail
cd "$(dirname "$0")/.."

minutes=${1:-20}
scripts/bootstrap.sh
scripts/build.sh asan ui-element-tool | tail -n 1
scripts/build.sh plain ui-element-ctl | tail -n 1
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS="suppressions=$PWD/scripts/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=print_stacktrace=1
export QT_QPA_PLATFORM=offscreen
exec python3 scripts/lib/soak.py "$minutes" "$PWD/build-asan/src/tool/ui-element-tool" \
  "$PWD/build/src/ctl/ui-element-ctl"

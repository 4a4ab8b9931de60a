#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test.
#   scripts/test.sh            the plain build
#   scripts/test.sh --asan     the build with AddressSanitizer and UndefinedBehaviorSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."

flavour=plain
[ "${1:-}" = "--asan" ] && flavour=asan

scripts/bootstrap.sh
scripts/build.sh "$flavour"

dir=build
[ "$flavour" = asan ] && dir=build-asan
export QT_QPA_PLATFORM=offscreen
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$dir" --output-on-failure -j2

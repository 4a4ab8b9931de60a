#!/usr/bin/env bash
# Builds the plain flavour and runs the benchmarks, with a private temporary directory for the
# files of the byte array codec.
#   scripts/bench.sh [ELEMENT_COUNT ...]
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
scripts/build.sh plain bench_commandLoad | tail -n 1

TMPDIR=$(mktemp -d /tmp/uiet-bench-XXXXXX)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
echo "== loading a start command (times are the fastest of several runs)"
build/bench/bench_commandLoad "$@"

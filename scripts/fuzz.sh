#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for a while from its seeds.
#   scripts/fuzz.sh [SECONDS_PER_TARGET]   (default 60)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
scripts/bootstrap.sh
scripts/build.sh fuzz >/dev/null

export QT_QPA_PLATFORM=offscreen
# The targets that read commands go through temporary files: keep them apart from anything else.
TMPDIR=$(mktemp -d /tmp/uiet-fuzz-XXXXXX)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
status=0
for target in build-fuzz/fuzz/fuzz_*; do
  [ -f "$target" ] && [ -x "$target" ] || continue
  name=$(basename "$target"); name=${name#fuzz_}
  corpus=$(mktemp -d "$TMPDIR/corpus-XXXXXX")
  [ -d "fuzz/seeds/$name" ] && cp -r "fuzz/seeds/$name/." "$corpus/"
  # The desktops of the tests are seeds as well.
  [ "$name" = desktopFixture ] && cp tests/fixtures/*.json "$corpus/"
  echo "== fuzzing $name for ${seconds}s"
  if ! "$target" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$corpus/" "$corpus" \
        >"$corpus.log" 2>&1; then
    echo "fuzz target $name found a fault; its log and input:"
    tail -n 60 "$corpus.log"
    for artifact in "$corpus"/crash-* "$corpus"/leak-* "$corpus"/timeout-* "$corpus"/oom-*; do
      [ -f "$artifact" ] && { echo "$(basename "$artifact") (base64):"; base64 "$artifact"; }
    done
    status=1
  else
    grep -E '^stat::(number_of_executed_units|new_units_added)' "$corpus.log" || true
  fi
  rm -rf "$corpus" "$corpus.log"
done
exit $status

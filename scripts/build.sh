#!/usr/bin/env bash
# Configures and builds one flavour of the project into build/ (plain), build-asan/ (with
# AddressSanitizer and UndefinedBehaviorSanitizer) or build-fuzz/ (clang, libFuzzer targets).
#   scripts/build.sh [plain|asan|fuzz] [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."

flavour=${1:-plain}
[ $# -gt 0 ] && shift
targets=()
for target in "$@"; do targets+=(--target "$target"); done
case "$flavour" in
  plain) dir=build; args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
  asan)  dir=build-asan; args=(-DCMAKE_BUILD_TYPE=Debug -DUIET_SANITIZE=ON) ;;
  fuzz)  dir=build-fuzz; args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DUIET_FUZZ=ON -DUIET_TESTS=OFF
                               -DCMAKE_CXX_COMPILER=clang++) ;;
  *) echo "usage: scripts/build.sh [plain|asan|fuzz]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${args[@]}" >/dev/null
cmake --build "$dir" "${targets[@]}" -- -j"$(nproc)"

#!/usr/bin/env bash
# Sets up everything (packages, build) and runs the whole test suite.
#   scripts/test.sh              Release build
#   scripts/test.sh --sanitize   the same suite under ASan+UBSan
set -euo pipefail
cd "$(dirname "$0")/.."
case "${1:-}" in
  -h|--help) sed -n '2,4p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
esac
scripts/setup.sh "$@"
dir=build
[ "${1:-}" = --sanitize ] && dir=build-asan
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$dir" --output-on-failure -j "$(nproc 2>/dev/null || echo 2)"

#!/usr/bin/env bash
# Runs every libFuzzer target the `fuzz` preset built for a short time on its seed corpus, as CI
# does: long enough to catch a regression on known shapes of input, not to search anew (that is
# the long run in docs/security.md). The corpus is copied, so the seeds in the tree never change.
# Usage: tests/fuzz/run_briefly.sh [seconds per target, default 30]
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds="${1:-30}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

found=0
for target in build-fuzz/tests/fuzz/*_fuzz; do
  [ -x "$target" ] || continue
  found=1
  name="$(basename "$target" _fuzz)"
  mkdir -p "$work/$name"
  if [ -d "tests/fuzz/corpus/$name" ]; then cp -r "tests/fuzz/corpus/$name/." "$work/$name/"; fi
  echo "fuzzing $name for ${seconds}s"
  # A finding stops the target with a non-zero status and leaves the input in $work.
  (cd "$work" && "$OLDPWD/$target" -max_total_time="$seconds" -print_final_stats=1 "$name" \
    2>"$work/$name.log") || { tail -n 40 "$work/$name.log"; exit 1; }
  grep -E "^stat::number_of_executed_units" "$work/$name.log" || true
done
if [ "$found" -eq 0 ]; then
  echo "no fuzz targets under build-fuzz/tests/fuzz: build the fuzz preset first" >&2
  exit 1
fi

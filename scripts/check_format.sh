#!/usr/bin/env bash
# Fails when a tracked C or C++ file differs from what clang-format makes of it
# (.clang-format at the root). Prints the files; `scripts/check_format.sh --fix`
# formats them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.c' '*.cc' '*.cpp' '*.h')
if [[ ${1:-} == --fix ]]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=0
for f in "${files[@]}"; do
  if ! clang-format --dry-run --Werror "$f" >/dev/null 2>&1; then
    echo "not formatted: $f (run scripts/check_format.sh --fix)" >&2
    bad=1
  fi
done
exit "$bad"

#!/usr/bin/env bash
# Counts the non-blank, non-comment lines of the tracked tests and of the
# tracked code (sources, Python package, benchmarks, fuzz targets, scripts)
# and prints their ratio, for keeping the tests lean.
set -euo pipefail
cd "$(dirname "$0")/.."
count() {
  git ls-files "$@" | grep -E '\.(c|cc|cpp|h|py|sh)$' | xargs cat |
    grep -cvE '^\s*(//.*|#.*|\*.*|/\*.*)?$'
}
tests=$(count tests python/tests)
code=$(count src python bench fuzz scripts ':!python/tests')
echo "tests $tests lines, code $code lines: tests are $((100 * tests / code))% of the code"

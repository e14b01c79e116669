#!/usr/bin/env bash
# Compares the symbols the module image exports with the list of routines and
# records it must export (one name a line, sorted).  Prints the difference and
# fails when there is one.  Names that begin with two underscores are the
# compiler's and the sanitizers' (ODR indicators, instrumentation), not the
# module's.
#   scripts/check_exports.sh build/libqorfmsm.so tests/module_exports.txt
set -euo pipefail
image=$1
list=$2
if ! diff <(nm -D --defined-only "$image" | awk '$NF !~ /^__/ {print $NF}' | LC_ALL=C sort) <(LC_ALL=C sort "$list"); then
  echo "the exports of $image differ from $list ('<' exported, not listed; '>' listed, not exported)" >&2
  exit 1
fi

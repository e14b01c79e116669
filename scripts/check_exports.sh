#!/usr/bin/env bash
# Compares the symbols the module image exports with the list of routines and
# records it must export (one name a line, sorted).  Prints the difference and
# fails when there is one.  Names that begin with two underscores are the
# compiler's and the sanitizers' (ODR indicators, instrumentation), not the
# module's.  Given the module's C header as well, compares the names it
# declares (each declaration begins at the start of a line after its
# `extern "C" {`) with the list too.
#   scripts/check_exports.sh build/libqorfmsm.so tests/module_exports.txt [src/module/qorfmsm.h]
set -euo pipefail
image=$1
list=$2
header=${3:-}
if ! diff <(nm -D --defined-only "$image" | awk '$NF !~ /^__/ {print $NF}' | LC_ALL=C sort) <(LC_ALL=C sort "$list"); then
  echo "the exports of $image differ from $list ('<' exported, not listed; '>' listed, not exported)" >&2
  exit 1
fi
if [[ -n $header ]]; then
  declared() {
    sed -n '/^extern "C" {$/,$p' "$header" | grep -E '^[A-Za-z]' | grep -v '^extern "C"' |
      sed -E 's/\(.*//; s/\[[0-9]*\];?$//; s/;$//; s/.*[ *]([A-Za-z_][A-Za-z0-9_]*)$/\1/' | LC_ALL=C sort
  }
  if ! diff <(declared) <(LC_ALL=C sort "$list"); then
    echo "the declarations of $header differ from $list ('<' declared, not listed; '>' listed, not declared)" >&2
    exit 1
  fi
fi

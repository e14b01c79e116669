#!/usr/bin/env bash
# Mutation check: does the test suite notice small faults in the code?
#
#   scripts/mutate.sh [-l LIST] [-d DIR] [-R REGEX] [-o REPORT] [-t TIMEOUT] [NAME_FILTER]
#
# Each row of LIST (default scripts/mutations.txt) names one small fault:
#
#   name <TAB> file <TAB> original text <TAB> replacement text
#
# "\n", "\t" and "\\" in the two texts stand for a newline, a tab and a
# backslash; lines that are blank or start with '#' are skipped. The original
# text must occur exactly once in the file, otherwise the row is reported as
# STALE and skipped (the code moved on; update the row).
#
# The working tree (tracked and untracked files, not ignored ones) is copied
# to DIR/tree (default build-mutate/tree), built once in DIR/tree/build, then
# every mutation is applied to the copy alone, the tree is rebuilt
# incrementally and the tests run (all of ctest, or those matching -R). A
# mutation is KILLED when a test fails, SURVIVED when all pass, and NO-BUILD
# when it does not compile (not counted). Every test may run TIMEOUT seconds
# (-t, default 60); a mutation that makes a test run longer is KILLED and
# its report line says "timeout". The copy's file is restored after
# every row, also when the script is interrupted; the working tree itself is
# never written. NAME_FILTER, if given, is a regular expression that selects
# rows by name.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
list=$root/scripts/mutations.txt
dir=$root/build-mutate
regex=""
report=""
timeout=60
while getopts "l:d:R:o:t:h" opt; do
  case $opt in
    l) list=$(realpath "$OPTARG") ;;
    d) dir=$(realpath -m "$OPTARG") ;;
    R) regex=$OPTARG ;;
    o) report=$(realpath -m "$OPTARG") ;;
    t) timeout=$OPTARG ;;
    *) sed -n '2,25p' "$0" | sed 's/^# \{0,1\}//'; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
filter=${1:-}
[ -f "$list" ] || { echo "mutate: no mutation list at $list" >&2; exit 2; }
tree=$dir/tree
build=$tree/build
report=${report:-$dir/report.txt}
mkdir -p "$tree"

# Sync the copy: only files whose content differs are copied, so that the
# copy's build stays incremental; files gone from the working tree go.
python3 - "$root" "$tree" <<'PY'
import os, subprocess, sys, shutil, filecmp
root, tree = sys.argv[1], sys.argv[2]
files = subprocess.run(["git", "-C", root, "ls-files", "-co", "--exclude-standard", "-z"],
                       check=True, capture_output=True).stdout.decode().split("\0")
files = {f for f in files if f and os.path.isfile(os.path.join(root, f))}
for f in files:
    s, d = os.path.join(root, f), os.path.join(tree, f)
    if not os.path.exists(d) or not filecmp.cmp(s, d, shallow=False):
        os.makedirs(os.path.dirname(d), exist_ok=True)
        shutil.copyfile(s, d)
    shutil.copymode(s, d)  # scripts the tests run keep their execute bit
manifest = os.path.join(tree, ".mutate-files")
if os.path.exists(manifest):
    for f in open(manifest).read().split("\0"):
        if f and f not in files and os.path.exists(os.path.join(tree, f)):
            os.remove(os.path.join(tree, f))
open(manifest, "w").write("\0".join(sorted(files)))
PY

# Tests do not relink when a shared library they load changes: a mutation in
# the module rebuilds one object and one library. Configuring again is cheap
# and keeps the per-test timeout current.
cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DESF_BENCH=OFF \
  -DCMAKE_LINK_DEPENDS_NO_SHARED=ON -DESF_TEST_TIMEOUT="$timeout" >/dev/null
echo "mutate: building the unmutated copy in $build"
cmake --build "$build" -j2 >"$dir/build.log" 2>&1 || { echo "mutate: the unmutated tree does not build (see $dir/build.log)" >&2; exit 1; }

run_tests() {
  local args=(--test-dir "$build" -j2 --stop-on-failure --timeout "$timeout")
  [ -n "$regex" ] && args+=(-R "$regex")
  ctest "${args[@]}" >"$dir/ctest.log" 2>&1
}
run_tests || { echo "mutate: the unmutated tree fails its tests (see $dir/ctest.log)" >&2; exit 1; }

# apply FILE ORIGINAL REPLACEMENT -> 0 applied, 3 stale. The backup sits in
# $dir/backup until restore puts it back.
apply() {
  python3 - "$@" <<'PY'
import sys
def unescape(s):
    out, i = [], 0
    while i < len(s):
        if s[i] == "\\" and i + 1 < len(s) and s[i + 1] in "nt\\":
            out.append({"n": "\n", "t": "\t", "\\": "\\"}[s[i + 1]]); i += 2
        else:
            out.append(s[i]); i += 1
    return "".join(out)
path, orig, repl = sys.argv[1], unescape(sys.argv[2]), unescape(sys.argv[3])
try:
    text = open(path, encoding="utf-8").read()
except FileNotFoundError:
    sys.exit(3)
if text.count(orig) != 1:
    sys.exit(3)
open(path, "w", encoding="utf-8").write(text.replace(orig, repl))
PY
}

current=""
restore() {
  if [ -n "$current" ]; then
    # A fresh modification time makes the next build recompile the file.
    cp "$dir/backup" "$tree/$current"
    touch "$tree/$current"
    current=""
  fi
}
trap 'restore' EXIT
trap 'restore; exit 130' INT TERM

: >"$report"
killed=0 survived=0 nobuild=0 stale=0
while IFS=$'\t' read -r -u 3 name file orig repl || [ -n "$name" ]; do
  case $name in '' | '#'*) continue ;; esac
  if [ -n "$filter" ] && ! [[ $name =~ $filter ]]; then continue; fi
  note=""
  if [ ! -f "$tree/$file" ]; then
    verdict=STALE
  else
    cp "$tree/$file" "$dir/backup"
    current=$file
    set +e
    apply "$tree/$file" "$orig" "$repl"
    rc=$?
    set -e
    if [ $rc -ne 0 ]; then
      verdict=STALE
    elif ! cmake --build "$build" -j2 >"$dir/build.log" 2>&1; then
      verdict=NO-BUILD
    elif run_tests; then
      verdict=SURVIVED
    else
      verdict=KILLED
      grep -q '\*\*\*Timeout' "$dir/ctest.log" && note=" (timeout)"
    fi
    restore
  fi
  case $verdict in
    KILLED) killed=$((killed + 1)) ;;
    SURVIVED) survived=$((survived + 1)) ;;
    NO-BUILD) nobuild=$((nobuild + 1)) ;;
    STALE) stale=$((stale + 1)) ;;
  esac
  printf '%-9s %-32s %s%s\n' "$verdict" "$name" "$file" "$note" | tee -a "$report"
done 3<"$list"

# Leave the copy's build unmutated.
cmake --build "$build" -j2 >"$dir/build.log" 2>&1 || true

total=$((killed + survived))
{
  echo
  echo "killed $killed of $total mutations that build ($((total > 0 ? 100 * killed / total : 0))%);" \
    "survived $survived, did not build $nobuild, stale $stale"
} | tee -a "$report"
[ "$survived" -eq 0 ]

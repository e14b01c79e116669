#!/usr/bin/env bash
# Builds everything and runs the whole test suite. Extra arguments go to cmake
# at configure time, e.g. scripts/test.sh -DSANITIZE=ON.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"

# The suite once more under AddressSanitizer and UndefinedBehaviorSanitizer
# (which also replays every fuzzing corpus and walks the injected faults),
# unless the build above was a sanitizer build; ESF_NO_SANITIZE=1 skips it.
case " $* " in
  *SANITIZE*) ;;
  *)
    if [ "${ESF_NO_SANITIZE:-0}" != 1 ]; then
      sanitized=${SANITIZE_BUILD_DIR:-build-sanitize}
      cmake -S . -B "$sanitized" -G Ninja -DCMAKE_BUILD_TYPE=Release -DSANITIZE=ON -DESF_BENCH=OFF -DESF_PYTHON=OFF \
        "$@" >/dev/null
      cmake --build "$sanitized" -j "$(nproc)"
      ctest --test-dir "$sanitized" --output-on-failure -j "$(nproc)"
    fi
    ;;
esac

# The many-series runner's threads under ThreadSanitizer: the libraries and
# the runner's thread test only, in a build directory of their own.
case " $* " in
  *SANITIZE*) ;;
  *)
    tsan=${TSAN_BUILD_DIR:-build-tsan}
    cmake -S . -B "$tsan" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSANITIZE=thread -DESF_BENCH=OFF \
      -DESF_PYTHON=OFF >/dev/null
    cmake --build "$tsan" -j "$(nproc)" --target runner_batch_test
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" "$tsan/runner_batch_test"
    ;;
esac

# The Python package's tests, under the interpreter the build chose.
if [ -f "$build/python/interpreter" ]; then
  python=$(cat "$build/python/interpreter")
  rc=0
  PYTHONPATH="$(cd "$build/python" && pwd)" MPLBACKEND=Agg \
    "$python" -m pytest -q -p no:cacheprovider python/tests || rc=$?
  [ "$rc" -eq 5 ] && rc=0  # no tests collected
  exit "$rc"
fi
echo "Python package not built (see the cmake output): its tests did not run"

#!/bin/bash
# test.sh   the whole test run of `make test`. Each stage prints one line; the last line counts passed and failed tests.
# CORVANE_TEST_STAGES limits it to some stages, by name.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
export JOBS=${JOBS:-$(nproc)}
passed=0
failed=0
stages=${CORVANE_TEST_STAGES:-lint release asan tsan fuzz vm bench}
started=$SECONDS

stage() { # NAME SECONDS-USED PASSED FAILED
  printf '== %-8s %4d s  %d passed, %d failed\n' "$1" "$2" "$3" "$4"
  passed=$((passed + $3))
  failed=$((failed + $4))
}

single() { # NAME COMMAND...   a stage that is one test
  local name=$1 t=$SECONDS
  shift
  if "$@"; then stage "$name" $((SECONDS - t)) 1 0; else stage "$name" $((SECONDS - t)) 0 1; fi
}

ctest_stage() { # PRESET TARGET [CTEST ARGUMENTS...]
  local preset=$1 target=$2 t=$SECONDS xml=build/$1/tests.xml total bad skipped
  shift 2
  if ! tools/build.sh "$preset" "$target" >"build/$preset.log" 2>&1; then
    tail -n 60 "build/$preset.log"
    stage "$preset" $((SECONDS - t)) 0 1
    return
  fi
  rm -f "$xml"
  # most tests wait more than they compute
  ctest --preset "$preset" -j$((2 * JOBS)) --output-junit "$PWD/$xml" "$@" >"build/$preset.ctest.log" 2>&1
  if [ ! -s "$xml" ]; then
    tail -n 60 "build/$preset.ctest.log"
    stage "$preset" $((SECONDS - t)) 0 1
    return
  fi
  total=$(grep -o 'tests="[0-9]*"' "$xml" | head -n1 | tr -dc 0-9)
  bad=$(grep -o 'failures="[0-9]*"' "$xml" | head -n1 | tr -dc 0-9)
  skipped=$(grep -o 'skipped="[0-9]*"' "$xml" | head -n1 | tr -dc 0-9)
  if [ "$bad" -ne 0 ]; then
    grep -A40 -E '\*\*\*Failed|\*\*\*Exception|\*\*\*Timeout|Subprocess aborted' "build/$preset.ctest.log" | head -n 400
    sed -n '/The following tests FAILED/,$p' "build/$preset.ctest.log"
  fi
  [ "${skipped:-0}" -eq 0 ] || echo "   $skipped skipped in $preset"
  stage "$preset" $((SECONDS - t)) $((total - bad - ${skipped:-0})) "$bad"
}

vm_stage() {
  local t=$SECONDS good bad
  tests/vm/run.sh | tee build/vm.log
  good=$(grep -c '^vm: .* ok' build/vm.log)
  bad=$(grep -c '^vm: .* FAILED' build/vm.log)
  [ $((good + bad)) -gt 0 ] || bad=1
  stage vm $((SECONDS - t)) "$good" "$bad"
}

tools/deps.sh build lint demo vm package || exit 1
mkdir -p build
for s in $stages; do
  case $s in
    release) ctest_stage release all ;;
    asan) ctest_stage asan all ;;
    tsan) ctest_stage tsan threaded_tests -L threaded ;;
    lint)
      # the symbol check of lint looks at the release library
      tools/build.sh release corvane >build/release.log 2>&1 || tail -n 60 build/release.log
      single lint tools/lint.sh ;;
    fuzz) single fuzz tools/fuzz.sh 10 ;;
    vm) vm_stage ;;
    bench)
      if tools/build.sh bench >build/bench.log 2>&1; then single bench tools/bench.sh smoke; else tail -n 60 build/bench.log; stage bench 0 0 1; fi ;;
    *) echo "test.sh: unknown stage $s" >&2; exit 2 ;;
  esac
done
echo "total $((SECONDS - started)) s"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]

#!/bin/bash
# lint.sh   every check that needs no run of the product; prints each check, ends with a count of the failed ones.
# A name as argument runs that check alone.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
only=${1:-}
failed=0
jobs=${JOBS:-$(nproc)}

check() { # NAME COMMAND...
  local name=$1 out
  shift
  [ -n "$only" ] && [ "$only" != "$name" ] && return
  if out=$("$@" 2>&1); then
    echo "lint: $name ok"
  else
    printf '%s\nlint: %s FAILED\n' "$out" "$name"
    failed=$((failed + 1))
  fi
}

sources() { git ls-files -z --cached --others --exclude-standard -- "$@"; }

formatting() { sources '*.cpp' '*.h' '*.c' | xargs -0 clang-format --dry-run -Werror; }
spelling() { sources '*.md' '*.cpp' '*.h' '*.c' '*.sh' '*.1' '*.8' | xargs -0 codespell -I tools/spelling-allow.txt; }
shell_scripts() {
  local bad=0
  sources '*.sh' .ci/run 'debian/*.postinst' 'debian/*.postrm' 'debian/*.prerm' | xargs -0 shellcheck -x -S warning || bad=1
  # A completion has no first line that names its shell.
  sources 'packaging/completion/*' | xargs -0 shellcheck -s bash -S warning || bad=1
  return $bad
}
man_pages() {
  local page bad=0 out
  for page in packaging/man/*.[1-8]; do
    out=$(LC_ALL=C.UTF-8 MANWIDTH=100 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
    [ -n "$out" ] && { echo "$page: $out"; bad=1; }
  done
  return $bad
}
# Public headers compile alone, in both languages and with both compilers.
headers_alone() {
  local bad=0 header flags
  flags="-fsyntax-only -Wall -Wextra -Isrc -Iplatform/include $(pkg-config --cflags libcjson)"
  while IFS= read -r -d '' header; do
    # shellcheck disable=SC2086
    g++ -x c++ -std=gnu++20 $flags "$header" 2>&1 | grep -v 'pragma once' | grep . && bad=1
    if ! grep -qE '#include <(c[a-z]+|array|atomic|span|string|string_view|memory|utility|type_traits)>|C\+\+ sources only' "$header" \
        && grep -q 'CORVANE_BEGIN_DECLS\|extern "C"' "$header"; then
      # shellcheck disable=SC2086
      gcc -x c -std=gnu11 $flags "$header" 2>&1 | grep . && bad=1
    fi
  done < <(sources 'src/*.h' 'platform/*.h')
  return $bad
}
# What an outsider finds by name is exactly what the list says: a missing name breaks hosts, a surplus one binds us.
exported_symbols() {
  [ -e build/release/lib/libcorvane.so ] || { echo "build the release preset first"; return 1; }
  diff -u tools/exported-symbols.txt <(nm -D --defined-only build/release/lib/libcorvane.so | awk '{print $3}' | LC_ALL=C sort)
}
duplicate_includes() {
  local f bad=0
  while IFS= read -r -d '' f; do
    grep -hE '^#include' "$f" | sort | uniq -d | grep -q . && { echo "$f includes a header twice"; bad=1; }
  done < <(sources '*.cpp' '*.h')
  return $bad
}
static_analysis() {
  cppcheck -D__cppcheck__ --quiet --error-exitcode=1 --inline-suppr --std=c++20 --enable=warning,performance,portability \
    --suppressions-list=tools/cppcheck-suppressions.txt -j"$jobs" -Isrc -Iplatform/include src platform programs
}
clang_tidy() {
  local status=0
  cmake --preset clang >/dev/null || return 1
  sources 'src/*.cpp' 'platform/*.cpp' 'programs/*.cpp' | xargs -0 -n4 -P"$jobs" clang-tidy --quiet --checks=-clang-analyzer-* -p build/clang >build/clang-tidy.log 2>build/clang-tidy.err || status=$?
  grep -E 'warning:|error:' build/clang-tidy.log && return 1
  # Standard error counts what it suppressed in each file; only of one that failed there is more to read.
  [ "$status" -eq 0 ] || { cat build/clang-tidy.err; echo "clang-tidy did not look at every file: status $status"; return 1; }
}

mkdir -p build
check formatting formatting
check spelling spelling
check shell_scripts shell_scripts
check man_pages man_pages
check headers_alone headers_alone
check duplicate_includes duplicate_includes
check static_analysis static_analysis
check clang_tidy clang_tidy
check exported_symbols exported_symbols
[ "$failed" -eq 0 ]

#!/bin/bash
# install_test.sh BUILD_DIR   installs a built tree into a folder of its own and uses it as an outsider does.
set -uo pipefail
build=$(readlink -f "$1")
source=$(readlink -f "$(dirname "$0")/../../..")
work=$build/install-test
prefix=$work/opt/corvane
failed=0

check() { # WHAT COMMAND...
  local what=$1 out
  shift
  if out=$("$@" 2>&1); then
    echo "ok   $what"
  else
    printf '%s\nFAIL %s\n' "$out" "$what"
    failed=$((failed + 1))
  fi
}

is_there() { # MODE PATH
  [ "$(stat -c %a "$prefix/$2")" = "$1" ]
}
# An installed program finds its libraries without help, and none of the build folder's.
libraries_of() {
  ! ldd "$prefix/bin/$1" | grep -E "not found|$build/lib"
}
# A header that is C compiles as C, any other as C++; nothing but the installed tree and the two named packages is there.
headers_alone() {
  local header bad=0 flags
  read -r -a flags < <(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags corvane libcjson mxml)
  while IFS= read -r -d '' header; do
    if grep -qE '#include <(c[a-z]+|array|atomic|map|memory|span|string|string_view|type_traits|utility|vector)>|^namespace |C\+\+ sources only' "$header"; then
      g++ -x c++ -std=gnu++20 -fsyntax-only -Wno-pragma-once-outside-header "${flags[@]}" "$header" || bad=1
    else
      gcc -x c -std=gnu11 -fsyntax-only -Wall -Wextra "${flags[@]}" "$header" || bad=1
    fi
  done < <(find "$prefix/include" -name '*.h' -print0)
  return "$bad"
}
by_cmake() {
  cmake -S "$prefix/share/corvane/examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" && cmake --build "$work/cmake"
}
by_pkg_config() {
  cp -r "$prefix/share/corvane/examples" "$work/make" && PKG_CONFIG_PATH=$prefix/lib/pkgconfig make -C "$work/make"
}
# A packager's `make install` of what is built: below DESTDIR stands the same tree, which knows nothing of DESTDIR.
final=$(sed -n 's/^CMAKE_INSTALL_PREFIX:[A-Z]*=//p' "$build/CMakeCache.txt")
stage=$work/stage
staged() {
  make -s -C "$source" -o build install INSTALL_FROM="$build" PREFIX="$final" DESTDIR="$stage"
}
staged_tree() {
  diff -r --no-dereference "$prefix" "$stage$final" &&
    diff <(find "$prefix" -printf '%P %y %m\n' | sort) <(find "$stage$final" -printf '%P %y %m\n' | sort)
}
only_below_prefix() {
  [ -z "$(find "$stage" ! -type d ! -path "$stage$final/*")" ]
}
staging_unknown() {
  ! grep -rlF "$stage" "$stage"
}
units_name_prefix() {
  local program
  for program in corvaned corvane-agentd; do
    grep -qE "^ExecStart=$final/bin/$program( |\$)" "$stage$final/lib/systemd/system/$program.service" || return 1
  done
}
# Runs a host in a mount namespace until it has said what is expected.
starts() { # TEXT PROGRAM [ARGUMENT...]
  local expected=$1 said
  shift
  said=$(CORVANE_NS_KEEP=$build "$source/tools/private-ns.sh" bash -c \
    'coproc host { exec "$@" 2>&1; }
     while read -r -t 60 line <&"${host[0]}"; do
       echo "$line"
       case $line in "disks online" | *" disks online" | "work done") break ;; esac
     done
     kill "$host_PID" && wait "$host_PID"; echo "exit $?"' run "$@")
  echo "$said"
  grep -qxF "$expected" <<<"$said" && grep -qx 'exit 0' <<<"$said"
}

rm -rf "$work"
mkdir -p "$work"
check "cmake --install" cmake --install "$build" --prefix "$prefix"
for program in corvaned corvane-agentd corvanectl corvane-sim nordiag; do
  check "$program is installed" is_there 755 "bin/$program"
  check "$program finds its libraries" libraries_of "$program"
done
check "the script is installed" is_there 755 scripts/corvane_log_file_op.sh
for folder in config userconfig_bak; do check "$folder is there" is_there 755 "$folder"; done
for file in config/error_en.xml share/corvane/error_en.xml share/corvane/corvane_config.default.json lib/systemd/system/corvaned.service \
  lib/systemd/system/corvane-agentd.service share/man/man8/corvaned.8 share/bash-completion/completions/corvaned; do
  check "$file is installed" is_there 644 "$file"
done
check "make install with DESTDIR" staged
check "the same tree stands there" staged_tree
check "nothing stands beside it" only_below_prefix
check "it does not know where it was staged" staging_unknown
check "the units name the programs' final place" units_name_prefix
check "headers compile alone" headers_alone
check "pkg-config knows the version" grep -qxF "Version: $("$prefix/bin/corvaned" --version | cut -d' ' -f2)" "$prefix/lib/pkgconfig/corvane.pc"
check "the packages have the version of the programs" grep -qF "corvane ($("$prefix/bin/corvaned" --version | cut -d" " -f2))" "$source/debian/changelog"
check "the examples build with CMake" by_cmake
check "the examples build with pkg-config" by_pkg_config
for how in cmake make; do
  check "start mode 1, built by $how" starts "started on $prefix" "$work/$how/independent_host" "$prefix"
  check "start mode 0, built by $how" starts "started on $prefix" "$work/$how/combined_host"
done
[ "$failed" -eq 0 ] || echo "$failed failed"
[ "$failed" -eq 0 ]

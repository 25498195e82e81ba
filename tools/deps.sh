#!/bin/bash
# deps.sh GROUP...   install the Debian packages of the groups build, demo, lint, vm, package that are missing.
set -euo pipefail

packages=()
for group in "$@"; do
  case $group in
    build) packages+=(g++ make cmake ninja-build pkg-config ccache git libcjson-dev libmxml-dev libspdlog-dev libedit-dev libcli11-dev libgtest-dev libgmock-dev
                      libbenchmark-dev util-linux udev mawk grep procps) ;;
    demo) packages+=(jq util-linux udev mawk grep procps) ;;
    lint) packages+=(clang clang-format clang-tidy llvm libclang-rt-14-dev cppcheck shellcheck codespell man-db gcovr) ;;
    vm) packages+=(qemu-system-x86 busybox-static dash mawk udev util-linux sg3-utils cpio kmod gcc python3 jq strace
                   libcjson-dev smartmontools mmdebstrap e2fsprogs) ;;
    package) packages+=(debhelper dpkg-dev fakeroot lintian) ;;
    *) echo "deps.sh: unknown group '$group' (build, demo, lint, vm, package)" >&2; exit 2 ;;
  esac
done

mapfile -t missing < <(for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$' || echo "$p"
done | sort -u)
[ ${#missing[@]} -eq 0 ] && exit 0

command -v apt-get >/dev/null || { echo "deps.sh: this needs apt-get; install by hand: ${missing[*]}" >&2; exit 1; }
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "deps.sh: become root, or install sudo, or install by hand: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 30 "$log" >&2
  echo "deps.sh: the packages could not be installed, see above" >&2
  exit 1
fi

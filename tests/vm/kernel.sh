#!/bin/bash
# kernel.sh DIR   Debian's kernel with its modules, unpacked below DIR without installing it: nothing of the machine's
# boot set-up changes. Prints the kernel version.
set -euo pipefail
dir=$1
if [ ! -e "$dir/complete" ]; then
  rm -rf "$dir"
  mkdir -p "$dir/deb"
  find_package() { apt-cache depends --no-suggests linux-image-amd64 2>/dev/null | sed -n 's/^ *Depends: \(linux-image-[^ ]*\)$/\1/p' | head -n1; }
  package=$(find_package)
  if [ -z "$package" ]; then
    if [ "$(id -u)" -eq 0 ]; then apt-get update -qq; else sudo apt-get update -qq; fi
    package=$(find_package)
  fi
  [ -n "$package" ] || { echo "kernel.sh: apt knows no linux-image-amd64; check the package sources" >&2; exit 1; }
  chmod 755 "$dir/deb"
  (cd "$dir/deb" && apt-get download -qq -o APT::Sandbox::User=root "$package") >&2
  dpkg-deb -x "$dir"/deb/*.deb "$dir"
  rm -rf "$dir/deb"
  kver=$(basename "$(echo "$dir"/lib/modules/*)")
  /sbin/depmod -b "$dir" "$kver"
  touch "$dir/complete"
fi
basename "$(echo "$dir"/lib/modules/*)"

#!/bin/bash
# run.sh [CASE...]   the virtual machine tests: boots a throw-away guest for each case. Prints one line a case;
# consoles and files of the guest stay in build/vm/results/CASE. BUILD chooses the build folder (build/release);
# KEEP_PACKAGES takes the Debian packages of build/package as they are.
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1
build=$(readlink -f "${BUILD:-build/release}")
export VMLAB_BUILD=$PWD/build/vm VMLAB_KROOT=$PWD/build/vm/kernel
mkdir -p build/vm
tests/vm/kernel.sh "$VMLAB_KROOT" >/dev/null || { echo "vm: kernel FAILED"; exit 1; }

payload=$(mktemp -d)
trap 'rm -rf "$payload" "$payload.debian" "$payload.debian.hosts"' EXIT
mkdir "$payload/bin" "$payload/lib"
cp "$build"/bin/{corvaned,corvane-agentd,corvane-sim} "$payload/bin/" || exit 1
cp -d "$build"/lib/*.so* "$payload/lib/"
strip --strip-unneeded "$payload"/bin/* "$payload"/lib/*
cp tests/vm/cases/lib.sh tests/vm/cases/*.json "$payload/"

# Built once, before guests start side by side.
tests/vm/lab/vmlab --build >/dev/null || exit 1

cases=("$@")
if [ ${#cases[@]} -eq 0 ]; then
  for f in tests/vm/cases/*.sh; do [ "$f" = tests/vm/cases/lib.sh ] || cases+=("$(basename "$f" .sh)"); done
fi

topology_of() { sed -n 's/^# topology: //p' "tests/vm/cases/$1.sh"; }
boots_debian() { grep -q '"root"' "tests/vm/topology/$(topology_of "$1").json"; }

# Cases that boot a Debian root get the packages, and a later version of them with changed defaults.
next_package() { # DEB FOLDER
  local tree
  tree=$(mktemp -d)
  dpkg-deb -R "$1" "$tree" &&
    sed -i -E 's/^Version: .*/&+next/; s/\(= ([^)]*)\)/(= \1+next)/g' "$tree/DEBIAN/control" &&
    if [ -e "$tree/$defaults" ]; then
      jq '. + {added_key: 7} | .sas_hdd.added_in_section = 8 | .sata_ssd_disk.task_cycle = 30' "$tree/$defaults" >"$tree/new" &&
        mv "$tree/new" "$tree/$defaults"
    fi && dpkg-deb --root-owner-group -b "$tree" "$2" >/dev/null
  local rc=$?
  rm -rf "$tree"
  return $rc
}
defaults=opt/corvane/share/corvane/corvane_config.default.json
# The example hosts, built with what the packages hold.
example_hosts() { # FOLDER
  local tree=$1/tree prefix=$1/tree/opt/corvane deb
  mkdir -p "$tree"
  for deb in build/package/libcorvane*.deb; do dpkg-deb -x "$deb" "$tree" || return 1; done
  cmake -S "$prefix/share/corvane/examples" -B "$1/cmake" -DCMAKE_PREFIX_PATH="$prefix" && cmake --build "$1/cmake" &&
    cp -r "$prefix/share/corvane/examples" "$1/make" && PKG_CONFIG_PATH=$prefix/lib/pkgconfig make -C "$1/make"
}
debian=$payload.debian
for name in "${cases[@]}"; do
  if boots_debian "$name" && [ ! -e "$debian" ]; then
    tests/vm/debian-root.sh "$PWD/build/vm/debian-root.img" || { echo "vm: Debian root FAILED"; exit 1; }
    [ -n "${KEEP_PACKAGES:-}" ] || tools/package.sh >build/package.log 2>&1 || { tail -n 40 build/package.log; echo "vm: packages FAILED"; exit 1; }
    mkdir -p "$debian/debs" "$debian/next"
    cp tests/vm/cases/lib.sh "$debian/"
    for deb in build/package/*.deb; do
      cp "$deb" "$debian/debs/" && next_package "$deb" "$debian/next" || { echo "vm: packages FAILED"; exit 1; }
    done
    example_hosts "$debian.hosts" >build/vm/hosts.log 2>&1 || { tail -n 40 build/vm/hosts.log; echo "vm: example hosts FAILED"; exit 1; }
    for how in cmake make; do
      mkdir -p "$debian/hosts/$how"
      cp "$debian.hosts/$how"/{independent,combined}_host "$debian/hosts/$how/"
    done
  fi
done

one() {
  local name=$1 topology out rc payload=$payload start=$SECONDS
  topology=$(topology_of "$name")
  ! boots_debian "$name" || payload=$debian
  out=build/vm/results/$name
  rm -rf "$out"
  mkdir -p "$out"
  tests/vm/lab/vmlab -q -T 600 -t "tests/vm/topology/$topology.json" -s "tests/vm/cases/$name.sh" -p "$payload" -o "$out" 2>"$out/lab.txt"
  rc=$?
  if [ $rc -eq 0 ] && ! grep -q '^FAIL' "$out/console.txt"; then
    echo "vm: $name ok ($(grep -c '^ok ' "$out/console.txt") checks, $((SECONDS - start)) s)"
  else
    { grep -E '^FAIL' "$out/console.txt" || tail -n 40 "$out/console.txt"; cat "$out/lab.txt"; } | sed 's/^/    /'
    echo "vm: $name FAILED (exit $rc; see $out)"
    return 1
  fi
}

bad=0
running=0
for name in "${cases[@]}"; do
  one "$name" &
  running=$((running + 1))
  if [ $running -ge "${VM_JOBS:-1}" ]; then wait -n || bad=1; running=$((running - 1)); fi
done
while [ $running -gt 0 ]; do wait -n || bad=1; running=$((running - 1)); done
exit $bad

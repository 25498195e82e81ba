#!/bin/bash
# run.sh [CASE...]   the virtual machine tests: boots a throw-away guest for each case. Prints one line a case;
# consoles and files of the guest stay in build/vm/results/CASE. BUILD chooses the build folder (build/release).
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1
build=$(readlink -f "${BUILD:-build/release}")
export VMLAB_BUILD=$PWD/build/vm VMLAB_KROOT=$PWD/build/vm/kernel
mkdir -p build/vm
tests/vm/kernel.sh "$VMLAB_KROOT" >/dev/null || { echo "vm: kernel FAILED"; exit 1; }

payload=$(mktemp -d)
trap 'rm -rf "$payload"' EXIT
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

one() {
  local name=$1 topology out rc start=$SECONDS
  topology=$(sed -n 's/^# topology: //p' "tests/vm/cases/$name.sh")
  out=build/vm/results/$name
  rm -rf "$out"
  mkdir -p "$out"
  tests/vm/lab/vmlab -q -T 450 -t "tests/vm/topology/$topology.json" -s "tests/vm/cases/$name.sh" -p "$payload" -o "$out" 2>"$out/lab.txt"
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

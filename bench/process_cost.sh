#!/bin/bash
# process_cost.sh BUILD SECONDS   the cost of a whole corvaned against corvane-sim with 64 disks over that long:
# CPU seconds and system calls a collection cycle, peak memory, threads; and whether live heap blocks grow. The last is
# a verdict (exit code 1), the rest are figures. Runs in a mount namespace of its own.
set -euo pipefail
build=$(readlink -f "$1")
seconds=$2
root=$(readlink -f "$(dirname "$0")/..")
if [ "${3:-}" != inside ]; then exec "$root/tools/private-ns.sh" "$root/bench/process_cost.sh" "$build" "$seconds" inside; fi

work=$(mktemp -d)
prefix=$work/corvane
mkdir -p "$prefix"/{bin,config,userconfig_bak}
chown -R corvane_user:corvane_group "$prefix/config" "$prefix/userconfig_bak"
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || :; done; wait 2>/dev/null || :; rm -rf "$work"; }
trap cleanup EXIT

# Each answer must fit the 8192 bytes that the master takes: corvane-sim serves what a kernel agent would.
"$build/bin/corvane-sim" --scenario "$root/programs/corvane-sim/scenarios/fleet64.json" >"$work/sim.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do [ -S /tmp/dcak.sock ] && [ -S /var/tmp/spdk.sock ] && break; sleep 0.1; done

CORVANE_ALLOC_COUNT=$work/blocks LD_PRELOAD=$build/lib/alloc_count.so "$build/bin/corvaned" --prefix "$prefix" >"$work/corvaned.log" 2>&1 &
pid=$!
pids+=("$pid")

registry=$prefix/config/disk_mgr.config
known() { if [ -e "$registry" ]; then grep -c '"sn"' "$registry" || :; else echo 0; fi; }
# until the number of disks has not changed over two scans
last=-1 same=0
for _ in $(seq 120); do
  disks=$(known)
  if [ "$disks" -ge 1 ] && [ "$disks" = "$last" ]; then same=$((same + 1)); else same=0; fi
  [ "$same" -ge 12 ] && break
  last=$disks
  sleep 1
done
[ "$disks" -ge 1 ] || { echo "process_cost: no disk came online"; tail "$work/corvaned.log" "$work/sim.log"; exit 1; }

ticks=$(getconf CLK_TCK)
cpu() { awk '{print $14 + $15}' "/proc/$pid/stat"; }
start=$(cpu)
t0=$(date +%s.%N)
threads=0
for _ in $(seq $((seconds * 5))); do
  n=$(awk '/^Threads:/{print $2}' "/proc/$pid/status")
  [ "$n" -gt "$threads" ] && threads=$n
  sleep 0.2
done
end=$(cpu)
t1=$(date +%s.%N)
peak=$(awk '/^VmHWM:/{print $2}' "/proc/$pid/status")
idle=$(awk '/^VmRSS:/{print $2}' "/proc/$pid/status")

calls="-"
if command -v strace >/dev/null; then
  timeout -s INT 15 strace -f -c -o "$work/strace" -p "$pid" 2>/dev/null || :
  # five cycles of three seconds
  calls=$(awk '$NF=="total"{print int($(NF-1) ~ /^[0-9]+$/ && NF>4 ? $4/5 : $3/5)}' "$work/strace")
fi

awk -v s="$start" -v e="$end" -v k="$ticks" -v a="$t0" -v b="$t1" -v d="$disks" -v p="$peak" -v r="$idle" -v t="$threads" -v c="$calls" 'BEGIN{
  cycles=(b-a)/3
  printf "disks online                    %d of %s in the scenario\n", d, 64
  printf "measured                        %.0f s, %.0f collection cycles of 3 s\n", b-a, cycles
  printf "CPU seconds a cycle             %.4f (%.2f %% of one core)\n", (e-s)/k/cycles, 100*(e-s)/k/(b-a)
  printf "peak resident memory            %.1f MiB (now %.1f MiB)\n", p/1024, r/1024
  printf "threads, at most                %d\n", t
  printf "system calls a cycle            %s\n", c }'

# Growth: the fewest live blocks of the first third against those of the last third. Requests in flight come and go,
# the fewest do not.
awk '{b[NR]=$2; y[NR]=$3} END{
  skip=8; n=NR-skip; if (n<9) {print "process_cost: too short a run for the growth check"; exit 1}
  lo1=lo2=1e18
  for(i=1;i<=n;i++){v=b[i+skip]; if(i<=n/3&&v<lo1){lo1=v;y1=y[i+skip]} if(i>2*n/3&&v<lo2){lo2=v;y2=y[i+skip]}}
  printf "live heap blocks                %d early, %d late (%d and %d KiB)\n", lo1, lo2, y1/1024, y2/1024
  if (lo2>lo1*1.01+20) {print "process_cost: live heap blocks grow"; exit 1}}' "$work/blocks"

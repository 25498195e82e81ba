#!/bin/bash
# bench.sh full|smoke   run every benchmark of build/bench; "smoke" runs each once, briefly, and the whole process for
# a short time.
set -euo pipefail
cd "$(dirname "$0")/.."
case ${1:-} in
  full) minimum=1; seconds=${CORVANE_COST_SECONDS:-150} ;;
  smoke) minimum=0.01; seconds=30 ;;
  *) echo "usage: bench.sh full|smoke" >&2; exit 2 ;;
esac
awk -F': ' '/^model name/{m=$2} /^processor/{n++} END{printf "machine: %d x %s, ", n, m}' /proc/cpuinfo
awk '/^MemTotal/{printf "%.0f GiB, ", $2/1048576}' /proc/meminfo
uname -r
for program in build/bench/bin/*_bench; do
  "$program" --benchmark_min_time=$minimum 2>/dev/null
done
bench/process_cost.sh build/bench "$seconds"

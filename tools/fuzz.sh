#!/bin/bash
# fuzz.sh SECONDS   build the fuzz targets and run each for that long, starting from its corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
tools/build.sh fuzz fuzz_targets >build/fuzz.log 2>&1 || { tail -n 60 build/fuzz.log; exit 1; }
bad=0
for target in build/fuzz/bin/*_fuzz; do
  name=$(basename "$target" _fuzz)
  work=$(mktemp -d)
  # New inputs go to the scratch folder; the corpus in the tree grows only by hand.
  if "$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=0 -verbosity=0 \
      -artifact_prefix="build/fuzz/$name-" "$work" "tests/fuzz/corpus/$name" >"build/fuzz/$name.log" 2>&1; then
    echo "fuzz: $name ok"
  else
    tail -n 40 "build/fuzz/$name.log"
    echo "fuzz: $name FAILED (input beside build/fuzz/$name-*)"
    bad=1
  fi
  rm -rf "$work"
done
exit $bad

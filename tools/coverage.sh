#!/bin/bash
# coverage.sh   line and branch coverage of the library and the platform by the unit and integration tests.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/build.sh coverage
ctest --preset coverage -j"${JOBS:-$(nproc)}"
mkdir -p build/coverage/report
gcovr -r . --object-directory build/coverage -f src/ -f platform/ --html-details build/coverage/report/index.html --txt build/coverage/report/summary.txt
cat build/coverage/report/summary.txt

#!/bin/bash
# package.sh   build the Debian packages from a copy of the tree and leave them in build/package.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
out=$root/build/package
rm -rf "$out"
mkdir -p "$out/source"

# Tracked files and new ones; what is ignored stays behind.
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' file; do
  [ -e "$file" ] && printf '%s\0' "$file"
done | tar --null -T - -cf - | tar -xf - -C "$out/source"

cd "$out/source"
# The build gets a home of its own; the compiler's cache stays where it is, and its paths are made relative.
cache=$(command -v ccache >/dev/null && ccache -k cache_dir || true)
if ! env ${cache:+CCACHE_DIR="$cache" CCACHE_BASEDIR="$out/source"} \
    DEB_BUILD_OPTIONS="nocheck noautodbgsym parallel=${JOBS:-$(nproc)}" \
    dpkg-buildpackage -b -us -uc >"$out/build.log" 2>&1; then
  tail -n 60 "$out/build.log" >&2
  echo "package.sh: the packages could not be built, see build/package/build.log" >&2
  exit 1
fi
cd "$out"
lintian --allow-root --fail-on error,warning --tag-display-limit 0 -- *.changes
ls -1 -- *.deb

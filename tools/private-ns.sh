#!/bin/bash
# private-ns.sh COMMAND...   run a command as root in a mount namespace of its own: /tmp, /var/tmp and /var/log are empty
# and private, and the accounts corvane_user and corvane_group exist. Nothing outside the namespace changes.
set -euo pipefail
if [ "${CORVANE_NS:-}" != inside ]; then
  run=(unshare --mount --propagation private env CORVANE_NS=inside "$0" "$@")
  if [ "$(id -u)" -eq 0 ]; then exec "${run[@]}"; fi
  command -v sudo >/dev/null || { echo "private-ns.sh: become root or install sudo: a mount namespace is needed" >&2; exit 1; }
  exec sudo "${run[@]}"
fi
unset CORVANE_NS
accounts=$(mktemp -d)
cp /etc/passwd /etc/group "$accounts/"
grep -q '^corvane_group:' "$accounts/group" || echo 'corvane_group:x:64995:' >>"$accounts/group"
grep -q '^corvane_user:' "$accounts/passwd" || echo 'corvane_user:x:64995:64995::/nonexistent:/usr/sbin/nologin' >>"$accounts/passwd"
mount --bind "$accounts/passwd" /etc/passwd
mount --bind "$accounts/group" /etc/group
rm -r "$accounts" # the bind mounts keep the files
# This tree, and a folder that CORVANE_NS_KEEP names, may themselves lie below one of the folders that are about to be
# covered: they are put back where they were.
root=$(readlink -f "$(dirname "$0")/..")
kept=$(readlink -f "${CORVANE_NS_KEEP:-$root}")
exec 3<"$root" 4<"$kept"
for folder in /tmp /var/tmp /var/log; do mount -t tmpfs -o mode=1777 corvane "$folder"; done
put_back() { # FOLDER DESCRIPTOR
  [ ! -e "$1" ] || return 0
  mkdir -p "$1"
  mount --no-canonicalize --bind "/proc/self/fd/$2" "$1" # the descriptor, not the covered path it names
}
put_back "$root" 3
put_back "$kept" 4
exec 3<&- 4<&-
cd "$root"
export NORDIAG_DIR=/tmp/nordiag # sockets of the debug shell; /run is everybody's
exec "$@"

#!/bin/sh
# topology: empty
# corvaned killed at every system call of a registry save, and at random moments: the registry always loads, with every
# disk that it held or the save was to add.
. /payload/lib.sh
install_corvane
corvane-sim --scenario /payload/two-disks.json --no-dcak >/tmp/sim.log 2>&1 & SIM=$!
wait_for 20 test -S /var/tmp/spdk.sock; check "simulator serves" 0 $?
agentrpc_ok() { agentrpc /var/tmp/spdk.sock '{"jsonrpc":"2.0","method":"dca_get_disks_brief_info","id":1}' | grep -q serial_number; }
wait_for 10 agentrpc_ok

# The file as a start of the service sees it: the write-ahead copy when whole, else the file.
loaded() {
  if jq -e type "$REG.wal" >/dev/null 2>&1; then jq -r '[.[].sn]|sort|join(" ")' "$REG.wal"
  elif [ -e "$REG" ]; then jq -r '[.[].sn]|sort|join(" ")' "$REG"
  else echo none; fi
}
n=1 saved=""
while [ $n -le 60 ]; do
  rm -f "$REG" "$REG.wal"
  : >/tmp/corvaned.log
  strace -f -qq -o /tmp/strace.log -P "$REG" -P "$REG.wal" \
    -e "inject=openat,write,chmod,fchmodat,chown,fchownat,unlink,unlinkat,rename,renameat,renameat2,close:signal=KILL:when=$n" \
    corvaned --prefix $P >/tmp/corvaned.log 2>&1 & S=$!
  wait_for 30 '! kill -0 $S 2>/dev/null || [ "$(loaded)" = "KILL-0001 KILL-0002" ] && [ ! -e $REG.wal ]'
  if kill -0 $S 2>/dev/null; then
    # both disks are saved and no call number n ever came
    kill -TERM $S 2>/dev/null; pkill -TERM -P $S 2>/dev/null; wait $S 2>/dev/null
    break
  fi
  wait $S 2>/dev/null
  got=$(loaded)
  case $got in
    none|""|KILL-0001|"KILL-0001 KILL-0002") ;;
    *) check "kill at call $n" "a whole registry" "$got" ;;
  esac
  # once a disk was safely saved, no later kill loses it
  case "$saved:$got" in KILL-0001:none|KILL-0001:|KILL-0001*KILL-0002:none) check "kill at call $n keeps what was saved" "$saved" "$got" ;; esac
  # the next start takes it up and completes it
  corvaned --prefix $P >/tmp/corvaned2.log 2>&1 & C=$!
  wait_for 30 '[ "$(jq -r "[.[].sn]|sort|join(\" \")" $REG 2>/dev/null)" = "KILL-0001 KILL-0002" ]' || check "start after a kill at call $n" "both disks" "$(loaded)"
  stop $C
  n=$((n + 1))
done
check "the save was interrupted at ten calls or more ($((n - 1)))" yes "$([ $n -gt 10 ] && [ $n -le 60 ] && echo yes)"

say "random kills while disks leave and return"
r=0
while [ $r -lt 25 ]; do
  corvaned --prefix $P >/tmp/corvaned.log 2>&1 & C=$!
  sleep "0.$((r * 7 % 10))$((r * 3 % 10))"
  stop $C KILL
  { [ ! -e "$REG" ] && [ ! -e "$REG.wal" ]; } || jq -e 'type=="array"' "$REG" >/dev/null 2>&1 || jq -e 'type=="array"' "$REG.wal" >/dev/null 2>&1 || check "random kill $r" "a registry that loads" "none"
  [ $((r % 3)) -eq 0 ] && rm -f "$REG"
  r=$((r + 1))
done
corvaned --prefix $P >/tmp/corvaned.log 2>&1 & C=$!
wait_for 30 '[ "$(reg_count)" = 2 ]'; check "both disks registered in the end" 2 "$(reg_count)"
stop $C; stop $SIM
finish

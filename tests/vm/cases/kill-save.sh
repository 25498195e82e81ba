#!/bin/sh
# topology: empty
# corvaned killed at every system call of a registry save, and at random moments: the registry always loads, with every
# disk that it held or the save was to add.
. /payload/lib.sh
install_corvane
corvane-sim --scenario /payload/two-disks.json --no-dcak >/tmp/sim.log 2>&1 & SIM=$!
wait_for 20 test -S /var/tmp/spdk.sock; check "simulator serves" 0 $?

# The file as a start of the service sees it: the write-ahead copy when whole, else the file.
whole() { [ "$(jq -r type "$1" 2>/dev/null)" = array ]; }
loaded() {
  if whole "$REG.wal"; then jq -r '[.[].sn]|sort|join(" ")' "$REG.wal"
  elif [ -e "$REG" ]; then jq -r '[.[].sn]|sort|join(" ")' "$REG"
  else echo none; fi
}
BOTH="KILL-0001 KILL-0002"

# The first save (n = 1) adds the first disk, the second (n = 2) the other; strace kills at the entry of the n-th call.
kills=0
for call in openat chmod chown write close unlink rename; do
  for n in 1 2; do
    rm -f "$REG" "$REG.wal"
    strace -f -qq -o /tmp/strace.log -P "$REG" -P "$REG.wal" -e "inject=$call:signal=KILL:when=$n" \
      corvaned --prefix $P >/tmp/corvaned.log 2>&1 & S=$!
    wait_for 30 '! kill -0 $S'; check "$call $n is reached" 0 $?
    T=$(pgrep -P $S) && kill "$T"
    wait $S
    grep -q 'killed by SIGKILL' /tmp/strace.log && kills=$((kills + 1))
    got=$(loaded)
    # nothing but a whole registry: the load before the first save knows nothing, and what the first save
    # completed the second never loses
    case $call:$n:$got in
      *:1:none | *:1:KILL-000[12] | *:2:KILL-000[12] | *:2:"$BOTH") echo "ok   kill at $call $n leaves: $got" ;;
      *) check "kill at $call $n" "a whole registry" "$got ($(head -c 80 "$REG" "$REG.wal" 2>&1))" ;;
    esac
    # the next start takes it up and completes it
    corvaned --prefix $P >/tmp/corvaned2.log 2>&1 & C=$!
    wait_for 30 '[ "$(loaded)" = "$BOTH" ]'; check "start after a kill at $call $n" "$BOTH" "$(loaded)"
    case $got in none | "") ;; *) check "identifier of the saved disk stays" 0 "$(reg "${got%% *}" .diskId)" ;; esac
    stop $C
  done
done
check "every run was killed" 14 $kills

say "random kills while disks leave and return"
r=0
while [ $r -lt 25 ]; do
  corvaned --prefix $P >/tmp/corvaned.log 2>&1 & C=$!
  sleep "0.$((r * 7 % 10))$((r * 3 % 10))"
  stop $C KILL
  { [ ! -e "$REG" ] && [ ! -e "$REG.wal" ]; } || whole "$REG" || whole "$REG.wal" || check "random kill $r" "a registry that loads" "none"
  [ $((r % 3)) -eq 0 ] && rm -f "$REG"
  r=$((r + 1))
done
corvaned --prefix $P >/tmp/corvaned.log 2>&1 & C=$!
wait_for 30 '[ "$(reg_count)" = 2 ]'; check "both disks registered in the end" 2 "$(reg_count)"
stop $C; stop $SIM
finish

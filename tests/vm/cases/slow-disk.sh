#!/bin/sh
# topology: slow-disk
# Of three hard disks under the same load the throttled one is found slow; the settings are those built in, but for the
# number of slow samples that it takes. Its busy peers are not found, and nothing but a verdict makes a disk slow.
. /payload/lib.sh
install_corvane
settings '.sas_hdd.min_slow_cycle = 10'
start_agentd; start_corvaned
wait_for 120 online 3; check "three disks online" 3 "$(status '.disks|length')"

say "all three are busy, and alike"
# 32 requests wait at each disk, at a service time far below the 100 ms that make a hard disk suspect
loads=""
for n in 1 2 3; do
  vmctl throttle "hdd$((n - 1))" iops=200
  ioload -q -d 32 -b 4096 -t 900 "/dev/$(devof "HDD0000$n")" & loads="$loads $!"
done
busy() { disk "$1" 'select(.io.ioBusyNum > 29 and (.io.utilization|tonumber) >= 90)|.sn'; }
for n in 1 2 3; do wait_for 60 '[ "$(busy HDD0000$n)" ]'; check "HDD0000$n is busy" "HDD0000$n" "$(busy HDD0000$n)"; done
for n in 1 2 3; do check "HDD0000$n is normal" "$NORMAL" "$(verdict HDD0000$n)"; done

say "one of them is throttled to 7 operations per second"
vmctl throttle hdd1 iops=7
wait_for 60 '[ "$(disk HDD00002 .io.avgServeTime)" -ge 100000 ]'
check "its service time shows" yes "$([ "$(disk HDD00002 .io.avgServeTime)" -ge 100000 ] && echo yes)"
wait_for 150 '[ "$(disk HDD00002 .state)" = slow ]'; check "HDD00002 is slow" "$SLOW" "$(verdict HDD00002)"
for n in 1 3; do
  check "HDD0000$n is still busy" "HDD0000$n" "$(busy HDD0000$n)"
  check "HDD0000$n is still normal" "$NORMAL" "$(verdict HDD0000$n)"
done
id=$(reg HDD00002 .diskId)
check "the log names it once" 1 "$(logged "Find slow disk($id).")"
check "and no other disk" 1 "$(logged "Find slow disk(")"

say "no way back: the throttle is lifted, the service restarted"
vmctl throttle hdd1 iops=200
wait_for 60 '[ "$(disk HDD00002 .io.avgServeTime)" -lt 100000 ]'
check "its service time is like that of its peers" yes "$([ "$(disk HDD00002 .io.avgServeTime)" -lt 100000 ] && echo yes)"
check "HDD00002 stays slow" "$SLOW" "$(verdict HDD00002)"
# shellcheck disable=SC2086
kill $loads; wait $loads 2>/dev/null
stop $CORVANED; check "clean end" 0 $?
check "the registry keeps the state" 4 "$(reg HDD00002 .diskState)"
start_corvaned
wait_for 60 online 3; check "it is slow after the restart" "slow, 4" "$(disk HDD00002 .state), $(reg HDD00002 .diskState)"
check "its peers are normal" "normal normal" "$(disk HDD00001 .state) $(disk HDD00003 .state)"
stop $CORVANED; stop $AGENTD
finish

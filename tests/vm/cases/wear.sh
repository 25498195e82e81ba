#!/bin/sh
# topology: wear
# The remaining life of SAS SSDs follows from wear and hours of power: (hours + 10) * (100 % - wear) / wear. With 50 %
# used it is the hours and 10 more, so the disks stand on both sides of each border.
. /payload/lib.sh
install_corvane
# A prediction made before the first health record waits for the next cycle: let there be one at every run.
settings '.disklife_prediction.task_cycle = 5'
start_agentd; start_corvaned
wait_for 150 online 10; check "ten disks online" 10 "$(status '.disks|length')"

life() { disk "$1" '"\(.life.diskLife) \(.life.healthScore)"'; }
# SERIAL HOURS SCORE VERDICT
while read -r s hours score verdict; do
  wait_for 90 '[ "$(life $s)" = "$hours $score" ]'; check "$s: hours and score" "$hours $score" "$(life "$s")"
  wait_for 30 '[ "$(disk $s .state)" = '"${verdict%%,*}"' ]'; check "$s: verdict" "$verdict" "$(verdict "$s")"
done <<EOF
LIFE24 24 37 $FAULT
LIFE25 25 37 $PREFAIL
LIFE719 719 37 $PREFAIL
LIFE720 720 100 $NORMAL
LIFE2159 2159 100 $NORMAL
LIFE2160 2160 100 $NORMAL
LIFE27090 27090 100 $NORMAL
WEAR0 43800 100 $NORMAL
WEAR100 0 37 $FAULT
WEAR120 43800 100 $NORMAL
EOF
check "health of a worn disk" "3000 120.00" "$(disk WEAR120 '"\(.health.powerOnHours) \(.health.wear)"')"

say "the log tells of the ends that are near"
# the state is told to a data agent as well, of which there is none here: hence no look at the number
said() { [ "$(logged "Disk($(reg "$1" .diskId)) sn($1) $2")" -gt 0 ]; }
for s in LIFE24 WEAR100; do said $s "will be fault."; check "$s will be fault" 0 $?; done
for s in LIFE25 LIFE719; do said $s "will be prefail, ret("; check "$s will be prefail" 0 $?; done
for s in LIFE720 LIFE2159; do said $s "need be replaced."; check "$s need be replaced" 0 $?; done
for s in LIFE2160 LIFE27090 WEAR0 WEAR120; do check "nothing about $s" 0 "$(logged "sn($s) need be replaced.")"; done

say "wear goes on"
sasctl set ssd7 wear 99
wait_for 90 '[ "$(life WEAR0)" = "30 37" ]'; check "hours and score of the disk that wore out" "30 37" "$(life WEAR0)"
wait_for 30 '[ "$(disk WEAR0 .state)" = prefail ]'; check "its verdict" "$PREFAIL" "$(verdict WEAR0)"
stop $CORVANED; stop $AGENTD
finish

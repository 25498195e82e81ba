#!/bin/sh
# topology: faults
# A disk that answers with errors, slowly or not at all harms only what it must: its own values, or at most the health
# of the four disks that were asked for together with it; never identity, counters or other disks.
. /payload/lib.sh
install_corvane; start_agentd; start_corvaned
wait_for 150 online 5; check "five disks online" 5 "$(status '.disks|length')"
wait_for 60 '[ "$(disk HDD000000005 .health.powerOnHours)" = 104 ] && [ "$(disk HDD000000001 .health.powerOnHours)" = 100 ]'
check "health arrived" "100 104" "$(disk HDD000000001 .health.powerOnHours) $(disk HDD000000005 .health.powerOnHours)"
reg_before=$(jq -cS . $REG)
D0=$(devof HDD000000001)

say "LOG SENSE of the hours refused: the page stays zero, the disk stays in the answer"
sasctl set hdd0 fail '{"0x4D:0x15": [5, "0x24", 0]}' >/dev/null
wait_for 60 '[ "$(disk HDD000000001 .health.powerOnHours)" = 0 ]'
check "hours read 0" 0 "$(disk HDD000000001 .health.powerOnHours)"
check "its other health stays" 010201 "$(disk HDD000000001 '.health.detail[0:6]')"
check "its neighbour is untouched" 101 "$(disk HDD000000002 .health.powerOnHours)"
sasctl set hdd0 fail null >/dev/null
wait_for 60 '[ "$(disk HDD000000001 .health.powerOnHours)" = 100 ]'; check "hours are back" 100 "$(disk HDD000000001 .health.powerOnHours)"

say "the device is offline for the kernel: it cannot be opened"
echo offline >"/sys/block/$D0/device/state"
a=$(agent dca_get_disks_health_info "$D0" "$(devof HDD000000002)")
check "a request with it has no disks" '{"disks":[]}' "$a"
check "a request without it answers" HDD000000002 "$(agent dca_get_disks_health_info "$(devof HDD000000002)" | jq -r '.disks[0].serial_number')"
check "its counters still come" HDD000000001 "$(agent dca_get_disks_iostat "$D0" | jq -r '.disks[0].serial_number')"
sasctl set hdd4 power_on_minutes 6300 >/dev/null
# five disks are asked in slices of four and one; which slice holds the offline disk follows the kernel's order
L=$(agent dca_get_disks_brief_info | jq -r '.disks[4].serial_number')
if [ "$L" = HDD000000005 ]; then
  wait_for 60 '[ "$(disk HDD000000005 .health.powerOnHours)" = 105 ]'; check "the other slice goes on" 105 "$(disk HDD000000005 .health.powerOnHours)"
fi
check "what was known stays" 100 "$(disk HDD000000001 .health.powerOnHours)"
check "nobody left" 5 "$(status '.disks|length')"
echo running >"/sys/block/$D0/device/state"

say "slow answers: the master waits and tries again, nothing is lost"
sasctl set hdd0 cmd_delay_ms '{"0x4D": 1500}' >/dev/null
sasctl set hdd0 power_on_minutes 6600 >/dev/null
wait_for 120 '[ "$(disk HDD000000001 .health.powerOnHours)" = 110 ]'; check "a slow answer arrives" 110 "$(disk HDD000000001 .health.powerOnHours)"
sasctl set hdd0 cmd_delay_ms null >/dev/null

say "media errors"
sasctl set hdd1 fail '{"io": [3, 17, 0]}' >/dev/null
dd "if=/dev/$(devof HDD000000002)" of=/dev/null bs=4k count=1 iflag=direct 2>/dev/null; check "the kernel sees the error" 1 $?
sasctl set hdd1 power_on_minutes 7200 >/dev/null
wait_for 60 '[ "$(disk HDD000000002 .health.powerOnHours)" = 120 ]'; check "its health still comes" 120 "$(disk HDD000000002 .health.powerOnHours)"
sasctl set hdd1 fail null >/dev/null

say "the agent goes away and returns"
stop $AGENTD KILL
rm -f /tmp/dcak.sock
wait_for 60 online 0; check "its disks are offline" 0 "$(status '.disks|length')"
check "the registry is empty" 0 "$(reg_count)"
start_agentd
wait_for 120 online 5; # the cursor still stands on the identifier that it gave last
check "they come back as new disks" "4 5 6 7 8" "$(jq -r '[.[].diskId]|sort|map(tostring)|join(" ")' $REG)"
check "same serial numbers" "$(echo "$reg_before" | jq -r '[.[].sn]|sort|join(" ")')" "$(jq -r '[.[].sn]|sort|join(" ")' $REG)"

say "the agent's group is missing: clients fail at once, the service lives"
stop $AGENTD
sed -i /corvane_group/d /etc/group
timeout 20 corvane-agentd >/tmp/agentd2.log 2>&1; rc=$?; check "the agent says so and ends" yes "$([ $rc -ne 0 ] && [ $rc -ne 124 ] && echo yes)"
kill -0 $CORVANED; check "corvaned lives" 0 $?
stop $CORVANED
finish

#!/bin/sh
# topology: hotplug
# A vanished disk goes offline and leaves the registry, a returning one is new, identifiers survive a restart.
. /payload/lib.sh
install_corvane; start_agentd; start_corvaned
wait_for 120 online 4; check "four disks online" 4 "$(status '.disks|length')"
untouched=$(reg HDD00002 .diskId)

say "pulled through the hypervisor"
vmctl del hdd2
wait_for 60 not_in_reg HDD00003; check "HDD00003 left the registry" "" "$(reg HDD00003 .diskId)"
wait_for 20 online 3; check "three disks online" 3 "$(status '.disks|length')"
vmctl add hdd2
wait_for 60 in_reg HDD00003
# the cursor of identifiers stands behind the four assigned so far
check "HDD00003 is new, with the next identifier" 4 "$(reg HDD00003 .diskId)"

say "pulled through sysfs"
D=$(devof HDD00001); H=$(readlink -f "/sys/block/$D/device" | grep -o 'host[0-9]*' | head -n 1)
echo 1 >"/sys/block/$D/device/delete"
wait_for 60 not_in_reg HDD00001; check "HDD00001 left the registry" "" "$(reg HDD00001 .diskId)"
echo '- - -' >"/sys/class/scsi_host/$H/scan"
wait_for 60 in_reg HDD00001; check "HDD00001 is new" 5 "$(reg HDD00001 .diskId)"

say "pulled as SAS"
sasctl del vssd0 >/dev/null
wait_for 60 not_in_reg VSSD00000001; check "VSSD00000001 left the registry" "" "$(reg VSSD00000001 .diskId)"
sasctl add vssd0 >/dev/null
wait_for 60 in_reg VSSD00000001; check "VSSD00000001 is new" 6 "$(reg VSSD00000001 .diskId)"
check "HDD00002 was never touched" "$untouched" "$(reg HDD00002 .diskId)"

say "restart"
before=$(jq -cS 'map({sn,diskId,diskState,vendor,model,diskCapacity})|sort_by(.sn)' $REG)
stop $CORVANED; check "clean end" 0 $?
start_corvaned
wait_for 60 online 4; check "four disks online again" 4 "$(status '.disks|length')"
check "identifiers survive" "$before" "$(jq -cS 'map({sn,diskId,diskState,vendor,model,diskCapacity})|sort_by(.sn)' $REG)"
stop $CORVANED KILL
start_corvaned
wait_for 60 online 4
check "identifiers survive a kill" "$before" "$(jq -cS 'map({sn,diskId,diskState,vendor,model,diskCapacity})|sort_by(.sn)' $REG)"

say "a disk that left while the service was down"
stop $CORVANED
vmctl del hdd1
start_corvaned
wait_for 60 not_in_reg HDD00002; check "HDD00002 left the registry" "" "$(reg HDD00002 .diskId)"
stop $CORVANED; stop $AGENTD
finish

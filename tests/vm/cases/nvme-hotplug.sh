#!/bin/sh
# topology: nvme-hotplug
# An NVMe disk that is added to the running machine: the kernel's own events make the service ask the agent to take it
# over, by its PCI address, once its driver has it. The agent is simulated and records what it is asked.
. /payload/lib.sh
RECORD=/tmp/record.jsonl
rebinds() { jq -r 'select(.method=="dca_rebind_nvme2uio")|.params|tojson' $RECORD 2>/dev/null | sort | uniq; }
has_rebind() { rebinds | grep -qF "\"$1\""; }
driver_has() { [ -e "/sys/bus/pci/drivers/nvme/$1" ]; }

install_corvane
corvane-sim --no-dcak --scenario /payload/nvme-scenario.json --record $RECORD >/tmp/sim.log 2>&1 & SIM=$!
wait_for 30 grep -q ready /tmp/sim.log; check "the agent serves" ready "$(cat /tmp/sim.log)"

say "taking over is switched off"
settings '.takeover_disk_switch = 0'
start_corvaned
wait_for 60 '[ -S $P/config/CLI_UDS.unix ]'
vmctl add nvme0
wait_for 60 driver_has 0000:00:10.0; check "the driver has the first disk" 0 $?
udevadm settle -t 30
vmctl del nvme0; check "it is gone" 0 $?
stop $CORVANED

say "taking over is switched on"
settings '.takeover_disk_switch = 1'
start_corvaned
wait_for 60 '[ "$(logged "Hot plug socket receive buffer size")" -ge 1 ]'; check "the listener listens" 0 $?
vmctl add hdd0
vmctl add nvme1
wait_for 60 has_rebind 0000:00:11.0
check "the agent is asked for the second disk, and was never for another" '{"pci_address":"0000:00:11.0"}' "$(rebinds)"
wait_for 60 online 1
check "the disk that the agent took over is online" NVME00000002 "$(status '.disks[].sn')"
check "in the registry with its address" 0000:00:11.0 "$(reg NVME00000002 .pciAddr)"

say "a second disk, and the first one again"
vmctl add nvme0
wait_for 60 has_rebind 0000:00:10.0
wait_for 60 online 2; check "two disks online" 2 "$(status '.disks|length')"
asked=$(grep -c dca_rebind_nvme2uio $RECORD)
vmctl del nvme1; vmctl add nvme1
wait_for 60 '[ "$(grep -c dca_rebind_nvme2uio $RECORD)" -gt "$asked" ]'
check "a disk that returns is asked for again" yes "$([ "$(grep -c dca_rebind_nvme2uio $RECORD)" -gt "$asked" ] && echo yes)"
check "by the same address" '{"pci_address":"0000:00:10.0"} {"pci_address":"0000:00:11.0"}' "$(rebinds | tr '\n' ' ' | sed 's/ $//')"

say "the agent does not answer: the service goes on"
stop $SIM KILL
vmctl del nvme0; vmctl add nvme0
wait_for 60 '[ "$(logged "create task to rebind pci 0000:00:10.0")" -ge 2 ]'; check "the event is handled" 0 $?
kill -0 $CORVANED; check "corvaned lives" 0 $?
stop $CORVANED; check "clean end" 0 $?
cp $RECORD /results/
finish

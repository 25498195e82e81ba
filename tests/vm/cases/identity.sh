#!/bin/sh
# topology: fleet
# Every disk class comes online with the right identity, health and counters, as sysfs, /proc/diskstats and sg3-utils
# tell them.
. /payload/lib.sh
install_corvane
start_agentd; check "agent serves" 0 $?
lsblk -S -n -o NAME,SERIAL >/tmp/nodes.txt; cat /tmp/nodes.txt
check "socket owner and mode" "660 root corvane_group" "$(stat -c '%a %U %G' /tmp/dcak.sock)"
start_corvaned
wait_for 150 online 6; check "six admitted disks online" 6 "$(status '.disks|length')"
check "registry holds the same" 6 "$(reg_count)"
check "registry owner and mode" "640 corvane_user corvane_group" "$(stat -c '%a %U %G' $REG)"
for s in ALIEN0001 SASSSD000001 RAID0001 NOWWN0001; do check "$s is left out" "" "$(reg $s .sn)"; done

# type on the wire of the master: 1 SSD_SAS, 2 SSD_SATA, 3 HDD_SAS
# One look at both sides: the registry as lines, the kernel's names of the disks by their serial numbers.
jq -r '.[]|[.sn,.vendor,.model,.firmware,.diskCapacity,.sectorSize,.diskType,.mediaType,.diskState]|map(tostring)|join("|")' $REG >/tmp/registry.txt
node() { awk -v s="$1" '$2==s{print $1}' /tmp/nodes.txt; }
field() { sed 's/ *$//' "$1"; }
# type on the wire of the master: 1 SSD_SAS, 2 SSD_SATA, 3 HDD_SAS
for row in VSSD00000001:1 VSSD00000002:1 HDD000000001:3 HDD000000002:3 SATASSD00001:2 SATASSD0002:2; do
  s=${row%:*} t=${row#*:} b=/sys/block/$(node "${row%:*}")
  want="$s|$(field "$b/device/vendor")|$(field "$b/device/model")|$(field "$b/device/rev")"
  want="$want|$(($(cat "$b/size") * 512))|$(cat "$b/queue/logical_block_size")|$t|2|0"
  check "$s identity" "$want" "$(grep "^$s|" /tmp/registry.txt)"
done
status '.disks|map(.device+" "+.sn)|.[]' | sort >/tmp/devices.txt
check "device names" "$(awk '$2!~/ALIEN0001|SASSSD000001|RAID0001|NOWWN0001/{print $1,$2}' /tmp/nodes.txt | sort)" "$(cat /tmp/devices.txt)"
check "identifiers are 0 to 5" "0 1 2 3 4 5" "$(jq -r '[.[].diskId]|sort|map(tostring)|join(" ")' $REG)"

say "health, against sg3-utils and smartctl"
wait_for 60 '[ "$(disk VSSD00000001 .health.powerOnHours)" = 3000 ]'
wait_for 60 '[ "$(disk HDD000000001 .health.powerOnHours)" = 100 ]'
check "VSSD00000001 hours" 3000 "$(disk VSSD00000001 .health.powerOnHours)"
check "HDD000000001 hours" 100 "$(disk HDD000000001 .health.powerOnHours)"
check "SATASSD00001 hours, as smartctl reads" "$(smartctl -A "/dev/$(node SATASSD00001)" | awk '$1==9{print $10}')" "$(disk SATASSD00001 .health.powerOnHours)"
check "VSSD00000001 wear, as sg_logs reads" "$(sg_logs -p 0x11 "/dev/$(node VSSD00000001)" | grep -o 'indicator: *[0-9]*' | tr -dc 0-9)" "$(disk VSSD00000001 .health.wear | cut -d. -f1)"
check "VSSD00000002 has no wear page" 0.00 "$(disk VSSD00000002 .health.wear)"
# The detail: capacitance for the listed vendors, ASC/ASCQ and the log's presence for SAS disks, 30 attributes for SATA
check "VSSD00000001 capacitance" f201 "$(disk VSSD00000001 '.health.detail[0:4]')"
check "VSSD00000002 capacitance" f107 "$(disk VSSD00000002 '.health.detail[0:4]')"
check "HDD000000001 informational exceptions" 5d3201 "$(disk HDD000000001 '.health.detail[0:6]')"
check "HDD000000002 descriptor sense" 5d1000 "$(disk HDD000000002 '.health.detail[0:6]')"
check "SATASSD00001 attributes" 0524646309006262c232463ce90a0b0a00 "$(disk SATASSD00001 '.health.detail[0:34]')"
check "SATASSD0002 first attribute of the real AHCI disk" 01066464 "$(disk SATASSD0002 '.health.detail[0:8]')"

say "a SAS SSD of another vendor is not admitted, but the agent knows it"
check "its health" '{"serial_number":"SASSSD000001","power_on_hours":5390,"wear":9000,"disk_type":"SSD_SAS","vendor_id":"HGST","ASC":93,"ASCQ":16}' \
  "$(agent dca_get_disks_health_info "$(node SASSSD000001)" | jq -c '.disks[0]')"

say "counters of the agent, against /proc/diskstats"
# udev reads a disk again whenever somebody had it open for writing, so the counters of an idle disk move a little:
# what the agent says lies between a look before and a look after.
between() { # WHAT BEFORE FOUND AFTER
  check "$1 ($2 <= $3 <= $4)" yes "$([ "$3" -ge "$2" ] && [ "$3" -le "$4" ] && echo yes)"
}
for s in HDD000000001 SATASSD0002; do
  d=$(node $s)
  dd "if=/dev/$d" of=/dev/null bs=64k count=20 iflag=direct 2>/dev/null
  grep " $d " /proc/diskstats >/tmp/before.txt
  a=$(agent dca_get_disks_iostat "$d" | jq -c '.disks[0]')
  grep " $d " /proc/diskstats >/tmp/after.txt
  col() { awk -v c="$2" '{print $c}' "/tmp/$1.txt"; }
  got() { echo "$a" | jq -r ".$1"; }
  between "$s read operations" "$(col before 4)" "$(got num_read_ops)" "$(col after 4)"
  between "$s bytes read" "$(($(col before 6) * 512))" "$(got bytes_read)" "$(($(col after 6) * 512))"
  between "$s read latency" "$(($(col before 7) * 100 / 1000))" "$(got read_latency_ticks)" "$(($(col after 7) * 100 / 1000))"
  between "$s write operations" "$(col before 8)" "$(got num_write_ops)" "$(col after 8)"
  between "$s bytes written" "$(($(col before 10) * 512))" "$(got bytes_written)" "$(($(col after 10) * 512))"
  between "$s busy time" "$(($(col before 13) * 1000))" "$(got io_time)" "$(($(col after 13) * 1000))"
  check "$s queue depth" "$(cat "/sys/block/$d/queue/nr_requests")" "$(got queue_depth)"
  check "$s serial" "$s" "$(got serial_number)"
done

say "statistics under load"
d=$(node SATASSD0002)
ioload -d 4 -b 4096 -t 40 "/dev/$d" >/tmp/ioload.log & L=$!
wait_for 35 '[ "$(disk SATASSD0002 ".io.readIops // 0")" -gt 50 ]'; check "load shows as read operations" 0 $?
check "only reads" 0 "$(disk SATASSD0002 .io.writeIops)"
iops=$(disk SATASSD0002 .io.readIops) band=$(disk SATASSD0002 .io.readIoBand)
check "4 KiB an operation or somewhat more (iops $iops, KiB/s $band)" yes "$([ "$band" -ge $((iops * 4 - 8)) ] && [ "$band" -le $((iops * 6)) ] && echo yes)"
check "the load is not seen on another disk" yes "$([ "$(disk HDD000000002 .io.readIops)" -lt $((iops / 2)) ] && echo yes)"
kill $L 2>/dev/null; wait $L 2>/dev/null
stop $CORVANED; check "clean end of corvaned" 0 $?
stop $AGENTD; check "clean end of the agent" 0 $?
check "socket removed" no "$([ -e /tmp/dcak.sock ] && echo yes || echo no)"
finish

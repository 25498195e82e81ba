#!/bin/sh
# topology: fleet
# Every disk class comes online with the right identity, health and counters, as sysfs, /proc/diskstats and sg3-utils
# tell them.
. /payload/lib.sh
install_corvane
start_agentd; check "agent serves" 0 $?
check "socket owner and mode" "660 root corvane_group" "$(stat -c '%a %U %G' /tmp/dcak.sock)"
start_corvaned
wait_for 150 online 7; check "seven admitted disks online" 7 "$(status '.disks|length')"
check "registry holds the same" 7 "$(reg_count)"
check "registry owner and mode" "640 corvane_user corvane_group" "$(stat -c '%a %U %G' $REG)"
for s in ALIEN0001 RAID0001 NOWWN0001; do check "$s is left out" "" "$(reg $s .sn)"; done

# type on the wire of the master: 1 SSD_SAS, 2 SSD_SATA, 3 HDD_SAS
for row in VSSD00000001:1 VSSD00000002:1 SASSSD000001:1 HDD000000001:3 HDD000000002:3 SATASSD00001:2 SATASSD0002:2; do
  s=${row%:*} t=${row#*:} d=$(devof "$s") b=/sys/block/$(devof "$s")
  say "$s is $d"
  trim() { sed 's/ *$//' "$1"; }
  check "$s vendor" "$(trim "$b/device/vendor")" "$(reg "$s" .vendor)"
  check "$s model" "$(trim "$b/device/model")" "$(reg "$s" .model)"
  check "$s firmware" "$(trim "$b/device/rev")" "$(reg "$s" .firmware)"
  check "$s capacity" "$(($(cat "$b/size") * 512))" "$(reg "$s" .diskCapacity)"
  check "$s sector size" "$(cat "$b/queue/logical_block_size")" "$(reg "$s" .sectorSize)"
  check "$s type" "$t" "$(reg "$s" .diskType)"
  check "$s medium" 2 "$(reg "$s" .mediaType)"
  check "$s state" 0 "$(reg "$s" .diskState)"
  check "$s device name" "$d" "$(disk "$s" .device)"
done
check "identifiers are 0 to 6" "0 1 2 3 4 5 6" "$(jq -r '[.[].diskId]|sort|map(tostring)|join(" ")' $REG)"

say "health, against sg3-utils and smartctl"
wait_for 60 '[ "$(disk VSSD00000001 .health.powerOnHours)" = 3000 ]'
sg_hours() { sg_logs -p 0x15 "/dev/$(devof "$1")" | awk '/power on time, in minutes/{m=$0; sub(/.*: */,"",m); sub(/ .*/,"",m)} END{print int(m/60)}'; }
sg_logs -p 0x15 "/dev/$(devof VSSD00000001)" | head -4
wait_for 60 '[ "$(disk HDD000000001 .health.powerOnHours)" = 100 ]'
check "VSSD00000001 hours" 3000 "$(disk VSSD00000001 .health.powerOnHours)"
check "SASSSD000001 hours" 5390 "$(disk SASSSD000001 .health.powerOnHours)"
check "HDD000000001 hours" 100 "$(disk HDD000000001 .health.powerOnHours)"
check "SATASSD00001 hours, as smartctl reads" "$(smartctl -A "/dev/$(devof SATASSD00001)" | awk '$1==9{print $10}')" "$(disk SATASSD00001 .health.powerOnHours)"
check "VSSD00000001 wear, as sg_logs reads" "$(sg_logs -p 0x11 "/dev/$(devof VSSD00000001)" | sed -n 's/.*endurance indicator: *\([0-9]*\)%.*/\1/p')" "$(disk VSSD00000001 .health.wear | cut -d. -f1)"
check "SASSSD000001 wear" 90.00 "$(disk SASSSD000001 .health.wear)"
check "VSSD00000002 has no wear page" 0.00 "$(disk VSSD00000002 .health.wear)"
# The detail: capacitance for the listed vendors, ASC/ASCQ and the log's presence for SAS disks, 30 attributes for SATA
check "VSSD00000001 capacitance" f201 "$(disk VSSD00000001 '.health.detail[0:4]')"
check "VSSD00000002 capacitance" f107 "$(disk VSSD00000002 '.health.detail[0:4]')"
check "HDD000000001 informational exceptions" 5d3201 "$(disk HDD000000001 '.health.detail[0:6]')"
check "HDD000000002 descriptor sense" 5d1000 "$(disk HDD000000002 '.health.detail[0:6]')"
check "SATASSD00001 attributes" 0524646309006262c232463ce90a0b0a00 "$(disk SATASSD00001 '.health.detail[0:34]')"
check "SATASSD0002 first attribute of the real AHCI disk" 01066464 "$(disk SATASSD0002 '.health.detail[0:8]')"

say "counters of the agent, against /proc/diskstats of an idle disk"
for s in HDD000000001 SATASSD0002; do
  d=$(devof $s)
  dd "if=/dev/$d" of=/dev/null bs=64k count=20 iflag=direct 2>/dev/null
  a=$(agent dca_get_disks_iostat "$d" | jq -c '.disks[0]')
  check "$s operations" "$(stat_col "$d" 4)" "$(echo "$a" | jq -r .num_read_ops)"
  check "$s bytes" "$(($(stat_col "$d" 6) * 512))" "$(echo "$a" | jq -r .bytes_read)"
  check "$s write operations" "$(stat_col "$d" 8)" "$(echo "$a" | jq -r .num_write_ops)"
  check "$s latency" "$(($(stat_col "$d" 7) * 100 / 1000))" "$(echo "$a" | jq -r .read_latency_ticks)"
  check "$s busy time" "$(($(stat_col "$d" 13) * 1000))" "$(echo "$a" | jq -r .io_time)"
  check "$s queue depth" "$(cat "/sys/block/$d/queue/nr_requests")" "$(echo "$a" | jq -r .queue_depth)"
  check "$s serial" "$s" "$(echo "$a" | jq -r .serial_number)"
done

say "statistics under load"
d=$(devof SATASSD0002)
ioload -d 4 -b 4096 -t 40 "/dev/$d" >/tmp/ioload.log & L=$!
wait_for 35 '[ "$(disk SATASSD0002 ".io.readIops // 0")" -gt 50 ]'; check "load shows as read operations" 0 $?
check "only reads" 0 "$(disk SATASSD0002 .io.writeIops)"
iops=$(disk SATASSD0002 .io.readIops) band=$(disk SATASSD0002 .io.readIoBand)
check "4 KiB an operation (iops $iops, KiB/s $band)" yes "$([ "$band" -ge $((iops * 4 - 4)) ] && [ "$band" -le $((iops * 4 + 8)) ] && echo yes)"
check "the idle disk shows none" 0 "$(disk HDD000000002 .io.readIops)"
kill $L 2>/dev/null; wait $L 2>/dev/null
stop $CORVANED; check "clean end of corvaned" 0 $?
stop $AGENTD; check "clean end of the agent" 0 $?
check "socket removed" no "$([ -e /tmp/dcak.sock ] && echo yes || echo no)"
finish

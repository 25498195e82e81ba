#!/bin/sh
# topology: prefail
# What a disk says of itself makes it prefail, each kind of disk by its own rule. One disk of each kind begins healthy
# and fails later: once it is found, the disks that are not found have had their visit too.
. /payload/lib.sh
install_corvane; start_agentd; start_corvaned
wait_for 150 online 10; check "ten disks online" 10 "$(status '.disks|length')"

# The records that the verdicts rest on: ASC, ASCQ and whether the log page is there; the same bytes for SAS SSDs;
# identifier, threshold, current and worst value of SATA attributes.
has_detail() { case $(disk "$1" .health.detail) in "$2"*) ;; *) return 1 ;; esac; }
for row in HDDPAGE5D10:5d1001 HDDPAGE5D6D:5d6d01 HDDSENSE5D6D:5d6d00 HDDLATER:000001 SSD5D10:5d10 SSD5D6D:5d6d SSDLATER:f200 \
  SATACURRENT:090062620524245a SATAEXEMPT:c2320101be2d01010900000005242525 SATALATER:0900626205245a5a; do
  wait_for 60 "has_detail ${row%:*} ${row#*:}"; check "${row%:*} told its health" 0 $?
done

say "the failing ones are found"
for s in HDDPAGE5D10 HDDSENSE5D6D SSD5D10 SATACURRENT; do
  wait_for 90 '[ "$(disk $s .state)" = prefail ]'; check "$s" "$PREFAIL" "$(verdict $s)"
done
for s in HDDLATER SSDLATER SATALATER; do check "$s is healthy so far" "$NORMAL" "$(verdict $s)"; done

say "three more begin to fail"
sasctl set hdd3 ie '["0x5D", 1, 33]'
sasctl set ssd2 cap '["0x5D", 1]'
sasctl set sata2 ata '{"model": "VSSD-1600 EMULATED", "firmware": "FW1.01", "smart": [[9, 0, 98, 98, 100], [5, 36, 90, 36, 0]]}'
for s in HDDLATER SSDLATER SATALATER; do
  wait_for 90 '[ "$(disk $s .state)" = prefail ]'; check "$s" "$PREFAIL" "$(verdict $s)"
done

say "the others are not found"
check "0x5D/0x6D of the log page of a hard disk" "$NORMAL" "$(verdict HDDPAGE5D6D)"
check "0x5D/0x6D of a solid state disk" "$NORMAL" "$(verdict SSD5D6D)"
check "temperatures and an attribute without threshold" "$NORMAL" "$(verdict SATAEXEMPT)"
check "the log names seven disks once each" 7 "$(logged "Find prefail disk(")"

say "a disk that recovers stays prefail"
sasctl set hdd3 ie '[0, 0, 33]'
wait_for 60 has_detail HDDLATER 000001; check "HDDLATER says that it is well" 0 $?
check "HDDLATER" "$PREFAIL" "$(verdict HDDLATER)"
stop $CORVANED; stop $AGENTD
finish

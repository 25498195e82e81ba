#!/bin/sh
# topology: hotplug
# shellcheck disable=SC2046  # one device name a word is meant
# The table mode of an lsblk older than 2.24 gives the same records as the JSON mode; one older than 2.23.2 is refused.
. /payload/lib.sh
install_corvane
fake_lsblk() { # VERSION   an lsblk of that version: no -J before 2.24
  mkdir -p /tmp/old
  cat >/tmp/old/lsblk <<EOF
#!/bin/sh
for a in "\$@"; do case \$a in
  --version) echo "lsblk from util-linux $1"; exit 0 ;;
  -J) echo "lsblk: invalid option -- 'J'" >&2; exit 1 ;;
esac; done
exec /usr/bin/lsblk "\$@"
EOF
  chmod 755 /tmp/old/lsblk
}
names() { for s in HDD00001 HDD00002 HDD00003 VSSD00000001; do devof $s; done; }

start_agentd
new_brief=$(agent dca_get_disks_brief_info); new_base=$(agent dca_get_disks_base_info $(names))
check "JSON mode lists four disks" 4 "$(echo "$new_brief" | jq '.disks|length')"
stop $AGENTD

fake_lsblk 2.23.2
PATH=/tmp/old:$PATH
start_agentd; check "2.23.2 serves" 0 $?
check "the same device list" "$new_brief" "$(agent dca_get_disks_brief_info)"
check "the same base records" "$new_base" "$(agent dca_get_disks_base_info $(names))"
start_corvaned
wait_for 90 online 4; check "four disks online in table mode" 4 "$(status '.disks|length')"
check "capacity in the registry" "$(($(cat "/sys/block/$(devof HDD00001)/size") * 512))" "$(reg HDD00001 .diskCapacity)"
stop $CORVANED; stop $AGENTD

fake_lsblk 2.23.1
corvane-agentd >/tmp/agentd.log 2>&1; check "2.23.1 is refused" 1 "$([ $? -ne 0 ] && echo 1)"
grep -q lsblk /tmp/agentd.log; check "the message names lsblk" 0 $?
finish

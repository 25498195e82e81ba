#!/bin/sh
# topology: packages
# The packages under systemd: installed, killed, upgraded over changed settings, removed, installed again, purged.
. /payload/lib.sh
SETTINGS=$P/config/corvane_config.json
export DEBIAN_FRONTEND=noninteractive

pid_of() { systemctl show -p MainPID --value "$1"; }
active() { [ "$(systemctl is-active "$1")" = active ]; }
property() { systemctl show -p "$2" --value "$1"; }
# file PATH   its mode and owner
file() { stat -c '%a %U:%G' "$1" 2>/dev/null; }
# runs_as UNIT   the user of its main process, and what capabilities it could ever have
runs_as() { p=$(pid_of "$1"); echo "$(stat -c %U "/proc/$p") $(awk '/^CapBnd/{print $2}' "/proc/$p/status")"; }
running() { dpkg-query -W -f '${Version}' corvane; }
both_active() { active corvaned && active corvane-agentd; }
packages() { dpkg "$@" >>/results/dpkg.log 2>&1; echo $?; }

# Signs of life are wanted every 15 seconds here, so that the test need not wait for them.
for unit in corvaned corvane-agentd; do
  mkdir -p /etc/systemd/system/$unit.service.d
  printf '[Service]\nWatchdogSec=30\n' >/etc/systemd/system/$unit.service.d/test.conf
done

say "install"
check "the packages install" 0 "$(packages -i debs/*.deb)"
wait_for 120 both_active; check "both services run" "active active" "$(systemctl is-active corvaned) $(systemctl is-active corvane-agentd)"
check "and at the next boot" "enabled enabled" "$(systemctl is-enabled corvaned) $(systemctl is-enabled corvane-agentd)"
check "the user has no home and no shell" "/nonexistent:/usr/sbin/nologin" "$(getent passwd corvane_user | cut -d: -f6,7)"
check "its group" corvane_group "$(id -gn corvane_user)"
check "the folder of the settings" "750 corvane_user:corvane_group" "$(file $P/config)"
check "the folder of their history" "750 corvane_user:corvane_group" "$(file $P/userconfig_bak)"
check "the log folder" "750 corvane_user:corvane_group" "$(file /var/log/corvane)"
check "the agent's log folder" "750 root:root" "$(file /var/log/corvane_super)"
check "the agent's log" "640 root:root" "$(file /var/log/corvane_super/corvane.os.log)"
check "the agent's socket" "660 root:corvane_group" "$(file /tmp/dcak.sock)"
check "the prefix" "755 root:root" "$(file $P)"
check "the service is nobody special" "corvane_user 0000000000000000" "$(runs_as corvaned)"
check "the agent may send raw commands only" "root 0000000000020000" "$(runs_as corvane-agentd)"
check "the agent serves before the service starts" yes \
  "$([ "$(property corvane-agentd ActiveEnterTimestampMonotonic)" -le "$(property corvaned ExecMainStartTimestampMonotonic)" ] && echo yes)"

say "disks"
wait_for 120 'in_reg HDD00001 && in_reg HDD00002'; check "both are online" 2 "$(reg_count)"
check "the registry's file" "640 corvane_user:corvane_group" "$(file $REG)"
vmctl add hdd2; wait_for 120 in_reg HDD00003; check "a third one comes" 3 "$(reg_count)"
ids() { jq -c 'map({(.sn): .diskId}) | add' $REG; }
IDS=$(ids)
wait_for 60 'corvanectl show disk_info disk_id=0 | grep -q HDD0000'; check "the operator sees it" 0 "$(corvanectl show disk_info disk_id=0 | grep -q HDD0000; echo $?)"
check "the agent may open the disks" 0 "$(grep -c 'open dev failed' /var/log/corvane_super/corvane.os.log)"

say "a kill"
OLD=$(pid_of corvaned); kill -9 "$OLD"
wait_for 60 "active corvaned && [ \$(pid_of corvaned) != $OLD ]"; check "the service comes back" active "$(systemctl is-active corvaned)"
OLD=$(pid_of corvane-agentd); kill -9 "$OLD"
wait_for 60 "active corvane-agentd && [ \$(pid_of corvane-agentd) != $OLD ]"; check "the agent comes back" active "$(systemctl is-active corvane-agentd)"
wait_for 120 '[ "$(reg_count)" = 3 ]'; check "with all disks" 3 "$(reg_count)"

say "the watchdog"
at_start() { property "$1" ExecMainStartTimestampMonotonic; }
heard() { [ "$(property "$1" WatchdogTimestampMonotonic)" -gt "$(($(property "$1" ActiveEnterTimestampMonotonic) + 1000000))" ]; }
wait_for 100 heard corvane-agentd; check "the agent tells that it works" yes "$(heard corvane-agentd && echo yes)"
wait_for 100 heard corvaned; check "the service tells that it works" yes "$(heard corvaned && echo yes)"

say "upgrade over changed settings"
systemctl stop corvaned; check "a stopped service stays quiet" inactive "$(systemctl is-active corvaned)"
IDS=$(ids)
settings '.sas_hdd.min_slow_cycle = 40'
systemctl mask -q corvaned # so that what the packages leave can be seen
check "the next version installs" 0 "$(packages -i next/*.deb)"
check "it is the next one" 1 "$(running | grep -c next)"
check "the newer defaults wait" "640 corvane_user:corvane_group" "$(file $SETTINGS.rpmnew)"
check "the settings are untouched" 40 "$(jq .sas_hdd.min_slow_cycle $SETTINGS)"
systemctl unmask -q corvaned; systemctl start corvaned
check "the upgraded service starts" active "$(systemctl is-active corvaned)"
check "the user's value stays" 40 "$(jq .sas_hdd.min_slow_cycle $SETTINGS)"
check "a changed default does not touch what was set" 20 "$(jq .sata_ssd_disk.task_cycle $SETTINGS)"
check "new settings come in" "7 8" "$(jq -r '"\(.added_key) \(.sas_hdd.added_in_section)"' $SETTINGS)"
check "the newer defaults are used up" "" "$(file $SETTINGS.rpmnew)"
check "disks keep their identifiers" "$IDS" "$(ids)"
OLD=$(pid_of corvaned)
check "the same version again" 0 "$(packages -i next/*.deb)"
check "leaves no newer defaults" "" "$(file $SETTINGS.rpmnew)"
wait_for 60 both_active; check "and restarts the service" yes "$([ "$(pid_of corvaned)" != "$OLD" ] && active corvaned && echo yes)"

say "hardening"
systemd-analyze security --no-pager corvaned >/results/security-corvaned.txt 2>&1
systemd-analyze security --no-pager corvane-agentd >/results/security-corvane-agentd.txt 2>&1
tail -n 1 /results/security-corvaned.txt /results/security-corvane-agentd.txt

say "remove"
cp /var/log/corvane_super/*.log /results/; cp -a /var/log/corvane /results/
check "the packages go" 0 "$(packages -r corvane nordiag libcorvane-dev libcorvane)"
check "nothing runs" "" "$(ps -eo comm= | grep '^corvane')"
check "the socket is gone" "" "$(file /tmp/dcak.sock)"
check "no program stays" "" "$(ls $P/bin $P/lib 2>/dev/null)"
check "the settings stay" 40 "$(jq .sas_hdd.min_slow_cycle $SETTINGS)"
check "the registry stays" 3 "$(reg_count)"
check "they install again" 0 "$(packages -i next/*.deb)"
wait_for 60 both_active; check "and run" active "$(systemctl is-active corvaned)"
check "with the settings" 40 "$(jq .sas_hdd.min_slow_cycle $SETTINGS)"
check "and the identifiers" "$IDS" "$(ids)"

say "purge"
check "the packages are purged" 0 "$(packages -P corvane nordiag libcorvane-dev libcorvane)"
check "nothing is left below the prefix" "" "$(ls -d $P 2>/dev/null)"
check "nor of the logs" "" "$(ls -d /var/log/corvane* 2>/dev/null)"
check "nor of the state" "" "$(ls -d /var/lib/corvane 2>/dev/null)"
check "the accounts stay" 0 "$(id corvane_user >/dev/null 2>&1; echo $?)"
finish

#!/bin/sh
# topology: packages
# The packages under systemd: installed, used to build hosts, killed, upgraded while they run, booted anew, removed,
# installed again, purged. Disks keep identifier and state through all of it.
. /payload/lib.sh
SETTINGS=$P/config/corvane_config.json
KEPT=/results/kept.sh # what the second boot must know of the first
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
# steps N   what the last stops and starts waited for: a service that is without its agent for a moment may lose its disks
steps() {
  journalctl --sync
  journalctl -b -o cat --no-pager _PID=1 |
    sed -nE 's/^((Stopped|Starting) corvaned|(Stopping|Started) corvane-agentd)\.service.*/\1/p' | tail -n "$1" | paste -sd ,
}
STARTS="Started corvane-agentd,Starting corvaned"
STOPS="Stopped corvaned,Stopping corvane-agentd"
note_pids() { MASTER=$(pid_of corvaned); AGENT=$(pid_of corvane-agentd); }
new_pids() { both_active && [ "$(pid_of corvaned)" != "$MASTER" ] && [ "$(pid_of corvane-agentd)" != "$AGENT" ]; }

# node   the online disks as the operator sees them
node() { corvanectl list --json 2>/dev/null | jq -c '[.disks[] | {sn, disk_id, state}] | sort_by(.sn)'; }
# statistics   disks whose reads the service tells of, while all are read from
statistics() {
  for d in $(corvanectl list --json 2>/dev/null | jq -r '.disks[].device'); do
    dd if="/dev/$d" of=/dev/null bs=4k count=64 iflag=direct 2>/dev/null
  done
  for d in $(reg_ids); do corvanectl show iostat_info "disk_id=$d" --json 2>/dev/null; done | jq -s 'map(select(.read_iops > 0)) | length'
}
reg_ids() { jq -r '.[].diskId' $REG; }
# check_node WHEN   all disks are online as they were, each with new statistics
check_node() {
  wait_for 120 '[ "$(node)" = "$NODE" ]'; check "$1: the disks are online as before" "$NODE" "$(node)"
  wait_for 120 '[ "$(statistics)" = 3 ]'; check "$1: each with new statistics" 3 "$(statistics)"
}

first_boot() {
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
  check "the agent serves before the service starts" "$STARTS" "$(steps 2)"

  say "disks"
  wait_for 120 'in_reg HDD00001 && in_reg HDD00002'; check "both are online" 2 "$(reg_count)"
  check "the registry's file" "640 corvane_user:corvane_group" "$(file $REG)"
  vmctl add hdd2; wait_for 120 in_reg HDD00003; check "a third one comes" 3 "$(reg_count)"
  wait_for 120 '[ "$(node | jq length)" = 3 ]'; check "the operator sees all of them" 3 "$(node | jq length)"
  check "the agent may open the disks" 0 "$(grep -c 'open dev failed' /var/log/corvane_super/corvane.os.log)"
  refused=$(setpriv --reuid=nobody --regid=nogroup --clear-groups corvanectl list 2>&1)
  check "who may not look is told why" "4 1" "$? $(echo "$refused" | grep -c '^Cause:This user may not')"

  say "a kill"
  note_pids
  kill -9 "$AGENT"
  wait_for 60 "active corvane-agentd && [ \$(pid_of corvane-agentd) != $AGENT ]"; check "the agent comes back" active "$(systemctl is-active corvane-agentd)"
  kill -9 "$MASTER"
  wait_for 60 "active corvaned && [ \$(pid_of corvaned) != $MASTER ]"; check "the service comes back" active "$(systemctl is-active corvaned)"
  wait_for 120 '[ "$(node | jq length)" = 3 ]'; check "with all disks" 3 "$(node | jq length)"
  wait_for 120 '[ "$(statistics)" = 3 ]'; check "and their statistics" 3 "$(statistics)"

  say "the watchdog"
  heard() { [ "$(property "$1" WatchdogTimestampMonotonic)" -gt "$(($(property "$1" ActiveEnterTimestampMonotonic) + 1000000))" ]; }
  wait_for 100 heard corvane-agentd; check "the agent tells that it works" yes "$(heard corvane-agentd && echo yes)"
  wait_for 100 heard corvaned; check "the service tells that it works" yes "$(heard corvaned && echo yes)"

  say "hosts that were built with the packages"
  systemctl stop corvaned; check "a stopped service stays quiet" inactive "$(systemctl is-active corvaned)"
  # host LINES PATTERN PROGRAM [ARGUMENT...]   runs until it has said so many different lines; how it ends, what it said
  host() {
    lines=$1 pattern=$2; shift 2
    LD_LIBRARY_PATH=$P/lib "$@" >/tmp/host.log 2>&1 & h=$!
    wait_for 60 "[ \"\$(said)\" = $lines ]"
    kill $h; wait $h; echo "$? $(said)"
  }
  said() { grep -xE "$pattern" /tmp/host.log | sort -u | wc -l; }
  for how in cmake make; do
    check "start mode 1, built by $how" "0 1" "$(host 1 '3 disks online' setpriv --reuid=corvane_user --regid=corvane_group --init-groups hosts/$how/independent_host $P)"
    check "start mode 0, built by $how" "0 3" "$(host 3 'disk [0-9]+ is online' hosts/$how/combined_host)"
  done

  say "a registry that is put back"
  jq 'map(if .sn == "HDD00001" then .diskState = 4 else . end)' $REG >/results/registry && cat /results/registry >$REG
  systemctl start corvaned
  wait_for 120 '[ "$(node | jq -r "map(.state) | join(\" \")")" = "slow normal normal" ]'; check "its states are back" "slow normal normal" "$(node | jq -r 'map(.state) | join(" ")')"
  NODE=$(node)

  say "upgrade while both services run"
  check "the operator changes a setting" 0 "$(corvanectl change slowdisk_detect_config disk_type=3 min_slow_cycle=40 >/dev/null; echo $?)"
  note_pids
  check "the next version installs" 0 "$(packages -i next/*.deb)"
  check "it is the next one" 1 "$(running | grep -c next)"
  check "both services were restarted" yes "$(new_pids && echo yes)"
  check "the agent while the service did not run" "$STOPS,$STARTS" "$(steps 4)"
  check_node "after the upgrade"
  check "the user's value stays" "40 40" "$(jq .sas_hdd.min_slow_cycle $SETTINGS) $(corvanectl show slowdisk_detect_config --json | jq .sas_hdd.min_slow_cycle)"
  check "a changed default does not touch what was set" 20 "$(jq .sata_ssd_disk.task_cycle $SETTINGS)"
  check "new settings come in" "7 8" "$(jq -r '"\(.added_key) \(.sas_hdd.added_in_section)"' $SETTINGS)"
  check "the newer defaults are used up" "" "$(file $SETTINGS.rpmnew)"
  check "the folder of the settings stays closed" "750 corvane_user:corvane_group" "$(file $P/config)"

  say "the same version again"
  note_pids
  check "it installs" 0 "$(packages -i next/*.deb)"
  check "and leaves no newer defaults" "" "$(file $SETTINGS.rpmnew)"
  check "both services were restarted" yes "$(new_pids && echo yes)"
  check "the agent while the service did not run" "$STOPS,$STARTS" "$(steps 4)"
  check_node "after the second installation"

  say "reboot"
  : >/tmp/before-the-reboot
  journalctl -b --no-pager >/results/journal-first-boot.txt
  printf "NODE='%s'\nFAILS=%s\nBOOT=%s\n" "$NODE" "$FAILS" "$(cat /proc/sys/kernel/random/boot_id)" >$KEPT
  systemctl --no-block start reboot.target
  exec sleep infinity
}

second_boot() {
  # shellcheck disable=SC1090
  . $KEPT
  say "after the reboot"
  check "this is another boot" yes "$([ "$(cat /proc/sys/kernel/random/boot_id)" != "$BOOT" ] && echo yes)"
  check "with an empty /tmp" "" "$(file /tmp/before-the-reboot)"
  wait_for 120 both_active; check "both services run" "active active" "$(systemctl is-active corvaned) $(systemctl is-active corvane-agentd)"
  check "at the first try" "0 0" "$(property corvaned NRestarts) $(property corvane-agentd NRestarts)"
  check "the agent served before the service started" "$STARTS" "$(steps 2)"
  check "the agent's socket" "660 root:corvane_group" "$(file /tmp/dcak.sock)"
  check "the management socket" "660 corvane_user:corvane_group" "$(file $P/config/CLI_UDS.unix)"
  check "the debug shell's folder" "700 corvane_user:corvane_group" "$(file /run/corvane)"
  check "the settings are those of before" "40 7 8" "$(jq -r '"\(.sas_hdd.min_slow_cycle) \(.added_key) \(.sas_hdd.added_in_section)"' $SETTINGS)"
  check_node "after the reboot"

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
  wait_for 60 both_active; check "and run" "active active" "$(systemctl is-active corvaned) $(systemctl is-active corvane-agentd)"
  check "also at the next boot" "enabled enabled" "$(systemctl is-enabled corvaned) $(systemctl is-enabled corvane-agentd)"
  check "the service stopped before the agent and started after it" "$STOPS,$STARTS" "$(steps 4)"
  check "with the settings" 40 "$(corvanectl show slowdisk_detect_config --json | jq .sas_hdd.min_slow_cycle)"
  check_node "after they were away"

  say "purge"
  check "the packages are purged" 0 "$(packages -P corvane nordiag libcorvane-dev libcorvane)"
  check "nothing is left below the prefix" "" "$(ls -d $P 2>/dev/null)"
  check "nor of the logs" "" "$(ls -d /var/log/corvane* 2>/dev/null)"
  check "nor of the state" "" "$(ls -d /var/lib/corvane 2>/dev/null)"
  check "the accounts stay" 0 "$(id corvane_user >/dev/null 2>&1; echo $?)"
  finish
}

if [ -e $KEPT ]; then second_boot; else first_boot; fi

#!/bin/bash
# demo.sh BUILD-DIR   watch disks come online, one leave and come back, and three get their verdicts. Needs root or sudo.
# Ends by itself or on Ctrl-C.
#
# Sockets and logs of the product have fixed paths. So the demonstration runs in a mount namespace of its own, where
# /tmp, /var/tmp and /var/log are empty and in memory; all of it is gone with the last process.
set -euo pipefail

usage() {
  echo "Usage: demo.sh BUILD-DIR" >&2
  echo "BUILD-DIR holds bin/ and lib/ of a finished build, for example build/release." >&2
  exit 2
}

inside=no
if [ "${1:-}" = --inside ]; then
  inside=yes
  shift
fi
if [ $# -ne 1 ] || [ ! -d "$1" ]; then usage; fi
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)

if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "demo: this needs root, for a mount namespace; become root or install sudo" >&2; exit 1; }
  exec sudo -- "$here/demo.sh" "$build"
fi
if [ "$inside" = no ]; then
  exec unshare --mount --propagation private -- "$here/demo.sh" --inside "$build"
fi

prefix=/tmp/corvane
export NORDIAG_DIR=/tmp/nordiag # sockets of the debug shell; /run is not this namespace's own
victim=DEMONVME0001
pids=()
started=$SECONDS

# Output -----------------------------------------------------------------------------------------------------------------

if [ -t 1 ]; then bold=$'\e[1m' plain=$'\e[0m'; else bold='' plain=''; fi

step() { printf '\n%s%s%s\n' "$bold" "$1" "$plain"; }
tell() { printf '  %s\n' "$@"; }
shown() { printf '  [%3d s] %s\n' $((SECONDS - started)) "$1"; }

fail() {
  printf '\ndemo: FAILED: %s\n' "$1" >&2
  for file in "$prefix/corvaned.out" "$prefix/agentd.out" "$prefix/sim.out" /var/log/corvane/*; do
    if [ -f "$file" ] && [ -s "$file" ]; then
      printf '%s\n' "--- last lines of $file" >&2
      tail -n 15 "$file" >&2
    fi
  done
  exit 1
}

# Processes --------------------------------------------------------------------------------------------------------------

finish() {
  trap - EXIT INT TERM
  if [ ${#pids[@]} -gt 0 ]; then
    kill -TERM "${pids[@]}" 2>/dev/null || true
    for pid in "${pids[@]}"; do
      for _ in {1..50}; do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
      done
      kill -KILL "$pid" 2>/dev/null || true
      wait "$pid" 2>/dev/null || true
    done
  fi
}
trap finish EXIT
trap 'printf "\ndemo: interrupted\n" >&2; exit 130' INT
trap 'exit 143' TERM

# Even if this script is killed its processes end with it.
launch() { # OUTPUT COMMAND...
  local out=$1
  shift
  setpriv --pdeathsig TERM -- "$@" >"$out" 2>&1 </dev/null &
  pids+=("$!")
}

alive() {
  local pid
  for pid in "${pids[@]}"; do
    kill -0 "$pid" 2>/dev/null || return 1
  done
}

wait_for() { # SECONDS WHAT CONDITION...
  local limit=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    alive || fail "a program ended by itself while waiting for this: $what"
    [ "$SECONDS" -lt "$limit" ] || fail "this did not happen in time: $what"
    sleep 0.2
  done
}

# A world of its own -----------------------------------------------------------------------------------------------------

prepare() {
  local name
  local programs=(corvaned corvanectl corvane-sim)
  [ "$real" -eq 0 ] || programs+=(corvane-agentd)
  for name in jq lsblk setpriv; do
    command -v "$name" >/dev/null || { echo "demo: $name is missing; 'tools/deps.sh demo' installs it" >&2; exit 1; }
  done
  for name in "${programs[@]}"; do
    [ -x "$build/bin/$name" ] || { echo "demo: $build/bin/$name is missing; build it first, 'make demo' does" >&2; exit 1; }
  done

  # Copied before /tmp is covered: the build may lie there.
  mount -t tmpfs -o mode=0755 tmpfs /var/log
  mkdir -p /var/log/stage/bin /var/log/stage/lib
  for name in "${programs[@]}"; do
    cp "$build/bin/$name" /var/log/stage/bin/
  done
  find "$build/lib" -maxdepth 1 -name '*.so*' -exec cp -P {} /var/log/stage/lib/ \;
  cp "$here/../corvane-sim/scenarios/demo.json" "$here/../../packaging/config/error_en.xml" /var/log/stage/
  mount -t tmpfs -o mode=1777 tmpfs /tmp
  mount -t tmpfs -o mode=1777 tmpfs /var/tmp
  mv /var/log/stage "$prefix"
  cd "$prefix"
  export LD_LIBRARY_PATH=$prefix/lib

  # The product's account, for this namespace alone.
  cp /etc/passwd "$prefix/passwd"
  cp /etc/group "$prefix/group"
  local uid=64900 gid=64900
  while grep -q "^[^:]*:[^:]*:$gid:" "$prefix/group"; do gid=$((gid + 1)); done
  while grep -q "^[^:]*:[^:]*:$uid:" "$prefix/passwd"; do uid=$((uid + 1)); done
  grep -q '^corvane_group:' "$prefix/group" || echo "corvane_group:x:$gid:" >>"$prefix/group"
  gid=$(awk -F: '$1 == "corvane_group" { print $3 }' "$prefix/group")
  grep -q '^corvane_user:' "$prefix/passwd" ||
    echo "corvane_user:x:$uid:$gid:Corvane:/nonexistent:/usr/sbin/nologin" >>"$prefix/passwd"
  chmod 0644 "$prefix/passwd" "$prefix/group"
  mount --bind "$prefix/passwd" /etc/passwd
  mount --bind "$prefix/group" /etc/group

  mkdir config userconfig_bak
  mv error_en.xml config/
  settings >config/corvane_config.json
  chmod 0750 config userconfig_bak
  chown corvane_user:corvane_group config userconfig_bak
}

# Shorter cycles than the defaults, 50 marked samples, 20 seconds and a day.
marks=10
settings() {
  jq -n --argjson marks "$marks" '
    def type(ms): {task_cycle: 5, min_threshold_value: ms, min_slow_cycle: $marks};
    {feature_switch: 1, takeover_disk_switch: 0, disklife_prediction: {task_cycle: 5},
     sata_ssd_disk: type(1), sas_ssd_disk: type(1), nvme_disk: type(1), sas_hdd: type(100)}'
}

# The node's disks that the product supports: the identity checks of the agent and the list of supported disks.
node_disks() {
  lsblk --json --scsi --output NAME,TYPE,VENDOR,MODEL,WWN,ROTA 2>/dev/null | jq -r '
    .blockdevices[]? | select(.type == "disk" and (.wwn // "")[2:3] == "5")
    | ((.vendor // "") | gsub("^\\s+|\\s+$"; "")) as $vendor | ((.model // "") | gsub("^\\s+|\\s+$"; "")) as $model
    | (.rota == true or .rota == "1") as $rotates
    | select(($model | contains("Logical Volume") | not) and ($vendor | contains("LSI") | not))
    | select(($rotates | not) and ($vendor == "ATA") and ($model | test("^(VSSD-|VLR|VL-SAS)"))
          or ($rotates | not) and ($vendor | test("^(VELMAR|0x1f7c|ORSTAN|ORSYL)$"))
          or $rotates and ($vendor | test("^(WD|Western Digital|SEAGATE|TOSHIBA)$")))
    | .name' 2>/dev/null || true
}

# Conditions and views ---------------------------------------------------------------------------------------------------

registry=$prefix/config/disk_mgr.config
registry_serials() { jq -r '.[].sn' "$registry" 2>/dev/null || true; }
registry_count() { registry_serials | grep -c . || true; }
registry_id() { jq -r --arg sn "$1" '.[] | select(.sn == $sn) | .diskId' "$registry" 2>/dev/null || true; }
registered() { [ -n "$(registry_id "$1")" ]; }
unregistered() { [ -s "$registry" ] && jq -e . "$registry" >/dev/null 2>&1 && ! registered "$1"; }

all_registered() {
  local now
  now=$(registry_count)
  if [ "$now" != "$last_count" ]; then
    shown "the registry holds $now disks"
    last_count=$now
  fi
  # Real disks are counted: their serial numbers are the node's.
  [ "$now" -ge $((${#simulated[@]} + real)) ] && [ -z "$(comm -23 <(printf '%s\n' "${simulated[@]}" | sort) <(registry_serials | sort))" ]
}

show_registry() {
  jq -r '(["ID", "TYPE", "MEDIA", "VENDOR", "MODEL", "SERIAL NUMBER", "CAPACITY", "SLOT"]),
    (sort_by(.diskId)[] | [.diskId, (["SSD_NVMe", "SSD_SAS", "SSD_SATA", "HDD_SAS", "HDD_SATA", "HDD_NL_SAS"][.diskType]),
      (["SLC", "MLC", "TLC", "QLC", "PLC", "MAGNET"][.mediaType]), .vendor, .model, .sn,
      "\((.diskCapacity | tonumber) / 1e9 | floor) GB", (if .slotId > 1000 then "-" else .slotId end)]) | @tsv' "$registry" |
    awk -F'\t' '{ printf "  %3s  %-10s %-7s %-9s %-18s %-20s %9s %5s\n", $1, $2, $3, $4, $5, $6, $7, $8 }'
}

# The last whole table that corvaned printed. A table ends where the next one begins.
last_table() {
  awk '/ disks? online$/ { whole = table; table = "" } { table = table $0 "\n" } END { printf "%s", whole }' "$prefix/corvaned.out"
}
tables_printed() { grep -c ' online$' "$prefix/corvaned.out" || true; }
show_table() { last_table | sed 's/^/  /'; }

# Columns: ID STATE TYPE VENDOR MODEL SERIAL DEVICE CAPACITY HOURS WEAR SCORE LIFE IOPS KiB/s UTIL STRATEGY; vendor, model
# and strategy may hold blanks, so the fields are counted from the serial number.
row() { # SERIAL SCRIPT   runs an awk script on the disk's row, where s is the number of the serial number's field
  last_table | awk -v serial="$1" '{ s = 0; for (i = 1; i <= NF; i++) if ($i == serial) s = i } s { '"$2"' }'
}
has_records() { # SERIAL...
  local serial
  for serial in "$@"; do
    [ -n "$(row "$serial" '
      if ($(s+3) ~ /^[0-9]+$/ && $(s+4) ~ /%$/ && $(s+7) ~ /^[1-9][0-9]*\/[1-9][0-9]*$/ && $(s+9) ~ /%$/) print')" ] || return 1
  done
}
# shellcheck disable=SC2016
state_of() { row "$1" 'print $2'; }
# shellcheck disable=SC2016
strategy_of() { row "$1" 'text = $(s+10); for (i = s + 11; i <= NF; i++) text = text " " $i; print text'; }
table_has() { last_table | grep " $1 " >/dev/null; }
table_lacks() { [ "$(tables_printed)" -gt "$1" ] && ! table_has "$2"; }

# The moments at which the I/O counters were asked for; one fan-out of requests counts once.
cycles() {
  jq -r 'select(.socket == "spdk" and .method == "dca_get_disks_iostat") | .time' "$prefix/requests.jsonl" 2>/dev/null |
    awk 'NR == 1 || $1 - last > 0.4 { printf "%.1f\n", $1 } { last = $1 }'
}
enough_cycles() { [ "$(cycles | wc -l)" -ge 4 ]; }
told() { # METHOD SERIAL
  jq -ne --arg method "$1" --arg sn "$2" 'any(inputs; .method == $method and .params.sn == $sn)' "$prefix/requests.jsonl" >/dev/null 2>&1
}
told_state() { # SERIAL STATE
  jq -ne --arg sn "$1" --argjson state "$2" 'any(inputs; .method == "dma_set_disk_state" and .params.sn == $sn
    and .params.disk_state == $state)' "$prefix/requests.jsonl" >/dev/null 2>&1
}
# The serial numbers of the simulated disks that are not normal, from the last table. Real ones may have reasons.
unhealthy() {
  local serial
  for serial in "${simulated[@]}"; do
    [ "$(state_of "$serial")" = normal ] || echo "$serial"
  done | sort
}
# Notes for each disk when its verdict has come.
all_judged() {
  local serial
  for serial in "${troubled[@]}"; do
    if [ -z "${after[$serial]:-}" ] && [ "$(state_of "$serial")" = "${verdict[$serial]}" ]; then
      after[$serial]=$(awk -v now="$EPOCHREALTIME" -v began="$began" 'BEGIN { printf "%.1f", now - began }')
      shown "$serial is ${verdict[$serial]}, ${after[$serial]} s after the trouble began"
    fi
  done
  [ ${#after[@]} -eq ${#troubled[@]} ]
}
event() { "$prefix/bin/corvane-sim" --control "$prefix/control.sock" --send "$1" >/dev/null || fail "the simulator refused the event $1"; }

# The demonstration ------------------------------------------------------------------------------------------------------

mapfile -t node < <(node_disks)
real=${#node[@]}
prepare
simulate='true'
sim_options=()
if [ "$real" -gt 0 ]; then
  simulate='.disk_type == "SSD_NVMe"'
  sim_options=(--no-dcak)
fi
# What happens here happens when it is told, not by the scenario's own clock.
jq "del(.events) | .disks |= map(select($simulate))" demo.json >scenario.json
mapfile -t simulated < <(jq -r '.disks[].serial_number' scenario.json)

step "1. Agents answer for the disks"
tell "corvaned never touches a disk. It asks two collection agents over local sockets: one for the SATA and SAS disks" \
  "that the kernel sees, one for the NVMe disks of a storage service."
if [ "$real" -gt 0 ]; then
  tell "This node has supported disks (${node[*]}): the real kernel agent, corvane-agentd, answers for them." \
    "corvane-sim plays the other agent, with ${#simulated[@]} NVMe disks."
else
  tell "This node has no supported SATA or SAS disk, so corvane-sim plays both agents, with ${#simulated[@]} disks."
fi
launch "$prefix/sim.out" "$prefix/bin/corvane-sim" --scenario scenario.json --record requests.jsonl --control "$prefix/control.sock" "${sim_options[@]}"
wait_for 30 "corvane-sim is ready" grep -qx ready "$prefix/sim.out"
if [ "$real" -gt 0 ]; then
  launch "$prefix/agentd.out" "$prefix/bin/corvane-agentd"
  wait_for 30 "corvane-agentd serves its socket" test -S /tmp/dcak.sock
fi
shown "the agents are ready"

step "2. Disks come online"
tell "corvaned starts with an empty registry. Each disk that an agent reports and that is on the list of supported disks" \
  "gets an identifier, which stays with its serial number over restarts, in config/disk_mgr.config."
last_count=0
launch "$prefix/corvaned.out" "$prefix/bin/corvaned" --prefix "$prefix" --status-interval 1
corvaned=${pids[-1]}
wait_for 60 "every disk is in the registry" all_registered
show_registry

step "3. Records arrive"
tell "Every three seconds corvaned asks for health and I/O counters. Two samples of the counters give rates; this is what" \
  "it keeps in memory of each disk:"
wait_for 60 "every simulated disk has health and I/O records" has_records "${simulated[@]}"
show_table
wait_for 60 "four collection cycles" enough_cycles
shown "the agent was asked for I/O counters at these seconds of its own clock: $(cycles | tail -n 4 | paste -sd' ')"
cycles | tail -n 4 | awk 'NR > 1 && ($1 - last < 1.5 || $1 - last > 6) { exit 1 } { last = $1 }' ||
  fail "the cycles are not about three seconds apart"

step "4. A disk is pulled"
old_id=$(registry_id "$victim")
tell "NVMe disk $victim, identifier $old_id, leaves. The next scan, every five seconds, no longer finds it: it goes offline," \
  "and so it does in the registry and at the data agent, which mirrors what corvaned knows."
event "{\"do\":\"pull\",\"disk\":\"$victim\"}"
shown "pulled"
wait_for 30 "the pulled disk leaves the registry" unregistered "$victim"
shown "the registry holds $(registry_count) disks, $victim is not among them"
wait_for 10 "the data agent is told of the pulled disk" told dma_poweroff_disk "$victim"
shown "the data agent was told: dma_poweroff_disk $victim"
tables=$(tables_printed)
wait_for 30 "the pulled disk leaves the table" table_lacks $((tables + 1)) "$victim"
[ "$(registry_count)" -ge $((${#simulated[@]} + real - 1)) ] || fail "other disks left with the pulled one"

step "5. It comes back"
tell "A disk that returns is a new disk: it might have been anywhere. It gets the next free identifier and new records."
event "{\"do\":\"plug\",\"disk\":\"$victim\"}"
shown "plugged"
wait_for 30 "the disk is in the registry again" registered "$victim"
new_id=$(registry_id "$victim")
[ "$new_id" != "$old_id" ] || fail "the disk got its old identifier $old_id again"
shown "$victim is back, with identifier $new_id instead of $old_id"
wait_for 30 "the disk has records again" has_records "$victim"
show_table

step "6. Three disks get into trouble"
if [ "$real" -gt 0 ]; then
  slow=DEMONVME0000 failing=$victim worn=DEMONVME0002
  failure='"critical_warning":8' sign="went read-only"
else
  slow=DEMOSATA0001 failing=DEMOHDDS0000 worn=DEMOSASS0001
  failure='"ASC":93,"ASCQ":16' sign="predicts its failure"
fi
troubled=("$slow" "$failing" "$worn")
declare -A trouble=([$slow]="takes 20 ms for an operation" [$failing]="$sign" [$worn]="99 percent used in 1970 hours")
declare -A verdict=([$slow]=slow [$failing]=prefail [$worn]=fault)
declare -A strategy=([$slow]="Migrate data and replace the hard disk" [$failing]="Migrate data and replace the hard disk" [$worn]="Replace the hard disk")
declare -A number=([$slow]=4 [$failing]=3 [$worn]=1) # of the states, to the data agent
tell "Until now all disks are normal. At the same moment" \
  "- $slow becomes slow; its peers serve their load as before. A sample is taken every 3 seconds, and the disk is" \
  "  called slow after $marks of them in which it stood out (the default is 50);" \
  "- $failing ${trouble[$failing]}; the prefail routine looks every 5 seconds (20);" \
  "- $worn is ${trouble[$worn]}; a life is predicted every 5 seconds (once a day)."
[ "$(unhealthy)" = "" ] || fail "a disk is not normal before its trouble: $(unhealthy)"
began=$EPOCHREALTIME
event "{\"do\":\"io\",\"disk\":\"$slow\",\"set\":{\"service_us\":20000}}"
event "{\"do\":\"health\",\"disk\":\"$failing\",\"set\":{$failure}}"
event "{\"do\":\"health\",\"disk\":\"$worn\",\"set\":{\"wear\":9900,\"power_on_hours\":1970}}"
shown "the trouble begins"
declare -A after=()
wait_for 150 "every troubled disk has its verdict" all_judged
[ "$(unhealthy)" = "$(printf '%s\n' "${troubled[@]}" | sort)" ] || fail "these disks have verdicts: $(unhealthy | tr '\n' ' ')"
awk -v seconds="${after[$slow]}" -v marks="$marks" 'BEGIN { exit !(seconds >= 3 * (marks - 2)) }' ||
  fail "$slow was called slow after ${after[$slow]} s: that is less than $marks samples"
for serial in "${troubled[@]}"; do
  [ "$(strategy_of "$serial")" = "${strategy[$serial]}" ] || fail "the strategy for $serial is \"$(strategy_of "$serial")\""
  wait_for 10 "the data agent is told of $serial" told_state "$serial" "${number[$serial]}"
done
show_table

step "7. What was found"
format='  %-14s %-30s %-8s %9s  %s\n'
# shellcheck disable=SC2059
{
  printf "$format" DISK TROUBLE VERDICT AFTER "WHAT TO DO"
  for serial in "${troubled[@]}"; do
    printf "$format" "$serial" "${trouble[$serial]}" "$(state_of "$serial")" "${after[$serial]} s" "$(strategy_of "$serial")"
  done
}
[ ${#simulated[@]} -eq 3 ] || tell "The other $((${#simulated[@]} - 3)) simulated disks are normal."
tell "The data agent has been told of all three."

step "8. What an operator sees"
tell "corvanectl asks corvaned over its own socket, config/CLI_UDS.unix. This is what an operator of this node types:" \
  "" "\$ corvanectl list"
"$prefix/bin/corvanectl" list >list.out 2>list.err || fail "corvanectl list: $(cat list.err)"
sed 's/^/  /' list.out
listed() { "$prefix/bin/corvanectl" list --json | jq -r --arg sn "$1" '.disks[] | select(.sn == $sn) | "\(.state): \(.suggestion)"'; }
for serial in "${troubled[@]}"; do
  [ "$(listed "$serial")" = "${verdict[$serial]}: ${strategy[$serial]}" ] || fail "corvanectl lists $serial as \"$(listed "$serial")\""
done
slow_id=$(registry_id "$slow")
tell "" "\$ corvanectl show drm_info disk_id=$slow_id"
"$prefix/bin/corvanectl" show drm_info "disk_id=$slow_id" | sed 's/^/  /'
tell "" "To look further: corvanectl watch has state, score, life and utilisation live; show iostat_info and smart_info have" \
  "the numbers of a disk, show slowdisk_detect_config what a verdict goes by, and corvanectl help COMMAND the rest. --json" \
  "is for scripts."

step "9. The end"
kill -TERM "$corvaned"
status=0
wait "$corvaned" || status=$?
[ "$status" -eq 0 ] || fail "corvaned ended with status $status"
shown "corvaned ended on request; the programs, their files and this small world are gone in a moment"
tell "Next: docs/corvanectl.md for operators, docs/verdicts.md for how a verdict is reached and tuned, docs/simulator.md to write a scenario of your own."

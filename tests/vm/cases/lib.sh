# shellcheck shell=sh disable=SC2034
# lib.sh: what the guest scripts share; sourced by each of them.
P=/opt/corvane
REG=$P/config/disk_mgr.config
STATUS=/tmp/status.jsonl
FAILS=0
CORVANED=""

say() { echo "--- $*"; }
# check WHAT WANTED FOUND
check() {
  if [ "$2" = "$3" ]; then echo "ok   $1"; else echo "FAIL $1: wanted '$2', found '$3'"; FAILS=$((FAILS + 1)); fi
}
finish() {
  cp -a $P/config /results/ 2>/dev/null
  cp /tmp/*.log $STATUS /results/ 2>/dev/null
  cp -a /var/log/corvane /results/ 2>/dev/null
  echo "checks failed: $FAILS"
  [ $FAILS -eq 0 ]
  exit
}
# wait_for SECONDS COMMAND...   until the command succeeds; time only bounds the wait, it decides nothing
wait_for() {
  w_left=$(($1 * 5)); shift
  until eval "$*" >/dev/null 2>&1; do
    w_left=$((w_left - 1)); [ $w_left -le 0 ] && return 1
    # what has died will not come true any more
    [ -n "$CORVANED" ] && ! kill -0 "$CORVANED" 2>/dev/null && { echo "corvaned is gone:"; cat /tmp/corvaned.log; return 1; }
    sleep 0.2
  done
}

install_corvane() {
  mkdir -p $P/bin $P/lib $P/config $P/userconfig_bak /var/log/corvane
  cp /payload/bin/* $P/bin/; cp -d /payload/lib/* $P/lib/
  chown corvane_user:corvane_group $P/config $P/userconfig_bak
  export LD_LIBRARY_PATH=$P/lib PATH=$P/bin:$PATH
}
# settings FILTER   the settings as they are built in, changed by a jq filter
settings() {
  jq -n '{feature_switch: 1, takeover_disk_switch: 0, disklife_prediction: {task_cycle: 86400}}
    + ({sata_ssd_disk: 1, sas_ssd_disk: 1, nvme_disk: 1, sas_hdd: 100}
       | map_values({task_cycle: 20, min_threshold_value: ., min_slow_cycle: 50})) | '"$1" >$P/config/corvane_config.json
  chown corvane_user:corvane_group $P/config/corvane_config.json; chmod 640 $P/config/corvane_config.json
}
start_agentd() {
  corvane-agentd >/tmp/agentd.log 2>&1 & AGENTD=$!
  wait_for 30 test -S /tmp/dcak.sock
}
start_corvaned() {
  : >$STATUS
  corvaned --prefix $P --status-interval 1 --status-format json >>$STATUS 2>/tmp/corvaned.log & CORVANED=$!
}
stop() { # PID [SIGNAL]
  [ "$1" = "$CORVANED" ] && CORVANED=""
  kill "-${2:-TERM}" "$1" 2>/dev/null; wait "$1" 2>/dev/null
}
agent() { # METHOD [DEVICE...]   the agent's result
  m=$1; shift
  if [ $# -eq 0 ]; then r="{\"jsonrpc\":\"2.0\",\"method\":\"$m\",\"id\":1}"
  else r="{\"jsonrpc\":\"2.0\",\"method\":\"$m\",\"id\":1,\"params\":{\"devices\":[$(printf '"%s",' "$@" | sed 's/,$//')],\"period\":\"20\"}}"; fi
  agentrpc /tmp/dcak.sock "$r" | jq -c .result
}
status() { tail -n 2 $STATUS | grep '^{.*}$' | tail -n 1 | jq -r "$1" 2>/dev/null; }
disk() { status ".disks[]|select(.sn==\"$1\")|$2"; }           # of a live disk, from the running service
reg() { jq -r ".[]|select(.sn==\"$1\")|$2" $REG 2>/dev/null; } # of a disk in the registry file
reg_count() { jq length $REG 2>/dev/null; }
# verdict SERIAL   state in memory, state in the registry file, strategy
verdict() { echo "$(disk "$1" .state), $(reg "$1" .diskState), $(disk "$1" .strategy)"; }
NORMAL="normal, 0, No action required"
FAULT="fault, 1, Replace the hard disk"
PREFAIL="prefail, 3, Migrate data and replace the hard disk"
SLOW="slow, 4, Migrate data and replace the hard disk"
# logged TEXT   how many lines of the log hold it
logged() { cat /var/log/corvane/*.log 2>/dev/null | grep -cF "$1"; }
online() { [ "$(status '.disks|length')" = "$1" ]; }
in_reg() { [ -n "$(reg "$1" .diskId)" ]; }
not_in_reg() { [ -s $REG ] && ! in_reg "$1"; }
stat_col() { awk -v d="$1" -v c="$2" '$3==d{print $c}' /proc/diskstats; }

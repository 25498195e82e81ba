#!/bin/bash
# corvane_log_file_op.sh -s FILE -d FOLDER/ -l COUNT -p PREFIX -u USER -g GROUP backupcntlimit
#
# Takes a rotated log file away: compresses FILE into FOLDER, gives the result to USER and GROUP with mode 0640, and
# removes the oldest files of FOLDER whose names start with PREFIX until COUNT are left. FILE stays as it is when it
# cannot be compressed, for example on a full file system; the limit is kept all the same, which makes room.
#
# Two runs on one folder wait for each other. Exit status: 0 done, 1 something failed, 2 bad arguments.
set -uo pipefail
umask 077
export LC_ALL=C

die() { # STATUS MESSAGE
  echo "corvane_log_file_op.sh: $2" >&2
  exit "$1"
}

source='' folder='' limit='' prefix='' user='' group=''
while getopts ':s:d:l:p:u:g:' option; do
  case $option in
    s) source=$OPTARG ;;
    d) folder=$OPTARG ;;
    l) limit=$OPTARG ;;
    p) prefix=$OPTARG ;;
    u) user=$OPTARG ;;
    g) group=$OPTARG ;;
    :) die 2 "-$OPTARG needs a value" ;;
    *) die 2 "unknown option -$OPTARG" ;;
  esac
done
shift $((OPTIND - 1))

[ "$#" -eq 1 ] || die 2 "the operation must be backupcntlimit"
[ "$1" = backupcntlimit ] || die 2 "unknown operation $1"
for value in "$source" "$folder" "$prefix" "$user" "$group"; do
  [ -n "$value" ] || die 2 "-s, -d, -l, -p, -u and -g are all needed"
done
[[ $limit =~ ^[0-9]{1,6}$ ]] || die 2 "-l takes a number of files"
limit=$((10#$limit))
[[ $folder == */ ]] || die 2 "-d takes a folder with its trailing slash"
[[ $prefix != */* ]] || die 2 "-p takes the beginning of a file name"
# A name that starts with a dash would pass for an option.
[[ $source == /* ]] || source=./$source
[[ $folder == /* ]] || folder=./$folder
[ -d "$folder" ] || die 1 "$folder is no folder"

exec {lock}<"$folder" || die 1 "$folder cannot be read"
flock -w 300 "$lock" || die 1 "another run has held $folder for five minutes"

name=${source##*/}
result=$folder$name.gz
unfinished=$folder.corvane_log_file_op.tmp # one name: only the holder of the lock writes it, and a leftover is replaced

compress() {
  # Another run may have done it while this one waited.
  [ -e "$source" ] || [ ! -e "$result" ] || return 0
  if [ ! -f "$source" ] || [ -L "$source" ]; then
    echo "corvane_log_file_op.sh: $source is no plain file" >&2
    return 1
  fi
  rm -f "$unfinished"
  if gzip -c <"$source" >"$unfinished" && chmod 0640 "$unfinished" && chown -- "$user:$group" "$unfinished" &&
      touch -r "$source" "$unfinished" && mv -fT "$unfinished" "$result"; then
    rm -f "$source"
  else
    rm -f "$unfinished"
    return 1
  fi
}

# Oldest first, by the time of the last line; equal ones by name, which holds the time of the rotation.
limit_count() {
  local entry file files=()
  while IFS= read -r -d '' entry; do
    file=${entry#* }
    [[ $file == "$prefix"* ]] && files+=("$file")
  done < <(find "$folder" -maxdepth 1 -type f -printf '%T@ %f\0' | sort -z -k1,1n -k2)
  local surplus=$((${#files[@]} - limit))
  [ "$surplus" -gt 0 ] || return 0
  for file in "${files[@]:0:surplus}"; do
    rm -f "$folder$file" || return 1
  done
}

status=0
compress || status=1
limit_count || status=1
exit "$status"

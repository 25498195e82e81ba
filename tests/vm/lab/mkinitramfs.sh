#!/bin/bash
# mkinitramfs.sh OUT INIT [FILE...]   builds an initramfs around INIT with the host's lsblk,
# udev, sg3-utils, smartctl, nvme and the Debian kernel's disk modules.
# Extra FILEs are src:dst pairs; ELF files bring their libraries.  OUT is gzipped when its
# name ends in .gz, plain cpio otherwise (plain boots faster under TCG).
set -euo pipefail
out=$1 init=$2; shift 2
kroot=${KROOT:-} kver=${KVER:?the kernel version}
root=$(mktemp -d); trap 'rm -rf "$root"' EXIT
mkdir -p $root/{bin,sbin,usr/bin,usr/sbin,usr/lib/udev,lib,lib64,etc,proc,sys,dev,run,tmp,var/tmp,var/log,lib/modules/$kver,root,results,payload,vmlab/bin}
chmod 1777 $root/tmp $root/var/tmp
elf() { # src dst
  install -D -m755 "$1" "$root/$2"
  { ldd "$1" 2>/dev/null || true; } | awk '/=> \//{print $3} /^\t\//{print $1}' | while read -r l; do
    [ -e "$root$l" ] || install -D -m755 "$l" "$root$l"; done || true
}
elf /bin/busybox bin/busybox
for a in $(/bin/busybox --list); do case $a in sh|ash|busybox|poweroff|lspci) ;; *) ln -sf /bin/busybox "$root/bin/$a";; esac; done
ln -sf /bin/busybox $root/bin/poweroff
# the shell and the filters of the product's pipelines are the distribution's own
elf "$(readlink -f /bin/dash)" bin/dash; ln -sf dash $root/bin/sh
for b in grep sed sort ps kill pgrep top free; do p=$(command -v $b) && [ -f "$(readlink -f "$p")" ] && { rm -f $root/bin/$b; elf "$(readlink -f "$p")" usr/bin/$b; } || true; done
elf /usr/bin/mawk usr/bin/mawk; rm -f $root/bin/awk; ln -sf mawk $root/usr/bin/awk
elf /usr/bin/lsblk usr/bin/lsblk
elf /usr/bin/udevadm usr/bin/udevadm; mkdir -p $root/lib/systemd; ln -sf /usr/bin/udevadm $root/lib/systemd/systemd-udevd
for b in /usr/bin/{sg_logs,sg_inq,sg_raw,sg_modes,sg_wr_mode,sg_vpd,sg_requests,sg_readcap,sg_turs,sg_scan,strace,lscpu,flock,setpriv,jq,stdbuf} \
         /usr/sbin/{smartctl,nvme,dmidecode} /usr/bin/{mawk,dmidecode,lspci}; do
  [ -x "$b" ] && elf "$(readlink -f "$b")" "${b#/}"; done || true
cp -a /lib/udev/rules.d $root/usr/lib/udev/ 2>/dev/null || true
for b in scsi_id ata_id; do [ -x /lib/udev/$b ] && elf /lib/udev/$b usr/lib/udev/$b; done
ln -sfn /usr/lib/udev $root/lib/udev
cp /etc/nsswitch.conf $root/etc/ 2>/dev/null || true
printf 'root:x:0:0:root:/root:/bin/sh\ncorvane_user:x:995:995::/:/bin/sh\n' > $root/etc/passwd
printf 'root:x:0:\ntty:x:5:\ndisk:x:6:\ncorvane_group:x:995:\n' > $root/etc/group
printf '127.0.0.1 localhost\n' > $root/etc/hosts
mods="sd_mod sg ses ahci virtio_pci virtio_scsi virtio_console virtio_net scsi_debug nvme megaraid_sas mptsas mptspi sym53c8xx
 target_core_user tcm_loop uio configfs null_blk dm_mod dm_delay dm_flakey libcrc32c crc32c_generic crct10dif_generic crc64-rocksoft_generic scsi_transport_sas ext4"
for m in $mods ${EXTRA_MODULES:-}; do
  { modprobe -d "$kroot/" -S "$kver" --show-depends "$m" 2>/dev/null || echo "mkinitramfs: no module $m" >&2; } | awk '$1=="insmod"{print $2}'
done | sort -u | while read -r f; do f=/${f#"$kroot"}; f=/lib/${f#*/lib/}; install -D -m644 "$kroot$f" "$root$f"; done
cp $kroot/lib/modules/$kver/modules.{order,builtin,builtin.modinfo} $root/lib/modules/$kver/ 2>/dev/null || true
depmod -b $root $kver
for p in "$@"; do s=${p%%:*} d=${p#*:}; if [ -d "$s" ]; then mkdir -p "$root$d"; cp -a "$s/." "$root$d/"
  elif head -c4 "$s" | grep -q ELF; then elf "$s" "${d#/}"; else install -D -m755 "$s" "$root$d"; fi; done
install -m755 "$init" $root/init
case $out in *.gz) z="gzip -1";; *) z="cat";; esac
( cd $root && find . | sort | cpio -o -H newc --quiet | $z ) > "$out"

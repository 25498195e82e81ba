#!/bin/sh
# /init of the lab guest: bring up devices as /vmlab/config says, run /vmlab/test.sh, hand
# the results and the exit code to the host, power off.
export PATH=/vmlab/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb
mount -t proc proc /proc; mount -t sysfs sys /sys; mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm /run/udev/rules.d
mount -t devpts devpts /dev/pts; mount -t tmpfs -o mode=1777 tmpfs /dev/shm; mount -t tmpfs -o mode=1777 tmpfs /tmp
[ -e /dev/fd ] || ln -s /proc/self/fd /dev/fd
hostname vmlab; ifconfig lo 127.0.0.1 up 2>/dev/null
SCSI_DEBUG="" SASEMU=0 WAIT_DISKS=0 ROOT_SERIAL=""
. /vmlab/config
[ -s /vmlab/61-vmlab.rules ] && cp /vmlab/61-vmlab.rules /run/udev/rules.d/
load() { while read -r m; do modprobe $m || echo "vmlab: no module $m"; done; }
load </vmlab/modules-early
/lib/systemd/systemd-udevd --daemon >/dev/null 2>&1
for m in virtio_pci virtio_console sg sd_mod; do modprobe $m 2>/dev/null || echo "vmlab: no module $m"; done
load </vmlab/modules
[ -n "$SCSI_DEBUG" ] && { modprobe scsi_debug $SCSI_DEBUG || echo "vmlab: no scsi_debug"; }
udevadm trigger --action=add; udevadm settle -t 30
if [ "$SASEMU" = 1 ]; then
  modprobe uio; modprobe configfs; mount -t configfs configfs /sys/kernel/config 2>/dev/null
  modprobe target_core_mod; modprobe target_core_user; modprobe tcm_loop
  mkdir -p /var/target /etc/target
  sasemu -f /vmlab/sasemu.json $SASEMU_ARGS >/run/sasemu.log 2>&1 & echo $! >/run/sasemu.pid
  i=0; until grep -q 'disks ready' /run/sasemu.log || [ $i -ge 300 ] || ! kill -0 "$(cat /run/sasemu.pid)" 2>/dev/null; do sleep 0.1; i=$((i+1)); done
  grep "^sasemu: " /run/sasemu.log
fi
i=0; while [ "$(ls -d /sys/block/sd* /sys/block/nvme* 2>/dev/null | wc -l)" -lt $WAIT_DISKS ] && [ $i -lt 100 ]; do sleep 0.1; i=$((i+1)); done
udevadm settle -t 30
if [ -n "$ROOT_SERIAL" ]; then # boot the system on that disk; it runs the script itself
  modprobe ext4; mkdir -p /newroot
  mount "/dev/$(devof "$ROOT_SERIAL" 30)" /newroot || { echo "vmlab: no root"; poweroff -f; }
  cp -a /vmlab /payload /newroot/
  udevadm control --exit
  umount /dev/pts /dev/shm
  for m in proc sys dev; do mount --move /$m /newroot/$m; done
  exec switch_root -c /dev/console /newroot /sbin/init
fi
read up _ </proc/uptime; echo "=== vmlab: guest ready after $up s"
mkdir -p /results; cd /payload || poweroff -f
/vmlab/test.sh; rc=$?
read up _ </proc/uptime; echo "=== vmlab: guest script ended with $rc at $up s"
cd /
dmesg >/results/vmlab-dmesg.txt 2>/dev/null
[ -f /run/sasemu.log ] && cp /run/sasemu.log /results/vmlab-sasemu.log
tar cf - -C /results . >/dev/virtio-ports/vmlab.results
vmctl exit $rc
poweroff -f

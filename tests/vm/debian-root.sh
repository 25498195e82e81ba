#!/bin/bash
# debian-root.sh IMAGE   a small Debian system that boots systemd, as a file system image: what the packages depend on,
# and a unit that runs the guest's script. Made once for a list of packages; needs root.
set -euo pipefail
image=$1
packages=systemd,systemd-sysv,udev,adduser,kmod,util-linux,mawk,gzip,procps,jq,libcjson1,libmxml1,libspdlog1.10,libedit2,libstdc++6,libcjson-dev,libmxml-dev,dmidecode,pciutils
if [ -e "$image" ] && [ "$(cat "$image.packages" 2>/dev/null)" = "$packages" ]; then exit 0; fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"

# The machine's own package sources, Debian's alone.
if [ -s /etc/apt/sources.list.d/debian.sources ]; then
  sources=$work/debian.sources
  cp /etc/apt/sources.list.d/debian.sources "$sources"
else
  sources=$work/debian.list
  grep -hE '^deb .*debian' /etc/apt/sources.list /etc/apt/sources.list.d/*.list >"$sources"
fi
mmdebstrap --variant=minbase --include="$packages" \
  --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/locale/*' \
  --dpkgopt='path-include=/usr/share/doc/*/copyright' \
  bookworm "$work/root" "$sources" >"$image.log" 2>&1 || { tail -n 30 "$image.log" >&2; exit 1; }

root=$work/root
rm -rf "$root"/var/cache/apt/* "$root"/var/lib/apt/lists/*
echo vmlab >"$root/etc/hostname"
: >"$root/etc/fstab"
: >"$root/etc/machine-id"
cat >"$root/etc/systemd/system/vmlab.service" <<'UNIT'
[Unit]
Description=The guest's script
After=multi-user.target
[Service]
Type=oneshot
ExecStart=/vmlab/bin/run-in-root
StandardOutput=tty
StandardError=tty
TTYPath=/dev/console
[Install]
WantedBy=default.target
UNIT
mkdir -p "$root/etc/systemd/system/default.target.wants"
ln -s ../vmlab.service "$root/etc/systemd/system/default.target.wants/vmlab.service"
for unit in apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer e2scrub_all.timer fstrim.timer getty@tty1.service \
  serial-getty@ttyS0.service systemd-networkd.service systemd-resolved.service; do
  ln -sf /dev/null "$root/etc/systemd/system/$unit"
done
# The modules are the first stage's.
ln -sf /dev/null "$root/etc/systemd/system/systemd-modules-load.service"
rm -f "$image.tmp"
truncate -s 1500M "$image.tmp"
mke2fs -q -t ext4 -O ^has_journal -d "$root" "$image.tmp"
mv "$image.tmp" "$image"
echo "$packages" >"$image.packages"

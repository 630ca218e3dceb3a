#!/usr/bin/env bash
# Runs a command in a root that is this machine's own, as it is, with everything that is changed there kept in memory
# and gone at the end. To be started as the first process of a mount, PID and network namespace of its own.
#
#   overlay.sh FOLDER COMMAND...     FOLDER of this machine is /packages there, and cannot be changed
#
# With status 77 the system refuses such a root.

set -euo pipefail
folder=$1
shift

# The mounts of this namespace alone; what follows would otherwise be seen outside.
mount --make-rprivate /
mount -t tmpfs -o mode=755 tmpfs /mnt
mkdir /mnt/changes /mnt/work /mnt/root
mount -t overlay -o lowerdir=/,upperdir=/mnt/changes,workdir=/mnt/work overlay /mnt/root || exit 77
root=/mnt/root
mkdir -p "$root/packages"
mount --bind -o ro "$folder" "$root/packages"
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount --rbind /dev "$root/dev"
mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
mount -t tmpfs -o mode=755 tmpfs "$root/run"
ip link set lo up

cd "$root"
pivot_root . mnt
umount -l mnt
cd /
# No exec: this process stays the first one, and takes in the processes that lost their parent.
env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 "$@"

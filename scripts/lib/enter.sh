#!/usr/bin/env bash
# Runs a command in a root that scripts/systems made. To be started as the first process of a mount and PID
# namespace of its own: every mount here and every process below goes when it ends.
#
#   enter.sh ROOT CACHE COMMAND...     CACHE holds downloaded packages and the compiler cache

set -euo pipefail
root=$1
cache=$2
shift 2

mount --bind "$root" "$root"
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sysfs "$root/sys"
mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
mount -t tmpfs -o mode=755 tmpfs "$root/run"
mount --bind "$cache/packages" "$root/var/cache/apt/archives"
mount --bind "$cache/ccache" "$root/root/.cache/ccache"
ip link set lo up

# Of the environment only how the packages are reached.
variables=(PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8)
for name in http_proxy https_proxy no_proxy HTTP_PROXY HTTPS_PROXY NO_PROXY; do
  if [ -n "${!name-}" ]; then variables+=("$name=${!name}"); fi
done
# The root becomes that of the namespace, and the old one goes. With chroot the system would refuse the tests mounts
# and users of their own.
cd "$root"
pivot_root . .
umount -l .
cd /sorvinfo
# No exec: this process stays the first one, and takes in the processes that lost their parent.
env -i "${variables[@]}" "$@"

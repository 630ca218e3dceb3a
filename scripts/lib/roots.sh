# shellcheck shell=bash
# Roots of Debian releases, made with debootstrap. To be read in after common.sh.

# The mirror of Debian that this machine's apt uses; empty when it uses none.
# shellcheck disable=SC2016  # apt-get's own variable
debian_mirror() {
  apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Origin: Debian' 'Label: Debian' | head -1
}

# reach_packages ROOT SUITE MIRROR: how a root's apt reaches the packages, as this machine's does.
reach_packages() {
  echo "deb $3 $2 main" >"$1/etc/apt/sources.list"
  apt-config dump | sed -nE '/^Acquire::(https?::|Retries |Check-)/p' >"$1/etc/apt/apt.conf.d/50machine"
  cp --dereference /etc/resolv.conf /etc/hosts "$1/etc"
  if [ -e /etc/ssl/certs/ca-certificates.crt ]; then
    mkdir -p "$1/etc/ssl/certs"
    cp --dereference /etc/ssl/certs/ca-certificates.crt "$1/etc/ssl/certs"
  fi
}

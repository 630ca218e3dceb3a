# shellcheck shell=bash disable=SC2034
# Debian packages that the other scripts need. To be read in by common.sh. Of A|B, a package that has one name in
# newer releases and another in older ones, the first that the release has is installed.

# What building and running takes.
build_packages=(g++ cmake ninja-build pkg-config libasio-dev libavahi-client-dev libcli11-dev
                libfmt-dev libncurses-dev nlohmann-json3-dev psmisc)
# What building Debian packages takes beyond that.
package_packages=(build-essential debhelper dh-python dpkg-dev python3)
# What the tests take beyond that.
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev avahi-daemon dbus iproute2 util-linux procps
               fish hostname libseccomp-dev lintian logrotate mandoc mypy python3 python3-jsonschema python3-pip
               python3-prometheus-client python3-setuptools python3-wheel systemd tmux tshark util-linux-extra zsh "${package_packages[@]}")
package_test_packages=(debootstrap faketime)
clang_packages=(clang)
fuzz_packages=(clang 'libclang-rt-dev|libclang-rt-14-dev')
coverage_packages=(clang llvm 'libclang-rt-dev|libclang-rt-14-dev')
format_packages=(clang-format)
tidy_packages=(clang-tidy)

policy_file=/usr/sbin/policy-rc.d
policy_is_ours=no

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    fail "'$*' must run as root, and there is no sudo: install the packages named above as root"
  fi
}

# Services stay stopped while packages are installed: a responder for Multicast DNS, which the tests
# start in a network of their own, must never speak on this machine's. A policy of this machine stays.
keep_services_stopped() {
  [ -e "$policy_file" ] && return
  policy_is_ours=yes
  trap allow_services EXIT
  printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy_file" >/dev/null
  as_root chmod 755 "$policy_file"
}

allow_services() {
  if [ "$policy_is_ours" = yes ]; then
    as_root rm -f "$policy_file"
    policy_is_ours=no
  fi
  trap - EXIT
}

# is_installed NAME
is_installed() { [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

# missing_packages NAME...: those that are not installed under any of their names, a line each.
missing_packages() {
  local names name
  for names in "$@"; do
    for name in ${names//|/ }; do
      is_installed "$name" && continue 2
    done
    echo "$names"
  done
}

# name_here NAME|NAME...: the first name that the package lists know; the last one when they know none.
name_here() {
  local name
  for name in ${1//|/ }; do
    if apt-cache show "$name" >/dev/null 2>&1; then break; fi
  done
  echo "$name"
}

# install_packages NAME...: installs those that are missing, and nothing when none is.
install_packages() {
  local missing names=()
  mapfile -t missing < <(missing_packages "$@")
  [ "${#missing[@]}" -eq 0 ] && return
  command -v apt-get >/dev/null || fail "these packages are missing, and there is no apt-get: ${missing[*]}"
  say "installing ${missing[*]}"
  keep_services_stopped
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq update ||
    fail "the package lists could not be read"
  mapfile -t names < <(for name in "${missing[@]}"; do name_here "$name"; done)
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends \
    -o Dpkg::Use-Pty=0 install "${names[@]}" >/dev/null || fail "the packages could not be installed"
  allow_services
}

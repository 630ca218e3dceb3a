# shellcheck shell=bash disable=SC2034,SC2154
# What `scripts/test package` does: builds the packages twice, judges them, and tries them on a machine that has
# nothing else. To be read in after common.sh; takes `record_one` from its reader.

# shellcheck source=roots.sh
. "$project/scripts/lib/roots.sh"

package_folder=$project/build/package

# All that may differ from one machine to the next and is not a package: the folder, the time and its zone, the
# language, the user's name and home, the permissions of new files, and what a compiler cache may hold.
build_elsewhere() {
  umask 0077
  # The times of files stay real: tools compare them with each other, and some get them past the shift.
  env -i PATH="$PATH" HOME=/nonexistent USER=somebody LC_ALL=POSIX TZ=Pacific/Kiritimati CCACHE_DISABLE=1 \
    NO_FAKE_STAT=1 faketime -f '+400d' scripts/package --output "$package_folder/elsewhere/and/further"
}

# The file .buildinfo tells when and where it was made, and .changes has its check sum.
packages_are_equal() {
  local file status=0 count=0
  for file in "$package_folder"/one/*.deb "$package_folder"/one/*.tar.* "$package_folder"/one/*.dsc; do
    cmp "$file" "$package_folder/elsewhere/and/further/$(basename "$file")" || status=1
    count=$((count + 1))
  done
  say "$count files compared"
  # Two programs and the library with their symbols, the files for those who link it, the client for Python, the source.
  [ "$status" -eq 0 ] && [ "$count" -ge 11 ]
}

# in_bare_root NETWORK COMMAND...: see `inside` in scripts/systems.
in_bare_root() {
  local network=()
  if [ "$1" = none ]; then network=(--net); fi
  shift
  setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child "${network[@]}" \
    scripts/lib/enter.sh "$package_folder/root" "$package_folder/cache" "$@"
}

# An administrator's way: apt finds what the packages need. Then the same steps as in CI.
try_in_bare_root() {
  local root=$package_folder/root mirror suite
  mirror=$(debian_mirror)
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  rm -rf "$root"
  mkdir -p "$package_folder"/cache/{packages,ccache}
  debootstrap --variant=minbase --include=iproute2,logrotate,procps --cache-dir="$package_folder/cache/packages" \
    "$suite" "$root" "$mirror" || return
  mkdir -p "$root/root/.cache/ccache" "$root/sorvinfo"
  reach_packages "$root" "$suite" "$mirror"
  cp -r "$package_folder"/one/*.deb tests/packaging/debian "$root/sorvinfo"
  cp tests/integration/programs/upgradable_server.py "$root/sorvinfo/debian"
  rm -f "$root"/sorvinfo/*-dbgsym_*
  in_bare_root shared bash -ec '
    export DEBIAN_FRONTEND=noninteractive
    apt-get -qq update
    apt-get -y --no-install-recommends install ./*.deb
    apt-get -y purge sorvinfo sorvctl python3-sorvane libsorvane1 libsorvane-dev' || return
  in_bare_root none debian/lifecycle.sh .
}

test_package() {
  local status=0
  rm -rf "$package_folder/one" "$package_folder/elsewhere"
  scripts/package --output "$package_folder/one" || status=$?
  record_one 'package build' "$status"
  [ "$status" -eq 0 ] || return 0

  started=$SECONDS
  # A newer lintian does not know each tag of an older one that an override names. In programs it takes machine code
  # and texts that lie side by side for misspelt words.
  lintian --allow-root --display-info --fail-on error,warning,info --suppress-tags alien-tag,spelling-error-in-binary \
    "$package_folder"/one/*.changes || status=$?
  record_one 'package lintian' "$status"

  started=$SECONDS status=0
  { (build_elsewhere) && packages_are_equal; } || status=$?
  record_one 'package built elsewhere is the same' "$status"

  started=$SECONDS status=0
  if [ "$(id -u)" -eq 0 ]; then
    try_in_bare_root >"$package_folder/root.log" 2>&1 || status=$?
    [ "$status" -eq 0 ] || tail -20 "$package_folder/root.log"
    record_one 'package in a bare root' "$status"
  else
    skipped=$((skipped + 1))
    results+=('package in a bare root: skipped, needs root')
  fi
}

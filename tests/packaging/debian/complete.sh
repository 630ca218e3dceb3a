#!/usr/bin/env bash
# Compares the packages with an installation in a folder of its own: what that has for people, they have, too. Files that
# a package needs in other places, and examples of them, are in share/sorvinfo and etc there. Two folders of the packages
# have other names.
#
#   complete.sh BUILD FOLDER     the build folder, and the folder with the packages of it

set -euo pipefail
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$1" --prefix "$prefix" >/dev/null
packaged=$(for package in "$2"/*.deb; do dpkg-deb --fsys-tarfile "$package" | tar -t; done)

packaged=${packaged//usr\/sbin/usr\/bin}
packaged=${packaged//zsh\/vendor-completions/zsh\/site-functions}

count=0
status=0
while read -r file; do
  count=$((count + 1))
  if ! grep -qE "/$file(\.gz)?\$" <<<"$packaged"; then
    echo "no package has $file" >&2
    status=1
  fi
done < <(cd "$prefix" && find bin share -type f -not -path 'share/sorvinfo/*')

# The dissector lies where tshark looks for those of packages.
plugins=$(tshark -G folders 2>/dev/null | sed -n 's/^Global Lua Plugins:[[:space:]]*//p')
if ! grep -qE "^\./?${plugins#/}/sorvane\.lua\$" <<<"$packaged"; then
  echo "no package has $plugins/sorvane.lua" >&2
  status=1
fi
[ "$count" -ge 2 ] || { echo 'the installation has no programs' >&2; exit 1; }
exit "$status"

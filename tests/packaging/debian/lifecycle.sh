#!/usr/bin/env bash
# What a machine goes through with the packages: they are installed, used, upgraded over older ones, removed and purged.
# The maintainer scripts run and find a service manager, for which the script systemctl beside this one stands.
#
#   lifecycle.sh FOLDER     FOLDER has the packages
#
# To be run by root in a root that goes afterwards, with processes and a network of its own.

set -euo pipefail
packages=$1
tools=$(cd "$(dirname "$0")" && pwd)
shopt -s nullglob

fail() {
  printf '%s: %s\n' "$promise" "$*" >&2
  tail -n 20 /run/console >&2 2>/dev/null || true
  exit 1
}

# promise TEXT: names what the checks up to the next promise are about.
promise() {
  promise=$1
  printf '== %s\n' "$promise"
}

holds() { "$@" || fail "not so: $*"; }
is() { [ "$1" = "$2" ] || fail "it is '$1' and not '$2'"; }

within_limit() {
  local end=$((SECONDS + 300))
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$end" ] || fail "not within five minutes: $*"
    sleep 0.1
  done
}

# dpkg asks nobody: settings that the administrator has changed stay.
carry_out() { dpkg --force-confdef --force-confold "$@" >/tmp/dpkg.log 2>&1 || { cat /tmp/dpkg.log; fail "dpkg $*"; }; }
state_of() { dpkg-query -W -f '${db:Status-Status} ${Version}' "$1"; }
asked() { grep -c "^$1 sorvinfo.service\$" /run/asked || true; }
# What is on this machine of the packages, or belongs to their user.
traces() {
  find /etc /usr /var -xdev -name '*sorv*'
  if id sorvane >/dev/null 2>&1; then find /etc /usr /var /tmp -xdev -user sorvane; fi
}

# The packages as they might have been: another number and another text of the settings.
make_older() {
  local package folder=/tmp/older
  for package in "$packages"/sorv{info,ctl}_*.deb; do
    rm -rf "$folder"
    dpkg-deb -R "$package" "$folder"
    sed -i "s/^Version: .*/Version: 0.9-1/; s/sorvctl (= [^)]*)/sorvctl (= 0.9-1)/" "$folder/DEBIAN/control"
    if [ -e "$folder/etc/sorvane/sorvane.conf" ]; then
      echo '// Written for 0.9.' >>"$folder/etc/sorvane/sorvane.conf"
    fi
    dpkg-deb -Znone -b "$folder" "/tmp/$(basename "${package%%_*}")_older.deb" >/dev/null
  done
}

new=("$packages"/sorv{info,ctl}_*.deb)
[ "${#new[@]}" -eq 2 ] || { echo "there is not one package of each kind in $packages" >&2; exit 1; }
version=$(dpkg-deb -f "${new[0]}" Version)
make_older
old=(/tmp/sorv{info,ctl}_older.deb)

install -m 755 "$tools/systemctl" /usr/local/bin/systemctl
install -m 644 "$tools/upgradable_server.py" /usr/local/lib/upgradable_server.py
mkdir -p /run/systemd/system
install -d -m 1777 /run/lock
: >/run/asked
rm -f /usr/sbin/policy-rc.d /var/lib/man-db/auto-update  # this one only takes time

promise 'nothing of the packages is here before they are installed'
is "$(traces)" ''

promise 'installing makes the user, the folders and the settings, and starts the service'
carry_out --install "${old[@]}"
is "$(state_of sorvinfo)" 'installed 0.9-1'
is "$(dpkg --verify sorvinfo sorvctl)" ''
IFS=: read -r _ _ number _ _ home shell <<<"$(getent passwd sorvane)"
holds test "$number" -lt 1000
is "$home $shell" '/var/lib/sorvane /usr/sbin/nologin'
for folder in /var/lib/sorvane /var/lib/sorvane/Config /var/lib/sorvane/Users; do
  is "$(stat -c '%U:%G %a' "$folder")" 'sorvane:sorvane 750'
done
is "$(stat -c '%U:%G %a' /var/log/sorvane)" 'sorvane:adm 2750'
holds test /var/lib/sorvane/Logs -ef /var/log/sorvane
is "$(stat -c '%U %a' /etc/sorvane/sorvane.conf)" 'root 644'
within_limit sorvctl ping
is "$(asked start)" 1
is "$(ps -o user= -p "$(cat /run/unit)")" sorvane

promise 'the first session'
sorvctl register db1 --type database -- sleep 600 >/dev/null &
holder=$!
within_limit sorvctl find db1
holds sorvctl set-state db1 running
holds grep -q '^db1 .* running$' <(sorvctl list)
is "$(sorvctl --json states)" '[{"name":"db1","state":"running"}]'
holds sorvctl prefs set office databases=db1
preferences=$(sorvctl prefs get office)
holds grep -q db1 <<<"$preferences"
is "$(stat -c '%U %a' /var/lib/sorvane/Users/SorvPreferences)" 'sorvane 640'

promise 'the Python package finds databases, and leaves nothing'
carry_out --install "$packages"/python3-sorvane_*.deb
is "$(cd / && python3 -c 'import sorvane; print(sorvane.Client().find("db1").type)')" database
is "$(cd / && python3 -c 'import importlib.metadata as m, sorvane; print(m.version("sorvane") == sorvane.__version__)')" True
carry_out --purge python3-sorvane
holds test ! -e /usr/lib/python3/dist-packages/sorvane

promise 'shells that read their folders complete its commands'
holds cmp -s /usr/share/bash-completion/completions/sorvctl <(sorvctl completion bash)
holds cmp -s /usr/share/zsh/vendor-completions/_sorvctl <(sorvctl completion zsh)
holds cmp -s /usr/share/fish/vendor_completions.d/sorvctl.fish <(sorvctl completion fish)

promise 'the log is rotated beside the running name server'
# A request that the name server cannot carry out is a line of its log.
is "$(sorvctl send findPort=db1 2>/dev/null || echo "status $?")" 'status 1'
is "$(stat -c '%U:%G %a' /var/log/sorvane/infoserver_log)" 'sorvane:adm 640'
is "$(logrotate --force /etc/logrotate.d/sorvinfo 2>&1)" ''
holds test ! -e /var/log/sorvane/infoserver_log
holds grep -q 'findPort = db1' /var/log/sorvane/infoserver_log.1
is "$(sorvctl send findPort=db2 2>/dev/null || echo "status $?")" 'status 1'
holds grep -q 'findPort = db2' /var/log/sorvane/infoserver_log

promise 'an upgrade keeps the process, its connections, preferences and changed settings, and the new program serves'
sed -i 's,^// AllowedNetworks = .*,AllowedNetworks = ( "192.0.2.0/24" );,' /etc/sorvane/sorvane.conf
settings=$(cat /etc/sorvane/sorvane.conf)
holds grep -q '^AllowedNetworks = ' <<<"$settings"
before=$(cat /run/unit)
found=$(sorvctl find db1)
: >/run/asked
carry_out --install "${new[@]}"
is "$(state_of sorvinfo)" "installed $version"
is "$(state_of sorvctl)" "installed $version"
is "$(cat /run/unit) $(asked reload) $(asked restart)" "$before 1 0"
is "$(sorvctl find db1)" "$found"
kill "$holder"
holds sorvctl wait db1 --gone --timeout 60
is "$(readlink "/proc/$(cat /run/unit)/exe")" /usr/sbin/sorvinfo
is "$(sorvctl prefs get office)" "$preferences"
is "$(cat /etc/sorvane/sorvane.conf)" "$settings"
holds test -e /etc/sorvane/sorvane.conf.dpkg-dist

# upgrade_of DOES: installs the package over a running server that plays the part, as upgradable_server.py tells.
upgrade_of() {
  systemctl stop sorvinfo.service
  setsid setpriv --reuid=sorvane --regid=sorvane --init-groups \
    python3 /usr/local/lib/upgradable_server.py /run/lock/sorvinfo.lock 20221 "$1" </dev/null >/run/serves 2>>/run/console &
  before=$!
  echo "$before" >/run/unit
  within_limit grep -q serves /run/serves
  : >/run/asked
  carry_out --install "${new[@]}"
  within_limit sorvctl ping
}

upgrades() { sorvctl --json host-info | sed -n 's/.*"upgrades":"\([0-9]*\)".*/\1/p'; }

promise 'a name server that can be upgraded in place is'
upgrade_of upgrades
is "$(cat /run/unit) $(asked reload) $(asked restart)" "$before 1 0"
holds test -e "/proc/$before"
is "$(upgrades)" 1

promise 'one that puts the upgrade off is asked again'
upgrade_of delays
is "$(cat /run/unit) $(asked reload) $(asked restart)" "$before 1 0"
holds test -e "/proc/$before"
is "$(upgrades)" 1
holds test -z "$(grep 'has not been upgraded' /tmp/dpkg.log)"

promise 'one that puts it off every time goes on as it is, and the administrator is told what to do'
upgrade_of refuses
is "$(cat /run/unit) $(asked reload) $(asked restart)" "$before 1 0"
holds test -e "/proc/$before"
is "$(state_of sorvinfo)" "installed $version"
is "$(sorvctl --json send action=continuity | sed -n 's/.*"attempts":"\([0-9]*\)".*/\1/p')" 5
holds grep -q '^The reason: .*the new program does not know' /tmp/dpkg.log
holds grep -q '^When the reason is gone, run this: sorvctl upgrade$' /tmp/dpkg.log

promise 'one of an earlier release is restarted'
upgrade_of earlier
is "$(asked reload) $(asked restart)" '1 1'
holds test ! -e "/proc/$before"
is "$(readlink "/proc/$(cat /run/unit)/exe")" /usr/sbin/sorvinfo

promise 'a name server that does not run is not upgraded, but started'
systemctl stop sorvinfo.service
: >/run/asked
carry_out --install "${new[@]}"
within_limit sorvctl ping
is "$(asked start) $(asked reload) $(asked restart)" '1 0 0'

promise 'removing ends the service, and keeps settings, preferences and log'
carry_out --remove sorvinfo sorvctl
holds test ! -e "/proc/$(cat /run/unit)"
holds test ! -e /usr/sbin/sorvinfo -a ! -e /usr/bin/sorvctl
is "$(cat /etc/sorvane/sorvane.conf)" "$settings"
holds test -s /var/lib/sorvane/Users/SorvPreferences
holds test -s /var/log/sorvane/infoserver_log.1

promise 'installed again, it goes on with them'
carry_out --install "${new[@]}"
within_limit sorvctl ping
is "$(sorvctl prefs get office)" "$preferences"

promise 'purging leaves nothing but the user'
carry_out --purge sorvinfo sorvctl
is "$(traces)" ''
holds getent passwd sorvane >/dev/null

promise 'and then it is installed as on a new machine'
carry_out --install "${new[@]}"
within_limit sorvctl ping
is "$(sorvctl prefs get office 2>/dev/null)" ''
holds cmp -s /etc/sorvane/sorvane.conf <(dpkg-deb --fsys-tarfile "${new[0]}" | tar -xO ./etc/sorvane/sorvane.conf)

promise 'the library serves what is built with it, and leaves no trace'
carry_out --install "$packages"/libsorvane{1,-dev}_*.deb
holds grep -q 'libsorvane\.so\.1 ' <(ldconfig -p)
# A root with nothing else has no compiler.
if command -v c++ >/dev/null && command -v pkg-config >/dev/null; then
  read -ra flags <<<"$(pkg-config --cflags --libs sorvane)"
  holds c++ -std=c++20 /usr/share/doc/libsorvane-dev/examples/register.cpp -o /tmp/registers "${flags[@]}"
  mkfifo /tmp/input
  /tmp/registers db2 </tmp/input >/dev/null 2>&1 &
  exec 7>/tmp/input
  within_limit sorvctl wait db2 --state running
  exec 7>&-
  within_limit sorvctl wait db2 --gone
fi
carry_out --purge libsorvane1 libsorvane-dev
is "$(find /usr -xdev -name '*libsorvane*')" ''

#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the Debian package, lets dpkg install it into an empty root that knows which packages the machine has, runs the
# demo's scenario with the files at their real places, upgrades it, and purges it: nothing may be left. To be called on a
# private machine; all stays in a temporary folder.
#
#   scripts/private-machine tests/install/Package_test.sh BUILD
set -euo pipefail
build=$1
sources=$(realpath "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
records=$root/var/lib/dpkg

fail() {
    echo "$*" >&2
    exit 1
}

quietly() {
    "$@" >"$work/log" 2>&1 || fail "$* failed: $(cat "$work/log")"
}

quietly cpack --config "$build/CPackConfig.cmake" -B "$work" -D CPACK_CMAKE_GENERATOR=Ninja
package=$(echo "$work"/*.deb)
depends=$(dpkg-deb -f "$package" Depends)
[[ $depends == *libcurl4* && $depends == *libedit2* ]] || fail "These are not all dependencies: $depends"

mkdir -p "$records/info" "$records/updates"
cp /var/lib/dpkg/status "$records"
dpkg-query -W -f "$records/info/\${binary:Package}.list\n" | xargs touch
# The root has no shell: the package's scripts run out here, and have to keep to the root.
dpkg=(dpkg --root="$root" --force-script-chrootless --log="$work/dpkg.log")
echo "root:x:0:" | install -D /dev/stdin "$root/etc/group"
quietly "${dpkg[@]}" --install "$package"
grep -q '^em-alert:' "$root/etc/group" || fail "There is no group em-alert"
enabled=$root/etc/systemd/system/multi-user.target.wants/em-alertd.service
[ -L "$enabled" ] || fail "The service is not enabled"

# Over the machine's /usr, in a mount namespace that ends with the command.
# shellcheck disable=SC2016
run='mount -t overlay overlay -o "lowerdir=$1:/usr" /usr; shift; exec "$@"'
quietly unshare --mount bash -ec "$run" - "$root/usr" "$sources/scripts/demo-files/run" \
    /usr/bin/em-alert-agent /usr/lib/em_alert/modules/libem_alert.so "$work"
[ "$(wc -l <"$work/mails.jsonl")" = 3 ] || fail "Not three mails, but: $(cat "$work/mails.jsonl")"

# The installed command finds the installed module, and its completion completes.
# shellcheck disable=SC2016
for command in '/usr/bin/em-alert --json get servers' \
    'test -f "$(pkg-config --variable=module em_alert)"' \
    '. /usr/share/bash-completion/completions/em-alert; COMP_WORDS=(em-alert --json pen); COMP_CWORD=2; _em_alert
     [ "${COMPREPLY[*]}" = pending ]'; do
    quietly unshare --mount bash -ec "$run" - "$root/usr" env HOME="$work" bash -ec "$command"
done

# The manual pages as packed are clean, and name each option that the programs name.
for manual in em-alert.1 em-alert-agent.1 em-alertd.8; do
    program=${manual%.*}
    dpkg-deb --fsys-tarfile "$package" | tar -xO "./usr/share/man/man${manual##*.}/$manual.gz" | gunzip >"$work/manual"
    groff -mandoc -ww -Tascii -P-cbou "$work/manual" >"$work/page" 2>"$work/warnings"
    [ ! -s "$work/warnings" ] || fail "$(cat "$work/warnings")"
    for option in $("$root/usr/bin/$program" --help | grep -o '^  --[a-z-]*'); do
        grep -q "^     $option\b" "$work/page" || fail "The manual page does not know $option"
    done
done

complaints=$(lintian --allow-root --fail-on none "$package" 2>&1)
[ -z "$complaints" ] || fail "$complaints"

# What the administrator has changed outlives an upgrade.
configuration=$root/etc/em-alert/em-alertd.toml
echo 'parallel = 2' >"$configuration"
rm "$enabled"
quietly cpack --config "$build/CPackConfig.cmake" -B "$work" -D CPACK_CMAKE_GENERATOR=Ninja -D CPACK_PACKAGE_VERSION=99
quietly "${dpkg[@]}" --install "$work"/em-alert_99_*.deb
[ "$(cat "$configuration")" = 'parallel = 2' ] || fail "The upgrade changed the configuration"
[ ! -e "$enabled" ] || fail "The upgrade enabled the service, which was disabled"
quietly "${dpkg[@]}" --remove em-alert
[ -f "$configuration" ] || fail "Removing the package removed the configuration"
mkdir -p "$root/var/lib/em-alert/registry"

quietly "${dpkg[@]}" --purge em-alert
[ ! -e "$root/var/lib/em-alert" ] || fail "The purge left the service's state"
# Folders of /etc may be others' as well; the group stays, as files of its members might.
left=$(find "$root" -mindepth 1 -path "$root/var" -prune -o -type d -path "$root/etc*" \
    -o ! -name 'group*' ! -name 'gshadow*' -print)
[ -z "$left" ] || fail "The package left behind: $left"

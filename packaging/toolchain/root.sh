#!/bin/bash
# A Debian 13 root with everything that building and testing needs, for hosts without a recent Qt.
#
#   root.sh run COMMAND [ARG...]   runs COMMAND inside, at the caller's own folder; makes the root if there is none
#   root.sh path                   prints where the root is; makes it if there is none
#   root.sh prune                  removes the roots of other package lists, unless they are in use
#
# The packages are those of packages.txt and packages-test.txt beside this file. All checkouts of a user share
# one root; a changed list makes another.
#
# VESK_DEVROOT  folder of the roots (default: vesk-devroot in the user's cache folder)
# VESK_PACKAGES list of packages to use instead
# VESK_MIRROR   Debian mirror (default: the one the host uses, else mmdebstrap's own)
set -euo pipefail
suite=trixie
format=4 # of the root's contents: a new number makes new roots
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
checkout=${here%/packaging/toolchain}
user=$(id -un) uid=$(id -u)
export HOME="${HOME:-$(getent passwd "$uid" | cut -d: -f6)}"
roots=${VESK_DEVROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/vesk-devroot}

die() { echo "toolchain: $*" >&2; exit 125; }
say() { echo "toolchain: $*" >&2; }

# What runs a command as the root of a mount namespace of its own. An ordinary user is mapped to root there,
# together with the subordinate ids that belong to him.
if [ "$uid" = 0 ]; then
    namespace=(unshare -m)
else
    namespace=(unshare --map-root-user --map-auto -m)
fi

packages() {
    local lists=("$here/packages.txt" "$here/packages-test.txt")
    [ -z "${VESK_PACKAGES:-}" ] || lists=("$VESK_PACKAGES")
    { echo mount; sed 's/#.*//' "${lists[@]}"; } | tr -s ' \t' '\n' | sed '/^$/d' | LC_ALL=C sort -u
}

key=$suite-$({ echo "$format $suite"; packages; } | sha256sum | cut -c1-12)
root=$roots/$key

# --- What the host must have ---------------------------------------------------------------------------------

missing_packages() {
    if [ ! -e "$root/.ready" ]; then
        command -v mmdebstrap >/dev/null || echo mmdebstrap
        [ -e /usr/share/keyrings/debian-archive-keyring.gpg ] || echo debian-archive-keyring
    fi
    command -v mount >/dev/null || echo mount
    [ "$uid" = 0 ] || command -v newuidmap >/dev/null || echo uidmap
}
has_subordinate_ids() {
    grep -qsE "^($user|$uid):" /etc/subuid && grep -qsE "^($user|$uid):" /etc/subgid
}
# The first 65536 ids that belong to nobody.
free_subordinate_ids() {
    cat /etc/subuid /etc/subgid 2>/dev/null | awk -F: -v free=100000 \
        '$2 + $3 > free { free = $2 + $3 } END { print free "-" free + 65535 }'
}
install_packages() {
    local quietly=(env DEBIAN_FRONTEND=noninteractive apt-get -y -q -o DPkg::Lock::Timeout=600)
    say "installing $*"
    { "${quietly[@]}" update || true; "${quietly[@]}" install --no-install-recommends "$@"; } </dev/null >&2 9>&- \
        || die "could not install $*"
}
# Installs what is missing, or tells an ordinary user the one line that does.
prepare_host() {
    local missing=() commands=() range line
    mapfile -t missing < <(missing_packages)
    if [ ${#missing[@]} -gt 0 ]; then
        command -v apt-get >/dev/null || die "needs Qt 6.8 or later with its development files, CMake, Ninja" \
            "and a C++20 compiler; or, to make a Debian 13 root with them: ${missing[*]}"
        [ "$uid" != 0 ] || { install_packages "${missing[@]}"; return; }
        apt-cache show "${missing[@]}" >/dev/null 2>&1 || commands+=("apt-get update")
        commands+=("apt-get install -y --no-install-recommends ${missing[*]}")
    fi
    if [ "$uid" != 0 ] && ! has_subordinate_ids; then
        range=$(free_subordinate_ids)
        commands+=("usermod --add-subuids $range --add-subgids $range $user")
    fi
    [ ${#commands[@]} -gt 0 ] || return 0
    line=$(printf ' && %s' "${commands[@]}")
    line=${line# && }
    [ ${#commands[@]} = 1 ] || line="sh -c '$line'"
    die "run this once, then try again:
sudo $line"
}
# Kernels that keep namespaces from ordinary users have one switch each.
check_namespaces() {
    local key value
    ! "${namespace[@]}" true 2>/dev/null || return 0
    while read -r key value; do
        [ "$(sysctl -n "$key" 2>/dev/null || cat "/proc/sys/${key//.//}" 2>/dev/null)" = "$value" ] || continue
        die "the kernel keeps user namespaces from ordinary users; run this once, then try again:
sudo sysctl -w $key=$((1 - value))"
    done <<<"kernel.unprivileged_userns_clone 0
kernel.apparmor_restrict_unprivileged_userns 1"
    die "this machine does not let $user make a mount namespace (${namespace[*]})"
}

# --- Making a root -------------------------------------------------------------------------------------------

# Debian's own mirror as the host's package lists name it, in either of the two formats.
mirror() {
    [ -z "${VESK_MIRROR:-}" ] || { echo "$VESK_MIRROR"; return; }
    grep -qs '^ID=debian$' /etc/os-release || return 0
    {
        sed -n 's/^URIs:[[:space:]]*\([^ ]*\).*/\1/p' /etc/apt/sources.list.d/debian.sources
        sed -nE 's/^deb[[:space:]]+(\[[^]]*\][[:space:]]*)?([^ ]+)[[:space:]]+[a-z]+[[:space:]]+main.*/\2/p' /etc/apt/sources.list
    } 2>/dev/null | grep '^http' | grep -v security | head -n 1 || true
}
# The first process of a process namespace: whatever the caller dies of, its end of standard input closes; then
# this ends, and the kernel kills all that it started. The lock (9) stays with us till then.
maker='trap "exit 130" INT TERM HUP
exec 7<&0
"$@" </dev/null 7<&- 9>&- & made=$!
cat <&7 >/dev/null 9>&- & caller=$!
wait -n -p ended "$made" "$caller" && status=0 || status=$?
[ "$ended" = "$made" ] && exit "$status"
exit 130'
# Manuals and message catalogues are left out, 200 MB of 2.5 GB. Qt's own translations lie elsewhere and stay.
# dpkg need not flush each file: a root that was cut off is thrown away.
mmdebstrap_command() {
    local uri
    uri=$(mirror)
    printf '%s\n' mmdebstrap --verbose --mode=root --skip=output/mknod --variant=apt '--aptopt=APT::Install-Recommends "false"' \
        --dpkgopt=force-unsafe-io --dpkgopt=path-exclude=/usr/share/{man,info,locale,doc}'/*' '--dpkgopt=path-include=/usr/share/doc/*/copyright' \
        "--include=$(packages | paste -sd,)" "$suite" "$part" ${uri:+"$uri"}
}
# The caller's name, a machine id for D-Bus and the files that the host's own are mounted over.
finish='cd "$1"
grep -q "^[^:]*:[^:]*:$2:" etc/passwd || echo "$3:x:$2:$4::$5:/bin/bash" >>etc/passwd
grep -q "^[^:]*:[^:]*:$4:" etc/group || echo "$3:x:$4:" >>etc/group
od -An -N16 -tx1 /dev/urandom | tr -d " \n" >etc/machine-id && echo >>etc/machine-id
rm -f etc/resolv.conf etc/hosts
: >etc/resolv.conf; : >etc/hosts; : >.ready'

# How far the root is by the log, in percent, and what was done last. Each package is fetched, unpacked and set up. The
# base system comes first and is a tenth of it; how many packages the rest has is known only then.
progress() { # LOG
    awk '/^[0-9]+ upgraded, [0-9]+ newly installed/ { part++; packages = $3; steps = 0 }
        /^I: extracting/ { last = "extracting the base system" }
        /^Get:/ { steps++; last = "fetched " $5 }
        /^Unpacking / { steps++; last = "unpacked " $2 }
        /^Setting up / { steps++; last = "set up " $3 }
        END {
            share = packages ? steps / packages / 3 : 0
            if (share > 1) share = 1
            percent = (part > 1) ? 10 + 90 * share : 10 * share
            printf "%d %s\n", percent, part ? last : "fetching package lists"
        }' "$1"
}
# One line that moves on a terminal, else a line for each fifth of the way.
show_progress() { # LOG, while the process $making lives
    local percent last fifth=0
    while sleep 1 && kill -0 "$making" 2>/dev/null; do
        read -r percent last < <(progress "$1") || continue
        if [ -t 2 ]; then
            printf '\rtoolchain: %3d %%, %d s, %.50s\e[K' "$percent" $((SECONDS - start)) "$last" >&2
        elif [ $((percent / 20)) -gt "$fifth" ]; then
            fifth=$((percent / 20))
            say "$percent %"
        fi
    done
    [ ! -t 2 ] || printf '\r\e[K' >&2
}

remove() { "${namespace[@]}" rm -rf --one-file-system "$@"; }
give_up() { # STATUS [REASON]
    exec {life}>&-
    wait "$making" 2>/dev/null || true
    remove "$part"
    [ -z "${2:-}" ] || say "$2"
    exit "$1"
}
create() { # with the lock held by us alone
    local command=() life making status=0 start=$SECONDS log=$roots/$key.log
    part=$roots/$key.part.$$
    [ "$uid" != 0 ] || prepare_host
    check_namespaces
    remove "$roots/$key".part.* "$roots/$key" # left by one that was cut off
    say "making a Debian 13 root in $roots ($(packages | wc -l) packages, once: 2.5 GB, one to four minutes)"
    mapfile -t command < <(mmdebstrap_command)
    exec {life}> >(exec "${namespace[@]}" -p -f --kill-child bash -c "$maker" maker "${command[@]}" >"$log" 2>&1)
    making=$!
    trap 'give_up 130' INT TERM HUP
    show_progress "$log"
    wait "$making" || status=$?
    if [ "$status" != 0 ]; then
        tail -n 5 "$log" >&2
        give_up 125 "could not make the root, see $log"
    fi
    "${namespace[@]}" sh -ec "$finish" finish "$part" "$uid" "$user" "$(id -g)" "$HOME"
    sync -f "$part"
    mv "$part" "$roots/$key" # a root is there whole or not at all
    trap - INT TERM HUP
    exec {life}>&-
    say "ready in $((SECONDS - start)) s"
}
# Makes the root if it is not there yet; leaves a shared lock on it that passes on to the command.
ensure() {
    [ "$uid" = 0 ] || prepare_host
    mkdir -p "$roots"
    exec 9>"$root.lock"
    flock -s 9
    while [ ! -e "$root/.ready" ]; do
        flock -u 9
        flock -n -x 9 || { say "waiting for another call that is making the root"; flock -x 9; }
        [ -e "$root/.ready" ] || create
        flock -s 9
    done
}
prune() {
    local other lock
    ensure
    for other in "$roots/$suite"-*; do
        [ -d "$other" ] && [ "$other" != "$root" ] || continue
        lock=${other%%.part.*}
        exec 8>"$lock.lock"
        if flock -n -x 8; then
            remove "$other"
            rm -f "$lock.lock" "$lock.log"
        else
            say "$other is in use"
        fi
        exec 8>&-
    done
}

# --- Running inside ------------------------------------------------------------------------------------------

# The host's folders that the command sees at their own places, besides /proc, /sys and /tmp: everything at
# the top that is no part of a system, and by name what lies within such a part.
host_folders() {
    local folder
    for folder in /*; do
        case $folder in
        /bin | /boot | /dev | /etc | /lib* | /lost+found | /proc | /run | /sbin | /sys | /tmp | /usr | /var) ;;
        *) [ ! -d "$folder" ] || [ -L "$folder" ] || echo "$folder" ;;
        esac
    done
    # Wayland, the session bus and sound have their sockets in the first
    for folder in "${XDG_RUNTIME_DIR:-}" "${XAUTHORITY:+${XAUTHORITY%/*}}" /run/dbus "$HOME" "$checkout" "$(pwd -P)" "${TMPDIR:-}"; do
        case $folder in
        /run/?* | /var/?* | /usr/?*) [ ! -d "$folder" ] || [ -n "$(ls -A "$root$folder" 2>/dev/null)" ] || echo "$folder" ;;
        esac
    done
}
# Runs as the namespace's root, on the host's own shell until pivot_root.
#
# Whoever deletes a root, even from inside, deletes nothing of the machine. A folder of the host that holds the roots
# brings along what is mounted on this one so far: that is taken off again, or the host's /tmp and home would be seen
# once more below it. /dev is the root's own, as are its terminals; each device is bound as a file, which cannot be unlinked. /sys is read-only
# for the machine's root, who could delete firmware variables there; an ordinary user could not.
inner='set -e
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
root=$1 folder=$2 ids=$3; shift 3
show() {
    mkdir -p "$root$1"
    mount --rbind "$1" "$root$1"
    while umount -l "$root$root" 2>/dev/null; do :; done
}
make_devices() {
    mount -t tmpfs -o mode=755 tmpfs "$root/dev"
    mkdir "$root/dev/pts" "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts"
    ln -s pts/ptmx "$root/dev/ptmx"
    mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
    for f in /dev/null /dev/zero /dev/full /dev/random /dev/urandom /dev/tty \
        /dev/dri/* /dev/snd/* /dev/nvidia* /dev/kfd /dev/dxg; do
        [ -c "$f" ] && [ ! -L "$f" ] || continue
        mkdir -p "$root${f%/*}"
        : >"$root$f"
        mount --bind "$f" "$root$f"
    done
    ln -s /proc/self/fd "$root/dev/fd"
    ln -s fd/0 "$root/dev/stdin"; ln -s fd/1 "$root/dev/stdout"; ln -s fd/2 "$root/dev/stderr"
}
mount --bind "$root" "$root"
make_devices
show /proc
if [ -n "$ids" ]; then show /sys; else mount --bind /sys "$root/sys" && mount -o remount,bind,ro "$root/sys"; fi
show /tmp
while [ "$1" != -- ]; do show "$1"; shift; done
shift
for f in /etc/resolv.conf /etc/hosts /etc/ssl/certs/ca-certificates.crt; do
    [ ! -e $f ] || [ ! -e "$root$f" ] || mount --bind "$(readlink -f $f)" "$root$f"
done
[ -z "$VESK_OPENER" ] || mount --bind "$VESK_OPENER" "$root/usr/bin/xdg-open"
cd "$root"
pivot_root . .
umount -l .
cd "$folder"
[ -z "$ids" ] || set -- unshare -U --map-user="${ids%:*}" --map-group="${ids#*:}" "$@"
exec env PATH="$PATH" "$@"'

# Pages and folders open in the host's own programs: the root has none for them. What the window wants opened comes
# through descriptor 8, each ended by a zero byte; this ends when nobody can write there any more.
listen_for_desktop() {
    export VESK_OPENER=
    [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && command -v xdg-open >/dev/null || return 0
    exec 8> >(while IFS= read -r -d '' address; do xdg-open "$address" </dev/null >/dev/null 2>&1 & done 9>&-)
    VESK_OPENER=$here/xdg-open
}
run() {
    local folders=() ids= certificates=/etc/ssl/certs/ca-certificates.crt
    [ $# -gt 0 ] || die "no command"
    ensure
    listen_for_desktop
    [ "$uid" = 0 ] || ids=$uid:$(id -g)
    # the root has no other language; its clock is the host's
    export VESK_TOOLCHAIN=$key LANG=C.UTF-8 LC_ALL=C.UTF-8
    [ -n "${TZ:-}" ] || [ ! -L /etc/localtime ] || export TZ=$(readlink /etc/localtime | sed 's|.*zoneinfo/||')
    export SSL_CERT_FILE=$certificates NODE_EXTRA_CA_CERTS=$certificates
    # what points at the host's own software
    unset SSL_CERT_DIR LD_LIBRARY_PATH LD_PRELOAD PYTHONPATH PYTHONHOME NODE_PATH CC CXX PKG_CONFIG_PATH CMAKE_PREFIX_PATH
    unset QT_PLUGIN_PATH QT_QPA_PLATFORM_PLUGIN_PATH QML_IMPORT_PATH QML2_IMPORT_PATH QTDIR QT_QPA_PLATFORMTHEME QT_STYLE_OVERRIDE
    mapfile -t folders < <(host_folders | sort -u)
    exec "${namespace[@]}" sh -c "$inner" inner "$root" "$(pwd -P)" "$ids" "${folders[@]}" -- "$@"
}

action=${1:-}
shift || true
case $action in
run) run "$@" ;;
path) ensure; echo "$root" ;;
prune) prune ;;
*) sed -n '4,6s/^# *//p' "$0" >&2; exit 64 ;;
esac

#!/bin/bash
# A toolchain root that is deleted from inside takes nothing of the machine with it. The machine is a stand-in, or a
# fault would delete this one: it has a root of its own with the few programs that are needed there.
#
#   test_root.sh ROOT_SH
set -euo pipefail

if [ $# = 1 ]; then
    case ${VESK_TOOLCHAIN:-host} in host*) echo "skipped, no root is in use"; exit 77 ;; esac
    machine=(bwrap --die-with-parent --cap-add ALL --ro-bind /usr /usr --ro-bind /etc /etc --proc /proc --dev /dev)
    for link in bin lib lib64 sbin; do [ ! -L /$link ] || machine+=(--symlink "$(readlink /$link)" /$link); done
    machine+=(--dir /sys --dir /tmp --dir /home/person --setenv HOME /home/person --chdir /home/person --unsetenv TMPDIR
        --ro-bind "$(dirname "$1")" /checkout/packaging/toolchain --ro-bind "$0" /checkout/test)
    [ "$(id -u)" = 0 ] || machine+=(--unshare-user --uid 0 --gid 0)
    "${machine[@]}" unshare -m true || { echo "skipped, no mount namespaces here"; exit 77; }
    for option in --no-preserve-root --one-file-system; do
        "${machine[@]}" bash /checkout/test "$VESK_TOOLCHAIN" $option
    done
    exit
fi

root=$HOME/.cache/vesk-devroot/$1
mkdir -p "$root"/{dev,proc,sys,tmp,usr/bin}
ln -s usr/bin "$root/bin"
cp /usr/bin/{env,rm,umount} "$root/usr/bin"
ldd /usr/bin/{env,rm,umount} | grep -o '/lib[^ ]*' | sort -u | while read -r library; do
    mkdir -p "$root${library%/*}"
    cp "$library" "$root$library"
done
touch "$root/.ready"

touch /tmp/marker /sys/marker "$HOME/marker"
seen() { find /dev /tmp /sys "$HOME" -path "$HOME/.cache" -prune -o -path /dev/pts -prune -o -print | sort; }
before=$(seen)
/checkout/packaging/toolchain/root.sh run rm -rf "$2" "$HOME/.cache/vesk-devroot" /dev /sys >"$HOME/.cache/said" 2>&1 || true
[ ! -e "$root/usr/bin/rm" ] || { cat "$HOME/.cache/said"; echo "the root was not deleted"; exit 1; }
diff <(echo "$before") <(seen) || { echo "the machine has lost something"; exit 1; }

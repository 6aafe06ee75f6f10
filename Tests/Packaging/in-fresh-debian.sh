#!/bin/sh
# Installs the packages in a folder on a Debian 12 with nothing else on it, uses them there, removes them, and compares
# the files before with those after. Then boots that Debian with systemd, as a container without a network, and uses
# the camera as a service of an ordinary user.
#
# Needs root, debootstrap, systemd-container and Debian's packages, so it is run by hand:
#
#     Tests/Packaging/in-fresh-debian.sh build/package/packages [FOLDER]
#
# FOLDER is where the Debian is made; one that exists is used as it is, and kept. Otherwise a temporary one is made
# and removed.
set -eu

packages="$(readlink -f "$1")"
folder="${2:-}"
here="$(dirname "$(readlink -f "$0")")"
[ "$(id -u)" = 0 ] || { echo "This needs root." >&2; exit 1; }

# A mount namespace of our own: whatever is mounted from here on is gone when we are.
if [ -z "${PAVO_IN_NAMESPACE:-}" ]; then
    PAVO_IN_NAMESPACE=1 exec unshare --mount --propagation private "$0" "$@"
fi

if [ -z "$folder" ]; then
    folder="$(mktemp -d)"
    chmod 755 "$folder"
    trap 'umount -R "$folder/proc" "$folder/dev" 2>/dev/null || true; rm -rf --one-file-system "$folder"' EXIT INT TERM
fi

step() { printf '\n== %s\n' "$*"; }
in_root() { chroot "$folder" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"; }

if [ ! -e "$folder/etc/debian_version" ]; then
    step "Making a Debian 12 in $folder"
    debootstrap --variant=minbase --include=ca-certificates bookworm "$folder" >/dev/null
fi
cp /etc/apt/apt.conf.d/* "$folder/etc/apt/apt.conf.d/"
rm -f "$folder/etc/apt/sources.list"
cp -r /etc/apt/sources.list.d/. "$folder/etc/apt/sources.list.d/"
cp /etc/resolv.conf /etc/hosts "$folder/etc/"
mount -t proc proc "$folder/proc"
mount --rbind /dev "$folder/dev"
rm -rf "$folder/tmp/packages"
mkdir "$folder/tmp/packages"
cp "$packages"/*.deb "$folder/tmp/packages/"
install_all() { in_root sh -c 'dpkg -i /tmp/packages/*.deb'; }
names="$(for file in "$packages"/*.deb; do dpkg-deb -f "$file" Package; done)"
# shellcheck disable=SC2086  # names are words
purge_all() { in_root dpkg --purge $names; }

step "Installing the packages, with what they depend on and nothing more"
in_root apt-get update -q >/dev/null
in_root sh -c 'apt-get install -q -y --no-install-recommends /tmp/packages/*.deb'

# All files but those in which the package manager keeps its own books.
list_files() {
    (cd "$folder" && find . -xdev \( -path ./proc -o -path ./dev -o -path ./tmp -o -path ./var/lib/dpkg -o \
        -path ./var/lib/apt -o -path ./var/cache -o -path ./var/log \) -prune -o -print | sort)
}
step "Removing them, for the list of files without them"
purge_all
list_files >"$folder/tmp/before"
if grep -i pavo "$folder/tmp/before"; then echo "These files were left behind." >&2; exit 1; fi

step "Installing them again, and using them without a PipeWire daemon"
install_all
in_root dpkg --verify pavo-camera
cp "$here/use-installed.sh" "$folder/tmp/"
in_root sh /tmp/use-installed.sh

step "Removing them"
purge_all
list_files >"$folder/tmp/after"
diff "$folder/tmp/before" "$folder/tmp/after"
echo "The files are those from before."

step "Installing systemd and PipeWire, and the packages once more"
in_root apt-get install -q -y --no-install-recommends systemd systemd-sysv dbus-user-session libpam-systemd \
    pipewire wireplumber >/dev/null
install_all
in_root sh -c 'id friend >/dev/null 2>&1 || useradd --create-home --shell /bin/sh friend'
umount -R "$folder/dev" "$folder/proc"
"$here/in-booted-debian.sh" "$folder"

step "All is well"

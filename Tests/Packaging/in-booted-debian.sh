#!/bin/sh
# Boots the Debian in FOLDER, which has the camera, PipeWire and a user named friend, in a container without a
# network, and has the friend use the camera as a service. The exit status says how that went.
#
#     in-booted-debian.sh FOLDER
#
# Needs root and systemd-container. Mounts what a container needs, so run it in a mount namespace of its own.
set -eu
folder="$1"
cp "$(dirname "$0")/use-service.sh" "$folder/root/"
rm -f "$folder/root/camera-works"
cat >"$folder/etc/systemd/system/use-service.service" <<END
[Unit]
After=multi-user.target
SuccessAction=exit
FailureAction=exit
FailureActionExitStatus=1
[Service]
Type=oneshot
ExecStart=/bin/sh /root/use-service.sh
StandardOutput=journal+console
TimeoutStartSec=300
[Install]
WantedBy=default.target
END
ln -sf ../use-service.service "$folder/etc/systemd/system/multi-user.target.wants/"
# Where the container's keeper leaves its notes, which it wants in memory.
mkdir -p /run/systemd && mount -t tmpfs tmpfs /run/systemd
# Control groups of one hierarchy, whatever this machine uses itself.
while mountpoint -q /sys/fs/cgroup; do umount -R /sys/fs/cgroup; done
mount -t cgroup2 none /sys/fs/cgroup
group="/sys/fs/cgroup/pavo-packaging-$$"
leave_group() {
    echo $$ >/sys/fs/cgroup/cgroup.procs
    find "$group" -depth -type d -exec rmdir {} \;
}
mkdir "$group"
trap leave_group EXIT
echo $$ >"$group/cgroup.procs"
systemd-nspawn --boot --register=no --keep-unit --private-network --console=read-only \
    --directory="$folder" --machine="pavo-packaging-$$" -- --show-status=no </dev/null
# A container that was ended by somebody else ends as well as one that got this far.
[ -e "$folder/root/camera-works" ]

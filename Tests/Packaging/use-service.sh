#!/bin/sh
# A user named friend makes the camera a service, and uses it. Run by the system that was booted for it.
set -eu
fail() { echo "FAILED: $*"; as_friend journalctl --user --no-pager -n 40 || true; exit 1; }
as_friend() { runuser -u friend -- env XDG_RUNTIME_DIR="/run/user/$uid" HOME=/home/friend "$@"; }
property() { as_friend systemctl --user show --value -p "$1" pavo-camera; }
# Once PipeWire answers, the camera may take its time. The picture is one of a moment when all has settled.
watch() {
    as_friend timeout 60 sh -c 'until pw-cli info 0 >/dev/null 2>&1; do sleep 1; done'
    as_friend pavo view --wait 60 --after 1 --snapshot "/tmp/$1.png"
}

uid="$(id -u friend)"
# Lets the user's systemd run without anybody logged in.
loginctl enable-linger friend
timeout 60 sh -c "until [ -S /run/user/$uid/systemd/private ]; do sleep 1; done"

as_friend systemctl --user enable --now pavo-camera || fail "the service does not start"
watch placeholder || fail "nothing to see"
pid="$(property MainPID)"
grep -q '^Seccomp:.*2$' "/proc/$pid/status" || fail "no filter of system calls"
grep -q '^NoNewPrivs:.*1$' "/proc/$pid/status" || fail "new privileges are possible"

as_friend pavo send --size 640x360 --frames 300 >/dev/null &
watch pattern || fail "nothing to see with a producer"
wait $!
if cmp -s /tmp/placeholder.png /tmp/pattern.png; then fail "the producer was not seen"; fi
[ "$(property NRestarts) $(property MainPID)" = "0 $pid" ] || fail "the service did not last"

# The camera comes back after a crash, for clients that come then.
kill -KILL "$pid"
watch after-a-crash || fail "no camera after a crash"
[ "$(property NRestarts)" = 1 ] || fail "the service was not restarted"

# Where there is no PipeWire it serves its own, with the same rights.
as_friend systemctl --user mask --runtime --now pipewire.socket pipewire.service wireplumber.service
as_friend systemctl --user restart pavo-camera
export PIPEWIRE_REMOTE=pavo-0
watch without-pipewire || fail "no camera without PipeWire"
grep -q '^Seccomp:.*2$' "/proc/$(property MainPID)/status" || fail "no filter of system calls"

as_friend systemd-analyze --user --no-pager security pavo-camera | tail -n 1
as_friend journalctl --user --no-pager --unit pavo-camera -n 20
as_friend systemctl --user disable --now pavo-camera || fail "the service does not end"
[ "$(property Result)" = success ] || fail "the service ended badly"
touch /root/camera-works
echo "The camera works as a service."

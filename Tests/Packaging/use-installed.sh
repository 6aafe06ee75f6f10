#!/bin/sh
# The installed camera, producers and clients, without a PipeWire daemon. Run in the system that has them.
set -eu

XDG_RUNTIME_DIR="$(mktemp -d)"
export XDG_RUNTIME_DIR PAVO_LOG=stderr
trap 'kill $camera 2>/dev/null || true; rm -rf "$XDG_RUNTIME_DIR"' EXIT
cd "$XDG_RUNTIME_DIR"

pavo --version
pavo camera --json >started &
camera=$!
export PIPEWIRE_REMOTE=pavo-0
timeout 30 sh -c 'until grep -q started started; do :; done'

pavo view --snapshot placeholder.png
pavo send --size 1280x720 --frames 300 >sent &
pavo view --wait 30 --frames 120 --snapshot pattern.png --after 1
wait $!
cat sent
for picture in placeholder pattern; do
    [ "$(head -c 4 $picture.png | tail -c 3)" = PNG ]
done
if cmp -s placeholder.png pattern.png; then echo "The producer was not seen." >&2; exit 1; fi

python3 - <<END
import pavo
with pavo.Producer(64, 48, format="BGRA") as producer:
    assert producer.wait_until_connected(30)
END

kill -TERM $camera
wait $camera

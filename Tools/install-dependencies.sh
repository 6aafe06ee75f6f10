#!/bin/sh
# Installs what the named list (dependencies.txt where none is named) asks for and this Debian does not have, and
# says so. Silent when nothing is missing.
set -eu

list="${1:-$(dirname "$0")/dependencies.txt}"
missing=""
for package in $(sed 's/#.*//' "$list"); do
    state="$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null || true)"
    [ "$state" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" = 0 ]; then
    as_root=""
elif command -v sudo >/dev/null; then
    as_root="sudo"
else
    echo "These packages are missing, and there is no sudo to install them with:$missing" >&2
    exit 1
fi

echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
# shellcheck disable=SC2086  # the lists are lists
$as_root apt-get update -q
# shellcheck disable=SC2086
$as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing

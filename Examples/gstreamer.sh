#!/bin/sh
# Any GStreamer pipeline on the camera: its raw frames go through a pipe. Arguments: `pavo`, then a source element
# with its properties; a test picture that moves by default.
set -eu
pavo=${1:-pavo}
[ $# -gt 0 ] && shift
[ $# -gt 0 ] || set -- videotestsrc is-live=true pattern=ball
gst-launch-1.0 -q "$@" ! videoconvert ! videoscale ! videorate \
    ! video/x-raw,format=UYVY,width=640,height=360,framerate=30/1,colorimetry=bt601 ! fdsink fd=1 sync=false \
    | "$pavo" send - --size 640x360 --format UYVY --fps 30

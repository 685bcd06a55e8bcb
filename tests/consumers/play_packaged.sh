#!/bin/sh
# Installs the plugin's package in a clean system, and filters and places a tone.
set -eu
apt-get install -y --no-install-recommends /packages/gstreamer1.0-jurn_*.deb
gst-inspect-1.0 jurnfilter >/dev/null
tone="audiotestsrc num-buffers=50 ! audio/x-raw,rate=48000,channels=1"
gst-launch-1.0 -q $tone ! jurnfilter equaliser="PK 1k -3 Q 1" ! jurnbinaural azimuth=30 ! \
  wavenc ! filesink location=/tone.wav
# Both ears of 50 buffers, of 1024 frames each, and what rings on.
[ "$(stat -c %s /tone.wav)" -gt 204800 ]

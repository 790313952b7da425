#!/usr/bin/env bash
# Builds the tool and rehearses real injections against the virtual receiver:
# a DW2207B module (restart, time, position and an RTCM 3 ephemeris file),
# then an AG33XX module (restart, time, position and an EPO file), then an
# HD8XXX module (clear, restart, time, position and a YMODEM download of an
# RTCM GPS+BDS file into its flash).
set -euo pipefail
cd "$(dirname "$0")/.."

# Only the build tools: the demo needs no test, fuzzing or Windows packages.
scripts/install-deps.sh demo
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target vkagnss vkagnss-sim vkagnss-rtcmgen vkagnss-epogen \
  vkagnss-hdbgen

work=$(mktemp -d /tmp/vkagnss-demo.XXXXXX)
link="$work/ttyVK0"
sim_pid=
cleanup() { [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

# Starts the virtual receiver of a platform behind $link.
start_receiver() {
  rm -f "$link"
  build/vkagnss-sim --platform "$1" --link "$link" >"$work/sim.log" &
  sim_pid=$!
  for _ in $(seq 50); do [ -e "$link" ] && return 0; sleep 0.1; done
  echo "the virtual receiver did not start" >&2
  return 1
}

stop_receiver() {
  kill -INT "$sim_pid"; wait "$sim_pid" || true; sim_pid=
  cat "$work/sim.log"
}

status=0

echo "== DW2207B: restart, time, position, RTCM ephemeris"
build/vkagnss-rtcmgen -o "$work/ephemeris.rtcm3" --systems GCJE
start_receiver dw2207b
build/vkagnss -m DW2207B -o online -p "$link" -b 115200 -sHOT \
  -u0,2026-01-08-09:59:17,18,10 -l31.5,121.25,10,5 -f"$work/ephemeris.rtcm3" || status=$?
stop_receiver

echo "== AG33XX: restart, time, position, EPO file"
build/vkagnss-epogen -d "$work" --kind vgps --days 1
start_receiver ag33xx
build/vkagnss -m AG33XX -o online -p "$link" -b 115200 -sHOT \
  -u0,2026-01-08-09:59:17,18,10 -l31.5,121.25,10,5 -f"$work/VGPS.DAT" || status=$?
stop_receiver

echo "== HD8XXX offline: clear, restart, time, position, YMODEM download of GPS+BDS ephemeris"
build/vkagnss-rtcmgen -o "$work/EPH_GPS_BDS.rtcm" --systems GC
start_receiver hd8xxx
build/vkagnss -m HD8XXX -o offline -p "$link" -b 115200 -c -s COLD \
  -u 0,2026-01-08-09:59:17,18,10 -l 31.5,121.25,10,5 -f "$work/EPH_GPS_BDS.rtcm" || status=$?
stop_receiver

exit $status

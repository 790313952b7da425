#!/usr/bin/env bash
# Builds the tool and rehearses a real DW2207B injection against the virtual
# receiver: restart, time, position and an RTCM 3 ephemeris file.
set -euo pipefail
cd "$(dirname "$0")/.."

VK_WITH_WINDOWS=0 scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target vkagnss vkagnss-sim vkagnss-rtcmgen

work=$(mktemp -d /tmp/vkagnss-demo.XXXXXX)
link="$work/ttyVK0"
cleanup() { [ -n "${sim_pid:-}" ] && kill "$sim_pid" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

build/vkagnss-rtcmgen -o "$work/ephemeris.rtcm3" --systems GCJE
build/vkagnss-sim --platform dw2207b --link "$link" >"$work/sim.log" &
sim_pid=$!
for _ in $(seq 50); do [ -e "$link" ] && break; sleep 0.1; done

status=0
build/vkagnss -m DW2207B -o online -p "$link" -b 115200 -sHOT \
  -u0,2026-01-08-09:59:17,18,10 -l31.5,121.25,10,5 -f"$work/ephemeris.rtcm3" || status=$?

kill -INT "$sim_pid"; wait "$sim_pid" || true; sim_pid=
cat "$work/sim.log"
exit $status

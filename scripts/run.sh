#!/usr/bin/env bash
# Builds Pixmora and starts it in the system tray. Without a reachable X
# display it starts a private virtual desktop, shows one full-screen capture
# working, and keeps running until interrupted.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPIXMORA_BENCHMARKS=OFF
cmake --build build/release -j"$(nproc)" --target pixmora
binary=$PWD/build/release/pixmora

if [[ -n "${DISPLAY:-}" ]] && xdpyinfo >/dev/null 2>&1; then
    exec "$binary"
fi

echo "No X display reachable: starting a private virtual desktop."
number=90
while [[ -e /tmp/.X11-unix/X$number || -e /tmp/.X$number-lock ]]; do number=$((number + 1)); done
export DISPLAY=:$number
pids=()
cleanup() { kill "${pids[@]}" 2>/dev/null || true; }
trap cleanup EXIT INT TERM

Xvfb "$DISPLAY" -screen 0 1920x1080x24 -nolisten tcp >/dev/null 2>&1 & pids+=($!)
for _ in $(seq 100); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
openbox >/dev/null 2>&1 & pids+=($!)
trayer --edge top --align right --widthtype request --height 24 >/dev/null 2>&1 & pids+=($!)
xterm -geometry 100x30+200+150 -e 'echo "Hello from a virtual desktop"; exec sleep infinity' >/dev/null 2>&1 & pids+=($!)
sleep 1

history_dir=${XDG_DATA_HOME:-$HOME/.local/share}/Pixmora/History
mkdir -p "$history_dir"
before=$(ls "$history_dir" | wc -l)
"$binary" & pids+=($!)
sleep 2
echo "Pressing Ctrl+Shift+3 on $DISPLAY ..."
xdotool key ctrl+shift+3
for _ in $(seq 50); do
    [[ $(ls "$history_dir" | wc -l) -gt $before ]] && break
    sleep 0.1
done
newest=$(ls -t "$history_dir" | head -n 1)
echo "The capture went to: $history_dir/$newest"
echo "Pixmora keeps running on $DISPLAY; press Ctrl+C to stop."
wait "${pids[-1]}"

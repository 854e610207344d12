#!/bin/sh
# framehub-serve's figures for docs/performance.md, for each codec: the
# server's CPU with no client, with one client on a 640x480@30 stream and
# with a second client on a second stream of the same camera (its CPU time
# from /proc over WINDOW seconds, clients not decoding), then the age of
# frames decoded by a client (serve_latency, the feed time drawn into the
# picture). Usage: bench/serve_figures.sh [BUILD_DIR]  (default build-bench)
set -eu
cd "$(dirname "$0")/.."
BUILD=${1:-build-bench}
WINDOW=${WINDOW:-10}
[ -d "$BUILD" ] || cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DFRAMEHUB_BUILD_BENCH=ON \
    -DFRAMEHUB_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD" -j2 --target framehub-serve serve_latency >/dev/null
SERVE="$BUILD/tools/framehub-serve"
LATENCY="$BUILD/bench/serve_latency"
TICKS=$(getconf CLK_TCK)
PORT=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])' 2>/dev/null \
    || echo 18554)
PIDS=""
cleanup() { for p in $PIDS; do kill "$p" 2>/dev/null || true; done; }
trap cleanup EXIT INT TERM

cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
# Percent of one core used by process $1 over WINDOW seconds.
cpu_percent() {
    before=$(cpu_ticks "$1")
    sleep "$WINDOW"
    after=$(cpu_ticks "$1")
    echo "$before $after $TICKS $WINDOW" | awk '{ printf "%.1f", ($2 - $1) * 100 / $3 / $4 }'
}
watch_stream() {
    gst-launch-1.0 -q rtspsrc location="rtsp://127.0.0.1:$PORT/$1" latency=0 protocols=tcp ! fakesink >/dev/null 2>&1 &
    PIDS="$PIDS $!"
    sleep 2
}

for codec in h264 mjpeg; do
    "$SERVE" --camera front=Simulator2D --stream a=front:640x480@30 --stream b=front:640x480@30:BGR_888 \
        --codec "$codec" --time-code --port "$PORT" >/dev/null &
    server=$!
    PIDS="$server"
    sleep 1
    idle=$(cpu_percent "$server")
    watch_stream a
    one=$(cpu_percent "$server")
    watch_stream b
    two=$(cpu_percent "$server")
    cleanup
    PIDS=""
    wait 2>/dev/null || true
    "$SERVE" --camera front=Simulator2D --stream a=front:640x480@30 --codec "$codec" --time-code --port "$PORT" \
        >/dev/null &
    server=$!
    PIDS="$server"
    sleep 1
    latency=$("$LATENCY" "rtsp://127.0.0.1:$PORT/a" 300 || echo "failed")
    cleanup
    PIDS=""
    wait 2>/dev/null || true
    echo "$codec: server CPU (% of one core) idle $idle, one stream $one, two streams $two; latency: $latency"
done

#!/bin/sh
# Runs the V4L2 back-end against an independent V4L2 implementation: a
# private PipeWire daemon with a YUYV source node, seen as /dev/video0
# through the pw-v4l2 shim. Every process started here is stopped here, by
# its id, also on failure. Exit 77 (skipped) when something is missing.
#
#   v4l2_pipewire_test.sh TEST-BINARY SOURCE-BINARY [SANITIZERS]
set -u
SKIP=77
TEST_BINARY=$1
SOURCE_BINARY=$2
SANITIZERS=${3:-}
NODE=framehub-test-camera

skip() {
    echo "SKIPPED: $*"
    exit $SKIP
}

for tool in dbus-daemon:dbus-daemon pipewire:pipewire wireplumber:wireplumber pw-v4l2:pipewire-v4l2 \
    pw-cli:pipewire-bin flock:util-linux timeout:coreutils; do
    command -v "${tool%%:*}" >/dev/null 2>&1 || skip "${tool%%:*} not found (Debian package ${tool#*:})"
done
[ -x "$SOURCE_BINARY" ] || skip "the test source was not built (Debian package libpipewire-0.3-dev)"

# One run at a time on this machine: the shim only answers at /dev/video0.
exec 9>/tmp/framehub-v4l2-pipewire.lock
flock -w 120 9 || skip "another run holds /tmp/framehub-v4l2-pipewire.lock"
if [ -c /dev/video0 ]; then
    skip "a real /dev/video0 is present; the shim would hide it"
fi

RUNTIME=$(mktemp -d /tmp/framehub-pw.XXXXXX)
chmod 700 "$RUNTIME"
CREATED=""
PIDS=""
cleanup() {
    for pid in $PIDS; do
        kill "$pid" 2>/dev/null
    done
    for pid in $PIDS; do
        wait "$pid" 2>/dev/null
    done
    [ -n "$CREATED" ] && rm -f /dev/video0
    rm -rf "$RUNTIME"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# Waits up to about 10 s for a command to succeed.
await() {
    what=$1
    shift
    i=0
    while ! "$@" >/dev/null 2>&1; do
        i=$((i + 1))
        [ $i -gt 100 ] && { echo "FAILED: $what not ready after 10 s"; cat "$RUNTIME"/*.log; exit 1; }
        sleep 0.1
    done
}

export XDG_RUNTIME_DIR="$RUNTIME"
export DBUS_SESSION_BUS_ADDRESS="unix:path=$RUNTIME/bus"
dbus-daemon --session --address="$DBUS_SESSION_BUS_ADDRESS" --nofork --nopidfile >"$RUNTIME/dbus.log" 2>&1 &
PIDS="$! $PIDS"
await "the session bus" test -S "$RUNTIME/bus"
pipewire >"$RUNTIME/pipewire.log" 2>&1 &
PIDS="$! $PIDS"
await "pipewire" test -S "$RUNTIME/pipewire-0"
wireplumber >"$RUNTIME/wireplumber.log" 2>&1 &
PIDS="$! $PIDS"
# A solid red in studio-range YUV.
"$SOURCE_BINARY" "$NODE" 81 90 240 >"$RUNTIME/source.log" 2>&1 &
SOURCE_PID=$!
PIDS="$SOURCE_PID $PIDS"
await "the source node" sh -c "pw-cli ls Node | grep -q 'node.name = \"$NODE\"'"

if [ ! -e /dev/video0 ]; then
    : >/dev/video0 || skip "can't create /dev/video0 for the shim"
    CREATED=yes
fi

# The shim comes before the sanitizer runtime, and its start-up deadlocks
# with the symbolizer's: reports of this run carry raw addresses.
case "$SANITIZERS" in
*thread*) export TSAN_OPTIONS="${TSAN_OPTIONS:+$TSAN_OPTIONS:}symbolize=0" ;;
*address*)
    export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0:symbolize=0"
    export LSAN_OPTIONS="${LSAN_OPTIONS:+$LSAN_OPTIONS:}suppressions=$(dirname "$0")/lsan_pipewire.supp"
    ;;
esac
export FRAMEHUB_PW_SOURCE_PID=$SOURCE_PID
export FRAMEHUB_PW_SOURCE_LOG="$RUNTIME/source.log"
PIPEWIRE_V4L2_TARGET=$NODE timeout 60 pw-v4l2 "$TEST_BINARY" --gtest_filter='PipeWire.*'
status=$?
[ $status -eq 124 ] && echo "FAILED: the test did not finish within 60 s"
exit $status

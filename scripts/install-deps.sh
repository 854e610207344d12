#!/bin/sh
# Installs the Debian 12 packages needed to build, test and benchmark.
# Quick when everything is present: apt is only touched for what is missing.
set -eu

PACKAGES="cmake g++ make pkg-config git clang-format clang-tidy clang libclang-rt-14-dev \
libboost-thread-dev libboost-system-dev \
libopencv-core-dev libopencv-imgproc-dev libopencv-imgcodecs-dev \
libgtest-dev libbenchmark-dev libyuv-dev \
python3-matplotlib \
libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-tools \
dpkg-dev file \
pybind11-dev python3-dev python3-numpy python3-pytest \
libturbojpeg0-dev \
pipewire pipewire-bin pipewire-v4l2 wireplumber dbus-daemon libpipewire-0.3-dev \
libgstrtspserver-1.0-dev gstreamer1.0-plugins-ugly gstreamer1.0-rtsp gstreamer1.0-libav"

missing=""
for p in $PACKAGES; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    case "$status" in
        *"install ok installed"*) ;;
        *) missing="$missing $p" ;;
    esac
done

[ -z "$missing" ] && exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
        SUDO="sudo"
    else
        echo "install-deps: missing packages:$missing (run as root or install sudo)" >&2
        exit 1
    fi
fi

echo "install-deps: installing$missing"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
# shellcheck disable=SC2086
$SUDO apt-get install -y -q --no-install-recommends $missing
